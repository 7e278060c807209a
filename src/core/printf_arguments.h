// The arguments of a format: taken one after the other, or by the positions that its conversions
// name, as in "%2$s %1$d".
#pragma once

#include <cstdarg>
#include <cstdint>
#include <memory>
#include <type_traits>

#include "core/printf_conversion.h"

namespace qvx::core {

class PrintfArguments {
 public:
  explicit PrintfArguments(va_list source) { va_copy(list_, source); }
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the constructor began the list
  ~PrintfArguments() { va_end(list_); }
  PrintfArguments(const PrintfArguments&) = delete;
  PrintfArguments& operator=(const PrintfArguments&) = delete;

  // Reads all arguments ahead if the format names positions. False where it names only some of
  // them, one in two ways, or one beyond kMostPositions.
  template <typename T>
  bool ReadPositions(const T* format);

  // False for a conversion that names a position where ReadPositions saw none.
  bool CanServe(const PrintfConversion& conversion) const {
    return values_ != nullptr || (conversion.position == 0 && conversion.width.position == 0 &&
                                  conversion.precision.position == 0);
  }

  // The argument at a position, or the next one for 0. V is as the conversion passes it.
  template <typename V>
  V Take(int position) {
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized)
    if (position == 0) return va_arg(list_, V);
    const Value& value = values_.get()[position - 1];
    if constexpr (std::is_pointer_v<V>) {
      return static_cast<V>(const_cast<void*>(value.pointer));
    } else if constexpr (std::is_same_v<V, long double>) {
      return value.wide_number;
    } else if constexpr (std::is_floating_point_v<V>) {
      return value.number;
    } else {
      return static_cast<V>(value.integer);
    }
  }

 private:
  static constexpr int kMostPositions = 64;
  enum class Kind { kNone, kInt, kLong, kDouble, kLongDouble, kPointer };

  union Value {
    std::int64_t integer;
    double number;
    long double wide_number;
    const void* pointer;
  };

  static Kind KindOf(const PrintfConversion& conversion);
  static bool Note(Kind* kinds, int position, Kind kind);
  static bool NoteAll(Kind* kinds, const PrintfConversion& conversion);
  bool ReadAll(const Kind* kinds);
  void Read(Kind kind, Value& value);

  va_list list_;
  std::unique_ptr<Value[]> values_;
};

}  // namespace qvx::core
