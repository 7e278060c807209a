#include "net/adapter_list.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <new>
#include <string>

#include "platform/socket.h"

namespace qvx::net {
namespace {

constexpr std::uint32_t kOtherType = 1;
constexpr std::uint32_t kPointToPointType = 23;
constexpr std::uint32_t kTunnelType = 131;

static_assert(sizeof(IP_ADAPTER_INFO) == 704);
static_assert(sizeof(IP_ADAPTER_INFO) % alignof(IP_ADDR_STRING) == 0);

std::uint32_t TypeOf(platform::AdapterKind kind) {
  switch (kind) {
    case platform::AdapterKind::kEthernet:
      return kEthernetType;
    case platform::AdapterKind::kWireless:
      return kWirelessType;
    case platform::AdapterKind::kPointToPoint:
      return kPointToPointType;
    case platform::AdapterKind::kTunnel:
      return kTunnelType;
    default:
      return kOtherType;
  }
}

void StoreText(const std::string& text, char* field, std::size_t size) {
  const std::size_t length = std::min(text.size(), size - 1);
  std::memcpy(field, text.data(), length);
  field[length] = 0;
}

void StoreAddressPair(const platform::AdapterAddress& address, IP_ADDR_STRING& record) {
  platform::FormatIpv4(address.address, record.IpAddress.String, sizeof(record.IpAddress.String));
  platform::FormatIpv4(address.mask, record.IpMask.String, sizeof(record.IpMask.String));
}

std::size_t ExtraAddresses(const platform::Adapter& adapter) {
  return adapter.addresses.empty() ? 0 : adapter.addresses.size() - 1;
}

// Stores the first address in the record and chains the others from extra on; returns
// what is left of extra.
IP_ADDR_STRING* StoreAddresses(const platform::Adapter& adapter, IP_ADAPTER_INFO& record,
                               IP_ADDR_STRING* extra) {
  IP_ADDR_STRING* last = &record.IpAddressList;
  StoreAddressPair(adapter.addresses.empty() ? platform::AdapterAddress() : adapter.addresses[0],
                   *last);
  for (std::size_t i = 1; i < adapter.addresses.size(); ++i) {
    StoreAddressPair(adapter.addresses[i], *extra);
    last->Next = extra;
    last = extra++;
  }
  return extra;
}

void StoreAdapter(const platform::Adapter& adapter, IP_ADAPTER_INFO& record) {
  record.ComboIndex = static_cast<std::uint32_t>(adapter.index);
  record.Index = record.ComboIndex;
  record.Type = TypeOf(adapter.kind);
  StoreText(adapter.name, record.AdapterName, sizeof(record.AdapterName));
  StoreText(adapter.name, record.Description, sizeof(record.Description));
  record.AddressLength = static_cast<std::uint32_t>(adapter.mac_length);
  std::copy(adapter.mac.begin(), adapter.mac.end(), record.Address);
  StoreAddressPair({}, record.GatewayList);
  StoreAddressPair({}, record.DhcpServer);
  StoreAddressPair({}, record.PrimaryWinsServer);
  StoreAddressPair({}, record.SecondaryWinsServer);
}

bool HasAddress(const IP_ADAPTER_INFO& adapter) {
  return std::memcmp(adapter.IpAddressList.IpAddress.String, "0.0.0.0", 8) != 0;
}

bool EqualsWithoutCase(const char* a, const char* b) {
  const auto lower = [](char c) { return std::tolower(static_cast<unsigned char>(c)); };
  while (*a != 0 && lower(*a) == lower(*b)) ++a, ++b;
  return lower(*a) == lower(*b);
}

}  // namespace

IP_ADAPTER_INFO* MakeAdapterBlock(const std::vector<platform::Adapter>& adapters) {
  if (adapters.empty()) return nullptr;
  std::size_t extras = 0;
  for (const platform::Adapter& adapter : adapters) extras += ExtraAddresses(adapter);
  const std::size_t records = adapters.size() * sizeof(IP_ADAPTER_INFO);
  const std::size_t size = records + extras * sizeof(IP_ADDR_STRING);
  auto* block = static_cast<unsigned char*>(::operator new(size));
  auto* list = new (block) IP_ADAPTER_INFO[adapters.size()]();
  auto* extra = new (block + records) IP_ADDR_STRING[extras]();
  for (std::size_t i = 0; i < adapters.size(); ++i) {
    StoreAdapter(adapters[i], list[i]);
    extra = StoreAddresses(adapters[i], list[i], extra);
    list[i].CurrentIpAddress = &list[i].IpAddressList;
    if (i > 0) list[i - 1].Next = &list[i];
  }
  return list;
}

const IP_ADAPTER_INFO* FindAdapter(const IP_ADAPTER_INFO* list, std::uint32_t type,
                                   bool need_address) {
  for (; list != nullptr; list = list->Next) {
    if (list->Type == type && (!need_address || HasAddress(*list))) return list;
  }
  return nullptr;
}

bool HasAddressByName(const IP_ADAPTER_INFO* list, const char* name) {
  for (; list != nullptr; list = list->Next) {
    if (EqualsWithoutCase(list->AdapterName, name) && HasAddress(*list)) return true;
  }
  return false;
}

}  // namespace qvx::net
