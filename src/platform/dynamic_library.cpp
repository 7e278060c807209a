#include "platform/dynamic_library.h"

#include <dlfcn.h>

namespace qvx::platform {

DynamicLibrary::~DynamicLibrary() {
  if (handle_ != nullptr) dlclose(handle_);
}

bool DynamicLibrary::Load(const char* name, Unload unload) {
  if (handle_ != nullptr) return true;
  const int keep = unload == Unload::kNever ? RTLD_NODELETE : 0;
  handle_ = dlopen(name, RTLD_NOW | RTLD_LOCAL | keep);
  return handle_ != nullptr;
}

void* DynamicLibrary::Find(const char* symbol) const {
  return handle_ == nullptr ? nullptr : dlsym(handle_, symbol);
}

}  // namespace qvx::platform
