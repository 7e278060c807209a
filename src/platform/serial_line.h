// An open serial port. One thread of its own moves what arrives into the input queue, so that a
// program that is busy loses nothing, and serves what was posted to a completion queue. A caller
// that reads or writes at once does so itself, straight from and to the device, while nothing is
// queued before it; then the thread stands back.
//
// Thread-safe: reads are served in the order of their calls, and so are writes. In a forked child
// a line of the parent fails like a device that is gone.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <string>

#include "platform/clock.h"
#include "platform/completion_queue.h"
#include "platform/event.h"
#include "platform/handle_table.h"
#include "platform/lock.h"
#include "platform/serial_device.h"
#include "platform/thread.h"
#include "platform/wake_descriptor.h"

namespace qvx::platform {

// Milliseconds, 0 for no limit.
struct SerialTimeouts {
  std::uint32_t read_gap = 0;     // a read ends so long after the last byte, once there is one
  std::uint32_t read_total = 0;   // a read ends so long after its begin
  std::uint32_t write_total = 0;  // a write ends so long after its begin
};

struct SerialTransfer {
  std::size_t count = 0;
  int error = 0;        // kSerialGone, ECANCELED after a purge or close, or another errno value;
                        // 0 where all was moved or the time was up
  bool waited = false;  // false if it ended at once
};

enum SerialPurge : unsigned {
  kAbortWrites = 1,
  kAbortReads = 2,
  kDropUnsent = 4,
  kDropReceived = 8
};

// Ends the wait of the caller that works with it. Thread-safe.
class SerialEvent {
 public:
  bool Open() noexcept { return wake_.Open(); }
  int Descriptor() const { return wake_.Get(); }
  void Set() noexcept;
  void Reset() noexcept;

 private:
  LeafLock lock_;
  WakeDescriptor wake_;
};

// A block of received bytes with a turning begin. Not thread-safe.
class ByteRing {
 public:
  bool Allocate(std::size_t size) noexcept;
  bool IsEmpty() const { return used_ == 0; }
  bool IsFull() const { return used_ == size_; }
  std::size_t Take(unsigned char* to, std::size_t most) noexcept;
  // Where the next bytes go; size is how many fit there at least.
  unsigned char* Room(std::size_t& size) noexcept;
  void Added(std::size_t count) noexcept { used_ += count; }
  void Clear() noexcept { used_ = 0; }

 private:
  std::unique_ptr<unsigned char[]> bytes_;
  std::size_t size_ = 0;
  std::size_t first_ = 0;
  std::size_t used_ = 0;
};

class SerialLine {
 public:
  SerialLine();
  ~SerialLine();
  SerialLine(const SerialLine&) = delete;
  SerialLine& operator=(const SerialLine&) = delete;

  // The steps of opening, each false with errno set. The next ones need both of the first.
  bool Open(const std::string& path) { return device_.Open(path); }
  bool Configure(const SerialSettings& settings) { return device_.Configure(settings); }
  bool Start(std::size_t input_queue);

  bool IsThere() const;
  // Any of SerialPurge.
  bool Purge(unsigned what);
  void SetTimeouts(const SerialTimeouts& timeouts);
  SerialTimeouts Timeouts();

  // Block as the time-outs say. event may serve only one call at a time.
  SerialTransfer Read(void* data, std::size_t size, SerialEvent& event);
  SerialTransfer Write(const void* data, std::size_t size, SerialEvent& event);

  // Where posted transfers go when they are done. False if that is another queue already.
  bool Attach(const std::shared_ptr<CompletionQueue>& queue);
  // 0 if the transfer is under way, else the error. Throw std::bad_alloc.
  int PostRead(OVERLAPPED* overlapped, void* data, std::size_t size);
  int PostWrite(OVERLAPPED* overlapped, const void* data, std::size_t size);

  // Ends what is under way and joins the thread.
  void Close();

 private:
  struct Job;
  struct Lane {
    std::list<Job> jobs;             // served by the thread, in turn
    bool taken = false;              // a caller is at work itself
    SerialEvent* event = nullptr;    // of that caller
    std::atomic<bool> abort{false};  // that caller shall end
    int error = 0;                   // nothing goes any more
  };

  static void Enter(void* line);
  void Run();
  void Serve();
  void ServeReads(Deadline now);
  void ServeWrites(Deadline now);
  void FillQueue();
  void Wait();
  bool WatchesInput(Deadline now) const;
  Deadline NextDeadline(Deadline now) const;

  bool ReadJob(Job& job, Deadline now);
  bool WriteJob(Job& job);
  void Begin(Job& job, std::uint32_t total);
  void Finish(Lane& lane, int error);
  void FinishAll(Lane& lane, int error);
  void Abort(Lane& lane);

  template <typename Direct>
  SerialTransfer Transfer(Lane& lane, Job job, SerialEvent& event, const Direct& direct);
  SerialTransfer InLine(Lane& lane, Job& job);
  SerialTransfer ReadDirect(unsigned char* data, std::size_t size, SerialEvent& event);
  SerialTransfer WriteDirect(const unsigned char* data, std::size_t size, SerialEvent& event);
  int AwaitDevice(Lane& lane, short wanted, Deadline deadline, const SerialEvent& event);
  int Post(Lane& lane, Job job);
  bool IsForeign() const;

  SerialDevice device_;
  NativeThread thread_;
  bool running_ = false;
  const std::uint32_t generation_;
  mutable LeafLock lock_;
  WakeDescriptor wake_;
  ByteRing queue_;
  Lane reads_;
  Lane writes_;
  SerialTimeouts timeouts_;
  Deadline quiet_until_ = 0;  // the caller that read is likely to come again until then
  bool hung_up_ = false;
  bool stop_ = false;
  std::shared_ptr<CompletionQueue> completions_;
};

HandleTable<SerialLine>& SerialLines();
HandleTable<SerialEvent>& SerialEvents();

}  // namespace qvx::platform
