// The accept and close threads of a server.
#include <new>

#include "net/server_engine.h"
#include "net/server_scope.h"
#include "platform/clock.h"
#include "qvx/debug_output.h"

namespace qvx::net {
namespace {

constexpr int kResourceWaitMilliseconds = 100;
constexpr int kCloseWaitMilliseconds = 100;
constexpr std::uint32_t kDrainLimitMilliseconds = 60000;

}  // namespace

int ServerEngine::RunAccept() {
  const std::uint64_t listener = server_.mServerSocketFD;
  if (listener == platform::kNoSocket) return EndAccept();
  platform::PollItem item{listener};
  platform::PollSockets(&item, 1, platform::kNoTimeLimit, accept_wake_.get());
  if (stopping_) return EndAccept();
  const std::uint64_t socket = server_.SocketAccept(listener);
  if (socket != platform::kNoSocket) {
    AddClient(socket);
    return 1;
  }
  switch (platform::AcceptOutcomeOf(platform::LastSocketError())) {
    case platform::AcceptOutcome::kNoResources:
      return WaitForResources();
    case platform::AcceptOutcome::kClosed:
      return EndAccept();
    default:
      return 1;
  }
}

int ServerEngine::WaitForResources() {
  platform::PollSockets(nullptr, 0, kResourceWaitMilliseconds, accept_wake_.get());
  return 1;
}

int ServerEngine::EndAccept() {
  DbgOutputA(2, "%s Accept failed, exit accept thread!\r\n", server_.mAcceptThread.GetThreadName());
  return 0;
}

void ServerEngine::AddClient(std::uint64_t socket) {
  const std::uint64_t adopted = platform::AdoptSocket(socket);
  if (adopted == platform::kNoSocket) {
    platform::CloseSocket(socket);
    return;
  }
  ClientRecord* client = nullptr;
  try {
    std::unique_ptr<ClientRecord> record = MakeRecord(adopted);
    client = record.get();
    InsertRecord(std::move(record));
  } catch (const std::bad_alloc&) {
    platform::CloseSocket(adopted);
    return;
  }
  LogClientCount();
  OfferClient(*client);
}

std::unique_ptr<ClientRecord> ServerEngine::MakeRecord(std::uint64_t socket) {
  platform::SetNonBlocking(socket, true);
  char address[16] = "";
  const unsigned short port = GetPeerAddrPort(socket, address, sizeof(address));
  DbgOutputA(2, "%s Accept, socket is %d, ip is(%s:%d)!\r\n", server_.mAcceptThread.GetThreadName(),
             platform::SocketDescriptor(socket), address, port);
  auto record = std::make_unique<ClientRecord>();
  record->nSocketFD = socket;
  record->nPeerSocketFD = platform::kNoSocket;
  record->strIPAddr.Set(address);
  record->nPort = port;
  record->bNeedClose = 0;
  record->nSendingCount = 0;
  record->nReserved = 0;
  record->mRecvPacket = tagTCPPACKETRECV();
  record->offered = true;
  return record;
}

void ServerEngine::InsertRecord(std::unique_ptr<ClientRecord> record) {
  const Scope scope(*this);
  record->order = next_order_++;
  clients_.emplace(record->nSocketFD, record.get());
  try {
    server_.mClientArray.AddData(static_cast<tagCLIENTSOCKETINFO*>(record.get()), -1);
  } catch (const std::bad_alloc&) {
    clients_.erase(record->nSocketFD);
    throw;
  }
  record.release();
  server_.mClientCount = server_.mClientArray.GetCount();
}

// The record stays while it is offered; nothing is received before the listener has agreed.
void ServerEngine::OfferClient(ClientRecord& client) {
  IServerSocketListener* listener = server_.mListener;
  const bool accepted =
      listener == nullptr || listener->OnServerAcceptClient(server_.mUserData, &client) != 0;
  if (abandoned_) return;
  const Scope scope(*this);
  client.offered = false;
  if (accepted) {
    BeginPolling(client);
  } else {
    MarkNeedClose(client);
  }
}

void ServerEngine::BeginPolling(ClientRecord& client) {
  client.interest = platform::kPollRead;
  client.polled = poll_.Add(client.nSocketFD, client.interest);
  if (client.polled) {
    UpdateInterest(client);
  } else {
    MarkNeedClose(client);
  }
}

int ServerEngine::RunClose() {
  server_.mCloseEvent.Wait(kCloseWaitMilliseconds);
  if (stopping_) return 0;
  const Scope scope(*this);
  if (draining_count_ > 0) EndStuckDrains();
  if (need_close_count_ > 0) CloseReady();
  return 1;
}

bool ServerEngine::CanClose(const ClientRecord& client) const {
  if (client.bNeedClose == 0 || client.nSendingCount != 0 || client.offered) return false;
  return client.broken || client.mRecvList.IsEmpty();
}

void ServerEngine::CloseReady() {
  int index = 0;
  while (index < server_.mClientArray.GetCount()) {
    ClientRecord* client = RecordAt(index);
    if (!CanClose(*client)) {
      ++index;
      continue;
    }
    server_.mClientArray.DeleteAt(index, 1);
    server_.mClientCount = server_.mClientArray.GetCount();
    clients_.erase(client->nSocketFD);
    DestroyClient(client);
    LogClientCount();
  }
}

void ServerEngine::EndStuckDrains() {
  const std::uint32_t now = platform::TickMilliseconds();
  for (int i = 0; i < server_.mClientArray.GetCount(); ++i) {
    const ClientRecord& client = *RecordAt(i);
    if (client.draining && now - client.progress_tick > kDrainLimitMilliseconds) {
      platform::ShutdownSocket(client.nSocketFD);
    }
  }
}

void ServerEngine::DestroyClient(ClientRecord* client) {
  const std::unique_ptr<ClientRecord> record(client);
  if (record->polled) poll_.Remove(record->nSocketFD);
  if (record->bNeedClose != 0) --need_close_count_;
  if (record->draining) --draining_count_;
  if (record->ready) std::erase(ready_, client);
  if (!abandoned_) {
    DbgOutputA(2, "Client Socket close, socket=%d\r\n",
               platform::SocketDescriptor(record->nSocketFD));
    if (server_.mListener != nullptr) {
      server_.mListener->OnServerCloseClient(server_.mUserData, client);
    }
  }
  while (!record->mRecvList.IsEmpty()) {
    const auto* item = static_cast<const tagCLIENTSOCKETBUFFER*>(record->mRecvList.DeleteHead());
    delete[] item->pData;
    delete item;
  }
  ClearPacket(record->mRecvPacket);
  platform::ShutdownSocket(record->nSocketFD);
  platform::CloseSocket(record->nSocketFD);
}

// A listener that looks at the clients meanwhile finds those that are left.
void ServerEngine::DestroyAll() {
  while (!server_.mClientArray.IsEmpty()) {
    ClientRecord* client = RecordAt(0);
    server_.mClientArray.DeleteAt(0, 1);
    server_.mClientCount = server_.mClientArray.GetCount();
    clients_.erase(client->nSocketFD);
    DestroyClient(client);
  }
  server_.mClientArray.DeleteAll();
}

}  // namespace qvx::net
