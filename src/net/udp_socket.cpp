#include "qvx/udp_socket.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include "platform/adapters.h"
#include "platform/clock.h"
#include "platform/fork.h"
#include "platform/socket.h"
#include "qvx/debug_output.h"
#include "qvx/socket_primitives.h"

namespace platform = qvx::platform;

namespace {

constexpr int kStackSize = 0x400000;
constexpr int kReceiveBuffer = 0x100000;
constexpr int kWaitMilliseconds = 10;
constexpr std::size_t kMostDatagram = 0x10000;
constexpr int kMostPiece = 0x10000;
constexpr std::uint32_t kLimitedBroadcast = 0xFFFFFFFF;

// An address that isn't this machine's can't be bound; the reason is in the last error.
bool IsOwnAddress(std::uint32_t address) {
  const std::uint64_t probe = platform::MakeUdpSocket();
  if (probe == platform::kNoSocket) return false;
  const bool own = platform::BindIpv4(probe, {address, 0});
  const int error = platform::LastSocketError();
  platform::CloseSocket(probe);
  if (!own) platform::SetLastSocketError(error);
  return own;
}

}  // namespace

IUDPSocketListener::~IUDPSocketListener() = default;
void IUDPSocketListener::OnUDPDataReceived(std::uint64_t, const unsigned char*, int) {}

CUDPSocket::CUDPSocket()
    : mSocketFD(platform::kNoSocket),
      mListener(nullptr),
      mUserData(0),
      mLocalAddress(),
      mLocalNumber(0),
      mInterface(0),
      mBroadcastNumber(0),
      mForkGeneration(0) {}

CUDPSocket::CUDPSocket(const CUDPSocket&) : CUDPSocket() {}

CUDPSocket& CUDPSocket::operator=(const CUDPSocket&) {
  return *this;
}

CUDPSocket::~CUDPSocket() {
  Close();
}

int CUDPSocket::Create(const char* localAddress, unsigned short port, IUDPSocketListener* listener,
                       std::uint64_t nUserData, const char* threadName) {
  const CAutoBaseLock guard(&mLock);
  CloseLocked();
  if (CreateLocked(localAddress, port) == 0) {
    CloseLocked();
    return 0;
  }
  mListener = listener;
  mUserData = nUserData;
  const std::string name = std::string("UDP_") + (threadName == nullptr ? "" : threadName);
  if (mThread.StartThread(name.c_str(), this, 0, 0, kStackSize, 0) == 0) {
    CloseLocked();
    return 0;
  }
  DbgOutputA(2, "udp bind to(%d), mSocketFD=%d\r\n", port, platform::SocketDescriptor(mSocketFD));
  return 1;
}

int CUDPSocket::CreateLocked(const char* localAddress, unsigned short port) {
  if (!mBuffer) mBuffer.reset(new unsigned char[kMostDatagram]);
  const std::uint64_t made = platform::MakeUdpSocket();
  if (made == platform::kNoSocket) {
    DbgOutputA(2, "%s create error, code = %d\r\n", "CUDPSocket::Create",
               platform::LastSocketError());
    return 0;
  }
  mForkGeneration = platform::ForkGeneration();
  mSocketFD = made;
  platform::SetBroadcast(made);
  platform::SetSendTimeout(made, platform::kSendTimeoutMilliseconds);
  if (Bind(localAddress, port) == 0) return 0;
  platform::SetReceiveBuffer(made, kReceiveBuffer);
  const char* text = localAddress == nullptr ? "0.0.0.0" : localAddress;
  const std::size_t length = std::min(std::strlen(text), sizeof(mLocalAddress) - 1);
  std::memcpy(mLocalAddress, text, length);
  mLocalAddress[length] = 0;
  return 1;
}

int CUDPSocket::Bind(const char* localAddress, unsigned short port) {
  const char* text = localAddress == nullptr ? "0.0.0.0" : localAddress;
  if (BindAddress(localAddress, port) == 0) {
    DbgOutputA(2, "%s bind error(addr=%s, port=%d), code = %d\r\n", "CUDPSocket::Bind", text, port,
               platform::LastSocketError());
    return 0;
  }
  DbgOutputA(2, "%s BindPort(addr=%s, port=%d) Success!\r\n", "CUDPSocket::Bind", text, port);
  return 1;
}

// The socket itself always hears all interfaces: one that is bound to a single address would
// miss the broadcasts. What is not for the address is left out on arrival.
int CUDPSocket::BindAddress(const char* localAddress, unsigned short port) {
  mLocalNumber = 0;
  mInterface = 0;
  if (localAddress != nullptr &&
      (!platform::ParseIpv4(localAddress, &mLocalNumber) || mLocalNumber == kLimitedBroadcast)) {
    platform::SetLastSocketError(EADDRNOTAVAIL);
    return 0;
  }
  if (mLocalNumber != 0) {
    if (!IsOwnAddress(mLocalNumber)) return 0;
    const platform::LocalNetwork network = platform::NetworkOfAddress(mLocalNumber);
    mInterface = network.interface_index;
    mBroadcastNumber = network.broadcast;
    if (!platform::SetPacketInformation(mSocketFD)) return 0;
  }
  return platform::BindIpv4(mSocketFD, {0, port}) ? 1 : 0;
}

void CUDPSocket::Close() {
  const CAutoBaseLock guard(&mLock);
  CloseLocked();
}

void CUDPSocket::CloseLocked() {
  const std::uint64_t socket = mSocketFD.exchange(platform::kNoSocket);
  mThread.StopThread();
  if (socket != platform::kNoSocket) platform::CloseSocket(socket);
  mListener = nullptr;
  mUserData = 0;
}

bool CUDPSocket::IsOpen() const {
  return mSocketFD != platform::kNoSocket && mForkGeneration == platform::ForkGeneration();
}

int CUDPSocket::IsCreated() {
  return IsOpen() ? 1 : 0;
}

int CUDPSocket::SendData(unsigned short port, const void* data, int size) {
  if (data == nullptr || size <= 0) {
    DbgOutputA(2, "CUDPSocket::SendData: parameter invalid!\r\n");
    return 0;
  }
  if (!IsOpen()) {
    DbgOutputA(2, "CUDPSocket::SendData: mSocketFD is closed!!\r\n");
    return 0;
  }
  const std::uint64_t socket = mSocketFD;
  if (Broadcast(socket, port, static_cast<const unsigned char*>(data), size) != 0) return 1;
  DbgOutputA(2, "CUDPSocket::SendData: Failed, sock=%d!!\r\n", platform::SocketDescriptor(socket));
  Close();
  return 0;
}

int CUDPSocket::Broadcast(std::uint64_t socket, unsigned short port, const unsigned char* data,
                          int size) {
  if (mLocalNumber == 0) return SendUDPRaw(socket, port, data, size);
  platform::DatagramPath path;
  path.peer = {kLimitedBroadcast, port};
  path.local_address = mLocalNumber;
  path.interface_index = mInterface;
  while (size > 0) {
    const int piece = std::min(size, kMostPiece);
    const platform::IoResult result =
        platform::SendDatagram(socket, data, static_cast<std::size_t>(piece), path);
    if (result.error != 0) {
      DbgOutputA(2, "send failed, error(%d) ----\r\n", result.error);
      return 0;
    }
    data += piece;
    size -= piece;
  }
  return 1;
}

bool CUDPSocket::IsForUs(std::uint32_t source, std::uint32_t destination,
                         std::uint32_t interface) const {
  if (mLocalNumber == 0) return true;
  if (source == mLocalNumber) return false;
  if (destination == mLocalNumber) return true;
  const bool broadcast = destination == kLimitedBroadcast || destination == mBroadcastNumber;
  return broadcast && interface == mInterface;
}

int CUDPSocket::ThreadLoop(std::uint64_t) {
  const std::uint64_t socket = mSocketFD;
  if (socket == platform::kNoSocket) return 0;
  if (platform::PollSocket(socket, platform::kPollRead, kWaitMilliseconds) == 0) return 1;
  platform::DatagramPath path;
  const platform::IoResult result =
      platform::ReceiveDatagram(socket, mBuffer.get(), kMostDatagram, &path);
  if (result.error != 0 && !result.WouldBlock()) {
    DbgOutputA(2, "RecvUDPRaw recv invalid, socket=%d, expect:%d, actual:%d, error=%d\r\n",
               platform::SocketDescriptor(socket), static_cast<int>(kMostDatagram), -1,
               result.error);
    platform::SleepMilliseconds(kWaitMilliseconds);
  }
  if (result.error != 0 || result.bytes == 0 || mListener == nullptr) return 1;
  if (IsForUs(path.peer.address, path.local_address, path.interface_index)) {
    mListener->OnUDPDataReceived(mUserData, mBuffer.get(), static_cast<int>(result.bytes));
  }
  return 1;
}
