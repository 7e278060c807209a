#include "qvx/bitmap_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "qvx/hex_text.h"
#include "qvx/platform.h"
#include "support/failing_new.h"
#include "support/fault_plan.h"
#include "support/temp_folder.h"

namespace qvx::test {
namespace {

using platform::Operation;

constexpr int kMost = std::numeric_limits<int>::max();
constexpr int kLeast = std::numeric_limits<int>::min();

std::string Library(const std::string& native) {
  CBaseStringA path;
  NativePathToLibraryA(native.c_str(), &path);
  return path.GetString();
}

std::string Pattern(std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i * 37 + i / 251);
  return bytes;
}

const unsigned char* Data(const std::string& bytes) {
  return reinterpret_cast<const unsigned char*>(bytes.data());
}

// Blanks between the digits don't count.
std::string FromHex(std::string digits) {
  std::erase(digits, ' ');
  std::string bytes(digits.size() / 2, '\0');
  StringFromHexA(digits.data(), static_cast<int>(digits.size()), bytes.data());
  return bytes;
}

// One way to save a picture.
struct Form {
  int bits;
  int width;
  int height;
  int pitch;
  std::vector<unsigned int> palette;
  std::vector<unsigned int> masks;  // four for the header of version 5, none for the older one
};

void Save(const Form& form, const std::string& buffer, const std::string& native) {
  const std::string path = Library(native);
  const int count = static_cast<int>(form.palette.size());
  const void* palette = form.palette.empty() ? nullptr : form.palette.data();
  if (form.masks.empty()) {
    SaveRgbBufferToBmpFile(Data(buffer), form.width, form.height, form.bits, form.pitch, palette,
                           count, path.c_str());
  } else {
    SaveRgbBufferToBmpFileV5(Data(buffer), form.width, form.height, form.bits, form.pitch,
                             form.masks[0], form.masks[1], form.masks[2], form.masks[3], palette,
                             count, path.c_str());
  }
}

const std::vector<unsigned int> kMasks565{0xF800, 0x07E0, 0x001F, 0};

TEST(BitmapFile, WritesTheseBytes) {
  const std::string v5_tail = std::string(8, '0') + "42475273" + std::string(128, '0');
  const std::string v5_565 =
      "130b0000130b0000" + std::string(16, '0') + "00f80000 e0070000 1f000000" + v5_tail;
  const struct {
    Form form;
    std::string buffer;
    std::string file;
  } cases[] = {
      // Rows of 9 bytes are filled up by their own first three.
      {{24, 3, 2, 9, {}, {}},
       "010203040506070809 111213141516171819",
       "424d4e0000000000000036000000 28000000 03000000 feffffff 0100 1800 00000000 18000000"
       "0000000000000000 00000000 00000000 010203040506070809010203 111213141516171819111213"},
      {{24, 1, -2, 8, {}, {}},
       "0102030400000000 1112131400000000",
       "424d3e0000000000000036000000 28000000 01000000 02000000 0100 1800 00000000 08000000"
       "0000000000000000 00000000 00000000 11121314 01020304"},
      {{32, 1, 1, 4, {0xFF, 0xFF00, 0xFF0000}, {}},
       "01020304",
       "424d460000000000000042000000 28000000 01000000 ffffffff 0100 2000 03000000 04000000"
       "0000000000000000 03000000 00000000 ff000000 00ff0000 0000ff00 01020304"},
      {{1, 9, 1, 2, {}, {}},
       "aa80",
       "424d42000000000000003e000000 28000000 09000000 ffffffff 0100 0100 00000000 04000000"
       "0000000000000000 02000000 00000000 00000000ffffff00 aa80aa80"},
      {{4, 1, 1, 1, {0x112233, 0x445566}, {}},
       "10",
       "424d42000000000000003e000000 28000000 01000000 ffffffff 0100 0400 00000000 04000000"
       "0000000000000000 02000000 00000000 3322110066554400 10101010"},
      // What a row has beyond its size in the file stays out.
      {{16, 2, 2, 6, {}, kMasks565},
       "010203040506 111213141516",
       "424d92000000000000008a000000 7c000000 02000000 02000000 0100 1000 03000000 08000000" +
           v5_565 + "01020304 11121314"},
      {{16, 2, -2, 4, {}, kMasks565},
       "01020304 11121314",
       "424d92000000000000008a000000 7c000000 02000000 02000000 0100 1000 03000000 08000000" +
           v5_565 + "11121314 01020304"},
      {{16, 0, 5, 4, {}, kMasks565},
       "00",
       "424d8a000000000000008a000000 7c000000 00000000 05000000 0100 1000 03000000 00000000" +
           v5_565},
  };
  const TempFolder temp;
  for (const auto& each : cases) {
    Save(each.form, FromHex(each.buffer), temp.Path("a.bmp"));
    EXPECT_EQ(ReadWhole(temp.Path("a.bmp")), FromHex(each.file)) << each.file;
  }
  const std::string buffer = FromHex(cases[6].buffer);
  SaveRgb565BufferToBmpFile(Data(buffer), 2, -2, 4, Library(temp.Path("b.bmp")).c_str());
  EXPECT_EQ(ReadWhole(temp.Path("b.bmp")), FromHex(cases[6].file));
}

// Negative and zero pitches, and pitches that are far too short for a row.
TEST(BitmapFile, TakesAnyPitch) {
  const TempFolder temp;
  const std::string buffer = FromHex("0102030405060708");
  const struct {
    int height;
    int pitch;
    int start;
    std::string rows;
  } cases[] = {
      {2, -4, 4, "05060708 01020304"}, {-2, -4, 4, "01020304 05060708"},
      {2, 0, 0, "01020304 01020304"},  {2, 1, 0, "01010101 02020202"},
      {2, -3, 3, "04050604 01020301"}, {0, 4, 0, ""},
  };
  for (const auto& each : cases) {
    SaveRgbBufferToBmpFile(Data(buffer) + each.start, 1, each.height, 32, each.pitch, nullptr, 0,
                           Library(temp.Path("a.bmp")).c_str());
    EXPECT_EQ(ReadWhole(temp.Path("a.bmp")).substr(54), FromHex(each.rows)) << each.pitch;
  }
}

using Pixel = std::array<int, 3>;

int Bits(const std::string& buffer, std::size_t row, std::size_t first, int count) {
  unsigned value = 0;
  for (int i = 0; i < count; i += 8) {
    value |= unsigned{Data(buffer)[row + (first + static_cast<unsigned>(i)) / 8]} << i;
  }
  if (count >= 8) return static_cast<int>(value);
  return static_cast<int>(value >> (8 - count - static_cast<int>(first % 8)) & ((1U << count) - 1));
}

// What the pixel of a buffer shows.
Pixel Shown(const Form& form, const std::string& buffer, std::size_t x, std::size_t y) {
  const std::size_t row = y * static_cast<std::size_t>(form.pitch);
  const int value = Bits(buffer, row, x * static_cast<unsigned>(form.bits), form.bits);
  if (form.bits >= 24) return {value >> 16 & 255, value >> 8 & 255, value & 255};
  if (form.bits == 16) {
    const int greens = form.masks.empty() ? 31 : 63;
    const int green = value >> 5 & greens;
    const int red = value >> (greens == 31 ? 10 : 11) & 31;
    return {red * 255 / 31, green * 255 / greens, (value & 31) * 255 / 31};
  }
  if (!form.palette.empty()) {
    const unsigned entry = form.palette[static_cast<std::size_t>(value)];
    return {static_cast<int>(entry >> 16), static_cast<int>(entry >> 8 & 255),
            static_cast<int>(entry & 255)};
  }
  const int grey = value * 255 / ((1 << form.bits) - 1);
  return {grey, grey, grey};
}

// The pixels of all files in turn, row by row from the top, as Pillow reads them.
std::string ReadPictures(const std::vector<std::string>& files) {
  std::string command =
      "/usr/bin/python3 -c 'import sys\nfrom PIL import Image\nfor f in sys.argv[1:]: "
      "sys.stdout.buffer.write(Image.open(f).convert(\"RGB\").tobytes())'";
  for (const std::string& file : files) command.append(" ").append(file);
  const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), &pclose);
  std::string bytes;
  std::array<char, 4096> block;
  while (const std::size_t count = std::fread(block.data(), 1, block.size(), pipe.get())) {
    bytes.append(block.data(), count);
  }
  return bytes;
}

TEST(BitmapFile, AnotherProgramReadsThem) {
  const std::vector<unsigned int> colours{0x123456, 0xFEDCBA, 0x00FF00, 0x987654};
  const std::vector<unsigned int> masks32{0xFF0000, 0xFF00, 0xFF, 0xFF000000};
  std::vector<unsigned int> all(256);
  for (unsigned i = 0; i < 256; ++i) all[i] = i * 0x10305 & 0xFFFFFF;
  // The older header shows row 0 at the top for either sign of the height, the newer one for a
  // negative height only.
  const std::vector<Form> forms{
      {24, 7, 5, 21, {}, {}},
      {24, 8, -5, 24, {}, {}},
      {32, 7, -5, 28, {}, {}},
      {16, 7, 5, 14, {}, {}},
      {8, 7, 5, 7, {}, {}},
      {8, 7, -5, 8, all, {}},
      {4, 7, 5, 4, {}, {}},
      {1, 19, 5, 3, {}, {}},
      {1, 19, -5, 3, {0xFF, 0xFF00}, {}},
      {32, 7, -5, 28, {}, masks32},
      {32, 7, 5, 30, {}, masks32},
      {16, 7, -5, 14, {}, kMasks565},
      {16, 6, 5, 12, {}, kMasks565},
  };
  const TempFolder temp;
  const std::string buffer = Pattern(400);
  std::vector<std::string> files;
  std::string expected;
  for (const Form& form : forms) {
    files.push_back(temp.Path(std::to_string(files.size()) + ".bmp"));
    Save(form, buffer, files.back());
    const int height = std::abs(form.height);
    for (int line = 0; line < height; ++line) {
      const bool up = !form.masks.empty() && form.height > 0;
      const auto y = static_cast<std::size_t>(up ? height - 1 - line : line);
      for (int x = 0; x < form.width; ++x) {
        for (int part : Shown(form, buffer, static_cast<std::size_t>(x), y))
          expected += static_cast<char>(part);
      }
    }
  }
  EXPECT_TRUE(ReadPictures(files) == expected);
}

// A file appears whole or not at all, and nothing else is left.
TEST(BitmapFile, FailuresLeaveWhatWasThere) {
  const TempFolder temp;
  const std::string path = Library(temp.Path("a.bmp"));
  const std::string buffer = Pattern(600000);
  const auto save = [&](const std::string& to) {
    SaveRgbBufferToBmpFile(Data(buffer), 400, 500, 24, 1200, nullptr, 0, to.c_str());
  };
  const auto names = [&] {
    const std::filesystem::directory_iterator begin(temp.Path());
    return std::distance(begin, std::filesystem::directory_iterator());
  };
  for (const Operation operation : {Operation::kFileOpen, Operation::kFileWrite,
                                    Operation::kFileClose, Operation::kFileRename}) {
    for (int call = 1; call <= (operation == Operation::kFileWrite ? 3 : 1); ++call) {
      temp.Write("a.bmp", "old");
      FaultPlan plan;
      plan.Fail(operation, call, ENOSPC);
      save(path);
      EXPECT_EQ(ReadWhole(temp.Path("a.bmp")), "old") << call;
      EXPECT_EQ(names(), 1);
    }
  }
  {
    FaultPlan plan;
    plan.Shorten(Operation::kFileWrite, 1, 1000, 5);
    save(path);
  }
  EXPECT_EQ(ReadWhole(temp.Path("a.bmp")).substr(54), buffer);

  std::filesystem::create_directory(temp.Path("folder"));
  ASSERT_EQ(mkfifo(temp.Path("fifo").c_str(), 0600), 0);
  temp.Write("fixed.bmp", "kept");
  chmod(temp.Path("fixed.bmp").c_str(), 0444);
  for (const char* name : {"folder", "fifo", "fixed.bmp", "none/a.bmp"}) {
    save(Library(temp.Path(name)));
  }
  save("");
  save("D:\\a.bmp");
  EXPECT_EQ(ReadWhole(temp.Path("fixed.bmp")), "kept");
  EXPECT_EQ(std::filesystem::status(temp.Path("fifo")).type(), std::filesystem::file_type::fifo);
  SaveRgbBufferToBmpFile(nullptr, 1, 1, 24, 4, nullptr, 0, Library(temp.Path("b.bmp")).c_str());
  SaveRgbBufferToBmpFile(Data(buffer), 1, 1, 24, 4, nullptr, 0, nullptr);
  EXPECT_EQ(names(), 4);
}

// Sizes that the fields of the format can't hold; no pixel is looked at.
TEST(BitmapFile, RefusesWhatIsTooLarge) {
  const TempFolder temp;
  const std::string path = Library(temp.Path("a.bmp"));
  const struct {
    int width, height, bits;
  } sizes[] = {{50000, 50000, 24}, {50000, -50000, 32}, {kMost, 2, 32}, {kLeast, kLeast, 64},
               {kMost, kMost, 1},  {1, kLeast, 32},     {32, 32, 0},    {32, 32, -8},
               {32, 32, 65},       {32768, 32768, 32},  {1, kLeast, 1}};
  const unsigned char byte = 0;
  for (const auto& size : sizes) {
    SaveRgbBufferToBmpFile(&byte, size.width, size.height, size.bits, 1, nullptr, 0, path.c_str());
    SaveRgbBufferToBmpFileV5(&byte, size.width, size.height, size.bits, 1, 1, 2, 4, 0, nullptr, 0,
                             path.c_str());
    EXPECT_EQ(CreateHBitmap(nullptr, size.width, size.height, size.bits, nullptr, 0), nullptr);
  }
  EXPECT_TRUE(std::filesystem::is_empty(temp.Path()));
}

TEST(LargeBitmapFile, WritesAWidePicture) {
  const TempFolder temp;
  const std::string row = Pattern(6252);
  SaveRgbBufferToBmpFile(Data(row), 50000, 50000, 1, 0, nullptr, 0,
                         Library(temp.Path("a.bmp")).c_str());
  std::ifstream file(temp.Path("a.bmp"), std::ios::binary);
  const auto bytes = [&](std::size_t at, std::size_t count) {
    std::string piece(count, '\0');
    file.seekg(static_cast<std::streamoff>(at));
    file.read(piece.data(), static_cast<std::streamsize>(count));
    return piece;
  };
  ASSERT_EQ(std::filesystem::file_size(temp.Path("a.bmp")), 62 + 50000u * 6252u);
  EXPECT_EQ(bytes(2, 4), FromHex("fee5a112"));
  for (const std::size_t at : {0u, 24999u, 49999u}) EXPECT_EQ(bytes(62 + at * 6252, 6252), row);
}

tagBITMAPDATA Read(HBITMAP bitmap) {
  tagBITMAPDATA data{};
  EXPECT_EQ(ReadHBitmap(bitmap, &data), 1);
  return data;
}

std::string Info(const tagBITMAPDATA& data) {
  return {reinterpret_cast<const char*>(data.info), data.infoSize};
}

std::string Pixels(const tagBITMAPDATA& data) {
  return {reinterpret_cast<const char*>(data.pixels), data.pixelSize};
}

TEST(BitmapObject, HoldsAPicture) {
  std::string source = Pattern(24);
  void* bits = source.data();
  const HBITMAP copied = CreateHBitmap(&bits, 3, -2, 24, nullptr, 0);
  const tagBITMAPDATA data = Read(copied);
  EXPECT_EQ(bits, source.data());
  EXPECT_EQ(Pixels(data), source);
  EXPECT_EQ(Info(data), FromHex("28000000 03000000 02000000 0100 1800 00000000 18000000"
                                "0000000000000000 00000000 00000000"));
  EXPECT_EQ(data.width, 3);
  EXPECT_EQ(data.height, 2);
  EXPECT_EQ(data.bitCount, 24);
  EXPECT_EQ(data.rowBytes, 12u);

  bits = nullptr;
  const HBITMAP fresh = CreateHBitmap(&bits, 9, 2, 1, nullptr, 0);
  EXPECT_EQ(bits, Read(fresh).pixels);
  EXPECT_EQ(Pixels(Read(fresh)), std::string(8, '\0'));
  EXPECT_EQ(Read(fresh).height, -2);
  EXPECT_EQ(Info(Read(fresh)).substr(40), FromHex("00000000 ffffff00"));

  const unsigned int masks[] = {0xF800, 0x7E0, 0x1F};
  const HBITMAP fields = CreateHBitmap(nullptr, -4, 1, 16, masks, 3);
  EXPECT_EQ(Info(Read(fields)).substr(16, 4), FromHex("03000000"));
  EXPECT_EQ(Info(Read(fields)).substr(40), FromHex("00f80000 e0070000 1f000000"));
  for (const HBITMAP each : {copied, fresh, fields}) EXPECT_EQ(FreeHBitmap(each), 1);
}

TEST(BitmapObject, KnowsAHandleThatIsNone) {
  tagBITMAPDATA data{};
  data.width = 77;
  const HBITMAP old = CreateHBitmap(nullptr, 1, 1, 32, nullptr, 0);
  EXPECT_EQ(ReadHBitmap(old, nullptr), 0);
  ASSERT_EQ(FreeHBitmap(old), 1);
  const HBITMAP next = CreateHBitmap(nullptr, 1, 1, 32, nullptr, 0);
  for (const HBITMAP none : {old, HBITMAP(), reinterpret_cast<HBITMAP>(~std::uintptr_t{0})}) {
    EXPECT_EQ(ReadHBitmap(none, &data), 0);
    EXPECT_EQ(FreeHBitmap(none), 0);
  }
  EXPECT_EQ(data.width, 77);
  EXPECT_EQ(FreeHBitmap(next), 1);
  for (const int bits : {0, 2, 15, 48, 64}) {
    EXPECT_EQ(CreateHBitmap(nullptr, 4, 4, bits, nullptr, 0), nullptr);
  }
  EXPECT_EQ(CreateHBitmap(nullptr, 0, 4, 32, nullptr, 0), nullptr);
  EXPECT_EQ(CreateHBitmap(nullptr, 4, 0, 32, nullptr, 0), nullptr);
  for (int first = 1; first <= 3; ++first) {
    FaultPlan plan;
    plan.Fail(Operation::kAllocate, first, ENOMEM);
    EXPECT_EQ(CreateHBitmap(nullptr, 4, 4, 8, nullptr, 0), nullptr) << first;
  }
}

}  // namespace
}  // namespace qvx::test
