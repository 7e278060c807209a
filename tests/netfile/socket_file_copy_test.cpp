#include "qvx/socket_file_copy.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <new>

#include "netfile/netfile_fixture.h"
#include "support/debug_lines.h"
#include "support/failing_new.h"
#include "support/fault_plan.h"
#include "support/slow_relay.h"

namespace qvx::test {
namespace {

using platform::Operation;

// Of a faked clock, in nanoseconds.
constexpr std::int64_t kMillisecond = 1000000;
constexpr std::int64_t kStart = 1000 * kMillisecond;

const char* const kChinese = "deep/\xE4\xB8\xAD\xE6\x96\x87/\xE6\x96\x87\xE4\xBB\xB6";

INSTANTIATE_TEST_SUITE_P(BothWays, Copies, testing::Values(true, false), WayName);

TEST_P(Copies, FilesOfAllSizesArriveWhole) {
  for (std::size_t size : {0, 1, 0x80000, 0x80001, 0x10000, 0x10001, 5000000}) {
    std::string name = "file" + std::to_string(size);
    source_.Write(name, Pattern(size));
    Progress progress;
    EXPECT_EQ(CopyFile(name, &progress), 1);
    EXPECT_EQ(progress.copied.size(), (size + 0x7FFFF) / 0x80000);
    EXPECT_EQ(progress.copied.empty() ? 0 : progress.copied.back(), size);
  }
  ExpectWhole();
}

TEST_P(Copies, ATakenNameKeepsItsFile) {
  source_.Write("taken", "new");
  target_.Write("taken", "old");
  EXPECT_EQ(CopyFileEx("taken"), SOCKET_FILE_COPY_EXISTS);
  EXPECT_EQ(ReadWhole(target_.Path("taken")), "old");
  ExpectTarget({"taken"});

  EXPECT_EQ(CopyFile("taken"), 1);
  EXPECT_EQ(ReadWhole(target_.Path("taken")), "old");
  Names names = NamesIn(target_.Path());
  ASSERT_EQ(names.size(), 2u);
  EXPECT_EQ(names[0].substr(0, 9), "FileCopy_");
  EXPECT_EQ(names[0].substr(19), ".tmp");
  EXPECT_EQ(ReadWhole(target_.Path(names[0])), "new");
  unlink(target_.Path(names[0]).c_str());

  EXPECT_EQ(CopyFileEx("taken", SOCKET_FILE_COPY_OVERWRITE), SOCKET_FILE_COPY_DONE);
  EXPECT_EQ(ReadWhole(target_.Path("taken")), "new");
  source_.Write("folder", "new");
  mkdir(target_.Path("folder").c_str(), 0777);
  EXPECT_EQ(CopyFileEx("folder", SOCKET_FILE_COPY_OVERWRITE), SOCKET_FILE_COPY_EXISTS);
  ExpectTarget({"folder", "taken"});
}

TEST_P(Copies, AFileThatCannotBeOpenedLeavesNothing) {
  DebugLines log;
  int unreadable = Down() ? SOCKET_FILE_COPY_REMOTE_OPEN : SOCKET_FILE_COPY_LOCAL_OPEN;
  EXPECT_EQ(CopyFileEx("missing"), unreadable);
  mkfifo(source_.Path("fifo").c_str(), 0666);
  EXPECT_EQ(CopyFile("fifo"), 0);
  EXPECT_EQ(CopyFileEx("fifo"), unreadable);
  std::u16string missing = Source("missing");
  std::string path(missing.begin(), missing.end());
  EXPECT_EQ(log.Count(2, Down() ? "NetFile(" + path + ") open failed\r\n"
                                : "local file(" + path + ") open failed, err is:2\r\n"),
            1);
  source_.Write("file", "x");
  target_.Write("nofolder", "");
  auto copy = Down() ? SocketFileCopyFromServerEx : SocketFileCopyToServerEx;
  EXPECT_EQ(
      copy(&client_, Source("file").c_str(), Target("nofolder/file").c_str(), 0, 0, nullptr, 0),
      Down() ? SOCKET_FILE_COPY_LOCAL_OPEN : SOCKET_FILE_COPY_REMOTE_OPEN);
  std::u16string beyond = Target(std::string(250, 'n'));
  EXPECT_EQ(copy(&client_, Source("file").c_str(), beyond.c_str(), 0, 0, nullptr, 0),
            SOCKET_FILE_COPY_TOO_LONG);
  EXPECT_EQ(copy(nullptr, u"a", u"b", 0, 0, nullptr, 0), SOCKET_FILE_COPY_LOCAL_OPEN);
  ExpectTarget({"nofolder"});
}

TEST_P(Copies, AFailedWriteLeavesNothing) {
  source_.Write("file", Pattern(2000000));
  int failure = Down() ? SOCKET_FILE_COPY_LOCAL_IO : SOCKET_FILE_COPY_REMOTE_IO;
  for (int call : {1, 3}) {
    FaultPlan plan;
    plan.Fail(Operation::kFileWrite, call, ENOSPC);
    EXPECT_EQ(CopyFileEx("file"), failure) << call;
    ExpectTarget({});
  }
}

TEST_P(Copies, ShortReceivesAndWritesGiveTheSameFile) {
  source_.Write("file", Pattern(3000000));
  FaultPlan plan;
  plan.Shorten(Operation::kReceive, 1, 20001, 30).Shorten(Operation::kFileWrite, 1, 1000, 5);
  EXPECT_EQ(CopyFileEx("file"), SOCKET_FILE_COPY_DONE);
  ExpectWhole();
}

TEST_P(Copies, WhereMemoryRunsOutNothingIsLeft) {
  source_.Write("file", Pattern(600000));
  int seen = 0;
  for (int first = 1; first <= seen + 1; ++first) {
    unlink(target_.Path("file").c_str());
    bool done = false;
    {
      FailingAllocations failing(first);
      try {
        done = CopyFileEx("file") == SOCKET_FILE_COPY_DONE;
      } catch (const std::bad_alloc&) {
      }
      seen = failing.Seen();
    }
    Names names = NamesIn(target_.Path());
    EXPECT_TRUE(names == Names{"file"} || (!done && names.empty())) << first;
    EXPECT_TRUE(names.empty() || ReadWhole(target_.Path("file")) == Pattern(600000)) << first;
    ASSERT_EQ(client_.IsConnect(), 1) << first;
  }
  EXPECT_GT(seen, 10);
  client_.Close();  // an answer that could not be waited for may have opened a file there
  ExpectTarget({"file"});
}

TEST_P(Copies, TheListenerAndTheTimeEndACopyBetweenBlocks) {
  source_.Write("file", Pattern(3 * 0x80000));
  FaultPlan plan;
  for (bool by_time : {false, true}) {
    plan.FakeClock(kStart);
    Progress progress;
    progress.on_block = [&](std::uint64_t*) {
      if (by_time) plan.FakeClock(kStart + 30001 * kMillisecond);
      return by_time;
    };
    EXPECT_EQ(CopyFileEx("file", 0, &progress, 30000),
              by_time ? SOCKET_FILE_COPY_TIMEOUT : SOCKET_FILE_COPY_CANCELLED);
    EXPECT_EQ(progress.copied.size(), 1u);
    ExpectTarget({});
  }
}

TEST_P(Copies, TheListenerLimitsACopy) {
  source_.Write("file", Pattern(3 * 0x80000));
  FaultPlan plan;
  plan.FakeClock(kStart);
  Progress progress;
  progress.on_block = [](std::uint64_t* limit) {
    *limit = 1000000;
    return 0;  // not looked at without a result to tell it
  };
  EXPECT_EQ(CopyFile("file", &progress), 1);
  EXPECT_EQ(plan.Slept(), 2 * 524 * kMillisecond);
  ExpectWhole();
}

TEST_P(Copies, ACutConnectionLeavesNoPartUnderTheFinalName) {
  source_.Write("file", Pattern(3000000));
  for (std::uint64_t cut : {0, 600, 1100, 1800, 500000, 2990000}) {
    RelayOptions options;
    options.piece = 10000;
    (Down() ? options.cut_to_client : options.cut_to_server) = cut;
    SlowRelay relay(server_.GetServerPort(), options);
    CSocketFileClient client;
    client.Create("127.0.0.1", relay.Port(), "cut");
    auto copy = Down() ? SocketFileCopyFromServer : SocketFileCopyToServer;
    EXPECT_EQ(copy(&client, Source("file").c_str(), Target("file").c_str(), 0, nullptr, 0), 0)
        << cut;
    client.Close();
    EXPECT_FALSE(std::filesystem::exists(target_.Path("file"))) << cut;
    EXPECT_TRUE(!Down() || NamesIn(target_.Path()).empty()) << cut;
    EXPECT_TRUE(WaitForDescriptorsBelow(Down() ? source_.Path() : target_.Path(), 0));
  }
  FaultPlan plan;
  plan.Fail(Operation::kSend, 4, ECONNRESET);  // bytes of the file, or the answer with its size
  EXPECT_EQ(CopyFileEx("file"), SOCKET_FILE_COPY_DISCONNECTED);
  EXPECT_FALSE(std::filesystem::exists(target_.Path("file")));
  // A client that is closed already only fails to open.
  DebugLines log;
  client_.Close();
  EXPECT_EQ(CopyFileEx("file"), SOCKET_FILE_COPY_DISCONNECTED);
  EXPECT_EQ(CopyFolderEx(source_.Path(), target_.Path(), nullptr), 0);
  EXPECT_EQ(log.Count(2, "CSocketFileClient::OpenFile: SendData Failed\r\n"), 0);
  EXPECT_EQ(log.Count(2, "CSocketFileClient::GetFolderList: SendData Failed\r\n"), 0);
}

// A small tree with all that needs care; the names are in the system's own form.
class Trees : public Copies {
 protected:
  Trees() {
    std::filesystem::create_directories(source_.Path("deep/\xE4\xB8\xAD\xE6\x96\x87"));
    mkdir(source_.Path("none").c_str(), 0777);
    for (const char* name : {kChinese, "deep/back\\slash", "deep/two words", "deep/\xFF\xFEno text",
                             "deep/star*question?colon:", "plain"})
      source_.Write(name, std::string("content of ") + name);
    source_.Write("none/.hidden", "h");
    symlink("plain", source_.Path("link").c_str());
    symlink(outside_.Path().c_str(), source_.Path("linked folder").c_str());
    symlink("nowhere", source_.Path("dangling").c_str());
    mkfifo(source_.Path("fifo").c_str(), 0666);
    outside_.Write("outside", "outside");
  }

  TempFolder outside_;
};

INSTANTIATE_TEST_SUITE_P(BothWays, Trees, testing::Values(true, false), WayName);

TEST_P(Trees, ArriveWithEveryNameAndAReport) {
  CopyReport report;
  EXPECT_EQ(CopyFolderEx(source_.Path(), target_.Path(), &report), 0);
  EXPECT_EQ(report.done, 7);
  int unreadable = Down() ? SOCKET_FILE_COPY_REMOTE_OPEN : SOCKET_FILE_COPY_LOCAL_OPEN;
  Failures left_out = {{unreadable, "linked folder"}, {unreadable, "dangling"}};
  if (!Down()) {
    left_out.emplace(SOCKET_FILE_COPY_HIDDEN, ".hidden");
    left_out.emplace(SOCKET_FILE_COPY_SPECIAL, "fifo");
  }
  EXPECT_EQ(report.failed, left_out);
  EXPECT_FALSE(std::filesystem::is_symlink(target_.Path("link")));
  // All else has to be there, and nothing more.
  for (const char* name : {"linked folder", "dangling", "fifo", "none/.hidden"})
    unlink(source_.Path(name).c_str());
  ExpectWhole();
}

TEST_P(Trees, GoFolderByFolderAndNameBothSides) {
  Progress progress;
  auto copy = Down() ? SocketFolderCopyFromServer : SocketFolderCopyToServer;
  copy(&client_, Source("").c_str(), Target("").c_str(), 0, &progress, kUserData);
  ASSERT_EQ(progress.events.size(), 12u);
  auto position = [&](const std::string& event) {
    return std::find(progress.events.begin(), progress.events.end(), event) -
           progress.events.begin();
  };
  auto file = [&](const std::string& name) {
    std::string from = source_.Path(name), to = target_.Path(name);
    return position("file " + (Down() ? from + " " + to : to + " " + from));
  };
  EXPECT_LT(position("folder " + target_.Path("deep")), file("deep/two words"));
  EXPECT_LT(file(kChinese), file("deep/two words"));
  EXPECT_LT(file("deep/two words"), file("plain"));
  EXPECT_LT(position("folder " + target_.Path("none")), file("plain"));
  EXPECT_LT(file("plain"), 12);
}

TEST_P(Trees, ALongPathIsLeftOutAndNeverCut) {
  TempFolder source;
  std::string room(252 - target_.Path().size(), 'f');
  mkdir(target_.Path(room).c_str(), 0777);
  mkdir(source.Path("longer folder").c_str(), 0777);
  for (const char* name : {"short", "longer name", "longer folder/in"}) source.Write(name, "x");
  CopyReport report;
  EXPECT_EQ(CopyFolderEx(source.Path(), target_.Path(room), &report), 0);
  EXPECT_TRUE(NamesIn(target_.Path(room)).empty());
  EXPECT_EQ(report.done, 0);
  // The short one's temporary file has too long a path.
  EXPECT_EQ(report.failed, (Failures{{SOCKET_FILE_COPY_TOO_LONG, "longer folder"},
                                     {SOCKET_FILE_COPY_TOO_LONG, "longer name"},
                                     {SOCKET_FILE_COPY_TOO_LONG, "short"}}));
}

TEST_P(Trees, TheListenerEndsAFolderCopy) {
  Progress progress;
  progress.on_block = [&](std::uint64_t*) { return progress.copied.size() < 2; };
  CopyReport report;
  EXPECT_EQ(CopyFolderEx(source_.Path(), target_.Path(), &report, &progress), 0);
  EXPECT_EQ(progress.copied.size(), 2u);
  EXPECT_EQ(report.done, 2);
  EXPECT_EQ(client_.IsConnect(), 1);
  for (const auto& entry : std::filesystem::recursive_directory_iterator(target_.Path()))
    EXPECT_EQ(entry.path().filename().string().rfind("FileCopy_", 0), std::string::npos);
  EXPECT_TRUE(WaitForDescriptorsBelow(source_.Path(), 0));
}

// What a server that means harm, or a dying one, may answer.
class BadServer : public testing::Test {
 protected:
  int Download() {
    return SocketFileCopyFromServer(&client_, u"f", Library(target_.Path("f")).c_str(), 0, nullptr,
                                    0);
  }

  TempFolder target_;
  std::u16string names_;
  bool answers_size_ = true;
  ScriptedServer server_{[this](const RawPeer& peer, const Bytes& request) {
    auto bytes = static_cast<std::uint32_t>(names_.size() * 2);
    switch (CommandOf(request)) {
      case 11:
        return answers_size_ && AnswerWith(peer, request, U64(3));
      case 19:
        return AnswerWith(peer, request, U32(0) + U32(bytes) + Field(names_, names_.size()));
      default:
        return AnswerAsUsual(peer, request);
    }
  }};
  LoopbackClient client_{server_.Port()};
};

TEST_F(BadServer, ASizeThatNobodyAnswersMakesNoFile) {
  answers_size_ = false;
  EXPECT_EQ(Download(), 0);
  EXPECT_TRUE(NamesIn(target_.Path()).empty());
}

TEST_F(BadServer, NamesCannotLeaveTheFolder) {
  mkdir(target_.Path("in").c_str(), 0777);
  names_ = u"..;.;..\\up;../up;/up;C:up;good";
  CopyReport report;
  EXPECT_EQ(SocketFolderCopyFromServerEx(&client_, u"C:\\r", Library(target_.Path("in")).c_str(), 0,
                                         0, nullptr, &report, kUserData),
            0);
  EXPECT_EQ(NamesIn(target_.Path()), Names{"in"});
  EXPECT_EQ(NamesIn(target_.Path("in")), Names{"good"});
  EXPECT_EQ(report.failed.count({SOCKET_FILE_COPY_LOCAL_OPEN, "in"}), 6u);
}

// The close of the local temporary file is what tells of a full disk on some file systems.
TEST_F(BadServer, AFailedCloseFailsTheDownload) {
  FaultPlan plan;
  plan.Fail(Operation::kFileClose, 1, ENOSPC);
  EXPECT_EQ(Download(), 0);
  EXPECT_TRUE(NamesIn(target_.Path()).empty());
  EXPECT_EQ(Download(), 1);
  EXPECT_EQ(ReadWhole(target_.Path("f")), "abc");
}

}  // namespace
}  // namespace qvx::test
