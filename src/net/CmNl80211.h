#pragma once
// Parsers of the Wi-Fi replies of generic netlink: the family id of "nl80211", the
// interface dump (name, type, frequency, width, SSID), the station dump (signal,
// transmit rate and the PHY generation it implies) and the survey dump (noise). They
// take bytes, so captured or hand-made replies can be replayed, and refuse malformed
// ones.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "cmutil/base/CmExport.h"
#include "cmutil/net/CmNetworkType.h"
#include "net/CmNetlink.h"

/// What the radio says about one Wi-Fi interface.
struct CmWifiLink {
  uint32_t ifindex = 0;
  std::string ifname;
  uint32_t iftype = 0;     ///< 2 = station (client)
  uint32_t frequency = 0;  ///< MHz, 0 when not associated
  uint32_t width = 0;      ///< channel width code
  bool haveSsid = false;
  std::string ssid;  ///< raw bytes, maybe not UTF-8
  bool haveSignal = false;
  int signal = 0;            ///< dBm
  uint32_t bitrate100k = 0;  ///< transmit rate in units of 100 kbit/s
  int phyMode = 0;           ///< 4 n, 5 ac, 6 ax, 7 be from the rate's MCS kind; 0 legacy or unknown
  bool haveNoise = false;
  int noise = 0;  ///< dBm
};

/// Family id of a CTRL_CMD_GETFAMILY reply; false when absent or malformed.
CM_EXPORT bool cm_genl_family_id(const uint8_t* data, size_t length, uint32_t seq, uint16_t& id, int& error);

/// The interfaces of an NL80211_CMD_GET_INTERFACE dump.
CM_EXPORT CmNlStatus cm_nl80211_parse_interfaces(const uint8_t* data, size_t length, uint32_t seq,
                                                 std::vector<CmWifiLink>& out, int& error);

/// Signal, rate and PHY generation of the (first) station of a station dump.
CM_EXPORT CmNlStatus cm_nl80211_parse_station(const uint8_t* data, size_t length, uint32_t seq, CmWifiLink& link,
                                              int& error);

/// Noise of the channel in use from a survey dump.
CM_EXPORT CmNlStatus cm_nl80211_parse_survey(const uint8_t* data, size_t length, uint32_t seq, CmWifiLink& link,
                                             int& error);

/// The statistics the radio's figures give: SSID ("NotAvailable" without one), signal,
/// noise, rate in Mbit/s, PHY mode, and the channel and band of the frequency.
CM_EXPORT void cm_wifi_stats_from_link(const CmWifiLink& link, WifiStats& stats);
