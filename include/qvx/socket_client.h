// A connected stream socket with a thread of its own that receives and calls a listener. In
// raw mode whatever comes is passed on; in packet mode whole packets are, and the client
// introduces itself to the server when it connects. A client never reconnects by itself: call
// Create again.
//
// Threads: the calls below may come from any thread, also at the same time. From a listener
// call on the receiving thread, which they would have to wait for, Create fails and Close only
// asks for the end. Objects are
// used in place. In a child after fork a client counts as closed; the parent's connection
// lives on, whatever the child does with the object.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "qvx/base_thread.h"
#include "qvx/socket_primitives.h"
#include "qvx/sync.h"
#include "qvx/types.h"

namespace qvx::net {
struct ClientInner;
class ClientReceiver;
}  // namespace qvx::net

// Override what you need. Called with no lock of the client held but where told.
class QVX_API IClientSocketListener {
 public:
  virtual ~IClientSocketListener() = default;

  // A socket was made and is about to connect. On the caller of Create, inside the lock that
  // Create and Close take.
  virtual void OnClientSocketCreate(std::uint64_t nUserData, std::uint64_t nSocketFD);
  // A packet's payload, or in raw mode a block of bytes, which lives only for the call. On the
  // receiving thread. 0 ends the connection.
  virtual int OnClientReceiveData(std::uint64_t nUserData, std::uint64_t nSocketFD,
                                  const unsigned char* pData, int nSize);
  // The connection has ended; exactly once for each that Create made, also when Close ended
  // it. On the receiving thread, or on the caller of Close inside its lock.
  virtual void OnClientDisconnectFromServer(std::uint64_t nUserData, std::uint64_t nSocketFD);
};

class QVX_API CSocketClient : public IThreadFuncInterface {
 public:
  CSocketClient();
  // A copy is a closed client of its own; nothing of the source is taken over.
  CSocketClient(const CSocketClient& other);
  CSocketClient& operator=(const CSocketClient& other);
  // As Close. Each derived class calls Close in its own destructor, since the thread makes
  // virtual calls.
  ~CSocketClient() override;

  // The body of the receiving thread; not for callers.
  int ThreadLoop(std::uint64_t nContext) override;

  // Closes, then connects and starts the thread "TCPRecv_" plus the name. Blocks until
  // connected or failed (5 s over TCP). 1 if connected. The listener may be null, is not owned
  // and must live until Close. With bRaw 0 packets are sent and received and the hello goes out;
  // bCheck then asks for equal match codes.
  int Create(const char* szHost, std::uint16_t nPort, int bRaw, int bCheck,
             IClientSocketListener* pListener, std::uint64_t nUserData, const char* szThreadName);
  // Ends the connection, waits for the thread and for a listener call in progress. Ends a
  // Create of another thread within about 100 ms. Harmless on a closed client.
  void Close();

  int IsConnect();
  // QVX_INVALID_SOCKET while not connected.
  std::uint64_t GetSocketFd();

  // Sends a packet with the routing code, or in raw mode the bytes alone. 1 if all went; a
  // failure ends the connection. Blocks as SendTCPPacket and SendTCPRaw do. Packets of several
  // threads go out whole, one after the other.
  int SendData(std::uint64_t nCode, const void* pData, int nSize);

  // Payload bytes per second over the last finished period of more than a second; they change
  // only with traffic.
  int GetSendBytesPerSecond();
  int GetRecvBytesPerSecond();

 protected:
  // A new stream socket: a value of the library or a plain descriptor, which the client owns
  // from then on; QVX_INVALID_SOCKET on failure.
  virtual std::uint64_t SocketCreate() = 0;
  // Connects it. Non-zero if connected. May block; gives up soon after *pCancelFlag is set.
  virtual int SocketConnect(std::uint64_t nSocketFD, const char* szHost, std::uint16_t nPort,
                            int* pCancelFlag) = 0;

  // The following lets a derived class receive the payload of chosen packets straight into its
  // final place. SetPlacedHead, before Create, asks for it: of each packet with a payload of
  // more than nHeadSize bytes (at most 4096; 0, the default, for none) the first nHeadSize come
  // first. Then OnPlacePayload is asked, on the receiving thread, before each receive: where
  // shall the payload bytes from nOffset on go? *pRoom holds how many may come; the answer may
  // lower it, to 1 at least. Each answer that is not null is followed by OnPayloadPlaced with the
  // bytes that came (also 0), so that a lock may be held in between; nothing blocks there.
  // A null at the first question makes the packet an ordinary one for OnClientReceiveData. A
  // null later drops bytes, and the question comes again for the next. When all has come,
  // OnPlacedPacket takes the place of OnClientReceiveData; 0 ends the connection.
  // Before the second question for a large payload, and each later one, OnPourPayload may take
  // bytes of it off the socket by itself, from nOffset on and without waiting. It answers their
  // count; 0, the default, leaves the receive to OnPlacePayload.
  void SetPlacedHead(std::uint32_t nHeadSize);
  virtual unsigned char* OnPlacePayload(const unsigned char* pHead, std::uint32_t nLength,
                                        std::uint32_t nOffset, std::uint32_t* pRoom);
  virtual void OnPayloadPlaced(std::uint32_t nOffset, std::uint32_t nSize);
  virtual int OnPlacedPacket(const unsigned char* pHead, std::uint32_t nLength);
  virtual std::uint32_t OnPourPayload(const unsigned char* pHead, std::uint32_t nLength,
                                      std::uint32_t nOffset, std::uint64_t nSocketFD);

  // SendData of several parts as one packet, or in raw mode one after the other, without
  // copying. Unlike SendData waits for room from the first byte on, so that a sender that runs
  // ahead of the peer does not fail. At most 63 parts; those of size 0 are left out.
  int SendDataParts(std::uint64_t nCode, const tagSOCKETSENDPART* pParts, int nCount);

  // One packet (or in raw mode one block) of a head and a range of an open regular file, which
  // goes out without passing through memory of ours. Waits for room as SendDataParts does. 1 if
  // all went. 2 if the file ended early or could not be read: zeros went in its place, so that
  // the connection stays in step. 0 if the connection failed.
  int SendDataFile(std::uint64_t nCode, const void* pHead, std::uint32_t nHeadSize,
                   int nFileDescriptor, std::uint64_t nOffset, std::uint32_t nFileSize);

  CBaseLock mLifecycleLock;
  std::atomic<std::uint64_t> mSocketFD;
  tagTCPPACKETRECV mRecvPacket;
  int mCancelFlag;
  std::atomic<int> mRawFlag;
  std::atomic<int> mCheckFlag;
  std::atomic<IClientSocketListener*> mListener;
  std::atomic<std::uint64_t> mUserData;
  CBaseThread mThread;
  std::uint64_t mSendBytes;
  std::atomic<int> mSendRate;
  std::uint32_t mSendStart;
  std::uint64_t mRecvBytes;
  std::atomic<int> mRecvRate;
  std::uint32_t mRecvStart;

 private:
  friend class qvx::net::ClientReceiver;

  bool IsOfParent() const;
  bool IsReceivingThread() const;
  bool Connect(std::uint64_t nSocketFD, const char* szHost, std::uint16_t nPort,
               IClientSocketListener* pListener, std::uint64_t nUserData);
  bool Start(std::uint64_t nSocketFD, int bRaw, int bCheck, IClientSocketListener* pListener,
             std::uint64_t nUserData, const char* szThreadName);
  void Forget();
  void SendHello(std::uint64_t nSocketFD);
  void GiveUpSending(std::uint64_t nSocketFD);
  int RunPass(std::uint64_t nSocketFD);
  void RecvClientSocketData(std::uint64_t nSocketFD);
  bool RecvPackets(std::uint64_t nSocketFD);
  bool RecvRawData(std::uint64_t nSocketFD);
  void ReportDisconnect(std::uint64_t nSocketFD);
  void EndConnection(std::uint64_t nSocketFD);

  std::unique_ptr<qvx::net::ClientInner> mInner;
};

// The client over TCP. Connects within 5 s or fails.
class QVX_API CTCPSocketClient : public CSocketClient {
 public:
  CTCPSocketClient();
  CTCPSocketClient(const CTCPSocketClient& other);
  CTCPSocketClient& operator=(const CTCPSocketClient& other);
  ~CTCPSocketClient() override;

 protected:
  std::uint64_t SocketCreate() override;
  int SocketConnect(std::uint64_t nSocketFD, const char* szHost, std::uint16_t nPort,
                    int* pCancelFlag) override;
};

// The client over Bluetooth's serial connections (RFCOMM, Serial Port Profile). The host text
// is the name that the device reports, compared without regard to case; the port is not used.
// The search for the device takes seconds and can't be cancelled. Needs a kernel with
// Bluetooth and BlueZ's library, else Create gives 0.
class QVX_API CBTHSocketClient : public CSocketClient {
 public:
  CBTHSocketClient();
  CBTHSocketClient(const CBTHSocketClient& other);
  CBTHSocketClient& operator=(const CBTHSocketClient& other);
  ~CBTHSocketClient() override;

 protected:
  std::uint64_t SocketCreate() override;
  int SocketConnect(std::uint64_t nSocketFD, const char* szHost, std::uint16_t nPort,
                    int* pCancelFlag) override;
};
