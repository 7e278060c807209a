#include "platform/adapters.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <netinet/in.h>
#include <netpacket/packet.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "platform/seam.h"

namespace qvx::platform {
namespace {

struct FreeInterfaces {
  void operator()(ifaddrs* list) const { freeifaddrs(list); }
};

AdapterKind KindOfHardware(unsigned hardware) {
  switch (hardware) {
    case ARPHRD_ETHER:
      return AdapterKind::kEthernet;
    case ARPHRD_LOOPBACK:
      return AdapterKind::kLoopback;
    case ARPHRD_PPP:
    case ARPHRD_SLIP:
      return AdapterKind::kPointToPoint;
    case ARPHRD_TUNNEL:
    case ARPHRD_TUNNEL6:
    case ARPHRD_SIT:
    case ARPHRD_IPGRE:
      return AdapterKind::kTunnel;
    default:
      return AdapterKind::kOther;
  }
}

// An address may carry a label such as "eth0:1", which is no interface of its own.
std::string InterfaceName(const char* label) {
  const char* colon = std::strchr(label, ':');
  return colon == nullptr ? std::string(label) : std::string(label, colon);
}

Adapter& EntryOf(std::vector<Adapter>& list, const std::string& name) {
  for (Adapter& entry : list) {
    if (entry.name == name) return entry;
  }
  list.emplace_back().name = name;
  return list.back();
}

void TakeHardware(const sockaddr* address, Adapter& entry) {
  sockaddr_ll link;
  std::memcpy(&link, address, sizeof(link));
  entry.index = link.sll_ifindex;
  entry.kind = KindOfHardware(link.sll_hatype);
  entry.mac_length = std::min<std::size_t>(link.sll_halen, entry.mac.size());
  std::memcpy(entry.mac.data(), link.sll_addr, entry.mac_length);
}

std::uint32_t AddressOf(const sockaddr* address) {
  if (address == nullptr) return 0;
  sockaddr_in internet;
  std::memcpy(&internet, address, sizeof(internet));
  return ntohl(internet.sin_addr.s_addr);
}

void TakeEntry(const ifaddrs& item, std::vector<Adapter>& list) {
  Adapter& entry = EntryOf(list, InterfaceName(item.ifa_name));
  if (item.ifa_addr == nullptr) return;
  if (item.ifa_addr->sa_family == AF_PACKET) TakeHardware(item.ifa_addr, entry);
  if (item.ifa_addr->sa_family == AF_INET) {
    entry.addresses.push_back({AddressOf(item.ifa_addr), AddressOf(item.ifa_netmask)});
  }
}

bool Exists(const std::string& path) {
  return access(path.c_str(), F_OK) == 0;
}

void CompleteFromTree(const std::string& folder, Adapter& adapter) {
  adapter.has_device = Exists(folder + "/device");
  const bool radio = Exists(folder + "/wireless") || Exists(folder + "/phy80211");
  if (radio && adapter.kind == AdapterKind::kEthernet) adapter.kind = AdapterKind::kWireless;
}

}  // namespace

bool ListInterfaces(std::vector<Adapter>& interfaces) {
  interfaces.clear();
  ifaddrs* first = nullptr;
  if (SeamFails(Operation::kSocket) || getifaddrs(&first) != 0) return false;
  const std::unique_ptr<ifaddrs, FreeInterfaces> list(first);
  for (const ifaddrs* item = first; item != nullptr; item = item->ifa_next) {
    TakeEntry(*item, interfaces);
  }
  for (Adapter& entry : interfaces) {
    if (entry.index == 0) entry.index = static_cast<int>(if_nametoindex(entry.name.c_str()));
  }
  std::stable_sort(interfaces.begin(), interfaces.end(),
                   [](const Adapter& a, const Adapter& b) { return a.index < b.index; });
  return true;
}

std::vector<Adapter> ArrangeAdapters(std::vector<Adapter> interfaces,
                                     const std::string& sysfs_net) {
  std::erase_if(interfaces, [](const Adapter& a) { return a.kind == AdapterKind::kLoopback; });
  for (Adapter& adapter : interfaces) CompleteFromTree(sysfs_net + "/" + adapter.name, adapter);
  std::stable_sort(interfaces.begin(), interfaces.end(), [](const Adapter& a, const Adapter& b) {
    return a.has_device != b.has_device ? a.has_device : a.index < b.index;
  });
  return interfaces;
}

std::vector<Adapter> ListAdapters() {
  std::vector<Adapter> interfaces;
  if (!ListInterfaces(interfaces)) return {};
  return ArrangeAdapters(std::move(interfaces), "/sys/class/net");
}

LocalNetwork NetworkOfAddress(std::uint32_t address) {
  std::vector<Adapter> interfaces;
  if (!ListInterfaces(interfaces)) return {};
  const bool local = (address >> IN_CLASSA_NSHIFT) == IN_LOOPBACKNET;
  for (const Adapter& entry : interfaces) {
    const auto index = static_cast<std::uint32_t>(entry.index);
    if (local && entry.kind == AdapterKind::kLoopback) return {index, address | IN_CLASSA_HOST};
    for (const AdapterAddress& own : entry.addresses) {
      if (own.address == address) return {index, address | ~own.mask};
    }
  }
  return {};
}

}  // namespace qvx::platform
