#include "platform/module.h"

#include <dlfcn.h>
#include <stdlib.h>

#include <memory>

namespace qvx::platform {
namespace {

struct Free {
  void operator()(char* text) const { free(text); }
};

constinit const int anchor = 0;

}  // namespace

std::string ModulePath() {
  Dl_info info{};
  if (dladdr(&anchor, &info) == 0 || info.dli_fname == nullptr) return {};
  if (info.dli_fname[0] == '/') return info.dli_fname;
  const std::unique_ptr<char, Free> absolute(realpath(info.dli_fname, nullptr));
  return absolute != nullptr ? absolute.get() : info.dli_fname;
}

}  // namespace qvx::platform
