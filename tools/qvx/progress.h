// Shows how copies go: on a terminal one line that is drawn anew, with a bar where the total is
// known; otherwise a plain line now and then. Also counts, and keeps what could not be copied.
#pragma once

#include <qvx/copy_progress.h>
#include <qvx/socket_file_copy.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace qvx::tool {

// What to do while a copy runs, beside showing it.
struct ProgressRules {
  std::uint64_t limit = 0;           // bytes per second, 0 for none
  std::uint64_t total = 0;           // bytes of the whole folder, 0 if not known
  std::uint64_t before = 0;          // bytes that were there at the start: no part of the rate
  std::function<bool()> wants_stop;  // looked at after each block
};

class Progress : public INetFolderCopyProgressListener, public ISocketFileCopyReport {
 public:
  struct Failure {
    std::string path;  // native, of the source side
    std::int32_t result;
  };

  // is_upload says which of the two paths is the source.
  Progress(bool is_upload, ProgressRules rules);

  std::int32_t OnNetFileCopyProgress(std::uint64_t user_data, std::uint64_t copied,
                                     std::uint64_t total, double speed,
                                     std::uint64_t* limit) override;
  void OnNetFolderCreate(std::uint64_t user_data, const WCHAR* folder) override;
  void OnNetFileCopyBegin(std::uint64_t user_data, const WCHAR* remote,
                          const WCHAR* local) override;
  void OnSocketFileCopyEnd(std::uint64_t user_data, const WCHAR* remote, const WCHAR* local,
                           std::int32_t result, std::uint64_t size) override;

  // For the copy of a single file, which has no begin and no report of its own.
  void BeginFile(const std::string& name);
  void EndFile(std::uint64_t size);

  // Removes the line that is being drawn.
  void Clear();

  double Seconds() const;
  std::uint64_t Bytes() const { return bytes_; }
  std::uint64_t Files() const { return files_; }
  std::uint64_t Folders() const { return folders_; }
  std::uint64_t Hidden() const { return hidden_; }
  const std::vector<Failure>& Failures() const { return failures_; }
  // Remote and local path of each copied file, in the library's form.
  using Pair = std::pair<std::u16string, std::u16string>;
  const std::vector<Pair>& Copied() const { return copied_; }

 private:
  using Clock = std::chrono::steady_clock;

  void Draw();
  std::string Line() const;
  std::string Bar(std::uint64_t done, std::uint64_t total, std::size_t width) const;

  const bool is_upload_;
  const ProgressRules rules_;
  const bool on_terminal_;
  const Clock::time_point start_;
  Clock::time_point drawn_;
  std::string name_;
  bool single_ = false;
  std::uint64_t file_done_ = 0;   // of the file under way
  std::uint64_t file_total_ = 0;  // of the file under way
  std::uint64_t bytes_ = 0;       // of the files that are done
  std::uint64_t files_ = 0;
  std::uint64_t folders_ = 0;
  std::uint64_t hidden_ = 0;
  std::vector<Failure> failures_;
  std::vector<Pair> copied_;
};

// The reason in words, for a SOCKETFILECOPYRESULT other than done.
const char* CopyResultText(std::int32_t result);

}  // namespace qvx::tool
