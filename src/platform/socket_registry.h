// The table behind the counted socket values: which count a descriptor has now, whether it was
// shut down, and how many threads are using it. Private to the socket sources of this layer;
// see socket.h for the rules. Lock-free, so that nothing is left held in a forked child.
#pragma once

#include <cstdint>

#include "platform/socket.h"

namespace qvx::platform {

// The descriptor, kept open until ReleaseSocket; -1 for a stale or closed value.
// fork_generation gets what ReleaseSocket wants to be given.
int AcquireSocket(SocketValue socket, std::uint32_t* fork_generation) noexcept;
void ReleaseSocket(SocketValue socket, std::uint32_t fork_generation) noexcept;
bool IsSocketShut(SocketValue socket) noexcept;

}  // namespace qvx::platform
