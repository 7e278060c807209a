#include "net/packet_reader.h"

#include <algorithm>
#include <cstring>

#include "net/packet_record.h"

namespace qvx::net {
namespace {

enum Placing : std::uint32_t { kUndecided, kOrdinary, kPlaced };

// Where a payload is large the next one probably is, too: then only its head comes through the
// shared buffer.
constexpr std::size_t kLargePayload = 64 * 1024;
constexpr std::size_t kHeadRead = 1024;

// Where the next payload bytes go; null data drops them.
struct Target {
  unsigned char* data;
  std::uint32_t size;
  bool placed;
};

}  // namespace

unsigned char* PacketSink::Place(const tagTCPPACKETRECV&, std::uint32_t*) {
  return nullptr;
}

void PacketSink::Placed(const tagTCPPACKETRECV&, std::uint32_t) {}

std::uint32_t PacketSink::Pour(const tagTCPPACKETRECV&, std::uint64_t) {
  return 0;
}

bool PacketSink::OnPlacedPacket(const tagTCPPACKETRECV&) {
  return true;
}

// One call of PacketReader::Receive.
class PacketReader::Pass {
 public:
  Pass(PacketReader& reader, std::uint64_t socket, bool check, tagTCPPACKETRECV& record,
       PacketSink& sink)
      : buffer_(reader.buffer_.get()),
        large_(reader.large_),
        socket_(socket),
        check_(check),
        record_(record),
        sink_(sink) {}

  bool Run() {
    std::size_t total = 0;
    do {
      const platform::IoResult result = ReceiveOnce();
      if (result.bytes == 0) return IsEndFine(result, total == 0);
      total += result.bytes;
      if (!UseBuffer() || (IsComplete() && !Deliver())) return false;
    } while (!drained_ && total < kTurnBytes);
    return true;
  }

 private:
  bool HasHeader() const { return record_.nHeaderBytes == kHeaderSize; }
  std::uint32_t Missing() const { return record_.nLength - record_.nPayloadBytes; }
  bool IsComplete() const { return HasHeader() && record_.nLength != 0 && Missing() == 0; }

  // A close or a lack of bytes behind others is told by the next call.
  bool IsEndFine(const platform::IoResult& result, bool first) {
    if (!first && result.error == 0) return true;
    return IsConnectionUsable(socket_, result);
  }

  platform::IoResult ReceiveOnce() {
    if (HasHeader() && Missing() > 0) {
      if (const std::uint32_t poured = Pour()) return {poured, 0};
      const Target target = NextTarget();
      if (target.data != nullptr) return ReceiveInto(target);
    }
    const std::size_t size = large_ ? kHeadRead : kBufferSize;
    const platform::IoResult result = platform::Receive(socket_, buffer_, size);
    staged_ = buffer_;
    staged_size_ = result.bytes;
    drained_ = result.bytes < size;
    return result;
  }

  // Bytes that the sink took off the socket.
  std::uint32_t Pour() {
    if (record_.nPlacing != kPlaced || record_.nLength < kLargePayload) return 0;
    const std::uint32_t missing = Missing();
    const std::uint32_t poured = std::min(sink_.Pour(record_, socket_), missing);
    record_.nPayloadBytes += poured;
    drained_ = poured < missing;
    return poured;
  }

  platform::IoResult ReceiveInto(const Target& target) {
    const bool whole = target.size == Missing();
    const std::size_t behind = !whole ? 0 : target.size >= kLargePayload ? kHeadRead : kBufferSize;
    const platform::MutableBytes parts[] = {{target.data, target.size}, {buffer_, behind}};
    const platform::IoResult result = platform::ReceiveParts(socket_, parts, 2);
    const auto direct =
        static_cast<std::uint32_t>(std::min<std::size_t>(result.bytes, target.size));
    Took(target, direct);
    staged_ = buffer_;
    staged_size_ = result.bytes - direct;
    drained_ = result.bytes < target.size + behind;
    return result;
  }

  void Took(const Target& target, std::uint32_t size) {
    if (target.placed) sink_.Placed(record_, size);
    record_.nPayloadBytes += size;
  }

  Target NextTarget() {
    if (record_.nPlacing == kUndecided) {
      const std::uint32_t head = sink_.HeadSize();
      if (head == 0 || record_.nLength <= head) {
        record_.nPlacing = kOrdinary;
      } else if (record_.nPayloadBytes < head) {
        MakePayloadRoom(record_, head);
        return {record_.pPayload + record_.nPayloadBytes, head - record_.nPayloadBytes, false};
      }
    }
    return record_.nPlacing == kOrdinary ? OrdinaryTarget() : PlacedTarget();
  }

  Target PlacedTarget() {
    std::uint32_t room = Missing();
    if (unsigned char* place = sink_.Place(record_, &room)) {
      record_.nPlacing = kPlaced;
      return {place, std::clamp(room, std::uint32_t{1}, Missing()), true};
    }
    if (record_.nPlacing == kPlaced) return {nullptr, Missing(), false};
    record_.nPlacing = kOrdinary;
    return OrdinaryTarget();
  }

  Target OrdinaryTarget() {
    MakePayloadRoom(record_);
    return {record_.pPayload + record_.nPayloadBytes, PayloadRoom(record_), false};
  }

  // Gives out all that is in the shared buffer. False to give up.
  bool UseBuffer() {
    while (staged_size_ > 0) {
      if (IsComplete()) {
        if (!Deliver()) return false;
      } else if (!HasHeader()) {
        TakeHeader();
        if (HasHeader() && !IsHeaderGood(record_, check_)) return false;
      } else if (record_.nLength == 0) {
        LogReceiveFailure({0, 0});
        return false;
      } else {
        TakePayload();
      }
    }
    return true;
  }

  void TakeHeader() {
    const auto size = static_cast<std::uint32_t>(
        std::min<std::size_t>(staged_size_, kHeaderSize - record_.nHeaderBytes));
    std::memcpy(HeaderBytes(record_) + record_.nHeaderBytes, staged_, size);
    record_.nHeaderBytes += size;
    Consume(size);
  }

  void TakePayload() {
    const Target target = NextTarget();
    const auto size = static_cast<std::uint32_t>(std::min<std::size_t>(staged_size_, target.size));
    if (target.data != nullptr) std::memcpy(target.data, staged_, size);
    Took(target, size);
    Consume(size);
  }

  void Consume(std::size_t size) {
    staged_ += size;
    staged_size_ -= size;
  }

  bool Deliver() {
    record_.bComplete = 1;
    large_ = record_.nLength >= kLargePayload;
    const bool go_on =
        record_.nPlacing == kPlaced ? sink_.OnPlacedPacket(record_) : sink_.OnPacket(record_);
    ClearPacket(record_);
    return go_on;
  }

  unsigned char* const buffer_;
  bool& large_;
  const std::uint64_t socket_;
  const bool check_;
  tagTCPPACKETRECV& record_;
  PacketSink& sink_;
  unsigned char* staged_ = nullptr;
  std::size_t staged_size_ = 0;
  bool drained_ = false;
};

PacketReader::PacketReader() : buffer_(new unsigned char[kBufferSize]) {}

PacketReader::~PacketReader() = default;

bool PacketReader::Receive(std::uint64_t socket, bool check, tagTCPPACKETRECV& record,
                           PacketSink& sink) {
  if (Pass(*this, socket, check, record, sink).Run()) return true;
  ClearPacket(record);
  return false;
}

}  // namespace qvx::net
