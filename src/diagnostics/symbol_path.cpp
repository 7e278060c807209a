#include "diagnostics/symbol_path.h"

#include <algorithm>
#include <optional>
#include <string_view>

#include "platform/clock.h"
#include "platform/environment.h"
#include "platform/file.h"
#include "platform/path.h"
#include "platform/process.h"

namespace qvx::diagnostics {
namespace {

using platform::EnvironmentText;

constexpr std::size_t kMostPathBytes = 4096;
constexpr char kLibrary[] = "libdw.so.1";
constexpr const char* kToolFolders[] = {"\\Debugging Tools for Windows\\dbghelp.dll",
                                        "\\Debugging Tools for Windows 64-Bit\\dbghelp.dll"};
// Debug files are never fetched, so there is no server by default.
constexpr std::string_view kServer;

std::string InLibraryForm(const std::string& native) {
  return platform::FromNativePath<char>(native).value_or("");
}

std::string ProgramFolder() {
  const std::string path =
      InLibraryForm(platform::ProgramOf(platform::CurrentProcessId()).value_or(""));
  const std::size_t cut = path.find_last_of("/\\:");
  return cut == std::string::npos ? "" : path.substr(0, cut);
}

// The text of a path that has a limit: an element that doesn't fit is left out.
class PathText {
 public:
  void Add(const std::string& element) {
    if (element.empty() || text_.size() + element.size() + 2 > kMostPathBytes) return;
    text_ += element;
    text_ += ';';
  }

  void Add(const std::optional<std::string>& element) {
    if (element) Add(*element);
  }

  const std::string& Text() const { return text_; }

 private:
  std::string text_;
};

std::string ServerElement() {
  const std::string drive = EnvironmentText("SYSTEMDRIVE").value_or("c:");
  return "SRV*" + drive + "\\websymbols*" + std::string(kServer);
}

bool UsesLocalCopies() {
  const auto program = platform::ProgramOf(platform::CurrentProcessId());
  return program && platform::AttributesOf(*program + ".local") != platform::kNoAttributes;
}

}  // namespace

std::string SymbolPath(const char* given) {
  PathText path;
  if (given != nullptr) path.Add(std::string(given));
  path.Add(std::string("."));
  path.Add(InLibraryForm(platform::CurrentFolder()));
  path.Add(ProgramFolder());
  path.Add(EnvironmentText("_NT_SYMBOL_PATH"));
  path.Add(EnvironmentText("_NT_ALTERNATE_SYMBOL_PATH"));
  if (const auto root = EnvironmentText("SYSTEMROOT")) {
    path.Add(*root);
    path.Add(*root + "\\system32");
  }
  path.Add(ServerElement());
  return path.Text();
}

std::vector<std::string> NativeFolders(const std::string& path) {
  std::vector<std::string> folders;
  std::string_view rest = path;
  while (!rest.empty()) {
    const std::size_t end = std::min(rest.find(';'), rest.size());
    const std::string_view element = rest.substr(0, end);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    if (element.empty() || element.starts_with("SRV*")) continue;
    if (auto native = platform::ToNativePath(element)) folders.push_back(std::move(*native));
  }
  return folders;
}

std::vector<std::string> DebugLibraryNames() {
  std::vector<std::string> names;
  const auto programs = EnvironmentText("ProgramFiles");
  if (programs && !UsesLocalCopies()) {
    for (const char* folder : kToolFolders) {
      const auto native = platform::ToNativePath(*programs + folder);
      if (native && platform::AttributesOf(*native) != platform::kNoAttributes)
        names.push_back(*native);
    }
  }
  names.emplace_back(kLibrary);
  return names;
}

}  // namespace qvx::diagnostics
