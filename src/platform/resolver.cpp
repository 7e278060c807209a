#include "platform/resolver.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstring>
#include <memory>

namespace qvx::platform {
namespace {

using Chain = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;

bool IsForTcp(const addrinfo& entry) {
  return entry.ai_family == AF_INET && entry.ai_addrlen == sizeof(sockaddr_in) &&
         (entry.ai_protocol == 0 || entry.ai_protocol == IPPROTO_TCP);
}

}  // namespace

bool ResolveIpv4(const char* host, std::vector<std::uint32_t>* addresses) {
  addrinfo* first = nullptr;
  if (host == nullptr || getaddrinfo(host, nullptr, nullptr, &first) != 0) return false;
  const Chain chain(first, &freeaddrinfo);
  for (const addrinfo* entry = first; entry != nullptr; entry = entry->ai_next) {
    if (!IsForTcp(*entry)) continue;
    sockaddr_in address{};
    std::memcpy(&address, entry->ai_addr, sizeof(address));
    addresses->push_back(ntohl(address.sin_addr.s_addr));
  }
  return true;
}

}  // namespace qvx::platform
