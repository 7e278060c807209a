// Strings, a worker thread, an event, and the library's debug output in a sink of our own.
#include <qvx/base_string.h>
#include <qvx/base_thread.h>
#include <qvx/debug_output.h>
#include <qvx/sync.h>

#include <cstdio>
#include <cstring>

namespace {

// Does one portion of work for each call, until it returns 0.
class Counter : public IThreadFuncInterface {
 public:
  int ThreadLoop(std::uint64_t last) override {
    ++count_;
    DbgOutputA(2, "counted to %d\r\n", count_);
    if (static_cast<std::uint64_t>(count_) < last) return 1;
    done_.Set();
    return 0;
  }
  bool WaitUntilDone() { return done_.Wait(10000) != 0; }
  int Count() const { return count_; }

 private:
  int count_ = 0;
  CBaseEvent done_;
};

// Runs on the thread that logs, one call at a time in the whole process. Threads log, too.
int PrintLine(void* context, int level, const char* line, int length) {
  std::printf("level %d: %.*s", level, length, line);
  if (std::strstr(line, "counted") != nullptr) ++*static_cast<int*>(context);
  return 0;
}

}  // namespace

int main() {
  int lines = 0;
  DbgOutputAddCallback(&PrintLine, &lines);
  DbgOutputSetIncludePIDTID(0);

  Counter counter;
  CBaseThread thread;
  thread.StartThread("Counter", &counter, 3, 0, 0, 0);
  const bool done = counter.WaitUntilDone();
  thread.StopThread();
  DbgOutputDelCallback(&PrintLine);

  CBaseStringW text;
  text.Format(u"%d lines for a count of %d, told by %S", lines, counter.Count(), "a narrow text");
  const CBaseStringA narrow(&text);
  std::printf("%s\n", narrow.GetString());
  return done && lines == 3 && narrow.Equal("3 lines for a count of 3, told by a narrow text") == 1
             ? 0
             : 1;
}
