#include "files/tree_report.h"

#include "platform/path.h"
#include "qvx/folder_list.h"

namespace qvx::files {
namespace {

struct Listener {
  ISkippedEntryListener* listener = nullptr;
  std::uint64_t user_data = 0;
};
thread_local constinit Listener current;

void Tell(std::u16string path, const std::u16string& name, int reason) {
  if (!path.empty() && !platform::IsSeparator(path.back())) path += u'\\';
  path += name;
  current.listener->OnEntrySkipped(current.user_data, path.c_str(), reason);
}

template <typename C>
void TellNative(const C* folder, const std::string& name, int reason) {
  if (current.listener == nullptr) return;
  Tell(platform::WidePath(std::basic_string_view<C>(folder)),
       *platform::FromNativePath<char16_t>(name), reason);
}

}  // namespace

void TellSkipped(const char* folder, const std::string& name, int reason) {
  TellNative(folder, name, reason);
}

void TellSkipped(const char16_t* folder, const std::string& name, int reason) {
  TellNative(folder, name, reason);
}

template <typename C>
std::function<void(const std::string&, platform::SkipReason)> TreeReport(const C* folder) {
  return [folder](const std::string& below, platform::SkipReason reason) {
    const bool special = reason == platform::SkipReason::kSpecial;
    TellSkipped(folder, below, special ? kSkippedSpecial : kSkippedFailed);
  };
}

template std::function<void(const std::string&, platform::SkipReason)> TreeReport(const char*);
template std::function<void(const std::string&, platform::SkipReason)> TreeReport(const char16_t*);

}  // namespace qvx::files

ISkippedEntryListener::~ISkippedEntryListener() = default;

void SetSkippedEntryListener(ISkippedEntryListener* listener, std::uint64_t userData) {
  qvx::files::current = {listener, userData};
}

ISkippedEntryListener* GetSkippedEntryListener(std::uint64_t* userData) {
  if (userData != nullptr) *userData = qvx::files::current.user_data;
  return qvx::files::current.listener;
}

void ReportSkippedEntry(const WCHAR* folder, const WCHAR* name, int reason) {
  if (qvx::files::current.listener == nullptr) return;
  qvx::files::Tell(folder != nullptr ? folder : u"", name != nullptr ? name : u"", reason);
}
