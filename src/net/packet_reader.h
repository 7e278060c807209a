// Receives packets for one receiving thread with few system calls: small packets come many at
// a time through a buffer that the thread's connections share, large payloads go straight to
// their own memory. Between two calls nothing stays in the shared buffer, so one reader serves
// any number of connections, each with a tagTCPPACKETRECV of its own. Not for several threads
// at once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "qvx/socket_primitives.h"

namespace qvx::net {

// Who gets the packets of one connection.
class PacketSink {
 public:
  virtual ~PacketSink() = default;

  // A packet is complete. The sink may take record.pPayload (and set it null); what it leaves
  // is released. False ends the connection: nothing more is received.
  virtual bool OnPacket(tagTCPPACKETRECV& record) = 0;

  // For payloads that go to a place of the sink's choosing; see CSocketClient::SetPlacedHead.
  // The defaults leave every packet an ordinary one.
  virtual std::uint32_t HeadSize() { return 0; }
  virtual unsigned char* Place(const tagTCPPACKETRECV& record, std::uint32_t* room);
  virtual void Placed(const tagTCPPACKETRECV& record, std::uint32_t size);
  virtual bool OnPlacedPacket(const tagTCPPACKETRECV& record);
  virtual std::uint32_t Pour(const tagTCPPACKETRECV& record, std::uint64_t socket);
};

class PacketReader {
 public:
  PacketReader();
  ~PacketReader();

  // Takes what waits on the socket, without blocking, at most about a megabyte (or what one
  // receive brings) and hands on all packets that this completes. False: give up the
  // connection, for the reasons and with the log lines of RecvTCPPacket or because the sink
  // said so; the record is then empty. A failed allocation throws std::bad_alloc and leaves
  // the connection out of step: give it up, too.
  bool Receive(std::uint64_t socket, bool check, tagTCPPACKETRECV& record, PacketSink& sink);

 private:
  class Pass;
  static constexpr std::size_t kBufferSize = 32 * 1024;
  std::unique_ptr<unsigned char[]> buffer_;
  bool large_ = false;  // the last payload was
};

// Releases the payload and fills the record with zeros.
void ClearPacket(tagTCPPACKETRECV& record) noexcept;

// The 20 bytes in front of a payload, with the process's match code.
tagTCPPACKETHEADER MakePacketHeader(std::uint64_t code, std::uint32_t length) noexcept;

}  // namespace qvx::net
