// qvx thermal: a table of numbers as a false-colour picture with a scale bar beside it.
#include <qvx/thermal.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "canvas.h"
#include "command.h"
#include "number_table.h"
#include "picture_file.h"

namespace qvx::tool {
namespace {

constexpr unsigned int kPaper = 0xFFFFFFFF;
constexpr unsigned int kInk = 0xFF202020;
constexpr int kEdge = 16;  // around everything
constexpr int kBarWidth = 24;
constexpr int kTick = 6;
constexpr int kLeastHeight = 256;  // of the bar: one row for each colour
constexpr int kGoodSide = 480;     // of a picture whose zoom is not told
constexpr int kMostZoom = 1000;

struct Options {
  std::string file;
  std::string output;
  std::string colours;
  std::string range;
  int zoom = 0;
};

struct Range {
  double min;
  double max;
};

using Table = std::array<unsigned int, 256>;

std::array<std::string, 2> Halves(const std::string& text, const char* what) {
  const std::size_t comma = text.find(',');
  if (comma == text.npos || text.find(',', comma + 1) != text.npos) {
    throw CommandError(std::string(what) + " needs two values with a comma between, not " + text);
  }
  return {text.substr(0, comma), text.substr(comma + 1)};
}

// A colour as RRGGBB; the library's references have red in the lowest byte.
unsigned int ColourReference(std::string_view text) {
  if (!text.empty() && text[0] == '#') text.remove_prefix(1);
  unsigned int value = 0;
  const auto end = std::from_chars(text.data(), text.data() + text.size(), value, 16);
  if (text.size() != 6 || end.ec != std::errc() || end.ptr != text.data() + 6) {
    throw CommandError("'" + std::string(text) + "' is no colour like FF8000");
  }
  return value >> 16 | (value & 0xFF00) | (value & 0xFF) << 16;
}

Table MakeTable(const std::string& colours) {
  Table table;
  if (colours.empty()) {
    InitHotImageColorTable(table.data());
    return table;
  }
  const auto halves = Halves(colours, "--colours");
  InitHotImageColorTable2(table.data(), ColourReference(halves[0]), ColourReference(halves[1]));
  return table;
}

// Of the finite values; a range of no width is given one.
Range RangeOf(const std::vector<double>& values) {
  Range range{HUGE_VAL, -HUGE_VAL};
  for (const double value : values) {
    if (!std::isfinite(value)) continue;
    range.min = std::min(range.min, value);
    range.max = std::max(range.max, value);
  }
  if (range.min > range.max) throw CommandError("no value is a number; tell --range");
  if (range.min == range.max) return {range.min - 0.5, range.max + 0.5};
  return range;
}

Range ParseRange(const std::string& text) {
  const auto halves = Halves(text, "--range");
  const Range range{ParseNumber(halves[0]), ParseNumber(halves[1])};
  if (!std::isfinite(range.min) || !std::isfinite(range.max) || range.min == range.max) {
    throw CommandError("--range needs two different numbers");
  }
  return range;
}

// The first colour of the fixed table stands for what lies below, so the least value gets the next.
Range ChooseRange(const Options& options, const NumberTable& data) {
  if (!options.range.empty()) return ParseRange(options.range);
  Range range = RangeOf(data.values);
  if (options.colours.empty()) range.min -= (range.max - range.min) / 250;
  return range;
}

std::string NumberText(double value) {
  std::array<char, 32> text;
  std::snprintf(text.data(), text.size(), "%.4g", value);
  return text.data();
}

constexpr int kTicks = 5;

// The value beside a tick of the scale, from the top.
double TickValue(Range range, int tick) {
  return range.max + (range.min - range.max) * tick / (kTicks - 1);
}

// The colours of the table from the last at the top to the first, with the ticks beside them.
void DrawScale(Canvas& canvas, POINT place, int height, Table table, Range range) {
  const int right = place.x + kBarWidth;
  std::reverse(table.begin(), table.end());
  canvas.Fill({place.x - 1, place.y - 1, right + 1, place.y + height + 1}, kInk);
  canvas.Stretch({place.x, place.y, right, place.y + height}, table.data(), 1, 256);
  for (int i = 0; i < kTicks; ++i) {
    const int y = place.y + (height - 1) * i / (kTicks - 1);
    canvas.Fill({right, y, right + kTick, y + 1}, kInk);
    canvas.Write({right + kTick + 4, y - kTextHeight / 2}, NumberText(TickValue(range, i)), kInk);
  }
}

int LongestText(Range range) {
  std::size_t longest = 0;
  for (int i = 0; i < kTicks; ++i) {
    longest = std::max(longest, NumberText(TickValue(range, i)).size());
  }
  return static_cast<int>(longest);
}

int ZoomFor(const Options& options, const NumberTable& data) {
  const int side = std::max(data.width, data.height);
  const int zoom = options.zoom > 0 ? options.zoom : std::max(1, kGoodSide / side);
  PictureSize(Layout::kArgb32, data.width, data.height);
  if (side > 100'000'000 / zoom) throw CommandError("a picture of this size is too large");
  return zoom;
}

Picture Draw(const Options& options, const NumberTable& data) {
  const Range range = ChooseRange(options, data);
  const Table table = MakeTable(options.colours);
  const int zoom = ZoomFor(options, data);
  std::vector<unsigned int> pixels(data.values.size());
  ImageDataToHotImage(data.values.data(), static_cast<int>(pixels.size()), range.min, range.max,
                      table.data(), pixels.data(), nullptr);
  const int width = data.width * zoom;
  const int height = data.height * zoom;
  const int bar_height = std::max(height, kLeastHeight);
  const int bar_left = kEdge + width + kEdge;
  const int text_left = bar_left + kBarWidth + kTick + 4;
  Canvas canvas(text_left + LongestText(range) * kTextWidth + kEdge, bar_height + 2 * kEdge,
                kPaper);
  canvas.Stretch({kEdge, kEdge, kEdge + width, kEdge + height}, pixels.data(), data.width,
                 data.height);
  DrawScale(canvas, {bar_left, kEdge}, bar_height, table, range);
  return canvas.Content();
}

void Run(const Options& options) {
  const NumberTable data = ParseTable(ReadText(options.file), options.file);
  SaveBmp(ConvertPicture(Draw(options, data), Layout::kRgb888), options.output);
  std::printf("%d x %d values\n", data.width, data.height);
}

}  // namespace

void AddThermalCommand(CLI::App& app) {
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand("thermal", "Draw a table of numbers in false colours");
  command->add_option("FILE", options->file, "Rows of numbers, as a CSV file")->required();
  command->add_option("-o,--output", options->output, "BMP file to write")->required();
  command->add_option("--colours", options->colours,
                      "Two colours RRGGBB,RRGGBB; the hue goes from one to the other");
  command->add_option("--range", options->range, "MIN,MAX of the scale, else those of the values");
  command->add_option("--zoom", options->zoom, "Pixels of a value each way, else by the size")
      ->check(CLI::Range(1, kMostZoom));
  command->callback([options] { Run(*options); });
}

}  // namespace qvx::tool
