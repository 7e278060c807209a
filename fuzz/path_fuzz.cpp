// Every name that the system allows comes back unchanged from the library's form, in both
// widths, and no text in the library's form gives a native path with a NUL in it.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/path.h"

namespace {

namespace platform = qvx::platform;

void Require(bool holds) {
  if (!holds) std::abort();
}

template <typename C>
void ThereAndBack(const std::string& name) {
  const auto library = platform::FromNativePath<C>("/" + name);
  if (!library) return;
  const auto native = platform::ToNativePath(*library);
  Require(native && *native == "/" + name);
}

template <typename C>
void AnyText(const std::uint8_t* data, std::size_t size) {
  std::basic_string<C> text(size / sizeof(C), C());
  std::memcpy(text.data(), data, text.size() * sizeof(C));
  const auto native = platform::ToNativePath(text);
  Require(!native || native->find('\0') == std::string::npos);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string name(reinterpret_cast<const char*>(data), size);
  const bool is_name = !name.empty() && size < 256 && name != "." && name != ".." &&
                       name.find('\0') == std::string::npos && name.find('/') == std::string::npos;
  if (is_name) {
    ThereAndBack<char>(name);
    ThereAndBack<char16_t>(name);
  }
  AnyText<char>(data, size);
  AnyText<char16_t>(data, size);
  return 0;
}
