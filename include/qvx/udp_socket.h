// A datagram socket that broadcasts to a port and hands what it hears to a listener.
//
// An object lives by Create and ends by Close, its destructor or a failed send. One
// thread of its own, "UDP_" with the name given to Create, receives and calls the
// listener without any lock held. Create, Close and SendData may be called from any other
// thread, but not from the listener, since they may wait for the receiving thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "qvx/base_thread.h"
#include "qvx/sync.h"
#include "qvx/types.h"

// Hears the datagrams of a CUDPSocket, on its receiving thread.
class QVX_API IUDPSocketListener {
 public:
  virtual ~IUDPSocketListener();
  // One datagram of size bytes (above 0). data is valid during the call only.
  virtual void OnUDPDataReceived(std::uint64_t nUserData, const unsigned char* data, int size);
};

class QVX_API CUDPSocket : public IThreadFuncInterface {
 public:
  CUDPSocket();
  // As Close.
  ~CUDPSocket() override;
  // A copy is a closed socket of its own; nothing of the source is taken over.
  CUDPSocket(const CUDPSocket& other);
  CUDPSocket& operator=(const CUDPSocket& other);

  // Closes the object first, then binds to the port and starts the receiving thread.
  // With a local address (dotted IPv4, one of this machine) the object hears what is sent
  // to that address and the broadcasts that arrive on its interface, sends from that
  // address, and drops what comes from it. With null it hears all interfaces and drops
  // nothing. The listener may be null, isn't owned and must outlive the object or Close.
  // 1 if bound and running; else 0, and the object is closed.
  int Create(const char* localAddress, unsigned short port, IUDPSocketListener* listener,
             std::uint64_t nUserData, const char* threadName);

  // Ends the receiving thread and waits for it, at most a few milliseconds beyond a
  // listener call that is under way. Harmless on a closed object.
  void Close();

  // 1 while the socket is open.
  int IsCreated();

  // Broadcasts one datagram to 255.255.255.255 on the port; waits at most 60 s where the
  // system has no room for it. Without data or with size 0 the result is 0 and the object
  // stays open; after any other failure it is closed. 1 if sent.
  int SendData(unsigned short port, const void* data, int size);

  // Receives one datagram, or waits at most 10 ms for one. Called by the thread.
  int ThreadLoop(std::uint64_t context) override;

 private:
  int CreateLocked(const char* localAddress, unsigned short port);
  int Bind(const char* localAddress, unsigned short port);
  int BindAddress(const char* localAddress, unsigned short port);
  void CloseLocked();
  bool IsOpen() const;
  bool IsForUs(std::uint32_t source, std::uint32_t destination, std::uint32_t interface) const;
  int Broadcast(std::uint64_t socket, unsigned short port, const unsigned char* data, int size);

  CBaseLock mLock;
  std::atomic<std::uint64_t> mSocketFD;
  IUDPSocketListener* mListener;
  std::uint64_t mUserData;
  CBaseThread mThread;
  char mLocalAddress[16];
  std::uint32_t mLocalNumber;                // the address in host order; 0 is all
  std::uint32_t mInterface;                  // its interface; 0 is none
  std::uint32_t mBroadcastNumber;            // the broadcast address of its network
  std::uint32_t mForkGeneration;             // of the process that made the socket
  std::unique_ptr<unsigned char[]> mBuffer;  // one datagram
};
