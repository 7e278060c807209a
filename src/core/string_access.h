// Lets the library fill a string in place, without a second copy of the text.
#pragma once

#include <qvx/base_string.h>

#include <cstddef>
#include <limits>
#include <new>
#include <utility>

namespace qvx::core {

struct StringAccess {
  // Replaces the content by length characters whose values are for the caller to write, followed
  // by the terminator, in the block that Set would make for them. Null, and no block, for 0.
  // Out of memory the string stays as it was.
  template <typename T>
  static T* Reset(CBaseStringT<T>& string, int length) {
    CBaseStringT<T> fresh;
    if (length > 0) {
      int capability = 0;
      T* block = fresh.ReAlloc(length + 1, &capability);
      fresh.InstallBlock(block, capability);
      fresh.mLength = length;
      block[length] = T();
    }
    Swap(string, fresh);
    return string.mText;
  }

  // Appends at most room characters: fill gets the place for them and returns how many it wrote.
  // What the string held stays readable, where it was, until fill has returned. Without any, a
  // string without a block stays so.
  template <typename T, typename Fill>
  static void AppendFilled(CBaseStringT<T>& string, std::size_t room, Fill fill) {
    constexpr std::size_t kLongest = std::numeric_limits<int>::max() - 1;
    const auto length = static_cast<std::size_t>(string.mLength);
    if (room == 0) return;
    if (room > kLongest - length) throw std::bad_alloc();
    const int needed = static_cast<int>(length + room) + 1;
    int capability = string.mCapability;
    T* block = needed <= capability ? string.mText : string.ReAlloc(needed, &capability);
    const std::size_t written = fill(block + length);
    if (written == 0 && string.mText == nullptr) {
      delete[] block;
      return;
    }
    block[length + written] = T();
    string.InstallBlock(block, capability);
    string.mLength = static_cast<int>(length + written);
  }

  template <typename T>
  static void Swap(CBaseStringT<T>& left, CBaseStringT<T>& right) noexcept {
    std::swap(left.mText, right.mText);
    std::swap(left.mLength, right.mLength);
    std::swap(left.mCapability, right.mCapability);
  }
};

}  // namespace qvx::core
