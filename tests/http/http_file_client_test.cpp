#include "qvx/http_file_client.h"

#include <random>
#include <semaphore>
#include <thread>

#include "http/http_fixture.h"
#include "http/odd_server.h"
#include "support/debug_lines.h"
#include "support/fault_plan.h"
#include "support/fork_child.h"

namespace {

using namespace qvx::test;
using qvx::platform::Operation;

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr int kRandomReads = 1500;
#else
constexpr int kRandomReads = 10'000;
#endif

class HttpFileClient : public HttpTest {
 protected:
  void Open(const std::string& url) {
    ASSERT_EQ(Web{url}.Use([&](auto... arguments) { return client_.OpenFile(arguments...); }), 1);
  }
  std::string Continue(unsigned int size, std::uint64_t limit = 0) {
    std::string text(size, '\0');
    text.resize(client_.ReadFile_Continue(text.data(), size, limit));
    return text;
  }
  std::string Part(unsigned int size) {
    std::string text(size, '\0');
    text.resize(client_.ReadFile_Part(text.data(), size, 0));
    return text;
  }

  CHttpFileClient client_;
};

// Serves a text with ranges; without a length where size is false.
OddServer::Answer Serve(const std::string& content, bool size = true) {
  return [content, size](const OddRequest& request, const RawPeer& connection) {
    const std::uint64_t start = std::min<std::uint64_t>(request.RangeStart(), content.size());
    const std::string body = content.substr(start);
    const std::string length =
        size ? "Content-Length: " + std::to_string(body.size()) + "\r\n" : "";
    const std::string range = "Content-Range: bytes " + std::to_string(start) + "-9/10\r\n";
    connection.Send(OddHead(start == 0 ? 200 : 206, length + range));
    return request.Method() == "HEAD" ? size : connection.Send(body) && size;
  };
}

TEST_F(HttpFileClient, RandomSeeksAndReadsEqualALocalCopy) {
  const ServedFile file(1'000'003);
  const std::string& content = file.content;
  Open(file.Url());
  ASSERT_EQ(client_.GetFileSize(), content.size());
  std::mt19937 random(5);
  std::int64_t position = 0;
  const auto size = static_cast<std::int64_t>(content.size());
  for (int i = 0; i < kRandomReads; ++i) {
    const auto kind = static_cast<unsigned int>(random() % 16);
    const auto length = static_cast<unsigned int>(random() % (kind == 0 ? 100000 : 3000) + 1);
    if (kind < 2) {
      const int origin = static_cast<int>(random() % 4);
      const std::int64_t offset = static_cast<std::int64_t>(random() % 2'200'000) - 1'100'000;
      const std::int64_t base = origin == 1 ? position : origin == 2 ? size : 0;
      position = origin == 3 ? 0 : std::clamp<std::int64_t>(base + offset, 0, size);
      ASSERT_EQ(client_.SeekFile(offset, origin), position);
    } else if (kind < 5) {
      ASSERT_EQ(client_.SeekFile(0, 1), position);
    }
    const std::string read = kind % 5 == 1 ? Part(length) : Continue(length);
    const auto start = static_cast<std::size_t>(position);
    ASSERT_TRUE(read == content.substr(start, length)) << i << ": " << length << " at " << start;
    position += static_cast<std::int64_t>(read.size());
    ASSERT_EQ(client_.GetFilePos(), static_cast<std::uint64_t>(position));
    if (position == size) position = client_.SeekFile(0, 0);
  }
}

TEST_F(HttpFileClient, OneTransferServesReadsUntilItsPlaceIsLeft) {
  OddServer server(Serve("0123456789"));
  DebugLines log;
  EXPECT_EQ(Continue(4), "");
  Open(server.Url());
  EXPECT_EQ(log.Count(2, "CHttpFileClient::OpenFile: " + server.Url() + "\r\n"), 1);
  EXPECT_EQ(log.Count(2, "CHttpFileClient::OpenFile: " + server.Url() + ", SUCCESS\r\n"), 1);
  EXPECT_EQ(Continue(3), "012");
  EXPECT_EQ(client_.SeekFile(3, 0), 3);
  EXPECT_EQ(Continue(3), "345");
  EXPECT_EQ(server.Requests(), 2);
  EXPECT_EQ(client_.SeekFile(-100, 1), 0);
  EXPECT_EQ(Continue(2), "01");
  EXPECT_EQ(server.Requests(), 3);
  EXPECT_EQ(Part(2), "23");
  EXPECT_EQ(Continue(100), "456789");
  EXPECT_EQ(log.Count(2, "CHttpFileClient::ReadFile_Continue: curpos=4, readlen=6\r\n"), 1);
  EXPECT_EQ(Continue(1), "");
  EXPECT_EQ(Part(1), "");
  EXPECT_EQ(server.Requests(), 5);
  EXPECT_EQ(client_.SeekFile(100, 0), 10);
  EXPECT_EQ(client_.SeekFile(INT64_MAX, 1), 10);
  EXPECT_EQ(client_.SeekFile(INT64_MIN, 2), 0);
  EXPECT_GT(client_.GetTotalAvgDownloadSpeedKBPS(), 0.0);
  client_.PrepareClose();
  EXPECT_EQ(client_.CloseFile(), 1);
  for (const char* step :
       {"PrepareClose: +++", "PrepareClose: ---", "CloseFile: +++", "CloseFile: ---"}) {
    const std::string line = "CHttpFileClient::" + std::string(step) + "\r\n";
    EXPECT_EQ(log.Count(2, line), step[0] == 'P' ? 1 : 2) << step;  // OpenFile closes, too
  }
  EXPECT_EQ(client_.GetFileSize(), 0u);
  EXPECT_EQ(client_.GetTotalAvgDownloadSpeedKBPS(), 0.0);
  EXPECT_EQ(Continue(4), "");
  EXPECT_EQ(Part(4), "");
}

TEST_F(HttpFileClient, UnknownSizeIsReadToTheEnd) {
  OddServer server(Serve("0123456789", false));
  Open(server.Url());
  EXPECT_EQ(client_.GetFileSize(), 0u);
  EXPECT_EQ(client_.SeekFile(0, 2), 0);
  EXPECT_EQ(Continue(4), "0123");
  EXPECT_EQ(Continue(100), "456789");
  EXPECT_EQ(Continue(100), "");
  EXPECT_EQ(client_.SeekFile(2, 0), 2);
  EXPECT_EQ(Part(3), "234");
}

// The server sends four bytes of each transfer when it is told to, and then nothing more.
struct Drip {
  ~Drip() { given.release(); }

  std::counting_semaphore<> given{0};
  OddServer server{[this](const OddRequest& request, const RawPeer& connection) {
    if (request.Method() == "HEAD") {
      return connection.Send(OddHead(200, "Content-Length: 100\r\n"));
    }
    const std::uint64_t start = request.RangeStart();
    const std::string range = "Content-Range: bytes " + std::to_string(start) + "-99/100\r\n";
    connection.Send(OddHead(206, "Content-Length: 100\r\n" + range));
    given.acquire();
    connection.Send(std::string("01234567").substr(start, 4));
    connection.SeesEnd();
    return false;
  }};
};

// A time limit of a read that comes first leaves the transfer alone.
TEST_F(HttpFileClient, StallOfThirtySecondsEndsTheTransfer) {
  DebugLines log;
  FaultPlan plan;
  plan.FakeClock(100 * kSecond);
  Drip drip;
  Open(drip.server.Url());
  EXPECT_EQ(Continue(4, 20), "");
  plan.FakeClock(120 * kSecond);
  drip.given.release();
  EXPECT_EQ(Continue(4), "0123");
  plan.FakeClock(150 * kSecond);
  EXPECT_EQ(Continue(4, 1500), "");
  EXPECT_EQ(drip.server.Requests(), 2);
  plan.FakeClock(150 * kSecond + kSecond / 1000);
  EXPECT_EQ(Continue(4), "");
  const char* line = "CHttpFileClient::OnHttpDataProgressCallback: transer timeout....\r\n";
  EXPECT_EQ(log.Count(2, line), 1);
  drip.given.release();
  EXPECT_EQ(Continue(4), "4567");
  EXPECT_EQ(drip.server.Requests(), 3);
}

TEST_F(HttpFileClient, OneByteASecondIsNoStall) {
  OddServer server([](const OddRequest& request, const RawPeer& connection) {
    if (!connection.Send(OddHead(200, "Content-Length: 4\r\n"))) return false;
    if (request.Method() == "HEAD") return true;
    for (const char* byte : {"s", "l", "o", "w"}) {
      std::this_thread::sleep_for(std::chrono::seconds(1));
      if (!connection.Send(byte)) return false;
    }
    return true;
  });
  Open(server.Url());
  EXPECT_EQ(Continue(3), "slo");
  EXPECT_EQ(Continue(3), "w");
}

TEST_F(HttpFileClient, SpeedLimitSleepsForTheWholeTimeOfTheBytes) {
  const std::string content = Pattern(10'000);
  OddServer server(Serve(content));
  Open(server.Url());
  FaultPlan plan;
  plan.FakeClock(100 * kSecond);
  client_.LimitReadSpeed(1000);
  EXPECT_EQ(Continue(2000).size(), 2000u);
  EXPECT_EQ(plan.Slept(), 2 * kSecond);
  client_.LimitReadSpeed(250);
  EXPECT_EQ(Part(1).size(), 1u);
  EXPECT_EQ(plan.Slept(), 2 * kSecond + 4 * kSecond / 1000);
  client_.LimitReadSpeed(0);
  Continue(2000);
  client_.LimitReadSpeed(10'000'000);  // 0.2 ms, which is no time
  Continue(2000);
  EXPECT_EQ(plan.Calls(Operation::kSleep), 2);
  client_.LimitReadSpeed(1000);
  Open(server.Url());
  Continue(2000);
  EXPECT_EQ(plan.Calls(Operation::kSleep), 2);
}

TEST_F(HttpFileClient, CloseCutsASleepShort) {
  OddServer server(Serve("0123456789"));
  Open(server.Url());
  client_.LimitReadSpeed(1);
  std::thread sleeper([&] { EXPECT_EQ(Continue(5), "01234"); });
  while (client_.GetFilePos() == 0) std::this_thread::yield();
  client_.CloseFile();
  sleeper.join();
}

TEST_F(HttpFileClient, CloseAndCancelEndAReadThatWaits) {
  const auto prepare = [&] { client_.PrepareClose(); };
  const auto close = [&] { client_.CloseFile(); };
  const auto cancel = [&] { client_.CancelRead(); };
  const struct {
    bool part;
    std::function<void()> end;
  } kCases[] = {{false, prepare}, {false, close}, {true, close}, {false, cancel}, {true, cancel}};
  for (const auto& test : kCases) {
    Drip drip;
    Open(drip.server.Url());
    std::thread reader([&] { EXPECT_EQ(test.part ? Part(50) : Continue(50), ""); });
    while (drip.server.Requests() < 2) std::this_thread::yield();
    test.end();
    reader.join();
    EXPECT_EQ(client_.GetFilePos(), 0u);
    client_.CloseFile();
  }
}

TEST_F(HttpFileClient, OneReadFailsAndTheNextBeginsAfresh) {
  const std::string content = Pattern(4'000'000);
  OddServer server(Serve(content));
  FaultPlan plan;
  Open(server.Url());
  plan.Fail(Operation::kThreadCreate, 1, EAGAIN);
  EXPECT_EQ(Continue(1000), "");
  EXPECT_TRUE(Continue(1000) == content.substr(0, 1000));
  const CHttpFileClient copy(client_);  // leaves the transfer alone
  EXPECT_TRUE(Continue(1000) == content.substr(1000, 1000));
  client_.CancelRead();
  EXPECT_EQ(Continue(1000), "");
  EXPECT_TRUE(Continue(2'000'000) == content.substr(2000, 2'000'000));
  EXPECT_EQ(server.Requests(), 3);
}

// Each transfer brings two bytes and breaks off. A cancel of one that is over cancels nothing.
TEST_F(HttpFileClient, TransferThatBrokeOffIsReplaced) {
  OddServer server([](const OddRequest& request, const RawPeer& connection) {
    const bool head = request.Method() == "HEAD";
    const std::uint64_t start = request.RangeStart();
    const std::string range = "Content-Range: bytes " + std::to_string(start) + "-9/10\r\n";
    const std::string length = "Content-Length: " + std::to_string(10 - start) + "\r\n";
    connection.Send(OddHead(start == 0 ? 200 : 206, length + range));
    return connection.Send(std::string("0123456789").substr(start, head ? 0 : 2)) && head;
  });
  Open(server.Url());
  EXPECT_EQ(Continue(4), "01");
  EXPECT_EQ(Continue(4), "23");
  client_.CancelRead();
  EXPECT_EQ(Continue(4), "45");
}

// Every call from every side at once: what is read is always a piece of the file.
TEST_F(HttpFileClient, AllCallsAtOnce) {
  const ServedFile file(300'000);
  std::atomic<bool> done{false};
  std::thread reader([&] {
    for (unsigned int i = 0; !done; ++i) {
      const std::string read = i % 4 == 0 ? Part(500) : Continue(20'000, i % 3);
      EXPECT_TRUE(read.empty() || file.content.find(read) != std::string::npos);
    }
  });
  std::thread caller([&] {
    for (int i = 0; !done; ++i) {
      if (i % 5 == 0) client_.CancelRead();
      if (i % 50 == 0) client_.PrepareClose();
      client_.SeekFile(i * 977 % 290'000, 0);
      client_.GetFilePos();
      client_.GetRealTimeDownloadSpeedKBPS();
      client_.GetTotalAvgDownloadSpeedKBPS();
      client_.LimitReadSpeed(i % 2 == 0 ? 1'000'000'000 : 0);
      std::this_thread::yield();
    }
  });
  std::mt19937 random(7);
  for (int i = 0; i < 60; ++i) {
    Open(file.Url());
    for (std::uint64_t spin = random() % 2000; spin > 0; --spin) std::this_thread::yield();
    if (i % 3 != 0) client_.CloseFile();
  }
  done = true;
  client_.CloseFile();
  reader.join();
  caller.join();
}

// The child's object is closed, and closing it leaves the parent's connection alone.
TEST_F(HttpFileClient, ForkedChildDoesNotTouchTheTransfer) {
  const std::string content = Pattern(5'000'000);
  OddServer server(Serve(content));
  Open(server.Url());
  EXPECT_TRUE(Continue(1000) == content.substr(0, 1000));
  EXPECT_TRUE(HoldsInChild([this] {
    const bool closed = Continue(10).empty() && Part(10).empty();
    client_.CloseFile();
    return closed;
  }));
  EXPECT_TRUE(Continue(4'000'000) == content.substr(1000, 4'000'000));
  EXPECT_EQ(server.Requests(), 2);
}

}  // namespace
