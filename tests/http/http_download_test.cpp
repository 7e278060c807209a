#include "qvx/http_download.h"

#include <condition_variable>
#include <fstream>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

#include "files/library_path.h"
#include "http/http_fixture.h"
#include "http/odd_server.h"
#include "support/debug_lines.h"
#include "support/fault_plan.h"
#include "support/web_servers.h"

namespace {

using namespace qvx::test;
using qvx::platform::Operation;

using HttpDownload = HttpTest;

constexpr std::int64_t kSecond = 1'000'000'000;
constexpr int kAlways = 1'000'000'000;

int Copy(CHttpFileClient& client, const std::string& url, const std::string& path,
         INetFileCopyProgressListener* listener = nullptr, std::uint64_t limit = 0) {
  return Web{url}.Use([&](auto... arguments) {
    return HttpFileCopyFromServer(&client, arguments..., Library<char>(path).c_str(), limit,
                                  listener, 7);
  });
}

// Hears both kinds of calls, and can hold a download where it is.
class Listener : public INetFileCopyProgressListener, public IMultiThreadDownloadFailedListener {
 public:
  std::int32_t OnNetFileCopyProgress(std::uint64_t userData, std::uint64_t nCopied,
                                     std::uint64_t nTotal, double,
                                     std::uint64_t* pLimitSpeed) override {
    std::unique_lock<std::mutex> guard(mutex);
    EXPECT_EQ(userData, 7u);
    EXPECT_EQ(*pLimitSpeed, 0u);
    EXPECT_LE(nCopied, nTotal);
    *pLimitSpeed = limit;
    ++blocks;
    copied = nCopied;
    changed.notify_all();
    changed.wait(guard, [&] { return blocks < hold_at; });
    return blocks < stop_at ? 1 : 0;
  }
  int OnDownloadBlockEnd(std::uint64_t userData, int success) override {
    std::unique_lock<std::mutex> guard(mutex);
    EXPECT_EQ(userData, 7u);
    ++(success != 0 ? successes : failures);
    changed.notify_all();
    changed.wait(guard, [&] { return failures < hold_at_failure; });
    return 0;
  }
  template <typename Condition>
  void WaitUntil(Condition condition) {
    std::unique_lock<std::mutex> guard(mutex);
    changed.wait(guard, condition);
  }
  void HoldAt(int block) {
    std::lock_guard<std::mutex> guard(mutex);
    hold_at = block;
    changed.notify_all();
  }

  std::mutex mutex;
  std::condition_variable changed;
  int blocks = 0;
  int stop_at = kAlways;
  int hold_at = kAlways;
  int hold_at_failure = kAlways;
  int successes = 0;
  int failures = 0;
  std::uint64_t limit = 0;
  std::uint64_t copied = 0;
};

// Whether so many bytes on disk are those of the file.
bool IsOnDisk(const std::string& path, const std::string& content,
              const tagMTDOWNLOAD_BLOCK& block) {
  std::string bytes(block.copiedSize, '\0');
  std::ifstream stream(path, std::ios::binary);
  stream.seekg(static_cast<std::streamoff>(block.startPos));
  stream.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  return stream.good() && content.compare(block.startPos, bytes.size(), bytes) == 0;
}

class OneFile {
 public:
  explicit OneFile(std::size_t size) : content(Pattern(size)), nginx(folder.Path()) {
    folder.Write("file", content);
  }

  std::string Url() const { return nginx.Url("file"); }
  std::string Local(const std::string& name = "local") const { return folder.Path(name); }
  void MakeLocal() const { folder.Write("local", std::string(content.size(), '\0')); }

  TempFolder folder;
  std::string content;
  Nginx nginx;
};

void Fill(tagMTDOWNLOAD_BLOCK& block, const OneFile& file, std::uint64_t start, std::uint64_t end) {
  block.url.Set(file.Url().c_str());
  block.localPath.Set(Library<char>(file.Local()).c_str());
  block.startPos = start;
  block.endPos = end;
}

TEST_F(HttpDownload, CopyTakesAWholeFile) {
  const OneFile file(1'300'000);
  file.folder.Write("local", std::string(2'000'000, 'x'));
  DebugLines log;
  Listener listener;
  CHttpFileClient client;
  EXPECT_EQ(Copy(client, file.Url(), file.Local(), &listener), 1);
  EXPECT_TRUE(ReadWhole(file.Local()) == file.content);
  EXPECT_EQ(listener.blocks, 3);
  EXPECT_EQ(listener.copied, file.content.size());
  EXPECT_EQ(client.GetFileSize(), 0u);
  EXPECT_EQ(log.Count(2, "net file size is 1300000\r\n"), 1);
  listener.stop_at = 5;
  EXPECT_EQ(Copy(client, file.Url(), file.Local(), &listener), 0);
  EXPECT_EQ(ReadWhole(file.Local()).size(), 0x100000u);
}

TEST_F(HttpDownload, BothKeepTheListenersSpeedLimit) {
  const OneFile file(1'300'000);
  FaultPlan plan;
  DebugLines log;
  plan.FakeClock(100 * kSecond);
  Listener listener;
  listener.limit = 0x40000;
  CHttpFileClient client;
  EXPECT_EQ(Copy(client, file.Url(), file.Local(), &listener), 1);
  const std::int64_t last = (1'300'000 - 0x100000) * 1000LL / 0x40000 * (kSecond / 1000);
  EXPECT_EQ(plan.Slept(), 2 * kSecond + last);
  EXPECT_EQ(
      log.Count(2, "download file " + file.Url() + ", used 2959ms, speed is 439.34 K/s!!\r\n"), 1);
  tagMTDOWNLOAD_BLOCK block;
  Fill(block, file, 0, file.content.size());
  CMultiThreadDownload download;
  download.DownloadFile(0, &block, 0, &listener, &listener, 7);
  listener.WaitUntil([&] { return listener.successes == 1; });
  EXPECT_EQ(plan.Slept(), 2 * (2 * kSecond + last));
}

TEST_F(HttpDownload, CopyFailsWithoutLosingTheReason) {
  const OneFile file(1'300'000);
  CHttpFileClient client;
  DebugLines log;
  EXPECT_EQ(Copy(client, file.Url(), file.Local("no/folder")), 0);
  EXPECT_EQ(log.Count(2, "local file(" + Library<char>(file.Local("no/folder")) +
                             ") open failed, err is:No such file or directory\r\n"),
            1);
  file.folder.Write("local", "old");
  EXPECT_EQ(Copy(client, file.nginx.Url("none"), file.Local()), 0);
  EXPECT_EQ(log.Count(2, "NetFile(" + file.nginx.Url("none") + ") open failed\r\n"), 1);
  EXPECT_EQ(ReadWhole(file.Local()), "");
  const struct {
    Operation operation;
    int first;
    std::size_t left;
  } kFaults[] = {{Operation::kFileWrite, 2, 0x80000}, {Operation::kFileClose, 1, 1'300'000}};
  for (const auto& fault : kFaults) {
    FaultPlan plan;
    plan.Fail(fault.operation, fault.first, ENOSPC);
    EXPECT_EQ(Copy(client, file.Url(), file.Local()), 0);
    EXPECT_EQ(ReadWhole(file.Local()).size(), fault.left);
  }
  OddServer endless([](const OddRequest& request, const RawPeer& connection) {
    connection.Send(OddHead(200));
    if (request.Method() == "GET") connection.Send("all of it");
    return false;
  });
  EXPECT_EQ(Copy(client, endless.Url(), file.Local()), 0);
  EXPECT_EQ(log.Count(2, "Read Net File return == 0!!\r\n"), 1);
  EXPECT_EQ(ReadWhole(file.Local()), "all of it");
}

TEST_F(HttpDownload, CancelThroughTheClientEndsACopy) {
  const OneFile file(3'000'000);
  for (const bool close : {false, true}) {
    CHttpFileClient client;
    Listener listener;
    listener.hold_at = 2;
    auto copy = std::async(std::launch::async,
                           [&] { return Copy(client, file.Url(), file.Local(), &listener); });
    listener.WaitUntil([&] { return listener.blocks == 2; });
    close ? client.PrepareClose() : client.CancelRead();
    listener.HoldAt(kAlways);
    EXPECT_EQ(copy.get(), 0);
    EXPECT_EQ(ReadWhole(file.Local()).size(), 0x100000u);
  }
}

TEST_F(HttpDownload, RangesGoToTheirPlaces) {
  const OneFile file(100'000);
  file.MakeLocal();
  const struct {
    std::uint64_t start;
    std::uint64_t end;
    std::uint64_t copied;
    unsigned int piece;
    int blocks;
    int successes;
  } kCases[] = {{0, 1000, 0, 300, 4, 1},
                {1000, 40'000, 0, 0, 1, 1},
                {40'000, 99'999, 59'999, 0, 0, 0},
                {40'000, 99'999, 0, 50'000, 2, 1},
                {99'990, 100'000, 9, 0, 1, 1}};
  for (const auto& test : kCases) {
    DebugLines log;
    tagMTDOWNLOAD_BLOCK block;
    Fill(block, file, test.start, test.end);
    block.copiedSize = test.copied;
    Listener listener;
    CMultiThreadDownload download;
    EXPECT_EQ(download.IsDownloadingStart(), 0);
    download.DownloadFile(0, &block, test.piece, &listener, &listener, 7);
    EXPECT_EQ(download.IsDownloadingStart(), 1);
    listener.WaitUntil([&] { return listener.successes == test.successes; });
    download.CancelDownload();
    EXPECT_EQ(download.IsDownloadingStart(), 0);
    EXPECT_EQ(block.copiedSize, test.end - test.start);
    EXPECT_EQ(block.speedKBPS, 0.0);
    EXPECT_EQ(listener.blocks, test.blocks);
    EXPECT_EQ(listener.failures, 0);
    EXPECT_EQ(log.Count(2, "StartPos = " + std::to_string(test.start) +
                               ", Copied Size = " + std::to_string(test.copied) +
                               ", total need=" + std::to_string(test.end - test.start) + "!!\r\n"),
              test.successes);
  }
  EXPECT_TRUE(ReadWhole(file.Local()) == file.content);
}

// Eight objects on one file. At every stop, what copiedSize tells is on disk. Each kill of the
// server is seen by all that are not done yet, and goes on until they have failed.
TEST_F(HttpDownload, PiecesOutliveAServerThatIsKilledThreeTimes) {
  OneFile file(32'000'000);
  file.MakeLocal();
  FaultPlan plan;
  plan.Fail(Operation::kSleep, 1, EINTR, kAlways);  // no pauses between attempts
  constexpr std::uint64_t kPieces = 8;
  const std::uint64_t piece = file.content.size() / kPieces;
  tagMTDOWNLOAD_BLOCK blocks[kPieces];
  Listener listeners[kPieces];
  CMultiThreadDownload downloads[kPieces];
  for (std::uint64_t i = 0; i < kPieces; ++i) {
    Fill(blocks[i], file, i * piece, (i + 1) * piece);
    listeners[i].hold_at = 5;
    listeners[i].hold_at_failure = 1;
    downloads[i].DownloadFile(0, &blocks[i], 0x20000, &listeners[i], &listeners[i], 7);
  }
  for (int round = 0; round < 3; ++round) {
    for (Listener& listener : listeners) {
      listener.WaitUntil([&] { return listener.blocks >= listener.hold_at || listener.successes; });
    }
    for (const tagMTDOWNLOAD_BLOCK& block : blocks) {
      EXPECT_GE(block.copiedSize, 5 * 0x20000u);
      EXPECT_TRUE(IsOnDisk(file.Local(), file.content, block));
    }
    file.nginx.Kill();
    for (CMultiThreadDownload& download : downloads) download.PauseDownload();
    for (Listener& listener : listeners) listener.HoldAt(kAlways);
    for (CMultiThreadDownload& download : downloads) download.ResumeDownload();
    for (Listener& listener : listeners) {
      listener.WaitUntil([&] { return listener.failures > 0 || listener.successes; });
      std::lock_guard<std::mutex> guard(listener.mutex);
      listener.hold_at = listener.blocks + 5;
    }
    file.nginx.Start();
    for (Listener& listener : listeners) {
      std::lock_guard<std::mutex> guard(listener.mutex);
      listener.failures = 0;
      listener.changed.notify_all();
    }
  }
  for (std::uint64_t i = 0; i < kPieces; ++i) {
    listeners[i].HoldAt(kAlways);
    listeners[i].WaitUntil([&] { return listeners[i].successes == 1; });
    EXPECT_EQ(blocks[i].copiedSize, piece);
    EXPECT_TRUE(IsOnDisk(file.Local(), file.content, blocks[i]));
  }
}

TEST_F(HttpDownload, FailuresAreToldAndRetriedAfterFiveSeconds) {
  const OneFile file(100'000);
  file.MakeLocal();
  const struct {
    Operation operation;
    int first;
    int error;
    const char* line;
  } kFaults[] = {{Operation::kFileOpen, 1, EACCES, ") open failed, err is:Permission denied\r\n"},
                 {Operation::kFileWrite, 2, ENOSPC, nullptr},
                 {Operation::kFileClose, 1, EIO, nullptr},
                 {Operation::kThreadCreate, 2, EAGAIN, nullptr}};
  for (const auto& fault : kFaults) {
    SCOPED_TRACE(static_cast<int>(fault.operation));
    DebugLines log;
    FaultPlan plan;
    plan.FakeClock(100 * kSecond).Fail(fault.operation, fault.first, fault.error);
    tagMTDOWNLOAD_BLOCK block;
    Fill(block, file, 0, file.content.size());
    Listener listener;
    CMultiThreadDownload download;
    download.DownloadFile(0, &block, 40'000, &listener, &listener, 7);
    listener.WaitUntil([&] { return listener.successes == 1; });
    EXPECT_EQ(listener.failures, 1);
    EXPECT_EQ(plan.Slept(), 5 * kSecond);
    download.CancelDownload();
    EXPECT_TRUE(ReadWhole(file.Local()) == file.content);
    const std::string path = Library<char>(file.Local());
    EXPECT_EQ(fault.line == nullptr ? 1 : log.Count(2, "local file(" + path + fault.line), 1);
    file.MakeLocal();
  }
}

TEST_F(HttpDownload, FailsWhereNoLocalFileReaches) {
  const OneFile file(10);
  file.MakeLocal();
  tagMTDOWNLOAD_BLOCK block;
  Fill(block, file, std::uint64_t{1} << 63, 10);
  FaultPlan plan;
  plan.FakeClock(100 * kSecond);
  DebugLines log;
  Listener listener;
  CMultiThreadDownload download;
  download.DownloadFile(0, &block, 0, &listener, &listener, 7);
  listener.WaitUntil([&] { return listener.failures > 0; });
  download.CancelDownload();
  EXPECT_EQ(block.copiedSize, 0u);
  EXPECT_GE(log.Count(2, "local file(" + Library<char>(file.Local()) +
                             ") seek failed, err is:Invalid argument\r\n"),
            1);
}

TEST_F(HttpDownload, WaitsForAnAttemptEndWithACancelOrAtOnce) {
  const OneFile file(3'000'000);
  file.MakeLocal();
  tagMTDOWNLOAD_BLOCK block;
  CMultiThreadDownload download;
  download.CancelDownload();
  download.PauseDownload();
  for (const bool local : {false, true}) {
    Fill(block, file, 0, file.content.size());
    local ? block.localPath.Set("C:\\no\\folder") : block.url.Set("http://127.0.0.1:1/");
    Listener listener;
    download.DownloadFile(0, &block, 0x4000, &listener, &listener, 7);
    listener.WaitUntil([&] { return listener.failures == 1; });
    download.CancelDownload();
    EXPECT_EQ(listener.failures, 1);
    EXPECT_EQ(listener.successes, 0);
    EXPECT_EQ(download.IsDownloadingStart(), 0);
  }
  Listener listener;
  FaultPlan plan;
  plan.Fail(Operation::kSleep, 1, EINTR, kAlways);
  Fill(block, file, 0, 1000);
  download.DownloadFile(1, &block, 0, &listener, &listener, 7);
  EXPECT_EQ(download.IsDownloadingStart(), 0);
  EXPECT_EQ(listener.successes + listener.failures, 1);
}

TEST_F(HttpDownload, PauseHoldsBehindTheBlockInProgress) {
  const OneFile file(1'000'000);
  file.MakeLocal();
  for (const bool cancel : {false, true}) {
    DebugLines log;
    tagMTDOWNLOAD_BLOCK block;
    Fill(block, file, 0, file.content.size());
    Listener listener;
    listener.hold_at = 2;
    CMultiThreadDownload download;
    download.DownloadFile(0, &block, 10'000, &listener, &listener, 7);
    listener.WaitUntil([&] { return listener.blocks == 2; });
    download.PauseDownload();
    listener.HoldAt(kAlways);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(block.copiedSize, 20'000u);
    if (cancel) {
      download.CancelDownload();
      EXPECT_EQ(log.Count(2, "force stopping!!\r\n"), 1);
      EXPECT_EQ(log.Count(2, "CancelDownload +++!!\r\n"), 2);  // DownloadFile cancels, too
      EXPECT_EQ(log.Count(2, "CancelDownload ---!!\r\n"), 2);
    } else {
      download.ResumeDownload();
      listener.WaitUntil([&] { return listener.successes == 1; });
    }
    EXPECT_EQ(listener.blocks, cancel ? 2 : 100);
    EXPECT_EQ(listener.successes + listener.failures, cancel ? 0 : 1);
  }
}

TEST_F(HttpDownload, PauseResumeAndCancelAtOnce) {
  const OneFile file(2'000'000);
  file.MakeLocal();
  tagMTDOWNLOAD_BLOCK block;
  CMultiThreadDownload download;
  std::atomic<bool> done{false};
  std::vector<std::thread> callers;
  callers.reserve(2);
  for (int kind = 0; kind < 2; ++kind) {
    callers.emplace_back([&, kind] {
      while (!done) {
        kind == 0 ? download.PauseDownload() : download.ResumeDownload();
        block.copiedSize.load();
        std::this_thread::yield();
      }
    });
  }
  for (int i = 0; i < 25; ++i) {
    Fill(block, file, 0, file.content.size());
    block.copiedSize = 0;
    Listener listener;
    download.DownloadFile(0, &block, 0x8000, &listener, &listener, 7);
    if (i % 2 == 0) listener.WaitUntil([&] { return listener.blocks + listener.failures > i % 7; });
    download.CancelDownload();
    EXPECT_TRUE(IsOnDisk(file.Local(), file.content, block));
  }
  done = true;
  for (std::thread& caller : callers) caller.join();
}

}  // namespace
