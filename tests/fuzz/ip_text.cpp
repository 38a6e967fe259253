// Feeds arbitrary text to the address text utilities that read outside input:
// transport_address_parse, ExpandIPv6Address, and the IPv6 text parser, checked
// against the C library's.
#include <arpa/inet.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "cmutil/net/CmIpAddress.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const std::string expanded = ExpandIPv6Address(text);
  if (expanded.size() > 9 * 5 * (size + 1)) __builtin_trap();
  // Only address texts (digits, dots, colons): a host name would wait on name resolution.
  if (text.find_first_not_of("0123456789.:/ \t") == std::string::npos) {
    char protocol[8], ip[16];
    unsigned short port = 0;
    transport_address_parse(text.c_str(), protocol, sizeof protocol, ip, sizeof ip, port);
  }
  // Our IPv6 text parser must agree with the C library's on every text: the same
  // verdict, and for valid texts the same address.
  if (text.find('\0') == std::string::npos) {
    in6_addr reference;
    const bool valid = inet_pton(AF_INET6, text.c_str(), &reference) == 1;
    if (isIPv6(text) != valid) __builtin_trap();
    char canonical[INET6_ADDRSTRLEN];
    if (valid && (!inet_ntop(AF_INET6, &reference, canonical, sizeof canonical) ||
                  !isSamePrefixIPv6(text, canonical, "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff")))
      __builtin_trap();
  }
  return 0;
}
