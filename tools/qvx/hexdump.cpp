// qvx hexdump: the bytes of a file as hexadecimal digits and text, 16 a line.
#include <qvx/hex_text.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "command.h"
#include "stream.h"

namespace qvx::tool {
namespace {

constexpr std::size_t kPerLine = 16;

struct Options {
  std::string file;
  std::uint64_t skip = 0;
  std::uint64_t length = UINT64_MAX;
};

Stream Open(const Options& options) {
  Stream stream = OpenStream(options.file, "rbe");
  if (options.skip > INT64_MAX ||
      fseeko(stream.get(), static_cast<off_t>(options.skip), SEEK_SET) != 0) {
    throw CommandError("cannot skip " + std::to_string(options.skip) + " bytes of " + options.file);
  }
  return stream;
}

void PrintLine(std::uint64_t offset, const unsigned char* bytes, std::size_t count) {
  CBaseStringA digits;
  BufferToHexStringA(bytes, static_cast<int>(count), 0, 1, &digits);
  std::string text(reinterpret_cast<const char*>(bytes), count);
  std::replace_if(
      text.begin(), text.end(), [](unsigned char c) { return c < 0x20 || c > 0x7e; }, '.');
  std::printf("%08llx  %-48s |%s|\n", static_cast<unsigned long long>(offset), digits.GetString(),
              text.c_str());
}

void Dump(const Options& options) {
  const Stream stream = Open(options);
  std::array<unsigned char, kPerLine> line;
  std::uint64_t left = options.length;
  for (std::uint64_t offset = options.skip; left > 0;) {
    const std::size_t wanted = static_cast<std::size_t>(std::min<std::uint64_t>(left, kPerLine));
    const std::size_t count = std::fread(line.data(), 1, wanted, stream.get());
    if (count > 0) PrintLine(offset, line.data(), count);
    if (count < wanted) break;
    offset += count;
    left -= count;
  }
  if (std::ferror(stream.get())) throw CommandError("cannot read " + options.file);
}

}  // namespace

void AddHexdumpCommand(CLI::App& app) {
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand("hexdump", "Show the bytes of a file");
  command->add_option("FILE", options->file, "File to show")->required();
  command->add_option("--skip", options->skip, "Bytes to leave out at the start");
  command->add_option("--length", options->length, "Most bytes to show");
  command->callback([options] { Dump(*options); });
}

}  // namespace qvx::tool
