// qvx sum: digests and checks of a file, all that are asked for in one pass over it.
#include <qvx/crc.h>
#include <qvx/md5.h>
#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "command.h"
#include "progress.h"
#include "stream.h"
#include "text.h"

namespace qvx::tool {
namespace {

constexpr std::size_t kPiece = 1 << 20;

using Preset = void (CCRC16::*)();

const std::map<std::string, Preset>& Presets() {
  static const std::map<std::string, Preset> presets{
      {"USB", &CCRC16::SetPolyParameter_USB},
      {"MODBUS", &CCRC16::SetPolyParameter_MODBUS},
      {"DDS110", &CCRC16::SetPolyParameter_DDS110},
      {"CCITT_FALSE", &CCRC16::SetPolyParameter_CCITT_FALSE},
      {"RIELLO", &CCRC16::SetPolyParameter_RIELLO},
      {"CDMA2000", &CCRC16::SetPolyParameter_CDMA2000},
      {"DECT_R", &CCRC16::SetPolyParameter_DECT_R},
      {"DECT_X", &CCRC16::SetPolyParameter_DECT_X},
      {"DNP", &CCRC16::SetPolyParameter_DNP},
      {"EN_13757", &CCRC16::SetPolyParameter_EN_13757},
      {"T10_DIF", &CCRC16::SetPolyParameter_T10_DIF},
      {"TELEDISK", &CCRC16::SetPolyParameter_TELEDISK}};
  return presets;
}

struct Options {
  std::string file;
  std::string crc16;
  bool md5 = false;
  bool crc32 = false;
};

// What was asked for, over the bytes so far.
class Sums {
 public:
  explicit Sums(const Options& options) : options_(options) {
    if (options.crc16.empty()) return;
    (crc16_.*Presets().at(options.crc16))();
  }

  void Append(const unsigned char* data, std::size_t size) {
    if (options_.md5) md5_.update(data, size);
    if (!options_.crc16.empty()) crc16_.AppendData(data, static_cast<int>(size));
    if (options_.crc32) crc32_.AppendData(data, static_cast<int>(size));
  }

  void Print() {
    const char* name = options_.file.c_str();
    if (options_.md5) std::printf("%s  %s\n", DigestText(md5_.digest()).c_str(), name);
    if (!options_.crc16.empty()) std::printf("%04x  %s\n", crc16_.GetResult(), name);
    if (options_.crc32) std::printf("%08x  %s\n", crc32_.GetResult(), name);
  }

 private:
  const Options& options_;
  MD5 md5_;
  CCRC16 crc16_;
  CCRC32 crc32_;
};

[[noreturn]] void Fail(const char* what, const Options& options) {
  const int reason = errno;
  throw CommandError(std::string("cannot ") + what + " " + options.file + ": " +
                     std::strerror(reason));
}

std::uint64_t SizeOf(std::FILE* file, const Options& options) {
  struct stat status {};
  if (fstat(fileno(file), &status) != 0) Fail("read", options);
  if (S_ISDIR(status.st_mode)) {
    errno = EISDIR;
    Fail("read", options);
  }
  return static_cast<std::uint64_t>(status.st_size);
}

void Sum(const Options& options) {
  if (!options.md5 && !options.crc32 && options.crc16.empty()) {
    throw CommandError("say what to compute: --md5, --crc16 NAME or --crc32");
  }
  const Stream file = OpenStream(options.file, "rbe");
  const std::uint64_t total = SizeOf(file.get(), options);
  Sums sums(options);
  Progress progress(true, {});
  progress.BeginFile(BaseName(options.file));
  std::vector<unsigned char> piece(kPiece);
  std::uint64_t limit = 0;
  for (std::uint64_t done = 0;;) {
    const std::size_t count = std::fread(piece.data(), 1, piece.size(), file.get());
    sums.Append(piece.data(), count);
    done += count;
    if (count < piece.size()) break;
    progress.OnNetFileCopyProgress(0, done, total, 0, &limit);
  }
  const bool failed = std::ferror(file.get()) != 0;
  progress.Clear();
  if (failed) Fail("read", options);
  sums.Print();
}

}  // namespace

void AddSumCommand(CLI::App& app) {
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand("sum", "Compute digests and checks of a file");
  command->add_option("FILE", options->file, "File to read")->required();
  command->add_flag("--md5", options->md5, "MD5 digest");
  command->add_option("--crc16", options->crc16, "16-bit CRC with this set of parameters")
      ->transform(CLI::IsMember(Presets(), CLI::ignore_case));
  command->add_flag("--crc32", options->crc32, "CRC-32/MPEG-2, which is not the one of zip");
  command->callback([options] { Sum(*options); });
}

}  // namespace qvx::tool
