// Network type detection: the interfaces of the default routes, classified by their
// sysfs facts (Wi-Fi, cellular, VPN, bridge/VLAN/bond lowers, wired).

#include <arpa/inet.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "cmutil/net/CmNetworkType.h"
#include "cmutil/system/CmSystemInformation.h"
#include "cmutil/trace/CmTraceMacros.h"
#include "net/CmNetLinkKind.h"
#include "net/CmNetTextParsers.h"
#include "net/CmNetlink.h"
#include "platform/CmFsRoot.h"
#include "platform/CmNetlinkPlatform.h"

namespace {

constexpr int kMaxLowerDepth = 4;

std::string net_path(const std::string& name, const char* leaf) { return "/sys/class/net/" + name + "/" + leaf; }

std::string device_type(const std::string& name) {
  std::string uevent;
  if (!cm_read_fs_file(net_path(name, "uevent").c_str(), uevent)) return std::string();
  const size_t at = uevent.find("DEVTYPE=");
  if (at == std::string::npos) return std::string();
  const size_t end = uevent.find('\n', at);
  return uevent.substr(at + 8, end == std::string::npos ? std::string::npos : end - at - 8);
}

// First interface under a bridge (brif/) or a VLAN/bond (lower_<name> links).
std::string first_lower(const std::string& name) {
  std::vector<std::string> entries, lowers;
  if (cm_list_fs_dir(net_path(name, "brif").c_str(), entries)) lowers = entries;
  if (cm_list_fs_dir(("/sys/class/net/" + name).c_str(), entries))
    for (const std::string& entry : entries)
      if (entry.compare(0, 6, "lower_") == 0) lowers.push_back(entry.substr(6));
  if (lowers.empty()) return std::string();
  return *std::min_element(lowers.begin(), lowers.end());
}

bool is_tunnel_type(unsigned long long type) {
  static const unsigned long long kTunnels[] = {512, 65534, 768, 769, 776, 778, 823};
  return std::find(std::begin(kTunnels), std::end(kTunnels), type) != std::end(kTunnels);
}

CmLinkKind classify_at(const std::string& name, int depth) {
  unsigned long long type = 0;
  const bool haveType = cm_read_fs_u64(net_path(name, "type").c_str(), type);
  std::string state;
  cm_read_fs_line(net_path(name, "operstate").c_str(), state);
  if (!haveType && state.empty()) return CmLinkKind::kNone;  // no such interface
  if (type == 772 || state == "down" || state == "lowerlayerdown" || state == "notpresent") return CmLinkKind::kNone;
  const std::string devtype = device_type(name);
  if (devtype == "wlan" || cm_fs_exists(net_path(name, "phy80211").c_str()) ||
      cm_fs_exists(net_path(name, "wireless").c_str()))
    return CmLinkKind::kWifi;
  if (devtype == "wwan" || type == 519) return CmLinkKind::kCellular;
  if (cm_fs_exists(net_path(name, "tun_flags").c_str()) || devtype == "wireguard" || is_tunnel_type(type))
    return CmLinkKind::kVpn;
  if (devtype == "bridge" || devtype == "vlan" || devtype == "bond") {
    const std::string lower = first_lower(name);
    if (!lower.empty() && depth < kMaxLowerDepth) {
      const CmLinkKind kind = classify_at(lower, depth + 1);
      if (kind != CmLinkKind::kNone) return kind;
    }
  }
  return CmLinkKind::kWired;
}

nw_interface_type_t interface_type(CmLinkKind kind) {
  switch (kind) {
    case CmLinkKind::kWifi:
      return nw_interface_type_wifi;
    case CmLinkKind::kCellular:
      return nw_interface_type_cellular;
    case CmLinkKind::kWired:
      return nw_interface_type_wired;
    default:
      return nw_interface_type_other;
  }
}

// The interface the kernel would send to destination through (a route lookup that
// honours policy rules, as VPN clients use); "" when there is no route. False when
// netlink is refused.
bool route_interface(int family, const void* destination, size_t size, std::string& name) {
  std::vector<uint8_t> request(16 + 12 + 4 + size, 0);
  const uint32_t length = static_cast<uint32_t>(request.size());
  const uint16_t type = RTM_GETROUTE, flags = NLM_F_REQUEST, attributeLength = static_cast<uint16_t>(4 + size),
                 attribute = RTA_DST;
  std::memcpy(&request[0], &length, 4);
  std::memcpy(&request[4], &type, 2);
  std::memcpy(&request[6], &flags, 2);
  request[16] = static_cast<uint8_t>(family);
  request[17] = static_cast<uint8_t>(size * 8);  // destination prefix length
  std::memcpy(&request[28], &attributeLength, 2);
  std::memcpy(&request[30], &attribute, 2);
  std::memcpy(&request[32], destination, size);
  uint32_t seq = 0, oif = 0;
  int error = 0;
  bool found = false;
  const bool asked = cm_netlink_request(
      NETLINK_ROUTE, request, seq,
      [&](const uint8_t* data, size_t n) {
        found = cm_nl_parse_route_oif(data, n, seq, oif, error);
        return false;
      },
      error);
  if (!asked) return false;
  name = found ? cm_net_if_name(oif) : std::string();
  return true;
}

// Default routes of both families: a kernel route lookup toward a public address of
// each, else the main routing table as /proc shows it.
std::vector<std::string> default_route_interfaces() {
  std::vector<std::string> names;
  in_addr v4 = {};
  in6_addr v6 = {};
  inet_pton(AF_INET, "8.8.8.8", &v4);
  inet_pton(AF_INET6, "2001:4860:4860::8888", &v6);
  std::string name4, name6;
  if (route_interface(AF_INET, &v4, sizeof v4, name4) && route_interface(AF_INET6, &v6, sizeof v6, name6)) {
    for (const std::string& name : {name4, name6})
      if (!name.empty() && name != "lo" && (names.empty() || names[0] != name)) names.push_back(name);
    return names;
  }
  std::string text;
  if (cm_read_fs_file("/proc/net/route", text)) names.push_back(cm_parse_default_route_v4(text));
  if (cm_read_fs_file("/proc/net/ipv6_route", text)) names.push_back(cm_parse_default_route_v6(text));
  names.erase(std::remove(names.begin(), names.end(), std::string()), names.end());
  if (names.size() == 2 && names[0] == names[1]) names.pop_back();
  return names;
}

bool any_vpn_interface() {
  std::vector<std::string> names;
  if (!cm_list_fs_dir("/sys/class/net", names)) return false;
  for (const std::string& name : names)
    if (cm_classify_link(name) == CmLinkKind::kVpn) return true;
  return false;
}

}  // namespace

CmLinkKind cm_classify_link(const std::string& name) { return classify_at(name, 0); }

std::string cm_first_wifi_interface() {
  for (const std::string& name : default_route_interfaces())
    if (cm_classify_link(name) == CmLinkKind::kWifi) return name;
  std::vector<std::string> names;
  if (!cm_list_fs_dir("/sys/class/net", names)) return std::string();
  std::sort(names.begin(), names.end());
  for (const std::string& name : names)
    if (cm_classify_link(name) == CmLinkKind::kWifi) return name;
  return std::string();
}

kel::_NetworkTypeInfo DetectNetWorkLinux() {
  CmSystemInformation information;
  bool wired = false, wifi = false, cellular = false, vpnRoute = false, plainRoute = false;
  for (const std::string& name : default_route_interfaces()) {
    const CmLinkKind kind = cm_classify_link(name);
    nw_interface entry = {};
    name.copy(entry.name, sizeof entry.name - 1);
    entry.type = interface_type(kind);
    const nw_interface_type_t type = information.GetNetworkInterfaceType(&entry);
    CM_INFO_TRACE("DetectNetWorkApple: network interfaceType is " << static_cast<int>(type));
    wired |= type == nw_interface_type_wired;
    wifi |= type == nw_interface_type_wifi;
    cellular |= type == nw_interface_type_cellular;
    if (kind == CmLinkKind::kVpn) vpnRoute = true;
    if (kind != CmLinkKind::kVpn && kind != CmLinkKind::kNone) plainRoute = true;
  }
  kel::_NetworkTypeInfo info = {kel::NetworkNotDetected, false, false};
  info.networkType = wired      ? kel::NetworkWired
                     : wifi     ? kel::NetworkWifi
                     : cellular ? kel::NetworkCellular
                                : info.networkType;
  info.isVPNConnected = vpnRoute || any_vpn_interface();
  // A tunnel is up, yet the default route leaves through a plain interface.
  info.isVPNSplitTunneling = info.isVPNConnected && plainRoute;
  CM_INFO_TRACE("DetectNetWorkApple: networkType: "
                << static_cast<int>(info.networkType) << ", isVPNConnected:" << static_cast<int>(info.isVPNConnected)
                << ", isVPNSplitTunneling:" << static_cast<int>(info.isVPNSplitTunneling));
  return info;
}
