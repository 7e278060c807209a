// The network interfaces of this machine. Keeps no state; any thread may call.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace qvx::platform {

enum class AdapterKind { kEthernet, kWireless, kPointToPoint, kTunnel, kLoopback, kOther };

struct AdapterAddress {
  std::uint32_t address = 0;  // host order
  std::uint32_t mask = 0;
};

struct Adapter {
  std::string name;
  int index = 0;
  AdapterKind kind = AdapterKind::kOther;
  bool has_device = false;  // false for bridges, tunnels and the like
  std::array<std::uint8_t, 8> mac{};
  std::size_t mac_length = 0;
  std::vector<AdapterAddress> addresses;  // IPv4 only
};

// All interfaces, the loopback one too, by index; wireless ones still count as Ethernet
// and none has a device. False if the system gives no list.
bool ListInterfaces(std::vector<Adapter>& interfaces);

// The adapters among the interfaces: without loopback, kind and device completed from the
// tree at sysfs_net ("/sys/class/net"; one that is missing completes nothing), those with
// a device first, then by index.
std::vector<Adapter> ArrangeAdapters(std::vector<Adapter> interfaces, const std::string& sysfs_net);

// ArrangeAdapters of this machine's own; empty on failure.
std::vector<Adapter> ListAdapters();

// The network that an address of this machine stands in.
struct LocalNetwork {
  std::uint32_t interface_index = 0;  // 0 if no interface has the address
  std::uint32_t broadcast = 0;        // host order
};

// address in host order; one of 127.0.0.0/8 belongs to the loopback interface.
LocalNetwork NetworkOfAddress(std::uint32_t address);

}  // namespace qvx::platform
