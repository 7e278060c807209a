// Packets over links that lose nothing but time: a slow, shallow cable between two hosts, and
// a line that is cut.
#include <gtest/gtest.h>

#include <string>

#include "net/net_fixture.h"
#include "support/network_lab.h"
#include "support/slow_relay.h"

namespace qvx::test {
namespace {

// Sends payload to the server, and the server sends it back with a packet around it.
void ExchangeAcross(CSocketServer& server, Recorder& recorder, CTCPSocketClient& client,
                    ClientRecorder& heard, const std::string& payload) {
  const auto size = static_cast<int>(payload.size());
  ASSERT_EQ(client.SendData(SOCKET_CODE_TO_SERVER, payload.data(), size), 1);
  ASSERT_EQ(client.SendData(SOCKET_CODE_TO_SERVER, "behind", 6), 1);
  ASSERT_TRUE(recorder.WaitForData(2));
  EXPECT_TRUE(recorder.data == (Events{payload, "behind"}));
  server.BroadcastData(QVX_INVALID_SOCKET, "before", 6);
  server.BroadcastData(QVX_INVALID_SOCKET, payload.data(), size);
  server.BroadcastData(QVX_INVALID_SOCKET, "behind", 6);
  ASSERT_TRUE(heard.WaitForEvents(4));
  EXPECT_TRUE(heard.All() == (Events{"create", "before", payload, "behind"}));
  EXPECT_EQ(recorder.closed.load(), 0);
}

void ExchangeOverSlowCable(std::size_t size) {
  NetworkLab lab;
  QVX_NEEDS_LAB(lab);
  ASSERT_TRUE(lab.SlowDown()) << lab.WhyNot();
  Recorder recorder;
  ClientRecorder heard;
  CTCPSocketServer server;
  CTCPSocketClient client;
  lab.In(0, [&] { ASSERT_EQ(server.Create(0, 0, 1, &recorder, 0, "lab"), 1); });
  server.SetSendQueueLimit(size + (1 << 20));
  lab.In(1, [&] {
    ASSERT_EQ(
        client.Create(NetworkLab::Address(0), server.GetServerPort(), 0, 1, &heard, 42, "lab"), 1);
  });
  ExchangeAcross(server, recorder, client, heard, Pattern(size));
}

TEST(RealLink, PacketsCrossASlowShallowCable) {
  ExchangeOverSlowCable(3 << 20);
}

TEST(LargeRealLink, APacketOf64MiBCrossesASlowShallowCable) {
  ExchangeOverSlowCable(64 << 20);
}

TEST(RealLink, ALineThatIsCutEndsBothSides) {
  const std::string payload = Pattern(80000);
  for (const std::uint64_t cut : {0, 1, 19, 20, 36, 37, 56, 57, 70000}) {
    Recorder recorder;
    ClientRecorder heard;
    LocalServer server;
    ASSERT_TRUE(server.Start(&recorder));
    RelayOptions options;
    options.cut_to_server = cut;
    const SlowRelay relay(server.GetServerPort(), options);
    CTCPSocketClient client;
    ASSERT_EQ(client.Create("127.0.0.1", relay.Port(), 0, 1, &heard, 42, "line"), 1);
    client.SendData(SOCKET_CODE_TO_SERVER, payload.data(), 80000);
    EXPECT_TRUE(recorder.WaitForClosed(1)) << cut;
    EXPECT_TRUE(heard.WaitForEvents(2)) << cut;
    EXPECT_EQ(heard.All(), (Events{"create", "disconnect"}));
    EXPECT_TRUE(recorder.data.empty());
  }
}

}  // namespace
}  // namespace qvx::test
