#include "qvx/socket_primitives.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "core/quiet_log.h"
#include "net/packet_reader.h"
#include "net/packet_record.h"
#include "platform/socket.h"
#include "qvx/base_buffer.h"
#include "qvx/base_string.h"
#include "qvx/debug_output.h"
#include "qvx/net_address.h"

namespace {

using namespace qvx::net;
using qvx::core::LogQuietly;
using namespace qvx::platform;

constexpr std::size_t kDatagramPiece = 0x10000;
constexpr std::uint32_t kConnectStepMilliseconds = 100;
constexpr std::uint32_t kBroadcastAddress = 0xFFFFFFFF;

constinit std::atomic<std::uint32_t> match_code{0};

// Bytes of a stream: what came by one call, or that nothing did.
enum class Step { kAll, kSome, kNothing, kGiveUp };

Step ReceiveStep(std::uint64_t socket, unsigned char* data, std::size_t size, bool first,
                 std::uint32_t* got) {
  const IoResult result = Receive(socket, data, size);
  *got = static_cast<std::uint32_t>(result.bytes);
  if (result.bytes == size) return Step::kAll;
  if (result.bytes > 0) return Step::kSome;
  if (!first && result.error == 0) return Step::kNothing;
  return IsConnectionUsable(socket, result) ? Step::kNothing : Step::kGiveUp;
}

// A record that wants no payload byte can only see the connection end.
bool IsIdleRecordFine(std::uint64_t socket) {
  if (PendingBytes(socket) > 0) {
    LogReceiveFailure({0, 0});
    return false;
  }
  const int happened = PollSocket(socket, kPollRead, 0);
  if (happened <= 0 || (happened & (kPollError | kPollHangUp)) == 0) return true;
  return IsConnectionUsable(socket, {0, 0});
}

bool ReceivePayload(std::uint64_t socket, tagTCPPACKETRECV& record, bool first) {
  for (std::size_t taken = 0; record.nPayloadBytes < record.nLength && taken < kTurnBytes;) {
    MakePayloadRoom(record);
    std::uint32_t got = 0;
    const Step step = ReceiveStep(socket, record.pPayload + record.nPayloadBytes,
                                  PayloadRoom(record), first && taken == 0, &got);
    if (step == Step::kGiveUp) return false;
    record.nPayloadBytes += got;
    taken += got;
    if (step != Step::kAll) break;
  }
  if (record.nPayloadBytes == record.nLength) record.bComplete = 1;
  return true;
}

bool ReceivePacket(std::uint64_t socket, bool check, tagTCPPACKETRECV& record) {
  if (record.nHeaderBytes >= kHeaderSize) {
    const bool wants_payload = record.nPayloadBytes < record.nLength;
    return wants_payload ? ReceivePayload(socket, record, true) : IsIdleRecordFine(socket);
  }
  std::uint32_t got = 0;
  const Step step = ReceiveStep(socket, HeaderBytes(record) + record.nHeaderBytes,
                                kHeaderSize - record.nHeaderBytes, true, &got);
  if (step == Step::kGiveUp) return false;
  record.nHeaderBytes += got;
  if (step != Step::kAll) return true;
  if (!IsHeaderGood(record, check)) return false;
  record.nPayloadBytes = 0;
  return record.nLength == 0 || ReceivePayload(socket, record, false);
}

bool IsGone(std::uint64_t socket) {
  const int happened = PollSocket(socket, kPollRead, 0);
  return happened > 0 && (happened & (kPollError | kPollHangUp)) != 0;
}

// The texts of the two functions that take whatever waits.
struct RawTexts {
  const char* closed;
  const char* invalid;
};

constexpr RawTexts kStreamTexts = {
    "RecvTCPRaw socket closed, nSocketFD = %d\r\n",
    "RecvTCPRaw recv invalid, socket=%d, expect:%d, actual:%d, error=%d\r\n"};
constexpr RawTexts kDatagramTexts = {
    "RecvUDPRaw socket closed, nSocketFD = %d\r\n",
    "RecvUDPRaw recv invalid, socket=%d, expect:%d, actual:%d, error=%d\r\n"};

int GiveUpClosed(std::uint64_t socket, const RawTexts& texts) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  DbgOutputA(2, texts.closed, SocketDescriptor(socket));
#pragma GCC diagnostic pop
  return 0;
}

int GiveUpInvalid(std::uint64_t socket, const RawTexts& texts, std::size_t expected,
                  const IoResult& result) {
  const int actual = result.error == 0 ? static_cast<int>(result.bytes) : -1;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  DbgOutputA(2, texts.invalid, SocketDescriptor(socket), static_cast<int>(expected), actual,
             result.error);
#pragma GCC diagnostic pop
  return 0;
}

using Block = std::unique_ptr<unsigned char[]>;

int HandOver(Block block, std::size_t size, unsigned char** data, std::uint32_t* out_size) {
  *data = block.release();
  *out_size = static_cast<std::uint32_t>(size);
  return 1;
}

// Takes an empty datagram off the queue, so that those behind it can be seen.
void DropEmptyDatagram(std::uint64_t socket) {
  unsigned char nothing = 0;
  DatagramPath path;
  ReceiveDatagram(socket, &nothing, 0, &path);
}

void CopyAddress(const Ipv4Endpoint& from, void* address, int size) {
  if (address == nullptr || size <= 0) return;
  const auto bytes = NativeAddress(from);
  std::memcpy(address, bytes.data(), std::min(bytes.size(), static_cast<std::size_t>(size)));
}

bool SendBroadcast(std::uint64_t socket, std::uint16_t port, const void* data, int size) {
  const DatagramPath path{{kBroadcastAddress, port}, 0, 0};
  const auto* bytes = static_cast<const unsigned char*>(data);
  std::size_t left = static_cast<std::size_t>(size);
  while (left > 0) {
    const IoResult result = SendDatagram(socket, bytes, std::min(left, kDatagramPiece), path);
    if (result.error != 0) {
      DbgOutputA(2, "send failed, error(%d) ----\r\n", result.error);
      return false;
    }
    bytes += result.bytes;
    left -= result.bytes;
  }
  return true;
}

// The number of an address text that IsValidSocketAddrV4 accepts: inner numbers may be empty
// and leading zeros mean nothing.
std::uint32_t AddressOfText(const char* text) {
  std::uint32_t address = 0;
  for (int i = 0; i < 4; ++i) {
    char* end = nullptr;
    const bool digit = *text >= '0' && *text <= '9';
    const unsigned long number = digit ? std::strtoul(text, &end, 10) : 0;
    address = address << 8 | static_cast<std::uint32_t>(number & 0xFF);
    text = digit ? end : text;
    if (*text == '.') ++text;
  }
  return address;
}

bool FindAddress(const char* host, std::uint32_t* address) {
  if (IsValidSocketAddrV4(host) != 0) {
    *address = AddressOfText(host);
    return true;
  }
  CBaseStringA text;
  if (host == nullptr || ResolveHostname(host, &text) == 0) return false;
  return ParseIpv4(text.GetString(), address);
}

bool IsSet(int* flag) {
  return flag != nullptr && std::atomic_ref<int>(*flag).load(std::memory_order_acquire) != 0;
}

bool Connect(std::uint64_t socket, const Ipv4Endpoint& peer, std::uint32_t timeout, int* cancel) {
  ConnectOutcome outcome = StartConnectIpv4(socket, peer);
  const std::uint32_t steps = std::max(timeout / kConnectStepMilliseconds, std::uint32_t{1});
  for (std::uint32_t i = 0; i < steps && outcome == ConnectOutcome::kPending; ++i) {
    if (IsSet(cancel)) {
      DbgOutputA(3, "%s: cancel connect\r\n", "AsyncConnect");
      SetLastSocketError(kErrorCancelled);
      return false;
    }
    outcome = WaitConnect(socket, kConnectStepMilliseconds);
  }
  if (outcome == ConnectOutcome::kPending) SetLastSocketError(kErrorTimedOut);
  return outcome == ConnectOutcome::kConnected;
}

bool IsSendable(const void* data, int size) {
  return data != nullptr && size > 0;
}

}  // namespace

void SetSocketMatchCode(std::uint32_t nCode) {
  match_code.store(nCode, std::memory_order_relaxed);
}

std::uint32_t GetSocketMatchCode(void) {
  return match_code.load(std::memory_order_relaxed);
}

int IsSocketClosed(std::uint64_t nSocketFD) {
  return IsGone(nSocketFD) ? 1 : 0;
}

int RecvTCPPacket(std::uint64_t nSocketFD, int bCheck, tagTCPPACKETRECV* pRecv) {
  return pRecv != nullptr && ReceivePacket(nSocketFD, bCheck != 0, *pRecv) ? 1 : 0;
}

int RecvTCPRaw(std::uint64_t nSocketFD, unsigned char** ppData, std::uint32_t* pSize) {
  if (ppData == nullptr || pSize == nullptr) return 0;
  *ppData = nullptr;
  *pSize = 0;
  const std::size_t waiting = PendingBytes(nSocketFD);
  if (waiting == 0) return IsGone(nSocketFD) ? GiveUpClosed(nSocketFD, kStreamTexts) : 1;
  Block block(new unsigned char[waiting]);
  const IoResult result = Receive(nSocketFD, block.get(), waiting);
  if (result.bytes != waiting) return GiveUpInvalid(nSocketFD, kStreamTexts, waiting, result);
  return HandOver(std::move(block), waiting, ppData, pSize);
}

int RecvUDPRaw(std::uint64_t nSocketFD, void* pAddress, int nAddressSize, unsigned char** ppData,
               std::uint32_t* pSize) {
  if (ppData == nullptr || pSize == nullptr) return 0;
  *ppData = nullptr;
  *pSize = 0;
  const std::size_t waiting = PendingBytes(nSocketFD);
  if (waiting == 0) {
    const int happened = PollSocket(nSocketFD, kPollRead, 0);
    if (happened > 0 && (happened & (kPollError | kPollHangUp)) != 0) {
      return GiveUpClosed(nSocketFD, kDatagramTexts);
    }
    if (happened > 0 && (happened & kPollRead) != 0) DropEmptyDatagram(nSocketFD);
    return 1;
  }
  Block block(new unsigned char[waiting]);
  DatagramPath path;
  const IoResult result = ReceiveDatagram(nSocketFD, block.get(), waiting, &path);
  if (result.bytes < 1) return GiveUpInvalid(nSocketFD, kDatagramTexts, waiting, result);
  CopyAddress(path.peer, pAddress, nAddressSize);
  return HandOver(std::move(block), result.bytes, ppData, pSize);
}

int SendTCPPacket(std::uint64_t nSocketFD, std::uint64_t nCode, const void* pData, int nSize) {
  if (!IsSendable(pData, nSize)) return 0;
  const tagTCPPACKETHEADER header = MakePacketHeader(nCode, static_cast<std::uint32_t>(nSize));
  const ConstBytes parts[] = {{&header, sizeof(header)}, {pData, static_cast<std::size_t>(nSize)}};
  if (SendWhole(nSocketFD, parts, 2, FullSocket::kFail)) return 1;
  const int error = LastSocketError();
  LogQuietly([&] { DbgOutputA(2, "SendTCPPacket failed, error(%d) ----\r\n", error); });
  return 0;
}

int SendTCPRaw(std::uint64_t nSocketFD, const void* pData, int nSize) {
  if (!IsSendable(pData, nSize)) return 0;
  const ConstBytes part{pData, static_cast<std::size_t>(nSize)};
  if (SendWhole(nSocketFD, &part, 1, FullSocket::kWait)) return 1;
  const int error = LastSocketError();
  LogQuietly(
      [&] { DbgOutputA(2, "send failed, error(%d):%s ----\r\n", error, SocketErrorText(error)); });
  return 0;
}

int SendUDPRaw(std::uint64_t nSocketFD, std::uint16_t nPort, const void* pData, int nSize) {
  if (!IsSendable(pData, nSize)) return 0;
  SetSendTimeout(nSocketFD, kSendTimeoutMilliseconds);
  return SendBroadcast(nSocketFD, nPort, pData, nSize) ? 1 : 0;
}

void BoradcastRaw(std::uint64_t nSocketFD, std::uint16_t nPort, const void* pData, int nSize,
                  std::uint32_t nTimeOutMS) {
  const bool own = nSocketFD == kNoSocket;
  const std::uint64_t socket = own ? MakeUdpSocket() : nSocketFD;
  if (socket == kNoSocket) return;
  SetBroadcast(socket);
  if (nTimeOutMS != 0) SetSendTimeout(socket, nTimeOutMS);
  if (IsSendable(pData, nSize)) SendBroadcast(socket, nPort, pData, nSize);
  if (own) CloseSocket(socket);
}

std::uint16_t GetPeerAddrPort(std::uint64_t nSocketFD, char* szAddress, int nSize) {
  Ipv4Endpoint peer;
  if (!GetPeerIpv4(nSocketFD, &peer)) {
    DbgOutputA(4, "getpeername of socket %d error:%d\r\n", SocketDescriptor(nSocketFD),
               LastSocketError());
    return 0;
  }
  char text[16];
  FormatIpv4(peer.address, text, sizeof(text));
  if (szAddress != nullptr && nSize > static_cast<int>(std::strlen(text))) {
    std::strcpy(szAddress, text);
  }
  return peer.port;
}

int AsyncConnect(std::uint64_t nSocketFD, const char* szHost, std::uint16_t nPort,
                 std::uint32_t nTimeOutMS, int* pCancelFlag) {
  Ipv4Endpoint peer{0, nPort};
  if (!FindAddress(szHost, &peer.address)) {
    SetLastSocketError(kErrorNoHost);
    return 0;
  }
  SetNonBlocking(nSocketFD, true);
  const bool connected = Connect(nSocketFD, peer, nTimeOutMS, pCancelFlag);
  const int error = LastSocketError();
  SetNonBlocking(nSocketFD, false);
  if (!connected) SetLastSocketError(error);
  return connected ? 1 : 0;
}

void CreateLengthData(CBaseBuffer* pBuffer, const void* pData, int nSize) {
  if (pBuffer == nullptr) return;
  const std::string digits = std::to_string(nSize);
  CBaseBuffer form;
  form.SetBufferSize(static_cast<unsigned int>(digits.size()) + 1 +
                     static_cast<unsigned int>(std::max(nSize, 0)));
  form.SetBuffer(digits.c_str(), static_cast<unsigned int>(digits.size()) + 1);
  if (nSize > 0) form.AppendBuffer(pData, static_cast<unsigned int>(nSize));
  pBuffer->SetBuffer(&form);
}

void ParseLengthData(const void* pData, int nSize, std::uint32_t* pDigits,
                     std::uint32_t* pBlockSize) {
  if (pDigits == nullptr || pBlockSize == nullptr) return;
  *pDigits = 0;
  *pBlockSize = 0;
  if (pData == nullptr || nSize < 1) return;
  const auto* text = static_cast<const char*>(pData);
  const void* end = std::memchr(text, 0, static_cast<std::size_t>(nSize));
  if (end == nullptr) return;
  *pDigits = static_cast<std::uint32_t>(static_cast<const char*>(end) - text);
  *pBlockSize = static_cast<std::uint32_t>(std::strtoll(text, nullptr, 10));
}
