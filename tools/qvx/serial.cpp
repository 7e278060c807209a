// qvx serial: the machine's serial ports, a small terminal, and sending and receiving files.
#include <poll.h>
#include <qvx/completion_port.h>
#include <qvx/platform.h>
#include <qvx/ptr_array.h>
#include <qvx/serial_names.h>
#include <qvx/serial_port.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <atomic>
#include <cctype>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "command.h"
#include "interrupt.h"
#include "stream.h"
#include "terminal.h"
#include "text.h"

namespace qvx::tool {
namespace {

constexpr char kEndKey = 0x1D;  // Ctrl+]
constexpr std::size_t kBlock = 4096;
constexpr unsigned int kSliceMs = 200;
constexpr unsigned int kSilenceMs = 300;
constexpr std::uint64_t kEndOfSession = 1;
constexpr const char* kPathPort = "COM999";  // what a device given by its path is called

struct Options {
  std::string port;
  unsigned int baud = 115200;
  std::string mode = "8N1";
  std::string file;
  std::uint64_t bytes = 0;
  double seconds = 0;
};

struct Mode {
  unsigned char byte_size, parity, stop_bits;
};

Mode ParseMode(std::string text) {
  Mode mode;
  CBaseStringA back;
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  SerialParseDCBString(text.c_str(), -1, &mode.byte_size, &mode.parity, &mode.stop_bits);
  SerialDCBToString(mode.byte_size, mode.parity, mode.stop_bits, &back);
  if (text != back.GetString()) {
    throw CommandError("a mode is like 8N1, 7E1 or 5O1.5, not " + text);
  }
  return mode;
}

void Open(CSerialUtil& port, const Options& options) {
  const Mode mode = ParseMode(options.mode);
  const bool is_path = options.port.find('/') != std::string::npos;
  if (is_path) MapSerialPort(kPathPort, options.port.c_str());
  const std::string name = is_path ? kPathPort : options.port;
  if (IsSerialPortNameExistA(name.c_str()) == 0) {
    throw CommandError("there is no port " + options.port + " (see qvx serial list)");
  }
  if (port.OpenSerial(name.c_str(), options.baud, mode.byte_size, mode.parity, mode.stop_bits) ==
      0) {
    throw CommandError("cannot open " + options.port + " with " + std::to_string(options.baud) +
                       " " + options.mode + " (qvx log shows why)");
  }
}

void List() {
  CPtrArrayCtrl names;
  EnumSerialPortNameA(&names);
  for (int i = 0; i < names.GetCount(); ++i) {
    const char* name = static_cast<const char*>(names.GetAt(i));
    CBaseStringA device;
    SerialPortDevice(name, &device);
    std::printf("%-8s %s\n", name, device.GetString());
  }
  FreeSerialPortNameA(&names);
}

// --- Files ----------------------------------------------------------------------------------

int LeaveOpen(std::FILE* file) {
  return std::fflush(file);
}

// Without a name, the standard stream.
Stream OpenFile(const std::string& name, const char* mode, std::FILE* standard) {
  if (name.empty() || name == "-") return Stream(standard, &LeaveOpen);
  return OpenStream(name, mode);
}

void Send(const Options& options) {
  const Stream file = OpenFile(options.file, "rbe", stdin);
  CSerialUtil port;
  Open(port, options);
  const unsigned int limit =
      options.seconds > 0 ? static_cast<unsigned int>(options.seconds * 1000) : 0xFFFFFFFF;
  std::array<unsigned char, kBlock> block;
  std::uint64_t total = 0;
  std::size_t count = 0;
  while ((count = std::fread(block.data(), 1, block.size(), file.get())) > 0) {
    const unsigned int put =
        port.WriteData(block.data(), static_cast<unsigned int>(count), limit, 0, 0, nullptr);
    total += put;
    if (put == count) continue;
    throw CommandError("the port took " + CountText(total, "byte") + ", then no more");
  }
  if (std::ferror(file.get()) != 0) throw CommandError("cannot read " + options.file);
  std::fprintf(stderr, "%s sent\n", CountText(total, "byte").c_str());
}

void Receive(const Options& options) {
  const Stream file = OpenFile(options.file, "wbe", stdout);
  CSerialUtil port;
  Open(port, options);
  BlockInterrupts();
  const bool to_file = file.get() != stdout;
  if (to_file) {
    std::printf("receiving from %s\n", options.port.c_str());
    std::fflush(stdout);
  }
  const std::uint64_t limit = options.bytes > 0 ? options.bytes : UINT64_MAX;
  const double patience = options.seconds > 0 ? options.seconds * 1000 : 1e18;
  std::array<unsigned char, kBlock> block;
  std::uint64_t total = 0;
  double silence = 0;
  while (total < limit && silence < patience && port.IsOpened() != 0 && !WaitForInterrupt(0)) {
    const auto wanted = static_cast<unsigned int>(std::min<std::uint64_t>(kBlock, limit - total));
    const unsigned int got = port.ReadData(block.data(), wanted, kSliceMs, 0);
    silence = got > 0 ? 0 : silence + kSliceMs;
    total += got;
    if (std::fwrite(block.data(), 1, got, file.get()) != got || std::fflush(file.get()) != 0) {
      throw CommandError("cannot write what was received");
    }
  }
  if (to_file) std::printf("%s received\n", CountText(total, "byte").c_str());
  if (total < options.bytes) {
    throw CommandError("only " + CountText(total, "byte") + " came");
  }
}

// --- Terminal -------------------------------------------------------------------------------

// Shows what the port sends, on a thread of its own, while the caller sends what is typed.
class Session {
 public:
  explicit Session(CSerialUtil& port) : port_(port), queue_(port.StartIOCPReadWrite(nullptr)) {
    is_over_ = PostRead() == 0;
    thread_ = std::thread([this] { Show(); });
  }
  ~Session() {
    const tagCOMPLETION end{nullptr, kEndOfSession, 0, 0};
    PostCompletion(queue_, &end);
    thread_.join();
    port_.CloseSerial();  // before the buffers of what is still under way go
    CloseCompletionPort(queue_);
  }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  bool IsOver() const { return is_over_; }
  bool IsSilent() const { return std::chrono::steady_clock::now() - heard_.load() > kSilence; }

  // Waits until the port took the bytes. False if it took none any more.
  bool Send(const char* bytes, std::size_t size) {
    std::unique_lock<std::mutex> guard(mutex_);
    if (is_over_) return false;
    is_sent_ = false;
    if (port_.PostIOCPSendBuffer(&writing_, reinterpret_cast<const unsigned char*>(bytes),
                                 static_cast<unsigned int>(size)) == 0) {
      return false;
    }
    changed_.wait(guard, [this] { return is_sent_ || is_over_; });
    return is_sent_;
  }

 private:
  static constexpr std::chrono::milliseconds kSilence{kSilenceMs};

  int PostRead() { return port_.PostIOCPRecvBuffer(&reading_, block_.data(), kBlock); }

  void Show() {
    tagCOMPLETION done;
    while (WaitCompletionPort(queue_, 0xFFFFFFFF, &done) == 1 && done.key != kEndOfSession) {
      const bool goes_on = done.overlapped == &writing_ ? TellSent(done) : ShowBytes(done);
      if (!goes_on) break;
    }
    const std::lock_guard<std::mutex> guard(mutex_);
    is_over_ = true;
    changed_.notify_all();
  }

  bool ShowBytes(const tagCOMPLETION& done) {
    if (done.bytes > 0) heard_ = std::chrono::steady_clock::now();
    std::fwrite(block_.data(), 1, done.bytes, stdout);
    std::fflush(stdout);
    return done.error == 0 && PostRead() == 1;
  }

  bool TellSent(const tagCOMPLETION& done) {
    const std::lock_guard<std::mutex> guard(mutex_);
    is_sent_ = done.error == 0;
    changed_.notify_all();
    return is_sent_;
  }

  CSerialUtil& port_;
  const HANDLE queue_;
  std::array<unsigned char, kBlock> block_{};
  OVERLAPPED reading_{};
  OVERLAPPED writing_{};
  std::atomic<std::chrono::steady_clock::time_point> heard_{std::chrono::steady_clock::now()};
  std::mutex mutex_;
  std::condition_variable changed_;
  bool is_sent_ = false;
  std::atomic<bool> is_over_{false};
  std::thread thread_;
};

bool InputIsReady() {
  pollfd item{STDIN_FILENO, POLLIN, 0};
  return poll(&item, 1, static_cast<int>(kSliceMs)) > 0;
}

// Sends what is typed until the end key or the end of the input. False once the port is gone.
bool SendTyped(Session& session, bool is_terminal) {
  std::array<char, kBlock> keys;
  while (!session.IsOver() && !WaitForInterrupt(0)) {
    if (!InputIsReady()) continue;
    const ssize_t count = read(STDIN_FILENO, keys.data(), keys.size());
    if (count <= 0) return true;
    const char* begin = keys.data();
    const char* end = begin + count;
    const char* stop = is_terminal ? std::find(begin, end, kEndKey) : end;
    if (stop > begin && !session.Send(begin, static_cast<std::size_t>(stop - begin))) return false;
    if (stop != end) return true;
  }
  return !session.IsOver();
}

void Terminal(const Options& options) {
  CSerialUtil port;
  Open(port, options);
  BlockInterrupts();
  bool is_there = true;
  {
    const RawInput input;
    if (input.IsTerminal()) {
      std::fprintf(stderr, "%s, %u %s; Ctrl+] ends\r\n", options.port.c_str(), options.baud,
                   options.mode.c_str());
    }
    Session session(port);
    is_there = SendTyped(session, input.IsTerminal());
    // The answer to what a file or a pipe said.
    while (is_there && !input.IsTerminal() && !session.IsOver() && !session.IsSilent()) {
      if (WaitForInterrupt(static_cast<int>(kSliceMs) / 4)) break;
    }
  }
  if (!is_there) throw CommandError("the port " + options.port + " is gone");
}

CLI::App* AddPortCommand(CLI::App* parent, const char* name, const char* text,
                         const std::shared_ptr<Options>& options) {
  CLI::App* command = parent->add_subcommand(name, text);
  command->add_option("PORT", options->port, "Name (COM3) or device (/dev/ttyUSB0)")->required();
  command->add_option("--baud", options->baud, "Any rate; 115200 if not given")
      ->check(CLI::PositiveNumber);
  command->add_option("--mode", options->mode, "Data bits, parity N O E M S, stop bits; 8N1");
  return command;
}

}  // namespace

void AddSerialCommand(CLI::App& app) {
  auto options = std::make_shared<Options>();
  CLI::App* serial = app.add_subcommand("serial", "List and use serial ports");
  serial->require_subcommand(1);
  serial->add_subcommand("list", "List the ports and their devices")->callback(&List);
  AddPortCommand(serial, "term", "Show what the port sends, and send what is typed", options)
      ->callback([options] { Terminal(*options); });
  CLI::App* send = AddPortCommand(serial, "send", "Send a file", options);
  send->add_option("FILE", options->file, "File to send; the standard input if not given");
  send->add_option("--seconds", options->seconds, "Give up after so long on one block");
  send->callback([options] { Send(*options); });
  CLI::App* receive = AddPortCommand(serial, "recv", "Receive until Ctrl+C, or as told", options);
  receive->add_option("-o,--output", options->file, "File to write; the standard output else");
  receive->add_option("--bytes", options->bytes, "End after so many bytes");
  receive->add_option("--seconds", options->seconds, "End after so long a silence");
  receive->callback([options] { Receive(*options); });
}

}  // namespace qvx::tool
