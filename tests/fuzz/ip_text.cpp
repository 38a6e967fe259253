// Feeds arbitrary text to the address text utilities that read outside input:
// transport_address_parse (host names are not resolved here: texts with letters before
// the port fail or resolve) and ExpandIPv6Address.
#include <cstddef>
#include <cstdint>
#include <string>

#include "cmutil/net/CmIpAddress.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const std::string expanded = ExpandIPv6Address(text);
  if (expanded.size() > 9 * 5 * (size + 1)) __builtin_trap();
  // Only address texts: a host name would make the fuzzer wait on name resolution.
  if (text.find_first_not_of("0123456789.:/ \tudptcp") == std::string::npos) {
    char protocol[8], ip[16];
    unsigned short port = 0;
    transport_address_parse(text.c_str(), protocol, sizeof protocol, ip, sizeof ip, port);
  }
  isSamePrefixIPv6(text, "2001:db8::1", "ffff::");
  return 0;
}
