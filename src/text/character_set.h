// A set of characters, and where in a text its members stand. Sets of a few characters are
// looked for in whole vectors.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "core/raw_text.h"
#include "qvx/types.h"

namespace qvx::text {

constexpr std::size_t kMarksPerWord = 64;

// Sets bit i % 64 of marks[i / 64] where text[i] is one of the four characters, else clears it.
// Does whole words and returns how many characters.
std::size_t MarkAnyOfFour(const char* text, std::size_t count, const char* four,
                          std::uint64_t* marks);
std::size_t MarkAnyOfFour(const WCHAR* text, std::size_t count, const WCHAR* four,
                          std::uint64_t* marks);

template <typename T>
class CharacterSet {
 public:
  // Refers to the characters, which must outlive the set.
  explicit CharacterSet(std::basic_string_view<T> characters) : characters_(characters) {
    for (T character : characters) {
      const unsigned int code = core::Code(character);
      if (code < low_.size()) low_[code] = true;
    }
    std::fill_n(four_.begin(), four_.size(), characters.empty() ? T() : characters[0]);
    if (IsFew()) characters.copy(four_.data(), characters.size());
  }

  bool Has(T character) const {
    const unsigned int code = core::Code(character);
    if (code < low_.size()) return low_[code];
    return characters_.find(character) != characters_.npos;
  }

  // Calls visit with the index of each member in the text, in order, until it returns false.
  template <typename Visit>
  void ForEachIn(std::basic_string_view<T> text, Visit visit) const {
    std::uint64_t marks[kWords];
    for (std::size_t done = 0; done < text.size(); done += kPiece) {
      const std::size_t count = std::min(kPiece, text.size() - done);
      const std::size_t words = Mark(text.data() + done, count, marks);
      for (std::size_t word = 0; word < words; ++word) {
        for (std::uint64_t left = marks[word]; left != 0; left &= left - 1) {
          const auto bit = static_cast<std::size_t>(std::countr_zero(left));
          if (!visit(done + word * kMarksPerWord + bit)) return;
        }
      }
    }
  }

 private:
  static constexpr std::size_t kWords = 32;
  static constexpr std::size_t kPiece = kWords * kMarksPerWord;

  bool IsFew() const { return !characters_.empty() && characters_.size() <= four_.size(); }

  // Returns how many words it has filled.
  std::size_t Mark(const T* text, std::size_t count, std::uint64_t* marks) const {
    const std::size_t words = (count + kMarksPerWord - 1) / kMarksPerWord;
    std::size_t done = IsFew() ? MarkAnyOfFour(text, count, four_.data(), marks) : 0;
    std::fill(marks + done / kMarksPerWord, marks + words, std::uint64_t{0});
    for (; done < count; ++done) {
      marks[done / kMarksPerWord] |= std::uint64_t{Has(text[done])} << (done % kMarksPerWord);
    }
    return words;
  }

  std::basic_string_view<T> characters_;
  std::array<bool, 256> low_{};
  std::array<T, 4> four_;
};

}  // namespace qvx::text
