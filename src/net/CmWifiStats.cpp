// Wi-Fi statistics of the current Wi-Fi interface from /proc/net/wireless.

#include <string>

#include "cmutil/net/CmNetworkType.h"
#include "cmutil/trace/CmTraceMacros.h"
#include "net/CmNetLinkKind.h"
#include "net/CmNetTextParsers.h"
#include "platform/CmFsRoot.h"

namespace {

constexpr unsigned long long kInterfaceUp = 0x1;

// The radio counts as powered when its interface is administratively up.
bool powered(const std::string& name) {
  unsigned long long flags = 0;
  return cm_read_fs_u64(("/sys/class/net/" + name + "/flags").c_str(), flags) && (flags & kInterfaceUp);
}

}  // namespace

CmResult GetWifiStatsP(WifiStats& stats) {
  const std::string name = cm_first_wifi_interface();
  if (name.empty() || !powered(name)) return CM_ERROR_GENERIC;
  // The network name, channel, rate and PHY mode come from the radio's own interface;
  // the wireless table gives signal and noise only.
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
