// Feeds arbitrary text to the /proc/net parsers: default routes (IPv4, IPv6) and the
// wireless table.
#include <cstddef>
#include <cstdint>
#include <string>

#include "net/CmNetTextParsers.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const std::string v4 = cm_parse_default_route_v4(text);
  const std::string v6 = cm_parse_default_route_v6(text);
  if (v4.size() > size || v6.size() > size) __builtin_trap();
  int rssi = 0, noise = 0;
  cm_parse_proc_wireless(text, "wlan0", rssi, noise);
  if (rssi < -512 || rssi > 512 || noise < -512 || noise > 512) __builtin_trap();
  return 0;
}
