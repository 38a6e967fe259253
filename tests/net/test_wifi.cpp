// Wi-Fi figures from nl80211 replies built byte by byte: the family id, the interface,
// station and survey dumps, and the statistics they give.

#include <gtest/gtest.h>
#include <linux/genetlink.h>
#include <linux/nl80211.h>

#include <tuple>

#include "NetlinkBytes.h"
#include "net/CmNl80211.h"

namespace {

constexpr uint16_t kFamily = 0x1c;
constexpr uint32_t kSeq = 9;

Bytes interface_dump(uint32_t frequency) {
  Bytes attrs;
  attrs.attr<uint32_t>(NL80211_ATTR_IFINDEX, 3).attr(NL80211_ATTR_IFNAME, "wlan0", 6);
  attrs.attr<uint32_t>(NL80211_ATTR_IFTYPE, 2).attr<uint32_t>(NL80211_ATTR_WIPHY_FREQ, frequency);
  attrs.attr(NL80211_ATTR_SSID, "cafe", 4).attr<uint32_t>(NL80211_ATTR_CHANNEL_WIDTH, NL80211_CHAN_WIDTH_80);
  Bytes p2p;  // a second interface without an index is not listed
  p2p.attr(NL80211_ATTR_IFNAME, "p2p", 4);
  return genl_message(kFamily, kSeq, NL80211_CMD_NEW_INTERFACE, attrs)
      .append(genl_message(kFamily, kSeq, NL80211_CMD_NEW_INTERFACE, p2p))
      .append(nl_done(kSeq));
}

Bytes station_dump(uint16_t rateKind, uint32_t bitrate) {
  Bytes rate, info, attrs;
  rate.attr<uint32_t>(NL80211_RATE_INFO_BITRATE32, bitrate);
  if (rateKind) rate.attr<uint8_t>(rateKind, 9);
  info.attr<uint8_t>(NL80211_STA_INFO_SIGNAL_AVG, static_cast<uint8_t>(-60));
  info.attr<uint8_t>(NL80211_STA_INFO_SIGNAL, static_cast<uint8_t>(-56)).attr(NL80211_STA_INFO_TX_BITRATE, rate);
  attrs.attr(NL80211_ATTR_STA_INFO, info);
  return genl_message(kFamily, kSeq, NL80211_CMD_NEW_STATION, attrs).append(nl_done(kSeq));
}

Bytes survey_dump() {
  Bytes other, inUse, a, b;
  other.attr<uint32_t>(NL80211_SURVEY_INFO_FREQUENCY, 2412)
      .attr<uint8_t>(NL80211_SURVEY_INFO_NOISE, static_cast<uint8_t>(-80));
  inUse.attr<uint32_t>(NL80211_SURVEY_INFO_FREQUENCY, 5180)
      .attr<uint8_t>(NL80211_SURVEY_INFO_NOISE, static_cast<uint8_t>(-95));
  inUse.attr(NL80211_SURVEY_INFO_IN_USE, "", 0);
  a.attr(NL80211_ATTR_SURVEY_INFO, other);
  b.attr(NL80211_ATTR_SURVEY_INFO, inUse);
  return genl_message(kFamily, kSeq, NL80211_CMD_NEW_SURVEY_RESULTS, a)
      .append(genl_message(kFamily, kSeq, NL80211_CMD_NEW_SURVEY_RESULTS, b))
      .append(nl_done(kSeq));
}

TEST(Wifi, RadioRepliesGiveTheStatistics) {
  Bytes family;
  family.attr(CTRL_ATTR_FAMILY_NAME, "nl80211", 8).attr<uint16_t>(CTRL_ATTR_FAMILY_ID, kFamily);
  const Bytes reply = genl_message(GENL_ID_CTRL, kSeq, CTRL_CMD_NEWFAMILY, family);
  uint16_t id = 0;
  int error = 0;
  ASSERT_TRUE(cm_genl_family_id(reply.data.data(), reply.data.size(), kSeq, id, error));
  EXPECT_EQ(kFamily, id);

  // frequency, rate kind, bitrate; then the transmit rate, channel, mode and band they give
  const std::tuple<uint32_t, uint16_t, uint32_t, int, int, eWifiPhyMode, eWifiChFrequency> cases[] = {
      {5180, NL80211_RATE_INFO_VHT_MCS, 8667, 866, 36, WifiPhyMode11ac, WifiChFrequency5GHz},
      {5180, NL80211_RATE_INFO_HE_MCS, 12010, 1201, 36, WifiPhyModeUnknown, WifiChFrequency5GHz},  // ax: no name
      {2437, NL80211_RATE_INFO_MCS, 1440, 144, 6, WifiPhyMode11n, WifiChFrequency2_4GHz},
      {2484, 0, 110, 11, 14, WifiPhyMode11b, WifiChFrequency2_4GHz},
      {2412, 0, 540, 54, 1, WifiPhyMode11g, WifiChFrequency2_4GHz},
      {5745, 0, 540, 54, 149, WifiPhyMode11a, WifiChFrequency5GHz},
      {5955, NL80211_RATE_INFO_HE_MCS, 24020, 2402, 1, WifiPhyModeUnknown, WifiChFrequencyNotDetected},  // 6 GHz
  };
  for (const auto& [frequency, rateKind, bitrate, txRate, channel, mode, band] : cases) {
    std::vector<CmWifiLink> links;
    const Bytes interfaces = interface_dump(frequency);
    ASSERT_EQ(CmNlStatus::kDone,
              cm_nl80211_parse_interfaces(interfaces.data.data(), interfaces.data.size(), kSeq, links, error));
    ASSERT_EQ(1u, links.size());
    CmWifiLink link = links[0];
    const Bytes station = station_dump(rateKind, bitrate), survey = survey_dump();
    EXPECT_EQ(CmNlStatus::kDone, cm_nl80211_parse_station(station.data.data(), station.data.size(), kSeq, link, error));
    EXPECT_EQ(CmNlStatus::kDone, cm_nl80211_parse_survey(survey.data.data(), survey.data.size(), kSeq, link, error));
    WifiStats stats;
    cm_wifi_stats_from_link(link, stats);
    // rssi is the last signal, not the average; noise the survey of the channel in use.
    EXPECT_EQ(std::make_tuple(std::string("wlan0"), static_cast<uint32_t>(NL80211_CHAN_WIDTH_80), std::string("cafe"),
                              -56, -95, txRate, channel, mode, band),
              std::make_tuple(link.ifname, link.width, stats.ssid, stats.rssi, stats.noise, stats.txRate, stats.channel,
                              stats.phyMode, stats.band))
        << frequency;
  }
  CmWifiLink empty;
  empty.haveSsid = true;  // a hidden network: an SSID of no bytes
  WifiStats stats;
  cm_wifi_stats_from_link(empty, stats);
  EXPECT_EQ(std::make_tuple("NotAvailable", WifiChFrequencyNotDetected), std::make_tuple(stats.ssid, stats.band));
}

TEST(Wifi, MalformedRepliesAreRefused) {
  uint16_t id = 0;
  int error = 0;
  const Bytes refused = nl_error(kSeq, -2);
  EXPECT_FALSE(cm_genl_family_id(refused.data.data(), refused.data.size(), kSeq, id, error));  // ENOENT: no cfg80211
  EXPECT_EQ(-2, error);
  Bytes interfaces = interface_dump(5180);
  interfaces.data.resize(interfaces.data.size() - 30);  // cut inside the second message
  std::vector<CmWifiLink> links;
  EXPECT_EQ(CmNlStatus::kError,
            cm_nl80211_parse_interfaces(interfaces.data.data(), interfaces.data.size(), kSeq, links, error));
  Bytes nested;  // a station whose nested length runs past the end
  nested.put<uint16_t>(200).put<uint16_t>(NL80211_ATTR_STA_INFO);
  const Bytes station = genl_message(kFamily, kSeq, NL80211_CMD_NEW_STATION, nested);
  CmWifiLink link;
  cm_nl80211_parse_station(station.data.data(), station.data.size(), kSeq, link, error);
  EXPECT_FALSE(link.haveSignal);
  Bytes rateOnly, info;  // a station that reports a rate but no signal at all
  rateOnly.attr(NL80211_STA_INFO_TX_BITRATE, Bytes().attr<uint32_t>(NL80211_RATE_INFO_BITRATE32, 10));
  info.attr(NL80211_ATTR_STA_INFO, rateOnly);
  const Bytes quiet = genl_message(kFamily, kSeq, NL80211_CMD_NEW_STATION, info).append(nl_done(kSeq));
  CmWifiLink silent;
  EXPECT_EQ(CmNlStatus::kDone, cm_nl80211_parse_station(quiet.data.data(), quiet.data.size(), kSeq, silent, error));
  EXPECT_FALSE(silent.haveSignal);
}

}  // namespace
