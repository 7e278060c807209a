#include "qvx/socket_client.h"

#include <array>
#include <climits>
#include <new>
#include <utility>

#include "core/quiet_log.h"
#include "net/packet_reader.h"
#include "net/rate_period.h"
#include "platform/bluetooth.h"
#include "platform/fork.h"
#include "platform/socket.h"
#include "qvx/base_string.h"
#include "qvx/debug_output.h"

using namespace qvx::net;
using qvx::core::LogQuietly;
using namespace qvx::platform;

namespace {

constexpr int kPollMilliseconds = 100;
constexpr std::uint32_t kConnectMilliseconds = 5000;
constexpr int kStackSize = 0x400000;
constexpr std::uint32_t kMaxHeadSize = 4096;
constexpr int kMaxSendParts = static_cast<int>(kMaxParts) - 1;
constexpr std::size_t kZeroBlock = 64 * 1024;

int Printed(std::uint64_t socket) {
  return SocketDescriptor(socket);
}

// A socket that ends with its scope unless somebody takes it over.
class OwnedSocket {
 public:
  explicit OwnedSocket(std::uint64_t socket) : socket_(socket) {}
  ~OwnedSocket() {
    ShutdownSocket(socket_);
    CloseSocket(socket_);
  }
  OwnedSocket(const OwnedSocket&) = delete;
  OwnedSocket& operator=(const OwnedSocket&) = delete;

  std::uint64_t Get() const { return socket_; }
  bool IsValid() const { return socket_ != QVX_INVALID_SOCKET; }
  void Release() { socket_ = QVX_INVALID_SOCKET; }

 private:
  std::uint64_t socket_;
};

// Header and parts as one list; without a header in raw mode.
class SendList {
 public:
  SendList(bool raw, std::uint64_t code, const tagSOCKETSENDPART* parts, int count,
           std::size_t behind = 0)
      : payload_(behind) {
    for (int i = 0; i < count; ++i) payload_ += parts[i].nSize;
    header_ = MakePacketHeader(code, static_cast<std::uint32_t>(payload_));
    if (!raw) Add(&header_, sizeof(header_));
    for (int i = 0; i < count; ++i) Add(parts[i].pData, parts[i].nSize);
  }

  const ConstBytes* Data() const { return list_.data(); }
  std::size_t Count() const { return count_; }
  std::size_t PayloadSize() const { return payload_; }
  bool IsValid() const { return payload_ > 0 && payload_ <= UINT32_MAX; }

 private:
  void Add(const void* data, std::size_t size) {
    if (size > 0) list_[count_++] = ConstBytes{data, size};
  }

  tagTCPPACKETHEADER header_;
  std::array<ConstBytes, kMaxParts> list_;
  std::size_t count_ = 0;
  std::size_t payload_;
};

bool ArePartsGood(const tagSOCKETSENDPART* parts, int count) {
  if (parts == nullptr || count < 1 || count > kMaxSendParts) return false;
  for (int i = 0; i < count; ++i) {
    if (parts[i].nSize > UINT32_MAX || (parts[i].pData == nullptr && parts[i].nSize > 0)) {
      return false;
    }
  }
  return true;
}

bool SendZeros(std::uint64_t socket, std::size_t size) {
  static constexpr unsigned char zeros[kZeroBlock] = {};
  while (size > 0) {
    const ConstBytes part{zeros, size < kZeroBlock ? size : kZeroBlock};
    if (!SendWhole(socket, &part, 1, FullSocket::kWait)) return false;
    size -= part.size;
  }
  return true;
}

}  // namespace

void IClientSocketListener::OnClientSocketCreate(std::uint64_t, std::uint64_t) {}

int IClientSocketListener::OnClientReceiveData(std::uint64_t, std::uint64_t, const unsigned char*,
                                               int) {
  return 1;
}

void IClientSocketListener::OnClientDisconnectFromServer(std::uint64_t, std::uint64_t) {}

namespace qvx::net {

struct ClientInner {
  CBaseLock send_lock;
  PacketReader reader;
  std::uint32_t head_size = 0;
  std::atomic<std::uint32_t> fork_generation{0};
  std::atomic<std::uint64_t> receiving_thread{0};
};

// Hands the packets of one receive pass to the listener.
class ClientReceiver final : public PacketSink {
 public:
  ClientReceiver(CSocketClient& client, std::uint64_t socket) : client_(client), socket_(socket) {}

  bool OnPacket(tagTCPPACKETRECV& record) override {
    IClientSocketListener* listener = client_.mListener;
    if (listener == nullptr) return true;
    if (record.nLength > INT_MAX) return false;  // more than a listener can be told
    const int wanted = listener->OnClientReceiveData(client_.mUserData, socket_, record.pPayload,
                                                     static_cast<int>(record.nLength));
    return Count(record, wanted);
  }

  std::uint32_t HeadSize() override { return client_.mInner->head_size; }

  unsigned char* Place(const tagTCPPACKETRECV& record, std::uint32_t* room) override {
    return client_.OnPlacePayload(record.pPayload, record.nLength, record.nPayloadBytes, room);
  }

  void Placed(const tagTCPPACKETRECV& record, std::uint32_t size) override {
    client_.OnPayloadPlaced(record.nPayloadBytes, size);
  }

  std::uint32_t Pour(const tagTCPPACKETRECV& record, std::uint64_t socket) override {
    return client_.OnPourPayload(record.pPayload, record.nLength, record.nPayloadBytes, socket);
  }

  bool OnPlacedPacket(const tagTCPPACKETRECV& record) override {
    return Count(record, client_.OnPlacedPacket(record.pPayload, record.nLength));
  }

 private:
  bool Count(const tagTCPPACKETRECV& record, int wanted) {
    CountInPeriod(record.nLength, client_.mRecvBytes, client_.mRecvRate, client_.mRecvStart);
    return wanted != 0;
  }

  CSocketClient& client_;
  const std::uint64_t socket_;
};

}  // namespace qvx::net

CSocketClient::CSocketClient()
    : mSocketFD(QVX_INVALID_SOCKET),
      mRecvPacket(),
      mCancelFlag(0),
      mRawFlag(0),
      mCheckFlag(1),
      mListener(nullptr),
      mUserData(0),
      mSendBytes(0),
      mSendRate(0),
      mSendStart(0),
      mRecvBytes(0),
      mRecvRate(0),
      mRecvStart(0),
      mInner(std::make_unique<ClientInner>()) {}

CSocketClient::CSocketClient(const CSocketClient&) : CSocketClient() {}

CSocketClient& CSocketClient::operator=(const CSocketClient&) {
  return *this;
}

CSocketClient::~CSocketClient() {
  Close();
}

bool CSocketClient::IsOfParent() const {
  return mInner->fork_generation != ForkGeneration();
}

bool CSocketClient::IsReceivingThread() const {
  return mInner->receiving_thread == ThreadSerial() && !IsOfParent();
}

int CSocketClient::Create(const char* szHost, std::uint16_t nPort, int bRaw, int bCheck,
                          IClientSocketListener* pListener, std::uint64_t nUserData,
                          const char* szThreadName) {
  if (IsReceivingThread()) return 0;
  CAutoBaseLock guard(&mLifecycleLock);
  Close();
  std::atomic_ref<int>(mCancelFlag).store(0, std::memory_order_release);
  if (szHost == nullptr || *szHost == 0) return 0;
  CBaseStringA name;
  name.Format("TCPRecv_%s", szThreadName != nullptr ? szThreadName : "");

  OwnedSocket socket(AdoptSocket(SocketCreate()));
  if (!socket.IsValid()) {
    DbgOutputA(4, "tcp client socket create fail, errno=%d\r\n", LastSocketError());
    return 0;
  }
  if (!Connect(socket.Get(), szHost, nPort, pListener, nUserData)) return 0;
  if (!Start(socket.Get(), bRaw, bCheck, pListener, nUserData, name.GetString())) return 0;
  LogQuietly([&] {
    DbgOutputA(2, "client connect to(%s), mSocketFD=%d, %s\r\n", szHost, Printed(socket.Get()),
               bRaw != 0 ? "raw socket" : "packet socket");
  });
  socket.Release();
  return 1;
}

bool CSocketClient::Connect(std::uint64_t nSocketFD, const char* szHost, std::uint16_t nPort,
                            IClientSocketListener* pListener, std::uint64_t nUserData) {
  if (pListener != nullptr) pListener->OnClientSocketCreate(nUserData, nSocketFD);
  if (SocketConnect(nSocketFD, szHost, nPort, &mCancelFlag) == 0) {
    DbgOutputA(4, "AsyncConnect %s failed, errno=%d\r\n", szHost, LastSocketError());
    return false;
  }
  SetNonBlocking(nSocketFD, true);
  return true;
}

bool CSocketClient::Start(std::uint64_t nSocketFD, int bRaw, int bCheck,
                          IClientSocketListener* pListener, std::uint64_t nUserData,
                          const char* szThreadName) {
  // No other thread's packet may go out before the hello.
  CAutoBaseLock guard(&mInner->send_lock);
  mRawFlag = bRaw;
  mCheckFlag = bCheck;
  mListener = pListener;
  mUserData = nUserData;
  mInner->fork_generation = ForkGeneration();
  mSocketFD = nSocketFD;
  try {
    if (mThread.StartThread(szThreadName, this, 0, 0, kStackSize, 0) == 0) {
      Forget();
      return false;
    }
  } catch (...) {
    Forget();
    throw;
  }
  if (bRaw == 0) SendHello(nSocketFD);
  return true;
}

void CSocketClient::Forget() {
  mSocketFD = QVX_INVALID_SOCKET;
  mListener = nullptr;
  mUserData = 0;
}

void CSocketClient::SendHello(std::uint64_t nSocketFD) {
  const tagSOCKETHELLO hello{SOCKET_HELLO_TAG, SOCKET_HELLO_VERSION, nSocketFD};
  if (SendTCPPacket(nSocketFD, SOCKET_CODE_HELLO, &hello, sizeof(hello)) != 0) {
    CountInPeriod(sizeof(hello), mSendBytes, mSendRate, mSendStart);
  } else {
    GiveUpSending(nSocketFD);
  }
}

void CSocketClient::GiveUpSending(std::uint64_t nSocketFD) {
  ShutdownSocket(nSocketFD);
  LogQuietly(
      [&] { DbgOutputA(2, "CSocketClient::SendData: Failed, sock=%d!!\r\n", Printed(nSocketFD)); });
}

void CSocketClient::Close() {
  if (IsReceivingThread()) {
    ShutdownSocket(mSocketFD);
    return;
  }
  std::atomic_ref<int>(mCancelFlag).store(1, std::memory_order_release);
  CAutoBaseLock guard(&mLifecycleLock);
  const std::uint64_t socket = mSocketFD;
  if (socket != QVX_INVALID_SOCKET) {
    LogQuietly([&] { DbgOutputA(2, "client Close mSocketFD=%d\r\n", Printed(socket)); });
    ShutdownSocket(socket);
  }
  mThread.StopThread();
  ClearPacket(mRecvPacket);
  if (mSocketFD != QVX_INVALID_SOCKET) {
    if (!IsOfParent()) ReportDisconnect(socket);
    EndConnection(socket);
  }
  Forget();
}

void CSocketClient::ReportDisconnect(std::uint64_t nSocketFD) {
  if (IClientSocketListener* listener = mListener) {
    listener->OnClientDisconnectFromServer(mUserData, nSocketFD);
  }
}

void CSocketClient::EndConnection(std::uint64_t nSocketFD) {
  ShutdownSocket(nSocketFD);
  mSocketFD = QVX_INVALID_SOCKET;
  CloseSocket(nSocketFD);
}

int CSocketClient::IsConnect() {
  return GetSocketFd() != QVX_INVALID_SOCKET ? 1 : 0;
}

std::uint64_t CSocketClient::GetSocketFd() {
  return IsOfParent() ? QVX_INVALID_SOCKET : mSocketFD.load();
}

int CSocketClient::GetSendBytesPerSecond() {
  return mSendRate;
}

int CSocketClient::GetRecvBytesPerSecond() {
  return mRecvRate;
}

int CSocketClient::SendData(std::uint64_t nCode, const void* pData, int nSize) {
  if (pData == nullptr || nSize <= 0) {
    DbgOutputA(2, "CSocketClient::SendData: parameter invalid!\r\n");
    return 0;
  }
  CAutoBaseLock guard(&mInner->send_lock);
  const std::uint64_t socket = GetSocketFd();
  if (socket == QVX_INVALID_SOCKET) return 0;
  const int sent =
      mRawFlag != 0 ? SendTCPRaw(socket, pData, nSize) : SendTCPPacket(socket, nCode, pData, nSize);
  if (sent == 0) {
    GiveUpSending(socket);
    return 0;
  }
  CountInPeriod(static_cast<std::uint64_t>(nSize), mSendBytes, mSendRate, mSendStart);
  return 1;
}

int CSocketClient::SendDataParts(std::uint64_t nCode, const tagSOCKETSENDPART* pParts, int nCount) {
  if (!ArePartsGood(pParts, nCount)) return 0;
  CAutoBaseLock guard(&mInner->send_lock);
  const std::uint64_t socket = GetSocketFd();
  const SendList list(mRawFlag != 0, nCode, pParts, nCount);
  if (socket == QVX_INVALID_SOCKET || !list.IsValid()) return 0;
  if (!SendWhole(socket, list.Data(), list.Count(), FullSocket::kWait)) {
    GiveUpSending(socket);
    return 0;
  }
  CountInPeriod(list.PayloadSize(), mSendBytes, mSendRate, mSendStart);
  return 1;
}

int CSocketClient::SendDataFile(std::uint64_t nCode, const void* pHead, std::uint32_t nHeadSize,
                                int nFileDescriptor, std::uint64_t nOffset,
                                std::uint32_t nFileSize) {
  const tagSOCKETSENDPART head{pHead, nHeadSize};
  if (!ArePartsGood(&head, 1)) return 0;
  CAutoBaseLock guard(&mInner->send_lock);
  const std::uint64_t socket = GetSocketFd();
  const SendList list(mRawFlag != 0, nCode, &head, 1, nFileSize);
  if (socket == QVX_INVALID_SOCKET || !list.IsValid()) return 0;
  std::size_t sent = 0;
  if (!SendWhole(socket, list.Data(), list.Count(), FullSocket::kWait, nFileSize > 0) ||
      !SendWholeFile(socket, nFileDescriptor, nOffset, nFileSize, &sent) ||
      !SendZeros(socket, nFileSize - sent)) {
    GiveUpSending(socket);
    return 0;
  }
  CountInPeriod(list.PayloadSize(), mSendBytes, mSendRate, mSendStart);
  return sent == nFileSize ? 1 : 2;
}

void CSocketClient::SetPlacedHead(std::uint32_t nHeadSize) {
  mInner->head_size = nHeadSize < kMaxHeadSize ? nHeadSize : kMaxHeadSize;
}

unsigned char* CSocketClient::OnPlacePayload(const unsigned char*, std::uint32_t, std::uint32_t,
                                             std::uint32_t*) {
  return nullptr;
}

void CSocketClient::OnPayloadPlaced(std::uint32_t, std::uint32_t) {}

std::uint32_t CSocketClient::OnPourPayload(const unsigned char*, std::uint32_t, std::uint32_t,
                                           std::uint64_t) {
  return 0;
}

int CSocketClient::OnPlacedPacket(const unsigned char*, std::uint32_t) {
  return 1;
}

int CSocketClient::ThreadLoop(std::uint64_t) {
  const std::uint64_t socket = GetSocketFd();
  if (socket == QVX_INVALID_SOCKET) return 0;
  mInner->receiving_thread = ThreadSerial();
  const int next = RunPass(socket);
  mInner->receiving_thread = 0;
  return next;
}

int CSocketClient::RunPass(std::uint64_t nSocketFD) {
  const int happened = PollSocket(nSocketFD, kPollRead, kPollMilliseconds);
  if (happened == 0) return 1;
  if (happened < 0) {
    DbgOutputA(2, "%s WSAPoll error=%d\r\n", mThread.GetThreadName(), LastSocketError());
    return 1;
  }
  if ((happened & kPollRead) != 0) RecvClientSocketData(nSocketFD);
  if (IsOfParent()) return 0;
  if ((happened & kPollEnded) != 0) {
    DbgOutputA(2, "socket %d recv event:%04x\r\n", Printed(nSocketFD),
               static_cast<unsigned int>(happened));
    ReportDisconnect(nSocketFD);
    EndConnection(nSocketFD);
  }
  return 1;
}

void CSocketClient::RecvClientSocketData(std::uint64_t nSocketFD) {
  try {
    if (mRawFlag != 0 ? RecvRawData(nSocketFD) : RecvPackets(nSocketFD)) return;
  } catch (const std::bad_alloc&) {
    ClearPacket(mRecvPacket);
  }
  ShutdownSocket(nSocketFD);
}

bool CSocketClient::RecvPackets(std::uint64_t nSocketFD) {
  ClientReceiver receiver(*this, nSocketFD);
  return mInner->reader.Receive(nSocketFD, mCheckFlag != 0, mRecvPacket, receiver);
}

bool CSocketClient::RecvRawData(std::uint64_t nSocketFD) {
  unsigned char* data = nullptr;
  std::uint32_t size = 0;
  if (RecvTCPRaw(nSocketFD, &data, &size) == 0) {
    DbgOutputA(4, "client RecvTCPRaw failed mSocketFD=%d\r\n", Printed(nSocketFD));
    return false;
  }
  const std::unique_ptr<unsigned char[]> owner(data);
  IClientSocketListener* listener = mListener;
  if (data == nullptr || listener == nullptr) return true;
  const int wanted =
      listener->OnClientReceiveData(mUserData, nSocketFD, data, static_cast<int>(size));
  CountInPeriod(size, mRecvBytes, mRecvRate, mRecvStart);
  return wanted != 0;
}

CTCPSocketClient::CTCPSocketClient() = default;
CTCPSocketClient::CTCPSocketClient(const CTCPSocketClient& other) = default;
CTCPSocketClient& CTCPSocketClient::operator=(const CTCPSocketClient& other) = default;

CTCPSocketClient::~CTCPSocketClient() {
  Close();
}

std::uint64_t CTCPSocketClient::SocketCreate() {
  return MakeTcpSocket();
}

int CTCPSocketClient::SocketConnect(std::uint64_t nSocketFD, const char* szHost,
                                    std::uint16_t nPort, int* pCancelFlag) {
  return AsyncConnect(nSocketFD, szHost, nPort, kConnectMilliseconds, pCancelFlag);
}

CBTHSocketClient::CBTHSocketClient() = default;
CBTHSocketClient::CBTHSocketClient(const CBTHSocketClient& other) = default;
CBTHSocketClient& CBTHSocketClient::operator=(const CBTHSocketClient& other) = default;

CBTHSocketClient::~CBTHSocketClient() {
  Close();
}

std::uint64_t CBTHSocketClient::SocketCreate() {
  return MakeRfcommSocket();
}

int CBTHSocketClient::SocketConnect(std::uint64_t nSocketFD, const char* szHost, std::uint16_t,
                                    int*) {
  BluetoothAddress address{};
  if (!FindBluetoothDevice(szHost, &address)) return 0;
  return ConnectRfcomm(nSocketFD, address, FindSerialChannel(address)) ? 1 : 0;
}
