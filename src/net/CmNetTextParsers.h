#pragma once
// Parsers of the /proc/net texts behind the network facts. They take the text and never
// touch the filesystem; every one is safe on arbitrary bytes.

#include <string>
#include <vector>

#include "cmutil/base/CmExport.h"

/// Interface of the IPv4 default route in /proc/net/route text: destination and mask 0,
/// up (0x1) and not a reject route (0x200), lowest metric first. Empty when none.
CM_EXPORT std::string cm_parse_default_route_v4(const std::string& text);

/// Interface of the IPv6 default route in /proc/net/ipv6_route text (::/0, up, not a
/// reject route, not lo). Empty when none.
CM_EXPORT std::string cm_parse_default_route_v6(const std::string& text);

/// Signal and noise (dBm) of interface name in /proc/net/wireless text. Old drivers
/// report unsigned bytes (values above 0 are taken minus 256); noise -256 is unknown
/// (0). False when the interface has no row.
CM_EXPORT bool cm_parse_proc_wireless(const std::string& text, const std::string& name, int& rssi, int& noise);

/// One row of /proc/net/if_inet6: address, prefix length, scope (00 global, 10 host, 20
/// link, 40 site), 8-bit flags and interface name. The interface index is checked but
/// not kept: the row names its interface.
struct CmInet6Row {
  unsigned char address[16] = {};
  unsigned prefixLength = 0, scope = 0, flags = 0;
  std::string name;
};

/// The well-formed rows of /proc/net/if_inet6 text; malformed rows are skipped.
CM_EXPORT std::vector<CmInet6Row> cm_parse_if_inet6(const std::string& text);
