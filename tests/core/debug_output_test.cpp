#include <qvx/debug_output.h>

#include <gtest/gtest.h>
#include <qvx/delay_message.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <new>
#include <string>
#include <vector>

#include "core/threads.h"
#include "support/failing_new.h"
#include "support/fault_plan.h"
#include "support/fork_child.h"

// Some formats are wrong on purpose.
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"

namespace qvx::test {
namespace {

int Collect(void* context, int, const char* line, int length) {
  static_cast<std::vector<std::string>*>(context)->emplace_back(line);
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

  // The line that a call makes.
  template <typename... Values>
  std::string Line(int level, const char* format, Values... values) {
    DbgOutputA(level, format, values...);
    return lines_.empty() ? "none" : lines_.back();
  }
  template <typename... Values>
  std::string Line(int level, const WCHAR* format, Values... values) {
    DbgOutputW(level, format, values...);
    return lines_.empty() ? "none" : lines_.back();
  }

  std::vector<std::string> lines_;
};

TEST_F(DebugOutput, WritesTheGoldenLine) {
  setenv("TZ", "UTC", 1);
  tzset();
  FaultPlan plan;
  plan.FakeClock(1706691907'008'000'000);
  DbgOutputSetTag(1, "QVXM_LOG");
  DbgOutputSetIncludePIDTID(1);
  DbgOutputSetTimeType(0);
  char ids[64];
  snprintf(ids, sizeof(ids), "(pid:%5d, lwp:%5d) ", getpid(), gettid());
  EXPECT_EQ(Line(2, "started"), std::string("QVXM_LOG 09:05:07.008 ") + ids + "[I]=> started");
  DbgOutputSetIncludePIDTID(0);
  DbgOutputSetTimeType(1);
  EXPECT_EQ(Line(4, u"%s %d\r\n", u"wide", 7), "QVXM_LOG 2024/01/31 09:05:07.008 [E]=> wide 7\r\n");
  DbgOutputSetTimeType(9);
  EXPECT_EQ(Line(3, "%s", "text"), "QVXM_LOG [W]=> text");
  const int reads = plan.Calls(platform::Operation::kClock);
  DbgOutputSetTimeType(2);
  DbgOutputSetTag(0, nullptr);
  EXPECT_EQ(Line(3, "text"), "[W]=> text");
  EXPECT_EQ(plan.Calls(platform::Operation::kClock), reads) << "the clock is not read";
}

TEST_F(DebugOutput, KeepsTheTag) {
  const std::string tag(200, 't');
  DbgOutputSetTag(0, tag.c_str());
  EXPECT_EQ(Line(1, "x"), "[D]=> x");
  DbgOutputSetTag(1, tag.c_str());
  EXPECT_EQ(Line(1, "x"), tag.substr(0, 127) + " [D]=> x");
  DbgOutputSetTag(1, nullptr);
  EXPECT_EQ(Line(0, "x"), " [ ]=> x");
  EXPECT_EQ(Line(7, "x"), " [?]=> x");
  EXPECT_EQ(Line(-1, "x"), " [?]=> x");
}

TEST_F(DebugOutput, TakesAnyMessage) {
  const std::string message(5000, 'm');
  EXPECT_EQ(Line(2, "%s", message.c_str()), "[I]=> " + message);
  EXPECT_EQ(Line(2, u"%S", message.c_str()), "[I]=> " + message);
  EXPECT_EQ(Line(2, u"%s", u""), "[I]=> ");
  EXPECT_EQ(Line(2, u"\u4e2d\u6587"), "[I]=> ") << "beyond two bytes a unit";
  EXPECT_EQ(Line(2, u"name: \u4e2d\u6587"), "[I]=> name: \xE4\xB8\xAD\xE6\x96\x87");
  EXPECT_EQ(Line(2, "kept %d then %", 12), "[I]=> kept 12 then ");
  EXPECT_EQ(Line(2, "a%cb", '\0'), "[I]=> a") << "a line is a plain C text";
  errno = ENOTDIR;
  EXPECT_EQ(Line(2, "%m", 0), "[I]=> Not a directory");
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
    const FailingAllocations failing(nth);
    EXPECT_THROW(DbgOutputA(2, "%2000d", 1), std::bad_alloc);
  }
  EXPECT_TRUE(lines_.empty());
  EXPECT_EQ(Line(2, "again"), "[I]=> again");
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
  const auto add_last = [](void*, int, const char*, int) {
    calls += "add ";
    DbgOutputAddCallback(&Note<9>, const_cast<char*>(""));
    return 1;
  };
  DbgOutputAddCallback(add_last, nullptr);
  EXPECT_EQ(CallsOfOneLine(), "1b 3a 4a add ") << "a new one begins with the next line";
  EXPECT_EQ(CallsOfOneLine(), "1b 3a 4a add 9 ");
  const auto delete_all = [](void*, int, const char*, int) {
    calls += "all ";
    DbgOutputDelAllCallback();
    return 1;
  };
  DbgOutputAddCallback(delete_all, nullptr);
  EXPECT_EQ(CallsOfOneLine(), "1b 3a 4a add 9 all ");
  EXPECT_EQ(CallsOfOneLine(), "");
}

TEST_F(DebugOutput, LogsFromEightThreadsThroughACallbackThatLogs) {
  DbgOutputDelAllCallback();
  int lines[3] = {};  // by level; guarded by the callback lock alone
  const auto log_again = [](void* context, int level, const char*, int) {
    ++static_cast<int*>(context)[level];
    if (level == 2) DbgOutputA(1, "nested");
    return 0;
  };
  DbgOutputAddCallback(log_again, lines);
  RunOnThreads(8, [](int thread) {
    for (int i = 0; i < 250; ++i) {
      DbgOutputA(2, "thread %d line %d", thread, i);
      if (i % 50 == 0) DbgOutputSetTag(thread % 2, thread % 2 == 0 ? "even" : "odd");
    }
  });
  DbgOutputDelAllCallback();
  EXPECT_EQ(lines[2], 2000);
  EXPECT_EQ(lines[1], 2000);
}

TEST_F(DebugOutput, GoesOnInAForkedChild) {
  QVX_FORKS_BUSY_THREADS();
  DbgOutputDelAllCallback();
  std::atomic<int> lines{0};
  const auto count = [](void* context, int, const char*, int) {
    return ++*static_cast<std::atomic<int>*>(context);
  };
  DbgOutputAddCallback(count, &lines);
  const Busy busy([] { DbgOutputA(2, "busy"); });
  for (int round = 0; round < 20; ++round) {
    EXPECT_TRUE(HoldsInChild([&lines] {
      const int before = lines;
      DbgOutputA(2, "child");
      return lines == before + 1;
    }));
  }
}

}  // namespace
}  // namespace qvx::test
