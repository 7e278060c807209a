#include "line_input.h"

#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>

#include <array>
#include <cerrno>
#include <cstdint>

#include "command.h"

namespace qvx::tool {
namespace {

int OpenSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  return signalfd(-1, &signals, SFD_CLOEXEC);
}

}  // namespace

LineInput::LineInput() : signals_(OpenSignals()), wake_(eventfd(0, EFD_CLOEXEC)) {
  if (!signals_ || !wake_) throw CommandError("no descriptors left to wait with");
}

LineInput::Event LineInput::Next(std::string& line) {
  for (;;) {
    if (TakeLine(line)) return Event::kLine;
    if (at_end_ && !end_told_) {
      end_told_ = true;
      return Event::kEnd;
    }
    std::array<pollfd, 3> polled{pollfd{signals_.Get(), POLLIN, 0}, pollfd{wake_.Get(), POLLIN, 0},
                                 pollfd{at_end_ ? -1 : STDIN_FILENO, POLLIN, 0}};
    if (poll(polled.data(), polled.size(), -1) < 0 && errno != EINTR)
      throw CommandError("cannot wait for input");
    if (polled[0].revents != 0) return Event::kInterrupt;
    if (polled[1].revents != 0) return Event::kWake;
    if (polled[2].revents != 0) ReadSome();
  }
}

void LineInput::Wake() const {
  const std::uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = write(wake_.Get(), &one, sizeof(one));
}

bool LineInput::TakeLine(std::string& line) {
  std::size_t end = pending_.find('\n');
  if (end == std::string::npos) {
    if (!at_end_ || pending_.empty()) return false;
    end = pending_.size();
  }
  line = pending_.substr(0, end);
  pending_.erase(0, end + 1);
  return true;
}

void LineInput::ReadSome() {
  std::array<char, 4096> block;
  const ssize_t count = read(STDIN_FILENO, block.data(), block.size());
  if (count > 0) pending_.append(block.data(), static_cast<std::size_t>(count));
  if (count == 0 || (count < 0 && errno != EINTR && errno != EAGAIN)) at_end_ = true;
}

}  // namespace qvx::tool
