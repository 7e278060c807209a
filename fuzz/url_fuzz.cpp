// What is encoded comes back unchanged, any text decodes as by the plain loop, and both append.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "qvx/url_markup.h"
#include "text/url_codec.h"

namespace {

void Require(bool holds) {
  if (!holds) std::abort();
}

bool Holds(const CBaseStringA& string, const void* bytes, std::size_t size) {
  return static_cast<std::size_t>(string.GetLength()) == size + 1 && string.GetString()[0] == '=' &&
         (size == 0 || std::memcmp(string.GetString() + 1, bytes, size) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const char* text = reinterpret_cast<const char*>(data);
  const int length = static_cast<int>(size);
  CBaseStringA encoded;
  EncodeURL(text, length, &encoded);
  Require(encoded.GetLength() >= length);
  CBaseStringA back("=");
  DecodeURL(encoded.GetString(), encoded.GetLength(), &back);
  Require(Holds(back, data, size));

  std::vector<std::uint8_t> plain(size + 1);
  const std::uint8_t* end = qvx::text::DecodeUrlPlain(data, size, plain.data());
  CBaseStringA decoded("=");
  DecodeURL(text, length, &decoded);
  Require(Holds(decoded, plain.data(), static_cast<std::size_t>(end - plain.data())));
  return 0;
}
