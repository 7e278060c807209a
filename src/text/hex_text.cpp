#include "qvx/hex_text.h"

#include <algorithm>
#include <climits>
#include <functional>
#include <memory>
#include <new>
#include <string>

#include "core/raw_text.h"
#include "core/string_access.h"
#include "qvx/debug_output.h"
#include "text/hex_codec.h"
#include "text/text_length.h"

using qvx::core::StringAccess;
using qvx::text::HexDigit;
using qvx::text::HexStyle;

namespace {

// Whether Set would leave the string as it is.
template <typename T>
bool HoldsSame(const CBaseStringT<T>& string, const CBaseStringT<T>& other) {
  if (string.GetLength() != other.GetLength()) return false;
  return qvx::core::SameButForCase(string.GetString(), other.GetString(),
                                   static_cast<std::size_t>(string.GetLength()));
}

// Whether the string holds this very text already but for case, found out piece by piece.
template <typename T>
bool HoldsHexOf(const CBaseStringT<T>& string, const std::uint8_t* data, std::size_t size,
                HexStyle style) {
  constexpr std::size_t kPiece = 1024;
  if (size == 0 || static_cast<std::size_t>(string.GetLength()) != size * style.Width()) {
    return false;
  }
  T piece[3 * kPiece];
  const T* held = string.GetString();
  for (std::size_t done = 0; done < size; done += kPiece) {
    const std::size_t count = std::min(kPiece, size - done);
    const std::size_t length = count * style.Width();
    qvx::text::EncodeHex(data + done, count, style, piece);
    if (!qvx::core::SameButForCase(held, static_cast<const T*>(piece), length)) return false;
    held += length;
  }
  return true;
}

// Sets out to length characters that fill writes, as Set would, but without a second copy.
template <typename T, typename Fill>
void SetFilled(CBaseStringT<T>& out, std::int64_t length, Fill fill) {
  if (length >= INT_MAX) throw std::bad_alloc();
  CBaseStringT<T> filled;
  T* text = StringAccess::Reset(filled, static_cast<int>(length));
  if (text != nullptr) fill(text);
  if (HoldsSame(out, filled)) return;
  StringAccess::Swap(out, filled);
}

template <typename T>
int WriteByte(unsigned char value, T* out, int upperCase) {
  if (out == nullptr) return 0;
  qvx::text::EncodeHexPlain(&value, 1, HexStyle{upperCase != 0, false}, out);
  return 2;
}

template <typename T>
void WriteBuffer(const void* data, int length, int upperCase, int spaced, CBaseStringT<T>* out) {
  if (data == nullptr || out == nullptr || length < 0) return;
  const HexStyle style{upperCase != 0, spaced != 0};
  const auto size = static_cast<std::size_t>(length);
  const auto* bytes = static_cast<const std::uint8_t*>(data);
  if (HoldsHexOf(*out, bytes, size, style)) return;
  SetFilled(*out, static_cast<std::int64_t>(size * style.Width()),
            [&](T* text) { qvx::text::EncodeHex(bytes, size, style, text); });
}

// Writes a dump without a blank at the end of a line or a line end behind the last one.
template <typename T>
void WriteLines(const std::uint8_t* data, std::size_t size, std::size_t perLine, bool upperCase,
                T* text) {
  for (std::size_t done = 0; done < size;) {
    const std::size_t line = std::min(perLine, size - done);
    qvx::text::EncodeHex(data + done, line - 1, HexStyle{upperCase, true}, text);
    text += 3 * (line - 1);
    done += line;
    qvx::text::EncodeHexPlain(data + done - 1, 1, HexStyle{upperCase, false}, text);
    text += 2;
    if (done == size) return;
    *text++ = T('\r');
    *text++ = T('\n');
  }
}

template <typename T>
void WriteDump(const void* data, int length, int perLine, int upperCase, CBaseStringT<T>* out) {
  if (data == nullptr || out == nullptr || length < 1) return;
  if (perLine < 1) perLine = length;
  const auto size = static_cast<std::size_t>(length);
  const auto line = static_cast<std::size_t>(perLine);
  const std::size_t lines = (size + line - 1) / line;
  SetFilled(*out, static_cast<std::int64_t>(3 * size + lines - 2), [&](T* text) {
    WriteLines(static_cast<const std::uint8_t*>(data), size, line, upperCase != 0, text);
  });
}

template <typename T>
int WriteNumber(unsigned int value, T* out, int width, int radix) {
  if (out == nullptr) return 0;
  if (width < 0 || radix < 2) return width;
  const auto base = static_cast<unsigned int>(radix);
  out[width] = T();
  for (int i = width - 1; i >= 0; --i, value /= base) {
    const unsigned int digit = value % base;
    out[i] = static_cast<T>(digit < 10 ? '0' + digit : 'A' + digit - 10);
  }
  return width;
}

template <typename T>
bool HasPrefix(const T* text, std::size_t length) {
  return length >= 2 && text[0] == T('0') && (text[1] == T('x') || text[1] == T('X'));
}

template <typename Value, typename T>
Value ReadNumber(const T* text, int length) {
  if (text == nullptr) return 0;
  const std::size_t size = qvx::text::Length(text, length);
  std::uint64_t value = 0;
  for (std::size_t i = HasPrefix(text, size) ? 2 : 0; i < size; ++i) {
    const int digit = HexDigit(text[i]);
    if (digit < 0) break;
    value = value * 16 + static_cast<std::uint64_t>(digit);
  }
  return static_cast<Value>(value);
}

// The pairs of a text behind its prefix.
template <typename T>
struct Pairs {
  Pairs(const T* text, int length) : first(text), count(qvx::text::Length(text, length)) {
    if (HasPrefix(first, count)) {
      first += 2;
      count -= 2;
    }
    count /= 2;
  }

  const T* first;
  std::size_t count;
};

template <typename T>
bool Overlaps(const Pairs<T>& pairs, const CBaseBuffer& buffer) {
  const std::less<const void*> before;
  const unsigned char* block = buffer.GetBuffer();
  return block != nullptr && before(pairs.first, block + buffer.GetBufSize()) &&
         before(block, pairs.first + 2 * pairs.count);
}

// Makes room for size bytes of new content; the old content is not carried over.
unsigned char* MakeRoom(CBaseBuffer& buffer, unsigned int size) {
  const unsigned int before = buffer.GetAvailSize();
  buffer.SetAvailSize(0);
  try {
    buffer.SetBufferSize(size);
  } catch (...) {
    buffer.SetAvailSize(before);
    throw;
  }
  return const_cast<unsigned char*>(buffer.GetBuffer());
}

template <typename T>
void ReadBuffer(const T* text, int length, CBaseBuffer* out) {
  if (text == nullptr || out == nullptr) return;
  const Pairs<T> pairs(text, length);
  if (pairs.count > UINT_MAX) throw std::bad_alloc();
  const auto size = static_cast<unsigned int>(pairs.count);
  if (Overlaps(pairs, *out)) {
    const auto bytes = std::make_unique_for_overwrite<std::uint8_t[]>(pairs.count);
    qvx::text::DecodeHex(pairs.first, pairs.count, bytes.get());
    out->SetBuffer(bytes.get(), size);
    return;
  }
  qvx::text::DecodeHex(pairs.first, pairs.count, MakeRoom(*out, size));
  out->SetAvailSize(size);
}

template <typename T>
void ReadString(const T* text, int length, CBaseStringA* out) {
  if (text == nullptr || out == nullptr) return;
  const Pairs<T> pairs(text, length);
  SetFilled(*out, static_cast<std::int64_t>(pairs.count), [&](char* bytes) {
    qvx::text::DecodeHex(pairs.first, pairs.count, reinterpret_cast<std::uint8_t*>(bytes));
  });
}

template <typename T>
int IsHex(const T* text, int length) {
  if (text == nullptr) return 0;
  const std::size_t size = qvx::text::Length(text, length);
  const std::size_t start = size >= 3 && HasPrefix(text, size) ? 2 : 0;
  return std::all_of(text + start, text + size, [](T c) { return HexDigit(c) >= 0; }) ? 1 : 0;
}

template <typename Value, typename T>
Value ReadBinary(const T* text, int length) {
  std::uint64_t value = 0;
  for (int i = 0; text != nullptr && i < length; ++i) {
    value = value * 2 + static_cast<std::uint64_t>(text[i]) - 48;
  }
  return static_cast<Value>(value);
}

// Calls visit(byte index, bit mask, bit number of the value) for each bit of a field that lies
// inside the buffer.
template <typename Visit>
void ForEachBit(int bufferSize, int firstBit, int lastBit, Visit visit) {
  const std::int64_t end = std::min<std::int64_t>(
      {std::int64_t{lastBit} + 1, std::int64_t{bufferSize} * 8, std::int64_t{firstBit} + 32});
  for (std::int64_t bit = std::max(firstBit, 0); bit < end; ++bit) {
    visit(bit / 8, 1u << (bit % 8), static_cast<unsigned int>(bit - firstBit));
  }
}

}  // namespace

int ByteToHexA(unsigned char value, char* out, int upperCase) {
  return WriteByte(value, out, upperCase);
}

int ByteToHexW(unsigned char value, WCHAR* out, int upperCase) {
  return WriteByte(value, out, upperCase);
}

void BufferToHexStringA(const void* data, int length, int upperCase, int spaced,
                        CBaseStringA* out) {
  WriteBuffer(data, length, upperCase, spaced, out);
}

void BufferToHexStringW(const void* data, int length, int upperCase, int spaced,
                        CBaseStringW* out) {
  WriteBuffer(data, length, upperCase, spaced, out);
}

void FormatBufferToHexStringA(const void* data, int length, int perLine, int upperCase,
                              CBaseStringA* out) {
  WriteDump(data, length, perLine, upperCase, out);
}

void FormatBufferToHexStringW(const void* data, int length, int perLine, int upperCase,
                              CBaseStringW* out) {
  WriteDump(data, length, perLine, upperCase, out);
}

void PrintHexBuffer(const void* data, int length, int perLine) {
  if (data == nullptr || length < 1 || perLine < 1) return;
  DbgOutputA(2, "PrintHexBuffer: addr=%p\r\n", data);
  const auto* bytes = static_cast<const std::uint8_t*>(data);
  CBaseStringA digits;
  CBaseStringA line;
  for (std::int64_t done = 0; done < length; done += perLine) {
    const auto count = static_cast<int>(std::min<std::int64_t>(perLine, length - done));
    BufferToHexStringA(bytes + done, count, 1, 1, &digits);
    line.Format("%08x-%08x:%s", static_cast<unsigned int>(done),
                static_cast<unsigned int>(done + perLine - 1), digits.GetString());
    DbgOutputA(2, "%s\r\n", line.GetString());
  }
}

int ConvertLongToCharA(unsigned int value, char* out, int width, int radix) {
  return WriteNumber(value, out, width, radix);
}

int ConvertLongToCharW(unsigned int value, WCHAR* out, int width, int radix) {
  return WriteNumber(value, out, width, radix);
}

std::uint8_t HexStringToByteA(const char* text, int length) {
  return ReadNumber<std::uint8_t>(text, length);
}

std::uint8_t HexStringToByteW(const WCHAR* text, int length) {
  return ReadNumber<std::uint8_t>(text, length);
}

std::uint32_t HexStringToUint32A(const char* text, int length) {
  return ReadNumber<std::uint32_t>(text, length);
}

std::uint32_t HexStringToUint32W(const WCHAR* text, int length) {
  return ReadNumber<std::uint32_t>(text, length);
}

std::uint64_t HexStringToUint64A(const char* text, int length) {
  return ReadNumber<std::uint64_t>(text, length);
}

std::uint64_t HexStringToUint64W(const WCHAR* text, int length) {
  return ReadNumber<std::uint64_t>(text, length);
}

void HexStringToBufferA(const char* text, int length, CBaseBuffer* out) {
  ReadBuffer(text, length, out);
}

void HexStringToBufferW(const WCHAR* text, int length, CBaseBuffer* out) {
  ReadBuffer(text, length, out);
}

void HexStringToStringA(const char* text, int length, CBaseStringA* out) {
  ReadString(text, length, out);
}

void HexStringToStringW(const WCHAR* text, int length, CBaseStringA* out) {
  ReadString(text, length, out);
}

void StringFromHexA(const char* text, int length, char* out) {
  if (text == nullptr || out == nullptr || length < -1) return;
  const std::size_t size = qvx::text::Length(text, length);
  if (size % 2 != 0) return;
  qvx::text::DecodeHex(text, size / 2, reinterpret_cast<std::uint8_t*>(out));
}

int IsHexCharA(char character) {
  return HexDigit(character) >= 0 ? 1 : 0;
}

int IsHexCharW(WCHAR character) {
  return HexDigit(character) >= 0 ? 1 : 0;
}

int IsHexStringA(const char* text, int length) {
  return IsHex(text, length);
}

int IsHexStringW(const WCHAR* text, int length) {
  return IsHex(text, length);
}

std::uint8_t BinStringToByteA(const char* text, int length) {
  return ReadBinary<std::uint8_t>(text, length);
}

std::uint8_t BinStringToByteW(const WCHAR* text, int length) {
  return ReadBinary<std::uint8_t>(text, length);
}

std::uint64_t BinStringToUINT64A(const char* text, int length) {
  return ReadBinary<std::uint64_t>(text, length);
}

std::uint64_t BinStringToUINT64W(const WCHAR* text, int length) {
  return ReadBinary<std::uint64_t>(text, length);
}

void SetBufferValueByBit(unsigned char* buffer, int bufferSize, int firstBit, int lastBit,
                         unsigned int value) {
  if (buffer == nullptr) return;
  ForEachBit(
      bufferSize, firstBit, lastBit, [&](std::int64_t byte, unsigned int mask, unsigned int bit) {
        const unsigned int rest = buffer[byte] & ~mask;
        buffer[byte] = static_cast<unsigned char>((value >> bit & 1) != 0 ? rest | mask : rest);
      });
}

unsigned int GetBufferValueByBit(const unsigned char* buffer, int bufferSize, int firstBit,
                                 int lastBit) {
  unsigned int value = 0;
  if (buffer == nullptr) return value;
  ForEachBit(bufferSize, firstBit, lastBit,
             [&](std::int64_t byte, unsigned int mask, unsigned int bit) {
               if ((buffer[byte] & mask) != 0) value |= 1u << bit;
             });
  return value;
}
