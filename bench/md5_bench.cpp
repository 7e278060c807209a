#include <benchmark/benchmark.h>
#include <openssl/evp.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "qvx/md5.h"
#include "ratio.h"

namespace qvx::bench {
namespace {

constexpr std::size_t kPiece = 1 << 20;
constexpr std::size_t kFileSize = 2 * kPiece;
constexpr std::size_t kMemory = 64 * 1024;
constexpr double kRate95 = 1 / 0.95;

const std::vector<unsigned char>& Data() {
  static const std::vector<unsigned char> data(kPiece, 'x');
  return data;
}

void DigestOurs(long long times) {
  for (long long i = 0; i < times; ++i) {
    MD5 md5(Data().data(), kMemory);
    benchmark::DoNotOptimize(md5.digest());
  }
}

void DigestPeer(long long times) {
  unsigned char digest[16];
  for (long long i = 0; i < times; ++i) {
    EVP_Digest(Data().data(), kMemory, digest, nullptr, EVP_md5(), nullptr);
    benchmark::DoNotOptimize(digest);
  }
}

// A file in the page cache, removed at the end.
class File {
 public:
  File() {
    const int descriptor = mkstemp(path_);
    for (std::size_t done = 0; descriptor >= 0 && done < kFileSize; done += kPiece) {
      if (write(descriptor, Data().data(), kPiece) < 0) std::perror("write");
    }
    close(descriptor);
  }
  ~File() { unlink(path_); }
  const char* Path() const { return path_; }

 private:
  char path_[32] = "/tmp/qvx_bench_XXXXXX";
};

const File& TheFile() {
  static const File file;
  return file;
}

void FileOurs(long long times) {
  const std::string path = TheFile().Path();
  const std::u16string wide(path.begin(), path.end());
  unsigned char digest[16];
  for (long long i = 0; i < times; ++i) {
    GetFileMD5(wide.c_str(), digest);
    benchmark::DoNotOptimize(digest);
  }
}

void FilePeer(long long times) {
  std::vector<unsigned char> block(kPiece);
  unsigned char digest[16];
  for (long long i = 0; i < times; ++i) {
    std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(TheFile().Path(), "rb"), &std::fclose);
    std::setvbuf(file.get(), nullptr, _IONBF, 0);
    EVP_MD_CTX* context = EVP_MD_CTX_new();
    EVP_DigestInit_ex(context, EVP_md5(), nullptr);
    while (const std::size_t count = std::fread(block.data(), 1, block.size(), file.get())) {
      EVP_DigestUpdate(context, block.data(), count);
    }
    EVP_DigestFinal_ex(context, digest, nullptr);
    EVP_MD_CTX_free(context);
    benchmark::DoNotOptimize(digest);
  }
}

const bool kAdded = AddPair({"md5 of memory", kRate95, &DigestOurs, &DigestPeer}) &&
                    AddPair({"md5 of a file", kRate95, &FileOurs, &FilePeer});

}  // namespace
}  // namespace qvx::bench
