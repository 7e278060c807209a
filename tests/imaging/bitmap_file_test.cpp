#include "qvx/bitmap_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "files/library_path.h"
#include "qvx/hex_text.h"
#include "qvx/platform.h"
#include "support/fault_plan.h"
#include "support/packet_bytes.h"
#include "support/temp_folder.h"

namespace qvx::test {
namespace {

using platform::Operation;

const unsigned char* Data(const std::string& bytes) {
  return reinterpret_cast<const unsigned char*>(bytes.data());
}

std::string Bytes(const void* data, std::size_t size) {
  return {static_cast<const char*>(data), size};
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
  int bits, width, height, pitch;
  std::vector<unsigned int> palette;
  std::vector<unsigned int> masks;  // four for the header of version 5, none for the older one
};

void Save(const Form& form, const std::string& buffer, const std::string& native) {
  const std::string path = Library<char>(native);
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
    std::string buffer, file;
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
  SaveRgb565BufferToBmpFile(Data(buffer), 2, -2, 4, Library<char>(temp.Path("b.bmp")).c_str());
  EXPECT_EQ(ReadWhole(temp.Path("b.bmp")), FromHex(cases[6].file));
}

// Negative and zero pitches, and pitches that are far too short for a row.
TEST(BitmapFile, TakesAnyPitch) {
  const TempFolder temp;
  const std::string buffer = FromHex("0102030405060708");
  const struct {
    int height, pitch, start;
    std::string rows;
  } cases[] = {
      {2, -4, 4, "05060708 01020304"}, {-2, -4, 4, "01020304 05060708"},
      {2, 0, 0, "01020304 01020304"},  {2, 1, 0, "01010101 02020202"},
      {2, -3, 3, "04050604 01020301"}, {0, 4, 0, ""},
  };
  for (const auto& each : cases) {
    SaveRgbBufferToBmpFile(Data(buffer) + each.start, 1, each.height, 32, each.pitch, nullptr, 0,
                           Library<char>(temp.Path("a.bmp")).c_str());
    EXPECT_EQ(ReadWhole(temp.Path("a.bmp")).substr(54), FromHex(each.rows)) << each.pitch;
  }
}

// The same rows, read straight from the buffer by that program, are what the files have to show.
TEST(BitmapFile, AnotherProgramReadsThem) {
  const std::vector<unsigned int> masks32{0xFF0000, 0xFF00, 0xFF, 0xFF000000};
  std::vector<unsigned int> all(256);
  for (unsigned i = 0; i < 256; ++i) all[i] = i * 0x10305 & 0xFFFFFF;
  // The older header shows row 0 at the top for either sign of the height, the newer one for a
  // negative height only: else the order of rows is -1.
  const struct {
    Form form;
    std::string how;  // kind of picture, kind of pixels in memory, order of rows
  } cases[] = {
      {{24, 7, 5, 21, {}, {}}, "RGB BGR 1"},
      {{24, 8, -5, 24, {}, {}}, "RGB BGR 1"},
      {{32, 7, -5, 28, {}, {}}, "RGB BGRX 1"},
      {{16, 7, 5, 14, {}, {}}, "RGB BGR;15 1"},
      {{8, 7, 5, 7, {}, {}}, "L L 1"},
      {{8, 7, -5, 8, all, {}}, "P P 1"},
      {{4, 7, 5, 4, {}, {}}, "L L;4 1"},
      {{1, 19, 5, 3, {}, {}}, "1 1 1"},
      {{1, 19, -5, 3, {0xFF, 0xFF00}, {}}, "P P;1 1"},
      {{32, 7, -5, 28, {}, masks32}, "RGB BGRX 1"},
      {{32, 7, 5, 30, {}, masks32}, "RGB BGRX -1"},
      {{16, 7, -5, 14, {}, kMasks565}, "RGB BGR;16 1"},
      {{16, 6, 5, 12, {}, kMasks565}, "RGB BGR;16 -1"},
  };
  const TempFolder temp;
  const std::string buffer = Pattern(400);
  std::string command = "/usr/bin/python3 " + temp.Write("compare.py", R"(import sys
from PIL import Image
buffer = open(sys.argv[1], 'rb').read()
for case in sys.argv[2:]:
  path, width, height, pitch, mode, raw, order = case.split()
  size = int(width), abs(int(height))
  expected = Image.frombytes(mode, size, buffer, 'raw', raw, int(pitch), int(order))
  if mode == 'P':
    expected.putpalette(open(path + '.palette', 'rb').read(), 'BGRX')
  shown = Image.open(path).convert('RGB')
  if shown.size != size or shown.tobytes() != expected.convert('RGB').tobytes():
    sys.exit(case)
)") + " " + temp.Write("buffer", buffer);
  int number = 0;
  for (const auto& [form, how] : cases) {
    const std::string name = std::to_string(number++) + ".bmp";
    Save(form, buffer, temp.Path(name));
    temp.Write(name + ".palette", Bytes(form.palette.data(), form.palette.size() * 4));
    command += " '" + temp.Path(name) + " " + std::to_string(form.width) + " " +
               std::to_string(form.height) + " " + std::to_string(form.pitch) + " " + how + "'";
  }
  EXPECT_EQ(std::system(command.c_str()), 0);
}

// A file appears whole or not at all, and nothing else is left.
TEST(BitmapFile, FailuresLeaveWhatWasThere) {
  const TempFolder temp;
  const std::string path = Library<char>(temp.Path("a.bmp"));
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
    save(Library<char>(temp.Path(name)));
  }
  save("");
  save("D:\\a.bmp");
  EXPECT_EQ(ReadWhole(temp.Path("fixed.bmp")), "kept");
  EXPECT_EQ(std::filesystem::status(temp.Path("fifo")).type(), std::filesystem::file_type::fifo);
  SaveRgbBufferToBmpFile(nullptr, 1, 1, 24, 4, nullptr, 0,
                         Library<char>(temp.Path("b.bmp")).c_str());
  SaveRgbBufferToBmpFile(Data(buffer), 1, 1, 24, 4, nullptr, 0, nullptr);
  EXPECT_EQ(names(), 4);
}

// Sizes that the fields of the format can't hold; no pixel is looked at.
TEST(BitmapFile, RefusesWhatIsTooLarge) {
  const TempFolder temp;
  const std::string path = Library<char>(temp.Path("a.bmp"));
  const struct {
    int width, height, bits;
  } sizes[] = {{50000, 50000, 24},    {50000, -50000, 32}, {INT_MAX, 2, 32}, {INT_MIN, INT_MIN, 64},
               {INT_MAX, INT_MAX, 1}, {1, INT_MIN, 32},    {32, 32, 0},      {32, 32, -8},
               {32, 32, 65},          {32768, 32768, 32},  {1, INT_MIN, 1}};
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
                         Library<char>(temp.Path("a.bmp")).c_str());
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
  return Bytes(data.info, data.infoSize);
}

TEST(BitmapObject, HoldsAPicture) {
  std::string source = Pattern(24);
  void* bits = source.data();
  const HBITMAP copied = CreateHBitmap(&bits, 3, -2, 24, nullptr, 0);
  const tagBITMAPDATA data = Read(copied);
  EXPECT_EQ(bits, source.data());
  EXPECT_EQ(Bytes(data.pixels, data.pixelSize), source);
  EXPECT_EQ(Info(data), FromHex("28000000 03000000 02000000 0100 1800 00000000 18000000"
                                "0000000000000000 00000000 00000000"));
  EXPECT_EQ(data.width, 3);
  EXPECT_EQ(data.height, 2);
  EXPECT_EQ(data.bitCount, 24);
  EXPECT_EQ(data.rowBytes, 12u);

  bits = nullptr;
  const HBITMAP fresh = CreateHBitmap(&bits, 9, 2, 1, nullptr, 0);
  EXPECT_EQ(bits, Read(fresh).pixels);
  EXPECT_EQ(Bytes(bits, Read(fresh).pixelSize), std::string(8, '\0'));
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
