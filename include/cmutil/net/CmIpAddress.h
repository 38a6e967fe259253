#pragma once
/// IP address text utilities: classification, host resolution, dotted IPv4 text to and
/// from a 32-bit identifier, protocol://host:port parsing, IPv6 expansion, prefix
/// comparison under a mask, IPv6-only detection and probes of the socket families.
/// (kel_reverse, the in-place byte reversal, lives with the text formatter.)
///
/// The caches (family probes, the local address, id_2_ip's buffer) are written without
/// locks; the values are idempotent, but id_2_ip's text is overwritten by the next call
/// on any thread: copy it at once.

#include <cstdint>
#include <string>

#include "cmutil/base/CmExport.h"

/// Family probe caches: 1 available, 0 not, all bits set until probed.
CM_EXPORT extern unsigned int cm_ipv4_enabled;
CM_EXPORT extern unsigned int cm_ipv6_enabled;

/// True when the whole text converts as an IPv4 (IPv6) address.
CM_EXPORT bool isIPv4(const std::string& text);
CM_EXPORT bool isIPv6(const std::string& text);

/// 1 when every character is a digit, ".", blank or tab (the empty text too), else 0.
CM_EXPORT int is_ip_address(const char* text);

/// Resolves name and writes its first address as text into out (46 bytes for IPv6);
/// 0 on success, -1 with out untouched otherwise.
CM_EXPORT int resolve_2_ip(const char* name, char* out);

/// Dotted text (or a host name, resolved) to a 32-bit identifier, most significant byte
/// first; 0 when a name does not resolve.
CM_EXPORT unsigned long ip_2_id(const char* text);
/// The identifier as dotted text, in a buffer the next call overwrites.
CM_EXPORT const char* id_2_ip(unsigned long id);

/// The local host's address text ("0.0.0.0" when its name does not resolve).
CM_EXPORT const char* get_local_ip();

/// Parses "protocol://host:port" (at most 64 characters); a host name is resolved.
/// Texts are cut to their buffers. 1 on success, 0 on failure.
CM_EXPORT int transport_address_parse(const char* address, char* protocol, int protocol_size, char* ip, int ip_size,
                                      unsigned short& port);

/// IPv6 text with every group written as four hex digits. Each empty group stands for
/// the groups the text lacks, so a text that starts with "::" gives more than eight.
CM_EXPORT std::string ExpandIPv6Address(const std::string& text);

/// True when ip1 and ip2 agree on every bit set in mask; false for invalid text.
CM_EXPORT bool isSamePrefixIPv4(const std::string& ip1, const std::string& ip2, const std::string& mask);
CM_EXPORT bool isSamePrefixIPv6(const std::string& ip1, const std::string& ip2, const std::string& mask);

/// True when the host has a usable (not link-local, not loopback) IPv6 address and no
/// usable IPv4 address.
CM_EXPORT bool isPureIp6();

/// 1 when a datagram socket of the family opens, else 0; probed once.
CM_EXPORT unsigned int ipv4_enabled();
CM_EXPORT unsigned int ipv6_enabled();
CM_EXPORT unsigned int ip_check(unsigned int* cache, int family);
