// The whole Bluetooth path. BlueZ's library is loaded by its real name, so the client's tests run
// in a process of their own whose library path leads to a stub; TCP stands in for the kernel's
// RFCOMM.
#include <dlfcn.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include "net/net_fixture.h"
#include "platform/bluetooth.h"
#include "platform/socket.h"
#include "support/debug_lines.h"
#include "support/fault_plan.h"
#include "support/own_process.h"
#include "support/temp_folder.h"

namespace {

using namespace qvx::platform;
using namespace qvx::test;

std::uint16_t stand_in_port = 0;
BluetoothAddress connected_to{};
int used_channel = 0;

constexpr std::uint32_t kLoopback = 0x7F000001;

int Make() {
  return socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
}

int Bind(int descriptor, std::uint8_t channel) {
  used_channel = channel;
  return BindIpv4(static_cast<SocketValue>(descriptor), {kLoopback, 0}) ? 0 : -1;
}

int Connect(int descriptor, const BluetoothAddress& peer, std::uint8_t channel) {
  connected_to = peer;
  used_channel = channel;
  const auto outcome =
      StartConnectIpv4(static_cast<SocketValue>(descriptor), {kLoopback, stand_in_port});
  return outcome == ConnectOutcome::kConnected ? 0 : -1;
}

struct StandIn {
  StandIn() { SetRfcommCalls(&calls); }
  ~StandIn() { SetRfcommCalls(nullptr); }

  RfcommCalls calls = {&Make, &Bind, &Connect};
};

bool IsStubContent() {
  void* library = dlopen("libbluetooth.so.3", RTLD_NOW | RTLD_NOLOAD);
  if (library == nullptr) return false;
  const auto ask = reinterpret_cast<int (*)()>(dlsym(library, "stub_is_content"));
  const bool content = ask != nullptr && ask() == 1;
  dlclose(library);
  return content;
}

TEST(Bluetooth, ClientFindsDeviceAndServiceThroughTheLibrary) {
  EXPECT_EQ(RunWithLibraries(QVX_BLUETOOTH_STUB, "Bluetooth.DISABLED_ConnectsByName"), 0);
}

TEST(Bluetooth, WithoutAdapterOrLibraryNothingIsFound) {
  const char* find = "Bluetooth.DISABLED_FindsNothing";
  EXPECT_EQ(RunWithLibraries(QVX_BLUETOOTH_STUB, find, "QVX_STUB_NO_ADAPTER=1"), 0);
  const TempFolder folder;
  folder.Write("libbluetooth.so.3", "no library");
  EXPECT_EQ(RunWithLibraries(folder.Path(), find), 0);
}

TEST(Bluetooth, SocketThatTheMachineCannotMakeIsRefused) {
  DebugLines log;
  FaultPlan plan;
  plan.Fail(Operation::kSocket, 1, EAFNOSUPPORT);
  CBTHSocketClient client;
  EXPECT_EQ(client.Create("Serial Box", 0, 0, 1, nullptr, 0, "bth"), 0);
  EXPECT_EQ(log.Count(4, "tcp client socket create fail, errno=97\r\n"), 1);
}

TEST(Bluetooth, ServerServesClientsOfChannelOne) {
  Recorder recorder;
  CBTHSocketServer server;
  {
    const StandIn stand_in;
    ASSERT_EQ(server.Create(77, 0, 1, &recorder, 0, "bth"), 1);
  }
  EXPECT_EQ(used_channel, 1);
  const Peer peer(server.GetServerPort());
  peer.SendPacket("over the air", SOCKET_CODE_ALL_CLIENTS);
  EXPECT_EQ(peer.Receive(), "over the air");
  server.Close();
  EXPECT_EQ(recorder.closed.load(), 1);
}

TEST(Bluetooth, ServerTellsWhatFailed) {
  const DebugLines log;
  StandIn stand_in;
  CBTHSocketServer server;
  stand_in.calls.bind = [](int, std::uint8_t) {
    errno = EADDRINUSE;
    return -1;
  };
  EXPECT_EQ(server.Create(0, 0, 1, nullptr, 0, "bth"), 0);
  EXPECT_EQ(log.Count(4, "Server Bind BTH Failed, error=98\r\n"), 1);
  EXPECT_EQ(log.Count(4, "Create MsgServer Socket Failed, error=98!\r\n"), 1);
  stand_in.calls.make = [] {
    errno = EAFNOSUPPORT;
    return -1;
  };
  EXPECT_EQ(server.Create(0, 0, 1, nullptr, 0, "bth"), 0);
  EXPECT_EQ(log.Count(4, "Create MsgServer Socket Failed, error=97!\r\n"), 2);
}

TEST(Bluetooth, DISABLED_ConnectsByName) {
  const StandIn stand_in;
  const RawListener server;
  stand_in_port = server.Port();
  CBTHSocketClient client;
  ASSERT_EQ(client.Create("SERIAL box", 0, 0, 1, nullptr, 0, "bth"), 1);
  EXPECT_EQ(connected_to, (BluetoothAddress{1, 0x11, 0x22, 0x33, 0x44, 0x55}));
  EXPECT_EQ(used_channel, 7);
  const RawPeer peer = server.Accept();
  EXPECT_EQ(peer.Read(36).size(), 36u);
  EXPECT_EQ(client.SendData(1, "over the air", 12), 1);
  EXPECT_EQ(peer.Read(32), PacketBytes("over the air", 1));

  ASSERT_EQ(client.Create("Plain Box", 0, 1, 0, nullptr, 0, "bth"), 1);
  EXPECT_EQ(connected_to[0], 2);
  EXPECT_EQ(used_channel, 1);

  DebugLines log;
  EXPECT_EQ(client.Create("Nobody", 0, 0, 1, nullptr, 0, "bth"), 0);
  EXPECT_EQ(log.Count(4, "AsyncConnect Nobody failed, errno=19\r\n"), 1);
  FaultPlan plan;
  plan.Fail(Operation::kConnect, 1, EHOSTDOWN);
  EXPECT_EQ(client.Create("Plain Box", 0, 0, 1, nullptr, 0, "bth"), 0);
  EXPECT_EQ(log.Count(4, "AsyncConnect Plain Box failed, errno=112\r\n"), 1);
  EXPECT_TRUE(IsStubContent());
}

TEST(Bluetooth, DISABLED_FindsNothing) {
  BluetoothAddress address{};
  EXPECT_FALSE(FindBluetoothDevice("Serial Box", &address));
}

}  // namespace
