// What a client's socket did not take at once, in order. The owner guards it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>

#include "platform/socket.h"
#include "qvx/socket_server.h"

namespace qvx::net {

// One payload for one client or for many. The bytes behind parts belong to the caller; the
// first queue that has to keep some of them makes one copy, which all queues share.
struct SendRequest {
  const platform::ConstBytes* parts = nullptr;
  std::size_t count = 0;
  std::size_t part_bytes = 0;
  std::shared_ptr<ISocketSendFile> file;  // a range of it follows the parts, if not null
  std::uint64_t file_offset = 0;
  std::size_t file_bytes = 0;
  std::shared_ptr<unsigned char[]> kept;

  std::size_t PayloadBytes() const { return part_bytes + file_bytes; }
};

enum class SendOutcome { kDone, kQueued, kFailed };

class SendQueue {
 public:
  bool IsEmpty() const { return pending_.empty(); }

  // Sends header_bytes of header and then the payload, or queues what isn't taken at once.
  // Fails if the connection is broken, or if the queue isn't empty and the packet would fill
  // it beyond limit. May throw std::bad_alloc, after which the stream is cut in a packet.
  SendOutcome Send(platform::SocketValue socket, const unsigned char* header,
                   std::size_t header_bytes, SendRequest& request, std::size_t limit);

  // Sends as much of the queue as the socket takes: kQueued if some is left.
  SendOutcome Flush(platform::SocketValue socket);

  void Clear();

 private:
  struct Pending {
    std::array<unsigned char, 20> header;
    std::size_t header_bytes = 0;
    std::shared_ptr<unsigned char[]> bytes;
    std::size_t byte_count = 0;
    std::size_t sent = 0;  // of header and bytes together
    std::shared_ptr<ISocketSendFile> file;
    std::uint64_t file_offset = 0;
    std::size_t file_bytes = 0;

    std::size_t HeadLeft() const { return header_bytes + byte_count - sent; }
  };

  SendOutcome SendDirect(platform::SocketValue socket, const unsigned char* header,
                         std::size_t header_bytes, SendRequest& request);
  void Push(const unsigned char* header, std::size_t header_bytes, SendRequest& request,
            std::size_t sent);
  SendOutcome FlushFront(platform::SocketValue socket);
  SendOutcome FlushHead(platform::SocketValue socket, Pending& item);
  static SendOutcome SendFile(platform::SocketValue socket, const ISocketSendFile& file,
                              std::uint64_t& offset, std::size_t& bytes);

  std::list<Pending> pending_;
  std::size_t cost_ = 0;  // bytes kept, and a flat amount for each file range
};

}  // namespace qvx::net
