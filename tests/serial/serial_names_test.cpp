#include "qvx/serial_names.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "platform/serial_list.h"
#include "qvx/platform.h"
#include "qvx/ptr_array.h"
#include "qvx/ptr_list.h"
#include "support/temp_folder.h"

namespace qvx::test {
namespace {

namespace fs = std::filesystem;

TEST(SerialSettings, WritesAndReadsTheShortForm) {
  const struct {
    unsigned char size, parity, stop;
    const char* text;
  } written[] = {
      {8, 0, 0, "8N1"}, {7, 2, 1, "7E1.5"}, {9, 7, 5, "8S2"}, {3, 1, 2, "4O2"}, {5, 3, 0, "5M1"}};
  for (const auto& one : written) {
    CBaseStringA text("before");
    SerialDCBToString(one.size, one.parity, one.stop, &text);
    EXPECT_STREQ(one.text, text.GetString());
  }
  SerialDCBToString(8, 0, 0, nullptr);
  const struct {
    const char* text;
    int length;
    int size, parity, stop;
  } read[] = {{"7E1.5", -1, 7, 2, 1}, {"9x2", -1, 8, 0, 2},   {"7E1", 2, 8, 0, 0},
              {nullptr, -1, 8, 0, 0}, {"5m1.4", -1, 5, 3, 0}, {"4s2.0", -1, 4, 4, 2},
              {"6o1.5", 4, 6, 1, 0},  {"7", -1, 8, 0, 0},     {"8\0002", 3, 8, 0, 2}};
  for (const auto& one : read) {
    unsigned char size = 1, parity = 1, stop = 1;
    SerialParseDCBString(one.text, one.length, &size, &parity, &stop);
    EXPECT_EQ(one.size, size) << one.text;
    EXPECT_EQ(one.parity, parity) << one.text;
    EXPECT_EQ(one.stop, stop) << one.text;
  }
}

// A made-up machine: type is that of a port on board, 0 for a place without a port.
class SerialNames : public testing::Test {
 protected:
  SerialNames() { platform::SetSerialRoot(root_.Path()); }
  ~SerialNames() override { platform::SetSerialRoot(""); }

  void AddDevice(const std::string& name, int type = -1, bool has_device = true) const {
    const fs::path folder = fs::path(root_.Path("sys/class/tty")) / name;
    fs::create_directories(folder);
    if (has_device) fs::create_directories(folder / "device");
    if (type >= 0) std::ofstream(folder / "type") << type << "\n";
  }

  template <typename T>
  static std::string Names(CPtrCtrl& list) {
    std::string names;
    for (int i = 0; i < list.GetCount(); ++i) {
      for (const T* c = static_cast<const T*>(list.GetAt(i)); *c != 0; ++c) {
        names += static_cast<char>(*c);
      }
      names += ' ';
    }
    return names;
  }

  const TempFolder root_;
};

TEST_F(SerialNames, ListsWhatIsThere) {
  EXPECT_EQ(0, IsSerialPortNameExistA("COM1"));
  AddDevice("ttyUSB10");
  AddDevice("ttyUSB2");
  AddDevice("ttyS0", 4);
  AddDevice("ttyS1", 0);
  AddDevice("ttyS11", 4);
  AddDevice("ttyACM0");
  AddDevice("rfcomm3", -1, false);
  AddDevice("ttyXR1");
  AddDevice("ttyAMA0");
  AddDevice("tty7", -1, false);
  const std::string mapped = root_.Write("line", "");
  MapSerialPort("COM12", mapped.c_str());
  MapSerialPort("COM500", root_.Path("absent").c_str());
  MapSerialPort("printer", mapped.c_str());
  EXPECT_EQ(0, MapSerialPort(nullptr, "/dev/null"));

  const std::string expected = "COM1 COM103 COM111 COM201 COM401 COM402 COM12 ";
  CPtrArrayCtrl narrow;
  CPtrListCtrl wide;
  for (int round = 0; round < 2; ++round) {
    EnumSerialPortNameA(&narrow);
    EnumSerialPortNameW(&wide);
    EXPECT_EQ(expected, Names<char>(narrow));
    EXPECT_EQ(expected, Names<WCHAR>(wide));
  }
  FreeSerialPortNameW(&narrow);
  FreeSerialPortNameA(&wide);
  FreeSerialPortNameA(nullptr);
  EXPECT_EQ(0, narrow.GetCount() + wide.GetCount());

  for (const char* name : {"COM1", "com103", "COM304", "Com12", "PRINTER"}) {
    EXPECT_EQ(1, IsSerialPortNameExistA(name)) << name;
  }
  EXPECT_EQ(1, IsSerialPortNameExistW(u"com304"));
  for (const char* name : {"COM2", "COM500", "COM", "", "COM10"}) {
    EXPECT_EQ(0, IsSerialPortNameExistA(name)) << name;
  }
  EXPECT_EQ(0, IsSerialPortNameExistW(nullptr));
  CBaseStringA path("before");
  EXPECT_EQ(1, SerialPortDevice("COM304", &path));
  EXPECT_EQ(root_.Path("dev/rfcomm3"), path.GetString());
  EXPECT_EQ(0, SerialPortDevice(nullptr, &path));
  EXPECT_STREQ("", path.GetString());
  EXPECT_EQ(mapped, platform::SerialDevicePath("com12"));

  // Names stay when others go, and behind a mapping the own port comes back.
  fs::remove_all(root_.Path("sys/class/tty/ttyUSB2"));
  for (const char* name : {"COM12", "com500", "printer"}) MapSerialPort(name, "");
  EXPECT_EQ(root_.Path("dev/ttyUSB10"), platform::SerialDevicePath("COM111"));
  EXPECT_EQ(root_.Path("dev/ttyS11"), platform::SerialDevicePath("COM12"));
}

}  // namespace
}  // namespace qvx::test
