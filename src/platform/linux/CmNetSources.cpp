// Socket and interface-list queries of the network facts.

#include <errno.h>
#include <ifaddrs.h>
#include <netdb.h>
#include <string.h>
#include <unistd.h>

#include "platform/CmNetPlatform.h"

bool cm_net_list_addresses(std::vector<CmIfAddress>& out) {
  out.clear();
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) return false;
  for (ifaddrs* it = list; it; it = it->ifa_next) {
    if (!it->ifa_addr) continue;
    const int family = it->ifa_addr->sa_family;
    if (family != AF_INET && family != AF_INET6) continue;
    CmIfAddress entry;
    entry.name = it->ifa_name ? it->ifa_name : "";
    entry.flags = it->ifa_flags;
    memcpy(&entry.address, it->ifa_addr, family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6));
    out.push_back(entry);
  }
  freeifaddrs(list);
  return true;
}

CmRouteStep cm_net_route_source_v4(const sockaddr_in& destination, sockaddr_in& local, socklen_t& localLength,
                                   int& error) {
  int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    error = errno;
    return CmRouteStep::kSocketFailed;
  }
  CmRouteStep step = CmRouteStep::kOk;
  if (connect(fd, reinterpret_cast<const sockaddr*>(&destination), sizeof destination) != 0) {
    step = CmRouteStep::kConnectFailed;
  } else {
    localLength = sizeof local;
    if (getsockname(fd, reinterpret_cast<sockaddr*>(&local), &localLength) != 0) step = CmRouteStep::kGetsocknameFailed;
  }
  error = errno;
  close(fd);
  return step;
}

bool cm_net_resolve_first(const char* name, sockaddr_storage& address) {
  addrinfo* result = nullptr;
  if (getaddrinfo(name, nullptr, nullptr, &result) != 0 || !result) return false;
  const bool ok = result->ai_addr && result->ai_addrlen <= sizeof address;
  if (ok) memcpy(&address, result->ai_addr, result->ai_addrlen);
  freeaddrinfo(result);
  return ok;
}

bool cm_net_host_name(char* name, size_t size) { return gethostname(name, size) == 0; }

bool cm_net_family_available(int family) {
  int fd = socket(family, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return false;
  close(fd);
  return true;
}
