// A program that runs once: the first instance holds a name, and a second one, which this program
// starts itself to show it, finds the name held and leaves.
#include <qvx/base_string.h>
#include <qvx/platform.h>
#include <qvx/process_util.h>

#include <cstdio>
#include <cstring>

namespace {

const char* const kName = "QVX single instance example";
constexpr unsigned int kSecond = 3;

int PrintOutput(void*, const char* text, unsigned int length) {
  std::printf("the second one says: %.*s", static_cast<int>(length), text);
  return 0;
}

int RunSecond() {
  if (CheckSingleInstanceA(kName) != 0) return 1;
  std::printf("somebody is here already, goodbye\n");
  return static_cast<int>(kSecond);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1 && std::strcmp(argv[1], "--second") == 0) return RunSecond();
  if (HoldInstanceName(kName) == 0) {
    std::printf("another instance runs\n");
    return 1;
  }
  std::printf("the first instance, written %s, holds the name\n", GetModuleLastWriteTimeA());
  unsigned int code = 0;
  const int ran = do_syscmd_A(&PrintOutput, nullptr, 0, &code, "'%s' --second", argv[0]);
  ReleaseInstanceName(kName);
  return ran != 0 && code == kSecond && CheckSingleInstanceA(kName) != 0 ? 0 : 1;
}
