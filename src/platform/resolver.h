// Host names to IPv4 addresses through the system's resolver. Keeps no state; blocks for as
// long as the resolver takes.
#pragma once

#include <cstdint>
#include <vector>

namespace qvx::platform {

// Adds the addresses that can be used for TCP, in host order and in the resolver's order.
// False if the resolver fails; then nothing is added.
bool ResolveIpv4(const char* host, std::vector<std::uint32_t>* addresses);

}  // namespace qvx::platform
