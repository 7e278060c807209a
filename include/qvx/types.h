// Basic types of the public interface: wide characters, handles, plain records
// and the export macro. Has no state and needs no other header of the library.
#pragma once

#include <cstddef>
#include <cstdint>

// Marks what the shared library exports.
#define QVX_API __attribute__((visibility("default")))

// Lets the compiler check a printf call. FORMAT_INDEX and FIRST_INDEX count from 1,
// and from 2 in a member function, whose first argument is the object.
#define QVX_PRINTF(FORMAT_INDEX, FIRST_INDEX) \
  __attribute__((format(printf, FORMAT_INDEX, FIRST_INDEX)))

// A unit of wide text: always 16 bits, whatever the platform's wchar_t is.
using WCHAR = char16_t;

// A message target of message_queue.h. An opaque id, never an address: a stale one
// is recognised and does no harm. Null is no target.
struct HWND__;
using HWND = HWND__*;

// An opaque id of a thread, port or like resource; null or all ones is none.
using HANDLE = void*;

// A bitmap object of bitmap_file.h; an opaque id.
struct HBITMAP__;
using HBITMAP = HBITMAP__*;

// A rectangle in pixels; right and bottom are exclusive.
struct RECT {
  std::int32_t left;
  std::int32_t top;
  std::int32_t right;
  std::int32_t bottom;
};

// A point in pixels.
struct POINT {
  std::int32_t x;
  std::int32_t y;
};

// A calendar time. Month counts from 1; day of week from 0, which is Sunday.
struct SYSTEMTIME {
  std::uint16_t wYear;
  std::uint16_t wMonth;
  std::uint16_t wDayOfWeek;
  std::uint16_t wDay;
  std::uint16_t wHour;
  std::uint16_t wMinute;
  std::uint16_t wSecond;
  std::uint16_t wMilliseconds;
};
