#include "support/small_disk.h"

#include <sched.h>
#include <sys/mount.h>

#include <exception>
#include <fstream>

#include "support/fork_child.h"
#include "support/temp_folder.h"

namespace qvx::test {
namespace {

bool MountSmallDisk(const std::string& folder, int kibibytes) {
  if (unshare(CLONE_NEWNS) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return false;
  if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return false;
  const std::string options = "size=" + std::to_string(kibibytes) + "k";
  return mount("none", folder.c_str(), "tmpfs", 0, options.c_str()) == 0;
}

}  // namespace

std::string OnSmallDisk(int kibibytes, const std::function<std::string(const std::string&)>& body) {
  const TempFolder disk;
  const TempFolder told;
  const bool ended_well = HoldsInChild([&] {
    try {
      told.Write("result",
                 MountSmallDisk(disk.Path(), kibibytes) ? body(disk.Path()) : kNoSmallDisk);
    } catch (const std::exception& error) {
      told.Write("result", error.what());
    }
    return true;
  });
  return ended_well ? ReadWhole(told.Path("result")) : "the child failed";
}

void WriteFile(const std::string& native_path, const std::string& content) {
  std::ofstream(native_path, std::ios::binary) << content;
}

}  // namespace qvx::test
