// What both sides of the file service need to read and fill records.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "qvx/socket_file_protocol.h"

namespace qvx::netfile {

inline constexpr std::uint32_t kLastRequest = SOCKET_FILE_REQ_RMDIR;

// Sizes of a request without the data of a write, and of its answer without data that follows.
struct CommandSizes {
  std::uint32_t request;
  std::uint32_t answer;
};

constexpr bool IsRequest(std::uint32_t command) {
  return command % 2 == 1 && command <= kLastRequest;
}

// For a request code of the table.
CommandSizes SizesOf(std::uint32_t request);

// Whether the answer to a request is a bare result, which is 1 even after a failure.
bool HasBareResult(std::uint32_t request);

tagSOCKETFILEHEADER AnswerHeader(const tagSOCKETFILEHEADER& request);

// A text field of a record as text of its own: at most Units - 1 units, whatever was sent.
template <std::size_t Units>
struct FieldText {
  explicit FieldText(const void* field) {
    std::memcpy(text, field, sizeof(text));
    text[Units - 1] = 0;
  }
  WCHAR text[Units];
};
using PathText = FieldText<SOCKET_FILE_PATH_UNITS>;
using ModeText = FieldText<SOCKET_FILE_MODE_UNITS>;

// Writes a text into a field of a cleared record, cut to units - 1; null counts as empty.
void SetTextField(void* field, const WCHAR* text, std::size_t units);

}  // namespace qvx::netfile
