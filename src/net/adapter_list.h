// The adapter list in the form that callers get: one block with a chain of records.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/adapters.h"
#include "qvx/net_address.h"

namespace qvx::net {

inline constexpr std::uint32_t kEthernetType = 6;
inline constexpr std::uint32_t kWirelessType = 71;

// One block with all adapters in the same order, released with MyFreeAdaptersInfo. Null
// for an empty list.
IP_ADAPTER_INFO* MakeAdapterBlock(const std::vector<platform::Adapter>& adapters);

// The first adapter of the type, or with need_address the first one of these that has an
// IPv4 address. Null if there is none.
const IP_ADAPTER_INFO* FindAdapter(const IP_ADAPTER_INFO* list, std::uint32_t type,
                                   bool need_address);

// Whether an adapter of this name, compared without case, has an IPv4 address.
bool HasAddressByName(const IP_ADAPTER_INFO* list, const char* name);

}  // namespace qvx::net
