// Conversions of a picture of 1920 x 1080, beside libyuv's of the same kind. Where libyuv has none,
// the peer is the nearest one (RGB888 to YUV420 for YUV422 and YUV444, YUY2 to ARGB for RGB888),
// and between RGB layouts memcpy of the bytes of the larger picture. libyuv's ways from RGB to YUV
// average the colours of four pixels first, which is less work than nine products a pixel.
#include "qvx/pixel_format.h"

#include <benchmark/benchmark.h>
#include <libyuv.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "ratio.h"

namespace qvx::bench {
namespace {

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;
constexpr int kHalf = kWidth / 2;
constexpr int kArea = kWidth * kHeight;
constexpr int kRow24 = 3 * kWidth;
constexpr int kRow16 = 2 * kWidth;
constexpr int kRow32 = 4 * kWidth;

// Starts at a multiple of 64.
class Block {
 public:
  Block() : bytes_(4 * kArea + 64) {
    std::mt19937 random(7);
    for (std::uint8_t& byte : bytes_) byte = static_cast<std::uint8_t>(random());
  }
  std::uint8_t* Data() {
    const auto address = reinterpret_cast<std::uintptr_t>(bytes_.data());
    return bytes_.data() + (64 - address % 64) % 64;
  }

 private:
  std::vector<std::uint8_t> bytes_;
};

// Both sides read and write the same blocks, so that the caches treat them alike.
struct Blocks {
  Block from, to, alpha;
};

Blocks& All() {
  static Blocks blocks;
  return blocks;
}

using Conversion = void (*)(const std::uint8_t* in, std::uint8_t* out);

Work Repeat(Conversion convert) {
  return [convert](long long times) {
    std::uint8_t* out = All().to.Data();
    for (long long i = 0; i < times; ++i) {
      convert(All().from.Data(), out);
      benchmark::DoNotOptimize(out);
      benchmark::ClobberMemory();
    }
  };
}

bool Add(const char* name, double bound, Conversion ours, Conversion peer) {
  return AddPair({name, bound, Repeat(ours), Repeat(peer)});
}

constexpr double kEqual = 1.0;
constexpr double kSevenTenths = 1 / 0.7;

using Planar = int (*)(const std::uint8_t*, int, const std::uint8_t*, int, const std::uint8_t*, int,
                       std::uint8_t*, int, int, int);

// Planar pictures of libyuv's calls: chroma rows, and the size of a chroma plane.
template <Planar kConvert, int kChromaRow, int kChromaSize, int kOutRow>
void FromPlanar(const std::uint8_t* in, std::uint8_t* out) {
  const std::uint8_t* u = in + kArea;
  kConvert(in, kWidth, u, kChromaRow, u + kChromaSize, kChromaRow, out, kOutRow, kWidth, kHeight);
}

using ToPlanarCall = int (*)(const std::uint8_t*, int, std::uint8_t*, int, std::uint8_t*, int,
                             std::uint8_t*, int, int, int);

template <ToPlanarCall kConvert, int kInRow, int kChromaSize = kArea / 4>
void ToPlanar(const std::uint8_t* in, std::uint8_t* out) {
  std::uint8_t* u = out + kArea;
  kConvert(in, kInRow, out, kWidth, u, kHalf, u + kChromaSize, kHalf, kWidth, kHeight);
}

using PlanarToPlanarCall = int (*)(const std::uint8_t*, int, const std::uint8_t*, int,
                                   const std::uint8_t*, int, std::uint8_t*, int, std::uint8_t*, int,
                                   std::uint8_t*, int, int, int);

template <PlanarToPlanarCall kConvert, int kFromChroma, int kToChroma>
void PlanarToPlanar(const std::uint8_t* in, std::uint8_t* out) {
  const std::uint8_t* u = in + kArea;
  std::uint8_t* to_u = out + kArea;
  kConvert(in, kWidth, u, kHalf, u + kFromChroma, kHalf, out, kWidth, to_u, kHalf, to_u + kToChroma,
           kHalf, kWidth, kHeight);
}

template <int kBytes>
void Copy(const std::uint8_t* in, std::uint8_t* out) {
  std::memcpy(out, in, static_cast<std::size_t>(kBytes) * kArea);
}

using RgbCall = void (*)(int, int, const void*, void*, int, int, int);
using FromYuvCall = void (*)(int, int, const void*, int, void*, int, int);
using PlanesCall = void (*)(int, int, const void*, int, void*, int);
using SplitCall = void (*)(int, int, const void*, void*, int);
using JoinCall = void (*)(int, int, const void*, int, void*);

template <RgbCall kConvert, int kStride, int kBgr = 1>
void OursToYuv(const std::uint8_t* in, std::uint8_t* out) {
  kConvert(kWidth, kHeight, in, out, 0, kStride, kBgr);
}

template <RgbCall kConvert, int kFromRow, int kToRow, int kSwap = 0>
void OursRgb(const std::uint8_t* in, std::uint8_t* out) {
  kConvert(kWidth, kHeight, in, out, kFromRow, kToRow, kSwap);
}

template <FromYuvCall kConvert, int kStride>
void OursToRgb(const std::uint8_t* in, std::uint8_t* out) {
  kConvert(kWidth, kHeight, in, 0, out, kStride, 1);
}

template <PlanesCall kConvert>
void OursPlanes(const std::uint8_t* in, std::uint8_t* out) {
  kConvert(kWidth, kHeight, in, 0, out, 0);
}

template <SplitCall kConvert>
void OursSplit(const std::uint8_t* in, std::uint8_t* out) {
  kConvert(kWidth, kHeight, in, out, 0);
}

template <JoinCall kConvert>
void OursJoin(const std::uint8_t* in, std::uint8_t* out) {
  kConvert(kWidth, kHeight, in, 0, out);
}

void OursYuy2ToArgb(const std::uint8_t* in, std::uint8_t* out) {
  YUY2ToARGB32(kWidth, kHeight, in, out, kRow32, 1, All().alpha.Data(), kWidth);
}

void OursYuy2ToRgb(const std::uint8_t* in, std::uint8_t* out) {
  YUY2ToRGB888(kWidth, kHeight, in, out, kRow24, 1);
}

void PeerYuy2ToArgb(const std::uint8_t* in, std::uint8_t* out) {
  libyuv::YUY2ToARGB(in, kRow16, out, kRow32, kWidth, kHeight);
}

// libyuv goes from YUV444 to words through ARGB only.
void Peer444To565(const std::uint8_t* in, std::uint8_t* out) {
  static Block argb;
  libyuv::I444ToARGB(in, kWidth, in + kArea, kWidth, in + 2 * kArea, kWidth, argb.Data(), kRow32,
                     kWidth, kHeight);
  libyuv::ARGBToRGB565(argb.Data(), kRow32, out, kRow16, kWidth, kHeight);
}

void PeerSplitChroma(const std::uint8_t* in, std::uint8_t* out) {
  std::uint8_t* u = out + kArea;
  libyuv::NV12ToI420(in, kWidth, in + kArea, kWidth, out, kWidth, u, kHalf, u + kArea / 4, kHalf,
                     kWidth, kHeight);
}

void PeerJoinChroma(const std::uint8_t* in, std::uint8_t* out) {
  const std::uint8_t* u = in + kArea;
  libyuv::I420ToNV12(in, kWidth, u, kHalf, u + kArea / 4, kHalf, out, kWidth, out + kArea, kWidth,
                     kWidth, kHeight);
}

using libyuv::ARGB1555ToI420;
using libyuv::I420ToARGB1555;
using libyuv::I420ToI422;
using libyuv::I420ToRGB24;
using libyuv::I420ToRGB565;
using libyuv::I422ToI420;
using libyuv::I422ToRGB24;
using libyuv::I422ToRGB565;
using libyuv::I422ToYUY2;
using libyuv::I444ToRGB24;
using libyuv::RGB24ToI420;
using libyuv::RGB565ToI420;
using libyuv::YUY2ToI420;
using libyuv::YUY2ToI422;

constexpr int kQuarter = kArea / 4;

const bool kToRgb =
    Add("pixel yuv420 to rgb888", kEqual, &OursToRgb<&YUV420ToRGB888, kRow24>,
        &FromPlanar<&I420ToRGB24, kHalf, kQuarter, kRow24>) &&
    Add("pixel yuv422 to rgb888", kEqual, &OursToRgb<&YUV422ToRGB888, kRow24>,
        &FromPlanar<&I422ToRGB24, kHalf, kArea / 2, kRow24>) &&
    Add("pixel yuv444 to rgb888", kEqual, &OursToRgb<&YUV444ToRGB888, kRow24>,
        &FromPlanar<&I444ToRGB24, kWidth, kArea, kRow24>) &&
    Add("pixel yuv420 to rgb565", kEqual, &OursToRgb<&YUV420ToRGB565, kRow16>,
        &FromPlanar<&I420ToRGB565, kHalf, kQuarter, kRow16>) &&
    Add("pixel yuv422 to rgb565", kEqual, &OursToRgb<&YUV422ToRGB565, kRow16>,
        &FromPlanar<&I422ToRGB565, kHalf, kArea / 2, kRow16>) &&
    Add("pixel yuv444 to rgb565", kEqual, &OursToRgb<&YUV444ToRGB565, kRow16>, &Peer444To565) &&
    Add("pixel yuv420 to rgb555", kEqual, &OursToRgb<&YUV420ToRGB555, kRow16>,
        &FromPlanar<&I420ToARGB1555, kHalf, kQuarter, kRow16>) &&
    Add("pixel yuy2 to argb32", kEqual, &OursYuy2ToArgb, &PeerYuy2ToArgb) &&
    Add("pixel yuy2 to rgb888", kEqual, &OursYuy2ToRgb, &PeerYuy2ToArgb);

const bool kToYuv = Add("pixel rgb888 to yuv420", kSevenTenths, &OursToYuv<&RGB888ToYUV420, kRow24>,
                        &ToPlanar<&RGB24ToI420, kRow24>) &&
                    Add("pixel rgb888 to yuv422", kSevenTenths, &OursToYuv<&RGB888ToYUV422, kRow24>,
                        &ToPlanar<&RGB24ToI420, kRow24>) &&
                    Add("pixel rgb888 to yuv444", kSevenTenths, &OursToYuv<&RGB888ToYUV444, kRow24>,
                        &ToPlanar<&RGB24ToI420, kRow24>) &&
                    Add("pixel rgb565 to yuv420", kSevenTenths, &OursToYuv<&RGB565ToYUV420, kRow16>,
                        &ToPlanar<&RGB565ToI420, kRow16>) &&
                    Add("pixel rgb555 to yuv420", kSevenTenths, &OursToYuv<&RGB555ToYUV420, kRow16>,
                        &ToPlanar<&ARGB1555ToI420, kRow16>);

const bool kYuvToYuv =
    Add("pixel yuv422 to yuyv", kEqual, &OursJoin<&YUVToYUYV_422>,
        &FromPlanar<&I422ToYUY2, kHalf, kArea / 2, kRow16>) &&
    Add("pixel yuyv to yuv422", kEqual, &OursSplit<&YUYVToYUV_422>,
        &ToPlanar<&YUY2ToI422, kRow16, kArea / 2>) &&
    Add("pixel yuyv to yuv420", kEqual, &OursSplit<&YUYV422ToYUV420>,
        &ToPlanar<&YUY2ToI420, kRow16>) &&
    Add("pixel yuv422 to yuv420", kEqual, &OursPlanes<&YUV422ToYUV420>,
        &PlanarToPlanar<&I422ToI420, kArea / 2, kQuarter>) &&
    Add("pixel yuv420 to yuv422", kEqual, &OursPlanes<&YUV420ToYUV422>,
        &PlanarToPlanar<&I420ToI422, kQuarter, kArea / 2>) &&
    Add("pixel yuv420sp to yuv420", kEqual, &OursSplit<&YUV420SPToYUV420>, &PeerSplitChroma) &&
    Add("pixel yuv420 to yuv420sp", kEqual, &OursJoin<&YUV420ToYUV420SP>, &PeerJoinChroma);

const bool kRgbToRgb = Add("pixel rgb888 to rgb565", kSevenTenths,
                           &OursRgb<&RGB888ToRGB565, kRow24, kRow16>, &Copy<3>) &&
                       Add("pixel rgb888 to rgb555", kSevenTenths,
                           &OursRgb<&RGB888ToRGB555, kRow24, kRow16, 1>, &Copy<3>) &&
                       Add("pixel rgb565 to rgb888", kSevenTenths,
                           &OursRgb<&RGB565ToRGB888, kRow16, kRow24>, &Copy<3>) &&
                       Add("pixel rgb555 to rgb888", kSevenTenths,
                           &OursRgb<&RGB555ToRGB888, kRow16, kRow24, 1>, &Copy<3>) &&
                       Add("pixel rgb565 to rgb555", kSevenTenths,
                           &OursRgb<&RGB565ToRGB555, kRow16, kRow16>, &Copy<2>) &&
                       Add("pixel rgb555 to rgb565", kSevenTenths,
                           &OursRgb<&RGB555ToRGB565, kRow16, kRow16, 1>, &Copy<2>);

}  // namespace
}  // namespace qvx::bench
