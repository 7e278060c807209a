// One request of the file client and the wait for its answer. Start sends without waiting, so
// that several exchanges of one client can be under way; the server answers them in order.
// An exchange is for one thread and one request; the answer is stored on the receiving thread.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "platform/file.h"
#include "platform/pour_pipe.h"
#include "qvx/socket_file_client.h"
#include "qvx/socket_file_protocol.h"
#include "qvx/sync.h"

namespace qvx::netfile {

// How the bytes of downloads come to their files. Serves the reads of one connection in turn.
struct FileSinkWays {
  platform::PourPipe pipe;
  std::unique_ptr<unsigned char[]> scratch;
};

// Takes the bytes of one read, in order, and writes them to a file: off the socket, or right
// where they arrived in the scratch block, while they are warm. Of one read at a time.
class FileSink {
 public:
  static constexpr std::uint32_t kScratchBytes = 0x40000;

  FileSink(const platform::File& file, std::uint64_t offset, FileSinkWays& ways)
      : file_(file), offset_(offset), ways_(ways) {}

  // Takes up to size bytes that wait on the socket; their count, 0 where Place must serve.
  std::uint32_t Pour(std::uint64_t socket, std::uint32_t size);

  // Where the next bytes go; room falls to what fits there.
  unsigned char* Place(std::uint32_t* room) const;
  void Placed(std::uint32_t size);
  // Writes what was placed and still waits for more, or bytes from elsewhere.
  void Flush();
  void Write(const unsigned char* data, std::uint32_t size);
  bool Failed() const { return failed_; }

 private:
  const platform::File& file_;
  std::uint64_t offset_;
  FileSinkWays& ways_;
  std::uint32_t held_ = 0;
  bool failed_ = false;
};

}  // namespace qvx::netfile

// A request in flight and the place for what its answer brings. All but woken is guarded by
// the client's waiter lock while it stands in the waiter list.
struct tagSOCKETFILEWAITER {
  std::uint32_t nSerial = 0;
  CBaseEvent event{nullptr, 0};
  std::uint32_t nAnswer = 0;                       // the code of the answer that may be stored
  std::atomic<bool> woken{false};                  // answered, or the connection has ended
  bool stored = false;                             // a whole answer was stored
  std::uint64_t value = 0;                         // handle, size, result or byte count
  std::atomic<std::uint64_t>* openFile = nullptr;  // also gets the handle
  void* buffer = nullptr;                          // bytes that were read, digest or path
  std::uint32_t capacity = 0;                      // of the buffer, in bytes
  qvx::netfile::FileSink* file = nullptr;          // takes the bytes in the place of a buffer
  std::u16string* folderNames = nullptr;
  std::u16string* fileNames = nullptr;

  // Stores an answer's payload as its code says; wakes nobody.
  void Store(std::uint32_t command, const unsigned char* data, std::uint32_t size);
  // Both under the waiter lock.
  void Wake();

 private:
  void StoreRead(const unsigned char* data, std::uint32_t size);
  void StoreLists(const unsigned char* data, std::uint32_t size);
};

namespace qvx::netfile {

inline constexpr std::uint64_t kShortWait = 5000;
inline constexpr std::uint64_t kDigestWait = 60000;
inline constexpr std::uint64_t kNoLimit = ~std::uint64_t{0};

class Exchange {
 public:
  explicit Exchange(CSocketFileClient& client) : client_(client) {}
  // A late answer is dropped.
  ~Exchange();
  Exchange(const Exchange&) = delete;
  Exchange& operator=(const Exchange&) = delete;

  // Each sends one request; false, after the log line, if that failed. Opening and listing need
  // no line where there is no connection. Buffers must live as long as the exchange. Strings and
  // lists may be null.
  bool StartFolderPath(std::int32_t folder_id, WCHAR* path);
  bool StartOpen(const WCHAR* path, const WCHAR* mode, std::atomic<std::uint64_t>* open_file);
  bool StartClose(std::uint64_t handle);
  bool StartSize(std::uint64_t handle);
  bool StartRead(std::uint64_t handle, std::uint64_t offset, void* buffer, std::uint32_t size);
  bool StartReadIntoFile(std::uint64_t handle, std::uint64_t offset, FileSink* file,
                         std::uint32_t size);
  bool StartWrite(std::uint64_t handle, std::uint64_t offset, const void* data, std::uint32_t size);
  // Writes a range of a local file. Where that file is short or can't be read zeros take the
  // place, and SourceWasShort tells.
  bool StartWriteFile(std::uint64_t handle, std::uint64_t offset, int descriptor,
                      std::uint32_t size);
  // The commands about one path that answer with a bare result.
  bool StartPath(std::uint32_t command, const WCHAR* path);
  bool StartRename(const WCHAR* path, const WCHAR* new_path);
  bool StartDigest(const WCHAR* path, unsigned char* digest);
  bool StartList(const WCHAR* path, std::u16string* folders, std::u16string* files);

  // Waits for the answer, in milliseconds; logs when the time runs out. True if something
  // woke it: the answer or the end of the connection. At once false if the start failed. From
  // then on nothing is stored any more.
  bool Wait(std::uint64_t timeout);
  // Whether Wait would not wait.
  bool Ready() const;

  // The following are for after Wait.
  bool Answered() const { return waiter_.stored; }
  std::uint64_t Value() const { return waiter_.value; }
  bool SourceWasShort() const { return source_was_short_; }

 private:
  tagSOCKETFILEHEADER MakeHeader(std::uint32_t command);
  bool Enlist();
  void Unlist();
  bool SendRead(std::uint64_t handle, std::uint64_t offset, std::uint32_t size);
  bool Send(const void* record, std::size_t size, const void* data = nullptr,
            std::size_t data_size = 0);
  template <typename SendStep>
  int SendBy(SendStep send);

  CSocketFileClient& client_;
  tagSOCKETFILEWAITER waiter_;
  bool listed_ = false;
  bool source_was_short_ = false;
};

}  // namespace qvx::netfile
