#pragma once
// Internal socket and interface queries behind the network facts. Each wraps the system
// calls of one question and returns plain values, so the callers hold the rules.

#include <netinet/in.h>
#include <sys/socket.h>

#include <string>
#include <vector>

/// One address of one interface, as the interface list reports it.
struct CmIfAddress {
  std::string name;
  unsigned int flags = 0;  ///< IFF_UP, IFF_LOOPBACK ...
  sockaddr_storage address = {};
};

/// Every interface address of the host (entries without an address and link-layer
/// entries are left out). False when the list cannot be read.
bool cm_net_list_addresses(std::vector<CmIfAddress>& out);

/// Steps of asking the system which local IPv4 address routes to a destination.
enum class CmRouteStep { kOk, kSocketFailed, kConnectFailed, kGetsocknameFailed };

/// Connects a datagram socket to destination (nothing is sent) and reads back the local
/// address the system chose; local receives the bytes reported, localLength their number.
/// error holds errno of the failing step.
CmRouteStep cm_net_route_source_v4(const sockaddr_in& destination, sockaddr_in& local, socklen_t& localLength,
                                   int& error);

/// First address the host lookup gives for name (any family); false when none.
bool cm_net_resolve_first(const char* name, sockaddr_storage& address);

/// This host's name; false when it cannot be read.
bool cm_net_host_name(char* name, size_t size);

/// True when a datagram socket of family (AF_INET, AF_INET6) can be opened.
bool cm_net_family_available(int family);
