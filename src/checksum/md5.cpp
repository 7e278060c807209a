#include "qvx/md5.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <memory>

#include "platform/file.h"

static_assert(std::endian::native == std::endian::little);

const unsigned char MD5::PADDING[64] = {0x80};
const char MD5::HEX[16] = {'0', '1', '2', '3', '4', '5', '6', '7',
                           '8', '9', 'a', 'b', 'c', 'd', 'e', 'f'};
const std::uint64_t MD5::BUFFER_SIZE = 1024;

namespace {

constexpr std::size_t kBlock = 64;
constexpr std::size_t kDigest = 16;
constexpr std::size_t kPiece = 0x100000;

using Word = std::uint32_t;

// One step each of the four rounds. b is the newest value: what does not need it comes first,
// so that the chain from step to step stays short.
template <int Shift>
inline void RoundF(Word& a, Word b, Word c, Word d, Word input, Word constant) {
  a += input + constant;
  a += d ^ (b & (c ^ d));
  a = std::rotl(a, Shift) + b;
}

template <int Shift>
inline void RoundG(Word& a, Word b, Word c, Word d, Word input, Word constant) {
  // The two halves share no bit, so adding them is or-ing them, and the first needs no b.
  a += input + constant + (c & ~d);
  a += b & d;
  a = std::rotl(a, Shift) + b;
}

template <int Shift>
inline void RoundH(Word& a, Word b, Word c, Word d, Word input, Word constant) {
  a += input + constant;
  a += b ^ (c ^ d);
  a = std::rotl(a, Shift) + b;
}

template <int Shift>
inline void RoundI(Word& a, Word b, Word c, Word d, Word input, Word constant) {
  a += input + constant;
  a += c ^ (b | ~d);
  a = std::rotl(a, Shift) + b;
}

inline Word Input(const unsigned char* block, int index) {
  Word word;
  std::memcpy(&word, block + 4 * index, sizeof(word));
  return word;
}

struct Chain {
  Word a, b, c, d;
};

inline void FirstRounds(Chain& v, const unsigned char* x) {
  RoundF<7>(v.a, v.b, v.c, v.d, Input(x, 0), 0xd76aa478);
  RoundF<12>(v.d, v.a, v.b, v.c, Input(x, 1), 0xe8c7b756);
  RoundF<17>(v.c, v.d, v.a, v.b, Input(x, 2), 0x242070db);
  RoundF<22>(v.b, v.c, v.d, v.a, Input(x, 3), 0xc1bdceee);
  RoundF<7>(v.a, v.b, v.c, v.d, Input(x, 4), 0xf57c0faf);
  RoundF<12>(v.d, v.a, v.b, v.c, Input(x, 5), 0x4787c62a);
  RoundF<17>(v.c, v.d, v.a, v.b, Input(x, 6), 0xa8304613);
  RoundF<22>(v.b, v.c, v.d, v.a, Input(x, 7), 0xfd469501);
  RoundF<7>(v.a, v.b, v.c, v.d, Input(x, 8), 0x698098d8);
  RoundF<12>(v.d, v.a, v.b, v.c, Input(x, 9), 0x8b44f7af);
  RoundF<17>(v.c, v.d, v.a, v.b, Input(x, 10), 0xffff5bb1);
  RoundF<22>(v.b, v.c, v.d, v.a, Input(x, 11), 0x895cd7be);
  RoundF<7>(v.a, v.b, v.c, v.d, Input(x, 12), 0x6b901122);
  RoundF<12>(v.d, v.a, v.b, v.c, Input(x, 13), 0xfd987193);
  RoundF<17>(v.c, v.d, v.a, v.b, Input(x, 14), 0xa679438e);
  RoundF<22>(v.b, v.c, v.d, v.a, Input(x, 15), 0x49b40821);
  RoundG<5>(v.a, v.b, v.c, v.d, Input(x, 1), 0xf61e2562);
  RoundG<9>(v.d, v.a, v.b, v.c, Input(x, 6), 0xc040b340);
  RoundG<14>(v.c, v.d, v.a, v.b, Input(x, 11), 0x265e5a51);
  RoundG<20>(v.b, v.c, v.d, v.a, Input(x, 0), 0xe9b6c7aa);
  RoundG<5>(v.a, v.b, v.c, v.d, Input(x, 5), 0xd62f105d);
  RoundG<9>(v.d, v.a, v.b, v.c, Input(x, 10), 0x02441453);
  RoundG<14>(v.c, v.d, v.a, v.b, Input(x, 15), 0xd8a1e681);
  RoundG<20>(v.b, v.c, v.d, v.a, Input(x, 4), 0xe7d3fbc8);
  RoundG<5>(v.a, v.b, v.c, v.d, Input(x, 9), 0x21e1cde6);
  RoundG<9>(v.d, v.a, v.b, v.c, Input(x, 14), 0xc33707d6);
  RoundG<14>(v.c, v.d, v.a, v.b, Input(x, 3), 0xf4d50d87);
  RoundG<20>(v.b, v.c, v.d, v.a, Input(x, 8), 0x455a14ed);
  RoundG<5>(v.a, v.b, v.c, v.d, Input(x, 13), 0xa9e3e905);
  RoundG<9>(v.d, v.a, v.b, v.c, Input(x, 2), 0xfcefa3f8);
  RoundG<14>(v.c, v.d, v.a, v.b, Input(x, 7), 0x676f02d9);
  RoundG<20>(v.b, v.c, v.d, v.a, Input(x, 12), 0x8d2a4c8a);
}

inline void LastRounds(Chain& v, const unsigned char* x) {
  RoundH<4>(v.a, v.b, v.c, v.d, Input(x, 5), 0xfffa3942);
  RoundH<11>(v.d, v.a, v.b, v.c, Input(x, 8), 0x8771f681);
  RoundH<16>(v.c, v.d, v.a, v.b, Input(x, 11), 0x6d9d6122);
  RoundH<23>(v.b, v.c, v.d, v.a, Input(x, 14), 0xfde5380c);
  RoundH<4>(v.a, v.b, v.c, v.d, Input(x, 1), 0xa4beea44);
  RoundH<11>(v.d, v.a, v.b, v.c, Input(x, 4), 0x4bdecfa9);
  RoundH<16>(v.c, v.d, v.a, v.b, Input(x, 7), 0xf6bb4b60);
  RoundH<23>(v.b, v.c, v.d, v.a, Input(x, 10), 0xbebfbc70);
  RoundH<4>(v.a, v.b, v.c, v.d, Input(x, 13), 0x289b7ec6);
  RoundH<11>(v.d, v.a, v.b, v.c, Input(x, 0), 0xeaa127fa);
  RoundH<16>(v.c, v.d, v.a, v.b, Input(x, 3), 0xd4ef3085);
  RoundH<23>(v.b, v.c, v.d, v.a, Input(x, 6), 0x04881d05);
  RoundH<4>(v.a, v.b, v.c, v.d, Input(x, 9), 0xd9d4d039);
  RoundH<11>(v.d, v.a, v.b, v.c, Input(x, 12), 0xe6db99e5);
  RoundH<16>(v.c, v.d, v.a, v.b, Input(x, 15), 0x1fa27cf8);
  RoundH<23>(v.b, v.c, v.d, v.a, Input(x, 2), 0xc4ac5665);
  RoundI<6>(v.a, v.b, v.c, v.d, Input(x, 0), 0xf4292244);
  RoundI<10>(v.d, v.a, v.b, v.c, Input(x, 7), 0x432aff97);
  RoundI<15>(v.c, v.d, v.a, v.b, Input(x, 14), 0xab9423a7);
  RoundI<21>(v.b, v.c, v.d, v.a, Input(x, 5), 0xfc93a039);
  RoundI<6>(v.a, v.b, v.c, v.d, Input(x, 12), 0x655b59c3);
  RoundI<10>(v.d, v.a, v.b, v.c, Input(x, 3), 0x8f0ccc92);
  RoundI<15>(v.c, v.d, v.a, v.b, Input(x, 10), 0xffeff47d);
  RoundI<21>(v.b, v.c, v.d, v.a, Input(x, 1), 0x85845dd1);
  RoundI<6>(v.a, v.b, v.c, v.d, Input(x, 8), 0x6fa87e4f);
  RoundI<10>(v.d, v.a, v.b, v.c, Input(x, 15), 0xfe2ce6e0);
  RoundI<15>(v.c, v.d, v.a, v.b, Input(x, 6), 0xa3014314);
  RoundI<21>(v.b, v.c, v.d, v.a, Input(x, 13), 0x4e0811a1);
  RoundI<6>(v.a, v.b, v.c, v.d, Input(x, 4), 0xf7537e82);
  RoundI<10>(v.d, v.a, v.b, v.c, Input(x, 11), 0xbd3af235);
  RoundI<15>(v.c, v.d, v.a, v.b, Input(x, 2), 0x2ad7d2bb);
  RoundI<21>(v.b, v.c, v.d, v.a, Input(x, 9), 0xeb86d391);
}

}  // namespace

MD5::MD5() {
  reset();
}

MD5::MD5(const unsigned char* data, std::uint64_t length) : MD5() {
  update(data, length);
}

void MD5::reset() {
  mState[0] = 0x67452301;
  mState[1] = 0xefcdab89;
  mState[2] = 0x98badcfe;
  mState[3] = 0x10325476;
  mCount[0] = 0;
  mCount[1] = 0;
  std::memset(mBuffer, 0, sizeof(mBuffer));
  std::memset(mDigest, 0, sizeof(mDigest));
  mFinalized = false;
}

void MD5::update(const unsigned char* data, std::uint64_t length) {
  mFinalized = false;
  if (data == nullptr || length == 0) return;
  const std::size_t position = mCount[0] >> 3 & (kBlock - 1);
  const std::uint64_t bits = (std::uint64_t{mCount[1]} << 32 | mCount[0]) + length * 8;
  mCount[0] = static_cast<std::uint32_t>(bits);
  mCount[1] = static_cast<std::uint32_t>(bits >> 32);
  if (position != 0) {
    const std::uint64_t head = std::min<std::uint64_t>(length, kBlock - position);
    std::memcpy(mBuffer + position, data, head);
    if (position + head < kBlock) return;
    transform(mBuffer, 1);
    data += head;
    length -= head;
  }
  transform(data, length / kBlock);
  std::memcpy(mBuffer, data + (length - length % kBlock), length % kBlock);
}

const unsigned char* MD5::digest() {
  if (mFinalized) return mDigest;
  MD5 ended(*this);
  ended.final();
  std::memcpy(mDigest, ended.mDigest, sizeof(mDigest));
  mFinalized = true;
  return mDigest;
}

void MD5::final() {
  unsigned char count[8];
  encode(mCount, count, sizeof(count));
  const std::size_t position = mCount[0] >> 3 & (kBlock - 1);
  update(PADDING, position < 56 ? 56 - position : 120 - position);
  update(count, sizeof(count));
  encode(mState, mDigest, sizeof(mDigest));
}

void MD5::transform(const unsigned char* blocks, std::uint64_t count) {
  Chain v{mState[0], mState[1], mState[2], mState[3]};
  for (; count > 0; --count, blocks += kBlock) {
    const Chain before = v;
    FirstRounds(v, blocks);
    LastRounds(v, blocks);
    v = {v.a + before.a, v.b + before.b, v.c + before.c, v.d + before.d};
  }
  mState[0] = v.a;
  mState[1] = v.b;
  mState[2] = v.c;
  mState[3] = v.d;
}

void MD5::encode(const std::uint32_t* words, unsigned char* bytes, std::uint64_t byteCount) {
  std::memcpy(bytes, words, byteCount);
}

int GetFileMD5(const WCHAR* path, unsigned char* digest) {
  if (digest == nullptr) return 0;
  std::memset(digest, 0, kDigest);
  qvx::platform::File file;
  if (!file.Open(path, u"rb")) return 0;
  const std::int64_t size = file.Size();
  if (size <= 0) return 0;
  const auto piece = std::make_unique_for_overwrite<unsigned char[]>(kPiece);
  MD5 md5;
  for (std::uint64_t done = 0; done < static_cast<std::uint64_t>(size);) {
    const std::size_t count = file.ReadAt(done, piece.get(), kPiece).count;
    if (count == 0) break;
    md5.update(piece.get(), count);
    done += count;
  }
  std::memcpy(digest, md5.digest(), kDigest);
  return 1;
}
