// A table of numbers from text: one row a line, with semicolons, commas, tabs or blanks between.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace qvx::tool {

struct NumberTable {
  int width = 0;
  int height = 0;
  std::vector<double> values;  // row by row; what is missing or "nan" is no number
};

// Empty lines and lines that begin with # are left out. With semicolons between, a comma stands
// for the decimal point. Throws CommandError, with name and line, for what is no number and for
// rows of different lengths.
NumberTable ParseTable(std::string_view text, const std::string& name);

// One number and nothing else. Throws CommandError.
double ParseNumber(const std::string& text);

}  // namespace qvx::tool
