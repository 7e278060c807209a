#include "qvx/socket_primitives.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <memory>
#include <new>
#include <thread>

#include "net/net_fixture.h"
#include "net/packet_reader.h"
#include "qvx/base_buffer.h"
#include "support/debug_lines.h"
#include "support/failing_new.h"
#include "support/fault_plan.h"
#include "support/guarded_buffer.h"
#include "support/socket_pair.h"

namespace {

using qvx::net::ClearPacket;
using qvx::platform::CloseSocket;
using qvx::platform::MakeTcpSocket;
using qvx::platform::Operation;
using qvx::platform::PendingBytes;
using qvx::platform::SocketDescriptor;
using namespace qvx::test;

using Block = std::unique_ptr<unsigned char[]>;

class Stream : public testing::Test {
 protected:
  ~Stream() override {
    SetSocketMatchCode(0);
    ClearPacket(record);
  }

  int Receive(int check = 1) { return RecvTCPPacket(pair.ours, check, &record); }
  std::string Payload() const { return Text(record.pPayload, record.nPayloadBytes); }
  std::string Number() const { return std::to_string(SocketDescriptor(pair.ours)); }
  bool WaitForEvent() { return qvx::platform::PollSocket(pair.ours, 0x0300, kLongWait) > 0; }
  // How often this line came.
  int Logged(const std::string& line) const { return log.Count(2, line + "\r\n"); }

  SocketPair pair;
  tagTCPPACKETRECV record{};
  DebugLines log;
  FaultPlan plan;
};

TEST_F(Stream, PacketGoesOutByteForByte) {
  SetSocketMatchCode(0x11223344);
  EXPECT_EQ(SendTCPPacket(pair.ours, SOCKET_CODE_TO_SERVER, "hi", 2), 1);
  EXPECT_EQ(pair.peer.Read(22), std::string("\xBB\xBB\xCD\xAB\x44\x33\x22\x11"
                                            "\xFD\xFF\xFF\xFF\xFF\xFF\xFF\xFF\2\0\0\0hi",
                                            22));
  EXPECT_EQ(SendTCPPacket(pair.ours, 1, nullptr, 5), 0);
  EXPECT_EQ(SendTCPPacket(pair.ours, 1, "x", 0), 0);
  EXPECT_EQ(SendTCPPacket(pair.ours, 1, "x", -1), 0);
  qvx::platform::ShutdownSocket(pair.ours);
  EXPECT_EQ(pair.peer.Read(1), "");
}

TEST_F(Stream, PacketComesTogetherByteByByte) {
  const std::string bytes = PacketBytes("abc", 7, 5);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    EXPECT_EQ(record.bComplete, 0);
    EXPECT_EQ(Receive(), 1);
    pair.Bring(bytes.substr(i, 1));
    ASSERT_EQ(Receive(), 1);
    EXPECT_EQ(record.nHeaderBytes, std::min<std::size_t>(i + 1, 20));
  }
  EXPECT_EQ(record.bComplete, 1);
  EXPECT_EQ(record.nCode, 7u);
  EXPECT_EQ(Payload(), "abc");
}

TEST_F(Stream, NoByteOfTheNextPacketIsTaken) {
  const std::string second = PacketBytes(Pattern(300));
  pair.Bring(PacketBytes(Pattern(100)) + second);
  ASSERT_EQ(Receive(), 1);
  EXPECT_EQ(record.bComplete, 1);
  EXPECT_EQ(PendingBytes(pair.ours), second.size());
  ClearPacket(record);
  ASSERT_EQ(Receive(), 1);
  EXPECT_EQ(Payload(), Pattern(300));
}

TEST_F(Stream, StrangersAreRefused) {
  struct Row {
    std::uint32_t tag, own, theirs;
    int check, result;
    const char* log;
  };
  const Row rows[] = {
      {0xABCDBBBA, 0, 0, 1, 0,
       "RecvOnePackage: tag not match, expect:0xabcdbbbb, actual is 0xabcdbbba"},
      {0xABCDBBBB, 9, 8, 1, 0, "RecvOnePackage: code not match, expect:9, actual is 8"},
      {0xABCDBBBB, 9, 8, 0, 1, nullptr},
      {0xABCDBBBB, 0, 8, 1, 1, nullptr},
      {0xABCDBBBB, 9, 9, 1, 1, nullptr}};
  for (const Row& row : rows) {
    SetSocketMatchCode(row.own);
    pair.Bring(HeaderBytes(row.tag, row.theirs, 1, 1));
    EXPECT_EQ(Receive(row.check), row.result);
    EXPECT_TRUE(row.log == nullptr || Logged(row.log) == 1) << row.log;
    ClearPacket(record);
  }
}

TEST_F(Stream, EmptyPacketNeverCompletes) {
  pair.Bring(HeaderBytes(0xABCDBBBB, 0, 1, 0));
  EXPECT_EQ(Receive(), 1);
  EXPECT_EQ(Receive(), 1);
  EXPECT_EQ(record.bComplete, 0);
  pair.Bring("x");
  EXPECT_EQ(Receive(), 0);
  EXPECT_EQ(Logged("RecvTCPPacket: nRecvBytes = 0, error=0"), 1);
}

TEST_F(Stream, ClaimedLengthCostsNothing) {
  pair.Bring(HeaderBytes(0xABCDBBBB, 0, 1, 0xFFFFFFFF) + "0123456789");
  EXPECT_EQ(Receive(), 1);
  EXPECT_EQ(Payload(), "0123456789");
  EXPECT_LE(record.nPayloadRoom, 65536u);
}

TEST_F(Stream, LargePacketGrowsAsItComes) {
  const std::string payload = Pattern(3'000'001);
  std::thread sender([&] { pair.peer.Send(PacketBytes(payload) + "next"); });
  while (record.bComplete == 0) {
    ASSERT_TRUE(WaitForEvent());
    ASSERT_EQ(Receive(), 1);
    ASSERT_LE(record.nPayloadRoom, 1'048'576 + 2 * record.nPayloadBytes);
  }
  sender.join();
  EXPECT_EQ(Payload(), payload);
}

TEST_F(Stream, EndsWithTheConnection) {
  pair.Bring(PacketBytes("abc").substr(0, 21));
  EXPECT_EQ(IsSocketClosed(pair.ours), 0);
  pair.peer.Close();
  EXPECT_EQ(Receive(), 1);
  ASSERT_TRUE(WaitForEvent());
  EXPECT_EQ(IsSocketClosed(pair.ours), 1);
  EXPECT_EQ(Receive(), 0);
  EXPECT_EQ(Logged("RecvTCPPacket socket closed, nSocketFD = " + Number()), 1);
  EXPECT_EQ(RecvTCPPacket(pair.ours, 1, nullptr), 0);
  for (const std::uint64_t none : {QVX_INVALID_SOCKET, std::uint64_t{1'000'000}}) {
    EXPECT_EQ(RecvTCPPacket(none, 1, &record), 1);
    EXPECT_EQ(IsSocketClosed(none), 0);
  }
}

TEST_F(Stream, FailedReceiveIsLogged) {
  plan.Fail(Operation::kReceive, 1, EIO);
  EXPECT_EQ(Receive(), 0);
  pair.Bring(PacketBytes("abc"));
  plan.Fail(Operation::kReceive, 2, ENOMEM);
  EXPECT_EQ(Receive(), 0);
  EXPECT_EQ(Logged("RecvTCPPacket: nRecvBytes = -1, error=5"), 1);
  EXPECT_EQ(Logged("RecvTCPPacket: nRecvBytes = -1, error=12"), 1);
}

TEST_F(Stream, FailedAllocationLeavesTheRecordGood) {
  pair.Bring(PacketBytes("abc"));
  {
    FailingAllocations no_memory(1);
    EXPECT_THROW(Receive(), std::bad_alloc);
  }
  EXPECT_EQ(Receive(), 1);
  EXPECT_EQ(record.bComplete, 1);
  EXPECT_EQ(Payload(), "abc");
}

TEST_F(Stream, PacketThatHasBegunIsCompleted) {
  const std::string payload = Pattern(6'000'000);
  std::string received;
  std::thread reader([&] { received = pair.peer.Read(payload.size() + 20); });
  EXPECT_EQ(SendTCPPacket(pair.ours, 1, payload.data(), static_cast<int>(payload.size())), 1);
  reader.join();
  EXPECT_EQ(received, PacketBytes(payload, 1));
}

TEST_F(Stream, FullSocketFailsAtOnceBeforeTheFirstByte) {
  plan.Fail(Operation::kSend, 1, EAGAIN);
  EXPECT_EQ(SendTCPPacket(pair.ours, 1, "abc", 3), 0);
  EXPECT_EQ(Logged("SendTCPPacket failed, error(11) ----"), 1);
  EXPECT_EQ(plan.Calls(Operation::kPoll), 0);

  plan.Fail(Operation::kSend, 1, EAGAIN);
  EXPECT_EQ(SendTCPRaw(pair.ours, "raw", 3), 1);
  qvx::platform::ShutdownSocket(pair.ours);
  EXPECT_EQ(SendTCPRaw(pair.ours, "raw", 3), 0);
  EXPECT_EQ(Logged(std::string("send failed, error(32):") + strerror(EPIPE) + " ----"), 1);
  EXPECT_EQ(SendTCPRaw(pair.ours, "raw", 0), 0);
  EXPECT_EQ(pair.peer.Read(100), "raw");
}

TEST_F(Stream, RawReceiveTakesAllThatWaits) {
  unsigned char* data = nullptr;
  std::uint32_t size = 1;
  const auto receive = [&] { return RecvTCPRaw(pair.ours, &data, &size); };
  EXPECT_EQ(receive(), 1);
  EXPECT_TRUE(data == nullptr && size == 0);
  pair.Bring("some bytes");
  EXPECT_EQ(receive(), 1);
  const Block first(data);
  EXPECT_EQ(Text(data, size), "some bytes");

  pair.Bring("more");
  plan.Shorten(Operation::kReceive, 1, 3);
  EXPECT_EQ(receive(), 0);
  EXPECT_TRUE(data == nullptr && size == 0);
  EXPECT_EQ(Logged("RecvTCPRaw recv invalid, socket=" + Number() + ", expect:4, actual:3, error=0"),
            1);
  EXPECT_EQ(receive(), 1);
  const Block second(data);
  pair.peer.Close();
  ASSERT_TRUE(WaitForEvent());
  EXPECT_EQ(receive(), 0);
  EXPECT_EQ(Logged("RecvTCPRaw socket closed, nSocketFD = " + Number()), 1);
  EXPECT_EQ(RecvTCPRaw(pair.ours, nullptr, &size), 0);
  EXPECT_EQ(RecvTCPRaw(pair.ours, &data, nullptr), 0);
}

class Connecting : public testing::Test {
 protected:
  ~Connecting() override { CloseSocket(socket); }
  // By a new socket.
  int To(const char* host, std::uint16_t port, int* cancel = nullptr,
         std::uint32_t milliseconds = 20000) {
    CloseSocket(socket);
    socket = MakeTcpSocket();
    return AsyncConnect(socket, host, port, milliseconds, cancel);
  }
  bool IsBlocking() const { return (fcntl(SocketDescriptor(socket), F_GETFL) & O_NONBLOCK) == 0; }

  std::uint64_t socket = QVX_INVALID_SOCKET;
};

TEST_F(Connecting, ByAddressAndByName) {
  const RawListener listener;
  ASSERT_EQ(To("127.0.00.1", listener.Port()), 1);
  EXPECT_TRUE(IsBlocking());
  listener.Accept();
  char text[16] = "";
  EXPECT_EQ(GetPeerAddrPort(socket, text, sizeof(text)), listener.Port());
  EXPECT_STREQ(text, "127.0.0.1");
  char small[9] = "before";
  EXPECT_EQ(GetPeerAddrPort(socket, small, sizeof(small)), listener.Port());
  EXPECT_STREQ(small, "before");

  EXPECT_EQ(To("localhost", listener.Port()), 1);
}

TEST_F(Connecting, FailuresAreToldAtOnce) {
  const std::uint16_t port = RawListener().Port();  // of a listener that is gone
  EXPECT_EQ(To("127.0.0.1", port), 0);
  EXPECT_EQ(errno, ECONNREFUSED);
  EXPECT_TRUE(IsBlocking());
  EXPECT_EQ(To("no.such.name.invalid", port), 0);
  EXPECT_EQ(To(nullptr, port), 0);
  DebugLines log;
  char text[16];
  EXPECT_EQ(GetPeerAddrPort(socket, text, sizeof(text)), 0);
  EXPECT_EQ(log.Count(4, "getpeername of socket " + std::to_string(SocketDescriptor(socket)) +
                             " error:107\r\n"),
            1);
}

TEST_F(Connecting, EndsWithItsTimeOrByTheFlag) {
  const RawListener deaf = RawListener::Deaf();
  FaultPlan plan;
  DebugLines log;
  EXPECT_EQ(To("127.0.0.1", deaf.Port(), nullptr, 199), 0);
  EXPECT_EQ(errno, ETIMEDOUT);
  EXPECT_EQ(plan.Calls(Operation::kPoll), 1);

  int cancel = 1;
  EXPECT_EQ(To("127.0.0.1", deaf.Port(), &cancel), 0);
  EXPECT_EQ(plan.Calls(Operation::kPoll), 1);
  EXPECT_EQ(log.Count(3, "AsyncConnect: cancel connect\r\n"), 1);
}

TEST(LengthData, IsWrittenAndRead) {
  CBaseBuffer buffer;
  buffer.SetBuffer("old content", 11);
  CreateLengthData(&buffer, "twelve bytes", 12);
  EXPECT_EQ(Text(buffer.GetBuffer(), buffer.GetAvailSize()), std::string("12\0twelve bytes", 15));
  const struct {
    std::string bytes;
    std::uint32_t digits, size;
  } rows[] = {{std::string("12\0", 3), 2, 12},
              {"12", 0, 0},
              {"", 0, 0},
              {std::string("\0", 1), 0, 0},
              {std::string("4000000000\0x", 12), 10, 4'000'000'000}};
  for (const auto& row : rows) {
    const GuardedBuffer memory(row.bytes.size() + 1);
    std::uint8_t* exact = memory.AtEnd(row.bytes.size());
    std::copy(row.bytes.begin(), row.bytes.end(), exact);
    std::uint32_t digits = 9, size = 9;
    ParseLengthData(exact, static_cast<int>(row.bytes.size()), &digits, &size);
    EXPECT_EQ(digits, row.digits);
    EXPECT_EQ(size, row.size);
  }
}

}  // namespace
