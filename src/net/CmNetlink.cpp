// Netlink message and attribute walking over byte spans, and the address dump parser.

#include "net/CmNetlink.h"

#include <cstring>

namespace {

constexpr size_t kHeader = 16;  // nlmsghdr
constexpr uint16_t kNlmsgError = 2, kNlmsgDone = 3, kRtmNewAddr = 20;
constexpr uint16_t kIfaAddress = 1, kIfaLocal = 2, kIfaCacheInfo = 6, kIfaFlags = 8, kIfaProto = 11;
constexpr uint8_t kAfInet6 = 10;

size_t align4(size_t n) { return (n + 3) & ~size_t(3); }

template <class T>
T read_le(const uint8_t* p) {
  T value;
  std::memcpy(&value, p, sizeof value);
  return value;
}

}  // namespace

CmNlStatus cm_nl_walk(const uint8_t* data, size_t length, uint32_t seq, int& error,
                      const std::function<void(uint16_t, const uint8_t*, size_t)>& onMessage) {
  error = 0;
  size_t at = 0;
  while (length - at >= kHeader) {
    const uint32_t messageLength = read_le<uint32_t>(data + at);
    const uint16_t type = read_le<uint16_t>(data + at + 4);
    const uint32_t messageSeq = read_le<uint32_t>(data + at + 8);
    if (messageLength < kHeader || messageLength > length - at || messageSeq != seq) {
      error = -74;  // EBADMSG
      return CmNlStatus::kError;
    }
    const uint8_t* payload = data + at + kHeader;
    const size_t payloadLength = messageLength - kHeader;
    if (type == kNlmsgDone) return CmNlStatus::kDone;
    if (type == kNlmsgError) {
      error = payloadLength >= 4 ? read_le<int32_t>(payload) : -74;
      // The kernel reports a negative errno; an acknowledgement (0) has no place in a
      // dump and a positive value is no errno at all.
      if (error >= 0) error = -74;
      return CmNlStatus::kError;
    }
    onMessage(type, payload, payloadLength);
    at += align4(messageLength);
    if (at > length) break;
  }
  if (at != length && at < length) {
    error = -74;
    return CmNlStatus::kError;
  }
  return CmNlStatus::kMore;
}

bool cm_nl_attributes(const uint8_t* data, size_t length,
                      const std::function<void(uint16_t, const uint8_t*, size_t)>& onAttribute) {
  size_t at = 0;
  while (length - at >= 4) {
    const uint16_t attributeLength = read_le<uint16_t>(data + at);
    const uint16_t type = read_le<uint16_t>(data + at + 2) & 0x3fff;
    if (attributeLength < 4 || attributeLength > length - at) return false;
    onAttribute(type, data + at + 4, attributeLength - 4u);
    at += align4(attributeLength);
    if (at > length) break;
  }
  return true;
}

bool cm_nl_parse_address(const uint8_t* payload, size_t length, CmNlAddress& out) {
  constexpr size_t kIfaddrmsg = 8;
  if (length < kIfaddrmsg || payload[0] != kAfInet6) return false;
  out = CmNlAddress();
  out.prefixLength = payload[1];
  out.flags = payload[2];
  out.scope = payload[3];
  out.ifindex = read_le<uint32_t>(payload + 4);
  bool haveAddress = false;
  const bool wellFormed = cm_nl_attributes(
      payload + kIfaddrmsg, length - kIfaddrmsg, [&](uint16_t type, const uint8_t* value, size_t size) {
        if ((type == kIfaAddress || (type == kIfaLocal && !haveAddress)) && size == 16) {
          std::memcpy(out.address, value, 16);
          haveAddress = true;
        } else if (type == kIfaFlags && size >= 4) {
          out.flags = read_le<uint32_t>(value);
        } else if (type == kIfaProto && size >= 1) {
          out.proto = value[0];
        } else if (type == kIfaCacheInfo && size >= 16) {
          out.preferred = read_le<uint32_t>(value);
          out.valid = read_le<uint32_t>(value + 4);
          out.haveCacheInfo = true;
        }
      });
  return wellFormed && haveAddress;
}

CmNlStatus cm_nl_parse_address_dump(const uint8_t* data, size_t length, uint32_t seq, std::vector<CmNlAddress>& out,
                                    int& error) {
  return cm_nl_walk(data, length, seq, error, [&](uint16_t type, const uint8_t* payload, size_t size) {
    CmNlAddress address;
    if (type == kRtmNewAddr && cm_nl_parse_address(payload, size, address)) out.push_back(address);
  });
}

bool cm_nl_parse_route_oif(const uint8_t* data, size_t length, uint32_t seq, uint32_t& oif, int& error) {
  constexpr uint16_t kRtmNewRoute = 24, kRtaOif = 4;
  constexpr size_t kRtmsg = 12;
  bool found = false;
  const CmNlStatus status =
      cm_nl_walk(data, length, seq, error, [&](uint16_t type, const uint8_t* payload, size_t size) {
        if (found || type != kRtmNewRoute || size < kRtmsg) return;
        cm_nl_attributes(payload + kRtmsg, size - kRtmsg,
                         [&](uint16_t attribute, const uint8_t* value, size_t valueSize) {
                           if (attribute == kRtaOif && valueSize >= 4) {
                             oif = read_le<uint32_t>(value);
                             found = true;
                           }
                         });
      });
  return status != CmNlStatus::kError && found;
}
