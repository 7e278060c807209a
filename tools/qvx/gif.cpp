// qvx gif: what an animated GIF holds, its composed frames as bitmap files, or the animation
// itself in the terminal.
#include <qvx/gif_decoder.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <climits>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

#include "command.h"
#include "half_blocks.h"
#include "interrupt.h"
#include "picture_file.h"
#include "pixel_layout.h"
#include "terminal.h"
#include "text.h"

namespace qvx::tool {
namespace {

// A frame that asks for less is shown so long; many files say 0 and mean "fast".
constexpr int kShortestDelayMs = 20;

struct Options {
  std::string file;
  std::string folder;
  bool play = false;
  int rounds = 0;
};

void Load(CGifDecoder& decoder, const std::string& path) {
  const std::string bytes = ReadText(path);
  if (bytes.size() > INT_MAX) throw CommandError(path + " is too big");
  if (!decoder.LoadFromGifData(reinterpret_cast<const unsigned char*>(bytes.data()),
                               static_cast<int>(bytes.size()))) {
    throw CommandError(path + " is no GIF");
  }
  if (decoder.GetGifFrameBuffer() == nullptr) throw CommandError(path + " is too large a picture");
}

// A file that is damaged or cut off has no count; its first frame can still be looked at.
int FramesToShow(const CGifDecoder& decoder) {
  return std::max(decoder.GetFrameCount(), 1);
}

void WriteBitmap(const CGifDecoder& decoder, const std::string& path) {
  const int width = decoder.GetGifWidth();
  const int height = decoder.GetGifHeight();
  const unsigned char* pixels = decoder.GetGifFrameBuffer();
  SaveBmp({Layout::kArgb32,
           width,
           height,
           {pixels, pixels + PictureSize(Layout::kArgb32, width, height)}},
          path);
}

std::string FramePath(const Options& options, int index) {
  std::string name = BaseName(options.file);
  name.resize(std::min(name.rfind('.'), name.size()));
  char number[24];
  std::snprintf(number, sizeof number, "_%04d.bmp", index);
  return JoinNative(options.folder, name + number);
}

void MakeFolder(const std::string& folder) {
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  if (error) throw CommandError("cannot make the folder " + folder + ": " + error.message());
}

void Describe(CGifDecoder& decoder, const Options& options) {
  std::printf("%s: %d x %d, %s\n", options.file.c_str(), decoder.GetGifWidth(),
              decoder.GetGifHeight(),
              CountText(static_cast<std::uint64_t>(decoder.GetFrameCount()), "frame").c_str());
  if (!options.folder.empty()) MakeFolder(options.folder);
  const int count = FramesToShow(decoder);
  long long total = 0;
  for (int i = 0; i < count; ++i) {
    decoder.DecNextFrame(false);
    total += decoder.GetDelayTimeMS();
    std::printf("%6d %7d ms", i, decoder.GetDelayTimeMS());
    if (!options.folder.empty()) {
      const std::string path = FramePath(options, i);
      WriteBitmap(decoder, path);
      std::printf("  %s", path.c_str());
    }
    std::printf("\n");
  }
  std::printf(" total %7lld ms\n", total);
}

void Play(CGifDecoder& decoder, const Options& options) {
  const bool on_terminal = OutputIsTerminal();
  const int rounds = options.rounds > 0 || on_terminal ? options.rounds : 1;
  const TerminalSize size = SizeOfTerminal();
  BlockInterrupts();
  std::printf("\033[?25l");
  bool is_over = false;
  for (long long i = 0; !is_over; ++i) {
    decoder.DecNextFrame(true);
    const PixelView picture{decoder.GetGifFrameBuffer(), decoder.GetGifWidth(),
                            decoder.GetGifHeight()};
    const std::string text = HalfBlocks(picture, size.columns, size.rows - 1);
    std::fwrite(text.data(), 1, text.size(), stdout);
    if (std::fflush(stdout) != 0) break;
    is_over = rounds > 0 && i + 1 >= static_cast<long long>(rounds) * FramesToShow(decoder);
    is_over |= WaitForInterrupt(std::max(decoder.GetDelayTimeMS(), kShortestDelayMs));
    if (!is_over)
      std::printf("\033[%dA", static_cast<int>(std::count(text.begin(), text.end(), '\n')));
  }
  std::printf("\033[?25h");
}

void Run(const Options& options) {
  CGifDecoder decoder;
  Load(decoder, options.file);
  if (options.play) {
    Play(decoder, options);
  } else {
    Describe(decoder, options);
  }
  if (decoder.GetFrameCount() == 0) {
    throw CommandError(options.file + " is damaged; only its first frame was looked at");
  }
}

}  // namespace

void AddGifCommand(CLI::App& app) {
  auto options = std::make_shared<Options>();
  CLI::App* command =
      app.add_subcommand("gif", "Show what a GIF holds, play it, or write its frames");
  command->add_option("FILE", options->file, "GIF file")->required();
  CLI::Option* folder = command->add_option(
      "-o,--output", options->folder, "Write the composed frames into this folder, as BMP files");
  CLI::Option* play =
      command->add_flag("--play", options->play,
                        "Draw the frames in the terminal, with half blocks and 24-bit colour");
  play->excludes(folder);
  command
      ->add_option("--rounds", options->rounds,
                   "Play so often; 0 goes on until Ctrl+C (1 where the output is no terminal)")
      ->needs(play)
      ->check(CLI::NonNegativeNumber);
  command->callback([options] { Run(*options); });
}

}  // namespace qvx::tool
