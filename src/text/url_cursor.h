// How the decoding of URLs goes on, byte by byte: what its wide loops share.
#pragma once

#include <hwy/base.h>

#include <bit>
#include <cstddef>
#include <cstdint>

#include "text/hex_codec.h"
#include "text/read_number.h"

namespace qvx::text {

// How far a loop has come. The loops work on copies of their own, which no byte that they write
// can change, and take the inner ones in whole: so both pointers stay in registers.
struct UrlCursor {
  const std::uint8_t* text;
  const std::uint8_t* end;
  std::uint8_t* out;

  std::size_t Left() const { return static_cast<std::size_t>(end - text); }
};

// What strtoul reads from two characters to base 16.
inline std::uint8_t DecodePair(std::uint8_t first, std::uint8_t second) {
  const int high = HexDigit(first);
  const int low = HexDigit(second);
  if (high >= 0) return static_cast<std::uint8_t>(low < 0 ? high : high * 16 + low);
  if (low < 0) return 0;
  if (first == '-') return static_cast<std::uint8_t>(-low);
  return static_cast<std::uint8_t>(first == '+' || IsBlank(first) ? low : 0);
}

// Decodes the escape at the cursor, or ends the text if it has no two characters.
HWY_INLINE void DecodeEscape(UrlCursor& cursor) {
  if (cursor.Left() < 3) {
    cursor.text = cursor.end;
    return;
  }
  *cursor.out++ = DecodePair(cursor.text[1], cursor.text[2]);
  cursor.text += 3;
}

// Decodes until count bytes of the text are done, or as few more as the last escape needs.
HWY_INLINE void DecodeSome(UrlCursor& cursor, std::size_t count) {
  const std::uint8_t* last = cursor.text + count;
  while (cursor.text < last) {
    if (*cursor.text == '%') {
      DecodeEscape(cursor);
    } else {
      const std::uint8_t byte = *cursor.text++;
      *cursor.out++ = byte == '+' ? std::uint8_t{' '} : byte;
    }
  }
}

// Passes over the digits at the cursor that the step before has read, a bit for each.
HWY_INLINE void SkipDone(UrlCursor& cursor, std::uint64_t& done) {
  cursor.text += std::popcount(done);
  done = 0;
}

}  // namespace qvx::text
