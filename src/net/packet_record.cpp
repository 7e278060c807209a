#include "net/packet_record.h"

#include <algorithm>
#include <cstring>

#include "net/packet_reader.h"
#include "net/payload_blocks.h"
#include "qvx/debug_output.h"

namespace qvx::net {
namespace {

constexpr std::uint64_t kFirstRoom = 64 * 1024;
constexpr std::uint64_t kSecondRoom = 1024 * 1024;

// After the first 64 KiB have come the next step is wide, so that payloads of a megabyte are
// moved once at most.
std::uint32_t NextRoom(const tagTCPPACKETRECV& record, std::uint32_t first) {
  std::uint64_t room = std::uint64_t{record.nPayloadRoom} * 2;
  if (first != 0) {
    room = first;
  } else if (record.nPayloadRoom < kFirstRoom) {
    room = kFirstRoom;
  } else {
    room = std::max(room, kSecondRoom);
  }
  return static_cast<std::uint32_t>(std::min<std::uint64_t>(room, record.nLength));
}

}  // namespace

bool IsHeaderGood(const tagTCPPACKETRECV& record, bool check) {
  if (record.nTag != SOCKET_PACKET_TAG) {
    DbgOutputA(2, "RecvOnePackage: tag not match, expect:0x%08x, actual is 0x%08x\r\n",
               SOCKET_PACKET_TAG, record.nTag);
    return false;
  }
  const std::uint32_t own = GetSocketMatchCode();
  if (!check || own == 0 || own == record.nMatchCode) return true;
  DbgOutputA(2, "RecvOnePackage: code not match, expect:%lu, actual is %lu\r\n",
             static_cast<unsigned long>(own), static_cast<unsigned long>(record.nMatchCode));
  return false;
}

void MakePayloadRoom(tagTCPPACKETRECV& record, std::uint32_t first) {
  if (record.nPayloadBytes < record.nPayloadRoom) return;
  if (record.nPayloadRoom == 0 && first == 0) {
    // A kept block costs nothing new, so it may be as large as the claim.
    record.pPayload = TakePayloadBlock(record.nLength, &record.nPayloadRoom);
    if (record.pPayload != nullptr) return;
  }
  const std::uint32_t room = NextRoom(record, first);
  auto* grown = new unsigned char[room];
  if (record.nPayloadBytes > 0) std::memcpy(grown, record.pPayload, record.nPayloadBytes);
  delete[] record.pPayload;
  record.pPayload = grown;
  record.nPayloadRoom = room;
}

void LogReceiveFailure(const platform::IoResult& result) {
  DbgOutputA(2, "RecvTCPPacket: nRecvBytes = %d, error=%d\r\n", result.error == 0 ? 0 : -1,
             result.error);
}

bool IsConnectionUsable(std::uint64_t socket, const platform::IoResult& result) {
  if (result.WouldBlock()) return true;
  const int happened = platform::PollSocket(socket, platform::kPollRead, 0);
  if (happened > 0 && (happened & platform::kPollInvalid) != 0) return true;
  if (happened > 0 && (happened & (platform::kPollError | platform::kPollHangUp)) != 0) {
    DbgOutputA(2, "RecvTCPPacket socket closed, nSocketFD = %d\r\n",
               platform::SocketDescriptor(socket));
  } else {
    LogReceiveFailure(result);
  }
  return false;
}

void ClearPacket(tagTCPPACKETRECV& record) noexcept {
  ReleasePayloadBlock(record.pPayload, record.nPayloadRoom);
  record = tagTCPPACKETRECV{};
}

tagTCPPACKETHEADER MakePacketHeader(std::uint64_t code, std::uint32_t length) noexcept {
  return tagTCPPACKETHEADER{SOCKET_PACKET_TAG, GetSocketMatchCode(), code, length};
}

}  // namespace qvx::net
