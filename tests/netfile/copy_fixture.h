// What the tests of the copies share: two folders, one the server's, and recording listeners.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "netfile/netfile_fixture.h"
#include "qvx/socket_file_copy.h"
#include "support/temp_folder.h"

namespace qvx::test {

// The names in a folder, sorted.
std::vector<std::string> NamesIn(const std::string& folder);

struct Progress : INetFolderCopyProgressListener {
  std::vector<std::uint64_t> copied;
  std::vector<std::string> events;  // folders made and files begun, with both paths
  std::function<int(std::uint64_t* limit)> on_block;

  std::int32_t OnNetFileCopyProgress(std::uint64_t user_data, std::uint64_t bytes,
                                     std::uint64_t total, double speed,
                                     std::uint64_t* limit) override;
  void OnNetFolderCreate(std::uint64_t user_data, const WCHAR* folder) override;
  void OnNetFileCopyBegin(std::uint64_t user_data, const WCHAR* remote,
                          const WCHAR* local) override;
};

struct CopyReport : ISocketFileCopyReport {
  struct Entry {
    std::string remote;
    std::string local;
    int result;
  };
  std::vector<Entry> entries;

  void OnSocketFileCopyEnd(std::uint64_t user_data, const WCHAR* remote, const WCHAR* local,
                           std::int32_t result, std::uint64_t size) override;
  int Count(int result) const;
  // Whether an entry with this result has a path that ends so.
  bool Has(int result, const std::string& ending) const;
};

// A server, a client and a folder for each. Both directions go by the same names: Copy copies
// from the source folder to the target folder, whichever is the server's.
class Copies : public testing::TestWithParam<bool> {
 protected:
  bool Down() const { return GetParam(); }
  std::u16string Source(const std::string& name) { return Library(source_.Path(name)); }
  std::u16string Target(const std::string& name) { return Library(target_.Path(name)); }
  int CopyFile(const std::string& name, INetFileCopyProgressListener* listener = nullptr,
               std::uint64_t timeout = 0);
  int CopyFileEx(const std::string& name, std::uint32_t flags = 0,
                 INetFileCopyProgressListener* listener = nullptr);
  int CopyFolderEx(const std::string& source, const std::string& target, CopyReport* report,
                   INetFolderCopyProgressListener* listener = nullptr);
  void CopyFolder(const std::string& source, const std::string& target,
                  INetFolderCopyProgressListener* listener = nullptr);
  // The target folder holds these names and no file is open anywhere.
  void ExpectTarget(const std::vector<std::string>& names);

  TempFolder source_;
  TempFolder target_;
  LoopbackServer server_;
  LoopbackClient client_{server_.Port()};
};

}  // namespace qvx::test
