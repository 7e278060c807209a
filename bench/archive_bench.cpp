#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <unistd.h>
#include <zlib.h>

#include <string>
#include <vector>

#include "qvx/zip_file.h"
#include "ratio.h"

namespace qvx::bench {
namespace {

constexpr int kBlock = 16 * 1024;
constexpr int kBlocks = 128;
constexpr double kRate95 = 1 / 0.95;

// Letters as often as in prose. The blocks of a file repeat it within the compressor's window, so
// that compressing takes little time and what stands around it shows.
const std::vector<char>& Block() {
  static const std::vector<char> block = [] {
    std::vector<char> text(kBlock);
    unsigned int state = 1;
    for (char& character : text) {
      state = state * 1103515245 + 12345;
      character = "eeettaaoinshrdlu  \n"[(state >> 16) % 19];
    }
    return text;
  }();
  return block;
}

class GzipPath {
 public:
  GzipPath() { close(mkstemp(native_)); }
  ~GzipPath() { unlink(native_); }
  const char* Native() const { return native_; }
  std::string Library() const {
    std::string path = "C:" + std::string(native_);
    for (char& character : path) character = character == '/' ? '\\' : character;
    return path;
  }

 private:
  char native_[32] = "/tmp/qvx_bench_XXXXXX";
};

const GzipPath& Path() {
  static const GzipPath path;
  return path;
}

void WriteOurs(long long times) {
  const std::string path = Path().Library();
  for (long long i = 0; i < times; ++i) {
    CZipFile file;
    file.Open(path.c_str(), "wb");
    for (int block = 0; block < kBlocks; ++block) file.Write(Block().data(), kBlock);
  }
}

void WritePeer(long long times) {
  for (long long i = 0; i < times; ++i) {
    const gzFile file = gzopen(Path().Native(), "wb");
    for (int block = 0; block < kBlocks; ++block) gzwrite(file, Block().data(), kBlock);
    gzclose(file);
  }
}

void ReadOurs(long long times) {
  const std::string path = Path().Library();
  std::vector<char> block(kBlock);
  for (long long i = 0; i < times; ++i) {
    CZipFile file;
    file.Open(path.c_str(), "rb");
    while (file.Read(block.data(), kBlock) > 0) benchmark::ClobberMemory();
  }
}

void ReadPeer(long long times) {
  std::vector<char> block(kBlock);
  for (long long i = 0; i < times; ++i) {
    const gzFile file = gzopen(Path().Native(), "rb");
    while (gzread(file, block.data(), kBlock) > 0) benchmark::ClobberMemory();
    gzclose(file);
  }
}

// Reading reads what writing left, so the order stays.
const bool kWrite = AddPair({"gzip/write 2 MiB", kRate95, WriteOurs, WritePeer});
const bool kRead = AddPair({"gzip/read 2 MiB", kRate95, ReadOurs, ReadPeer});

}  // namespace
}  // namespace qvx::bench
