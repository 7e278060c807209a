#include "qvx/net_address.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "net/adapter_list.h"
#include "platform/resolver.h"
#include "platform/socket.h"
#include "qvx/base_buffer.h"
#include "qvx/base_string.h"
#include "qvx/debug_output.h"
#include "qvx/hex_text.h"

namespace platform = qvx::platform;
namespace net = qvx::net;

namespace {

struct FreeAdapters {
  void operator()(IP_ADAPTER_INFO* list) const { MyFreeAdaptersInfo(list); }
};

using AdapterList = std::unique_ptr<IP_ADAPTER_INFO, FreeAdapters>;

AdapterList OwnAdapters() {
  return AdapterList(MyGetAdaptersInfo());
}

// The number in [text, end) if it consists of digits and is at most 255, else -1.
int PieceValue(const char* text, const char* end) {
  int value = 0;
  for (; text != end; ++text) {
    if (*text < '0' || *text > '9') return -1;
    value = value * 10 + (*text - '0');
    if (value > 255) return -1;
  }
  return value;
}

void StoreMac(const IP_ADAPTER_INFO* adapter, CBaseStringA* mac) {
  if (adapter == nullptr || mac == nullptr) return;
  const std::uint8_t* a = adapter->Address;
  mac->Format("%02X%02X%02X%02X%02X%02X", a[0], a[1], a[2], a[3], a[4], a[5]);
}

void StoreName(const IP_ADAPTER_INFO* adapter, CBaseStringA* name) {
  if (adapter != nullptr && name != nullptr) name->Set(adapter->AdapterName);
}

}  // namespace

int IsValidSocketAddrV4(const char* text) {
  if (text == nullptr) return 0;
  for (int piece = 0; piece < 3; ++piece) {
    const char* dot = std::strchr(text, '.');
    if (dot == nullptr) return 0;
    const int value = PieceValue(text, dot);
    if (value < 0 || (piece == 0 && value == 0)) return 0;
    text = dot + 1;
  }
  return *text != 0 && PieceValue(text, text + std::strlen(text)) >= 0 ? 1 : 0;
}

int ResolveHostname(const char* host, CBaseStringA* address) {
  std::vector<std::uint32_t> found;
  if (host == nullptr || address == nullptr || !platform::ResolveIpv4(host, &found)) return 0;
  for (const std::uint32_t number : found) {
    char text[16];
    platform::FormatIpv4(number, text, sizeof(text));
    if (IsValidSocketAddrV4(text) == 0) continue;
    DbgOutputA(2, "resolve hostname:%s, ip:%s\r\n", host, text);
    address->Set(text);
    return 1;
  }
  return 0;
}

void MacAddrStringToBuffer(const char* text, unsigned char* buffer) {
  if (text == nullptr || buffer == nullptr) return;
  CBaseStringA digits(text);
  digits.RemoveCharList(":");
  CBaseBuffer bytes;
  HexStringToBufferA(digits.GetString(), digits.GetLength(), &bytes);
  const int size = std::min(static_cast<int>(bytes.GetAvailSize()), 6);
  if (size > 0) std::memcpy(buffer, bytes.GetBuffer(), static_cast<std::size_t>(size));
}

void IPAddrStringToUINT32(const char* text, std::uint32_t* address) {
  if (address == nullptr) return;
  std::uint32_t number = 0;
  if (text == nullptr || !platform::ParseIpv4(text, &number)) number = 0;
  const unsigned char bytes[4] = {
      static_cast<unsigned char>(number >> 24), static_cast<unsigned char>(number >> 16),
      static_cast<unsigned char>(number >> 8), static_cast<unsigned char>(number)};
  std::memcpy(address, bytes, sizeof(bytes));
}

IP_ADAPTER_INFO* MyGetAdaptersInfo() {
  return net::MakeAdapterBlock(platform::ListAdapters());
}

void MyFreeAdaptersInfo(IP_ADAPTER_INFO* list) {
  ::operator delete(list);
}

void GetEthMacAddress(CBaseStringA* mac, int bNeedAddress) {
  const AdapterList list = OwnAdapters();
  StoreMac(net::FindAdapter(list.get(), net::kEthernetType, bNeedAddress != 0), mac);
}

void GetWlanMacAddress(CBaseStringA* mac) {
  const AdapterList list = OwnAdapters();
  StoreMac(net::FindAdapter(list.get(), net::kWirelessType, true), mac);
}

void GetAvailbalEthNetworkInterface(CBaseStringA* name) {
  const AdapterList list = OwnAdapters();
  StoreName(net::FindAdapter(list.get(), net::kEthernetType, true), name);
}

void GetAvailbalWlanNetworkInterface(CBaseStringA* name) {
  const AdapterList list = OwnAdapters();
  StoreName(net::FindAdapter(list.get(), net::kWirelessType, true), name);
}

int IsNetworkAvailable(const char* name) {
  if (name == nullptr) return 0;
  const AdapterList list = OwnAdapters();
  return net::HasAddressByName(list.get(), name) ? 1 : 0;
}
