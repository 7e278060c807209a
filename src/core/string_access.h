// Lets the library fill a string in place, without a second copy of the text.
#pragma once

#include <qvx/base_string.h>

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

  template <typename T>
  static void Swap(CBaseStringT<T>& left, CBaseStringT<T>& right) noexcept {
    std::swap(left.mText, right.mText);
    std::swap(left.mLength, right.mLength);
    std::swap(left.mCapability, right.mCapability);
  }
};

}  // namespace qvx::core
