// qvx number: an integer to base 36, in hexadecimal digits and in Chinese words.
#include <qvx/platform.h>
#include <qvx/string_split.h>

#include <CLI/CLI.hpp>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <system_error>

#include "command.h"

namespace qvx::tool {
namespace {

struct Options {
  std::string number;
  bool chinese = false;
  bool radix36 = false;
};

template <typename Number>
std::optional<Number> Read(const std::string& text) {
  Number number{};
  const char* end = text.data() + text.size();
  const auto [place, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || place != end) return std::nullopt;
  return number;
}

std::string InChinese(int number) {
  constexpr int kRoom = 64;
  WCHAR words[kRoom];
  ConvertNumberToChineseNumberW(number, words, kRoom);
  CBaseStringA text;
  WideToUtf8(words, -1, &text);
  return text.GetString();
}

std::string ToRadix36(std::uint64_t number) {
  CBaseStringA text;
  ConvertNumberToRadix36StringA(number, &text);
  return text.GetString();
}

[[noreturn]] void Refuse(const Options& options, const char* range) {
  throw CommandError("not a number from " + std::string(range) + ": " + options.number);
}

void PrintAsked(const Options& options) {
  const std::optional<std::uint64_t> natural = Read<std::uint64_t>(options.number);
  const std::optional<int> integer = Read<int>(options.number);
  if (options.radix36) {
    if (!natural) Refuse(options, "0 to 18446744073709551615");
    std::printf("%s\n", ToRadix36(*natural).c_str());
  }
  if (options.chinese) {
    if (!integer) Refuse(options, "-2147483648 to 2147483647");
    std::printf("%s\n", InChinese(*integer).c_str());
  }
}

void PrintAll(const Options& options) {
  const std::optional<std::uint64_t> natural = Read<std::uint64_t>(options.number);
  const std::optional<int> integer = Read<int>(options.number);
  if (!natural && !integer) Refuse(options, "-2147483648 to 18446744073709551615");
  if (natural) {
    std::printf("hexadecimal  %llX\n", static_cast<unsigned long long>(*natural));
    std::printf("base 36      %s\n", ToRadix36(*natural).c_str());
  }
  if (integer) std::printf("Chinese      %s\n", InChinese(*integer).c_str());
}

}  // namespace

void AddNumberCommand(CLI::App& app) {
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand("number", "Show an integer in other forms");
  command->add_option("NUMBER", options->number, "Integer; write -- before a negative one")
      ->required();
  command->add_flag("--chinese", options->chinese, "Only the Chinese words");
  command->add_flag("--radix36", options->radix36, "Only the digits to base 36");
  command->callback([options] {
    if (options->chinese || options->radix36) {
      PrintAsked(*options);
    } else {
      PrintAll(*options);
    }
  });
}

}  // namespace qvx::tool
