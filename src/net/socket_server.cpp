#include "qvx/socket_server.h"

#include <array>
#include <climits>
#include <vector>

#include "net/server_engine.h"
#include "platform/bluetooth.h"
#include "platform/socket.h"
#include "qvx/debug_output.h"

using qvx::net::ClientRecord;
using qvx::net::SendRequest;
namespace platform = qvx::platform;

namespace {

constexpr std::uint8_t kBluetoothChannel = 1;

std::uint64_t FailedToListen(std::uint64_t socket) {
  const int error = platform::LastSocketError();
  platform::CloseSocket(socket);
  platform::SetLastSocketError(error);
  return platform::kNoSocket;
}

std::uint64_t StartListening(std::uint64_t socket) {
  if (platform::ListenSocket(socket)) return socket;
  DbgOutputA(4, "MsgServer Listen Failed, error=%d\r\n", platform::LastSocketError());
  return FailedToListen(socket);
}

void LogNoSocket() {
  DbgOutputA(4, "Create MsgServer Socket Failed, error=%d!\r\n", platform::LastSocketError());
}

std::uint64_t ListenOnAddress(std::uint32_t address, unsigned short port) {
  const std::uint64_t socket = platform::MakeTcpSocket();
  if (socket == platform::kNoSocket) {
    LogNoSocket();
    return socket;
  }
  platform::SetReuseAddress(socket);
  if (platform::BindIpv4(socket, {address, port})) return StartListening(socket);
  DbgOutputA(4, "Server Bind Port : %d Failed, error=%d\r\n", port, platform::LastSocketError());
  return FailedToListen(socket);
}

std::uint64_t AcceptOne(std::uint64_t listener) {
  return platform::AcceptSocket(listener).socket;
}

}  // namespace

IServerSocketListener::~IServerSocketListener() = default;
void IServerSocketListener::OnServerSocketCreate(std::uint64_t, std::uint64_t) {}
int IServerSocketListener::OnServerAcceptClient(std::uint64_t, tagCLIENTSOCKETINFO*) {
  return 1;
}
void IServerSocketListener::OnServerCloseClient(std::uint64_t, tagCLIENTSOCKETINFO*) {}
int IServerSocketListener::OnServerReceiveData(std::uint64_t, tagCLIENTSOCKETINFO*,
                                               const unsigned char*, int) {
  return 1;
}

ISocketSendFile::~ISocketSendFile() = default;

CSocketServer::CSocketServer()
    : mServerSocketFD(platform::kNoSocket),
      mClientCount(0),
      mRawFlag(0),
      mCheckFlag(1),
      mListener(nullptr),
      mUserData(0),
      mSendBytes(0),
      mSendRate(0),
      mSendPeriodStart(0),
      mRecvBytes(0),
      mRecvRate(0),
      mRecvPeriodStart(0),
      mEngine(std::make_unique<qvx::net::ServerEngine>(*this)) {}

CSocketServer::CSocketServer(const CSocketServer&) : CSocketServer() {}

CSocketServer& CSocketServer::operator=(const CSocketServer&) {
  return *this;
}

CSocketServer::~CSocketServer() {
  Close();
}

int CSocketServer::ThreadLoop(std::uint64_t context) {
  const auto is = [context](const CBaseThread& thread) {
    return context == reinterpret_cast<std::uint64_t>(&thread);
  };
  if (is(mAcceptThread)) return mEngine->RunAccept();
  if (is(mRecvThread)) return mEngine->RunReceive();
  if (is(mDispatchThread)) return mEngine->RunDispatch();
  if (is(mCloseThread)) return mEngine->RunClose();
  return 0;
}

int CSocketServer::Create(unsigned short port, int nRawFlag, int nCheckFlag,
                          IServerSocketListener* listener, std::uint64_t nUserData,
                          const char* threadName) {
  const CAutoBaseLock guard(&mLifecycleLock);
  CloseLocked();
  const std::uint64_t made = platform::AdoptSocket(SocketCreate(port));
  mServerSocketFD = made;
  if (made == platform::kNoSocket) {
    LogNoSocket();
    CloseLocked();
    return 0;
  }
  platform::SetNonBlocking(made, true);
  if (listener != nullptr) listener->OnServerSocketCreate(nUserData, made);
  mRawFlag = nRawFlag;
  mCheckFlag = nCheckFlag;
  mListener = listener;
  mUserData = nUserData;
  if (!mEngine->Start(threadName)) {
    LogNoSocket();
    CloseLocked();
    return 0;
  }
  DbgOutputA(2, "server bind to(%d), mSocketFD=%d, %s\r\n", port == 0 ? GetServerPort() : port,
             platform::SocketDescriptor(made), nRawFlag != 0 ? "raw socket" : "packet socket");
  return 1;
}

void CSocketServer::Close() {
  const CAutoBaseLock guard(&mLifecycleLock);
  CloseLocked();
}

void CSocketServer::CloseLocked() {
  mEngine->Stop();
  mListener = nullptr;
  mUserData = 0;
}

int CSocketServer::IsCreated() {
  return mServerSocketFD != platform::kNoSocket ? 1 : 0;
}

std::uint64_t CSocketServer::GetServerFd() {
  return mServerSocketFD;
}

unsigned short CSocketServer::GetServerPort() {
  platform::Ipv4Endpoint local;
  const std::uint64_t listener = mServerSocketFD;
  if (listener == platform::kNoSocket || !platform::GetLocalIpv4(listener, &local)) return 0;
  return local.port;
}

int CSocketServer::SendData(std::uint64_t nSocketFD, const void* data, int size) {
  if (data == nullptr || size <= 0) {
    DbgOutputA(2, "CSocketServer::SendData: parameter invalid!\r\n");
    return 0;
  }
  const tagSOCKETSENDPART part{data, static_cast<std::size_t>(size)};
  return SendParts(nSocketFD, &part, 1);
}

int CSocketServer::SendParts(std::uint64_t nSocketFD, const tagSOCKETSENDPART* parts, int count) {
  return SendGathered(nSocketFD, parts, count, nullptr, 0, 0);
}

int CSocketServer::SendFileRange(std::uint64_t nSocketFD, const void* head, int headSize,
                                 const std::shared_ptr<ISocketSendFile>& file,
                                 std::uint64_t nOffset, int nFileSize) {
  const tagSOCKETSENDPART part{head, headSize > 0 ? static_cast<std::size_t>(headSize) : 0};
  return SendGathered(nSocketFD, &part, 1, file, nOffset,
                      file && nFileSize > 0 ? static_cast<std::size_t>(nFileSize) : 0);
}

int CSocketServer::SendGathered(std::uint64_t nSocketFD, const tagSOCKETSENDPART* parts, int count,
                                const std::shared_ptr<ISocketSendFile>& file, std::uint64_t nOffset,
                                std::size_t nFileSize) {
  std::array<platform::ConstBytes, 8> few;
  std::vector<platform::ConstBytes> many;
  platform::ConstBytes* list = few.data();
  if (count > static_cast<int>(few.size())) {
    many.resize(static_cast<std::size_t>(count));
    list = many.data();
  }
  SendRequest request;
  request.parts = list;
  request.file = file;
  request.file_offset = nOffset;
  request.file_bytes = nFileSize;
  for (int i = 0; i < count; ++i) {
    if (parts[i].nSize == 0) continue;
    list[request.count++] = {parts[i].pData, parts[i].nSize};
    request.part_bytes += parts[i].nSize;
  }
  return SendRequestTo(nSocketFD, request);
}

int CSocketServer::SendRequestTo(std::uint64_t nSocketFD, SendRequest& request) {
  if (request.PayloadBytes() == 0 || request.PayloadBytes() > INT_MAX) {
    DbgOutputA(2, "CSocketServer::SendData: parameter invalid!\r\n");
    return 0;
  }
  if (mServerSocketFD == platform::kNoSocket) {
    DbgOutputA(2, "CSocketServer::SendData: mServerSocketFD is closed!!\r\n");
    return 0;
  }
  const CAutoBaseLock guard(&mClientLock);
  ClientRecord* client = mEngine->Find(nSocketFD);
  if (client != nullptr) return mEngine->SendToClient(*client, request);
  mEngine->CountSent(request.PayloadBytes());
  return 0;
}

void CSocketServer::BroadcastData(std::uint64_t nExceptFD, const void* data, int size) {
  if (data == nullptr || size <= 0) {
    DbgOutputA(2, "CSocketServer::SendData: parameter invalid!\r\n");
    return;
  }
  if (mServerSocketFD == platform::kNoSocket) {
    DbgOutputA(2, "CSocketServer::SendData: mServerSocketFD is closed!!\r\n");
    return;
  }
  const platform::ConstBytes part{data, static_cast<std::size_t>(size)};
  SendRequest request;
  request.parts = &part;
  request.count = 1;
  request.part_bytes = part.size;
  const CAutoBaseLock guard(&mClientLock);
  mEngine->SendToAllBut(nExceptFD, request);
}

void CSocketServer::CloseClient(std::uint64_t nSocketFD) {
  const CAutoBaseLock guard(&mClientLock);
  ClientRecord* client = mEngine->Find(nSocketFD);
  if (client != nullptr) mEngine->ShutDownClient(*client);
}

void CSocketServer::LockClient() {
  mClientLock.Lock();
}

void CSocketServer::UnlockClient() {
  mClientLock.Unlock();
}

int CSocketServer::GetClientCount() {
  return mClientCount;
}

const tagCLIENTSOCKETINFO* CSocketServer::GetClientSocketInfo_Locked(int index) {
  return static_cast<const tagCLIENTSOCKETINFO*>(mClientArray.GetAt(index));
}

int CSocketServer::GetSendBytesPerSecond() {
  return mSendRate;
}

int CSocketServer::GetRecvBytesPerSecond() {
  return mRecvRate;
}

void CSocketServer::SetSendQueueLimit(std::size_t bytes) {
  mEngine->queue_limit = bytes;
}

CTCPSocketServer::CTCPSocketServer() = default;
CTCPSocketServer::CTCPSocketServer(const CTCPSocketServer& other) = default;
CTCPSocketServer& CTCPSocketServer::operator=(const CTCPSocketServer& other) = default;

CTCPSocketServer::~CTCPSocketServer() {
  Close();
}

std::uint64_t CTCPSocketServer::SocketCreate(unsigned short port) {
  return ListenOnAddress(0, port);
}

std::uint64_t CTCPSocketServer::ListenOn(const char* address, unsigned short port) {
  std::uint32_t number = 0;
  if (address != nullptr && platform::ParseIpv4(address, &number)) {
    return ListenOnAddress(number, port);
  }
  platform::SetLastSocketError(0);
  DbgOutputA(4, "Server Bind Port : %d Failed, error=%d\r\n", port, 0);
  return platform::kNoSocket;
}

std::uint64_t CTCPSocketServer::SocketAccept(std::uint64_t nServerFD) {
  return AcceptOne(nServerFD);
}

CBTHSocketServer::CBTHSocketServer() = default;
CBTHSocketServer::CBTHSocketServer(const CBTHSocketServer& other) = default;
CBTHSocketServer& CBTHSocketServer::operator=(const CBTHSocketServer& other) = default;

CBTHSocketServer::~CBTHSocketServer() {
  Close();
}

std::uint64_t CBTHSocketServer::SocketCreate(unsigned short) {
  const std::uint64_t socket = platform::MakeRfcommSocket();
  if (socket == platform::kNoSocket) {
    LogNoSocket();
    return socket;
  }
  if (platform::BindRfcomm(socket, kBluetoothChannel)) return StartListening(socket);
  DbgOutputA(4, "Server Bind BTH Failed, error=%d\r\n", platform::LastSocketError());
  return FailedToListen(socket);
}

std::uint64_t CBTHSocketServer::SocketAccept(std::uint64_t nServerFD) {
  return AcceptOne(nServerFD);
}
