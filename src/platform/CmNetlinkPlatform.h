#pragma once
// The netlink socket: one request, then every reply buffer handed to the caller's parser.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

/// Sends request (a whole netlink message; its sequence field is filled in and returned
/// through seq) on a socket of protocol (NETLINK_ROUTE, NETLINK_GENERIC) and passes each
/// reply buffer to onBuffer until it returns false. False with error set when the socket
/// cannot be used or a reply does not come within a second. Under a filesystem root the
/// kernel is not asked (false, error EPERM), so callers take their file fallback.
bool cm_netlink_request(int protocol, std::vector<uint8_t>& request, uint32_t& seq,
                        const std::function<bool(const uint8_t*, size_t)>& onBuffer, int& error);

/// Index of the interface name, 0 when there is none.
unsigned cm_net_if_index(const char* name);

/// Name of the interface with index, "" when there is none.
std::string cm_net_if_name(unsigned index);
