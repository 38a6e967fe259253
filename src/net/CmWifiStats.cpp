// Wi-Fi statistics of the current Wi-Fi interface: nl80211 over generic netlink, with
// /proc/net/wireless (signal and noise only) where nl80211 is absent.

#include <linux/genetlink.h>
#include <linux/netlink.h>
#include <linux/nl80211.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "cmutil/net/CmNetworkType.h"
#include "cmutil/trace/CmTraceMacros.h"
#include "net/CmNetLinkKind.h"
#include "net/CmNetTextParsers.h"
#include "net/CmNl80211.h"
#include "platform/CmFsRoot.h"
#include "platform/CmNetlinkPlatform.h"

namespace {

constexpr unsigned long long kInterfaceUp = 0x1;

// The radio counts as powered when its interface is administratively up.
bool powered(const std::string& name) {
  unsigned long long flags = 0;
  return cm_read_fs_u64(("/sys/class/net/" + name + "/flags").c_str(), flags) && (flags & kInterfaceUp);
}

// A generic netlink request: header, command, then attributes.
class GenlRequest {
 public:
  GenlRequest(uint16_t family, uint8_t command, bool dump) {
    put<uint32_t>(0);
    put<uint16_t>(family);
    put<uint16_t>(static_cast<uint16_t>(NLM_F_REQUEST | (dump ? NLM_F_DUMP : 0)));
    put<uint32_t>(0);  // sequence, set when sent
    put<uint32_t>(0);
    put<uint8_t>(command), put<uint8_t>(1), put<uint16_t>(0);
  }
  template <class T>
  GenlRequest& attribute(uint16_t type, const T& value, size_t size = sizeof(T)) {
    put<uint16_t>(static_cast<uint16_t>(4 + size));
    put<uint16_t>(type);
    const uint8_t* p = reinterpret_cast<const uint8_t*>(&value);
    m_bytes.insert(m_bytes.end(), p, p + size);
    while (m_bytes.size() % 4) m_bytes.push_back(0);
    return *this;
  }
  std::vector<uint8_t>& bytes() {
    const uint32_t length = static_cast<uint32_t>(m_bytes.size());
    std::memcpy(m_bytes.data(), &length, 4);
    return m_bytes;
  }

 private:
  template <class T>
  void put(T value) {
    const uint8_t* p = reinterpret_cast<const uint8_t*>(&value);
    m_bytes.insert(m_bytes.end(), p, p + sizeof value);
  }
  std::vector<uint8_t> m_bytes;
};

// Sends the request and feeds every reply buffer to parse until the dump ends.
template <class Parse>
bool ask(GenlRequest& request, Parse&& parse) {
  uint32_t seq = 0;
  int error = 0;
  CmNlStatus status = CmNlStatus::kMore;
  const bool asked = cm_netlink_request(
      NETLINK_GENERIC, request.bytes(), seq,
      [&](const uint8_t* data, size_t size) {
        status = parse(data, size, seq, error);
        return status == CmNlStatus::kMore;
      },
      error);
  return asked && status == CmNlStatus::kDone;
}

// The legacy rates tell 802.11a, b and g apart when no MCS kind is named.
int legacy_mode(const CmWifiLink& link) {
  if (link.frequency >= 5000) return 1;
  const uint32_t r = link.bitrate100k;
  return r == 10 || r == 20 || r == 55 || r == 110 ? 2 : 3;
}

bool read_nl80211(const std::string& name, CmWifiLink& link) {
  GenlRequest family(GENL_ID_CTRL, CTRL_CMD_GETFAMILY, false);
  family.attribute(CTRL_ATTR_FAMILY_NAME, "nl80211", 8);
  uint16_t id = 0;
  bool haveId = false;
  uint32_t seq = 0;
  int error = 0;
  cm_netlink_request(
      NETLINK_GENERIC, family.bytes(), seq,
      [&](const uint8_t* data, size_t size) {
        haveId = cm_genl_family_id(data, size, seq, id, error);
        return false;
      },
      error);
  if (!haveId) return false;  // cfg80211 not loaded
  std::vector<CmWifiLink> links;
  GenlRequest interfaces(id, NL80211_CMD_GET_INTERFACE, true);
  if (!ask(interfaces, [&](const uint8_t* d, size_t n, uint32_t s, int& e) {
        return cm_nl80211_parse_interfaces(d, n, s, links, e);
      }))
    return false;
  auto found = std::find_if(links.begin(), links.end(), [&](const CmWifiLink& l) { return l.ifname == name; });
  if (found == links.end()) return false;
  link = *found;
  GenlRequest station(id, NL80211_CMD_GET_STATION, true);
  station.attribute(NL80211_ATTR_IFINDEX, link.ifindex);
  ask(station,
      [&](const uint8_t* d, size_t n, uint32_t s, int& e) { return cm_nl80211_parse_station(d, n, s, link, e); });
  GenlRequest survey(id, NL80211_CMD_GET_SURVEY, true);
  survey.attribute(NL80211_ATTR_IFINDEX, link.ifindex);
  ask(survey,
      [&](const uint8_t* d, size_t n, uint32_t s, int& e) { return cm_nl80211_parse_survey(d, n, s, link, e); });
  return true;
}

// Channel number and radio band of a frequency (2.4, 5 and 6 GHz).
void channel_of(uint32_t f, int& channel, CWChannelBand& band) {
  channel = 0;
  band = 0;
  if (f == 2484)
    channel = 14, band = 1;
  else if (f >= 2412 && f <= 2472)
    channel = static_cast<int>(f - 2407) / 5, band = 1;
  else if (f >= 5160 && f <= 5885)
    channel = static_cast<int>(f - 5000) / 5, band = 2;
  else if (f == 5935)
    channel = 2, band = 3;
  else if (f >= 5955 && f <= 7115)
    channel = static_cast<int>(f - 5950) / 5, band = 3;
}

}  // namespace

void cm_wifi_stats_from_link(const CmWifiLink& link, WifiStats& stats) {
  stats.ssid = link.haveSsid && !link.ssid.empty() ? link.ssid : "NotAvailable";
  if (link.haveSignal) stats.rssi = link.signal;
  if (link.haveNoise) stats.noise = link.noise;
  stats.txRate = static_cast<int>(link.bitrate100k / 10);
  stats.phyMode =
      ConvertCWPHYModeToWifiPHYMode(link.phyMode == 0 && link.bitrate100k ? legacy_mode(link) : link.phyMode);
  if (link.frequency) {
    CWChannelBand band = 0;
    channel_of(link.frequency, stats.channel, band);
    stats.band = ConvertCWChannelBandToWifiChFrequency(band);
  }
}

CmResult GetWifiStatsP(WifiStats& stats) {
  const std::string name = cm_first_wifi_interface();
  if (name.empty() || !powered(name)) return CM_ERROR_GENERIC;
  CmWifiLink link;
  if (read_nl80211(name, link)) {
    cm_wifi_stats_from_link(link, stats);
    return CM_OK;
  }
  // Without nl80211 the wireless table gives signal and noise only.
  stats.ssid = "NotAvailable";
  std::string text;
  int rssi = 0, noise = 0;
  if (cm_read_fs_file("/proc/net/wireless", text) && cm_parse_proc_wireless(text, name, rssi, noise)) {
    stats.rssi = rssi;
    stats.noise = noise;
  }
  stats.phyMode = WifiPhyModeUnknown;
  return CM_OK;
}

CmResult GetWifiStats(WifiStats& stats) {
  const kel::eNetworkStatus type = getNetworkStatus().networkType;
  if (type != kel::NetworkWifi && type != kel::NetworkWifi2) return -1;
  stats.ssid = "NotDetected";
  const CmResult rv = GetWifiStatsP(stats);
  if (rv != CM_OK) {
    CM_DETAIL_TRACE("GetWifiStats: Get wifi stats failed");
    return rv;
  }
  stats.strength = ConvertRssiToStrength(stats.rssi);
  stats.snr = CalculateSnr(stats.rssi, stats.noise);
  return CM_OK;
}

std::string GetWiFiSSID() {
  WifiStats stats;
  return GetWifiStatsP(stats) == CM_OK ? stats.ssid : "NotDetected";
}

std::string DetectedSSID() { return GetWiFiSSID(); }
