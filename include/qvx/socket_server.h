// Stream socket servers: any number of clients over TCP or Bluetooth, served by four
// threads of the server, "TCPAccept_", "TCPRecv_", "TCPDispatch_" and "TCPClose_" with the
// name given to Create.
//
// In raw mode every block that a client sends goes to the listener. In packet mode the
// routing code of each packet decides: to the listener, to one client, to all clients or
// to all but the sender (see socket_primitives.h).
//
// Locks, in this order: the lifecycle lock of Create and Close, the client lock, which
// guards the clients and all that hangs from them, the lock inside an event. No server
// thread takes the lifecycle lock. Neither Create nor Close may be called from a listener
// or by a thread that holds the client lock.
//
// Sending never waits for the network. What a client's socket doesn't take at once goes
// to a queue of that client, which the receiving thread sends when there is room. A send
// that doesn't fit the queue fails and shuts that client down.
//
// After fork the object in the child is idle: it answers as a closed one, and closing or
// destroying it leaves the parent's connections alone.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "qvx/base_string.h"
#include "qvx/base_thread.h"
#include "qvx/ptr_array.h"
#include "qvx/ptr_list.h"
#include "qvx/socket_primitives.h"
#include "qvx/sync.h"
#include "qvx/types.h"

namespace qvx::net {
class ServerEngine;
struct SendRequest;
}  // namespace qvx::net

// One received packet or block that waits for the dispatch thread. The data is owned by
// the item. In raw mode the code is always SOCKET_CODE_TO_SERVER.
struct tagCLIENTSOCKETBUFFER {
  std::uint64_t nCode;
  unsigned char* pData;
  int nSize;
};

// One connected client, owned by the server and guarded by its client lock.
struct tagCLIENTSOCKETINFO {
  std::uint64_t nSocketFD;      // the server's socket for this client, the key of every look-up
  std::uint64_t nPeerSocketFD;  // the client's own socket value by its hello; all ones before
  CBaseStringA strIPAddr;       // the peer's address as text; empty if not known
  unsigned short nPort;         // the peer's port; 0 if not known
  int bNeedClose;               // set when the client is to be closed; it is no longer polled
  int nSendingCount;            // sends in progress; the client is not closed before 0
  std::uint64_t nReserved;      // 0 after accept; free for the host
  CPtrListCtrl mRecvList;       // tagCLIENTSOCKETBUFFER, oldest first
  tagTCPPACKETRECV mRecvPacket;
};

// Hears the events of a server. The client records are valid during the call only; data
// belongs to the server.
class QVX_API IServerSocketListener {
 public:
  virtual ~IServerSocketListener();

  // The listening socket is there. On the caller of Create, inside the lifecycle lock.
  virtual void OnServerSocketCreate(std::uint64_t nUserData, std::uint64_t nSocketFD);

  // A client has connected and is in the list; nothing was received from it yet. On the
  // accept thread, without any lock. 0 refuses the client, which then gets
  // OnServerCloseClient like any other; its data is never looked at.
  virtual int OnServerAcceptClient(std::uint64_t nUserData, tagCLIENTSOCKETINFO* client);

  // A client is gone; its socket is still open and its record whole. On the close thread
  // or, for those that are left, on the caller of Close; inside the client lock. Called
  // once for every accepted client.
  virtual void OnServerCloseClient(std::uint64_t nUserData, tagCLIENTSOCKETINFO* client);

  // A packet or, in raw mode, a block for the server; size is above 0. On the dispatch
  // thread, inside the client lock. It may send, broadcast and close clients. 0 shuts the
  // client down.
  virtual int OnServerReceiveData(std::uint64_t nUserData, tagCLIENTSOCKETINFO* client,
                                  const unsigned char* data, int size);
};

// An open file of which ranges are sent. Whoever holds it keeps it open.
class QVX_API ISocketSendFile {
 public:
  virtual ~ISocketSendFile();
  // The native descriptor, readable at any position for as long as the object lives.
  virtual int GetSendDescriptor() const = 0;
};

class QVX_API CSocketServer : public IThreadFuncInterface {
 public:
  CSocketServer();
  // As Close. A derived class that overrides a virtual, or is its own listener, calls
  // Close in its own destructor.
  ~CSocketServer() override;
  // A copy is a closed server of its own; nothing of the source is taken over.
  CSocketServer(const CSocketServer& other);
  CSocketServer& operator=(const CSocketServer& other);

  // Runs one portion of the thread whose CBaseThread has the address context.
  int ThreadLoop(std::uint64_t context) override;

  // Closes the object first, then listens and starts the threads. port in host order; 0
  // takes a free one, which GetServerPort tells. nRawFlag: non-zero is raw mode.
  // nCheckFlag: non-zero refuses packets with a foreign match code. The listener may be
  // null, isn't owned and must live until Close has returned.
  // 1 if listening; else 0, and the object is closed.
  int Create(unsigned short port, int nRawFlag, int nCheckFlag, IServerSocketListener* listener,
             std::uint64_t nUserData, const char* threadName);

  // Stops listening, ends the four threads and waits for them and for listener calls
  // under way, then closes each client with OnServerCloseClient on this thread. What
  // still waits in send queues is dropped. Harmless on a closed object.
  void Close();

  // 1 while listening.
  int IsCreated();
  // The listening socket; all ones while not created.
  std::uint64_t GetServerFd();
  // The port that is listened on; 0 while not created and for Bluetooth.
  unsigned short GetServerPort();

  // Sends a packet, or in raw mode the bare bytes, to the client with this nSocketFD.
  // Never blocks on the network: 1 says that the system or the client's queue has taken
  // all. 0 without data, with size 0, when not created, for a socket that no client has,
  // and when the send fails, which shuts the client down.
  int SendData(std::uint64_t nSocketFD, const void* data, int size);

  // The same to each client but nExceptFD; all ones leaves none out.
  void BroadcastData(std::uint64_t nExceptFD, const void* data, int size);

  // Shuts a client down; the close follows on the close thread. What is queued for the
  // client is sent first, as long as the client keeps taking it. A socket that no client
  // has does nothing.
  void CloseClient(std::uint64_t nSocketFD);

  // Enter and leave the client lock, which is re-entrant.
  void LockClient();
  void UnlockClient();
  // The number of clients, read without the lock.
  int GetClientCount();
  // The client at this index, in order of acceptance; null out of range. The caller holds
  // LockClient for as long as it uses the pointer.
  const tagCLIENTSOCKETINFO* GetClientSocketInfo_Locked(int index);

  // Bytes a second over the last finished period of more than 1 s; not updated while
  // there is no traffic.
  int GetSendBytesPerSecond();
  int GetRecvBytesPerSecond();

  // The most bytes that may wait in one client's send queue, 16 MiB at first. A packet
  // for an empty queue is always taken, whatever its size.
  void SetSendQueueLimit(std::size_t bytes);

 protected:
  // Makes, binds and listens; a new socket, or all ones after a failure, which is logged.
  virtual std::uint64_t SocketCreate(unsigned short port) = 0;
  // Accepts one client; all ones if there is none or accept fails. The last error of the
  // platform tells which.
  virtual std::uint64_t SocketAccept(std::uint64_t nServerFD) = 0;

  // As SendData with the parts as one payload. No part is copied but for what the socket
  // doesn't take at once. Parts of size 0 are allowed; the whole is above 0.
  int SendParts(std::uint64_t nSocketFD, const tagSOCKETSENDPART* parts, int count);

  // Sends head and then nFileSize bytes of the file from nOffset as one payload. What the
  // socket doesn't take at once keeps the file alive until it is sent; in the queue a
  // file range counts as 4 KiB. A file that turns out shorter shuts the client down.
  int SendFileRange(std::uint64_t nSocketFD, const void* head, int headSize,
                    const std::shared_ptr<ISocketSendFile>& file, std::uint64_t nOffset,
                    int nFileSize);

 private:
  friend class qvx::net::ServerEngine;

  void CloseLocked();
  int SendGathered(std::uint64_t nSocketFD, const tagSOCKETSENDPART* parts, int count,
                   const std::shared_ptr<ISocketSendFile>& file, std::uint64_t nOffset,
                   std::size_t nFileSize);
  int SendRequestTo(std::uint64_t nSocketFD, qvx::net::SendRequest& request);

  CBaseLock mLifecycleLock;
  std::atomic<std::uint64_t> mServerSocketFD;
  std::atomic<int> mClientCount;
  std::atomic<int> mRawFlag;
  std::atomic<int> mCheckFlag;
  IServerSocketListener* mListener;
  std::uint64_t mUserData;
  CBaseThread mAcceptThread;
  CBaseEvent mRecvEvent;
  CBaseThread mRecvThread;
  CBaseEvent mDispatchEvent;
  CBaseThread mDispatchThread;
  CBaseEvent mCloseEvent;
  CBaseThread mCloseThread;
  CBaseLock mClientLock;
  CPtrArrayCtrl mClientArray;
  std::uint64_t mSendBytes;
  std::atomic<int> mSendRate;
  std::uint32_t mSendPeriodStart;
  std::uint64_t mRecvBytes;
  std::atomic<int> mRecvRate;
  std::uint32_t mRecvPeriodStart;
  std::unique_ptr<qvx::net::ServerEngine> mEngine;
};

// A server over TCP. Binds all interfaces.
class QVX_API CTCPSocketServer : public CSocketServer {
 public:
  CTCPSocketServer();
  CTCPSocketServer(const CTCPSocketServer& other);
  CTCPSocketServer& operator=(const CTCPSocketServer& other);
  ~CTCPSocketServer() override;

 protected:
  std::uint64_t SocketCreate(unsigned short port) override;
  std::uint64_t SocketAccept(std::uint64_t nServerFD) override;

  // What SocketCreate does for one local address (dotted IPv4), for a derived class that
  // overrides SocketCreate to listen there only.
  std::uint64_t ListenOn(const char* address, unsigned short port);
};

// A server over Bluetooth RFCOMM, channel 1. The port isn't used. The records of its
// clients have an empty address text and port 0.
class QVX_API CBTHSocketServer : public CSocketServer {
 public:
  CBTHSocketServer();
  CBTHSocketServer(const CBTHSocketServer& other);
  CBTHSocketServer& operator=(const CBTHSocketServer& other);
  ~CBTHSocketServer() override;

 protected:
  std::uint64_t SocketCreate(unsigned short port) override;
  std::uint64_t SocketAccept(std::uint64_t nServerFD) override;
};
