#include "qvx/serial_port.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "platform/clock.h"
#include "platform/serial_line.h"
#include "platform/serial_list.h"
#include "qvx/debug_output.h"
#include "qvx/serial_names.h"

namespace platform = qvx::platform;

namespace {

constexpr unsigned int kDefaultBaudRate = 256000;
constexpr std::size_t kQueueSize = 0x20000;
constexpr unsigned int kReadGap = 10;
constexpr unsigned int kLongestPass = 100;
constexpr unsigned int kShortestPass = 10;
constexpr unsigned int kPostedReadTotal = 20;
constexpr unsigned int kPauseMilliseconds = 10;
constexpr std::size_t kDropBlock = 4096;
constexpr const char* kDevicePrefix = "\\\\.\\";

unsigned int Logged(HANDLE handle) {
  return static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(handle));
}

unsigned int Since(std::uint32_t start) {
  return platform::TickMilliseconds() - start;
}

std::shared_ptr<platform::SerialLine> LineOf(HANDLE file) {
  return platform::SerialLines().Find(file);
}

// The name as the device path carries it.
std::string PortOf(const CBaseStringA& path) {
  return path.GetString() + std::strlen(kDevicePrefix);
}

bool LogFailure(const char* what) {
  DbgOutputA(2, "%s failed:%d\r\n", what, errno);
  return false;
}

void CloseHandle(std::atomic<HANDLE>& event) {
  platform::SerialEvents().Remove(event.exchange(nullptr));
}

}  // namespace

CSerialUtil::CSerialUtil()
    : mBaudRate(kDefaultBaudRate),
      mByteSize(8),
      mParity(0),
      mStopBits(0),
      mSerialFile(platform::NoHandle()),
      mReadEvent(nullptr),
      mWriteEvent(nullptr),
      mCancel(0) {}

CSerialUtil::CSerialUtil(const CSerialUtil& source)
    : mLock(source.mLock),
      mPortName(source.mPortName),
      mBaudRate(source.mBaudRate),
      mByteSize(source.mByteSize),
      mParity(source.mParity),
      mStopBits(source.mStopBits),
      mSerialFile(source.mSerialFile.load()),
      mReadEvent(source.mReadEvent.load()),
      mWriteEvent(source.mWriteEvent.load()),
      mCancel(source.mCancel.load()) {}

CSerialUtil& CSerialUtil::operator=(const CSerialUtil& source) {
  if (this == &source) return *this;
  mPortName = source.mPortName;
  mBaudRate = source.mBaudRate;
  mByteSize = source.mByteSize;
  mParity = source.mParity;
  mStopBits = source.mStopBits;
  mSerialFile = source.mSerialFile.load();
  mReadEvent = source.mReadEvent.load();
  mWriteEvent = source.mWriteEvent.load();
  mCancel = source.mCancel.load();
  return *this;
}

CSerialUtil::~CSerialUtil() {
  CloseSerial();
}

int CSerialUtil::OpenSerial(int portNumber, unsigned int baudRate, unsigned char byteSize,
                            unsigned char parity, unsigned char stopBits) {
  CBaseStringA name;
  name.Format("COM%d", portNumber);
  return OpenSerial(name.GetString(), baudRate, byteSize, parity, stopBits);
}

int CSerialUtil::OpenSerial(const char* portName, unsigned int baudRate, unsigned char byteSize,
                            unsigned char parity, unsigned char stopBits) {
  const CAutoBaseLock guard(&mLock);
  mPortName.Set("", 0);
  mPortName.Append(portName);
  mBaudRate = baudRate;
  mByteSize = byteSize;
  mParity = parity;
  mStopBits = stopBits;
  return OpenSerial_Priv();
}

int CSerialUtil::ReOpen() {
  const CAutoBaseLock guard(&mLock);
  return OpenSerial_Priv();
}

int CSerialUtil::OpenSerial_Priv() {
  CBaseStringA path;
  CBaseStringA settings;
  path.Format("%s%s", kDevicePrefix, mPortName.GetString());
  CloseSerial();
  SerialDCBToString(mByteSize, mParity, mStopBits, &settings);
  DbgOutputA(2, "Prepare Open Serial: Com=%s(%s) BaudRate=%d\r\n", path.GetString(),
             settings.GetString(), mBaudRate);
  const bool opened = OpenSteps(path);
  DbgOutputA(2, "OpenSerial: Com=%s BaudRate=%d, Success=%d, mSerialFile=0x%08x\r\n",
             path.GetString(), mBaudRate, opened ? 1 : 0, Logged(mSerialFile));
  if (!opened) CloseSerial();
  return opened ? 1 : 0;
}

bool CSerialUtil::OpenSteps(const CBaseStringA& path) {
  const auto line = std::make_shared<platform::SerialLine>();
  if (!line->Open(platform::SerialDevicePath(PortOf(path)))) {
    DbgOutputA(2, "Open %s failed:%d\r\n", path.GetString(), errno);
    return false;
  }
  if (mBaudRate == 0) {
    CBaseStringA text;
    text.Format("baud=%d parity=N data=8 stop=1", mBaudRate);
    DbgOutputA(2, "BuildCommDCBA %s failed:%d\r\n", text.GetString(), EINVAL);
    return false;
  }
  const bool checks_parity = mParity == 1 || mParity == 2;
  if (!line->Configure({mBaudRate, mByteSize, mParity, mStopBits, checks_parity})) {
    return LogFailure("SetCommState");
  }
  if (!line->Start(kQueueSize)) return LogFailure("SetupComm");
  if (!line->IsThere()) return LogFailure("ClearCommError");
  line->Purge(platform::kAbortReads | platform::kAbortWrites | platform::kDropReceived |
              platform::kDropUnsent);
  if (!MakeEvent(mReadEvent, "Create read event")) return false;
  if (!MakeEvent(mWriteEvent, "Create write event")) return false;
  mSerialFile = platform::SerialLines().Add(line);
  return true;
}

bool CSerialUtil::MakeEvent(std::atomic<HANDLE>& event, const char* which) {
  auto made = std::make_shared<platform::SerialEvent>();
  if (!made->Open()) return LogFailure(which);
  event = platform::SerialEvents().Add(std::move(made));
  return true;
}

void CSerialUtil::CloseSerial() {
  const CAutoBaseLock guard(&mLock);
  DbgOutputA(2, "CloseSerial: mSerialFile=0x%08x\r\n", Logged(mSerialFile));
  CloseFile();
  CloseHandle(mReadEvent);
  CloseHandle(mWriteEvent);
}

void CSerialUtil::CloseFile() {
  const auto line = platform::SerialLines().Remove(mSerialFile.exchange(platform::NoHandle()));
  if (line) line->Close();
}

int CSerialUtil::IsOpened() const {
  return mSerialFile != platform::NoHandle() ? 1 : 0;
}

int CSerialUtil::IsSerialExist() const {
  return IsSerialPortNameExistA(mPortName.GetString());
}

unsigned int CSerialUtil::ReadData(unsigned char* buffer, unsigned int size, unsigned int ms,
                                   int bWaitAll) {
  const CAutoBaseLock guard(&mLock);
  if (IsOpened() == 0 || buffer == nullptr) return 0;
  mCancel = 0;
  const std::uint32_t start = platform::TickMilliseconds();
  unsigned int done = 0;
  while (mCancel == 0) {
    const unsigned int gone = Since(start);
    const unsigned int left = gone < ms ? ms - gone : 0;
    done += ReadPass(buffer + done, size - done, left);
    if (done == size || left == 0 || (bWaitAll == 0 && done > 0)) break;
    if (IsOpened() == 0) break;
  }
  return done;
}

// One look at the port, of about 100 ms at most.
unsigned int CSerialUtil::ReadPass(unsigned char* buffer, unsigned int size, unsigned int left) {
  const auto line = LineOf(mSerialFile);
  const auto event = platform::SerialEvents().Find(mReadEvent);
  if (!line || !event) {
    CloseFile();
    return 0;
  }
  line->SetTimeouts({kReadGap, std::clamp(left, kShortestPass, kLongestPass), 0});
  const platform::SerialTransfer done = line->Read(buffer, size, *event);
  const auto count = static_cast<unsigned int>(done.count);
  if (done.error == 0) return count;
  if (done.waited) {
    DbgOutputA(2, "GetOverlappedResult(wait mode) Failed, dwBytesRead=%d, last error = %d\r\n",
               count, done.error);
  } else if (count > 0) {
    DbgOutputA(2, "GetOverlappedResult(no wait mode) Failed, dwBytesRead=%d, last error = %d\r\n",
               count, done.error);
  } else if (done.error == platform::kSerialGone) {
    DbgOutputA(2, "ReadData Failed with EINVAL, CloseSerial: mSerialFile=0x%08x\r\n",
               Logged(mSerialFile));
    CloseFile();
  } else {
    DbgOutputA(2, "ReadData Failed with error=%d\r\n", done.error);
    platform::SleepMilliseconds(kPauseMilliseconds);
  }
  return count;
}

void CSerialUtil::CancelRead() {
  DbgOutputA(2, "Cancel Read Data\r\n");
  mCancel = 1;
}

unsigned int CSerialUtil::WriteData(const unsigned char* data, unsigned int size,
                                    unsigned int totalMs, unsigned int packetSize,
                                    unsigned int packetMs, int* cancel) {
  const CAutoBaseLock guard(&mLock);
  if (IsOpened() == 0 || data == nullptr) return 0;
  const std::uint32_t start = platform::TickMilliseconds();
  unsigned int done = 0;
  while (done < size && Since(start) < totalMs) {
    if (cancel != nullptr && std::atomic_ref<int>(*cancel).load() != 0) break;
    const unsigned int left = size - done;
    const unsigned int packet = packetSize == 0 ? left : std::min(left, packetSize);
    const unsigned int count =
        WriteOnePacket(data + done, packet, packetMs == 0 ? totalMs : packetMs);
    if (count == 0) {
      DbgOutputA(2, "WriteOnePacket write 0 bytes, total need write %d, has write %d\r\n", size,
                 done);
      break;
    }
    done += count;
  }
  return done;
}

unsigned int CSerialUtil::WriteOnePacket(const unsigned char* data, unsigned int size,
                                         unsigned int ms) {
  const auto line = LineOf(mSerialFile);
  const auto event = platform::SerialEvents().Find(mWriteEvent);
  if (!line || !event) return 0;
  platform::SerialTimeouts timeouts = line->Timeouts();
  timeouts.write_total = ms;
  line->SetTimeouts(timeouts);
  const platform::SerialTransfer done = line->Write(data, size, *event);
  if (done.count > 0) return static_cast<unsigned int>(done.count);
  if (done.waited && IsSerialExist() == 0) {
    DbgOutputA(2,
               "WriteOnePacket Failed, Serial Port(%s) NOT found, CloseSerial: "
               "mSerialFile=0x%08x\r\n",
               mPortName.GetString(), Logged(mSerialFile));
    CloseFile();
  } else if (!done.waited && done.error == platform::kSerialGone) {
    DbgOutputA(2, "WriteOnePacket Failed with EINVAL, CloseSerial: mSerialFile=0x%08x\r\n",
               Logged(mSerialFile));
    CloseFile();
  }
  return 0;
}

void CSerialUtil::ResetInputBuffer(unsigned int ms) {
  const CAutoBaseLock guard(&mLock);
  const auto line = LineOf(mSerialFile);
  if (!line) return;
  line->IsThere();
  line->Purge(platform::kAbortReads | platform::kDropReceived);
  const std::uint32_t start = platform::TickMilliseconds();
  DbgOutputA(2, "ResetInputBuffer +++\r\n");
  unsigned int count = DropInput();
  unsigned long total = count;
  while (Since(start) <= ms) {
    if (count == 0) platform::SleepMilliseconds(kPauseMilliseconds);
    count = DropInput();
    total += count;
  }
  DbgOutputA(2, "ResetInputBuffer ---, clean %lu size\r\n", total);
}

unsigned int CSerialUtil::DropInput() {
  unsigned char block[kDropBlock];
  return ReadData(block, sizeof block, 0, 0);
}

void CSerialUtil::ResetOutputBuffer() {
  const CAutoBaseLock guard(&mLock);
  const auto line = LineOf(mSerialFile);
  if (!line) return;
  line->IsThere();
  line->Purge(platform::kAbortWrites | platform::kDropUnsent);
}

HANDLE CSerialUtil::StartIOCPReadWrite(HANDLE port) {
  const CAutoBaseLock guard(&mLock);
  const auto line = LineOf(mSerialFile);
  if (!line) return nullptr;
  line->SetTimeouts({kReadGap, kPostedReadTotal, 0});
  const HANDLE used = port != nullptr ? port : CreateCompletionPort();
  const auto queue = platform::CompletionQueues().Find(used);
  if (queue && line->Attach(queue)) return used;
  if (port == nullptr) CloseCompletionPort(used);
  return nullptr;
}

int CSerialUtil::PostIOCPRecvBuffer(OVERLAPPED* overlapped, unsigned char* buffer,
                                    unsigned int size) {
  const CAutoBaseLock guard(&mLock);
  const auto line = LineOf(mSerialFile);
  if (!line || overlapped == nullptr || buffer == nullptr) return 0;
  return Posted(line->PostRead(overlapped, buffer, size), "ReadFile");
}

int CSerialUtil::PostIOCPSendBuffer(OVERLAPPED* overlapped, const unsigned char* data,
                                    unsigned int size) {
  const CAutoBaseLock guard(&mLock);
  const auto line = LineOf(mSerialFile);
  if (!line || overlapped == nullptr || data == nullptr) return 0;
  return Posted(line->PostWrite(overlapped, data, size), "WriteFile");
}

int CSerialUtil::Posted(int error, const char* operation) {
  if (error == 0) return 1;
  DbgOutputA(2, "%s Error=%d\r\n", operation, error);
  if (error == platform::kSerialGone) CloseFile();
  return 0;
}
