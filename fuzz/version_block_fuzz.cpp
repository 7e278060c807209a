// A file with any bytes in it has a version text, an empty one or none, and nothing outside the
// file is ever asked for.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "files/version_block.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto version =
      qvx::files::FileVersionOf([&](std::uint64_t offset, void* out, std::size_t count) {
        if (offset > size || count > size - offset) return false;
        std::memcpy(out, data + offset, count);
        return true;
      });
  if (version && version->size() > size / 2) std::abort();
  return 0;
}
