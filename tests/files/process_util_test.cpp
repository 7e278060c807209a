#include "qvx/process_util.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <utility>

#include "files/library_path.h"
#include "files/pe_file.h"
#include "files/version_block.h"
#include "platform/process.h"
#include "qvx/platform.h"
#include "qvx/ptr_array.h"
#include "support/debug_lines.h"
#include "support/fault_plan.h"
#include "support/fork_child.h"
#include "support/temp_folder.h"

namespace qvx::test {
namespace {

// A sleeping process whose program is a copy with a name of the test's own.
class Sleeper {
 public:
  explicit Sleeper(std::string path) : path_(std::move(path)) {
    std::filesystem::copy_file("/bin/sleep", path_,
                               std::filesystem::copy_options::overwrite_existing);
    std::string seconds = "1000";
    char* const arguments[] = {path_.data(), seconds.data(), nullptr};
    EXPECT_EQ(0, posix_spawn(&child_, path_.c_str(), nullptr, nullptr, arguments, environ));
  }
  ~Sleeper() {
    if (child_ > 0) kill(child_, SIGKILL);
    WaitForSignal();
  }
  Sleeper(const Sleeper&) = delete;
  Sleeper& operator=(const Sleeper&) = delete;
  unsigned Id() const { return static_cast<unsigned>(child_); }
  // The signal that ended it.
  int WaitForSignal() {
    int status = 0;
    if (child_ > 0) waitpid(std::exchange(child_, -1), &status, 0);
    return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
  }

 private:
  std::string path_;
  pid_t child_ = -1;
};

using Ids = std::set<unsigned>;

Ids IdsOf(const std::string& name, int full_path) {
  CPtrArrayCtrl list;
  GetPidListByNameA(name.c_str(), full_path, &list);
  Ids ids;
  for (int i = 0; i < list.GetCount(); ++i) {
    ids.insert(static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(list.GetAt(i))));
  }
  return ids;
}

struct Ran {
  int result = 0;
  unsigned code = 12345;
  std::string text;
  unsigned blocks = 0;
};

int Collect(void* context, const char* text, unsigned length) {
  EXPECT_TRUE(text[length] == '\0' && length > 0 && length <= 4095);
  auto& ran = *static_cast<Ran*>(context);
  ran.text.append(text, length);
  ++ran.blocks;
  return 0;
}

Ran RunCommand(const std::string& command, bool shell) {
  Ran ran;
  ran.result = do_syscmd_A(&Collect, &ran, shell, &ran.code, "%s", command.c_str());
  return ran;
}

TEST(Processes, AreFoundNamedAndEnded) {
  const TempFolder folder;
  const std::string name = "Qvx) S 1 ((test " + std::to_string(getpid());
  Sleeper sleeper(folder.Path(name));
  EXPECT_EQ(static_cast<unsigned>(getpid()), GetParentProcessID(sleeper.Id()));
  EXPECT_EQ(static_cast<unsigned>(getppid()), GetParentProcessID(static_cast<unsigned>(getpid())));
  const std::string path = Library<char>(folder.Path(name));
  std::string upper = name;
  for (char& c : upper) c = static_cast<char>(toupper(c));
  // With its program there, and after that was deleted.
  for (int round = 0; round < 2; ++round) {
    char text[260];
    WCHAR wide[260];
    EXPECT_NE(0, GetProgramNameA(sleeper.Id(), 1, text));
    EXPECT_EQ(path, text);
    EXPECT_NE(0, GetProgramNameW(sleeper.Id(), 0, wide));
    EXPECT_EQ(WideText(name), wide);
    EXPECT_NE(0, GetProgramPathA(sleeper.Id(), text));
    EXPECT_EQ(Library<char>(folder.Path()), text);
    EXPECT_NE(0, GetProgramPathW(sleeper.Id(), wide));
    EXPECT_EQ(Library<char16_t>(folder.Path()), wide);
    EXPECT_EQ(Ids{sleeper.Id()}, IdsOf(upper, 0));
    EXPECT_EQ(Ids{sleeper.Id()}, IdsOf(path, 1));
    EXPECT_EQ(Ids{}, IdsOf(name, 1));
    std::filesystem::remove(folder.Path(name));
  }

  // A second one with the same name, and one that must go on.
  Sleeper again(folder.Path(name));
  Sleeper other(folder.Path(name + "b"));
  const DebugLines lines;
  KillPidByNameA(upper.c_str(), 0);
  EXPECT_EQ(SIGKILL, sleeper.WaitForSignal());
  EXPECT_EQ(SIGKILL, again.WaitForSignal());
  EXPECT_EQ(2u, lines.All().size());
  const unsigned id = other.Id();
  // The number of a process that came later: the question before the end tells them apart.
  EXPECT_FALSE(platform::EndProcess(id, [](std::uint32_t) { return false; }));
  EXPECT_NE(0, GetProgramNameA(id, 0, nullptr));
  CPtrArrayCtrl list;
  GetPidListByNameW(WideText(name + "b").c_str(), 0, &list);
  EXPECT_EQ(1, list.GetCount());
  KillPidByNameW(WideText(name + "b").c_str(), 0);
  EXPECT_EQ(1,
            lines.Count(2, "KillPidByName " + name + "b, pid=" + std::to_string(id) + "...\r\n"));
  EXPECT_EQ(SIGKILL, other.WaitForSignal());
  EXPECT_EQ(0xFFFFFFFFu, GetParentProcessID(id));
  EXPECT_EQ(0, GetProgramNameA(id, 0, nullptr));
  EXPECT_EQ(Ids{}, IdsOf(name, 0));
}

// What ps tells, in lines "parent program" by process.
std::map<unsigned, std::string> LookedAtByPs() {
  std::istringstream lines(RunCommand("ps -ww -eo pid=,ppid=,exe=", false).text);
  std::map<unsigned, std::string> processes;
  unsigned id = 0;
  unsigned parent = 0;
  for (std::string program; lines >> id >> parent >> std::ws && std::getline(lines, program);) {
    if (program.ends_with(" (deleted)")) program.resize(program.size() - 10);
    processes[id] = std::to_string(parent) + " " + (program == "-" ? "" : Library<char>(program));
  }
  return processes;
}

std::map<unsigned, std::string> LookedAtByUs(const std::map<unsigned, std::string>& processes) {
  std::map<unsigned, std::string> answers;
  for (const auto& [id, line] : processes) {
    char program[260] = "";
    GetProgramNameA(id, 1, program);
    answers[id] = std::to_string(GetParentProcessID(id)) + " " + program;
  }
  return answers;
}

// Kernel threads and processes that come and go included.
TEST(Processes, AreWhatPsTells) {
  std::atomic<bool> stop{false};
  std::thread coming_and_going([&] {
    while (!stop) RunCommand("true", false);
  });
  const auto before = LookedAtByPs();
  const auto ours = LookedAtByUs(before);
  std::map<std::string, Ids> listed;
  for (const auto& [id, line] : ours) {
    const std::size_t cut = line.rfind('\\');
    if (cut != std::string::npos) listed[line.substr(cut)].merge(IdsOf(line.substr(cut + 1), 0));
  }
  auto after = LookedAtByPs();
  stop = true;
  coming_and_going.join();

  ASSERT_EQ(1u, before.count(static_cast<unsigned>(getpid())));
  for (const auto& [id, line] : before) {
    if (after[id] != line) continue;
    EXPECT_EQ(line, ours.at(id)) << id;
    for (const auto& [name, ids] : listed)
      EXPECT_EQ(line.ends_with(name), ids.count(id) != 0) << id << " " << name;
  }
}

TEST(Processes, ThatCannotBeLookedAt) {
  char text[260] = "as before";
  WCHAR wide[260];
  for (const unsigned id : {0u, 0xFFFFFFFFu, 0x7FFFFFFFu}) {
    EXPECT_EQ(0xFFFFFFFFu, GetParentProcessID(id));
    EXPECT_EQ(0, GetProgramNameA(id, 1, text));
    EXPECT_EQ(0, GetProgramPathW(id, wide));
  }
  // The kernel's own threads, where they are to be seen.
  EXPECT_TRUE(GetParentProcessID(2) != 0 || GetProgramNameA(2, 1, text) == 0);
  EXPECT_STREQ("as before", text);
  CPtrArrayCtrl list;
  GetPidListByNameA("", 0, &list);
  GetPidListByNameA(nullptr, 0, &list);
  GetPidListByNameA("x", 0, nullptr);
  EXPECT_TRUE(list.IsEmpty());
}

TEST(Versions, OfPeFiles) {
  const TempFolder folder;
  const std::u16string version = u"1.2.3.4 beta";
  const struct {
    std::string bytes;
    int result;
    const char* text;
  } files[] = {{PeFile(version), 1, "1.2.3.4 beta"},
               {PeFile(version, {.is_64 = false, .name_id = 7}), 1, "1.2.3.4 beta"},
               {PeFile(version, {.version_key = u"FileVersions"}), 1, ""},
               {PeFile(version, {.has_translation = false}), 0, "?"},
               {"MZ", 0, "?"},
               {"", 0, "?"}};
  for (const auto& file : files) {
    const std::string path = Library<char>(folder.Write("file", file.bytes));
    char text[32] = "?";
    WCHAR wide[32] = u"?";
    EXPECT_EQ(file.result, GetFileVersionA(path.c_str(), text, sizeof(text)));
    EXPECT_STREQ(file.text, text);
    EXPECT_EQ(file.result, GetFileVersionW(WideText(path).c_str(), wide, 32));
    EXPECT_EQ(WideText(file.text), wide);
  }
  const std::string path = Library<char>(folder.Write("file", files[0].bytes));
  char text[6] = "?????";
  EXPECT_EQ(1, GetFileVersionA(path.c_str(), text, 4));
  EXPECT_STREQ("1.2", text);
  EXPECT_EQ('?', text[4]);
  EXPECT_EQ(1, GetFileVersionA(path.c_str(), text, 0));
  EXPECT_EQ(1, GetFileVersionA(path.c_str(), nullptr, 9));
  EXPECT_EQ(0, GetFileVersionA(nullptr, text, 4));
  EXPECT_EQ(0, GetFileVersionW(u"C:\\no such file", nullptr, 0));
}

TEST(Versions, OfTruncatedAndChangedFiles) {
  const std::string whole = PeFile(u"9.8.7");
  std::mt19937 random(94);
  const auto look = [](const std::string& bytes) {
    return files::FileVersionOf([&](std::uint64_t offset, void* out, std::size_t size) {
      if (offset > bytes.size() || size > bytes.size() - offset) return false;
      std::memcpy(out, bytes.data() + offset, size);
      return true;
    });
  };
  ASSERT_EQ(u"9.8.7", look(whole).value_or(u""));
  for (std::size_t size = 0; size < whole.size(); ++size) {
    EXPECT_EQ(std::nullopt, look(whole.substr(0, size))) << size;
  }
  for (int round = 0; round < 3000; ++round) {
    std::string changed = whole;
    for (int i = 0; i < 3; ++i) changed[random() % changed.size()] = static_cast<char>(random());
    look(changed);
  }
}

TEST(SingleInstance, IsHeldByOneProcess) {
  const TempFolder folder;
  setenv("XDG_RUNTIME_DIR", folder.Path().c_str(), 1);
  const std::string text = "Global\\a/b \xC3\xA4" + std::string(300, 'n');
  const std::u16string wide_text = WideText(text);
  const char* name = text.c_str();
  const WCHAR* wide = wide_text.c_str();
  EXPECT_EQ(1, CheckSingleInstanceA(name));
  EXPECT_TRUE(std::filesystem::is_empty(folder.Path()));

  int ready[2];
  ASSERT_EQ(0, pipe(ready));
  const pid_t child = Fork();
  if (child == 0) {
    const char held = static_cast<char>('0' + HoldInstanceNameW(wide));
    if (write(ready[1], &held, 1) == 1) pause();
    _exit(0);
  }
  char held = 0;
  ASSERT_EQ(1, read(ready[0], &held, 1));
  EXPECT_EQ('1', held);
  EXPECT_EQ(0, CheckSingleInstanceA(name));
  EXPECT_EQ(0, CheckSingleInstanceW(wide));
  EXPECT_EQ(0, HoldInstanceName(name));
  EXPECT_EQ(0, ReleaseInstanceName(name));
  EXPECT_EQ(1, CheckSingleInstanceA("another"));
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  close(ready[0]);
  close(ready[1]);
  EXPECT_EQ(1, CheckSingleInstanceA(name));

  EXPECT_EQ(1, HoldInstanceName(name));
  EXPECT_EQ(0, HoldInstanceName(name));
  EXPECT_EQ(0, CheckSingleInstanceA(name));
  EXPECT_EQ(1, ReleaseInstanceNameW(wide));
  EXPECT_EQ(1, CheckSingleInstanceA(name));
  EXPECT_TRUE(std::filesystem::is_empty(folder.Path()));
  EXPECT_EQ(1, CheckSingleInstanceA(nullptr));
  EXPECT_EQ(0, HoldInstanceName(""));

  // No rights to look counts as held, any other failure as free.
  for (const int error : {EACCES, EMFILE}) {
    FaultPlan plan;
    plan.Fail(platform::Operation::kFileOpen, 1, error);
    EXPECT_EQ(error == EACCES ? 0 : 1, CheckSingleInstanceA(name));
  }
  unsetenv("XDG_RUNTIME_DIR");
}

TEST(Commands, PassTheirOutputOn) {
  const struct {
    const char* command;
    bool shell;
    unsigned code;
    const char* text;
  } cases[] = {{"printf [%s] a \"b c\" d\\ e '' 'f\"\\' \"g\\\\'\\\"\\n\"", false, 0,
                "[a][b c][d e][][f\"\\][g\\'\"\\n]"},
               {"echo out; echo err >&2; exit 7", true, 7, "out\nerr\n"},
               {"exec >&- 2>&-; exit 9", true, 9, ""},
               {"kill -9 $$", true, 128 + 9, ""},
               {"(read line; echo late $line) <<- end & exit 3\n8\nend\n", true, 3, "late 8\n"},
               {"false", false, 1, ""}};
  for (const auto& one : cases) {
    const Ran ran = RunCommand(one.command, one.shell);
    EXPECT_EQ(1, ran.result) << one.command;
    EXPECT_EQ(one.code, ran.code) << one.command;
    EXPECT_EQ(one.text, ran.text) << one.command;
  }
  const DebugLines lines;
  Ran wide;
  EXPECT_EQ(1, do_syscmd_W(&Collect, &wide, 1, &wide.code, u"head -c %d /dev/zero | tr '\\0' %ls",
                           300000, u"x"));
  EXPECT_EQ(std::string(300000, 'x'), wide.text);
  EXPECT_GT(wide.blocks, 70u);
  EXPECT_EQ(0u, wide.code);
  EXPECT_EQ(1, lines.Count(2, "Call cmd:head -c 300000 /dev/zero | tr '\\0' x\r\n"));
}

TEST(Commands, WithoutACallbackEndWithTheChild) {
  const TempFolder folder;
  unsigned code = 0;
  EXPECT_EQ(1, do_syscmd_A(nullptr, nullptr, 1, &code,
                           "head -c 300000 /dev/zero; sleep 1000 & echo $! > '%s'; exit 5",
                           folder.Path("left_behind").c_str()));
  EXPECT_EQ(5u, code);
  const pid_t left_behind = std::stoi(ReadWhole(folder.Path("left_behind")));
  EXPECT_EQ(0, kill(left_behind, SIGKILL));
  EXPECT_EQ(1, do_syscmd_A(nullptr, nullptr, 1, nullptr, "exit 1"));
}

TEST(Commands, ThatCannotBeStarted) {
  const DebugLines lines;
  for (const char* command : {"/no/such/program x", "unset x", "", "  ", "/"}) {
    const Ran ran = RunCommand(command, false);
    EXPECT_EQ(0, ran.result) << command;
    EXPECT_EQ(12345u, ran.code);
    EXPECT_EQ(0u, ran.blocks);
  }
  EXPECT_EQ(5, lines.Count(2, "CreateProcess Failed!"));
  EXPECT_EQ(0, do_syscmd_A(&Collect, nullptr, 0, nullptr, nullptr));
  FaultPlan plan;
  plan.Fail(platform::Operation::kFork, 1, EAGAIN);
  EXPECT_EQ(0, RunCommand("true", false).result);
}

// Descriptors that the host leaves open for its children, and signals that it blocks or ignores.
TEST(Commands, GetNothingOfTheHostsBeyondTheStandard) {
  const int descriptor = dup2(STDERR_FILENO, 77);
  const Ran listed = RunCommand("ls /proc/self/fd", false);
  EXPECT_EQ("0\n1\n2\n3\n", listed.text);  // 3 is the list's own
  close(descriptor);

  sigset_t blocked;
  sigset_t before;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGUSR1);
  pthread_sigmask(SIG_BLOCK, &blocked, &before);
  const sighandler_t handler = signal(SIGUSR2, SIG_IGN);
  const std::string status = RunCommand("cat /proc/self/status", false).text;
  const auto signals = [&status](const std::string& name) {
    return std::stoull(status.substr(status.find(name) + name.size()), nullptr, 16);
  };
  EXPECT_EQ(0u, signals("SigBlk:"));
  // The C library keeps two signals of its own from new processes.
  EXPECT_EQ(0u, signals("SigIgn:") & ~0x180000000u);
  signal(SIGUSR2, handler);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

TEST(Module, TellsWhenItWasWritten) {
  struct stat status {};
  ASSERT_EQ(0, stat("/proc/self/exe", &status));
  char expected[32];
  tm local{};
  localtime_r(&status.st_mtime, &local);
  strftime(expected, sizeof(expected), "%Y/%m/%d_%H:%M:%S", &local);
  EXPECT_STREQ(expected, GetModuleLastWriteTimeA());
  FaultPlan plan;
  plan.Fail(platform::Operation::kFileOpen, 1, EMFILE);
  EXPECT_STREQ("", GetModuleLastWriteTimeA());
}

}  // namespace
}  // namespace qvx::test
