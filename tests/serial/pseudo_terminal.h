// A pseudo-terminal pair: the far side of a serial port in a test. The near side is mapped to a
// port name for as long as this lives.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

#include "qvx/platform.h"
#include "support/temp_folder.h"

namespace qvx::test {

class PseudoTerminal {
 public:
  explicit PseudoTerminal(const char* port) : port_(port) {
    far_ = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
    EXPECT_EQ(0, grantpt(far_));
    EXPECT_EQ(0, unlockpt(far_));
    EXPECT_EQ(0, symlink(ptsname(far_), path_.c_str()));
    EXPECT_EQ(1, MapSerialPort(port, path_.c_str()));
  }
  ~PseudoTerminal() {
    MapSerialPort(port_.c_str(), nullptr);
    Pull();
  }
  PseudoTerminal(const PseudoTerminal&) = delete;
  PseudoTerminal& operator=(const PseudoTerminal&) = delete;

  int Far() const { return far_; }
  const std::string& Path() const { return path_; }

  // The name of the near side goes with the far side. The system's own name for it may soon be
  // that of another program's terminal.
  void Pull() {
    unlink(path_.c_str());
    if (far_ >= 0) close(far_);
    far_ = -1;
  }

  // Writes all, waiting at most 20 s for room.
  bool Send(const std::string& bytes) const {
    for (std::size_t done = 0; done < bytes.size();) {
      const ssize_t put = write(far_, bytes.data() + done, bytes.size() - done);
      if (put > 0) done += static_cast<std::size_t>(put);
      if (put < 0 && !Await(POLLOUT)) return false;
    }
    return true;
  }

  // So many bytes, or what came before the other side ended or was silent for 20 s.
  std::string Receive(std::size_t size) const {
    std::string bytes(size, '\0');
    std::size_t done = 0;
    while (done < size) {
      const ssize_t got = read(far_, &bytes[done], size - done);
      if (got > 0) done += static_cast<std::size_t>(got);
      if (got <= 0 && !Await(POLLIN)) break;
    }
    return bytes.substr(0, done);
  }

 private:
  bool Await(short event) const {
    pollfd item{far_, event, 0};
    return poll(&item, 1, 20000) == 1 && (item.revents & event) != 0;
  }

  const std::string port_;
  const TempFolder folder_;
  const std::string path_ = folder_.Path("near");
  int far_ = -1;
};

}  // namespace qvx::test
