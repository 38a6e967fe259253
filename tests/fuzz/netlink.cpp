// Feeds arbitrary bytes to the netlink readers: the message walk with its length and
// sequence checks, the attribute walk, the IPv6 address dump parser and the Wi-Fi
// (nl80211) reply parsers.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "net/CmNetlink.h"
#include "net/CmNl80211.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // A copy of exactly the input's size, so that any read past it is caught.
  std::vector<uint8_t> copy(data, data + size);
  uint32_t seq = 0;
  if (size >= 12) std::memcpy(&seq, data + 8, 4);  // let the first message's sequence match
  std::vector<CmNlAddress> addresses;
  int error = 0;
  const CmNlStatus status = cm_nl_parse_address_dump(copy.data(), copy.size(), seq, addresses, error);
  if (status == CmNlStatus::kError && error >= 0) __builtin_trap();
  if (addresses.size() > size / 24) __builtin_trap();
  size_t count = 0;
  cm_nl_attributes(copy.data(), copy.size(), [&](uint16_t, const uint8_t*, size_t length) {
    if (length > size) __builtin_trap();
    ++count;
  });
  uint16_t family = 0;
  cm_genl_family_id(copy.data(), copy.size(), seq, family, error);
  std::vector<CmWifiLink> links;
  cm_nl80211_parse_interfaces(copy.data(), copy.size(), seq, links, error);
  CmWifiLink link;
  cm_nl80211_parse_station(copy.data(), copy.size(), seq, link, error);
  cm_nl80211_parse_survey(copy.data(), copy.size(), seq, link, error);
  for (const CmWifiLink& l : links)
    if (l.ssid.size() > 32) __builtin_trap();
  return 0;
}
