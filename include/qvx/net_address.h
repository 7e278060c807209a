// Address texts, host names and the network adapters of this machine.
// All functions keep no state and may run on any thread at the same time.
#pragma once

#include <cstdint>

#include "qvx/base_string.h"
#include "qvx/types.h"

// One address of an adapter as dotted texts, in a chain.
struct IP_ADDR_STRING {
  IP_ADDR_STRING* Next;
  struct {
    char String[16];
  } IpAddress;
  struct {
    char String[16];
  } IpMask;
  std::uint32_t Context;
};

// One network adapter, in a chain. 704 bytes.
// Type is 6 for Ethernet, 71 for wireless, 23 for point-to-point, 131 for a tunnel,
// else 1. IpAddressList holds "0.0.0.0" where the adapter has no address. The gateway,
// DHCP and WINS fields are not filled in.
struct IP_ADAPTER_INFO {
  IP_ADAPTER_INFO* Next;
  std::uint32_t ComboIndex;
  char AdapterName[260];
  char Description[132];
  std::uint32_t AddressLength;
  std::uint8_t Address[8];
  std::uint32_t Index;
  std::uint32_t Type;
  std::uint32_t DhcpEnabled;
  IP_ADDR_STRING* CurrentIpAddress;
  IP_ADDR_STRING IpAddressList;
  IP_ADDR_STRING GatewayList;
  IP_ADDR_STRING DhcpServer;
  std::int32_t HaveWins;
  IP_ADDR_STRING PrimaryWinsServer;
  IP_ADDR_STRING SecondaryWinsServer;
  std::int64_t LeaseObtained;
  std::int64_t LeaseExpires;
};

extern "C" {

// 1 if text is an IPv4 address in dotted form, else 0; null is no address. Each of the
// four numbers is at most 255 and the first is at least 1. An inner number may be empty,
// which counts as 0, and leading zeros are decimal.
QVX_API int IsValidSocketAddrV4(const char* text);

// Looks a host name up and stores its first IPv4 address as text. Blocks for as long as
// the system's resolver takes. 1 if there is one; else 0, and address is as it was.
QVX_API int ResolveHostname(const char* host, CBaseStringA* address);

// Decodes twelve hexadecimal digits, with or without a colon between pairs, to six bytes.
// A shorter text fills only the first bytes of buffer, which holds six.
QVX_API void MacAddrStringToBuffer(const char* text, unsigned char* buffer);

// Stores a dotted IPv4 address in network byte order; 0 for a text that is none.
QVX_API void IPAddrStringToUINT32(const char* text, std::uint32_t* address);

// The adapters of this machine but the loopback one: those with a device behind them
// first, then the others, each by index. Null on failure or if there are none. The list
// is released with MyFreeAdaptersInfo, which accepts null.
QVX_API IP_ADAPTER_INFO* MyGetAdaptersInfo();
QVX_API void MyFreeAdaptersInfo(IP_ADAPTER_INFO* list);

// The hardware address of the first Ethernet adapter as twelve upper-case hexadecimal
// digits; with bNeedAddress only an adapter that has an IPv4 address counts. Without such
// an adapter mac is as it was.
QVX_API void GetEthMacAddress(CBaseStringA* mac, int bNeedAddress);
// The same for the first wireless adapter that has an IPv4 address.
QVX_API void GetWlanMacAddress(CBaseStringA* mac);

// The name of the first Ethernet or wireless adapter that has an IPv4 address, such as
// "eth0". Without such an adapter name is as it was.
QVX_API void GetAvailbalEthNetworkInterface(CBaseStringA* name);
QVX_API void GetAvailbalWlanNetworkInterface(CBaseStringA* name);

// 1 if the adapter of this name, compared without case, has an IPv4 address.
QVX_API int IsNetworkAvailable(const char* name);

}  // extern "C"
