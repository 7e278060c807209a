#include "platform/socket.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/fault_plan.h"
#include "support/packet_bytes.h"
#include "support/raw_peer.h"
#include "support/socket_pair.h"
#include "support/temp_folder.h"

namespace qvx::platform {
namespace {

using test::FaultPlan;
using test::RawPeer;

using Pair = test::SocketPair;
constexpr int kLong = test::kLongWait;

std::string ReceiveText(SocketValue socket, std::size_t size) {
  std::string text(size, '\0');
  std::size_t got = 0;
  while (got < size && (PollSocket(socket, kPollRead, kLong) & kPollRead) != 0) {
    const IoResult result = Receive(socket, text.data() + got, size - got);
    if (result.bytes == 0) break;
    got += result.bytes;
  }
  text.resize(got);
  return text;
}

bool IsOpen(int descriptor) {
  return fcntl(descriptor, F_GETFD) >= 0;
}

int Option(SocketValue socket, int level, int name) {
  int value = -1;
  socklen_t size = sizeof(value);
  getsockopt(SocketDescriptor(socket), level, name, &value, &size);
  return value;
}

TEST(SocketValue, StaleOneNeverReachesTheNextSocketOfThatDescriptor) {
  auto first = std::make_unique<Pair>();
  const SocketValue stale = first->ours;
  EXPECT_NE(stale >> 32, 0u);
  EXPECT_LT(stale >> 32, 0x80000000u);
  CloseSocket(stale);
  const SocketValue next = MakeTcpSocket();
  ASSERT_EQ(SocketDescriptor(next), SocketDescriptor(stale));
  EXPECT_NE(next, stale);

  char byte = 'x';
  const ConstBytes part{&byte, 1};
  EXPECT_EQ(SendParts(stale, &part, 1).error, EBADF);
  EXPECT_EQ(Receive(stale, &byte, 1).error, EBADF);
  EXPECT_EQ(PollSocket(stale, kPollRead, kLong), kPollInvalid);
  EXPECT_FALSE(IsSocketAlive(stale));
  CloseSocket(stale);
  ShutdownSocket(stale);
  EXPECT_TRUE(IsOpen(SocketDescriptor(next)));
  CloseSocket(next);
}

TEST(SocketValue, DescriptorClosesWhenItsLastUserLetsGo) {
  const SocketValue socket = MakeTcpSocket();
  const int descriptor = SocketDescriptor(socket);
  std::optional<SocketUse> one(std::in_place, socket);
  std::optional<SocketUse> two(std::in_place, socket);
  CloseSocket(socket);
  EXPECT_EQ(SocketUse(socket).Descriptor(), -1);
  one.reset();
  EXPECT_TRUE(IsOpen(descriptor));
  two.reset();
  EXPECT_FALSE(IsOpen(descriptor));
}

TEST(SocketValue, PlainDescriptorsOfHostsAreTaken) {
  int plain[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, plain), 0);
  const auto left = static_cast<SocketValue>(plain[0]);
  const SocketValue right = AdoptSocket(static_cast<SocketValue>(plain[1]));
  EXPECT_EQ(AdoptSocket(right), right);
  const ConstBytes parts[] = {{"ab", 2}, {"", 0}, {"cd", 2}};
  EXPECT_EQ(SendParts(left, parts, 3).bytes, 4u);
  EXPECT_EQ(ReceiveText(right, 4), "abcd");
  EXPECT_EQ(AdoptSocket(kNoSocket), kNoSocket);
  EXPECT_EQ(PollSocket(kNoSocket, kPollRead, kLong), kPollInvalid);
  CloseSocket(left);
  CloseSocket(right);
  EXPECT_FALSE(IsOpen(plain[0]) || IsOpen(plain[1]));
}

TEST(SocketPoll, CloseByThePeerIsToldWhenNothingIsLeftToReadAndAResetAtOnce) {
  Pair pair;
  EXPECT_EQ(PollSocket(pair.ours, kPollRead, 0), 0);
  EXPECT_EQ(PollSocket(pair.ours, kPollWrite, 0), kPollWrite);
  pair.peer.Send("last words");
  pair.peer.Close();
  EXPECT_EQ(PollSocket(pair.ours, kPollRead, kLong), kPollRead);
  EXPECT_EQ(ReceiveText(pair.ours, 10), "last words");
  EXPECT_EQ(PollSocket(pair.ours, kPollRead, kLong), kPollHangUp);
  char byte;
  const IoResult end = Receive(pair.ours, &byte, 1);
  EXPECT_EQ(end.bytes, 0u);
  EXPECT_EQ(end.error, 0);

  Pair reset;
  reset.peer.Reset();
  EXPECT_EQ(PollSocket(reset.ours, kPollRead, kLong) & (kPollError | kPollRead), kPollError);
}

TEST(SocketPoll, SocketThatWeShutDownWakesItsPollAndIsNeverReadAgain) {
  Pair pair;
  std::thread other([&] { ShutdownSocket(pair.ours); });
  EXPECT_EQ(PollSocket(pair.ours, kPollRead, kNoTimeLimit), kPollHangUp);
  other.join();
  char byte;
  EXPECT_EQ(Receive(pair.ours, &byte, 1).error, ESHUTDOWN);
  EXPECT_TRUE(pair.peer.SeesEnd());

  Pair with_bytes;
  with_bytes.Bring("too late");
  ShutdownSocket(with_bytes.ours);
  EXPECT_EQ(PollSocket(with_bytes.ours, kPollRead, kLong), kPollHangUp);
  EXPECT_EQ(PendingBytes(with_bytes.ours), 0u);
  EXPECT_EQ(Receive(with_bytes.ours, &byte, 1).error, ESHUTDOWN);
}

TEST(SocketPoll, ManySocketsAWakeSignalAndInterruptions) {
  std::vector<std::unique_ptr<Pair>> pairs;
  std::vector<PollItem> items;
  for (int i = 0; i < 20; ++i) {
    pairs.push_back(std::make_unique<Pair>());
    items.push_back({pairs.back()->ours});
  }
  FaultPlan plan;
  plan.Fail(Operation::kPoll, 1, EINTR, 3);
  WakeSignal wake;
  ASSERT_TRUE(wake.Valid());
  wake.Give();
  wake.Give();
  EXPECT_EQ(PollSockets(items.data(), items.size(), kLong, &wake), 0);
  EXPECT_EQ(plan.Calls(Operation::kPoll), 4);
  EXPECT_EQ(PollSockets(items.data(), items.size(), 0, &wake), 0);

  pairs[3]->peer.Send("x");
  pairs[17]->peer.Close();
  ASSERT_EQ(PollSocket(items[3].socket, kPollRead, kLong), kPollRead);
  ASSERT_EQ(PollSocket(items[17].socket, kPollRead, kLong), kPollHangUp);
  EXPECT_EQ(PollSockets(items.data(), items.size(), kLong, &wake), 2);
  EXPECT_EQ(items[3].happened, kPollRead);
  EXPECT_EQ(items[17].happened, kPollHangUp);

  plan.Fail(Operation::kPoll, 1, ENOMEM);
  EXPECT_EQ(PollSockets(items.data(), items.size(), kLong, &wake), -1);
  EXPECT_EQ(LastSocketError(), ENOMEM);
}

TEST(SocketSend, GathersThroughShortAndInterruptedCalls) {
  Pair pair;
  FaultPlan plan;
  plan.Shorten(Operation::kSend, 1, 3, 1000);
  const std::string first = "0123456789";
  const std::string second(100, 's');
  const ConstBytes parts[] = {
      {"", 0}, {first.data(), first.size()}, {"", 0}, {second.data(), second.size()}, {"", 0}};
  EXPECT_TRUE(SendWhole(pair.ours, parts, 5, FullSocket::kFail));
  plan.Fail(Operation::kSend, 1, EINTR, 5);
  EXPECT_TRUE(SendWhole(pair.ours, parts, 5, FullSocket::kFail));
  EXPECT_EQ(pair.peer.Read(220), first + second + first + second);

  plan.Fail(Operation::kReceive, 1, EINTR, 2);
  pair.peer.Send("hello");
  EXPECT_EQ(ReceiveText(pair.ours, 5), "hello");
}

TEST(SocketSend, ClosedPeerRaisesNoSignal) {
  signal(SIGPIPE, SIG_DFL);
  test::TempFolder folder;
  const int file = open(folder.Write("f", std::string(1000, 'f')).c_str(), O_RDONLY | O_CLOEXEC);
  Pair pair;
  ShutdownSocket(pair.ours);
  const ConstBytes part{"x", 1};
  EXPECT_EQ(SendParts(pair.ours, &part, 1).error, EPIPE);
  EXPECT_EQ(SendFileRange(pair.ours, file, 0, 1000).error, EPIPE);
  close(file);

  // A connection that ends in the middle of a range, where sendfile counts what went before.
  const int long_file = open(folder.Path("long").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  ASSERT_EQ(ftruncate(long_file, 64 << 20), 0);
  for (int i = 0; i < 20; ++i) {
    Pair short_lived;
    std::thread reader([&] {
      short_lived.peer.Read(4'000'000);
      ShutdownSocket(short_lived.ours);
      short_lived.peer.SeesEnd();
    });
    std::size_t sent = 0;
    EXPECT_FALSE(SendWholeFile(short_lived.ours, long_file, 0, 64 << 20, &sent));
    reader.join();
  }
  close(long_file);
  sigset_t pending;
  sigpending(&pending);
  EXPECT_EQ(sigismember(&pending, SIGPIPE), 0);
}

TEST(SocketSend, FileRanges) {
  test::TempFolder folder;
  const std::string content = test::Pattern(240'000);
  const int file = open(folder.Write("f", content).c_str(), O_RDONLY | O_CLOEXEC);
  Pair pair;
  FaultPlan plan;
  plan.Shorten(Operation::kSend, 1, 1000, 20);
  std::size_t sent = 0;
  std::string received;
  std::thread reader([&] { received = pair.peer.Read(content.size() - 7); });
  EXPECT_TRUE(SendWholeFile(pair.ours, file, 7, content.size(), &sent));
  reader.join();
  EXPECT_EQ(sent, content.size() - 7);
  EXPECT_TRUE(received == content.substr(7));
  const IoResult behind = SendFileRange(pair.ours, file, content.size(), 10);
  EXPECT_EQ(behind.bytes, 0u);
  EXPECT_EQ(behind.error, 0);

  // What sendfile can't do goes through memory.
  plan.Fail(Operation::kSend, 1, EINVAL);
  EXPECT_EQ(SendFileRange(pair.ours, file, 0, 10).bytes, 10u);
  EXPECT_EQ(pair.peer.Read(10), content.substr(0, 10));
  close(file);
}

TEST(SocketAccept, OutcomesByError) {
  const std::pair<AcceptOutcome, std::vector<int>> rows[] = {
      {AcceptOutcome::kNothing, {EAGAIN}},
      {AcceptOutcome::kNoResources, {EMFILE, ENFILE, ENOMEM, ENOBUFS}},
      {AcceptOutcome::kRetry, {ECONNABORTED, EPROTO, ENETDOWN, EHOSTUNREACH}},
      {AcceptOutcome::kClosed, {EBADF, EINVAL, ENOTSOCK}}};
  for (const auto& [outcome, errors] : rows)
    for (const int error : errors) EXPECT_EQ(AcceptOutcomeOf(error), outcome) << error;
}

TEST(SocketAccept, TakesTunedConnectionsUntilTheListenerIsShut) {
  const SocketValue listener = MakeTcpSocket();
  ASSERT_TRUE(SetReuseAddress(listener) && BindIpv4(listener, {INADDR_LOOPBACK, 0}));
  ASSERT_TRUE(ListenSocket(listener));
  EXPECT_EQ(AcceptSocket(listener).outcome, AcceptOutcome::kNothing);
  Ipv4Endpoint local;
  ASSERT_TRUE(GetLocalIpv4(listener, &local));
  RawPeer peer = RawPeer::To(local.port);
  ASSERT_EQ(PollSocket(listener, kPollRead, kLong), kPollRead);
  FaultPlan plan;
  plan.Fail(Operation::kAccept, 1, EINTR);
  const AcceptResult accepted = AcceptSocket(listener);
  ASSERT_EQ(accepted.outcome, AcceptOutcome::kAccepted);
  EXPECT_EQ(Option(accepted.socket, IPPROTO_TCP, TCP_NODELAY), 1);
  EXPECT_EQ(Option(accepted.socket, SOL_SOCKET, SO_KEEPALIVE), 1);
  EXPECT_LE(Option(accepted.socket, IPPROTO_TCP, TCP_KEEPIDLE), 60);
  EXPECT_NE(fcntl(SocketDescriptor(accepted.socket), F_GETFD) & FD_CLOEXEC, 0);
  EXPECT_NE(fcntl(SocketDescriptor(accepted.socket), F_GETFL) & O_NONBLOCK, 0);
  Ipv4Endpoint far;
  EXPECT_TRUE(GetPeerIpv4(accepted.socket, &far));
  EXPECT_EQ(far.address, INADDR_LOOPBACK);
  ShutdownSocket(listener);
  EXPECT_NE(PollSocket(listener, kPollRead, kLong) & kPollEnded, 0);
  EXPECT_EQ(AcceptSocket(listener).outcome, AcceptOutcome::kClosed);
  CloseSocket(accepted.socket);
  CloseSocket(listener);
}

}  // namespace
}  // namespace qvx::platform
