#include <qvx/debug_output.h>

#include <gtest/gtest.h>
#include <qvx/delay_message.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <mutex>
#include <new>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/failing_new.h"
#include "support/fault_plan.h"
#include "support/fork_child.h"

namespace {

using Lines = std::vector<std::pair<int, std::string>>;

int Collect(void* context, int level, const char* line, int length) {
  static_cast<Lines*>(context)->emplace_back(level, std::string(line));
  EXPECT_EQ(static_cast<int>(std::string(line).size()), length);
  return 0;
}

// Starts from plain lines to the callbacks alone, and leaves the settings of load.
class DebugOutput : public testing::Test {
 protected:
  DebugOutput() {
    gDelayPostMsgEngine.Stop();  // its thread may still have its first line to log
    DbgOutputSetDisplayType(5);
    DbgOutputSetTag(0, nullptr);
    DbgOutputSetTimeType(2);
    DbgOutputSetIncludePIDTID(0);
    DbgOutputAddCallback(&Collect, &lines_);
  }
  ~DebugOutput() override {
    DbgOutputDelAllCallback();
    DbgOutputSetTag(1, "QVXM_LOG");
    DbgOutputSetDisplayType(0);
    DbgOutputSetTimeType(0);
    DbgOutputSetIncludePIDTID(1);
    gDelayPostMsgEngine.Start();
  }

  std::string Last() const { return lines_.empty() ? "none" : lines_.back().second; }

  Lines lines_;
};

// A number right-aligned in five columns, as the line shows it.
std::string Column(int number) {
  const std::string text = std::to_string(number);
  return std::string(text.size() < 5 ? 5 - text.size() : 0, ' ') + text;
}

TEST_F(DebugOutput, WritesTheGoldenLine) {
  setenv("TZ", "UTC", 1);
  tzset();
  qvx::test::FaultPlan plan;
  plan.FakeClock(1706691907'008'000'000);
  DbgOutputSetTag(1, "QVXM_LOG");
  DbgOutputSetIncludePIDTID(1);
  DbgOutputSetTimeType(0);
  DbgOutputA(2, "started");
  const std::string ids = "(pid:" + Column(getpid()) + ", lwp:" + Column(gettid()) + ") ";
  EXPECT_EQ(Last(), "QVXM_LOG 09:05:07.008 " + ids + "[I]=> started");
  DbgOutputSetIncludePIDTID(0);
  DbgOutputSetTimeType(1);
  DbgOutputW(4, u"%s %d\r\n", u"wide", 7);
  EXPECT_EQ(Last(), "QVXM_LOG 2024/01/31 09:05:07.008 [E]=> wide 7\r\n");
  DbgOutputSetTimeType(9);
  DbgOutputA(3, "%s", "text");
  EXPECT_EQ(Last(), "QVXM_LOG [W]=> text");
  const int reads = plan.Calls(qvx::platform::Operation::kClock);
  DbgOutputSetTimeType(2);
  DbgOutputSetTag(0, nullptr);
  DbgOutputA(3, "text");
  EXPECT_EQ(Last(), "[W]=> text");
  EXPECT_EQ(plan.Calls(qvx::platform::Operation::kClock), reads) << "the clock is not read";
}

TEST_F(DebugOutput, KeepsTheTag) {
  DbgOutputSetTag(0, std::string(200, 't').c_str());
  DbgOutputA(1, "x");
  EXPECT_EQ(Last(), "[D]=> x");
  DbgOutputSetTag(1, std::string(200, 't').c_str());
  DbgOutputA(1, "x");
  EXPECT_EQ(Last(), std::string(127, 't') + " [D]=> x");
  DbgOutputSetTag(1, nullptr);
  DbgOutputA(0, "x");
  EXPECT_EQ(Last(), " [ ]=> x");
  DbgOutputA(7, "x");
  DbgOutputA(-1, "x");
  EXPECT_EQ(Last(), " [?]=> x");
}

TEST_F(DebugOutput, TakesAnyMessage) {
  const std::string message(5000, 'm');
  DbgOutputA(2, "%s", message.c_str());
  EXPECT_EQ(Last(), "[I]=> " + message);
  DbgOutputW(2, u"%S", message.c_str());
  EXPECT_EQ(Last(), "[I]=> " + message);
  DbgOutputW(2, u"%s", u"");
  EXPECT_EQ(Last(), "[I]=> ");
  DbgOutputW(2, u"\u4e2d\u6587");
  EXPECT_EQ(Last(), "[I]=> ") << "beyond two bytes a unit";
  DbgOutputW(2, u"name: \u4e2d\u6587");
  EXPECT_EQ(Last(), "[I]=> name: \xE4\xB8\xAD\xE6\x96\x87");
  const char* wrong = "kept %d then %";
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  DbgOutputA(2, wrong, 12);
  EXPECT_EQ(Last(), "[I]=> kept 12 then ");
  DbgOutputA(2, "a%cb", '\0');
  EXPECT_EQ(Last(), "[I]=> a") << "a line is a plain C text";
  const char* error = "%m";
  errno = ENOTDIR;
  DbgOutputA(2, error, 0);
#pragma GCC diagnostic pop
  EXPECT_EQ(Last(), "[I]=> Not a directory");
  EXPECT_EQ(errno, ENOTDIR);
}

TEST_F(DebugOutput, WritesToTheChosenSink) {
  testing::internal::CaptureStdout();
  DbgOutputSetDisplayType(1);
  DbgOutputA(2, "100%% %s\r\n", "%s");
  DbgOutputSetDisplayType(0);
  DbgOutputA(2, "debugger");
  DbgOutputSetDisplayType(-3);
  DbgOutputA(2, "callbacks");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "[I]=> 100% %s\r\n");
  EXPECT_EQ(lines_.size(), 3u) << "callbacks get every line";
}

TEST_F(DebugOutput, PassesAnAllocationFailureOn) {
  for (int nth = 1; nth <= 2; ++nth) {
    const qvx::test::FailingAllocations failing(nth);
    EXPECT_THROW(DbgOutputA(2, "%2000d", 1), std::bad_alloc);
  }
  EXPECT_TRUE(lines_.empty());
  DbgOutputA(2, "again");
  EXPECT_EQ(Last(), "[I]=> again");
}

// Callbacks that note who was called; the number makes them different functions.
std::string calls;

template <int kNumber>
int Note(void* context, int, const char*, int) {
  calls += std::to_string(kNumber) + static_cast<const char*>(context) + " ";
  return 0;
}

int DeleteSelf(void*, int, const char*, int) {
  calls += "self ";
  DbgOutputDelCallback(&DeleteSelf);
  return 1;
}

int DeleteAll(void*, int, const char*, int) {
  calls += "all ";
  DbgOutputDelAllCallback();
  return 1;
}

int AddLast(void*, int, const char*, int) {
  calls += "add ";
  DbgOutputAddCallback(&Note<9>, const_cast<char*>(""));
  return 1;
}

std::string CallsOfOneLine() {
  calls.clear();
  DbgOutputA(2, "line");
  return calls;
}

TEST_F(DebugOutput, RunsCallbacksInOrder) {
  DbgOutputDelAllCallback();
  char a[] = "a";
  char b[] = "b";
  DbgOutputAddCallback(nullptr, a);
  DbgOutputAddCallback(&Note<1>, a);
  DbgOutputAddCallback(&Note<2>, a);
  DbgOutputAddCallback(&Note<1>, b);
  EXPECT_EQ(CallsOfOneLine(), "1b 2a ") << "one record, the second context, the first place";
  DbgOutputDelCallback(&Note<3>);
  DbgOutputDelCallback(nullptr);
  DbgOutputAddCallback(&DeleteSelf, nullptr);
  DbgOutputAddCallback(&Note<3>, a);
  DbgOutputAddCallback(&Note<4>, a);
  EXPECT_EQ(CallsOfOneLine(), "1b 2a self 4a ") << "the one that moved up misses the line";
  EXPECT_EQ(CallsOfOneLine(), "1b 2a 3a 4a ");
  DbgOutputDelCallback(&Note<2>);
  DbgOutputAddCallback(&AddLast, nullptr);
  EXPECT_EQ(CallsOfOneLine(), "1b 3a 4a add ") << "a new one begins with the next line";
  EXPECT_EQ(CallsOfOneLine(), "1b 3a 4a add 9 ");
  DbgOutputAddCallback(&DeleteAll, nullptr);
  EXPECT_EQ(CallsOfOneLine(), "1b 3a 4a add 9 all ");
  EXPECT_EQ(CallsOfOneLine(), "");
}

struct NestedLog {
  int plain = 0;  // guarded by the callback lock alone
  int nested = 0;
};

int LogAgain(void* context, int level, const char*, int) {
  auto* log = static_cast<NestedLog*>(context);
  if (level == 1) {
    ++log->nested;
    return 0;
  }
  ++log->plain;
  DbgOutputA(1, "nested %d", log->plain);
  return 0;
}

TEST_F(DebugOutput, LogsFromEightThreadsThroughACallbackThatLogs) {
  DbgOutputDelAllCallback();
  NestedLog log;
  DbgOutputAddCallback(&LogAgain, &log);
  std::vector<std::thread> threads;
  threads.reserve(8);
  for (int thread = 0; thread < 8; ++thread) {
    threads.emplace_back([thread] {
      for (int i = 0; i < 250; ++i) {
        DbgOutputA(2, "thread %d line %d", thread, i);
        if (i % 50 == 0) DbgOutputSetTag(thread % 2, thread % 2 == 0 ? "even" : "odd");
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  DbgOutputDelAllCallback();
  EXPECT_EQ(log.plain, 2000);
  EXPECT_EQ(log.nested, 2000);
}

std::atomic<int> child_lines{0};

int CountLine(void*, int, const char*, int) {
  ++child_lines;
  return 0;
}

TEST_F(DebugOutput, GoesOnInAForkedChild) {
  QVX_FORKS_BUSY_THREADS();
  DbgOutputDelAllCallback();
  DbgOutputAddCallback(&CountLine, nullptr);
  std::atomic<bool> stop{false};
  std::thread busy([&stop] {
    while (!stop) DbgOutputA(2, "busy");
  });
  for (int round = 0; round < 20; ++round) {
    EXPECT_TRUE(qvx::test::HoldsInChild([] {
      const int before = child_lines;
      DbgOutputA(2, "child");
      return child_lines == before + 1;
    }));
  }
  stop = true;
  busy.join();
}

}  // namespace
