#include "support/small_disk.h"

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

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

std::string RunBody(const std::string& folder,
                    const std::function<std::string(const std::string&)>& body) {
  try {
    return body(folder);
  } catch (const std::exception& error) {
    return error.what();
  }
}

[[noreturn]] void RunChild(int out, const std::string& folder, int kibibytes,
                           const std::function<std::string(const std::string&)>& body) {
  const std::string result =
      MountSmallDisk(folder, kibibytes) ? RunBody(folder, body) : kNoSmallDisk;
  const bool told = write(out, result.data(), result.size()) == static_cast<ssize_t>(result.size());
  _exit(told ? 0 : 1);
}

std::string ReadAll(int descriptor) {
  std::string text;
  char buffer[512];
  for (ssize_t got; (got = read(descriptor, buffer, sizeof buffer)) > 0;) {
    text.append(buffer, static_cast<std::size_t>(got));
  }
  return text;
}

}  // namespace

std::string OnSmallDisk(int kibibytes, const std::function<std::string(const std::string&)>& body) {
  TempFolder folder;
  int ends[2];
  if (pipe(ends) != 0) return "no pipe";
  const pid_t child = Fork();
  if (child == 0) RunChild(ends[1], folder.Path(), kibibytes, body);
  close(ends[1]);
  const std::string result = ReadAll(ends[0]);
  close(ends[0]);
  return EndedWell(child) ? result : "the child failed";
}

void WriteFile(const std::string& native_path, const std::string& content) {
  std::ofstream(native_path, std::ios::binary) << content;
}

}  // namespace qvx::test
