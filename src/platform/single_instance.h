// Names that one process at a time can hold: locked files in a folder of the user's own. The
// system gives up a lock when its process ends, however it ends. Thread-safe.
#pragma once

#include <string_view>

namespace qvx::platform {

// kFailed where the folder or file can't be had.
enum class InstanceName { kFree, kHeld, kRefused, kFailed };

// Who holds the name, this process included; holds nothing itself.
InstanceName LookAtInstanceName(std::string_view name);

// kFree if this process holds the name from now on; kHeld if it is held already, also by this
// process.
InstanceName HoldInstanceName(std::string_view name);
// False if this process does not hold it.
bool ReleaseInstanceName(std::string_view name);

}  // namespace qvx::platform
