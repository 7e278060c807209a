#include "platform/environment.h"

#include <limits.h>
#include <pwd.h>
#include <stdlib.h>
#include <unistd.h>

#include <array>

namespace qvx::platform {

std::optional<std::string> EnvironmentText(const char* name) {
  const char* value = secure_getenv(name);
  if (value == nullptr) return std::nullopt;
  return value;
}

std::string CurrentFolder() {
  std::array<char, PATH_MAX> folder;
  return getcwd(folder.data(), folder.size()) != nullptr ? folder.data() : "";
}

std::string UserName() {
  std::array<char, 16384> memory;
  passwd entry;
  passwd* found = nullptr;
  const uid_t user = geteuid();
  if (getpwuid_r(user, &entry, memory.data(), memory.size(), &found) != 0 || found == nullptr)
    return std::to_string(user);
  return found->pw_name;
}

}  // namespace qvx::platform
