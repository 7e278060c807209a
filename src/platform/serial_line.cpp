#include "platform/serial_line.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <new>
#include <utility>

#include "platform/fork_state.h"
#include "platform/seam.h"

namespace qvx::platform {
namespace {

constexpr std::uint64_t kUnderWay = 0x103;
constexpr std::uint64_t kQuietMilliseconds = 10;
constexpr std::size_t kStackSize = 0x20000;

using Guard = std::lock_guard<LeafLock>;

std::uint32_t Generation() {
  return detail::fork_generation.load(std::memory_order_relaxed);
}

Deadline LimitOf(std::uint32_t milliseconds) {
  return milliseconds == 0 ? kNoDeadline : DeadlineAfterMilliseconds(milliseconds);
}

// False on a failure of poll itself, with errno set.
bool Poll(pollfd* items, nfds_t count, Deadline deadline) {
  if (SeamFails(Operation::kPoll)) return false;
  return poll(items, count, PollMilliseconds(deadline)) >= 0 || errno == EINTR;
}

}  // namespace

void SerialEvent::Set() noexcept {
  const Guard guard(lock_);
  wake_.Raise();
}

void SerialEvent::Reset() noexcept {
  const Guard guard(lock_);
  wake_.Lower();
}

bool ByteRing::Allocate(std::size_t size) noexcept {
  bytes_.reset(new (std::nothrow) unsigned char[size]);
  size_ = bytes_ ? size : 0;
  first_ = used_ = 0;
  return bytes_ != nullptr;
}

std::size_t ByteRing::Take(unsigned char* to, std::size_t most) noexcept {
  const std::size_t count = std::min(most, used_);
  const std::size_t straight = std::min(count, size_ - first_);
  if (count == 0) return 0;
  std::memcpy(to, bytes_.get() + first_, straight);
  std::memcpy(to + straight, bytes_.get(), count - straight);
  first_ = (first_ + count) % size_;
  used_ -= count;
  return count;
}

unsigned char* ByteRing::Room(std::size_t& size) noexcept {
  if (used_ == 0) first_ = 0;
  const std::size_t end = first_ + used_;
  size = end < size_ ? size_ - end : size_ - used_;
  return bytes_.get() + end % std::max<std::size_t>(size_, 1);
}

// A transfer that the thread does: one that was posted, or one of a caller that waits its turn.
struct SerialLine::Job {
  // What a write is about is only read from.
  Job(const void* bytes, std::size_t count, OVERLAPPED* of)
      : data(static_cast<unsigned char*>(const_cast<void*>(bytes))), size(count), overlapped(of) {}

  unsigned char* data;
  std::size_t size;
  OVERLAPPED* overlapped;
  CompletionQueue::Entries entry;  // of a posted one
  SerialTransfer* result = nullptr;
  Event* finished = nullptr;  // of a caller
  std::size_t done = 0;
  bool has_begun = false;
  Deadline limit = kNoDeadline;
  Deadline gap = kNoDeadline;

  bool IsOver(Deadline now) const { return done == size || now >= std::min(limit, gap); }
};

SerialLine::SerialLine() : generation_(Generation()) {}

SerialLine::~SerialLine() {
  Close();
  if (IsForeign()) device_.Abandon();
}

bool SerialLine::Start(std::size_t input_queue) {
  if (!queue_.Allocate(input_queue)) {
    errno = ENOMEM;
    return false;
  }
  if (!wake_.Open()) return false;
  if (!thread_.Create({"SerialPort", kStackSize, 0}, &SerialLine::Enter, this)) {
    errno = EAGAIN;
    return false;
  }
  running_ = true;
  thread_.Release();
  return true;
}

bool SerialLine::IsForeign() const {
  return generation_ != Generation();
}

bool SerialLine::IsThere() const {
  return device_.IsThere();
}

bool SerialLine::Purge(unsigned what) {
  const Guard guard(lock_);
  if ((what & kAbortReads) != 0) Abort(reads_);
  if ((what & kAbortWrites) != 0) Abort(writes_);
  if ((what & kDropReceived) != 0) {
    queue_.Clear();
    wake_.Raise();
  }
  return device_.Discard((what & kDropReceived) != 0, (what & kDropUnsent) != 0);
}

void SerialLine::SetTimeouts(const SerialTimeouts& timeouts) {
  const Guard guard(lock_);
  timeouts_ = timeouts;
}

SerialTimeouts SerialLine::Timeouts() {
  const Guard guard(lock_);
  return timeouts_;
}

bool SerialLine::Attach(const std::shared_ptr<CompletionQueue>& queue) {
  const Guard guard(lock_);
  if (completions_ && completions_ != queue) return false;
  completions_ = queue;
  return true;
}

void SerialLine::Close() {
  if (!running_) return;
  running_ = false;
  if (IsForeign()) return;
  {
    const Guard guard(lock_);
    stop_ = true;
    for (Lane* lane : {&reads_, &writes_}) {
      lane->error = ECANCELED;
      Abort(*lane);
    }
    wake_.Raise();
  }
  thread_.Join();
}

// --- Callers --------------------------------------------------------------------------------

SerialTransfer SerialLine::Read(void* data, std::size_t size, SerialEvent& event) {
  return Transfer(reads_, Job(data, size, nullptr), event,
                  [&] { return ReadDirect(static_cast<unsigned char*>(data), size, event); });
}

SerialTransfer SerialLine::Write(const void* data, std::size_t size, SerialEvent& event) {
  return Transfer(writes_, Job(data, size, nullptr), event, [&] {
    return WriteDirect(static_cast<const unsigned char*>(data), size, event);
  });
}

template <typename Direct>
SerialTransfer SerialLine::Transfer(Lane& lane, Job job, SerialEvent& event, const Direct& direct) {
  if (IsForeign()) return {0, kSerialGone, false};
  bool waits = false;
  {
    const Guard guard(lock_);
    waits = lane.taken || !lane.jobs.empty();
    if (!waits) {
      lane.taken = true;
      lane.event = &event;
      lane.abort = false;
      event.Reset();
    }
  }
  if (waits) return InLine(lane, job);
  const SerialTransfer done = direct();
  const Guard guard(lock_);
  lane.taken = false;
  lane.event = nullptr;
  if (&lane == &reads_) quiet_until_ = DeadlineAfterMilliseconds(kQuietMilliseconds);
  if (!lane.jobs.empty()) wake_.Raise();
  return done;
}

SerialTransfer SerialLine::InLine(Lane& lane, Job& job) {
  SerialTransfer result;
  Event finished(false);
  job.result = &result;
  job.finished = &finished;
  const int error = Post(lane, std::move(job));
  if (error != 0) return {0, error, false};
  finished.Wait(kNoDeadline);
  return result;
}

SerialTransfer SerialLine::ReadDirect(unsigned char* data, std::size_t size, SerialEvent& event) {
  SerialTransfer done;
  Deadline limit;
  std::uint32_t gap;
  {
    const Guard guard(lock_);
    if (queue_.IsFull()) wake_.Raise();
    done.count = queue_.Take(data, size);
    done.error = done.count < size ? reads_.error : 0;
    limit = LimitOf(timeouts_.read_total);
    gap = timeouts_.read_gap;
  }
  Deadline last = done.count > 0 ? LimitOf(gap) : kNoDeadline;
  while (done.count < size && done.error == 0) {
    const ssize_t got = device_.Read(data + done.count, size - done.count);
    if (got > 0) {
      done.count += static_cast<std::size_t>(got);
      if (done.count == size) break;
      last = LimitOf(gap);
    } else if (errno != EAGAIN) {
      done.error = errno;
      const Guard guard(lock_);
      if (done.error == kSerialGone) reads_.error = kSerialGone;
      break;
    }
    const Deadline deadline = std::min(limit, last);
    if (DeadlineReached(deadline)) break;
    done.waited = true;
    done.error = AwaitDevice(reads_, POLLIN, deadline, event);
  }
  return done;
}

SerialTransfer SerialLine::WriteDirect(const unsigned char* data, std::size_t size,
                                       SerialEvent& event) {
  SerialTransfer done;
  Deadline limit;
  {
    const Guard guard(lock_);
    done.error = writes_.error;
    limit = LimitOf(timeouts_.write_total);
  }
  while (done.count < size && done.error == 0) {
    const ssize_t put = device_.Write(data + done.count, size - done.count);
    if (put > 0) {
      done.count += static_cast<std::size_t>(put);
      if (DeadlineReached(limit)) break;
    } else if (put < 0 && errno != EAGAIN) {
      done.error = errno;
      const Guard guard(lock_);
      if (done.error == kSerialGone) writes_.error = kSerialGone;
    } else if (DeadlineReached(limit)) {
      break;
    } else {
      done.waited = true;
      done.error = AwaitDevice(writes_, POLLOUT, limit, event);
    }
  }
  return done;
}

// 0, or why the transfer shall end.
int SerialLine::AwaitDevice(Lane& lane, short wanted, Deadline deadline, const SerialEvent& event) {
  pollfd items[] = {{device_.Descriptor(), wanted, 0}, {event.Descriptor(), POLLIN, 0}};
  if (!Poll(items, 2, deadline)) return errno;
  return lane.abort.load() ? ECANCELED : 0;
}

int SerialLine::PostRead(OVERLAPPED* overlapped, void* data, std::size_t size) {
  return Post(reads_, Job(data, size, overlapped));
}

int SerialLine::PostWrite(OVERLAPPED* overlapped, const void* data, std::size_t size) {
  return Post(writes_, Job(data, size, overlapped));
}

int SerialLine::Post(Lane& lane, Job job) {
  if (IsForeign()) return kSerialGone;
  OVERLAPPED* const overlapped = job.overlapped;
  if (overlapped != nullptr) job.entry.push_back({overlapped, 0, 0, 0});
  std::list<Job> node;
  node.push_back(std::move(job));
  const Guard guard(lock_);
  const bool has_rest = &lane == &reads_ && !queue_.IsEmpty();
  if (lane.error == ECANCELED || (lane.error != 0 && !has_rest)) return lane.error;
  if (overlapped != nullptr) {
    overlapped->Internal = kUnderWay;
    overlapped->InternalHigh = 0;
  }
  lane.jobs.splice(lane.jobs.end(), node);
  wake_.Raise();
  return 0;
}

// --- With the lock held ---------------------------------------------------------------------

void SerialLine::Begin(Job& job, std::uint32_t total) {
  if (job.has_begun) return;
  job.has_begun = true;
  job.limit = LimitOf(total);
}

void SerialLine::Finish(Lane& lane, int error) {
  std::list<Job> taken;
  taken.splice(taken.end(), lane.jobs, lane.jobs.begin());
  Job& job = taken.front();
  if (job.finished != nullptr) {
    *job.result = {job.done, error, true};
    job.finished->Set();
    return;
  }
  if (job.overlapped == nullptr) return;
  job.overlapped->Internal = static_cast<std::uint64_t>(error);
  job.overlapped->InternalHigh = job.done;
  job.entry.front().bytes = static_cast<std::uint32_t>(job.done);
  job.entry.front().error = error;
  if (completions_) completions_->Put(job.entry);
}

void SerialLine::FinishAll(Lane& lane, int error) {
  while (!lane.jobs.empty()) Finish(lane, error);
}

void SerialLine::Abort(Lane& lane) {
  FinishAll(lane, ECANCELED);
  if (!lane.taken) return;
  lane.abort = true;
  lane.event->Set();
}

// --- The thread -----------------------------------------------------------------------------

void SerialLine::Enter(void* line) {
  static_cast<SerialLine*>(line)->Run();
}

void SerialLine::Run() {
  for (;;) {
    {
      const Guard guard(lock_);
      if (stop_) return;
      Serve();
    }
    Wait();
  }
}

void SerialLine::Serve() {
  const Deadline now = MonotonicNanoseconds();
  if (!reads_.taken) ServeReads(now);
  if (!writes_.taken) ServeWrites(now);
  if (WatchesInput(now) && reads_.jobs.empty()) FillQueue();
}

// True once the job is over; fails the lane where nothing will come any more.
bool SerialLine::ReadJob(Job& job, Deadline now) {
  const std::size_t before = job.done;
  job.done += queue_.Take(job.data + job.done, job.size - job.done);
  while (job.done < job.size && reads_.error == 0) {
    const ssize_t got = device_.Read(job.data + job.done, job.size - job.done);
    if (got < 0 && errno != EAGAIN) reads_.error = errno;
    if (got <= 0) break;
    job.done += static_cast<std::size_t>(got);
  }
  if (job.done > before) job.gap = LimitOf(timeouts_.read_gap);
  return reads_.error != 0 || job.IsOver(now);
}

bool SerialLine::WriteJob(Job& job) {
  while (job.done < job.size && writes_.error == 0) {
    const ssize_t put = device_.Write(job.data + job.done, job.size - job.done);
    if (put < 0 && errno != EAGAIN) writes_.error = errno;
    if (put <= 0) break;
    job.done += static_cast<std::size_t>(put);
  }
  return writes_.error != 0;
}

// A passing error of one transfer is not the lane's.
void SerialLine::ServeReads(Deadline now) {
  while (!reads_.jobs.empty()) {
    Job& job = reads_.jobs.front();
    Begin(job, timeouts_.read_total);
    if (!ReadJob(job, now)) return;
    const bool is_full = job.done == job.size;
    Finish(reads_, is_full ? 0 : reads_.error);
    if (reads_.error != 0 && reads_.error != kSerialGone && reads_.error != ECANCELED) {
      reads_.error = 0;
    }
  }
}

void SerialLine::ServeWrites(Deadline now) {
  while (!writes_.jobs.empty()) {
    Job& job = writes_.jobs.front();
    Begin(job, timeouts_.write_total);
    if (!WriteJob(job) && !job.IsOver(now)) return;
    Finish(writes_, writes_.error);
    if (writes_.error != 0 && writes_.error != kSerialGone && writes_.error != ECANCELED) {
      writes_.error = 0;
    }
  }
}

void SerialLine::FillQueue() {
  std::size_t room = 0;
  while (!queue_.IsFull()) {
    unsigned char* to = queue_.Room(room);
    const ssize_t got = device_.Read(to, room);
    if (got < 0 && errno == kSerialGone) reads_.error = kSerialGone;
    if (got <= 0) return;
    queue_.Added(static_cast<std::size_t>(got));
  }
}

bool SerialLine::WatchesInput(Deadline now) const {
  if (reads_.taken || reads_.error != 0) return false;
  return !reads_.jobs.empty() || (!queue_.IsFull() && now >= quiet_until_);
}

Deadline SerialLine::NextDeadline(Deadline now) const {
  Deadline next = kNoDeadline;
  if (!reads_.taken && !reads_.jobs.empty()) {
    next = std::min(reads_.jobs.front().limit, reads_.jobs.front().gap);
  }
  if (!writes_.taken && !writes_.jobs.empty()) next = std::min(next, writes_.jobs.front().limit);
  // To look after the input again when the caller stays away.
  const bool stands_back = reads_.error == 0 && !queue_.IsFull() && !WatchesInput(now);
  return stands_back ? std::min(next, DeadlineAfterMilliseconds(kQuietMilliseconds)) : next;
}

void SerialLine::Wait() {
  pollfd items[] = {{wake_.Get(), POLLIN, 0}, {-1, 0, 0}};
  Deadline deadline;
  {
    const Guard guard(lock_);
    const Deadline now = MonotonicNanoseconds();
    if (WatchesInput(now)) items[1].events |= POLLIN;
    if (!writes_.taken && !writes_.jobs.empty()) items[1].events |= POLLOUT;
    // A line that is hung up would end every wait.
    if (items[1].events != 0 || !hung_up_) items[1].fd = device_.Descriptor();
    deadline = NextDeadline(now);
  }
  if (!Poll(items, 2, deadline)) SleepMilliseconds(kQuietMilliseconds);
  const Guard guard(lock_);
  if ((items[1].revents & (POLLHUP | POLLERR | POLLNVAL)) != 0) hung_up_ = true;
  wake_.Lower();
}

HandleTable<SerialLine>& SerialLines() {
  static HandleTable<SerialLine> lines;
  return lines;
}

HandleTable<SerialEvent>& SerialEvents() {
  static HandleTable<SerialEvent> events;
  return events;
}

}  // namespace qvx::platform
