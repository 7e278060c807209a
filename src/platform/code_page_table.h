// A single- or double-byte code page as two look-up tables, filled once through iconv.
#pragma once

#include <array>
#include <memory>
#include <string_view>

#include "platform/utf.h"

namespace qvx::platform {

class CodePageTable {
 public:
  // Null where the system doesn't know the page, or where a table can't hold it: pages with
  // states, with lead bytes of longer characters, or without ASCII.
  static std::unique_ptr<CodePageTable> Load(unsigned int code_page);

  unsigned int CodePage() const { return code_page_; }
  bool IsLead(char byte) const { return lead_[static_cast<unsigned char>(byte)]; }

  // The first character of a text that is not empty, always one wide unit.
  Decoded Decode(std::string_view text) const noexcept;
  // The code of a wide unit, above 0xFF for two bytes; 0 where the page lacks it.
  unsigned int Encode(char16_t unit) const { return encode_[unit]; }

 private:
  CodePageTable() = default;
  bool Fill(unsigned int code_page);
  bool FillDecoding(const char* name);
  bool FillEncoding(const char* name);

  unsigned int code_page_ = 0;
  std::array<bool, 256> lead_{};
  std::array<char16_t, 0x10000> decode_{};  // by lead byte * 256 + trail byte, or single byte
  std::array<std::uint16_t, 0x10000> encode_{};
  CodePageTable* next_ = nullptr;
  friend class CodePageTables;
};

}  // namespace qvx::platform
