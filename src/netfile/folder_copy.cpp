#include "netfile/folder_copy.h"

#include <utility>

#include "netfile/copy_paths.h"
#include "netfile/download.h"
#include "netfile/folder_names.h"
#include "netfile/upload.h"
#include "platform/file.h"
#include "platform/path.h"

namespace qvx::netfile {

namespace {

// Files of a folder that are under way at once.
constexpr std::size_t kFilesInFlight = 12;

std::vector<std::u16string> SplitNames(const std::u16string& list) {
  std::vector<std::u16string> names;
  std::size_t begin = 0;
  while (begin < list.size()) {
    std::size_t end = std::min(list.find(SOCKET_FILE_LIST_SEPARATOR, begin), list.size());
    if (end > begin) names.push_back(list.substr(begin, end - begin));
    begin = end + 1;
  }
  return names;
}

std::vector<std::u16string> TakeNames(CPtrCtrl& list) {
  std::vector<std::u16string> names;
  names.reserve(static_cast<std::size_t>(list.GetCount()));
  for (int i = 0; i < list.GetCount(); ++i)
    names.emplace_back(static_cast<const WCHAR*>(list.GetAt(i)));
  return names;
}

template <typename Job>
std::unique_ptr<CopyJob> MakeCopyJob(Copy& copy, CopyPaths paths) {
  return std::make_unique<Job>(copy, std::move(paths));
}

// Reports what the listing of a local folder leaves out, while it lives.
class LeftOutReport : public ISkippedEntryListener {
 public:
  explicit LeftOutReport(Copy& copy)
      : copy_(copy), former_(GetSkippedEntryListener(&former_user_data_)) {
    if (copy_.Extended()) SetSkippedEntryListener(this, 0);
  }
  ~LeftOutReport() override {
    if (copy_.Extended()) SetSkippedEntryListener(former_, former_user_data_);
  }

  void OnEntrySkipped(std::uint64_t, const WCHAR* path, int reason) override {
    CopyPaths paths{{}, path};
    if (reason == kSkippedHidden)
      copy_.ReportLeftOut(paths, SOCKET_FILE_COPY_HIDDEN);
    else if (reason == kSkippedSpecial)
      copy_.ReportLeftOut(paths, SOCKET_FILE_COPY_SPECIAL);
    else if (reason == kSkippedTooLong)
      copy_.Report(paths, SOCKET_FILE_COPY_TOO_LONG, 0);
    else
      copy_.Report(paths, SOCKET_FILE_COPY_LOCAL_OPEN, 0);
  }

 private:
  Copy& copy_;
  std::uint64_t former_user_data_ = 0;
  ISkippedEntryListener* former_;
};

}  // namespace

std::vector<CopyPaths> FolderCopy::Children(const CopyPaths& folder, const Names& names) {
  std::vector<CopyPaths> children;
  for (const auto& name : names) {
    auto remote = ChildPath(folder.remote, name);
    auto local = ChildPath(folder.local, name);
    if (!IsPlainName(name)) {
      copy_.Report({folder.remote + u"\\" + name, folder.local}, SOCKET_FILE_COPY_LOCAL_OPEN, 0);
    } else if (remote && local) {
      children.push_back({std::move(*remote), std::move(*local)});
    } else {
      copy_.Report({folder.remote + u"\\" + name, folder.local + u"\\" + name},
                   SOCKET_FILE_COPY_TOO_LONG, 0);
    }
  }
  return children;
}

void FolderCopy::FromServer(const CopyPaths& folder) {
  std::u16string folders;
  std::u16string files;
  Exchange list(copy_.Client());
  list.StartList(folder.remote.c_str(), &folders, &files);
  list.Wait(kShortWait);
  if (!list.Answered())
    return copy_.Report(folder, copy_.RemoteFailure(SOCKET_FILE_COPY_NO_FOLDER), 0);
  for (const auto& child : Children(folder, SplitNames(folders))) {
    if (copy_.Cancelled()) return;
    MakeLocalFolder(child);
    if (listener_) listener_->OnNetFolderCreate(copy_.UserData(), child.local.c_str());
    FromServer(child);
  }
  CopyFiles(Children(folder, SplitNames(files)), MakeCopyJob<Download>, copy_.ReadLimit() != 0);
}

void FolderCopy::ToServer(const CopyPaths& folder) {
  Names folders;
  Names files;
  ListLocal(folder, folders, files);
  for (const auto& child : Children(folder, folders)) {
    if (copy_.Cancelled()) return;
    MakeRemoteFolder(child);
    if (listener_) listener_->OnNetFolderCreate(copy_.UserData(), child.remote.c_str());
    ToServer(child);
  }
  CopyFiles(Children(folder, files), MakeCopyJob<Upload>, copy_.WriteLimit() != 0);
}

void FolderCopy::ListLocal(const CopyPaths& folder, Names& folders, Names& files) {
  LeftOutReport report(copy_);
  FolderNames names(folder.local.c_str());
  folders = TakeNames(names.folders);
  files = TakeNames(names.files);
}

void FolderCopy::MakeLocalFolder(const CopyPaths& paths) {
  auto native = platform::ToNativePath(paths.local);
  if (native && platform::MakeFolder(*native)) return;
  if (!native || platform::KindOf(*native) != platform::EntryKind::kFolder)
    copy_.Report(paths, SOCKET_FILE_COPY_NO_FOLDER, 0);
}

void FolderCopy::MakeRemoteFolder(const CopyPaths& paths) {
  if (copy_.Client().MakeDirectory(paths.remote.c_str()) != 1)
    copy_.Report(paths, copy_.RemoteFailure(SOCKET_FILE_COPY_NO_FOLDER), 0);
}

void FolderCopy::CopyFiles(std::vector<CopyPaths> files, MakeJob make_job, bool limited) {
  auto& ahead = copy_.Ahead();
  std::size_t most = limited ? 1 : kFilesInFlight;
  std::size_t next = 0;
  while ((next < files.size() || !ahead.empty()) && !copy_.Cancelled()) {
    for (; next < files.size() && ahead.size() < most; ++next) {
      ahead.push_back(make_job(copy_, std::move(files[next])));
      if (!limited) ahead.back()->Begin();
    }
    copy_.AdvanceAhead();
    auto job = std::move(ahead.front());
    ahead.pop_front();
    if (listener_)
      listener_->OnNetFileCopyBegin(copy_.UserData(), job->Paths().remote.c_str(),
                                    job->Paths().local.c_str());
    job->Run();
  }
  ahead.clear();
}

}  // namespace qvx::netfile
