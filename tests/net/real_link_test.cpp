// Packets over links that lose nothing but time: a slow, shallow cable between two hosts, and
// a long line that splits and cuts.
#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <string>

#include "net/server_peer.h"
#include "qvx/socket_client.h"
#include "support/network_lab.h"
#include "support/slow_relay.h"

namespace qvx::test {
namespace {

class ClientRecorder : public IClientSocketListener {
 public:
  int OnClientReceiveData(std::uint64_t, std::uint64_t, const unsigned char* data,
                          int size) override {
    const std::lock_guard<std::mutex> guard(mutex);
    packets.emplace_back(reinterpret_cast<const char*>(data), static_cast<std::size_t>(size));
    changed.notify_all();
    return 1;
  }
  void OnClientDisconnectFromServer(std::uint64_t, std::uint64_t) override {
    const std::lock_guard<std::mutex> guard(mutex);
    ++disconnects;
    changed.notify_all();
  }
  bool WaitUntil(const std::function<bool()>& predicate) {
    std::unique_lock<std::mutex> guard(mutex);
    return changed.wait_for(guard, std::chrono::seconds(240), predicate);
  }

  std::mutex mutex;
  std::condition_variable changed;
  std::vector<std::string> packets;
  int disconnects = 0;
};

// Sends payload to the server, and the server sends it back with a packet around it.
void ExchangeAcross(CSocketServer& server, Recorder& recorder, CTCPSocketClient& client,
                    ClientRecorder& heard, const std::string& payload) {
  const auto size = static_cast<int>(payload.size());
  ASSERT_EQ(client.SendData(SOCKET_CODE_TO_SERVER, payload.data(), size), 1);
  ASSERT_EQ(client.SendData(SOCKET_CODE_TO_SERVER, "behind", 6), 1);
  ASSERT_TRUE(recorder.WaitForData(2));
  EXPECT_TRUE(recorder.data[0] == payload);
  EXPECT_EQ(recorder.data[1], "behind");
  server.BroadcastData(QVX_INVALID_SOCKET, "before", 6);
  server.BroadcastData(QVX_INVALID_SOCKET, payload.data(), size);
  server.BroadcastData(QVX_INVALID_SOCKET, "behind", 6);
  ASSERT_TRUE(heard.WaitUntil([&] { return heard.packets.size() == 3; }));
  EXPECT_TRUE(heard.packets[1] == payload);
  EXPECT_EQ(heard.packets[2], "behind");
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
    ASSERT_EQ(client.Create(NetworkLab::Address(0), server.GetServerPort(), 0, 1, &heard, 0, "lab"),
              1);
  });
  ExchangeAcross(server, recorder, client, heard, Pattern(size));
}

TEST(RealLink, PacketsCrossASlowShallowCable) {
  ExchangeOverSlowCable(3 << 20);
}

TEST(LargeRealLink, APacketOf64MiBCrossesASlowShallowCable) {
  ExchangeOverSlowCable(64 << 20);
}

TEST(RealLink, PacketsCrossALongLineThatSplitsThem) {
  Recorder recorder;
  ClientRecorder heard;
  LocalServer server;
  ASSERT_TRUE(server.Start(&recorder));
  RelayOptions options;
  options.delay = std::chrono::milliseconds(20);
  options.piece = 701;
  const SlowRelay relay(server.GetServerPort(), options);
  CTCPSocketClient client;
  ASSERT_EQ(client.Create("127.0.0.1", relay.Port(), 0, 1, &heard, 0, "line"), 1);
  ExchangeAcross(server, recorder, client, heard, Pattern(1 << 20));
}

TEST(RealLink, ALineThatIsCutEndsBothSides) {
  for (const std::uint64_t cut : {0, 1, 19, 20, 36, 37, 56, 57, 70000}) {
    Recorder recorder;
    ClientRecorder heard;
    LocalServer server;
    ASSERT_TRUE(server.Start(&recorder));
    RelayOptions options;
    options.cut_to_server = cut;
    const SlowRelay relay(server.GetServerPort(), options);
    CTCPSocketClient client;
    ASSERT_EQ(client.Create("127.0.0.1", relay.Port(), 0, 1, &heard, 0, "line"), 1);
    const std::string payload = Pattern(80000);
    client.SendData(SOCKET_CODE_TO_SERVER, payload.data(), static_cast<int>(payload.size()));
    EXPECT_TRUE(recorder.WaitForClosed(1)) << cut;
    EXPECT_TRUE(heard.WaitUntil([&] { return heard.disconnects == 1; })) << cut;
    EXPECT_TRUE(recorder.data.empty());
  }
}

}  // namespace
}  // namespace qvx::test
