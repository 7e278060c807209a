// The whole Bluetooth path of the client. BlueZ's library is loaded by its real name, so these
// run in a process of their own whose library path leads to a stub; a TCP connection stands in
// for the kernel's RFCOMM.
#include <arpa/inet.h>
#include <dlfcn.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <string>

#include "platform/bluetooth.h"
#include "qvx/socket_client.h"
#include "support/debug_lines.h"
#include "support/fault_plan.h"
#include "support/own_process.h"
#include "support/packet_bytes.h"
#include "support/raw_peer.h"
#include "support/temp_folder.h"

namespace {

using qvx::platform::BluetoothAddress;
using qvx::platform::Operation;
using namespace qvx::test;

std::uint16_t stand_in_port = 0;
BluetoothAddress connected_to{};
int connected_channel = 0;

int MakeStandIn() {
  return socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
}

int ConnectStandIn(int descriptor, const BluetoothAddress& peer, std::uint8_t channel) {
  connected_to = peer;
  connected_channel = channel;
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(stand_in_port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
}

constexpr qvx::platform::RfcommCalls kStandIn = {&MakeStandIn, nullptr, &ConnectStandIn};

class StandIn {
 public:
  StandIn() {
    stand_in_port = server.Port();
    qvx::platform::SetRfcommCalls(&kStandIn);
  }
  ~StandIn() { qvx::platform::SetRfcommCalls(nullptr); }

  RawListener server;
};

int AskStub(const char* question) {
  void* library = dlopen("libbluetooth.so.3", RTLD_NOW | RTLD_NOLOAD);
  if (library == nullptr) return -1;
  const auto ask = reinterpret_cast<int (*)()>(dlsym(library, question));
  const int answer = ask != nullptr ? ask() : -1;
  dlclose(library);
  return answer;
}

TEST(Bluetooth, ClientFindsDeviceAndServiceThroughTheLibrary) {
  EXPECT_EQ(RunWithLibraries(QVX_BLUETOOTH_STUB, "Bluetooth.DISABLED_ConnectsByName"), 0);
}

TEST(Bluetooth, WithoutAdapterNothingIsFound) {
  EXPECT_EQ(RunWithLibraries(QVX_BLUETOOTH_STUB, "Bluetooth.DISABLED_FindsNothing",
                             "QVX_STUB_NO_ADAPTER=1"),
            0);
}

TEST(Bluetooth, WithoutTheLibraryNothingIsFound) {
  const TempFolder folder;
  folder.Write("libbluetooth.so.3", "no library");
  EXPECT_EQ(RunWithLibraries(folder.Path(), "Bluetooth.DISABLED_FindsNothing"), 0);
}

TEST(Bluetooth, SocketThatTheMachineCannotMakeIsRefused) {
  DebugLines log;
  FaultPlan plan;
  plan.Fail(Operation::kSocket, 1, EAFNOSUPPORT);
  CBTHSocketClient client;
  EXPECT_EQ(client.Create("Serial Box", 0, 0, 1, nullptr, 0, "bth"), 0);
  EXPECT_EQ(log.Count(4, "tcp client socket create fail, errno=97\r\n"), 1);
}

TEST(Bluetooth, DISABLED_ConnectsByName) {
  StandIn stand_in;
  CBTHSocketClient client;
  ASSERT_EQ(client.Create("SERIAL box", 0, 0, 1, nullptr, 0, "bth"), 1);
  EXPECT_EQ(connected_to, (BluetoothAddress{1, 0x11, 0x22, 0x33, 0x44, 0x55}));
  EXPECT_EQ(connected_channel, 7);
  const RawPeer peer = stand_in.server.Accept();
  EXPECT_EQ(peer.Read(36).size(), 36u);
  EXPECT_EQ(client.SendData(1, "over the air", 12), 1);
  EXPECT_EQ(peer.Read(32), PacketBytes("over the air", 1));

  ASSERT_EQ(client.Create("Plain Box", 0, 1, 0, nullptr, 0, "bth"), 1);
  EXPECT_EQ(connected_to[0], 2);
  EXPECT_EQ(connected_channel, 1);

  DebugLines log;
  EXPECT_EQ(client.Create("Nobody", 0, 0, 1, nullptr, 0, "bth"), 0);
  EXPECT_EQ(log.Count(4, "AsyncConnect Nobody failed, errno=19\r\n"), 1);
  FaultPlan plan;
  plan.Fail(Operation::kConnect, 1, EHOSTDOWN);
  EXPECT_EQ(client.Create("Plain Box", 0, 0, 1, nullptr, 0, "bth"), 0);
  EXPECT_EQ(log.Count(4, "AsyncConnect Plain Box failed, errno=112\r\n"), 1);
  EXPECT_EQ(AskStub("stub_outstanding"), 0);
  EXPECT_EQ(AskStub("stub_faults"), 0);
}

TEST(Bluetooth, DISABLED_FindsNothing) {
  BluetoothAddress address{};
  EXPECT_FALSE(qvx::platform::FindBluetoothDevice("Serial Box", &address));
}

}  // namespace
