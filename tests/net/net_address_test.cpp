#include "qvx/net_address.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <memory>
#include <string>

#include "net/adapter_list.h"
#include "platform/adapters.h"
#include "support/temp_folder.h"

namespace qvx::test {
namespace {

using platform::Adapter;
using platform::AdapterKind;

TEST(NetAddress, ChecksDottedTexts) {
  for (const char* good :
       {"1.2.3.4", "255.255.255.255", "1..3.4", "192.168.001.010", "1...0", "0000000001.2.3.4"}) {
    EXPECT_EQ(IsValidSocketAddrV4(good), 1) << good;
  }
  for (const char* bad :
       {"", "0.1.2.3", ".1.2.3", "256.1.1.1", "1.2.3", "1.2.3.", "1.2.3.4.5", "1.2.3.4.", "a.b.c.d",
        "1.2.3.4 ", "-1.2.3.4", "1.2.3.99999999999999999999", "...", "localhost"}) {
    EXPECT_EQ(IsValidSocketAddrV4(bad), 0) << bad;
  }
  EXPECT_EQ(IsValidSocketAddrV4(nullptr), 0);
}

TEST(NetAddress, ConvertsTexts) {
  const unsigned char expected[6] = {0x00, 0x1a, 0x2B, 0xff, 0x10, 0x09};
  for (const char* text : {"00:1a:2B:ff:10:09", "001a2Bff1009", "001a2Bff1009aabb"}) {
    unsigned char mac[6] = {};
    MacAddrStringToBuffer(text, mac);
    EXPECT_EQ(std::memcmp(mac, expected, 6), 0) << text;
  }
  unsigned char rest[6] = {1, 2, 3, 4, 5, 6};
  MacAddrStringToBuffer("aa:bb", rest);
  EXPECT_EQ(std::memcmp(rest, "\xaa\xbb\3\4\5\6", 6), 0);

  std::uint32_t address = 0;
  IPAddrStringToUINT32("1.2.3.200", &address);
  EXPECT_EQ(std::memcmp(&address, "\1\2\3\xc8", 4), 0);
  IPAddrStringToUINT32("1.2.3", &address);
  EXPECT_EQ(address, 0u);
}

TEST(NetAddress, ResolvesToIpv4Only) {
  CBaseStringA text("before");
  EXPECT_EQ(ResolveHostname("::1", &text), 0);
  EXPECT_STREQ(text.GetString(), "before");
  EXPECT_EQ(ResolveHostname("127.0.0.1", &text), 1);
  EXPECT_STREQ(text.GetString(), "127.0.0.1");
  EXPECT_EQ(ResolveHostname("localhost", &text), 1);
  EXPECT_STREQ(text.GetString(), "127.0.0.1");
}

Adapter MakeAdapter(const std::string& name, int index, AdapterKind kind, std::uint32_t address) {
  Adapter adapter;
  adapter.name = name;
  adapter.index = index;
  adapter.kind = kind;
  adapter.mac = {0x02, 0x0a, 0xff, 0, 0, static_cast<std::uint8_t>(index)};
  adapter.mac_length = 6;
  if (address != 0) adapter.addresses.push_back({address, 0xFFFFFF00});
  return adapter;
}

using AdapterList = std::shared_ptr<const IP_ADAPTER_INFO>;

TEST(NetAddress, FirstAdapterIsOneWithADeviceBehindIt) {
  const TempFolder sysfs;
  for (const char* entry : {"eth0/device", "eth1/device", "wlan0/device", "wlan0/wireless"}) {
    std::filesystem::create_directories(sysfs.Path(entry));
  }
  std::vector<Adapter> found = {MakeAdapter("lo", 1, AdapterKind::kLoopback, 0x7F000001),
                                MakeAdapter("br0", 2, AdapterKind::kEthernet, 0x0A000001),
                                MakeAdapter("wlan0", 3, AdapterKind::kEthernet, 0x0A000002),
                                MakeAdapter("eth0", 4, AdapterKind::kEthernet, 0),
                                MakeAdapter("eth1", 5, AdapterKind::kEthernet, 0xC0A80001),
                                MakeAdapter("tun0", 6, AdapterKind::kTunnel, 0)};
  found[4].addresses.push_back({0xC0A80002, 0xFFFF0000});
  const std::vector<Adapter> arranged = platform::ArrangeAdapters(found, sysfs.Path());
  const AdapterList list(net::MakeAdapterBlock(arranged), &MyFreeAdaptersInfo);

  std::string order;
  for (const IP_ADAPTER_INFO* item = list.get(); item != nullptr; item = item->Next) {
    order += std::string(item->AdapterName) + "=" + std::to_string(item->Type) + " ";
  }
  EXPECT_EQ(order, "wlan0=71 eth0=6 eth1=6 br0=6 tun0=131 ");
  const IP_ADAPTER_INFO* first = net::FindAdapter(list.get(), net::kEthernetType, false);
  ASSERT_NE(first, nullptr);
  EXPECT_STREQ(first->AdapterName, "eth0");
  EXPECT_STREQ(first->IpAddressList.IpAddress.String, "0.0.0.0");
  EXPECT_EQ(std::memcmp(first->Address, "\x02\x0a\xff\0\0\x04", 6), 0);
  const IP_ADAPTER_INFO* wired = net::FindAdapter(list.get(), net::kEthernetType, true);
  EXPECT_STREQ(wired->IpAddressList.IpAddress.String, "192.168.0.1");
  EXPECT_STREQ(wired->IpAddressList.IpMask.String, "255.255.255.0");
  EXPECT_STREQ(wired->IpAddressList.Next->IpAddress.String, "192.168.0.2");
  EXPECT_EQ(wired->IpAddressList.Next->Next, nullptr);
  EXPECT_TRUE(net::HasAddressByName(list.get(), "WLAN0"));
  EXPECT_FALSE(net::HasAddressByName(list.get(), "eth0"));
  EXPECT_FALSE(net::HasAddressByName(list.get(), "eth"));
  EXPECT_EQ(net::FindAdapter(nullptr, net::kWirelessType, true), nullptr);
}

// What the functions say of this machine, whatever it has, is what its list says.
TEST(NetAddress, AnswersForThisMachine) {
  const AdapterList list(MyGetAdaptersInfo(), &MyFreeAdaptersInfo);
  const IP_ADAPTER_INFO* wired = net::FindAdapter(list.get(), net::kEthernetType, true);
  const IP_ADAPTER_INFO* radio = net::FindAdapter(list.get(), net::kWirelessType, true);
  CBaseStringA mac("none"), name("none"), radio_name("none");
  GetEthMacAddress(&mac, 1);
  GetAvailbalEthNetworkInterface(&name);
  GetAvailbalWlanNetworkInterface(&radio_name);
  EXPECT_STREQ(name.GetString(), wired == nullptr ? "none" : wired->AdapterName);
  EXPECT_STREQ(radio_name.GetString(), radio == nullptr ? "none" : radio->AdapterName);
  EXPECT_EQ(mac.GetLength(), wired == nullptr ? 4 : 12);
  if (wired != nullptr) {
    EXPECT_EQ(IsNetworkAvailable(wired->AdapterName), 1);
  }
  EXPECT_EQ(IsNetworkAvailable("no such adapter"), 0);
  GetEthMacAddress(nullptr, 1);
  GetAvailbalEthNetworkInterface(nullptr);
  EXPECT_EQ(IsNetworkAvailable(nullptr), 0);
}

}  // namespace
}  // namespace qvx::test
