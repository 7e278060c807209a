// Functions on sockets that the caller owns: packets over a stream, raw stream and datagram
// transfers, broadcasts, a connect that can be cancelled, and blocks with their length in
// front. Only BoradcastRaw may make a socket, for itself; nothing here closes the caller's.
//
// A socket is an unsigned 64-bit value, all bits set when invalid. The library's own values
// hold the descriptor in the low 32 bits and a count of connections in the high 32 bits; a
// plain descriptor is accepted everywhere. Ports are in host order.
//
// No function holds a lock. They may run at the same time on different sockets; on one socket
// one thread may send while another receives. Sending to a closed peer raises no signal.
// Reasons of failures go to the debug output.
#pragma once

#include <cstddef>
#include <cstdint>

#include "qvx/types.h"

class CBaseBuffer;

// The value that is no socket.
inline constexpr std::uint64_t QVX_INVALID_SOCKET = ~std::uint64_t{0};

// Routing codes of a packet; any other value is the server's socket of the client that the
// payload goes to.
inline constexpr std::uint64_t SOCKET_CODE_ALL_CLIENTS = ~std::uint64_t{0};        // -1
inline constexpr std::uint64_t SOCKET_CODE_OTHER_CLIENTS = ~std::uint64_t{0} - 1;  // -2
inline constexpr std::uint64_t SOCKET_CODE_TO_SERVER = ~std::uint64_t{0} - 2;      // -3
inline constexpr std::uint64_t SOCKET_CODE_HELLO = ~std::uint64_t{0} - 3;          // -4

inline constexpr std::uint32_t SOCKET_PACKET_TAG = 0xABCDBBBB;
inline constexpr std::uint32_t SOCKET_HELLO_TAG = 0xABCDDCBA;
inline constexpr std::uint32_t SOCKET_HELLO_VERSION = 1;

#pragma pack(push, 1)

// What precedes each payload on the wire: little-endian, 20 bytes, no padding.
struct tagTCPPACKETHEADER {
  std::uint32_t nTag;        // SOCKET_PACKET_TAG
  std::uint32_t nMatchCode;  // the sender's process-wide match code
  std::uint64_t nCode;       // routing code
  std::uint32_t nLength;     // payload bytes that follow
};

// The payload of a client's first packet, which has SOCKET_CODE_HELLO: 16 bytes.
struct tagSOCKETHELLO {
  std::uint32_t nTag;       // SOCKET_HELLO_TAG
  std::uint32_t nVersion;   // SOCKET_HELLO_VERSION
  std::uint64_t nSocketFD;  // the client's own socket value
};

#pragma pack(pop)

// One packet while it is received. The first 20 bytes are the header as on the wire. A record
// filled with zeros means that nothing has come; make it so again after each packet and after
// a failure. pPayload belongs to the record's owner, who releases it with Internal_DelArrayA,
// also when the packet is not complete.
struct tagTCPPACKETRECV {
  std::uint32_t nTag;
  std::uint32_t nMatchCode;
  std::uint64_t nCode;
  std::uint32_t nLength;
  std::uint32_t nHeaderBytes;   // header bytes that have come, 0 to 20
  std::uint32_t nPayloadBytes;  // payload bytes that have come
  std::int32_t bComplete;       // 1 when the last payload byte has come
  unsigned char* pPayload;      // nLength bytes once complete, less room before
  std::uint32_t nPayloadRoom;   // bytes allocated; the library's own
  std::uint32_t nPlacing;       // where the payload goes; the library's own
};

// A piece of data that is sent together with others, without copying.
struct tagSOCKETSENDPART {
  const void* pData;
  std::size_t nSize;
};

extern "C" {

// The process-wide match code, 0 at load. Each packet sent carries it; a receiver that checks
// refuses packets with another one, unless its own is 0. Set it before connections start.
QVX_API void SetSocketMatchCode(std::uint32_t nCode);
QVX_API std::uint32_t GetSocketMatchCode(void);

// 1 if the peer is gone and nothing it sent is left to read, else 0.
QVX_API int IsSocketClosed(std::uint64_t nSocketFD);

// Takes what waits of one packet and never blocks; call it each time the socket is readable.
// Finishes at most one packet and reads no byte past it. 1: go on, and look at bComplete;
// 0: the connection is of no more use (closed, broken, or not this protocol). A value that is
// no open socket gives 1: nothing waits there. With bCheck the match code is checked. The
// payload's memory grows as bytes come, so a length that was only claimed costs nothing. A
// failed allocation throws std::bad_alloc and leaves the record good.
QVX_API int RecvTCPPacket(std::uint64_t nSocketFD, int bCheck, tagTCPPACKETRECV* pRecv);

// Takes all that waits, without blocking. 1: go on, with data if *ppData is not null, which
// the caller releases with Internal_DelArrayA; 0: the connection is of no more use, or an
// argument is null.
QVX_API int RecvTCPRaw(std::uint64_t nSocketFD, unsigned char** ppData, std::uint32_t* pSize);

// The same for one datagram. The sender's address goes to pAddress as the system's IPv4
// socket address (16 bytes: family, port and address in network order), cut to nAddressSize.
QVX_API int RecvUDPRaw(std::uint64_t nSocketFD, void* pAddress, int nAddressSize,
                       unsigned char** ppData, std::uint32_t* pSize);

// Sends header and payload. 1 if all went. Fails at once where a non-blocking socket has no
// room for the first byte; from then on blocks for room, at most 60 s without progress, since
// a packet that was begun must be completed. After a failure the peer may hold part of a
// packet: end the connection. Null data or a size below 1 gives 0. Two threads that send on
// one socket must take turns.
QVX_API int SendTCPPacket(std::uint64_t nSocketFD, std::uint64_t nCode, const void* pData,
                          int nSize);

// Sends the bytes alone; waits for room from the first byte on, at most 60 s without progress.
QVX_API int SendTCPRaw(std::uint64_t nSocketFD, const void* pData, int nSize);

// Sends to the broadcast address 255.255.255.255, in datagrams of at most 65,536 bytes; a
// piece that the system can't send as one datagram (above 65,507 bytes) fails.
QVX_API int SendUDPRaw(std::uint64_t nSocketFD, std::uint16_t nPort, const void* pData, int nSize);

// The same on a socket that is made a broadcasting one first, or on one of its own where
// nSocketFD is QVX_INVALID_SOCKET. A time-out of 0 ms leaves the socket's own.
QVX_API void BoradcastRaw(std::uint64_t nSocketFD, std::uint16_t nPort, const void* pData,
                          int nSize, std::uint32_t nTimeOutMS);

// Writes the peer's IPv4 address as text (16 characters are enough; a smaller buffer is left
// as it was) and gives its port, 0 on failure.
QVX_API std::uint16_t GetPeerAddrPort(std::uint64_t nSocketFD, char* szAddress, int nSize);

// Connects to a dotted address or a host name and blocks for at most the time-out (in steps of
// 100 ms, at least one). Another thread ends it within a step by setting *pCancelFlag to a
// value other than 0; pCancelFlag may be null. A refusal is seen at once. 1 if connected. The
// socket is blocking afterwards, unless the name could not be resolved.
QVX_API int AsyncConnect(std::uint64_t nSocketFD, const char* szHost, std::uint16_t nPort,
                         std::uint32_t nTimeOutMS, int* pCancelFlag);

// Replaces the buffer's content with the size in decimal digits, a NUL and the data.
QVX_API void CreateLengthData(CBaseBuffer* pBuffer, const void* pData, int nSize);

// Reads the front of such a form: the number of digits, and the size that they tell. The data
// begins behind them at *pDigits + 1; whether it is all there is not checked. Both are 0 where
// the nSize bytes hold no NUL.
QVX_API void ParseLengthData(const void* pData, int nSize, std::uint32_t* pDigits,
                             std::uint32_t* pBlockSize);

}  // extern "C"
