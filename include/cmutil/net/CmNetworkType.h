#pragma once
/// Network type and Wi-Fi facts: the process-wide link status (type and VPN state), its
/// detection from the default route's interface, names of link types and Wi-Fi
/// properties, conversions of Wi-Fi radio figures, and the current Wi-Fi statistics.
///
/// The process-wide record is written without a lock; detect it from one thread (or
/// store it with setNetworkStatus) before others read it.

#include <string>

#include "cmutil/base/CmError.h"
#include "cmutil/base/CmExport.h"

namespace kel {

/// Link types. 14 is the cellular kind found by detection (no name of its own); 255
/// means detection gave no answer.
enum eNetworkStatus {
  NetworkNotDetected = 0,
  NetworkWifi = 1,
  Network3G = 2,
  NetworkEdge = 3,
  Network2G = 4,
  NetworkBlueTooth = 5,
  NetworkModem = 6,
  NetworkPPP = 7,
  NetworkWWAN = 8,
  NetworkWired = 9,
  NetworkLTE = 10,
  Network3_5G = 11,
  Network5G = 12,
  NetworkWifi2 = 13,
  NetworkCellular = 14,
  NetworkUnknown = 255,
};

struct _NetworkTypeInfo {
  eNetworkStatus networkType;
  bool isVPNConnected;
  bool isVPNSplitTunneling;
};

}  // namespace kel

enum eWifiPhyMode {
  WifiPhyMode11a = 1,
  WifiPhyMode11b = 2,
  WifiPhyMode11g = 3,
  WifiPhyMode11n = 4,
  WifiPhyMode11ac = 5,
  WifiPhyMode11 = 6,
  WifiPhyModeUnknown = 255,
};

enum eWifiChFrequency {
  WifiChFrequencyNotDetected = 0,
  WifiChFrequency2_4GHz = 1,
  WifiChFrequency5GHz = 2,
  WifiChFrequencyUnknown = 255,
};

/// Wi-Fi radio numbering: bands 0 unknown, 1 2.4 GHz, 2 5 GHz, 3 6 GHz; PHY modes 1 a,
/// 2 b, 3 g, 4 n, 5 ac, 6 ax, 7 be.
typedef long CWChannelBand;
typedef long CWPHYMode;

struct CM_EXPORT WifiStats {
  int noise = 0;     ///< dBm
  int rssi = 0;      ///< dBm
  int txRate = 0;    ///< Mbit/s, truncated
  int strength = 0;  ///< 0-100
  int snr = 0;       ///< dB
  int channel = 0;
  eWifiPhyMode phyMode = WifiPhyModeUnknown;
  eWifiChFrequency band = WifiChFrequencyNotDetected;
  std::string ssid = "NotDetected";  ///< "NotAvailable" when the radio reports none
};

/// The process-wide status record (all zeros until set or detected).
CM_EXPORT extern kel::_NetworkTypeInfo g_localNetworkStatus;

CM_EXPORT void setNetworkStatus(kel::_NetworkTypeInfo status);
CM_EXPORT kel::_NetworkTypeInfo getNetworkStatus();

/// Detects the status, stores it as the process-wide record and returns it.
CM_EXPORT kel::_NetworkTypeInfo DetectNetWork();
/// The detection behind DetectNetWork (kept under its historical name).
CM_EXPORT kel::_NetworkTypeInfo DetectNetWorkApple();
/// Detection from the default route's interface and its sysfs facts: wired 9, Wi-Fi 1,
/// cellular 14 in that precedence; VPN interfaces set the VPN flags.
CM_EXPORT kel::_NetworkTypeInfo DetectNetWorkLinux();

CM_EXPORT std::string NetWorkTypeToString(kel::eNetworkStatus type);
CM_EXPORT std::string WifiPhyModeToString(eWifiPhyMode mode);
CM_EXPORT std::string WifiChannelFrequencyToString(eWifiChFrequency band);

/// Channel number of a frequency in MHz, 0 outside the 2.4 and 5 GHz ranges.
CM_EXPORT int ConvertFrequencyToChannel(int frequency_mhz);
/// RSSI in dBm to a 0-100 strength.
CM_EXPORT int ConvertRssiToStrength(int rssi);
/// rssi - noise, or 0 when either is 0.
CM_EXPORT int CalculateSnr(int rssi, int noise);
/// Band of a frequency in MHz (the 5 GHz test starts at 4915).
CM_EXPORT eWifiChFrequency CheckWifiChannelBand(int frequency_mhz);
CM_EXPORT eWifiChFrequency ConvertCWChannelBandToWifiChFrequency(const CWChannelBand& band);
CM_EXPORT eWifiPhyMode ConvertCWPHYModeToWifiPHYMode(const CWPHYMode& mode);

/// True for tunnel interface names: "utun..." (any case), and Linux "tun..." and "wg...".
CM_EXPORT bool IsVPNInterface(const std::string& name);

/// Current Wi-Fi statistics; -1 (record untouched) unless the process-wide type is Wi-Fi.
CM_EXPORT CmResult GetWifiStats(WifiStats& stats);
/// The raw reader behind GetWifiStats: 0x46000001 when there is no Wi-Fi interface or
/// it is down.
CM_EXPORT CmResult GetWifiStatsP(WifiStats& stats);
/// SSID of the current Wi-Fi network, "NotDetected" when unknown.
CM_EXPORT std::string GetWiFiSSID();
CM_EXPORT std::string DetectedSSID();
