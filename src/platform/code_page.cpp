#include "platform/code_page.h"

#include <algorithm>
#include <atomic>

#include "platform/code_page_table.h"

namespace qvx::platform {

// Tables live as long as the process: another thread may be using one at any moment.
class CodePageTables {
 public:
  static const CodePageTable* Find(unsigned int code_page) {
    for (CodePageTable* table = first_.load(); table != nullptr; table = table->next_) {
      if (table->CodePage() == code_page) return table;
    }
    return Add(CodePageTable::Load(code_page));
  }

 private:
  static const CodePageTable* Add(std::unique_ptr<CodePageTable> table) {
    if (table == nullptr) return nullptr;
    table->next_ = first_.load();
    while (!first_.compare_exchange_weak(table->next_, table.get())) {
    }
    return table.release();
  }

  static inline std::atomic<CodePageTable*> first_{nullptr};
};

namespace {

constexpr unsigned int kUtf8 = 65001;

// Null stands for UTF-8.
std::atomic<const CodePageTable*> current_table{nullptr};

Decoded DecodeAnsi(const CodePageTable* table, std::string_view text) noexcept {
  return table != nullptr ? table->Decode(text) : DecodeUtf8(text);
}

// A character of narrow text: its bytes and how many units it took.
struct Encoded {
  char bytes[4];
  int size;
  int units;
  bool exact;
};

Encoded EncodeAnsi(const CodePageTable* table, std::u16string_view text) noexcept {
  const Decoded decoded = DecodeUtf16(text);
  Encoded encoded{{}, 1, decoded.units, decoded.valid};
  if (table == nullptr) {
    encoded.size = static_cast<int>(EncodeUtf8(decoded.character, encoded.bytes) - encoded.bytes);
    return encoded;
  }
  const bool known = decoded.valid && decoded.character < 0x10000;
  unsigned int code = known ? table->Encode(static_cast<char16_t>(decoded.character)) : 0;
  if (code == 0 && decoded.character != 0) {
    code = '?';
    encoded.exact = false;
  }
  encoded.size = code > 0xFF ? 2 : 1;
  if (code > 0xFF) encoded.bytes[0] = static_cast<char>(code >> 8);
  encoded.bytes[encoded.size - 1] = static_cast<char>(code & 0xFF);
  return encoded;
}

template <typename From, typename To>
int CopyAscii(std::basic_string_view<From>& text, To* out, int capacity) noexcept {
  const std::size_t count = AsciiPrefix(text);
  if (count > static_cast<std::size_t>(capacity)) return -1;
  for (std::size_t i = 0; i < count; ++i) out[i] = static_cast<To>(text[i]);
  text.remove_prefix(count);
  return static_cast<int>(count);
}

// Bytes of the first character, none read behind what that needs.
std::size_t CharacterBytes(const CodePageTable* table, const char* text) noexcept {
  if (table != nullptr) return table->IsLead(text[0]) && text[1] != '\0' ? 2 : 1;
  const auto lead = static_cast<unsigned char>(text[0]);
  const std::size_t most = lead < 0xC0 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  std::size_t size = 1;
  while (size < most && (static_cast<unsigned char>(text[size]) & 0xC0) == 0x80) ++size;
  return size;
}

}  // namespace

bool SetAnsiCodePage(unsigned int code_page) {
  const CodePageTable* table = nullptr;
  if (code_page != kUtf8) {
    table = CodePageTables::Find(code_page);
    if (table == nullptr) return false;
  }
  current_table.store(table, std::memory_order_release);
  return true;
}

unsigned int AnsiCodePage() noexcept {
  const CodePageTable* table = current_table.load(std::memory_order_acquire);
  return table != nullptr ? table->CodePage() : kUtf8;
}

bool AnsiIsUtf8() noexcept {
  return AnsiCodePage() == kUtf8;
}

bool BeginsWithDoubleByte(std::string_view text) noexcept {
  const CodePageTable* table = current_table.load(std::memory_order_acquire);
  return table != nullptr && table->Decode(text).units == 2;
}

int AnsiToWide(std::string_view text, char16_t* out, int capacity) noexcept {
  const CodePageTable* table = current_table.load(std::memory_order_acquire);
  int written = 0;
  while (true) {
    const int ascii = CopyAscii(text, out + written, capacity - written);
    if (ascii < 0) return 0;
    written += ascii;
    if (text.empty()) return written;
    const Decoded decoded = DecodeAnsi(table, text);
    if (Utf16Size(decoded.character) > capacity - written) return 0;
    written = static_cast<int>(EncodeUtf16(decoded.character, out + written) - out);
    text.remove_prefix(static_cast<std::size_t>(decoded.units));
  }
}

int WideToAnsi(std::u16string_view text, char* out, int capacity) noexcept {
  const CodePageTable* table = current_table.load(std::memory_order_acquire);
  int written = 0;
  while (true) {
    const int ascii = CopyAscii(text, out + written, capacity - written);
    if (ascii < 0) return 0;
    written += ascii;
    if (text.empty()) return written;
    const Encoded encoded = EncodeAnsi(table, text);
    if (encoded.size > capacity - written) return 0;
    std::copy_n(encoded.bytes, encoded.size, out + written);
    written += encoded.size;
    text.remove_prefix(static_cast<std::size_t>(encoded.units));
  }
}

int AnsiPrefixForWide(const char* text, int max_units) noexcept {
  const CodePageTable* table = current_table.load(std::memory_order_acquire);
  const char* end = text;
  while (max_units > 0 && *end != '\0') {
    const Decoded decoded = DecodeAnsi(table, {end, CharacterBytes(table, end)});
    max_units -= Utf16Size(decoded.character);
    if (max_units < 0) break;
    end += decoded.units;
  }
  return static_cast<int>(end - text);
}

int WidePrefixForAnsi(const char16_t* text, int max_bytes) noexcept {
  const CodePageTable* table = current_table.load(std::memory_order_acquire);
  const char16_t* end = text;
  while (max_bytes > 0 && *end != u'\0') {
    const Encoded encoded = EncodeAnsi(table, {end, IsHighSurrogate(*end) ? 2u : 1u});
    max_bytes -= encoded.size;
    if (max_bytes < 0) break;
    end += encoded.units;
  }
  return static_cast<int>(end - text);
}

std::optional<std::u16string> WideFromAnsi(std::string_view text) {
  const CodePageTable* table = current_table.load(std::memory_order_acquire);
  std::u16string result(text.size(), u'\0');
  char16_t* out = result.data();
  while (!text.empty()) {
    const Decoded decoded = DecodeAnsi(table, text);
    if (!decoded.valid) return std::nullopt;
    out = EncodeUtf16(decoded.character, out);
    text.remove_prefix(static_cast<std::size_t>(decoded.units));
  }
  result.resize(static_cast<std::size_t>(out - result.data()));
  return result;
}

std::optional<std::string> AnsiFromWide(std::u16string_view text) {
  const CodePageTable* table = current_table.load(std::memory_order_acquire);
  std::string result;
  result.reserve(text.size() * 3);
  while (!text.empty()) {
    const Encoded encoded = EncodeAnsi(table, text);
    if (!encoded.exact) return std::nullopt;
    result.append(encoded.bytes, static_cast<std::size_t>(encoded.size));
    text.remove_prefix(static_cast<std::size_t>(encoded.units));
  }
  return result;
}

namespace {

// The text anew, character by character, where room units hold all of it; valid tells whether
// every character was.
template <typename Out, typename In, typename Decode, typename Encode>
std::basic_string<Out> Converted(std::basic_string_view<In> text, std::size_t room, Decode decode,
                                 Encode encode, bool& valid) {
  std::basic_string<Out> result(room, Out{});
  Out* out = result.data();
  valid = true;
  while (!text.empty()) {
    const Decoded decoded = decode(text);
    valid = valid && decoded.valid;
    out = encode(decoded.character, out);
    text.remove_prefix(static_cast<std::size_t>(decoded.units));
  }
  result.resize(static_cast<std::size_t>(out - result.data()));
  return result;
}

}  // namespace

std::u16string Utf8ToUtf16(std::string_view text, bool* exact) {
  bool valid;
  auto result = Converted<char16_t>(text, text.size(), DecodeUtf8, EncodeUtf16, valid);
  if (exact != nullptr) *exact = valid;
  return result;
}

std::string Utf16ToUtf8(std::u16string_view text, bool* exact) {
  bool valid;
  auto result = Converted<char>(text, text.size() * 3, DecodeUtf16, EncodeUtf8, valid);
  if (exact != nullptr) *exact = valid;
  return result;
}

}  // namespace qvx::platform
