// Wi-Fi replies of generic netlink, over byte spans.

#include "net/CmNl80211.h"

#include <linux/genetlink.h>
#include <linux/nl80211.h>

#include <cstring>

namespace {

constexpr size_t kGenlHeader = 4;  // genlmsghdr: command, version, reserved

template <class T>
bool read_value(const uint8_t* p, size_t size, T& value) {
  if (size < sizeof value) return false;
  std::memcpy(&value, p, sizeof value);
  return true;
}

int signed_byte(const uint8_t* p) { return static_cast<int8_t>(p[0]); }

// The attributes after the generic header of a message; false when malformed.
template <class Fn>
bool genl_attributes(const uint8_t* payload, size_t length, Fn&& fn) {
  if (length < kGenlHeader) return false;
  return cm_nl_attributes(payload + kGenlHeader, length - kGenlHeader, fn);
}

void read_rate(const uint8_t* data, size_t size, CmWifiLink& link) {
  cm_nl_attributes(data, size, [&](uint16_t type, const uint8_t* value, size_t length) {
    uint32_t rate32 = 0;
    uint16_t rate16 = 0;
    if (type == NL80211_RATE_INFO_BITRATE32 && read_value(value, length, rate32)) link.bitrate100k = rate32;
    if (type == NL80211_RATE_INFO_BITRATE && !link.bitrate100k && read_value(value, length, rate16))
      link.bitrate100k = rate16;
    // The newest generation the rate names wins.
    int mode = 0;
    if (type == NL80211_RATE_INFO_EHT_MCS) mode = 7;
    if (type == NL80211_RATE_INFO_HE_MCS) mode = 6;
    if (type == NL80211_RATE_INFO_VHT_MCS) mode = 5;
    if (type == NL80211_RATE_INFO_MCS) mode = 4;
    if (mode > link.phyMode) link.phyMode = mode;
  });
}

}  // namespace

bool cm_genl_family_id(const uint8_t* data, size_t length, uint32_t seq, uint16_t& id, int& error) {
  bool found = false;
  const CmNlStatus status = cm_nl_walk(data, length, seq, error, [&](uint16_t, const uint8_t* payload, size_t size) {
    genl_attributes(payload, size, [&](uint16_t type, const uint8_t* value, size_t valueSize) {
      if (type == CTRL_ATTR_FAMILY_ID && read_value(value, valueSize, id)) found = true;
    });
  });
  return status != CmNlStatus::kError && found;
}

CmNlStatus cm_nl80211_parse_interfaces(const uint8_t* data, size_t length, uint32_t seq, std::vector<CmWifiLink>& out,
                                       int& error) {
  return cm_nl_walk(data, length, seq, error, [&](uint16_t, const uint8_t* payload, size_t size) {
    CmWifiLink link;
    const bool wellFormed = genl_attributes(payload, size, [&](uint16_t type, const uint8_t* value, size_t valueSize) {
      if (type == NL80211_ATTR_IFINDEX) read_value(value, valueSize, link.ifindex);
      if (type == NL80211_ATTR_IFTYPE) read_value(value, valueSize, link.iftype);
      if (type == NL80211_ATTR_WIPHY_FREQ) read_value(value, valueSize, link.frequency);
      if (type == NL80211_ATTR_CHANNEL_WIDTH) read_value(value, valueSize, link.width);
      if (type == NL80211_ATTR_IFNAME)
        link.ifname.assign(reinterpret_cast<const char*>(value),
                           strnlen(reinterpret_cast<const char*>(value), valueSize));
      if (type == NL80211_ATTR_SSID && valueSize <= 32) {
        link.ssid.assign(reinterpret_cast<const char*>(value), valueSize);
        link.haveSsid = true;
      }
    });
    if (wellFormed && link.ifindex) out.push_back(link);
  });
}

CmNlStatus cm_nl80211_parse_station(const uint8_t* data, size_t length, uint32_t seq, CmWifiLink& link, int& error) {
  bool taken = false;
  return cm_nl_walk(data, length, seq, error, [&](uint16_t, const uint8_t* payload, size_t size) {
    if (taken) return;
    genl_attributes(payload, size, [&](uint16_t type, const uint8_t* value, size_t valueSize) {
      if (type != NL80211_ATTR_STA_INFO) return;
      taken = true;
      int average = 0;
      bool haveAverage = false;
      cm_nl_attributes(value, valueSize, [&](uint16_t info, const uint8_t* v, size_t s) {
        if (info == NL80211_STA_INFO_SIGNAL && s >= 1) link.signal = signed_byte(v), link.haveSignal = true;
        if (info == NL80211_STA_INFO_SIGNAL_AVG && s >= 1) average = signed_byte(v), haveAverage = true;
        if (info == NL80211_STA_INFO_TX_BITRATE) read_rate(v, s, link);
      });
      if (!link.haveSignal && haveAverage) link.signal = average, link.haveSignal = true;
    });
  });
}

CmNlStatus cm_nl80211_parse_survey(const uint8_t* data, size_t length, uint32_t seq, CmWifiLink& link, int& error) {
  return cm_nl_walk(data, length, seq, error, [&](uint16_t, const uint8_t* payload, size_t size) {
    genl_attributes(payload, size, [&](uint16_t type, const uint8_t* value, size_t valueSize) {
      if (type != NL80211_ATTR_SURVEY_INFO) return;
      bool inUse = false, haveNoise = false;
      int noise = 0;
      cm_nl_attributes(value, valueSize, [&](uint16_t info, const uint8_t* v, size_t s) {
        if (info == NL80211_SURVEY_INFO_IN_USE) inUse = true;
        if (info == NL80211_SURVEY_INFO_NOISE && s >= 1) noise = signed_byte(v), haveNoise = true;
      });
      if (inUse && haveNoise) link.noise = noise, link.haveNoise = true;
    });
  });
}
