// Steps that every receiver of packets shares: the check of a header, the memory for a payload,
// and what a receive that brought nothing means. They act on one tagTCPPACKETRECV.
#pragma once

#include <algorithm>
#include <cstdint>

#include "platform/socket.h"
#include "qvx/socket_primitives.h"

namespace qvx::net {

inline constexpr std::uint32_t kHeaderSize = sizeof(tagTCPPACKETHEADER);
// What one call takes from a connection before others have their turn.
inline constexpr std::size_t kTurnBytes = std::size_t{1} << 20;

inline unsigned char* HeaderBytes(tagTCPPACKETRECV& record) {
  return reinterpret_cast<unsigned char*>(&record);
}

// False, with a log line, if this is no packet or one of a stranger.
bool IsHeaderGood(const tagTCPPACKETRECV& record, bool check);

// Makes sure that memory is there for at least one more byte of the payload, or for the whole
// of the first bytes if that is given. A claimed length costs memory only as bytes come.
void MakePayloadRoom(tagTCPPACKETRECV& record, std::uint32_t first = 0);

// How many payload bytes can come now, once there is room.
inline std::uint32_t PayloadRoom(const tagTCPPACKETRECV& record) {
  return std::min(record.nPayloadRoom, record.nLength) - record.nPayloadBytes;
}

// After a receive without a byte: true to go on, false, with a log line, to give up.
bool IsConnectionUsable(std::uint64_t socket, const platform::IoResult& result);
// The log line of a receive that failed.
void LogReceiveFailure(const platform::IoResult& result);

}  // namespace qvx::net
