#include "qvx/serial_names.h"

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <string>
#include <tuple>
#include <utility>

#include "platform/serial_list.h"
#include "qvx/platform.h"
#include "qvx/ptr_array.h"
#include "qvx/ptr_list.h"
#include "support/temp_folder.h"

namespace qvx::test {
namespace {

namespace fs = std::filesystem;

TEST(SerialSettings, WritesAndReadsTheShortForm) {
  using Settings = std::array<unsigned char, 3>;  // size, parity, stop bits
  const std::pair<Settings, const char*> written[] = {{{8, 0, 0}, "8N1"},
                                                      {{7, 2, 1}, "7E1.5"},
                                                      {{9, 7, 5}, "8S2"},
                                                      {{3, 1, 2}, "4O2"},
                                                      {{5, 3, 0}, "5M1"}};
  for (const auto& [settings, expected] : written) {
    CBaseStringA text("before");
    SerialDCBToString(settings[0], settings[1], settings[2], &text);
    EXPECT_STREQ(expected, text.GetString());
  }
  SerialDCBToString(8, 0, 0, nullptr);
  const std::tuple<const char*, int, Settings> read[] = {
      {"7E1.5", -1, {7, 2, 1}}, {"9x2", -1, {8, 0, 2}},   {"7E1", 2, {8, 0, 0}},
      {nullptr, -1, {8, 0, 0}}, {"5m1.4", -1, {5, 3, 0}}, {"4s2.0", -1, {4, 4, 2}},
      {"6o1.5", 4, {6, 1, 0}},  {"7", -1, {8, 0, 0}},     {"8\0002", 3, {8, 0, 2}}};
  for (const auto& [text, length, expected] : read) {
    Settings settings{1, 1, 1};
    SerialParseDCBString(text, length, &settings[0], &settings[1], &settings[2]);
    EXPECT_EQ(expected, settings) << text;
  }
  unsigned char untouched = 1;
  SerialParseDCBString("7E2", -1, &untouched, &untouched, nullptr);
  EXPECT_EQ(1, untouched);
}

template <typename T>
std::string Names(CPtrCtrl& list) {
  std::string names;
  for (int i = 0; i < list.GetCount(); ++i) {
    const std::basic_string<T> name = static_cast<const T*>(list.GetAt(i));
    names += std::string(name.begin(), name.end()) + ' ';
  }
  return names;
}

// On a made-up machine.
TEST(SerialNames, ListsWhatIsThere) {
  const TempFolder root;
  platform::SetSerialRoot(root.Path());
  EXPECT_EQ(0, IsSerialPortNameExistA("COM1"));
  const std::string terminals = root.Path("sys/class/tty/");
  for (const char* name : {"rfcomm3", "tty7"}) fs::create_directories(terminals + name);
  for (const char* name :
       {"ttyUSB10", "ttyUSB2", "ttyS0", "ttyS1", "ttyS11", "ttyACM0", "ttyXR1", "ttyAMA0"}) {
    fs::create_directories(terminals + name + "/device");
  }
  // Of the ports on board, one is a place without a port.
  root.Write("sys/class/tty/ttyS0/type", "4\n");
  root.Write("sys/class/tty/ttyS1/type", "0\n");
  root.Write("sys/class/tty/ttyS11/type", "4\n");
  const std::string mapped = root.Write("line", "");
  MapSerialPort("COM12", mapped.c_str());
  MapSerialPort("COM500", root.Path("absent").c_str());
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
  for (const char* name : {"COM2", "COM500", "COM", "", "COM10"}) {
    EXPECT_EQ(0, IsSerialPortNameExistA(name)) << name;
  }
  EXPECT_EQ(1, IsSerialPortNameExistW(u"com304"));
  EXPECT_EQ(0, IsSerialPortNameExistW(nullptr));
  CBaseStringA path("before");
  EXPECT_EQ(1, SerialPortDevice("COM304", &path));
  EXPECT_EQ(root.Path("dev/rfcomm3"), path.GetString());
  EXPECT_EQ(0, SerialPortDevice(nullptr, &path));
  EXPECT_STREQ("", path.GetString());
  EXPECT_EQ(mapped, platform::SerialDevicePath("com12"));

  // Names stay when others go, and behind a mapping the own port comes back.
  fs::remove_all(terminals + "ttyUSB2");
  for (const char* name : {"COM12", "com500", "printer"}) MapSerialPort(name, "");
  EXPECT_EQ(root.Path("dev/ttyUSB10"), platform::SerialDevicePath("COM111"));
  EXPECT_EQ(root.Path("dev/ttyS11"), platform::SerialDevicePath("COM12"));
  platform::SetSerialRoot("");
}

}  // namespace
}  // namespace qvx::test
