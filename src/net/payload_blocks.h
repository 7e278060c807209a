// Keeps a few payload blocks of middle size for the next packets, so that a stream of large
// packets does not fetch fresh pages from the system for each. At most eight blocks, about
// 8 MiB, for the whole process. Any thread may call; lock-free, and so whole in a forked child.
#pragma once

#include <cstdint>

namespace qvx::net {

// A kept block of at least size bytes, whose room goes to *room; null if there is none that
// fits well. Made by new[].
unsigned char* TakePayloadBlock(std::uint32_t size, std::uint32_t* room) noexcept;

// Keeps a block of that room (made by new[]) or releases it. Null is ignored.
void ReleasePayloadBlock(unsigned char* block, std::uint32_t room) noexcept;

}  // namespace qvx::net
