#pragma once
// What kind of link an interface is, from its sysfs facts.

#include <string>

enum class CmLinkKind { kNone, kWifi, kCellular, kVpn, kWired };

/// Kind of the interface: none (missing, loopback or down), Wi-Fi, cellular, VPN
/// (tunnels, WireGuard, PPP), or wired; bridges, VLANs and bonds take their first
/// lower interface's kind.
CmLinkKind cm_classify_link(const std::string& name);

/// The Wi-Fi interface to report: the default route's when it is Wi-Fi, else the first
/// Wi-Fi interface by name; "" when there is none.
std::string cm_first_wifi_interface();
