#include "qvx/gif_decoder.h"

#include <gif_lib.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "support/failing_new.h"
#include "support/temp_folder.h"

namespace qvx::test {
namespace {

using Map = std::vector<GifColorType>;
using Canvas = std::vector<std::uint32_t>;

std::size_t Count(int value) {
  return static_cast<std::size_t>(value);
}

struct Frame {
  int left = 0, top = 0, width = 0, height = 0;
  bool interlaced = false;
  Map map;  // empty for none
  int disposal = 0, transparent = -1;
  int delay = -1;  // below 0: no control extension, so neither disposal nor transparency
  std::string pixels;
};

struct Picture {
  int width = 0, height = 0, background = 0;
  Map map;
  std::vector<Frame> frames;
};

int Append(GifFileType* file, const GifByteType* bytes, int count) {
  static_cast<std::string*>(file->UserData)
      ->append(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(count));
  return count;
}

ColorMapObject ObjectOf(Map& map) {
  const int count = static_cast<int>(map.size());
  return {count, GifBitSize(count), false, map.data()};
}

void PutFrame(GifFileType* file, Frame frame) {
  if (frame.delay >= 0) {
    const GraphicsControlBlock control{frame.disposal, false, frame.delay, frame.transparent};
    GifByteType bytes[4];
    EGifGCBToExtension(&control, bytes);
    EGifPutExtension(file, GRAPHICS_EXT_FUNC_CODE, 4, bytes);
  }
  EGifPutComment(file, "between");
  // The library forgets the map before when a frame has none.
  if (file->Image.ColorMap != nullptr) GifFreeMapObject(file->Image.ColorMap);
  file->Image.ColorMap = nullptr;
  const ColorMapObject map = ObjectOf(frame.map);
  EGifPutImageDesc(file, frame.left, frame.top, frame.width, frame.height, frame.interlaced,
                   frame.map.empty() ? nullptr : &map);
  using Passes = std::vector<std::pair<int, int>>;
  const Passes passes = frame.interlaced ? Passes{{0, 8}, {4, 8}, {2, 4}, {1, 2}} : Passes{{0, 1}};
  for (const auto& [first, step] : passes) {
    for (int y = first; y < frame.height; y += step) {
      EGifPutLine(file, reinterpret_cast<GifPixelType*>(&frame.pixels[Count(y * frame.width)]),
                  frame.width);
    }
  }
}

std::string Encode(Picture picture) {
  std::string bytes;
  GifFileType* file = EGifOpen(&bytes, &Append, nullptr);
  EGifSetGifVersion(file, true);
  const ColorMapObject map = ObjectOf(picture.map);
  EGifPutScreenDesc(file, picture.width, picture.height, 8, picture.background, &map);
  for (const Frame& frame : picture.frames) PutFrame(file, frame);
  EXPECT_EQ(GIF_OK, EGifCloseFile(file, nullptr));
  return bytes;
}

// What all frames show, composed by the book: a canvas, what "previous" goes back to, the frame
// before.
std::vector<Canvas> Compose(const Picture& picture, bool rgba) {
  const auto pixel = [rgba](const GifColorType& c) {
    const int word =
        rgba ? c.Blue << 16 | c.Green << 8 | c.Red : c.Red << 16 | c.Green << 8 | c.Blue;
    return 0xFF000000u | static_cast<std::uint32_t>(word);
  };
  const auto each = [&picture](const Frame& frame, const auto& what) {
    for (int i = 0; i < frame.width * frame.height; ++i) {
      const int y = frame.top + i / frame.width;
      what(Count(y * picture.width + frame.left + i % frame.width),
           static_cast<unsigned char>(frame.pixels[Count(i)]));
    }
  };
  const bool clears = std::any_of(picture.frames.begin(), picture.frames.end(),
                                  [](const Frame& frame) { return frame.transparent >= 0; });
  const std::uint32_t back = clears ? 0 : pixel(picture.map[Count(picture.background)]);
  Canvas canvas(Count(picture.width * picture.height));
  Canvas kept = canvas;
  std::vector<Canvas> shown;
  const Frame* last = nullptr;
  for (const Frame& frame : picture.frames) {
    if (last != nullptr && (last->disposal == 2 || last->disposal == 3)) {
      each(*last, [&](std::size_t at, int) { canvas[at] = last->disposal == 2 ? back : kept[at]; });
    }
    const Map& map = frame.map.empty() ? picture.map : frame.map;
    each(frame, [&](std::size_t at, int colour) {
      if (colour != frame.transparent) canvas[at] = pixel(map[Count(colour)]);
      if (frame.disposal == 1) kept[at] = canvas[at];
    });
    shown.push_back(canvas);
    last = &frame;
  }
  return shown;
}

enum class Rules { kAll, kCommon };

// Rules::kCommon: only what all decoders understand in the same way.
struct Random {
  std::mt19937 engine;

  int Below(int end) { return static_cast<int>(engine() % static_cast<unsigned>(end)); }

  Picture Draw(Rules rules) {
    Picture picture;
    picture.width = 1 + Below(40);
    picture.height = 1 + Below(40);
    picture.map = Colours();
    picture.background = Below(static_cast<int>(picture.map.size()));
    const bool is_clear = Below(3) > 0;
    const int count = 1 + Below(8);
    for (int i = 0; i < count; ++i) {
      picture.frames.push_back(DrawFrame(picture, is_clear, rules == Rules::kCommon));
    }
    return picture;
  }

  Map Colours() {
    Map map(std::size_t{2} << Below(8));
    for (GifColorType& c : map) {
      c = {GifByteType(Below(256)), GifByteType(Below(256)), GifByteType(Below(256))};
    }
    return map;
  }

  // All agree on 3 only behind a 1 and without a 2, and on 2 only where it clears.
  int CommonDisposal(const Picture& picture, bool is_clear) {
    int disposal = is_clear ? 1 + Below(3) : 1 + 2 * Below(2);
    if (disposal == 3 && picture.frames.empty()) disposal = 1;
    for (const Frame& frame : picture.frames) {
      if (frame.disposal == 2) disposal = std::min(disposal, 2);
    }
    return disposal;
  }

  Frame DrawFrame(const Picture& picture, bool is_clear, bool is_common) {
    const bool covers = is_common && picture.frames.empty();
    Frame frame;
    frame.left = covers ? 0 : Below(picture.width);
    frame.top = covers ? 0 : Below(picture.height);
    frame.width = covers ? picture.width : 1 + Below(picture.width - frame.left);
    frame.height = covers ? picture.height : 1 + Below(picture.height - frame.top);
    frame.interlaced = Below(2) == 0;
    if (Below(3) == 0) frame.map = Colours();
    const int colours = static_cast<int>((frame.map.empty() ? picture.map : frame.map).size());
    if (is_common || Below(4) > 0) {
      frame.delay = Below(700);
      if (is_clear && (is_common || Below(2) == 0)) frame.transparent = Below(colours);
      frame.disposal = is_common ? CommonDisposal(picture, is_clear) : Below(8);
    }
    frame.pixels.resize(Count(frame.width * frame.height));
    for (char& pixel : frame.pixels) pixel = static_cast<char>(Below(colours));
    return frame;
  }
};

bool Load(CGifDecoder& decoder, const std::string& bytes) {
  return decoder.LoadFromGifData(reinterpret_cast<const unsigned char*>(bytes.data()),
                                 static_cast<int>(bytes.size()));
}

Canvas Shown(const CGifDecoder& decoder) {
  Canvas canvas(Count(decoder.GetGifWidth() * decoder.GetGifHeight()));
  std::memcpy(canvas.data(), decoder.GetGifFrameBuffer(), canvas.size() * 4);
  return canvas;
}

TEST(GifDecoder, ComposesEveryFrameInEveryRound) {
  Random random{std::mt19937(77)};
  for (int round = 0; round < 150; ++round) {
    const Picture picture = random.Draw(Rules::kAll);
    const int count = static_cast<int>(picture.frames.size());
    for (bool rgba : {false, true}) {
      CGifDecoder decoder;
      ASSERT_TRUE(Load(decoder, Encode(picture)));
      ASSERT_EQ(count, decoder.GetFrameCount());
      ASSERT_EQ(picture.width, decoder.GetGifWidth());
      ASSERT_EQ(picture.height, decoder.GetGifHeight());
      const std::vector<Canvas> expected = Compose(picture, rgba);
      int delay = 100;
      const int jump = random.Below(2 * count);
      for (int i = 0, at = 0; i < 3 * count; ++i, at = (at + 1) % count) {
        if (i == jump) {
          decoder.ResetGifFrameIndex();
          at = 0;
        }
        decoder.DecNextFrame(rgba);
        const Frame& frame = picture.frames[Count(at)];
        if (frame.delay >= 0) delay = frame.delay * 10;
        ASSERT_EQ(expected[Count(at)], Shown(decoder)) << round << " frame " << i;
        ASSERT_EQ(delay, decoder.GetDelayTimeMS());
        ASSERT_EQ((at + 1) % count, decoder.GetCurFrameIndex());
      }
    }
  }
}

TEST(GifDecoder, AgreesWithAnotherDecoder) {
  const TempFolder temp;
  Random random{std::mt19937(7)};
  std::vector<std::string> files;
  std::string command = "/usr/bin/python3 " + temp.Write("compose.py", R"(import sys
from PIL import Image
for path in sys.argv[1:]:
  image = Image.open(path)
  with open(path + '.raw', 'wb') as out:
    for i in range(image.n_frames):
      image.seek(i)
      out.write(image.info.get('duration', -1).to_bytes(4, 'little'))
      out.write(image.convert('RGBA').convert('RGBa').tobytes())
)");
  for (int i = 0; i < 60; ++i) {
    files.push_back(temp.Write(std::to_string(i), Encode(random.Draw(Rules::kCommon))));
    command += " " + files.back();
  }
  ASSERT_EQ(0, std::system(command.c_str()));
  for (const std::string& file : files) {
    CGifDecoder decoder;
    ASSERT_TRUE(Load(decoder, ReadWhole(file)));
    std::string raw;
    for (int i = 0; i < decoder.GetFrameCount(); ++i) {
      decoder.DecNextFrame(true);
      const std::int32_t delay = decoder.GetDelayTimeMS();
      raw.append(reinterpret_cast<const char*>(&delay), 4);
      raw.append(reinterpret_cast<const char*>(decoder.GetGifFrameBuffer()),
                 Count(decoder.GetGifWidth() * decoder.GetGifHeight() * 4));
    }
    EXPECT_TRUE(ReadWhole(file + ".raw") == raw) << file;
  }
}

// A picture of two by two pixels with these bytes before its image, ahead of the trailer.
std::string Small(const std::string& before, const std::string& after = ";") {
  using namespace std::string_literals;
  return "GIF89a\2\0\2\0\x80\1\0\1\2\3\4\5\6"s + before + ",\0\0\0\0\2\0\2\0\0\2\2\x8C\x53\0"s +
         after;
}

TEST(GifDecoder, TakesOrLeavesWhatStandsBetween) {
  using namespace std::string_literals;
  const struct {
    const char* what;
    std::string bytes;
    int frames, delay;
    bool is_drawn;
  } cases[] = {
      {"plain", Small(""), 1, 100, true},
      {"delay of 7", Small("!\xF9\4\0\7\0\0\0"s), 1, 70, true},
      {"delay of 0", Small("!\xF9\4\0\0\0\0\0"s), 1, 0, true},
      {"longest delay", Small("!\xF9\4\0\xFF\xFF\0\0"s), 1, 655350, true},
      {"control with more blocks", Small("!\xF9\4\0\1\0\0\2xx\0"s), 1, 10, true},
      {"empty control", Small("!\xF9\0"s), 1, 100, true},
      {"empty comment", Small("!\xFE\0"s), 1, 100, true},
      {"loop count and text", Small("!\xFF\13NETSCAPE2.0\3\1\0\0\0!\1\2ab\1c\0"s), 1, 100, true},
      {"trailer first", Small(";"), 0, 100, true},
      {"long control", Small("!\xF9\5\0\7\0\0\0\0"s), 0, 100, false},
      {"unknown record", Small("?"), 0, 100, false},
      {"no trailer", Small("", ""), 0, 100, true},
      {"junk for a trailer", Small("", "?"), 0, 100, true}};
  for (const auto& one : cases) {
    CGifDecoder decoder;
    ASSERT_TRUE(Load(decoder, one.bytes)) << one.what;
    EXPECT_EQ(one.frames, decoder.GetFrameCount()) << one.what;
    for (int i = 0; i < 2; ++i) {
      decoder.DecNextFrame(false);
      EXPECT_EQ(one.is_drawn, Shown(decoder) != Canvas(4, 0)) << one.what;
      EXPECT_EQ(one.delay, decoder.GetDelayTimeMS()) << one.what;
      EXPECT_EQ(0, decoder.GetCurFrameIndex()) << one.what;
    }
  }
}

// Frames beyond the screen draw nothing, whatever their disposal; indices without a colour too.
TEST(GifDecoder, KeepsWithinScreenAndMap) {
  Picture picture{1000, 2, 0, {{1, 2, 3}, {4, 5, 6}}, {}};
  Frame whole{0, 0, 1000, 2, false, {}, 1, -1, 3, std::string(2000, 1)};
  Frame wide = whole;
  wide.left = 1;
  wide.disposal = 3;
  picture.frames = {whole, wide};
  CGifDecoder decoder;
  for (int disposal = 1; disposal <= 3; ++disposal) {
    picture.frames[1].disposal = disposal;
    ASSERT_TRUE(Load(decoder, Encode(picture)));
    for (int i = 0; i < 4; ++i) {
      decoder.DecNextFrame(false);
      ASSERT_EQ(Canvas(2000, 0xFF040506), Shown(decoder)) << disposal << " call " << i;
    }
  }
  whole.pixels[3] = char(100);
  picture.map.resize(256, {7, 8, 9});
  picture.frames = {whole};
  std::string bytes = Encode(picture);
  bytes[10] = static_cast<char>(bytes[10] & 0xF8);  // now a map of two colours
  bytes.erase(13 + 6, 254 * 3);
  ASSERT_TRUE(Load(decoder, bytes));
  decoder.DecNextFrame(false);
  Canvas expected(2000, 0xFF040506);
  expected[3] = 0;
  EXPECT_EQ(expected, Shown(decoder));
  bytes[10] = 0;  // and now no map at all
  bytes.erase(13, 6);
  ASSERT_TRUE(Load(decoder, bytes));
  decoder.DecNextFrame(false);
  EXPECT_EQ(Canvas(2000, 0), Shown(decoder));
}

TEST(GifDecoder, LivesThroughACutAtEveryByte) {
  Random random{std::mt19937(5)};
  for (int round = 0; round < 6; ++round) {
    const Picture picture = random.Draw(Rules::kAll);
    const std::string bytes = Encode(picture);
    const std::size_t screen = 13 + 3 * picture.map.size();
    CGifDecoder decoder;
    for (std::size_t size = 0; size < bytes.size(); ++size) {
      ASSERT_EQ(size >= screen, Load(decoder, bytes.substr(0, size))) << size;
      ASSERT_EQ(size >= screen, decoder.IsLoad());
      ASSERT_EQ(0, decoder.GetFrameCount());
      for (int i = 0; i < 3; ++i) decoder.DecNextFrame(true);
    }
    EXPECT_EQ(Compose(picture, true)[0], Shown(decoder));
  }
}

TEST(GifDecoder, GoesOnWithoutCanvasOrMemory) {
  using namespace std::string_literals;
  CGifDecoder decoder;
  EXPECT_FALSE(decoder.LoadFromGifData(nullptr, 10));
  decoder.DecNextFrame(true);
  std::string huge = Small("!\xF9\4\0\7\0\0\0"s);
  huge.replace(6, 4, "\xFF\xFF\xFF\xFF");
  ASSERT_TRUE(Load(decoder, huge));
  EXPECT_EQ(65535, decoder.GetGifWidth());
  for (int i = 0; i < 3; ++i) decoder.DecNextFrame(true);
  EXPECT_EQ(nullptr, decoder.GetGifFrameBuffer());
  EXPECT_EQ(1, decoder.GetFrameCount());

  const std::string small = Small("");
  for (int failing = 1; failing <= 4; ++failing) {
    const FailingAllocations failure(failing);
    EXPECT_EQ(failing > 1, Load(decoder, small)) << failing;
    EXPECT_EQ(failing == 1 || failing == 2, decoder.GetGifFrameBuffer() == nullptr) << failing;
    for (int i = 0; i < 2; ++i) decoder.DecNextFrame(true);
    EXPECT_EQ(failing > 1 ? 1 : 0, decoder.GetFrameCount());
  }
  decoder.Unload();
  EXPECT_EQ(0, decoder.GetGifWidth() + decoder.GetFrameCount() + decoder.GetCurFrameIndex());
  EXPECT_EQ(100, decoder.GetDelayTimeMS());
}

}  // namespace
}  // namespace qvx::test
