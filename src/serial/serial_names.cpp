#include "qvx/serial_names.h"

#include <qvx/platform.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "core/raw_text.h"
#include "platform/serial_list.h"

namespace {

using qvx::core::EqualUpToNul;
using qvx::core::FindIgnoringCase;
using qvx::core::TextLength;
using qvx::platform::SerialEntry;

constexpr std::string_view kParities = "NOEMS";
constexpr const char* kStopBits[] = {"1", "1.5", "2"};
constexpr const char* kPortPrefix = "COM";
constexpr const char* kBluetooth = "Bth";

// Port names are ASCII, whatever the code page.
template <typename T>
std::basic_string<T> Widened(const std::string& text) {
  return {text.begin(), text.end()};
}

template <typename T>
bool SameName(const T* left, const T* right) {
  const std::size_t length = TextLength(left);
  return length == TextLength(right) && EqualUpToNul(left, right, length, true);
}

bool IsListed(const SerialEntry& entry) {
  if (!EqualUpToNul(entry.port.c_str(), kPortPrefix, 3, true)) return false;
  return FindIgnoringCase(entry.device.c_str(), kBluetooth) == nullptr;
}

template <typename T>
bool Holds(CPtrCtrl& list, const T* name) {
  for (int i = 0, count = list.GetCount(); i < count; ++i) {
    if (SameName(static_cast<const T*>(list.GetAt(i)), name)) return true;
  }
  return false;
}

// The elements of both widths are made as bytes, so that they can be freed alike.
template <typename T>
void AddCopy(CPtrCtrl& list, const std::basic_string<T>& name) {
  const std::size_t size = (name.size() + 1) * sizeof(T);
  std::unique_ptr<unsigned char[]> copy(new unsigned char[size]);
  std::memcpy(copy.get(), name.c_str(), size);
  list.AddData(copy.get(), -1);
  copy.release();
}

template <typename T>
void AddListed(CPtrCtrl& list, const std::vector<SerialEntry>& entries) {
  for (const SerialEntry& entry : entries) {
    const std::basic_string<T> name = Widened<T>(entry.port);
    if (IsListed(entry) && !Holds(list, name.c_str())) AddCopy(list, name);
  }
}

template <typename T>
void EnumSerialPortName(CPtrCtrl* list) {
  if (list == nullptr) return;
  AddListed<T>(*list, qvx::platform::SerialDriverMap());
  AddListed<T>(*list, qvx::platform::SerialDevices());
}

void FreeSerialPortName(CPtrCtrl* list) {
  if (list == nullptr) return;
  for (int i = 0, count = list->GetCount(); i < count; ++i) {
    delete[] static_cast<const unsigned char*>(list->GetAt(i));
  }
  list->DeleteAll();
}

template <typename T>
int IsSerialPortNameExist(const T* name) {
  if (name == nullptr) return 0;
  const auto is_it = [name](const SerialEntry& entry) {
    return SameName(Widened<T>(entry.port).c_str(), name);
  };
  for (const auto& entries : {qvx::platform::SerialDriverMap(), qvx::platform::SerialDevices()}) {
    if (std::any_of(entries.begin(), entries.end(), is_it)) return 1;
  }
  return 0;
}

unsigned char ParseParity(char letter) {
  const auto upper = static_cast<char>(static_cast<unsigned char>(letter) & ~qvx::core::kCaseBit);
  const std::size_t found = kParities.find(upper);
  return found == std::string_view::npos ? 0 : static_cast<unsigned char>(found);
}

unsigned char ParseStopBits(std::string_view text) {
  if (text.substr(0, 3) == "1.5") return 1;
  return text.substr(0, 1) == "2" ? 2 : 0;
}

}  // namespace

void SerialDCBToString(unsigned char byteSize, unsigned char parity, unsigned char stopBits,
                       CBaseStringA* text) {
  if (text == nullptr) return;
  const int size = std::clamp<int>(byteSize, 4, 8);
  std::string settings(1, static_cast<char>('0' + size));
  settings += kParities[std::min<std::size_t>(parity, kParities.size() - 1)];
  settings += kStopBits[std::min<std::size_t>(stopBits, std::size(kStopBits) - 1)];
  text->Set("", 0);
  text->Append(settings.c_str(), static_cast<int>(settings.size()));
}

void SerialParseDCBString(const char* text, int len, unsigned char* byteSize, unsigned char* parity,
                          unsigned char* stopBits) {
  if (byteSize == nullptr || parity == nullptr || stopBits == nullptr) return;
  *byteSize = 8;
  *parity = *stopBits = 0;
  const std::string_view all(text, qvx::core::GivenLength(text, len));
  if (all.size() < 3) return;
  if (all[0] >= '4' && all[0] <= '7') *byteSize = static_cast<unsigned char>(all[0] - '0');
  *parity = ParseParity(all[1]);
  *stopBits = ParseStopBits(all.substr(2));
}

void EnumSerialPortNameA(CPtrCtrl* list) {
  EnumSerialPortName<char>(list);
}
void EnumSerialPortNameW(CPtrCtrl* list) {
  EnumSerialPortName<WCHAR>(list);
}

void FreeSerialPortNameA(CPtrCtrl* list) {
  FreeSerialPortName(list);
}
void FreeSerialPortNameW(CPtrCtrl* list) {
  FreeSerialPortName(list);
}

int IsSerialPortNameExistA(const char* name) {
  return IsSerialPortNameExist(name);
}
int IsSerialPortNameExistW(const WCHAR* name) {
  return IsSerialPortNameExist(name);
}

int MapSerialPort(const char* name, const char* path) {
  if (name == nullptr) return 0;
  return qvx::platform::MapSerialDevice(name, path == nullptr ? "" : path) ? 1 : 0;
}

int SerialPortDevice(const char* name, CBaseStringA* path) {
  if (path == nullptr) return 0;
  const std::string device =
      name == nullptr ? std::string() : qvx::platform::SerialDevicePath(name);
  path->Set("", 0);
  path->Append(device.c_str(), static_cast<int>(device.size()));
  return device.empty() ? 0 : 1;
}
