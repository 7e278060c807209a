#include "qvx/http_download.h"

#include <condition_variable>
#include <deque>
#include <future>
#include <mutex>
#include <thread>

#include "files/library_path.h"
#include "http/http_fixture.h"
#include "http/odd_server.h"
#include "support/debug_lines.h"
#include "support/fault_plan.h"

namespace {

using namespace qvx::test;
using qvx::platform::Operation;

using HttpDownload = HttpTest;

constexpr int kAlways = 1'000'000'000;

int Copy(CHttpFileClient& client, const std::string& url, const std::string& path,
         INetFileCopyProgressListener* listener = nullptr) {
  return Web{url}.Use([&](auto... arguments) {
    return HttpFileCopyFromServer(&client, arguments..., Library<char>(path).c_str(), 0, listener,
                                  7);
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

// A local file of zeros stands beside the served one.
struct OneFile : ServedFile {
  explicit OneFile(std::size_t size) : ServedFile(size) { ClearLocal(); }
  void ClearLocal() const { folder.Write("local", std::string(content.size(), '\0')); }
  std::string Local() const { return folder.Path("local"); }
};

// A piece of the file, downloaded to its place in the local file.
struct Piece {
  Piece(const OneFile& file, std::uint64_t start, std::uint64_t end) {
    block.url.Set(file.Url().c_str());
    block.localPath.Set(Library<char>(file.Local()).c_str());
    block.startPos = start;
    block.endPos = end;
  }

  void Start(unsigned int read_size, int wait_for_end = 0) {
    download.DownloadFile(wait_for_end, &block, read_size, &listener, &listener, 7);
  }
  void WaitForSuccess() {
    listener.WaitUntil([&] { return listener.successes == 1; });
  }
  // Whether what copiedSize tells is on disk.
  bool IsOnDisk(const OneFile& file) const {
    return ReadWhole(file.Local())
               .compare(block.startPos, block.copiedSize, file.content, block.startPos,
                        block.copiedSize) == 0;
  }

  tagMTDOWNLOAD_BLOCK block;
  Listener listener;
  CMultiThreadDownload download;
};

TEST_F(HttpDownload, WholeFilesComeAtTheListenersSpeed) {
  const OneFile file(1'300'000);
  file.folder.Write("local", std::string(2'000'000, 'x'));
  FaultPlan plan;
  DebugLines log;
  plan.FakeClock(100 * kSecond);
  Piece piece(file, 0, file.content.size());
  Listener& listener = piece.listener;
  listener.limit = 0x40000;
  CHttpFileClient client;
  EXPECT_EQ(Copy(client, file.Url(), file.Local(), &listener), 1);
  EXPECT_TRUE(ReadWhole(file.Local()) == file.content);
  EXPECT_EQ(listener.blocks, 3);
  EXPECT_EQ(listener.copied, file.content.size());
  EXPECT_EQ(client.GetFileSize(), 0u);
  const std::int64_t last = (1'300'000 - 0x100000) * 1000LL / 0x40000 * (kSecond / 1000);
  EXPECT_EQ(plan.Slept(), 2 * kSecond + last);
  EXPECT_EQ(log.Count(2, "net file size is 1300000\r\n"), 1);
  EXPECT_EQ(
      log.Count(2, "download file " + file.Url() + ", used 2959ms, speed is 439.34 K/s!!\r\n"), 1);
  piece.Start(0);
  piece.WaitForSuccess();
  EXPECT_EQ(plan.Slept(), 2 * (2 * kSecond + last));
  EXPECT_EQ(listener.blocks, 6);
  listener.stop_at = 8;
  EXPECT_EQ(Copy(client, file.Url(), file.Local(), &listener), 0);
  EXPECT_EQ(ReadWhole(file.Local()).size(), 0x100000u);
}

TEST_F(HttpDownload, CopyFailsWithoutLosingTheReason) {
  const OneFile file(1'300'000);
  CHttpFileClient client;
  DebugLines log;
  const std::string nowhere = file.folder.Path("no/folder");
  EXPECT_EQ(Copy(client, file.Url(), nowhere), 0);
  EXPECT_EQ(log.Count(2, "local file(" + Library<char>(nowhere) +
                             ") open failed, err is:No such file or directory\r\n"),
            1);
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
  const struct {
    std::uint64_t start;
    std::uint64_t end;
    std::uint64_t copied;
    unsigned int read_size;
    int blocks;
    int successes;
  } kCases[] = {{0, 1000, 0, 300, 4, 1},
                {1000, 40'000, 0, 0, 1, 1},
                {40'000, 99'999, 59'999, 0, 0, 0},
                {40'000, 99'999, 0, 50'000, 2, 1},
                {99'990, 100'000, 9, 0, 1, 1}};
  for (const auto& test : kCases) {
    DebugLines log;
    Piece piece(file, test.start, test.end);
    piece.block.copiedSize = test.copied;
    EXPECT_EQ(piece.download.IsDownloadingStart(), 0);
    piece.Start(test.read_size);
    EXPECT_EQ(piece.download.IsDownloadingStart(), 1);
    piece.listener.WaitUntil([&] { return piece.listener.successes == test.successes; });
    piece.download.CancelDownload();
    EXPECT_EQ(piece.download.IsDownloadingStart(), 0);
    EXPECT_EQ(piece.block.copiedSize, test.end - test.start);
    EXPECT_EQ(piece.block.speedKBPS, 0.0);
    EXPECT_EQ(piece.listener.blocks, test.blocks);
    EXPECT_EQ(piece.listener.failures, 0);
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
  FaultPlan plan;
  plan.Fail(Operation::kSleep, 1, EINTR, kAlways);  // no pauses between attempts
  constexpr std::uint64_t kPieceSize = 4'000'000;
  std::deque<Piece> pieces;
  for (std::uint64_t start = 0; start < file.content.size(); start += kPieceSize) {
    Piece& piece = pieces.emplace_back(file, start, start + kPieceSize);
    piece.listener.hold_at = 5;
    piece.listener.hold_at_failure = 1;
    piece.Start(0x20000);
  }
  for (int round = 0; round < 3; ++round) {
    for (Piece& piece : pieces) {
      Listener& listener = piece.listener;
      listener.WaitUntil([&] { return listener.blocks >= listener.hold_at || listener.successes; });
    }
    for (const Piece& piece : pieces) {
      EXPECT_GE(piece.block.copiedSize, 5 * 0x20000u);
      EXPECT_TRUE(piece.IsOnDisk(file));
    }
    file.nginx.Kill();
    for (Piece& piece : pieces) piece.download.PauseDownload();
    for (Piece& piece : pieces) piece.listener.HoldAt(kAlways);
    for (Piece& piece : pieces) piece.download.ResumeDownload();
    for (Piece& piece : pieces) {
      Listener& listener = piece.listener;
      listener.WaitUntil([&] { return listener.failures > 0 || listener.successes; });
      std::lock_guard<std::mutex> guard(listener.mutex);
      listener.hold_at = listener.blocks + 5;
    }
    file.nginx.Start();
    for (Piece& piece : pieces) {
      std::lock_guard<std::mutex> guard(piece.listener.mutex);
      piece.listener.failures = 0;
      piece.listener.changed.notify_all();
    }
  }
  for (Piece& piece : pieces) {
    piece.listener.HoldAt(kAlways);
    piece.WaitForSuccess();
    EXPECT_EQ(piece.block.copiedSize, kPieceSize);
    EXPECT_TRUE(piece.IsOnDisk(file));
  }
}

TEST_F(HttpDownload, FailuresAreToldAndRetriedAfterFiveSeconds) {
  const OneFile file(100'000);
  const struct {
    Operation operation;
    int first;
    int error;
  } kFaults[] = {{Operation::kFileOpen, 1, EACCES},
                 {Operation::kFileWrite, 2, ENOSPC},
                 {Operation::kFileClose, 1, EIO},
                 {Operation::kThreadCreate, 2, EAGAIN}};
  for (const auto& fault : kFaults) {
    SCOPED_TRACE(static_cast<int>(fault.operation));
    FaultPlan plan;
    plan.FakeClock(100 * kSecond).Fail(fault.operation, fault.first, fault.error);
    file.ClearLocal();
    Piece piece(file, 0, file.content.size());
    piece.Start(40'000);
    piece.WaitForSuccess();
    EXPECT_EQ(piece.listener.failures, 1);
    EXPECT_EQ(plan.Slept(), 5 * kSecond);
    piece.download.CancelDownload();
    EXPECT_TRUE(ReadWhole(file.Local()) == file.content);
  }
}

TEST_F(HttpDownload, WaitsForAnAttemptEndWithACancelOrAtOnce) {
  const OneFile file(1000);
  const std::string local = Library<char>(file.Local());
  const struct {
    std::string url;
    std::string path;
    std::uint64_t start;
    std::string line;
  } kCases[] = {{"http://127.0.0.1:1/", local, 0, "NetFile(http://127.0.0.1:1/) open failed\r\n"},
                {file.Url(), "C:\\no\\folder", 0,
                 "local file(C:\\no\\folder) open failed, err is:No such file or directory\r\n"},
                {file.Url(), local, std::uint64_t{1} << 63,
                 "local file(" + local + ") seek failed, err is:Invalid argument\r\n"}};
  Piece piece(file, 0, 10);
  piece.download.CancelDownload();
  piece.download.PauseDownload();
  for (const auto& test : kCases) {
    DebugLines log;
    piece.block.url.Set(test.url.c_str());
    piece.block.localPath.Set(test.path.c_str());
    piece.block.startPos = test.start;
    piece.listener.failures = 0;
    piece.Start(0x4000);
    piece.listener.WaitUntil([&] { return piece.listener.failures == 1; });
    piece.download.CancelDownload();
    EXPECT_EQ(piece.listener.failures, 1);
    EXPECT_EQ(piece.listener.successes, 0);
    EXPECT_EQ(piece.block.copiedSize, 0u);
    EXPECT_EQ(piece.download.IsDownloadingStart(), 0);
    EXPECT_EQ(log.Count(2, test.line), 1);
  }
  FaultPlan plan;
  plan.Fail(Operation::kSleep, 1, EINTR, kAlways);
  Piece whole(file, 0, 1000);
  whole.Start(0, 1);
  EXPECT_EQ(whole.download.IsDownloadingStart(), 0);
  EXPECT_EQ(whole.listener.successes + whole.listener.failures, 1);
}

TEST_F(HttpDownload, PauseHoldsBehindTheBlockInProgress) {
  const OneFile file(1'000'000);
  for (const bool cancel : {false, true}) {
    DebugLines log;
    Piece piece(file, 0, file.content.size());
    Listener& listener = piece.listener;
    listener.hold_at = 2;
    piece.Start(10'000);
    listener.WaitUntil([&] { return listener.blocks == 2; });
    piece.download.PauseDownload();
    listener.HoldAt(kAlways);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(piece.block.copiedSize, 20'000u);
    if (cancel) {
      piece.download.CancelDownload();
      EXPECT_EQ(log.Count(2, "force stopping!!\r\n"), 1);
      EXPECT_EQ(log.Count(2, "CancelDownload +++!!\r\n"), 2);  // DownloadFile cancels, too
      EXPECT_EQ(log.Count(2, "CancelDownload ---!!\r\n"), 2);
    } else {
      piece.download.ResumeDownload();
      piece.WaitForSuccess();
    }
    EXPECT_EQ(listener.blocks, cancel ? 2 : 100);
    EXPECT_EQ(listener.successes + listener.failures, cancel ? 0 : 1);
  }
}

TEST_F(HttpDownload, PauseResumeAndCancelAtOnce) {
  const OneFile file(2'000'000);
  Piece piece(file, 0, file.content.size());
  const Listener& listener = piece.listener;
  std::atomic<bool> done{false};
  const auto repeat = [&](void (CMultiThreadDownload::*call)()) {
    while (!done) {
      (piece.download.*call)();
      piece.block.copiedSize.load();
      std::this_thread::yield();
    }
  };
  std::thread pauses(repeat, &CMultiThreadDownload::PauseDownload);
  std::thread resumes(repeat, &CMultiThreadDownload::ResumeDownload);
  for (int i = 0; i < 25; ++i) {
    piece.block.copiedSize = 0;
    const int before = listener.blocks + listener.failures;
    piece.Start(0x8000);
    if (i % 2 == 0) {
      piece.listener.WaitUntil(
          [&] { return listener.blocks + listener.failures > before + i % 7; });
    }
    piece.download.CancelDownload();
    EXPECT_TRUE(piece.IsOnDisk(file));
  }
  done = true;
  pauses.join();
  resumes.join();
}

}  // namespace
