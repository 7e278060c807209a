#include "number_table.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <limits>

#include "command.h"

namespace qvx::tool {
namespace {

constexpr std::string_view kBlanks = " \t\r";
constexpr double kNoNumber = std::numeric_limits<double>::quiet_NaN();

std::string_view Trim(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == text.npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

// The next part of text up to the separator, which is taken away with it.
std::string_view TakePart(std::string_view& text, char separator) {
  const std::size_t end = std::min(text.find(separator), text.size());
  const std::string_view part = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  return part;
}

char SeparatorOf(std::string_view line) {
  for (const char separator : {';', ',', '\t'}) {
    if (line.find(separator) != line.npos) return separator;
  }
  return ' ';
}

double ParseCell(std::string_view cell, char separator) {
  if (cell.empty()) return kNoNumber;
  std::string text(cell);
  if (separator == ';') std::replace(text.begin(), text.end(), ',', '.');
  return ParseNumber(text);
}

// Adds the cells of a line to values; returns how many.
std::size_t ParseLine(std::string_view line, char separator, std::vector<double>& values) {
  const std::size_t before = values.size();
  const bool ends_open = line.back() == separator;
  while (!line.empty()) {
    const std::string_view cell = Trim(TakePart(line, separator));
    if (separator == ' ' && cell.empty()) continue;
    values.push_back(ParseCell(cell, separator));
  }
  if (ends_open && separator != ' ') values.push_back(kNoNumber);
  return values.size() - before;
}

}  // namespace

double ParseNumber(const std::string& text) {
  std::string_view digits = text;
  if (digits.size() > 1 && digits[0] == '+' && digits[1] != '-') digits.remove_prefix(1);
  double value = 0;
  const auto end = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  if (end.ec != std::errc() || end.ptr != digits.data() + digits.size()) {
    throw CommandError("'" + text + "' is no number");
  }
  return value;
}

NumberTable ParseTable(std::string_view text, const std::string& name) {
  NumberTable table;
  char separator = '\0';
  for (std::size_t line = 1; !text.empty(); ++line) {
    std::string_view whole = TakePart(text, '\n');
    if (!whole.empty() && whole.back() == '\r') whole.remove_suffix(1);
    const std::string_view content = Trim(whole);
    if (content.empty() || content[0] == '#') continue;
    if (separator == '\0') separator = SeparatorOf(content);
    std::size_t count = 0;
    try {
      count = ParseLine(separator == '\t' ? whole : content, separator, table.values);
    } catch (const CommandError& error) {
      throw CommandError(name + ":" + std::to_string(line) + ": " + error.what());
    }
    if (count > INT_MAX || table.height == INT_MAX) throw CommandError(name + " is too large");
    if (table.height++ == 0) table.width = static_cast<int>(count);
    if (static_cast<std::size_t>(table.width) != count) {
      throw CommandError(name + ":" + std::to_string(line) + ": " + std::to_string(count) +
                         " values where the first row has " + std::to_string(table.width));
    }
  }
  if (table.height == 0) throw CommandError(name + " holds no numbers");
  return table;
}

}  // namespace qvx::tool
