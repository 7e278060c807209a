#include "net/send_queue.h"

#include <algorithm>
#include <cstring>

namespace qvx::net {
namespace {

constexpr std::size_t kFileCost = 4096;

void KeepParts(SendRequest& request) {
  if (request.kept || request.part_bytes == 0) return;
  std::shared_ptr<unsigned char[]> copy(new unsigned char[request.part_bytes]);
  std::size_t filled = 0;
  for (std::size_t i = 0; i < request.count; ++i) {
    if (request.parts[i].size == 0) continue;
    std::memcpy(copy.get() + filled, request.parts[i].data, request.parts[i].size);
    filled += request.parts[i].size;
  }
  request.kept = std::move(copy);
}

}  // namespace

SendOutcome SendQueue::Send(platform::SocketValue socket, const unsigned char* header,
                            std::size_t header_bytes, SendRequest& request, std::size_t limit) {
  if (pending_.empty()) return SendDirect(socket, header, header_bytes, request);
  const std::size_t cost =
      header_bytes + request.part_bytes + (request.file_bytes > 0 ? kFileCost : 0);
  if (cost_ + cost > limit) return SendOutcome::kFailed;
  Push(header, header_bytes, request, 0);
  return SendOutcome::kQueued;
}

SendOutcome SendQueue::SendDirect(platform::SocketValue socket, const unsigned char* header,
                                  std::size_t header_bytes, SendRequest& request) {
  std::array<platform::ConstBytes, platform::kMaxParts> parts;
  parts[0] = {header, header_bytes};
  std::size_t count = 1;
  if (request.count + 1 > parts.size()) {
    KeepParts(request);
    parts[count++] = {request.kept.get(), request.part_bytes};
  } else {
    count =
        1 + static_cast<std::size_t>(std::copy_n(request.parts, request.count, parts.begin() + 1) -
                                     (parts.begin() + 1));
  }
  const std::size_t head = header_bytes + request.part_bytes;
  const platform::IoResult result =
      platform::SendParts(socket, parts.data(), count, request.file_bytes > 0);
  if (result.error != 0 && !result.WouldBlock()) return SendOutcome::kFailed;
  if (result.bytes == head && request.file_bytes == 0) return SendOutcome::kDone;
  SendRequest rest = request;
  if (result.bytes == head) {
    const SendOutcome outcome = SendFile(socket, *rest.file, rest.file_offset, rest.file_bytes);
    if (outcome != SendOutcome::kQueued) return outcome;
  }
  Push(header, header_bytes, rest, result.bytes);
  request.kept = rest.kept;
  return SendOutcome::kQueued;
}

void SendQueue::Push(const unsigned char* header, std::size_t header_bytes, SendRequest& request,
                     std::size_t sent) {
  Pending item;
  const std::size_t head = header_bytes + request.part_bytes;
  if (sent < head) {
    KeepParts(request);
    std::copy_n(header, header_bytes, item.header.begin());
    item.header_bytes = header_bytes;
    item.bytes = request.kept;
    item.byte_count = request.part_bytes;
    item.sent = sent;
  }
  item.file = request.file;
  item.file_offset = request.file_offset;
  item.file_bytes = request.file_bytes;
  const std::size_t cost = item.HeadLeft() + (item.file_bytes > 0 ? kFileCost : 0);
  pending_.push_back(std::move(item));
  cost_ += cost;
}

SendOutcome SendQueue::Flush(platform::SocketValue socket) {
  while (!pending_.empty()) {
    const SendOutcome outcome = FlushFront(socket);
    if (outcome != SendOutcome::kDone) return outcome;
    if (pending_.front().file) cost_ -= kFileCost;
    pending_.pop_front();
  }
  return SendOutcome::kDone;
}

SendOutcome SendQueue::FlushFront(platform::SocketValue socket) {
  Pending& item = pending_.front();
  if (item.HeadLeft() > 0) {
    const SendOutcome outcome = FlushHead(socket, item);
    if (outcome != SendOutcome::kDone) return outcome;
  }
  if (item.file_bytes == 0) return SendOutcome::kDone;
  return SendFile(socket, *item.file, item.file_offset, item.file_bytes);
}

SendOutcome SendQueue::FlushHead(platform::SocketValue socket, Pending& item) {
  const std::size_t header_sent = std::min(item.sent, item.header_bytes);
  const std::size_t bytes_sent = item.sent - header_sent;
  const platform::ConstBytes parts[] = {
      {item.header.data() + header_sent, item.header_bytes - header_sent},
      {item.bytes.get() + bytes_sent, item.byte_count - bytes_sent}};
  const platform::IoResult result = platform::SendParts(socket, parts, 2, item.file_bytes > 0);
  if (result.error != 0 && !result.WouldBlock()) return SendOutcome::kFailed;
  item.sent += result.bytes;
  cost_ -= result.bytes;
  return item.HeadLeft() == 0 ? SendOutcome::kDone : SendOutcome::kQueued;
}

SendOutcome SendQueue::SendFile(platform::SocketValue socket, const ISocketSendFile& file,
                                std::uint64_t& offset, std::size_t& bytes) {
  while (bytes > 0) {
    const platform::IoResult result =
        platform::SendFileRange(socket, file.GetSendDescriptor(), offset, bytes);
    if (result.WouldBlock()) return SendOutcome::kQueued;
    if (result.error != 0 || result.bytes == 0) return SendOutcome::kFailed;
    offset += result.bytes;
    bytes -= result.bytes;
  }
  return SendOutcome::kDone;
}

void SendQueue::Clear() {
  pending_.clear();
  cost_ = 0;
}

}  // namespace qvx::net
