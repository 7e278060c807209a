// A measuring instrument on a serial port: ask who it is, then take readings. With no arguments
// it talks to an instrument of its own making at the far end of a pseudo-terminal:
//   example_serial_instrument [PORT [BAUD]]
#include <fcntl.h>
#include <qvx/platform.h>
#include <qvx/serial_names.h>
#include <qvx/serial_port.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <thread>

namespace {

constexpr unsigned int kPatienceMs = 5000;
constexpr const char* kMadeUpPort = "COM900";

// Answers line by line until it is told something else.
class MadeUpInstrument {
 public:
  MadeUpInstrument() : line_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
    if (grantpt(line_) != 0 || unlockpt(line_) != 0) std::perror("pseudo-terminal");
    MapSerialPort(kMadeUpPort, ptsname(line_));
    thread_ = std::thread([this] { Serve(); });
  }
  ~MadeUpInstrument() {
    thread_.join();
    close(line_);
  }
  MadeUpInstrument(const MadeUpInstrument&) = delete;
  MadeUpInstrument& operator=(const MadeUpInstrument&) = delete;

 private:
  void Serve() {
    std::string question;
    char c = 0;
    while (read(line_, &c, 1) == 1) {
      if (c != '\n') {
        question += c;
        continue;
      }
      const std::string answer = Answer(question);
      if (answer.empty() || write(line_, answer.data(), answer.size()) < 0) return;
      question.clear();
    }
  }

  std::string Answer(const std::string& question) {
    if (question == "*IDN?") return "Made-up thermometer, no. 7\n";
    if (question == "READ?") return std::to_string(21 + reading_++) + ".5\n";
    return "";
  }

  int line_;
  int reading_ = 0;
  std::thread thread_;
};

void Say(CSerialUtil& port, const std::string& text) {
  const std::string line = text + "\n";
  port.WriteData(reinterpret_cast<const unsigned char*>(line.data()),
                 static_cast<unsigned int>(line.size()), kPatienceMs, 0, 0, nullptr);
}

// One question and its answer, without the line end; empty if none came in time.
std::string Ask(CSerialUtil& port, const std::string& question) {
  Say(port, question);
  std::string answer;
  unsigned char c = 0;
  while (port.ReadData(&c, 1, kPatienceMs, 1) == 1 && c != '\n') answer += static_cast<char>(c);
  return answer;
}

int Measure(const char* name, unsigned int baud) {
  CSerialUtil port;
  if (port.OpenSerial(name, baud, 8, 0, 0) == 0) {
    std::fprintf(stderr, "cannot open %s\n", name);
    return 1;
  }
  const std::string identity = Ask(port, "*IDN?");
  std::printf("%s: %s\n", name, identity.c_str());
  std::string reading;
  for (int i = 0; i < 3; ++i) {
    reading = Ask(port, "READ?");
    std::printf("  %s degrees\n", reading.c_str());
  }
  Say(port, "QUIT");
  return identity.empty() || reading.empty() ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
  const unsigned int baud = argc > 2 ? static_cast<unsigned int>(std::stoul(argv[2])) : 9600;
  if (argc > 1) return Measure(argv[1], baud);
  const MadeUpInstrument instrument;
  return Measure(kMadeUpPort, baud);
}
