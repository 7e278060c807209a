#include "platform/serial_list.h"

#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstring>
#include <fstream>
#include <mutex>
#include <string_view>
#include <utility>

#include "platform/folder.h"
#include "platform/lock.h"

namespace qvx::platform {
namespace {

struct Family {
  const char* prefix;
  int first;  // number of the first port
};
constexpr Family kFamilies[] = {{"ttyS", 1}, {"ttyUSB", 101}, {"ttyACM", 201}, {"rfcomm", 301}};
constexpr int kPerFamily = 100;
constexpr int kFirstOther = 401;

struct State {
  LeafLock lock;
  std::vector<SerialEntry> mappings;
  std::string root;
};

State& TheState() {
  static State state;
  return state;
}

std::vector<SerialEntry> Mappings() {
  State& state = TheState();
  const std::lock_guard<LeafLock> guard(state.lock);
  return state.mappings;
}

std::string Root() {
  State& state = TheState();
  const std::lock_guard<LeafLock> guard(state.lock);
  return state.root;
}

bool IsThere(const std::string& path) {
  return access(path.c_str(), F_OK) == 0;
}

bool SameName(const std::string& left, const std::string& right) {
  return strcasecmp(left.c_str(), right.c_str()) == 0;
}

std::string PortName(int number) {
  return "COM" + std::to_string(number);
}

// The number behind a prefix; -1 where something else follows it.
int NumberBehind(std::string_view name, std::string_view prefix) {
  int number = -1;
  if (name.substr(0, prefix.size()) != prefix) return -1;
  const char* end = name.data() + name.size();
  const auto result = std::from_chars(name.data() + prefix.size(), end, number);
  return result.ec == std::errc() && result.ptr == end ? number : -1;
}

// The fixed number of a port; 0 for a device of no family.
int FixedNumber(std::string_view device) {
  for (const Family& family : kFamilies) {
    const int number = NumberBehind(device, family.prefix);
    if (number >= 0 && number < kPerFamily) return family.first + number;
  }
  return 0;
}

// The kernel keeps places for ports on board that aren't there; their type is 0.
bool IsPlaceOnly(const std::string& folder) {
  std::ifstream file(folder + "/type");
  int type = -1;
  return file >> type && type == 0;
}

// Terminals of the machine that are no serial lines have no device behind them.
bool HasDevice(const std::string& folder) {
  return IsThere(folder + "/device") && !IsPlaceOnly(folder);
}

bool IsBluetooth(const std::string& name) {
  return NumberBehind(name, "rfcomm") >= 0;
}

std::string DeviceName(const std::string& name) {
  return IsBluetooth(name) ? "BthModem" + name.substr(6) : name;
}

// Names below /sys/class/tty, in the order of their port numbers.
std::vector<std::string> TerminalNames(const std::string& root) {
  std::vector<std::string> names;
  FolderReader reader;
  FolderEntry entry;
  if (!reader.Open(root + "/sys/class/tty", true)) return names;
  while (reader.Next(entry)) names.push_back(entry.name);
  std::sort(names.begin(), names.end(), [](const std::string& left, const std::string& right) {
    const auto rank = [](const std::string& name) {
      const int number = FixedNumber(name);
      return number == 0 ? kFirstOther : number;
    };
    return std::make_pair(rank(left), left) < std::make_pair(rank(right), right);
  });
  return names;
}

// The machine's own ports. with_unbound takes those of drivers that no device is bound to, too.
std::vector<SerialEntry> OwnPorts(bool with_unbound) {
  const std::string root = Root();
  std::vector<SerialEntry> ports;
  int other = kFirstOther;
  for (const std::string& name : TerminalNames(root)) {
    const std::string folder = root + "/sys/class/tty/" + name;
    const bool has_device = HasDevice(folder);
    const int fixed = FixedNumber(name);
    if (!has_device && !(with_unbound && IsBluetooth(name))) continue;
    const std::string port = PortName(fixed != 0 ? fixed : other++);
    ports.push_back({port, DeviceName(name), root + "/dev/" + name});
  }
  return ports;
}

// Puts mapped ports in the place of own ones of the same name, and the others behind.
std::vector<SerialEntry> WithMappings(std::vector<SerialEntry> ports) {
  for (SerialEntry& mapping : Mappings()) {
    const auto same = std::find_if(ports.begin(), ports.end(), [&](const SerialEntry& port) {
      return SameName(port.port, mapping.port);
    });
    if (same != ports.end()) ports.erase(same);
    if (IsThere(mapping.path)) ports.push_back(std::move(mapping));
  }
  return ports;
}

}  // namespace

std::vector<SerialEntry> SerialDriverMap() {
  return WithMappings(OwnPorts(true));
}

std::vector<SerialEntry> SerialDevices() {
  std::vector<SerialEntry> ports = OwnPorts(false);
  const std::vector<SerialEntry> mappings = Mappings();
  std::erase_if(ports, [&](const SerialEntry& port) {
    return std::any_of(mappings.begin(), mappings.end(), [&](const SerialEntry& mapping) {
      return SameName(mapping.port, port.port);
    });
  });
  return ports;
}

std::string SerialDevicePath(const std::string& port) {
  for (const SerialEntry& mapping : Mappings()) {
    if (SameName(mapping.port, port)) return mapping.path;
  }
  for (const SerialEntry& own : OwnPorts(true)) {
    if (SameName(own.port, port)) return own.path;
  }
  return {};
}

bool MapSerialDevice(const std::string& port, const std::string& path) {
  if (port.empty()) return false;
  State& state = TheState();
  SerialEntry mapping{port, DeviceName(path.substr(path.rfind('/') + 1)), path};
  const std::lock_guard<LeafLock> guard(state.lock);
  const auto found =
      std::find_if(state.mappings.begin(), state.mappings.end(),
                   [&](const SerialEntry& entry) { return SameName(entry.port, port); });
  if (path.empty()) {
    if (found != state.mappings.end()) state.mappings.erase(found);
  } else if (found != state.mappings.end()) {
    *found = std::move(mapping);
  } else {
    state.mappings.push_back(std::move(mapping));
  }
  return true;
}

void SetSerialRoot(const std::string& root) {
  State& state = TheState();
  const std::lock_guard<LeafLock> guard(state.lock);
  state.root = root;
}

}  // namespace qvx::platform
