// The inside of a CSocketServer: its clients, and what its four threads do. The told members
// stay in the server object; this holds what they need beside them.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include "net/packet_reader.h"
#include "net/send_queue.h"
#include "platform/fork.h"
#include "platform/poll_set.h"
#include "qvx/socket_server.h"

namespace qvx::net {

// A client with what only the engine needs; guarded by the client lock.
struct ClientRecord : tagCLIENTSOCKETINFO {
  SendQueue queue;
  std::uint64_t order = 0;          // rises with each accepted client, as the array does
  std::size_t received_bytes = 0;   // cost of mRecvList
  std::uint16_t interest = 0;       // what the poll set watches the socket for
  std::uint32_t progress_tick = 0;  // when the queue last moved
  bool polled = false;              // the socket is in the poll set
  bool offered = false;             // the listener is being asked whether to accept it
  bool broken = false;              // the connection was reset: what it sent is dropped
  bool ready = false;               // stands in the list of clients with items to dispatch
  bool draining = false;            // to be shut down when the queue is empty
};

class ServerEngine {
 public:
  explicit ServerEngine(CSocketServer& server);
  ~ServerEngine();

  // Create and Close, inside the lifecycle lock. Start begins with the listening socket in
  // place; false if a thread or descriptor is not to be had. Stop is harmless if not started.
  bool Start(const char* thread_name);
  void Stop();

  // One portion of each thread's work; 0 ends the thread.
  int RunAccept();
  int RunReceive();
  int RunDispatch();
  int RunClose();

  // All of these inside the client lock.
  ClientRecord* Find(std::uint64_t socket) const;
  int SendToClient(ClientRecord& client, SendRequest& request);
  void SendToAllBut(std::uint64_t except, SendRequest& request);
  void CountSent(std::size_t size);
  // Ends the connection when the queue is empty, or at once where nothing is left to send.
  void ShutDownClient(ClientRecord& client);

  std::atomic<std::size_t> queue_limit{std::size_t{16} << 20};

 private:
  class Scope;
  class Sink;

  static void OnChild(void* engine);

  // Accepting.
  int WaitForResources();
  int EndAccept();
  void AddClient(std::uint64_t socket);
  std::unique_ptr<ClientRecord> MakeRecord(std::uint64_t socket);
  void InsertRecord(std::unique_ptr<ClientRecord> record);
  void OfferClient(ClientRecord& client);
  void BeginPolling(ClientRecord& client);

  // Receiving.
  void HandleEvent(const platform::PollItem& item);
  void ReceiveFrom(ClientRecord& client);
  bool ReceiveRaw(ClientRecord& client);
  void QueueReceived(ClientRecord& client, std::uint64_t code,
                     std::unique_ptr<unsigned char[]> data, std::uint32_t size);
  void FlushQueue(ClientRecord& client);
  void UpdateInterest(ClientRecord& client);
  void MarkNeedClose(ClientRecord& client);

  // Dispatching.
  void DispatchReady();
  void DispatchClient(ClientRecord& client);
  void DispatchItem(ClientRecord& client, const tagCLIENTSOCKETBUFFER& item);
  void HandToListener(ClientRecord& client, const tagCLIENTSOCKETBUFFER& item);
  void LearnPeerSocket(ClientRecord& client, const tagCLIENTSOCKETBUFFER& item);
  bool DispatchEnds() const;

  // Closing.
  bool CanClose(const ClientRecord& client) const;
  void CloseReady();
  void EndStuckDrains();
  void DestroyClient(ClientRecord* client);
  void DestroyAll();
  ClientRecord* RecordAt(int index);
  void LogClientCount();

  CSocketServer& server_;
  std::unordered_map<std::uint64_t, ClientRecord*> clients_;
  std::vector<ClientRecord*> ready_;
  std::vector<platform::PollItem> events_;
  PacketReader reader_;
  platform::PollSet poll_;
  std::unique_ptr<platform::WakeSignal> accept_wake_;
  std::unique_ptr<platform::WakeSignal> receive_wake_;
  std::atomic<bool> stopping_{false};
  std::atomic<bool> abandoned_{false};  // the process that ran this server is our parent
  std::uint64_t next_order_ = 0;
  int need_close_count_ = 0;
  int draining_count_ = 0;
  bool signal_dispatch_ = false;
  bool signal_close_ = false;
  platform::ForkGuard fork_guard_;
};

}  // namespace qvx::net
