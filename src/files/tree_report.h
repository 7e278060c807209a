// Telling the calling thread's listener what a list or a tree operation leaves out.
#pragma once

#include <functional>
#include <string>

#include "platform/folder.h"

namespace qvx::files {

// name is native and may be a path below the folder; reason is one of folder_list.h.
void TellSkipped(const char* folder, const std::string& name, int reason);
void TellSkipped(const char16_t* folder, const std::string& name, int reason);

// For a walk through the tree below this folder, which must outlive it.
template <typename C>
std::function<void(const std::string&, platform::SkipReason)> TreeReport(const C* folder);

}  // namespace qvx::files
