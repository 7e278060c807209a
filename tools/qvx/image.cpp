// qvx image: one picture of raw pixels into another layout, as a BMP file or as raw pixels.
#include <CLI/CLI.hpp>
#include <charconv>
#include <cstdint>
#include <memory>
#include <string>
#include <system_error>
#include <utility>

#include "command.h"
#include "picture_file.h"
#include "pixel_layout.h"
#include "text.h"

namespace qvx::tool {
namespace {

struct Options {
  std::string file;
  std::string size;
  std::string from;
  std::string to = "RGB888";
  std::string output;
  std::uint64_t frame = 0;
  bool swap_in = false;
  bool swap_out = false;
};

struct Size {
  int width = 0;
  int height = 0;
};

Size ParseSize(const std::string& text) {
  Size size;
  const char* end = text.data() + text.size();
  const auto width = std::from_chars(text.data(), end, size.width);
  if (width.ec == std::errc() && width.ptr != end && (*width.ptr == 'x' || *width.ptr == 'X')) {
    const auto height = std::from_chars(width.ptr + 1, end, size.height);
    if (height.ec == std::errc() && height.ptr == end && size.width > 0 && size.height > 0) {
      return size;
    }
  }
  throw CommandError("the size must be like 1920x1080, not " + text);
}

Picture ReadPicture(const Options& options) {
  const Size size = ParseSize(options.size);
  const Layout layout = LayoutOf(options.from);
  const std::size_t bytes = PictureSize(layout, size.width, size.height);
  const std::uint64_t held = FileSize(options.file);
  if (held == 0 || held % bytes != 0) {
    throw CommandError(options.file + " has " + CountText(held, "byte") + "; a frame of " +
                       options.size + " " + LayoutName(layout) + " has " +
                       CountText(bytes, "byte"));
  }
  if (options.frame >= held / bytes) {
    throw CommandError(options.file + " has " + CountText(held / bytes, "frame"));
  }
  return {layout, size.width, size.height, ReadPiece(options.file, options.frame * bytes, bytes)};
}

void Convert(const Options& options) {
  const Layout to = LayoutOf(options.to);
  const bool bmp = IsBmpName(options.output);
  if (bmp && options.swap_out) throw CommandError("a BMP file has one order only");
  Picture picture = ReadPicture(options);
  if (options.swap_in) ExchangeOrder(picture);
  picture = ConvertPicture(std::move(picture), to);
  if (options.swap_out) ExchangeOrder(picture);
  if (bmp) {
    SaveBmp(picture, options.output);
  } else {
    SaveRaw(picture.bytes, options.output);
  }
}

}  // namespace

void AddImageCommand(CLI::App& app) {
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand("image", "Convert raw pixels, as of a camera");
  command->footer("Layouts: " + LayoutNames() +
                  ".\nU comes before V and blue before red in memory, unless an order is swapped.");
  command->add_option("FILE", options->file, "Raw pixels, one frame or several")->required();
  command->add_option("--size", options->size, "Width and height, as 1920x1080")->required();
  command->add_option("--from", options->from, "Layout of FILE")->required();
  command->add_option("--to", options->to, "Layout to convert to")->capture_default_str();
  command->add_option("-o,--output", options->output, "A .bmp, or a file for raw pixels")
      ->required();
  command->add_option("--frame", options->frame, "Frame of FILE, from 0")->capture_default_str();
  command->add_flag("--swap-in", options->swap_in, "FILE has V before U, or red before blue");
  command->add_flag("--swap-out", options->swap_out, "Write raw pixels in the other order");
  command->callback([options] { Convert(*options); });
}

}  // namespace qvx::tool
