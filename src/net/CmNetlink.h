#pragma once
// A small netlink reader over byte spans: message walking with length and sequence
// checks, attribute walking, and the parser of IPv6 address dumps (RTM_NEWADDR). The
// parsers never trust a length field, so captured or hostile bytes can be replayed.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "cmutil/base/CmExport.h"

/// One IPv6 address of an address dump.
struct CmNlAddress {
  uint32_t ifindex = 0;
  uint8_t prefixLength = 0;
  uint8_t scope = 0;
  uint32_t flags = 0;  ///< IFA_FLAGS when present, else the 8-bit header flags
  uint8_t proto = 0;   ///< IFA_PROTO, 0 when not sent
  bool haveCacheInfo = false;
  uint32_t preferred = 0;  ///< seconds left, 0xFFFFFFFF = forever
  uint32_t valid = 0;
  uint8_t address[16] = {};
};

/// Result of feeding one received buffer of a dump.
enum class CmNlStatus { kMore, kDone, kError };

/// Walks the messages of one buffer: every message must carry seq; NLMSG_DONE ends the
/// dump, NLMSG_ERROR (error holds its negative errno) or a malformed message fails it,
/// and every other message goes to onMessage(type, payload, length).
CM_EXPORT CmNlStatus cm_nl_walk(const uint8_t* data, size_t length, uint32_t seq, int& error,
                                const std::function<void(uint16_t, const uint8_t*, size_t)>& onMessage);

/// Calls onAttribute(type without its flag bits, payload, length) for each attribute in
/// [data, data + length); false when an attribute's length runs past the end.
CM_EXPORT bool cm_nl_attributes(const uint8_t* data, size_t length,
                                const std::function<void(uint16_t, const uint8_t*, size_t)>& onAttribute);

/// Parses one RTM_NEWADDR payload of the IPv6 family; false when malformed or not IPv6.
CM_EXPORT bool cm_nl_parse_address(const uint8_t* payload, size_t length, CmNlAddress& out);

/// Parses a whole captured dump (one or more buffers joined) into addresses; the status
/// of the walk is returned.
CM_EXPORT CmNlStatus cm_nl_parse_address_dump(const uint8_t* data, size_t length, uint32_t seq,
                                              std::vector<CmNlAddress>& out, int& error);

/// Output interface (RTA_OIF) of an RTM_GETROUTE reply; false for an error reply (error
/// holds its negative errno, such as -101 for no route) or a malformed one.
CM_EXPORT bool cm_nl_parse_route_oif(const uint8_t* data, size_t length, uint32_t seq, uint32_t& oif, int& error);
