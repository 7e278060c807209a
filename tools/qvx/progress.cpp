#include "progress.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "terminal.h"
#include "text.h"

namespace qvx::tool {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kDrawEvery{100};
constexpr milliseconds kPrintEvery{5000};
constexpr std::size_t kBarWidth = 24;
constexpr std::size_t kNameWidth = 24;

// The first bytes of a name, cut between characters.
std::string Shortened(const std::string& text, std::size_t width) {
  if (text.size() <= width) return text;
  std::size_t end = width;
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0u) == 0x80u) --end;
  return text.substr(0, end);
}

}  // namespace

Progress::Progress(bool is_upload, ProgressRules rules)
    : is_upload_(is_upload),
      rules_(std::move(rules)),
      on_terminal_(OutputIsTerminal()),
      start_(Clock::now()),
      drawn_(start_) {}

std::int32_t Progress::OnNetFileCopyProgress(std::uint64_t, std::uint64_t copied,
                                             std::uint64_t total, double, std::uint64_t* limit) {
  *limit = rules_.limit;
  file_done_ = copied;
  file_total_ = total;
  Draw();
  return rules_.wants_stop && rules_.wants_stop() ? 0 : 1;
}

void Progress::OnNetFolderCreate(std::uint64_t, const WCHAR*) {
  ++folders_;
}

void Progress::OnNetFileCopyBegin(std::uint64_t, const WCHAR* remote, const WCHAR* local) {
  name_ = BaseName(NativePath(is_upload_ ? local : remote));
  file_done_ = 0;
  file_total_ = 0;
  Draw();
}

void Progress::OnSocketFileCopyEnd(std::uint64_t, const WCHAR* remote, const WCHAR* local,
                                   std::int32_t result, std::uint64_t size) {
  if (result == SOCKET_FILE_COPY_HIDDEN) {
    ++hidden_;
  } else if (result != SOCKET_FILE_COPY_DONE) {
    failures_.push_back({NativePath(is_upload_ ? local : remote), result});
  } else {
    copied_.emplace_back(remote, local);
    EndFile(size);
  }
}

void Progress::BeginFile(const std::string& name) {
  name_ = name;
  single_ = true;
}

void Progress::EndFile(std::uint64_t size) {
  ++files_;
  bytes_ += size;
  file_done_ = 0;
  file_total_ = 0;
}

void Progress::Clear() {
  if (!on_terminal_) return;
  std::printf("\r\033[K");
  std::fflush(stdout);
}

double Progress::Seconds() const {
  return std::chrono::duration<double>(Clock::now() - start_).count();
}

void Progress::Draw() {
  const Clock::time_point now = Clock::now();
  if (now - drawn_ < (on_terminal_ ? kDrawEvery : kPrintEvery)) return;
  drawn_ = now;
  if (on_terminal_) {
    std::printf("\r\033[K%s",
                Shortened(Line(), static_cast<std::size_t>(SizeOfTerminal().columns) - 1).c_str());
  } else {
    std::printf("%s\n", Line().c_str());
  }
  std::fflush(stdout);
}

std::string Progress::Line() const {
  const std::uint64_t done = bytes_ + file_done_;
  const std::uint64_t total = single_ ? file_total_ : rules_.total;
  const double seconds = Seconds();
  std::string line = Shortened(name_, kNameWidth) + "  ";
  if (!single_) line += CountText(files_, "file") + "  ";
  if (total > 0) line += Bar(done, total, on_terminal_ ? kBarWidth : 0);
  const std::uint64_t moved = done - std::min(done, rules_.before);
  line += SizeText(done) + "  " + RateText(moved, seconds);
  if (total > done && moved > 0) {
    const double left = seconds * static_cast<double>(total - done) / static_cast<double>(moved);
    line += "  " + DurationText(left) + " left";
  }
  return line;
}

std::string Progress::Bar(std::uint64_t done, std::uint64_t total, std::size_t width) const {
  const double part = std::min(1.0, static_cast<double>(done) / static_cast<double>(total));
  const auto filled = static_cast<std::size_t>(part * static_cast<double>(width));
  std::string bar;
  if (width > 0) bar.append("[").append(filled, '#').append(width - filled, '.').append("] ");
  return bar + std::to_string(static_cast<int>(part * 100)) + "%  ";
}

const char* CopyResultText(std::int32_t result) {
  switch (result) {
    case SOCKET_FILE_COPY_LOCAL_OPEN:
      return "the local file cannot be opened";
    case SOCKET_FILE_COPY_REMOTE_OPEN:
      return "the server cannot open its file";
    case SOCKET_FILE_COPY_LOCAL_IO:
      return "the local file cannot be read or written";
    case SOCKET_FILE_COPY_REMOTE_IO:
      return "the server cannot read or write its file";
    case SOCKET_FILE_COPY_TIMEOUT:
      return "it took longer than the time limit";
    case SOCKET_FILE_COPY_EXISTS:
      return "the destination exists already";
    case SOCKET_FILE_COPY_TOO_LONG:
      return "a path is too long";
    case SOCKET_FILE_COPY_SPECIAL:
      return "neither a file nor a folder";
    case SOCKET_FILE_COPY_NO_FOLDER:
      return "the folder cannot be made or listed";
    case SOCKET_FILE_COPY_DISCONNECTED:
      return "the connection was lost";
    case SOCKET_FILE_COPY_CANCELLED:
      return "interrupted";
    default:
      return "failed";
  }
}

}  // namespace qvx::tool
