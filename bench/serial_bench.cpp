#include <fcntl.h>
#include <qvx/platform.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "qvx/serial_port.h"
#include "ratio.h"

namespace qvx::bench {
namespace {

constexpr std::size_t kBlock = 4096;
constexpr std::size_t kTotal = 1 << 20;
constexpr unsigned int kPatience = 60000;
constexpr const char* kPort = "COM990";

// Both ends as plain descriptors that block, in raw mode.
struct Line {
  Line() {
    far = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    grantpt(far);
    unlockpt(far);
    path = ptsname(far);
  }
  ~Line() {
    if (near >= 0) close(near);
    close(far);
  }
  Line(const Line&) = delete;
  Line& operator=(const Line&) = delete;

  void OpenNear() {
    near = open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    termios settings;
    tcgetattr(near, &settings);
    cfmakeraw(&settings);
    cfsetspeed(&settings, B4000000);
    tcsetattr(near, TCSANOW, &settings);
  }

  std::string path;
  int far = -1;
  int near = -1;
};

struct Plain : Line {
  Plain() { OpenNear(); }
};

struct Port : Line {
  Port() {
    MapSerialPort(kPort, path.c_str());
    if (port.OpenSerial(kPort, 4000000, 8, 0, 0) == 0) std::perror("serial port");
  }

  CSerialUtil port;
};

Plain& ThePlain() {
  static Plain line;
  return line;
}

Port& ThePort() {
  static Port line;
  return line;
}

void WriteAll(int descriptor, std::size_t size) {
  const std::vector<char> block(kBlock, 'x');
  while (size > 0) {
    const ssize_t put = write(descriptor, block.data(), size < kBlock ? size : kBlock);
    if (put <= 0) return;
    size -= static_cast<std::size_t>(put);
  }
}

void ReadAll(int descriptor, std::size_t size) {
  std::vector<char> block(kBlock);
  while (size > 0) {
    const ssize_t got = read(descriptor, block.data(), size < kBlock ? size : kBlock);
    if (got <= 0) return;
    size -= static_cast<std::size_t>(got);
  }
}

void ReadOurs(long long times) {
  Port& line = ThePort();
  const std::size_t size = kTotal * static_cast<std::size_t>(times);
  std::thread writer([&] { WriteAll(line.far, size); });
  std::vector<unsigned char> block(kBlock);
  for (std::size_t done = 0; done < size;) {
    const unsigned int got = line.port.ReadData(block.data(), kBlock, kPatience, 1);
    if (got == 0) break;
    done += got;
  }
  writer.join();
}

void ReadPeer(long long times) {
  Plain& line = ThePlain();
  const std::size_t size = kTotal * static_cast<std::size_t>(times);
  std::thread writer([&] { WriteAll(line.far, size); });
  ReadAll(line.near, size);
  writer.join();
}

void WriteOurs(long long times) {
  Port& line = ThePort();
  const std::size_t size = kTotal * static_cast<std::size_t>(times);
  std::thread reader([&] { ReadAll(line.far, size); });
  const std::vector<unsigned char> block(kBlock, 'x');
  for (std::size_t done = 0; done < size;) {
    const unsigned int put = line.port.WriteData(block.data(), kBlock, kPatience, 0, 0, nullptr);
    if (put == 0) break;
    done += put;
  }
  reader.join();
}

void WritePeer(long long times) {
  Plain& line = ThePlain();
  const std::size_t size = kTotal * static_cast<std::size_t>(times);
  std::thread reader([&] { ReadAll(line.far, size); });
  WriteAll(line.near, size);
  reader.join();
}

const bool kAdded = AddPair({"serial read 1 MiB by 4096", 1 / 0.9, &ReadOurs, &ReadPeer}) &&
                    AddPair({"serial write 1 MiB by 4096", 1 / 0.9, &WriteOurs, &WritePeer});

}  // namespace
}  // namespace qvx::bench
