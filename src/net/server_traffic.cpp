// The receive and dispatch threads of a server.
#include <algorithm>
#include <climits>
#include <cstring>
#include <new>

#include "net/payload_blocks.h"
#include "net/rate_period.h"
#include "net/server_engine.h"
#include "net/server_scope.h"
#include "platform/clock.h"
#include "qvx/debug_output.h"

namespace qvx::net {
namespace {

constexpr int kPollMilliseconds = 100;
constexpr int kDispatchWaitMilliseconds = 100;

// A client that sends faster than its items are dispatched is not read for a while.
constexpr std::size_t kMostReceivedBytes = std::size_t{16} << 20;
constexpr std::size_t kItemCost = 64;

struct FreeItem {
  void operator()(const tagCLIENTSOCKETBUFFER* item) const {
    ReleasePayloadBlock(item->pData, static_cast<std::uint32_t>(item->nSize));
    delete item;
  }
};

using ItemPointer = std::unique_ptr<const tagCLIENTSOCKETBUFFER, FreeItem>;

}  // namespace

class ServerEngine::Sink : public PacketSink {
 public:
  Sink(ServerEngine& engine, ClientRecord& client) : engine_(engine), client_(client) {}

  bool OnPacket(tagTCPPACKETRECV& record) override {
    if (record.nLength > INT_MAX) return false;
    std::unique_ptr<unsigned char[]> data(record.pPayload);
    record.pPayload = nullptr;
    if (data && record.nLength > 0) {
      engine_.QueueReceived(client_, record.nCode, std::move(data), record.nLength);
    }
    return true;
  }

 private:
  ServerEngine& engine_;
  ClientRecord& client_;
};

int ServerEngine::RunReceive() {
  const int count = poll_.Wait(events_.data(), static_cast<int>(events_.size()), kPollMilliseconds);
  if (stopping_) return 0;
  if (count < 0) {
    DbgOutputA(2, "%s WSAPoll error=%d\r\n", server_.mRecvThread.GetThreadName(),
               platform::LastSocketError());
    server_.mRecvEvent.Wait(kPollMilliseconds);
    return 1;
  }
  if (count == 0) return 1;
  const Scope scope(*this);
  for (int i = 0; i < count; ++i) HandleEvent(events_[static_cast<std::size_t>(i)]);
  return 1;
}

void ServerEngine::HandleEvent(const platform::PollItem& item) {
  ClientRecord* client = Find(item.socket);
  if (client == nullptr) {
    if ((item.happened & platform::kPollRead) != 0) {
      DbgOutputA(2, "cannot find client socket by fd:%d\r\n",
                 platform::SocketDescriptor(item.socket));
    }
    return;
  }
  if ((item.happened & platform::kPollRead) != 0) ReceiveFrom(*client);
  if ((item.happened & platform::kPollWrite) != 0) FlushQueue(*client);
  if ((item.happened & platform::kPollEnded) != 0) {
    client->broken = (item.happened & platform::kPollError) != 0;
    MarkNeedClose(*client);
  }
}

void ServerEngine::ReceiveFrom(ClientRecord& client) {
  bool going_on = false;
  try {
    if (server_.mRawFlag != 0) {
      going_on = ReceiveRaw(client);
    } else {
      Sink sink(*this, client);
      going_on =
          reader_.Receive(client.nSocketFD, server_.mCheckFlag != 0, client.mRecvPacket, sink);
    }
  } catch (const std::bad_alloc&) {
    going_on = false;
  }
  if (going_on) {
    UpdateInterest(client);
    return;
  }
  ClearPacket(client.mRecvPacket);
  platform::ShutdownSocket(client.nSocketFD);
}

bool ServerEngine::ReceiveRaw(ClientRecord& client) {
  unsigned char* block = nullptr;
  std::uint32_t size = 0;
  const bool going_on = RecvTCPRaw(client.nSocketFD, &block, &size) != 0;
  std::unique_ptr<unsigned char[]> data(block);
  if (data) QueueReceived(client, SOCKET_CODE_TO_SERVER, std::move(data), size);
  return going_on;
}

void ServerEngine::QueueReceived(ClientRecord& client, std::uint64_t code,
                                 std::unique_ptr<unsigned char[]> data, std::uint32_t size) {
  const int item_size = static_cast<int>(size);
  ItemPointer item(new tagCLIENTSOCKETBUFFER{code, nullptr, item_size});
  if (!client.ready) {
    ready_.push_back(&client);
    client.ready = true;
  }
  client.mRecvList.AddData(item.get(), -1);
  const_cast<tagCLIENTSOCKETBUFFER*>(item.release())->pData = data.release();
  client.received_bytes += size + kItemCost;
  signal_dispatch_ = true;
  CountInPeriod(size, server_.mRecvBytes, server_.mRecvRate, server_.mRecvPeriodStart);
}

void ServerEngine::FlushQueue(ClientRecord& client) {
  const SendOutcome outcome = client.queue.Flush(client.nSocketFD);
  client.progress_tick = platform::TickMilliseconds();
  if (outcome == SendOutcome::kFailed) {
    DbgOutputA(2, "socket %d send data failed\r\n", platform::SocketDescriptor(client.nSocketFD));
    client.queue.Clear();
    platform::ShutdownSocket(client.nSocketFD);
  } else if (outcome == SendOutcome::kDone && client.draining) {
    platform::ShutdownSocket(client.nSocketFD);
  }
  UpdateInterest(client);
}

void ServerEngine::UpdateInterest(ClientRecord& client) {
  if (!client.polled) return;
  std::uint16_t wanted = 0;
  if (!client.draining && client.received_bytes < kMostReceivedBytes) {
    wanted |= platform::kPollRead;
  }
  if (!client.queue.IsEmpty()) wanted |= platform::kPollWrite;
  if (wanted == client.interest) return;
  if (poll_.Change(client.nSocketFD, wanted)) client.interest = wanted;
}

void ServerEngine::MarkNeedClose(ClientRecord& client) {
  if (client.polled) poll_.Remove(client.nSocketFD);
  client.polled = false;
  if (client.bNeedClose == 0) ++need_close_count_;
  client.bNeedClose = 1;
  signal_close_ = true;
}

int ServerEngine::RunDispatch() {
  server_.mDispatchEvent.Wait(kDispatchWaitMilliseconds);
  if (stopping_) return 0;
  const Scope scope(*this);
  DispatchReady();
  return 1;
}

bool ServerEngine::DispatchEnds() const {
  return stopping_ || abandoned_;
}

void ServerEngine::DispatchReady() {
  std::sort(ready_.begin(), ready_.end(),
            [](const ClientRecord* a, const ClientRecord* b) { return a->order < b->order; });
  for (ClientRecord* client : ready_) {
    DispatchClient(*client);
    if (DispatchEnds()) return;
    client->ready = false;
    client->received_bytes = 0;
    UpdateInterest(*client);
    if (client->bNeedClose != 0) signal_close_ = true;
  }
  ready_.clear();
}

void ServerEngine::DispatchClient(ClientRecord& client) {
  while (!client.mRecvList.IsEmpty() && !DispatchEnds()) {
    const ItemPointer item(
        static_cast<const tagCLIENTSOCKETBUFFER*>(client.mRecvList.DeleteHead()));
    try {
      DispatchItem(client, *item);
    } catch (const std::bad_alloc&) {
      platform::ShutdownSocket(client.nSocketFD);
    }
  }
}

void ServerEngine::DispatchItem(ClientRecord& client, const tagCLIENTSOCKETBUFFER& item) {
  const platform::ConstBytes part{item.pData, static_cast<std::size_t>(item.nSize)};
  SendRequest request;
  request.parts = &part;
  request.count = 1;
  request.part_bytes = part.size;
  switch (item.nCode) {
    case SOCKET_CODE_ALL_CLIENTS:
      return SendToAllBut(platform::kNoSocket, request);
    case SOCKET_CODE_OTHER_CLIENTS:
      return SendToAllBut(client.nSocketFD, request);
    case SOCKET_CODE_TO_SERVER:
      return HandToListener(client, item);
    case SOCKET_CODE_HELLO:
      return LearnPeerSocket(client, item);
    default:
      break;
  }
  ClientRecord* target = Find(item.nCode);
  if (target == nullptr) {
    CountSent(part.size);
  } else {
    SendToClient(*target, request);
  }
}

void ServerEngine::HandToListener(ClientRecord& client, const tagCLIENTSOCKETBUFFER& item) {
  if (server_.mListener == nullptr) return;
  const int going_on =
      server_.mListener->OnServerReceiveData(server_.mUserData, &client, item.pData, item.nSize);
  if (going_on == 0 && !abandoned_) ShutDownClient(client);
}

void ServerEngine::LearnPeerSocket(ClientRecord& client, const tagCLIENTSOCKETBUFFER& item) {
  tagSOCKETHELLO hello;
  if (item.nSize < static_cast<int>(sizeof(hello))) return;
  std::memcpy(&hello, item.pData, sizeof(hello));
  if (hello.nTag != SOCKET_HELLO_TAG || hello.nVersion != SOCKET_HELLO_VERSION) return;
  client.nPeerSocketFD = hello.nSocketFD;
}

}  // namespace qvx::net
