#pragma once
/// This host's own addresses as candidates for media transport. get_local_addr builds
/// the list (each IPv6 address with its kind and the end of its preferred lifetime),
/// prune_local_addr removes what must not be offered (loopback, documentation prefixes,
/// surplus IPv6 addresses per interface, 464XLAT IPv4 addresses when real IPv6 exists),
/// and free_local_addr releases it. The list belongs to the caller; no locks.

#include <netinet/in.h>

#include <cstddef>
#include <cstdint>

#include "cmutil/base/CmExport.h"

/// Kinds of IPv6 address, by how it was configured.
enum : uint32_t {
  kLocalAddrAutoconf = 1,   ///< stateless autoconfiguration
  kLocalAddrTemporary = 2,  ///< privacy (temporary) address
  kLocalAddrDhcp = 4,       ///< assigned by DHCPv6
  kLocalAddrOther = 8,      ///< anything else: never offered
  kLocalAddrManual = 16,    ///< configured by hand (static)
};

/// One address of the list.
struct local_addr {
  sockaddr_in6 addr;  ///< IPv4 (as sockaddr_in) or IPv6
  char ifname[64];    ///< interface carrying it, terminated
  uint64_t expire;    ///< IPv6: seconds since the epoch when it stops being preferred; 0 = never (and IPv4)
  uint32_t flag;      ///< IPv6: kind above
  local_addr* next;
};
typedef local_addr local_addr_t;

/// What pruning keeps besides global addresses; a null record keeps all three.
struct prune_local_addr_options {
  bool keep_link_local;
  bool keep_unique_local;
  bool keep_xlat464;  ///< keep 192.0.0.0/29 IPv4 addresses even when IPv6 is kept
};

/// Switches off the detection of hand-configured IPv6 addresses (kind 16).
CM_EXPORT extern bool cm_check_manual_IPv6_disabled;
CM_EXPORT void disable_detect_manual_ipv6(bool disable);

/// Builds the list from the up interfaces (link-local IPv6 addresses are left out);
/// 0 when at least one address was found, else -1.
CM_EXPORT int get_local_addr(local_addr_t** list);

/// Copies the interface name (at most 63 characters) into node and fills the kind and
/// the preferred-lifetime end of node's IPv6 address; false, traced, when unknown.
CM_EXPORT bool cm_fill_v6_addr_detail(const char* ifname, local_addr_t* node);

/// Prunes the list in place (its head is rewritten); xlat_removed, when given, says
/// whether 464XLAT addresses were removed.
CM_EXPORT void prune_local_addr(local_addr_t** list, const prune_local_addr_options* options,
                                bool* xlat_removed = nullptr);

/// Deletes every node; null is allowed.
CM_EXPORT void free_local_addr(local_addr_t* list);

/// Copies count bytes of src (dst_size - 1 when count does not fit) and terminates;
/// -1 when any argument is null or zero, else 0.
CM_EXPORT int strcpy_forsafe(char* dst, const char* src, size_t count, size_t dst_size);
