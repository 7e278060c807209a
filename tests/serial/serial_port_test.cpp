#include "qvx/serial_port.h"

// Not <termios.h>, whose structure has no room for arbitrary rates.
#include <asm/termbits.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <string>
#include <thread>
#include <tuple>

#include "platform/clock.h"
#include "platform/seam.h"
#include "qvx/serial_names.h"
#include "serial/pseudo_terminal.h"
#include "support/debug_lines.h"
#include "support/fault_plan.h"
#include "support/fork_child.h"
#include "support/packet_bytes.h"
#include "support/temp_folder.h"

namespace qvx::test {
namespace {

using platform::Operation;

constexpr const char* kPort = "COM12";
constexpr unsigned int kLong = 20000;

const unsigned char* Data(const std::string& bytes) {
  return reinterpret_cast<const unsigned char*>(bytes.data());
}

std::string Read(CSerialUtil& port, unsigned int size, unsigned int ms, int all) {
  std::string bytes(size, '\0');
  bytes.resize(port.ReadData(reinterpret_cast<unsigned char*>(bytes.data()), size, ms, all));
  return bytes;
}

unsigned int Write(CSerialUtil& port, const std::string& bytes, unsigned int ms = kLong) {
  return port.WriteData(Data(bytes), static_cast<unsigned int>(bytes.size()), ms, 0, 0, nullptr);
}

class SerialPort : public testing::Test {
 protected:
  void Open() { ASSERT_EQ(1, port_.OpenSerial(12, 115200, 8, 0, 0)); }
  void ExpectLine(const std::string& line) const {
    EXPECT_EQ(1, lines_.Count(2, line + "\r\n")) << line;
  }

  DebugLines lines_;
  PseudoTerminal far_{kPort};
  CSerialUtil port_;
};

// The far side of a pseudo-terminal tells the settings of the near one, but for byte size and
// parity, which it does not have.
TEST_F(SerialPort, TakesEverySetting) {
  const unsigned int rates[] = {
      50,     75,     110,     134,     150,     200,     300,     600,     1200,    1800,
      2400,   4800,   9600,    19200,   38400,   57600,   115200,  230400,  460800,  500000,
      576000, 921600, 1000000, 1152000, 1500000, 2000000, 2500000, 3000000, 3500000, 4000000,
      1,      31250,  12345,   250000,  256000,  1234567, 12000000};
  const std::int64_t sizes[] = {CS5, CS6, CS7, CS8};
  const std::int64_t parities[] = {0, PARENB | PARODD, PARENB, PARENB | PARODD | CMSPAR,
                                   PARENB | CMSPAR};
  static std::atomic<std::int64_t> setup;
  platform::SetSeamHook([](platform::SeamCall& call) {
    if (call.operation == Operation::kSerialSetup) setup = call.value;
  });
  std::size_t opened = 0;
  for (unsigned char size = 3; size < 10; ++size) {
    for (unsigned char parity = 0; parity < 6; ++parity) {
      for (unsigned char stop = 0; stop < 4; ++stop) {
        const bool fits =
            size >= 5 && size <= 8 && parity < 5 && (stop == 0 || stop == (size == 5 ? 1 : 2));
        const unsigned int rate = rates[opened % std::size(rates)];
        ASSERT_EQ(fits ? 1 : 0, port_.OpenSerial(kPort, rate, size, parity, stop)) << rate;
        if (!fits) continue;
        ++opened;
        const std::int64_t mask = CSIZE | PARENB | PARODD | CMSPAR | CSTOPB | CLOCAL | CREAD;
        const std::int64_t flags =
            sizes[size - 5] | parities[parity] | (stop != 0 ? CSTOPB : 0) | CLOCAL | CREAD;
        EXPECT_EQ(flags, setup & mask);
        EXPECT_EQ(parity == 1 || parity == 2, (setup >> 32 & INPCK) != 0);
        termios2 terminal;
        ASSERT_EQ(0, ioctl(far_.Far(), TCGETS2, &terminal));
        EXPECT_EQ(rate, terminal.c_ospeed);
        EXPECT_EQ(stop != 0, (terminal.c_cflag & CSTOPB) != 0);
        EXPECT_EQ(0u, terminal.c_lflag | terminal.c_oflag);
      }
    }
  }
  platform::SetSeamHook(nullptr);
  EXPECT_GE(opened, std::size(rates));
}

TEST_F(SerialPort, OpensAloneAndTellsWhyNot) {
  Open();
  EXPECT_EQ(1, port_.IsOpened());
  EXPECT_EQ(1, port_.IsSerialExist());
  ExpectLine("Prepare Open Serial: Com=\\\\.\\COM12(8N1) BaudRate=115200");
  CSerialUtil second;
  EXPECT_EQ(0, second.OpenSerial(12, 9600, 8, 0, 0));
  ExpectLine("Open \\\\.\\COM12 failed:16");
  ExpectLine("OpenSerial: Com=\\\\.\\COM12 BaudRate=9600, Success=0, mSerialFile=0xffffffff");
  port_.CloseSerial();
  EXPECT_EQ(1, second.ReOpen());
  second.CloseSerial();
  EXPECT_EQ(0, second.OpenSerial(12, 0, 8, 0, 0));
  ExpectLine("BuildCommDCBA baud=0 parity=N data=8 stop=1 failed:22");
  const TempFolder temp;
  for (const std::string& path : {temp.Write("file", ""), temp.Path(), temp.Path("absent"),
                                  std::string("/dev/null"), std::string()}) {
    MapSerialPort("COM13", path.c_str());
    EXPECT_EQ(0, port_.OpenSerial("com13", 9600, 8, 0, 0)) << path;
  }
  EXPECT_EQ(0, port_.OpenSerial(static_cast<const char*>(nullptr), 9600, 8, 0, 0));
  const std::tuple<Operation, int, const char*> steps[] = {
      {Operation::kSerialOpen, EACCES, "Open \\\\.\\COM12 failed:13"},
      {Operation::kSerialSetup, EIO, "SetCommState failed:5"},
      {Operation::kThreadCreate, EAGAIN, "SetupComm failed:11"}};
  for (const auto& [operation, error, line] : steps) {
    FaultPlan plan;
    plan.Fail(operation, 1, error);
    EXPECT_EQ(0, port_.OpenSerial(12, 9600, 8, 0, 0)) << line;
    ExpectLine(line);
    EXPECT_EQ(0, port_.IsOpened());
    EXPECT_EQ("", Read(port_, 10, kLong, 1));
    EXPECT_EQ(0u, Write(port_, "x"));
  }
  EXPECT_EQ(1, port_.ReOpen());
}

TEST_F(SerialPort, ReadsInTime) {
  Open();
  ASSERT_TRUE(far_.Send("hello"));
  EXPECT_EQ("hello", Read(port_, 100, kLong, 0));
  EXPECT_EQ("", Read(port_, 100, 0, 0));
  ASSERT_TRUE(far_.Send("abcdef"));
  EXPECT_EQ("abc", Read(port_, 3, kLong, 1));
  EXPECT_EQ("def", Read(port_, 100, 50, 1));  // waits on for more until time is up
  std::jthread sender([&] {
    for (const char* part : {"one", "two", "three"}) {
      platform::SleepMilliseconds(30);
      far_.Send(part);
    }
  });
  EXPECT_EQ("onetwothree", Read(port_, 11, kLong, 1));
  port_.CancelRead();  // has no effect on a later read
  {
    const std::jthread canceller([&](const std::stop_token& stop) {
      while (!stop.stop_requested()) {
        platform::SleepMilliseconds(20);
        port_.CancelRead();
      }
    });
    EXPECT_EQ("", Read(port_, 2, UINT32_MAX, 1));
  }
  const std::string bytes = Pattern(5000);
  for (bool interrupts : {false, true}) {
    FaultPlan plan;
    plan.Shorten(Operation::kSerialRead, 1, 7, 1000);
    if (interrupts) plan.Fail(Operation::kSerialRead, 1, EINTR, 9);
    ASSERT_TRUE(far_.Send(bytes));
    EXPECT_TRUE(bytes == Read(port_, 5000, kLong, 1));
  }
  EXPECT_EQ(1, port_.IsOpened());
}

// Nobody reads, and still the far side gets rid of what the input queue holds.
TEST_F(SerialPort, KeepsWhatArrivesAndDropsItWhenTold) {
  Open();
  const std::string bytes = Pattern(0x20000);
  ASSERT_TRUE(far_.Send(bytes));
  EXPECT_TRUE(bytes.substr(0, 1000) == Read(port_, 1000, kLong, 1));
  EXPECT_TRUE(bytes.substr(1000) == Read(port_, 0x20000 - 1000, kLong, 1));
  ASSERT_TRUE(far_.Send(bytes));
  port_.ResetInputBuffer(200);
  EXPECT_EQ("", Read(port_, 10, 0, 0));
  ASSERT_TRUE(far_.Send("next"));
  EXPECT_EQ("next", Read(port_, 4, kLong, 1));
}

TEST_F(SerialPort, WritesInPacketsAndInTime) {
  Open();
  const std::string bytes = Pattern(10000);
  EXPECT_EQ(0u, port_.WriteData(Data(bytes), 10, 0, 0, 0, nullptr));
  int cancel = 1;
  EXPECT_EQ(0u, port_.WriteData(Data(bytes), 10, kLong, 0, 0, &cancel));
  cancel = 0;
  {
    FaultPlan plan;
    plan.Shorten(Operation::kSerialWrite, 1, 100, 1000);
    std::jthread reader([&] { EXPECT_TRUE(bytes == far_.Receive(bytes.size())); });
    EXPECT_EQ(10000u, port_.WriteData(Data(bytes), 10000, kLong, 333, 1000, &cancel));
    EXPECT_GE(plan.Calls(Operation::kSerialWrite), 100);
  }
  // The far side stalls: a part goes, then a packet times out with nothing, and no port is lost.
  const std::string much = Pattern(1 << 20);
  const unsigned int part = port_.WriteData(Data(much), 1 << 20, kLong, 1000, 50, nullptr);
  EXPECT_GT(part, 0u);
  EXPECT_LT(part, 1u << 20);
  ExpectLine("WriteOnePacket write 0 bytes, total need write 1048576, has write " +
             std::to_string(part));
  // The kernel may still find room for a few bytes.
  std::size_t taken = part;
  while (Write(port_, "x", 50) == 1) ++taken;
  EXPECT_EQ(1, port_.IsOpened());
  // The far side still gets what it has taken over, but not all.
  port_.ResetOutputBuffer();
  EXPECT_EQ(5u, Write(port_, "after"));
  std::string rest;
  for (std::string byte; rest.find("after") == std::string::npos; rest += byte) {
    byte = far_.Receive(1);
    ASSERT_EQ(1u, byte.size());
  }
  EXPECT_LT(rest.size(), taken);
}

TEST_F(SerialPort, MovesAMebibyteEachWay) {
  Open();
  const std::string bytes = Pattern(1 << 20);
  std::jthread sender([&] { EXPECT_TRUE(far_.Send(bytes)); });
  EXPECT_TRUE(bytes == Read(port_, 1 << 20, kLong, 1));
  std::jthread receiver([&] { EXPECT_TRUE(bytes == far_.Receive(bytes.size())); });
  EXPECT_EQ(1u << 20, Write(port_, bytes));
}

TEST_F(SerialPort, SeesThatThePortIsPulledOut) {
  Open();
  std::thread puller([&] {
    platform::SleepMilliseconds(50);
    far_.Pull();
  });
  EXPECT_EQ("", Read(port_, 100, kLong, 1));
  puller.join();
  EXPECT_EQ(0, port_.IsOpened());
  EXPECT_EQ(0, port_.IsSerialExist());
  EXPECT_EQ(0, port_.ReOpen());
  port_.CloseSerial();

  PseudoTerminal again(kPort);
  ASSERT_EQ(1, port_.IsSerialExist());
  ASSERT_EQ(1, port_.ReOpen());
  ASSERT_TRUE(again.Send("back"));
  EXPECT_EQ("back", Read(port_, 4, kLong, 1));
  std::thread second_puller([&] {
    again.Receive(100);
    again.Pull();
  });
  EXPECT_LT(Write(port_, Pattern(1 << 20)), 1u << 20);
  second_puller.join();
  Write(port_, "x");
  EXPECT_EQ(0, port_.IsOpened());
  EXPECT_EQ(0, port_.IsSerialExist());
}

TEST_F(SerialPort, CopiesShareAnOpenPort) {
  Open();
  CSerialUtil copy(port_);
  ASSERT_TRUE(far_.Send("abc"));
  EXPECT_EQ("a", Read(copy, 1, kLong, 1));
  EXPECT_EQ("bc", Read(port_, 2, kLong, 1));
  port_.CloseSerial();
  EXPECT_EQ("", Read(copy, 1, kLong, 1));
  copy = port_;
  EXPECT_EQ(0, copy.IsOpened());
  EXPECT_EQ(1, copy.ReOpen());
}

TEST_F(SerialPort, LeavesAForkedChildOut) {
  Open();
  EXPECT_TRUE(HoldsInChild([this] {
    return Read(port_, 1, kLong, 1).empty() && port_.IsOpened() == 0 && port_.ReOpen() == 0;
  }));
  ASSERT_TRUE(far_.Send("still here"));
  EXPECT_EQ("still here", Read(port_, 10, kLong, 1));
}

tagCOMPLETION Take(HANDLE queue) {
  tagCOMPLETION completion{};
  EXPECT_EQ(1, WaitCompletionPort(queue, kLong, &completion));
  return completion;
}

// The far side sends everything back. Posted writes and reads run at once; several threads take
// the completions and post anew.
TEST_F(SerialPort, ServesACompletionPort) {
  Open();
  const HANDLE queue = port_.StartIOCPReadWrite(nullptr);
  ASSERT_NE(nullptr, queue);
  EXPECT_EQ(queue, port_.StartIOCPReadWrite(queue));
  EXPECT_EQ(nullptr, port_.StartIOCPReadWrite(this));
  const std::string bytes = Pattern(1 << 20);
  constexpr unsigned int kBlock = 0x1000;
  std::string received(bytes.size(), '\0');
  OVERLAPPED writing{};
  OVERLAPPED reading{};
  std::atomic<unsigned int> written{0};
  std::atomic<unsigned int> read{0};
  const auto post = [&](OVERLAPPED* job) {
    if (job == &writing) return port_.PostIOCPSendBuffer(job, Data(bytes) + written, kBlock);
    auto* to = reinterpret_cast<unsigned char*>(received.data()) + read;
    const unsigned int left = static_cast<unsigned int>(bytes.size()) - read;
    return port_.PostIOCPRecvBuffer(job, to, std::min(kBlock, left));
  };
  std::jthread echo([&] {
    for (std::size_t done = 0; done < bytes.size(); done += kBlock) far_.Send(far_.Receive(kBlock));
  });
  const auto work = [&] {
    tagCOMPLETION done{};
    while (WaitCompletionPort(queue, kLong, &done) == 1 && done.key == 0) {
      EXPECT_EQ(0, done.error);
      EXPECT_EQ(done.bytes, done.overlapped->InternalHigh);
      std::atomic<unsigned int>& count = done.overlapped == &writing ? written : read;
      count += done.bytes;
      if (count < bytes.size()) {
        EXPECT_EQ(1, post(done.overlapped));
      }
      if (read == bytes.size()) break;
    }
    const tagCOMPLETION end{nullptr, 1, 0, 0};
    PostCompletion(queue, &end);
  };
  ASSERT_EQ(1, post(&reading));
  ASSERT_EQ(1, post(&writing));
  std::jthread workers[] = {std::jthread(work), std::jthread(work), std::jthread(work)};
  for (std::jthread& worker : workers) worker.join();
  EXPECT_TRUE(received == bytes);
  EXPECT_EQ(1, CloseCompletionPort(queue));
  EXPECT_EQ(0, CloseCompletionPort(queue));
}

TEST_F(SerialPort, CompletesInOrderAndWhateverHappens) {
  Open();
  const HANDLE queue = CreateCompletionPort();
  ASSERT_EQ(queue, port_.StartIOCPReadWrite(queue));
  std::array<OVERLAPPED, 4> jobs{};
  std::array<unsigned char, 8> buffer{};
  ASSERT_EQ(1, port_.PostIOCPRecvBuffer(&jobs[0], buffer.data(), 8));
  EXPECT_EQ(0u, Take(queue).bytes);  // nothing came within 20 ms
  ASSERT_TRUE(far_.Send("xabcdef"));
  EXPECT_EQ("x", Read(port_, 1, kLong, 1));  // so it is there
  // A read at once goes behind what was posted, and has times of its own.
  ASSERT_EQ(1, port_.PostIOCPRecvBuffer(&jobs[0], buffer.data(), 2));
  ASSERT_EQ(1, port_.PostIOCPRecvBuffer(&jobs[1], buffer.data() + 2, 1));
  EXPECT_EQ("def", Read(port_, 3, kLong, 1));
  EXPECT_EQ(&jobs[0], Take(queue).overlapped);
  EXPECT_EQ(&jobs[1], Take(queue).overlapped);
  EXPECT_EQ(0, std::memcmp("abc", buffer.data(), 3));

  const std::string much = Pattern(1 << 20);
  ASSERT_EQ(1, port_.PostIOCPSendBuffer(&jobs[2], Data(much), 1 << 20));
  ASSERT_EQ(1, port_.PostIOCPSendBuffer(&jobs[3], Data(much), 1 << 20));
  port_.ResetOutputBuffer();
  for (int i = 2; i < 4; ++i) {
    const tagCOMPLETION done = Take(queue);
    EXPECT_EQ(&jobs[static_cast<std::size_t>(i)], done.overlapped);
    EXPECT_EQ(ECANCELED, done.error);
  }
  ASSERT_EQ(1, port_.PostIOCPSendBuffer(&jobs[2], Data(much), 1 << 20));
  port_.CloseSerial();
  EXPECT_EQ(ECANCELED, Take(queue).error);
  EXPECT_EQ(0, port_.PostIOCPSendBuffer(&jobs[2], Data(much), 1));
  EXPECT_EQ(nullptr, port_.StartIOCPReadWrite(queue));

  ASSERT_EQ(1, port_.ReOpen());
  ASSERT_EQ(queue, port_.StartIOCPReadWrite(queue));
  ASSERT_EQ(1, port_.PostIOCPSendBuffer(&jobs[0], Data(much), 1 << 20));
  far_.Pull();
  EXPECT_EQ(22, Take(queue).error);
  while (port_.PostIOCPRecvBuffer(&jobs[1], buffer.data(), 8) == 1) Take(queue);
  EXPECT_EQ(0, port_.IsOpened());
  ExpectLine("ReadFile Error=22");

  std::jthread waiter([&] {
    tagCOMPLETION none{};
    EXPECT_EQ(0, WaitCompletionPort(queue, UINT32_MAX, &none));
  });
  EXPECT_EQ(1, CloseCompletionPort(queue));
}

}  // namespace
}  // namespace qvx::test
