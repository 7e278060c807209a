#include "archive/dos_time.h"

#include "platform/clock.h"

namespace qvx::archive {

namespace {

constexpr std::uint32_t kFirst = 0x00210000;  // 1980-01-01 00:00:00
constexpr std::uint32_t kLast = 0xFF9FBF7D;   // 2107-12-31 23:59:58
constexpr unsigned int kFirstYear = 1980;

}  // namespace

std::uint32_t DosFromSeconds(std::int64_t seconds) {
  const SYSTEMTIME time = platform::LocalTimeOf(seconds, 0);
  if (time.wYear < kFirstYear) return kFirst;
  if (time.wYear > kFirstYear + 127) return kLast;
  const std::uint32_t date = (time.wYear - kFirstYear) << 9 | time.wMonth * 32u | time.wDay;
  return date << 16 | time.wHour * 2048u | time.wMinute * 32u | time.wSecond / 2u;
}

std::optional<std::int64_t> SecondsFromDos(std::uint32_t dos) {
  const auto field = [dos](unsigned int shift, unsigned int bits) {
    return static_cast<std::uint16_t>(dos >> shift & ((1u << bits) - 1));
  };
  SYSTEMTIME time{};
  time.wYear = static_cast<std::uint16_t>(kFirstYear + field(25, 7));
  time.wMonth = field(21, 4);
  time.wDay = field(16, 5);
  time.wHour = field(11, 5);
  time.wMinute = field(5, 6);
  time.wSecond = static_cast<std::uint16_t>(field(0, 5) * 2);
  if (time.wHour > 23 || time.wMinute > 59 || time.wSecond > 59) return std::nullopt;
  return platform::SecondsOfLocalTime(time);
}

}  // namespace qvx::archive
