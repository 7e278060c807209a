#include "net/server_engine.h"

#include <string>

#include "net/rate_period.h"
#include "net/server_scope.h"
#include "platform/clock.h"
#include "qvx/debug_output.h"

namespace qvx::net {
namespace {

constexpr int kStackSize = 0x400000;
constexpr int kEventsInOnePass = 256;

}  // namespace

ServerEngine::ServerEngine(CSocketServer& server)
    : server_(server),
      events_(kEventsInOnePass),
      fork_guard_(server.mClientLock.GetCS(), &ServerEngine::OnChild, this) {}

ServerEngine::~ServerEngine() = default;

// The records stay until the child closes the object: it may have forked inside a listener.
void ServerEngine::OnChild(void* context) {
  auto& engine = *static_cast<ServerEngine*>(context);
  const std::uint64_t listener = engine.server_.mServerSocketFD.exchange(platform::kNoSocket);
  if (listener == platform::kNoSocket && engine.server_.mClientCount == 0) return;
  engine.abandoned_ = true;
  engine.server_.mClientCount = 0;
  engine.poll_.Close();
  platform::CloseSocket(listener);
  for (int i = 0; i < engine.server_.mClientArray.GetCount(); ++i) {
    platform::CloseSocket(engine.RecordAt(i)->nSocketFD);
  }
}

bool ServerEngine::Start(const char* thread_name) {
  stopping_ = false;
  abandoned_ = false;
  accept_wake_ = std::make_unique<platform::WakeSignal>();
  receive_wake_ = std::make_unique<platform::WakeSignal>();
  if (!accept_wake_->Valid() || !receive_wake_->Valid() || !poll_.Open(*receive_wake_)) {
    return false;
  }
  const std::string name = thread_name == nullptr ? "" : thread_name;
  const auto start = [&](const char* prefix, CBaseThread& thread) {
    return thread.StartThread((prefix + name).c_str(), &server_,
                              reinterpret_cast<std::uint64_t>(&thread), 0, kStackSize, 0) != 0;
  };
  if (!start("TCPAccept_", server_.mAcceptThread)) return false;
  server_.mRecvEvent.Reset();
  if (!start("TCPRecv_", server_.mRecvThread)) return false;
  server_.mDispatchEvent.Reset();
  if (!start("TCPDispatch_", server_.mDispatchThread)) return false;
  server_.mCloseEvent.Reset();
  return start("TCPClose_", server_.mCloseThread);
}

void ServerEngine::Stop() {
  stopping_ = true;
  const std::uint64_t listener = server_.mServerSocketFD.exchange(platform::kNoSocket);
  if (listener != platform::kNoSocket) platform::ShutdownSocket(listener);
  if (accept_wake_ && !abandoned_) accept_wake_->Give();
  server_.mAcceptThread.StopThread();
  if (listener != platform::kNoSocket) platform::CloseSocket(listener);
  server_.mRecvEvent.Set();
  if (receive_wake_ && !abandoned_) receive_wake_->Give();
  server_.mRecvThread.StopThread();
  server_.mDispatchEvent.Set();
  server_.mDispatchThread.StopThread();
  server_.mCloseEvent.Set();
  server_.mCloseThread.StopThread();
  const CAutoBaseLock guard(&server_.mClientLock);
  DestroyAll();
  poll_.Close();
  accept_wake_.reset();
  receive_wake_.reset();
}

ClientRecord* ServerEngine::Find(std::uint64_t socket) const {
  const auto found = clients_.find(socket);
  return found == clients_.end() ? nullptr : found->second;
}

ClientRecord* ServerEngine::RecordAt(int index) {
  auto* info = const_cast<void*>(server_.mClientArray.GetAt(index));
  return static_cast<ClientRecord*>(static_cast<tagCLIENTSOCKETINFO*>(info));
}

void ServerEngine::LogClientCount() {
  DbgOutputA(2, "Total %d client connected!\r\n", server_.mClientCount.load());
}

void ServerEngine::CountSent(std::size_t size) {
  CountInPeriod(size, server_.mSendBytes, server_.mSendRate, server_.mSendPeriodStart);
}

int ServerEngine::SendToClient(ClientRecord& client, SendRequest& request) {
  ++client.nSendingCount;
  SendOutcome outcome = SendOutcome::kFailed;
  try {
    if (!client.draining) {
      const auto size = static_cast<std::uint32_t>(request.PayloadBytes());
      const tagTCPPACKETHEADER header = MakePacketHeader(client.nSocketFD, size);
      const std::size_t header_bytes = server_.mRawFlag != 0 ? 0 : sizeof(header);
      outcome = client.queue.Send(client.nSocketFD, reinterpret_cast<const unsigned char*>(&header),
                                  header_bytes, request, queue_limit);
    }
  } catch (const std::bad_alloc&) {
    outcome = SendOutcome::kFailed;
  }
  if (outcome == SendOutcome::kFailed) {
    DbgOutputA(2, "socket %d send data failed\r\n", platform::SocketDescriptor(client.nSocketFD));
    if (!client.draining) platform::ShutdownSocket(client.nSocketFD);
  } else {
    UpdateInterest(client);
  }
  --client.nSendingCount;
  CountSent(request.PayloadBytes());
  return outcome == SendOutcome::kFailed ? 0 : 1;
}

void ServerEngine::SendToAllBut(std::uint64_t except, SendRequest& request) {
  for (int i = 0; i < server_.mClientArray.GetCount(); ++i) {
    ClientRecord& client = *RecordAt(i);
    if (client.nSocketFD != except) SendToClient(client, request);
  }
}

void ServerEngine::ShutDownClient(ClientRecord& client) {
  if (client.draining) return;
  if (client.queue.IsEmpty() || client.bNeedClose != 0) {
    platform::ShutdownSocket(client.nSocketFD);
    return;
  }
  client.draining = true;
  client.progress_tick = platform::TickMilliseconds();
  ++draining_count_;
  UpdateInterest(client);
}

}  // namespace qvx::net
