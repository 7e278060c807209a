// Which serial ports the machine has, and which device stands behind the name of a port.
//
// COMn is the n-th of the ports on board, /dev/ttyS(n-1); from COM101 on come /dev/ttyUSB*, from
// COM201 /dev/ttyACM*, from COM301 the Bluetooth ports /dev/rfcomm*, and from COM401, in the
// order of their names, all others. So the name of a port stays whatever else is plugged in. A
// mapping adds a port, or puts another device behind a name. Thread-safe.
#pragma once

#include <string>
#include <vector>

namespace qvx::platform {

struct SerialEntry {
  std::string port;    // "COM5"
  std::string device;  // what drives it: "ttyUSB0", or "BthModem0" for Bluetooth
  std::string path;    // native
};

// The ports that drivers have registered, Bluetooth ones included, and mapped ones that are there.
std::vector<SerialEntry> SerialDriverMap();
// The ports with a device of the machine behind them that is there now.
std::vector<SerialEntry> SerialDevices();

// The native path behind the name of a port (with any case), also of one that is not there now;
// empty for a name that is none.
std::string SerialDevicePath(const std::string& port);

// Puts a device behind a name, from now on and for the whole process; an empty path takes the
// mapping away. False for an empty name.
bool MapSerialDevice(const std::string& port, const std::string& path);

// Where /sys and /dev are looked for, in tests; empty for the system's own.
void SetSerialRoot(const std::string& root);

}  // namespace qvx::platform
