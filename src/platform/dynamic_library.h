// Shared libraries that are bound while the program runs. All names are bound at load, so
// that a missing one is seen then, and they stay private to the library that loaded them.
#pragma once

namespace qvx::platform {

class DynamicLibrary {
 public:
  enum class Unload {
    kAtEnd,
    kNever  // for libraries whose threads may outlive us
  };

  DynamicLibrary() = default;
  ~DynamicLibrary();
  DynamicLibrary(const DynamicLibrary&) = delete;
  DynamicLibrary& operator=(const DynamicLibrary&) = delete;

  // Loads by the name that the system's loader finds, as "libz.so.1". False if it can't.
  bool Load(const char* name, Unload unload = Unload::kAtEnd);
  bool IsLoaded() const { return handle_ != nullptr; }

  // Null if the library has no such name.
  void* Find(const char* symbol) const;

  // Stores the function and tells whether there is one.
  template <typename Function>
  bool Bind(const char* symbol, Function** function) const {
    *function = reinterpret_cast<Function*>(Find(symbol));
    return *function != nullptr;
  }

 private:
  void* handle_ = nullptr;
};

}  // namespace qvx::platform
