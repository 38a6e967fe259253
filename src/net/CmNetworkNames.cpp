// Names of link types and Wi-Fi properties, Wi-Fi radio conversions and the process-wide
// status record.

#include <algorithm>
#include <cctype>

#include "cmutil/net/CmNetworkType.h"

kel::_NetworkTypeInfo g_localNetworkStatus = {kel::NetworkNotDetected, false, false};

void setNetworkStatus(kel::_NetworkTypeInfo status) { g_localNetworkStatus = status; }

kel::_NetworkTypeInfo getNetworkStatus() { return g_localNetworkStatus; }

kel::_NetworkTypeInfo DetectNetWork() {
  g_localNetworkStatus = DetectNetWorkApple();
  return g_localNetworkStatus;
}

kel::_NetworkTypeInfo DetectNetWorkApple() { return DetectNetWorkLinux(); }

std::string NetWorkTypeToString(kel::eNetworkStatus type) {
  static const char* const kNames[] = {"Wifi", "3G",    "Edge", "2G",   "BlueTooth", "Modem", "PPP",
                                       "WWAN", "Wired", "LTE",  "3.5G", "5G",        "Wifi"};
  const int index = static_cast<int>(type) - 1;
  return index >= 0 && index < 13 ? kNames[index] : "NotDetected";
}

std::string WifiPhyModeToString(eWifiPhyMode mode) {
  static const char* const kNames[] = {"802.11a", "802.11b", "802.11g", "802.11n", "802.11ac", "802.11"};
  const int index = static_cast<int>(mode) - 1;
  return index >= 0 && index < 6 ? kNames[index] : "Unknown";
}

std::string WifiChannelFrequencyToString(eWifiChFrequency band) {
  switch (band) {
    case WifiChFrequency2_4GHz:
      return "2.4GHz";
    case WifiChFrequency5GHz:
      return "5GHz";
    case WifiChFrequencyUnknown:
      return "Unknown";
    default:
      return "NotDetected";
  }
}

int ConvertFrequencyToChannel(int f) {
  // 2484 MHz (Japan's channel 14) reads as 15 by this formula; callers rely on it.
  if (f >= 2412 && f < 2485) return (f - 2412) / 5 + 1;
  if (f >= 5170 && f < 5826) return (f - 5170) / 5 + 34;
  return 0;
}

int ConvertRssiToStrength(int rssi) {
  if (rssi <= -100 || rssi >= 0) return 0;
  if (rssi >= -50) return 100;
  return 2 * (rssi + 100);
}

int CalculateSnr(int rssi, int noise) { return rssi == 0 || noise == 0 ? 0 : rssi - noise; }

eWifiChFrequency CheckWifiChannelBand(int f) {
  if (f >= 2412 && f <= 2484) return WifiChFrequency2_4GHz;
  if (f >= 4915 && f < 5826) return WifiChFrequency5GHz;
  return WifiChFrequencyUnknown;
}

eWifiChFrequency ConvertCWChannelBandToWifiChFrequency(const CWChannelBand& band) {
  if (band == 0) return WifiChFrequencyUnknown;
  if (band == 1) return WifiChFrequency2_4GHz;
  if (band == 2) return WifiChFrequency5GHz;
  return WifiChFrequencyNotDetected;
}

eWifiPhyMode ConvertCWPHYModeToWifiPHYMode(const CWPHYMode& mode) {
  return mode >= 1 && mode <= 5 ? static_cast<eWifiPhyMode>(mode) : WifiPhyModeUnknown;
}

bool IsVPNInterface(const std::string& name) {
  std::string lower(name);
  std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
  return lower.compare(0, 4, "utun") == 0 || lower.compare(0, 3, "tun") == 0 || lower.compare(0, 2, "wg") == 0;
}
