#include "platform/serial_device.h"

// Not <termios.h>, whose structure has no room for arbitrary rates.
#include <asm/termbits.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "platform/seam.h"

namespace qvx::platform {
namespace {

constexpr unsigned kFirstPseudoMajor = 136;
constexpr unsigned kLastPseudoMajor = 143;
constexpr tcflag_t kShape = CSIZE | PARENB | PARODD | CMSPAR;

bool Fail(int error) {
  errno = error;
  return false;
}

// Gives a device that is gone its one code.
ssize_t Outcome(ssize_t result) {
  if (result >= 0) return result;
  if (errno == EIO || errno == ENXIO || errno == ENODEV) errno = kSerialGone;
  return -1;
}

int Control(int descriptor, unsigned long request, void* argument) {
  int result;
  do {
    result = ioctl(descriptor, request, argument);
  } while (result < 0 && errno == EINTR);
  return static_cast<int>(Outcome(result));
}

bool SizeFlags(std::uint8_t byte_size, tcflag_t& flags) {
  constexpr tcflag_t kSizes[] = {CS5, CS6, CS7, CS8};
  if (byte_size < 5 || byte_size > 8) return false;
  flags |= kSizes[byte_size - 5];
  return true;
}

bool ParityFlags(std::uint8_t parity, tcflag_t& flags) {
  constexpr tcflag_t kParities[] = {0, PARENB | PARODD, PARENB, PARENB | PARODD | CMSPAR,
                                    PARENB | CMSPAR};
  if (parity >= std::size(kParities)) return false;
  flags |= kParities[parity];
  return true;
}

// With 5 data bits the second stop bit is a half one, and with others it is a whole one.
bool StopFlags(std::uint8_t stop_bits, std::uint8_t byte_size, tcflag_t& flags) {
  if (stop_bits == 0) return true;
  if (stop_bits > 2 || (stop_bits == 1) != (byte_size == 5)) return false;
  flags |= CSTOPB;
  return true;
}

bool Describe(const SerialSettings& wanted, termios2& terminal) {
  tcflag_t flags = CREAD | CLOCAL | BOTHER;
  if (wanted.baud_rate == 0 || !SizeFlags(wanted.byte_size, flags) ||
      !ParityFlags(wanted.parity, flags) || !StopFlags(wanted.stop_bits, wanted.byte_size, flags)) {
    return Fail(EINVAL);
  }
  terminal.c_cflag = flags;
  terminal.c_iflag = IGNBRK | (wanted.checks_parity ? INPCK : 0);
  terminal.c_oflag = 0;
  terminal.c_lflag = 0;
  terminal.c_cc[VMIN] = 1;  // with 0, "nothing yet" would look like a hang-up
  terminal.c_cc[VTIME] = 0;
  terminal.c_ispeed = terminal.c_ospeed = wanted.baud_rate;
  return true;
}

bool IsNear(std::uint64_t rate, std::uint64_t wanted) {
  return rate * 100 >= wanted * 97 && rate * 100 <= wanted * 103;
}

bool Took(const termios2& now, const termios2& wanted, bool has_shape) {
  const tcflag_t compared = CSTOPB | (has_shape ? kShape : 0);
  return IsNear(now.c_ospeed, wanted.c_ospeed) &&
         (now.c_cflag & compared) == (wanted.c_cflag & compared);
}

// Where there are no such lines, there is nothing to raise.
void RaiseLines(int descriptor) {
  int lines = TIOCM_DTR | TIOCM_RTS;
  Control(descriptor, TIOCMBIS, &lines);
}

bool IsCharacterDevice(const std::string& path) {
  struct stat status;
  if (stat(path.c_str(), &status) != 0) return false;
  return S_ISCHR(status.st_mode) || Fail(ENOTTY);
}

}  // namespace

SerialDevice::~SerialDevice() {
  Close();
}

bool SerialDevice::Open(const std::string& path) {
  Close();
  if (SeamFails(Operation::kSerialOpen) || !IsCharacterDevice(path)) return false;
  do {
    descriptor_ = open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  } while (descriptor_ < 0 && errno == EINTR);
  if (descriptor_ < 0) return false;
  termios2 terminal;
  int error = 0;
  if (Control(descriptor_, TCGETS2, &terminal) != 0) {
    error = errno;
  } else if (flock(descriptor_, LOCK_EX | LOCK_NB) != 0) {
    error = EBUSY;
  }
  if (error == 0) {
    Control(descriptor_, TIOCEXCL, nullptr);
    return true;
  }
  close(std::exchange(descriptor_, -1));
  return Fail(error);
}

void SerialDevice::Close() {
  if (descriptor_ < 0) return;
  Control(descriptor_, TIOCNXCL, nullptr);
  Abandon();
}

void SerialDevice::Abandon() {
  if (descriptor_ >= 0) close(std::exchange(descriptor_, -1));
}

bool SerialDevice::IsPseudoTerminal() const {
  struct stat status;
  if (fstat(descriptor_, &status) != 0) return false;
  return major(status.st_rdev) >= kFirstPseudoMajor && major(status.st_rdev) <= kLastPseudoMajor;
}

bool SerialDevice::Configure(const SerialSettings& settings) {
  termios2 wanted{};
  termios2 now{};
  if (Control(descriptor_, TCGETS2, &wanted) != 0 || !Describe(settings, wanted)) return false;
  const SeamCall call = AskSeam(Operation::kSerialSetup,
                                std::int64_t{wanted.c_cflag} | std::int64_t{wanted.c_iflag} << 32);
  if (call.error != 0) return Fail(call.error);
  if (Control(descriptor_, TCSETS2, &wanted) != 0 || Control(descriptor_, TCGETS2, &now) != 0) {
    return false;
  }
  if (!Took(now, wanted, !IsPseudoTerminal())) return Fail(EINVAL);
  RaiseLines(descriptor_);
  return true;
}

bool SerialDevice::IsThere() const {
  termios2 terminal;
  return Control(descriptor_, TCGETS2, &terminal) == 0;
}

bool SerialDevice::Discard(bool received, bool unsent) {
  if (!received && !unsent) return true;
  const long queue = !unsent ? TCIFLUSH : received ? TCIOFLUSH : TCOFLUSH;
  return Control(descriptor_, TCFLSH, reinterpret_cast<void*>(queue)) == 0;
}

ssize_t SerialDevice::Read(void* data, std::size_t size) {
  ssize_t got;
  do {
    got = SeamFailsOrShortens(Operation::kSerialRead, size) ? -1 : read(descriptor_, data, size);
  } while (got < 0 && errno == EINTR);
  if (got == 0 && size > 0) {
    errno = kSerialGone;
    return -1;
  }
  return Outcome(got);
}

ssize_t SerialDevice::Write(const void* data, std::size_t size) {
  ssize_t put;
  do {
    put = SeamFailsOrShortens(Operation::kSerialWrite, size) ? -1 : write(descriptor_, data, size);
  } while (put < 0 && errno == EINTR);
  return Outcome(put);
}

}  // namespace qvx::platform
