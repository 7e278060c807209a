// The conversions of paths in platform.h.
#include <string_view>

#include "platform/path.h"
#include "qvx/platform.h"

namespace qvx::files {
namespace {

// What the string held goes first, since Set keeps a text that is equal but for case.
template <typename C>
int Store(const std::optional<std::basic_string<C>>& text, CBaseStringT<C>* out) {
  if (out == nullptr) return 0;
  out->Free();
  if (!text) return 0;
  out->Append(text->data(), static_cast<int>(text->size()));
  return 1;
}

template <typename C>
int ToNative(const C* path, CBaseStringA* native) {
  const std::basic_string_view<C> text =
      path == nullptr ? std::basic_string_view<C>() : std::basic_string_view<C>(path);
  return Store(platform::ToNativePath(text), native);
}

template <typename C>
int FromNative(const char* native, CBaseStringT<C>* path) {
  const std::string_view text = native == nullptr ? std::string_view() : native;
  return Store(text.empty() ? std::nullopt : platform::FromNativePath<C>(text), path);
}

}  // namespace
}  // namespace qvx::files

namespace files = qvx::files;

int LibraryPathToNativeA(const char* path, CBaseStringA* native) {
  return files::ToNative(path, native);
}
int LibraryPathToNativeW(const WCHAR* path, CBaseStringA* native) {
  return files::ToNative(path, native);
}
int NativePathToLibraryA(const char* native, CBaseStringA* path) {
  return files::FromNative(native, path);
}
int NativePathToLibraryW(const char* native, CBaseStringW* path) {
  return files::FromNative(native, path);
}
