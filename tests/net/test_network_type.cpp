// Link type names, Wi-Fi conversions, and network type detection on captured and
// hand-made sysfs trees.

#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "cmutil/net/CmNetworkType.h"
#include "common/CmFsTree.h"
#include "common/CmTraceCapture.h"
#include "net/CmNetTextParsers.h"

namespace {

// A default IPv4 route through dev, metric 0.
CmFsTree::Files route_via(const std::string& dev) {
  return {{"/proc/net/route", "Iface\tDestination\tGateway\tFlags\tRefCnt\tUse\tMetric\tMask\tMTU\tWindow\tIRTT\n" +
                                  dev + "\t00000000\t0101A8C0\t0003\t0\t0\t0\t00000000\t0\t0\t0\n"}};
}

CmFsTree::Files link(const std::string& name, const std::string& type, const std::string& devtype,
                     const std::string& state = "up") {
  return {{"/sys/class/net/" + name + "/type", type + "\n"},
          {"/sys/class/net/" + name + "/operstate", state + "\n"},
          {"/sys/class/net/" + name + "/flags", "0x1003\n"},
          {"/sys/class/net/" + name + "/uevent",
           "INTERFACE=" + name + (devtype.empty() ? "" : "\nDEVTYPE=" + devtype) + "\n"}};
}

CmFsTree::Files operator+(CmFsTree::Files a, const CmFsTree::Files& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

TEST(NetworkType, DetectionFromTheDefaultRouteInterface) {
  // name, files, network type, VPN connected, VPN split tunnel
  const std::tuple<const char*, CmFsTree::Files, kel::eNetworkStatus, bool, bool> cases[] = {
      {"wired", link("eth0", "1", "") + route_via("eth0"), kel::NetworkWired, false, false},
      {"wifi with a split tunnel",
       link("wlan0", "1", "wlan") + link("wg0", "65534", "wireguard", "unknown") + route_via("wlan0"), kel::NetworkWifi,
       true, true},
      {"full tunnel",
       link("tun0", "65534", "") + CmFsTree::Files{{"/sys/class/net/tun0/tun_flags", "0x1001\n"}} + route_via("tun0"),
       kel::NetworkNotDetected, true, false},
      {"cellular modem", link("wwan0", "519", "") + route_via("wwan0"), kel::NetworkCellular, false, false},
      {"bridge over wifi",
       link("br0", "1", "bridge") + link("wlp2s0", "1", "") +
           CmFsTree::Files{{"/sys/class/net/br0/brif/wlp2s0", ""}, {"/sys/class/net/wlp2s0/wireless/x", ""}} +
           route_via("br0"),
       kel::NetworkWifi, false, false},
      {"vlan over nothing known", link("eth0.5", "1", "vlan") + route_via("eth0.5"), kel::NetworkWired, false, false},
      {"route down", link("eth0", "1", "", "down") + route_via("eth0"), kel::NetworkNotDetected, false, false},
      {"no route", link("eth0", "1", ""), kel::NetworkNotDetected, false, false},
  };
  for (const auto& [name, files, type, vpn, split] : cases) {
    CmFsTree tree(files);
    CmTraceCapture capture;
    const kel::_NetworkTypeInfo info = DetectNetWork(), stored = getNetworkStatus();
    EXPECT_EQ(std::make_tuple(type, vpn, split, type),
              std::make_tuple(info.networkType, info.isVPNConnected, info.isVPNSplitTunneling, stored.networkType))
        << name;
    EXPECT_TRUE(capture.contains(2, "DetectNetWorkApple: networkType: " + std::to_string(type) + ", isVPNConnected:" +
                                        std::to_string(vpn) + ", isVPNSplitTunneling:" + std::to_string(split)));
  }
}

TEST(NetworkType, CapturedVmIsWiredThroughEth0) {
  CmFixtureRoot root("vm-debian12-kvm-2c", "net");
  CmTraceCapture capture;
  EXPECT_EQ(kel::NetworkWired, DetectNetWork().networkType);
  // eth0 carries both default routes (IPv4 and IPv6): it is asked once.
  EXPECT_EQ(1u, capture.count("DetectNetWorkApple: network interfaceType is 3"));
  WifiStats stats;
  EXPECT_EQ(-1, GetWifiStats(stats));  // wired: the record stays untouched
  EXPECT_EQ("NotDetected", stats.ssid);
  EXPECT_EQ(CM_ERROR_GENERIC, GetWifiStatsP(stats));
  EXPECT_EQ("NotDetected", GetWiFiSSID());
}

TEST(NetworkType, WifiStatsFromTheWirelessTable) {
  const std::string table =
      "Inter-| sta-|   Quality        |   Discarded packets\n face | tus | link level noise |  nwid\n"
      " wlan0: 0000   54.  -56.  -95.       0      0      0\n";
  setNetworkStatus({kel::NetworkWifi2, false, false});
  {
    CmFsTree tree(link("wlan0", "1", "wlan") + CmFsTree::Files{{"/proc/net/wireless", table}});
    WifiStats stats;
    ASSERT_EQ(CM_OK, GetWifiStats(stats));
    EXPECT_EQ(std::make_tuple(-56, -95, 88, 39, std::string("NotAvailable")),
              std::make_tuple(stats.rssi, stats.noise, stats.strength, stats.snr, stats.ssid));
  }
  {
    CmFsTree tree(link("wlan0", "1", "wlan") + CmFsTree::Files{{"/sys/class/net/wlan0/flags", "0x1002\n"}});
    CmTraceCapture capture;
    WifiStats stats;
    EXPECT_EQ(CM_ERROR_GENERIC, GetWifiStats(stats));  // radio off
    EXPECT_TRUE(capture.contains(3, "GetWifiStats: Get wifi stats failed"));
  }
  setNetworkStatus({kel::NetworkNotDetected, false, false});
  int rssi = 0, noise = 0;
  EXPECT_TRUE(
      cm_parse_proc_wireless(" wlan0: 0000 54. 200  -256.\n", "wlan0", rssi, noise));  // old byte encoding, not updated
  EXPECT_EQ(std::make_pair(-56, 0), std::make_pair(rssi, noise));
  EXPECT_FALSE(cm_parse_proc_wireless("wlan0: 1 2\n", "wlan0", rssi, noise));
}

// Each conversion on both sides of its edges (2484 MHz reads as channel 15 by design).
TEST(NetworkType, WifiConversionsAndNamesAtTheirEdges) {
  const int channels[][2] = {{2411, 0}, {2412, 1},  {2472, 13}, {2484, 15},  {2485, 0},
                             {5169, 0}, {5170, 34}, {5180, 36}, {5825, 165}, {5826, 0}};
  for (const auto& c : channels) EXPECT_EQ(c[1], ConvertFrequencyToChannel(c[0])) << c[0];
  const int strengths[][2] = {{-100, 0}, {-99, 2}, {-75, 50}, {-51, 98}, {-50, 100}, {-1, 100}, {0, 0}};
  for (const auto& s : strengths) EXPECT_EQ(s[1], ConvertRssiToStrength(s[0])) << s[0];
  EXPECT_TRUE(CalculateSnr(-40, 0) == 0 && CalculateSnr(0, -90) == 0);
  const std::pair<CWPHYMode, eWifiPhyMode> modes[] = {
      {0, WifiPhyModeUnknown}, {1, WifiPhyMode11a}, {5, WifiPhyMode11ac}, {6, WifiPhyModeUnknown}};
  for (const auto& m : modes) EXPECT_EQ(m.second, ConvertCWPHYModeToWifiPHYMode(m.first)) << m.first;
  const std::pair<int, const char*> phyNames[] = {{0, "Unknown"}, {1, "802.11a"}, {6, "802.11"}, {7, "Unknown"}};
  for (const auto& n : phyNames) EXPECT_EQ(n.second, WifiPhyModeToString(static_cast<eWifiPhyMode>(n.first)));
  const std::pair<int, const char*> typeNames[] = {{0, "NotDetected"}, {1, "Wifi"}, {13, "Wifi"}, {14, "NotDetected"}};
  for (const auto& n : typeNames) EXPECT_EQ(n.second, NetWorkTypeToString(static_cast<kel::eNetworkStatus>(n.first)));
  const eWifiChFrequency none = WifiChFrequencyUnknown, low = WifiChFrequency2_4GHz, high = WifiChFrequency5GHz;
  const std::pair<int, eWifiChFrequency> bands[] = {{2411, none}, {2412, low},  {2484, low},  {2485, none},
                                                    {4914, none}, {4915, high}, {5825, high}, {5826, none}};
  for (const auto& b : bands) EXPECT_EQ(b.second, CheckWifiChannelBand(b.first)) << b.first;
}

}  // namespace
