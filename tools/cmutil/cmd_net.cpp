// net: this host's addresses (with IPv6 kinds and lifetimes), the pruned candidates,
// the network type, the primary address and Wi-Fi figures. ip: the address utilities.

#include <arpa/inet.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include "CmCommand.h"
#include "cmutil/config/CmJson.h"
#include "cmutil/net/CmIpAddress.h"
#include "cmutil/net/CmLocalAddress.h"
#include "cmutil/net/CmNetworkType.h"
#include "cmutil/net/CmPrimaryAddress.h"

namespace {

const char kNetUsage[] =
    "net [--json]\n  prints local addresses, the pruned candidates, network type, primary address and Wi-Fi";
const char kIpUsage[] =
    "ip expand <ipv6> | prefix <ip1> <ip2> <mask> | id <a.b.c.d|number>\n  the address utilities: IPv6 expansion, "
    "prefix comparison, address to identifier and back";

std::string address_text(const local_addr_t* node) {
  char text[INET6_ADDRSTRLEN] = {};
  if (node->addr.sin6_family == AF_INET6)
    inet_ntop(AF_INET6, &node->addr.sin6_addr, text, sizeof text);
  else
    inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in*>(&node->addr)->sin_addr, text, sizeof text);
  return text;
}

const char* kind_name(const local_addr_t* node) {
  if (node->addr.sin6_family != AF_INET6) return "ipv4";
  switch (node->flag) {
    case kLocalAddrAutoconf:
      return "autoconf";
    case kLocalAddrTemporary:
      return "temporary";
    case kLocalAddrDhcp:
      return "dhcpv6";
    case kLocalAddrManual:
      return "manual";
    default:
      return "other";
  }
}

std::string lifetime_text(const local_addr_t* node) {
  if (node->addr.sin6_family != AF_INET6) return "-";
  if (node->expire == 0) return "never";
  char text[32];
  const time_t when = static_cast<time_t>(node->expire);
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", std::gmtime(&when));
  return text;
}

json::Array address_list(const local_addr_t* list, bool print, const char* title) {
  json::Array out;
  if (print) std::printf("%s\n", title);
  for (; list; list = list->next) {
    json::Object entry;
    entry["address"] = address_text(list);
    entry["interface"] = list->ifname;
    entry["kind"] = kind_name(list);
    entry["preferred_until"] = lifetime_text(list);
    if (print)
      std::printf("  %-40s %-10s %-10s %s\n", address_text(list).c_str(), list->ifname, kind_name(list),
                  lifetime_text(list).c_str());
    out.push_back(entry);
  }
  if (print && out.size() == 0) std::printf("  none\n");
  return out;
}

int net_command(int argc, char** argv) {
  const bool asJson = argc == 2 && std::strcmp(argv[1], "--json") == 0;
  if (argc > 2 || (argc == 2 && !asJson)) {
    std::fprintf(stderr, "usage: cmutil %s\n", kNetUsage);
    return 2;
  }
  const bool print = !asJson;
  json::Object root;
  local_addr_t* list = nullptr;
  get_local_addr(&list);
  root["addresses"] = address_list(list, print, "local addresses");
  bool xlatRemoved = false;
  prune_local_addr(&list, nullptr, &xlatRemoved);
  root["candidates"] = address_list(list, print, "candidates (pruned)");
  free_local_addr(list);

  const kel::_NetworkTypeInfo status = DetectNetWork();
  std::string primary;
  const bool havePrimary = getPrimaryIp(nullptr, primary) == 0;
  const std::string primaryInterface = havePrimary ? getIFNameForPrimaryIP() : std::string();
  json::Object network;
  network["type"] = NetWorkTypeToString(status.networkType);
  network["vpn"] = status.isVPNConnected;
  network["vpn_split_tunnel"] = status.isVPNSplitTunneling;
  network["primary_address"] = havePrimary ? primary : std::string();
  network["primary_interface"] = primaryInterface;
  network["ipv4"] = ipv4_enabled() == 1;
  network["ipv6"] = ipv6_enabled() == 1;
  network["ipv6_only"] = isPureIp6();
  root["network"] = network;
  if (print) {
    std::printf("network\n  type        %s%s%s\n", NetWorkTypeToString(status.networkType).c_str(),
                status.isVPNConnected ? ", VPN" : "", status.isVPNSplitTunneling ? " (split tunnel)" : "");
    std::printf("  primary     %s%s%s\n", havePrimary ? primary.c_str() : "none", havePrimary ? " on " : "",
                primaryInterface.c_str());
    std::printf("  families    IPv4 %s, IPv6 %s%s\n", ipv4_enabled() ? "yes" : "no", ipv6_enabled() ? "yes" : "no",
                isPureIp6() ? " (IPv6 only)" : "");
  }
  WifiStats wifi;
  if (GetWifiStats(wifi) == CM_OK) {
    json::Object w;
    w["ssid"] = wifi.ssid;
    w["rssi_dbm"] = wifi.rssi;
    w["noise_dbm"] = wifi.noise;
    w["strength"] = wifi.strength;
    w["snr_db"] = wifi.snr;
    root["wifi"] = w;
    if (print)
      std::printf("wifi\n  ssid %s, rssi %d dBm, noise %d dBm, strength %d, snr %d dB\n", wifi.ssid.c_str(), wifi.rssi,
                  wifi.noise, wifi.strength, wifi.snr);
  }
  if (asJson) std::printf("%s\n", json::Serialize(root).c_str());
  return 0;
}

int ip_usage() {
  std::fprintf(stderr, "usage: cmutil %s\n", kIpUsage);
  return 2;
}

int ip_command(int argc, char** argv) {
  if (argc < 2) return ip_usage();
  const std::string action = argv[1];
  if (action == "expand" && argc == 3) {
    if (!isIPv6(argv[2])) {
      std::fprintf(stderr, "cmutil: %s: not an IPv6 address\n", argv[2]);
      return 1;
    }
    std::printf("%s\n", ExpandIPv6Address(argv[2]).c_str());
    return 0;
  }
  if (action == "prefix" && argc == 5) {
    const bool v6 = isIPv6(argv[2]);
    if (!(v6 ? isIPv6(argv[3]) && isIPv6(argv[4]) : isIPv4(argv[2]) && isIPv4(argv[3]) && isIPv4(argv[4]))) {
      std::fprintf(stderr, "cmutil: %s %s %s: not three addresses of one family\n", argv[2], argv[3], argv[4]);
      return 1;
    }
    const bool same = v6 ? isSamePrefixIPv6(argv[2], argv[3], argv[4]) : isSamePrefixIPv4(argv[2], argv[3], argv[4]);
    std::printf("%s\n", same ? "same prefix" : "different prefix");
    return 0;
  }
  if (action == "id" && argc == 3) {
    const std::string value = argv[2];
    if (!value.empty() && value.find_first_not_of("0123456789") == std::string::npos) {
      std::printf("%s\n", id_2_ip(std::strtoul(value.c_str(), nullptr, 10)));
      return 0;
    }
    if (!isIPv4(value)) {
      std::fprintf(stderr, "cmutil: %s: not a dotted IPv4 address or a number\n", argv[2]);
      return 1;
    }
    std::printf("%lu\n", ip_2_id(argv[2]));
    return 0;
  }
  return ip_usage();
}

}  // namespace

CMUTIL_REGISTER_COMMAND("net", kNetUsage, net_command);
CMUTIL_REGISTER_COMMAND("ip", kIpUsage, ip_command);
