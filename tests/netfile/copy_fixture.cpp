#include "netfile/copy_fixture.h"

#include <algorithm>
#include <filesystem>

#include "platform/path.h"

namespace qvx::test {

namespace {

constexpr std::uint64_t kUserData = 0xABCDEF0123456789;

std::string Native(const WCHAR* path) {
  return *path ? platform::ToNativePath(std::u16string_view(path)).value_or("?") : std::string();
}

bool EndsWith(const std::string& text, const std::string& ending) {
  return text.size() >= ending.size() &&
         text.compare(text.size() - ending.size(), ending.size(), ending) == 0;
}

}  // namespace

std::vector<std::string> NamesIn(const std::string& folder) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder))
    names.push_back(entry.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

std::int32_t Progress::OnNetFileCopyProgress(std::uint64_t user_data, std::uint64_t bytes,
                                             std::uint64_t total, double speed,
                                             std::uint64_t* limit) {
  EXPECT_EQ(user_data, kUserData);
  EXPECT_LE(bytes, total);
  EXPECT_GE(speed, 0.0);
  EXPECT_EQ(*limit, 0u);
  copied.push_back(bytes);
  return on_block ? on_block(limit) : 1;
}

void Progress::OnNetFolderCreate(std::uint64_t, const WCHAR* folder) {
  events.push_back("folder " + Native(folder));
}

void Progress::OnNetFileCopyBegin(std::uint64_t, const WCHAR* remote, const WCHAR* local) {
  events.push_back("file " + Native(remote) + " " + Native(local));
}

void CopyReport::OnSocketFileCopyEnd(std::uint64_t user_data, const WCHAR* remote,
                                     const WCHAR* local, std::int32_t result, std::uint64_t) {
  EXPECT_EQ(user_data, kUserData);
  entries.push_back({Native(remote), Native(local), result});
}

int CopyReport::Count(int result) const {
  return static_cast<int>(std::count_if(entries.begin(), entries.end(),
                                        [&](const Entry& it) { return it.result == result; }));
}

bool CopyReport::Has(int result, const std::string& ending) const {
  return std::any_of(entries.begin(), entries.end(), [&](const Entry& it) {
    return it.result == result && (EndsWith(it.remote, ending) || EndsWith(it.local, ending));
  });
}

int Copies::CopyFile(const std::string& name, INetFileCopyProgressListener* listener,
                     std::uint64_t timeout) {
  auto copy = Down() ? SocketFileCopyFromServer : SocketFileCopyToServer;
  return copy(&client_, Source(name).c_str(), Target(name).c_str(), timeout, listener, kUserData);
}

int Copies::CopyFileEx(const std::string& name, std::uint32_t flags,
                       INetFileCopyProgressListener* listener) {
  auto copy = Down() ? SocketFileCopyFromServerEx : SocketFileCopyToServerEx;
  return copy(&client_, Source(name).c_str(), Target(name).c_str(), 0, flags, listener, kUserData);
}

int Copies::CopyFolderEx(const std::string& source, const std::string& target, CopyReport* report,
                         INetFolderCopyProgressListener* listener) {
  auto copy = Down() ? SocketFolderCopyFromServerEx : SocketFolderCopyToServerEx;
  return copy(&client_, Library(source).c_str(), Library(target).c_str(), 0, 0, listener, report,
              kUserData);
}

void Copies::CopyFolder(const std::string& source, const std::string& target,
                        INetFolderCopyProgressListener* listener) {
  auto copy = Down() ? SocketFolderCopyFromServer : SocketFolderCopyToServer;
  copy(&client_, Library(source).c_str(), Library(target).c_str(), 0, listener, kUserData);
}

void Copies::ExpectTarget(const std::vector<std::string>& names) {
  EXPECT_EQ(NamesIn(target_.Path()), names);
  EXPECT_TRUE(WaitForDescriptorsBelow(source_.Path(), 0));
  EXPECT_TRUE(WaitForDescriptorsBelow(target_.Path(), 0));
}

}  // namespace qvx::test
