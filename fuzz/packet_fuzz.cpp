// Whatever bytes a peer sends, and however they are split, all ways of receiving must find the
// same packets and give up in the same cases.
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "net/packet_reader.h"
#include "qvx/socket_primitives.h"

namespace {

using Packets = std::vector<std::pair<std::uint64_t, std::string>>;

constexpr std::size_t kMostBytes = 64 * 1024;
constexpr std::uint32_t kHead = 24;

void Require(bool holds) {
  if (!holds) std::abort();
}

std::string Payload(const tagTCPPACKETRECV& record) {
  return std::string(reinterpret_cast<const char*>(record.pPayload), record.nPayloadBytes);
}

// A connection, one way of receiving from it, and what came of that.
class Receiver {
 public:
  Receiver() { Require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends_) == 0); }
  virtual ~Receiver() {
    qvx::net::ClearPacket(record_);
    close(ends_[0]);
    close(ends_[1]);
  }
  Receiver(const Receiver&) = delete;
  Receiver& operator=(const Receiver&) = delete;

  void Take(const std::uint8_t* data, std::size_t size) {
    if (!alive_) return;
    Require(send(ends_[1], data, size, MSG_NOSIGNAL) == static_cast<ssize_t>(size));
    int waiting = 1;
    while (alive_ && waiting > 0) {
      alive_ = Receive(static_cast<std::uint64_t>(ends_[0]));
      Require(ioctl(ends_[0], FIONREAD, &waiting) == 0);
    }
  }

  bool Agrees(const Receiver& other) const {
    return alive_ == other.alive_ && packets_ == other.packets_;
  }

 protected:
  virtual bool Receive(std::uint64_t socket) = 0;

  tagTCPPACKETRECV record_{};
  Packets packets_;

 private:
  int ends_[2];
  bool alive_ = true;
};

// One packet a call.
class Single : public Receiver {
  bool Receive(std::uint64_t socket) override {
    if (RecvTCPPacket(socket, 0, &record_) == 0) return false;
    if (record_.bComplete == 0) return true;
    packets_.emplace_back(record_.nCode, Payload(record_));
    qvx::net::ClearPacket(record_);
    return true;
  }
};

// Many packets a call.
class Many : public Receiver, protected qvx::net::PacketSink {
  bool Receive(std::uint64_t socket) override {
    return reader_.Receive(socket, false, record_, *this);
  }
  bool OnPacket(tagTCPPACKETRECV& record) override {
    if (record.nLength > 0) packets_.emplace_back(record.nCode, Payload(record));
    return true;
  }

  qvx::net::PacketReader reader_;
};

// The same, with all but the head of a payload put elsewhere.
class Placing : public Many {
  std::uint32_t HeadSize() override { return kHead; }
  unsigned char* Place(const tagTCPPACKETRECV& record, std::uint32_t* room) override {
    const std::size_t offset = record.nPayloadBytes - kHead;
    if (place_.size() < offset + *room) place_.resize(offset + std::min(*room, 4096u));
    *room = static_cast<std::uint32_t>(place_.size() - offset);
    return reinterpret_cast<unsigned char*>(place_.data()) + offset;
  }
  bool OnPlacedPacket(const tagTCPPACKETRECV& record) override {
    std::string payload(reinterpret_cast<const char*>(record.pPayload), kHead);
    packets_.emplace_back(record.nCode, payload + place_.substr(0, record.nLength - kHead));
    place_.clear();
    return true;
  }

  std::string place_;
};

}  // namespace

// The first byte is the size of the pieces less one, the rest is what the peer sends.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2 || size > kMostBytes) return 0;
  const std::size_t piece = std::size_t{data[0]} + 1;
  Single single;
  Many many;
  Placing placing;
  for (std::size_t done = 1; done < size; done += piece) {
    const std::size_t count = std::min(piece, size - done);
    single.Take(data + done, count);
    many.Take(data + done, count);
    placing.Take(data + done, count);
    Require(single.Agrees(many));
    Require(single.Agrees(placing));
  }
  return 0;
}
