// A terminal device as a serial line: raw bytes, no controlling terminal, modem lines ignored,
// no flow control. Nothing here waits. Failing operations set errno; a device that is gone
// (EIO, ENXIO, ENODEV, hang-up) has the one code kSerialGone. For one thread at a time, but one
// may read while another one writes.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace qvx::platform {

inline constexpr int kSerialGone = 22;

struct SerialSettings {
  std::uint32_t baud_rate = 0;
  std::uint8_t byte_size = 8;  // 5 to 8
  std::uint8_t parity = 0;     // 0 none, 1 odd, 2 even, 3 mark, 4 space
  std::uint8_t stop_bits = 0;  // 0 one, 1 one and a half (with 5 data bits only), 2 two
  bool checks_parity = false;
};

class SerialDevice {
 public:
  SerialDevice() = default;
  ~SerialDevice();
  SerialDevice(const SerialDevice&) = delete;
  SerialDevice& operator=(const SerialDevice&) = delete;

  // Only terminals, and only while nobody else has the device open in this way (EBUSY).
  bool Open(const std::string& path);
  void Close();
  // Closes only what this process has of it: for a forked child, whose parent goes on.
  void Abandon();
  int Descriptor() const { return descriptor_; }

  // Sets what is asked for, raises DTR and RTS, and reads back: a setting that the device does
  // not take fails with EINVAL, but for byte size and parity of pseudo-terminals, which have
  // none. Any rate may be asked for; 3% off is near enough.
  bool Configure(const SerialSettings& settings);
  // False once the device is gone.
  bool IsThere() const;
  // Throws away what was received, or what was not sent yet.
  bool Discard(bool received, bool unsent);

  // Bytes moved, or -1: EAGAIN where there are none, or there is no room.
  ssize_t Read(void* data, std::size_t size);
  ssize_t Write(const void* data, std::size_t size);

 private:
  bool IsPseudoTerminal() const;

  int descriptor_ = -1;
};

}  // namespace qvx::platform
