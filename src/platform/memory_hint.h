// What the system may be told about blocks of memory from the ordinary heap. Any thread may call.
#pragma once

#include <cstddef>

namespace qvx::platform {

// Says that a block will soon be filled from end to end, so that a large one can be backed by
// large pages instead of being faulted in bit by bit. A hint: small blocks are left alone, the
// content stays as it is, and it never fails.
void ExpectFilling(void* block, std::size_t size) noexcept;

}  // namespace qvx::platform
