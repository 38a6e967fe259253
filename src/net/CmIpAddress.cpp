// IP address text utilities.

#include "cmutil/net/CmIpAddress.h"

#include <arpa/inet.h>
#include <net/if.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

#include "cmutil/trace/CmTraceMacros.h"
#include "platform/CmNetPlatform.h"

unsigned int cm_ipv4_enabled = 0xffffffffu;
unsigned int cm_ipv6_enabled = 0xffffffffu;

namespace {

constexpr size_t kTransportAddressMax = 64;
char g_local_ip[INET6_ADDRSTRLEN] = "";

// Address text of a socket address: IPv6 up to 46 characters, IPv4 up to 16; false
// for any other family.
bool address_text(const sockaddr_storage& address, char* out) {
  if (address.ss_family == AF_INET6)
    return inet_ntop(AF_INET6, &reinterpret_cast<const sockaddr_in6&>(address).sin6_addr, out, 46) != nullptr;
  if (address.ss_family == AF_INET)
    return inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in&>(address).sin_addr, out, 16) != nullptr;
  return false;
}

void copy_cut(char* out, int size, const char* text, size_t length) {
  const size_t room = static_cast<size_t>(size - 1);
  const size_t n = std::min(length, room);
  std::memcpy(out, text, n);
  out[n] = '\0';
}

int hex_digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// IPv6 text of hex groups and at most one "::" (the common form) without the C
// library's general parser; anything else (an IPv4 tail) is left to inet_pton. Accepts
// and refuses exactly what inet_pton does for these forms.
bool parse_ipv6(const char* p, unsigned char* out) {
  if (std::strchr(p, '.')) return inet_pton(AF_INET6, p, out) == 1;
  uint16_t words[8];
  int count = 0, gap = -1;
  if (*p == ':') {
    if (p[1] != ':') return false;
    p += 2;
    gap = 0;
  }
  while (*p) {
    int value = 0, digits = 0;
    for (int d; (d = hex_digit(*p)) >= 0; ++p) {
      if (++digits > 4) return false;
      value = value * 16 + d;
    }
    if (digits == 0 || count == 8) return false;
    words[count++] = static_cast<uint16_t>(value);
    if (*p == '\0') break;
    if (*p != ':') return false;
    if (*++p == ':') {
      if (gap >= 0) return false;
      gap = count;
      ++p;
    } else if (*p == '\0') {
      return false;  // a single trailing colon
    }
  }
  if (gap < 0 ? count != 8 : count > 7) return false;
  const int zeros = 8 - count;
  for (int i = 0, w = 0; i < 8; ++i) {
    const uint16_t word = (gap >= 0 && i >= gap && i < gap + zeros) ? 0 : words[w++];
    out[2 * i] = static_cast<unsigned char>(word >> 8);
    out[2 * i + 1] = static_cast<unsigned char>(word & 0xff);
  }
  return true;
}

bool parse_address(int family, const std::string& text, unsigned char* out) {
  return family == AF_INET6 ? parse_ipv6(text.c_str(), out) : inet_pton(AF_INET, text.c_str(), out) == 1;
}

template <size_t N>
bool same_prefix(int family, const std::string& ip1, const std::string& ip2, const std::string& mask) {
  unsigned char a[N], b[N], m[N];
  if (!parse_address(family, ip1, a) || !parse_address(family, ip2, b) || !parse_address(family, mask, m)) {
    CM_DETAIL_TRACE((family == AF_INET ? "isSamePrefixIPv4, Invalid IPv4" : "isSamePrefixIPv6, Invalid IPv6")
                    << " address or mask, ip1 = " << ip1.c_str() << ", ip2 = " << ip2.c_str()
                    << ", mask = " << mask.c_str());
    return false;
  }
  for (size_t i = 0; i < N; ++i)
    if ((a[i] ^ b[i]) & m[i]) return false;
  return true;
}

}  // namespace

bool isIPv4(const std::string& text) {
  in_addr address;
  return inet_pton(AF_INET, text.c_str(), &address) == 1;
}

bool isIPv6(const std::string& text) {
  unsigned char address[16];
  return parse_ipv6(text.c_str(), address);
}

int is_ip_address(const char* text) {
  if (!text) {
    CM_ERROR_TRACE("is_ip_address: ip string is null");
    return 0;
  }
  for (const char* p = text; *p; ++p)
    if (!((*p >= '0' && *p <= '9') || *p == '.' || *p == ' ' || *p == '\t')) return 0;
  return 1;
}

int resolve_2_ip(const char* name, char* out) {
  if (!name || !out) {
    CM_ERROR_TRACE("resolve_2_ip: No host_name: " << (name ? name : "(null)")
                                                  << "; or ip_address: " << (out ? "buffer" : "(null)") << "; given");
    return -1;
  }
  sockaddr_storage address = {};
  if (!cm_net_resolve_first(name, address)) {
    CM_ERROR_TRACE("resolve_2_ip: can't resolve host_name: " << name);
    return -1;
  }
  char text[INET6_ADDRSTRLEN] = {};
  if (!address_text(address, text)) return -1;
  std::strcpy(out, text);
  return 0;
}

unsigned long ip_2_id(const char* text) {
  char resolved[128] = {};
  const char* dotted = text;
  if (!text) return 0;
  if (!is_ip_address(text)) {
    resolve_2_ip(text, resolved);
    dotted = resolved;
  }
  if (!*dotted) return 0;
  int a = 0, b = 0, c = 0, d = 0;
  std::sscanf(dotted, "%d.%d.%d.%d", &a, &b, &c, &d);
  return (static_cast<uint32_t>(a) << 24) + (static_cast<uint32_t>(b) << 16) + (static_cast<uint32_t>(c) << 8) +
         static_cast<uint32_t>(d);
}

const char* id_2_ip(unsigned long id) {
  static char text[64];
  std::snprintf(text, sizeof text, "%d.%d.%d.%d", static_cast<int>((id >> 24) & 0xff),
                static_cast<int>((id >> 16) & 0xff), static_cast<int>((id >> 8) & 0xff), static_cast<int>(id & 0xff));
  return text;
}

const char* get_local_ip() {
  if (g_local_ip[0]) return g_local_ip;
  std::strcpy(g_local_ip, "0.0.0.0");
  char host[256] = {};
  if (!cm_net_host_name(host, sizeof host)) return g_local_ip;
  sockaddr_storage address = {};
  char text[INET6_ADDRSTRLEN] = {};
  if (cm_net_resolve_first(host, address) && address_text(address, text)) std::strcpy(g_local_ip, text);
  return g_local_ip;
}

int transport_address_parse(const char* address, char* protocol, int protocol_size, char* ip, int ip_size,
                            unsigned short& port) {
  if (!address || !protocol || !ip || protocol_size < 1 || ip_size < 1) return 0;
  const std::string text(address);
  if (text.size() > kTransportAddressMax) return 0;
  const size_t scheme = text.find("://");
  if (scheme == std::string::npos) return 0;
  const size_t hostStart = scheme + 3;
  const size_t colon = text.find(':', hostStart);
  if (colon == std::string::npos) return 0;
  copy_cut(protocol, protocol_size, text.c_str(), scheme);
  const std::string host = text.substr(hostStart, colon - hostStart);
  char resolved[128] = {};
  const char* hostIp = host.c_str();
  if (!is_ip_address(hostIp)) {
    resolve_2_ip(hostIp, resolved);
    if (!resolved[0]) return 0;
    hostIp = resolved;
  }
  copy_cut(ip, ip_size, hostIp, std::strlen(hostIp));
  const std::string portText = text.substr(colon + 1);
  if (portText.empty()) return 0;
  int value = 0;
  std::sscanf(portText.c_str(), "%d", &value);
  port = static_cast<unsigned short>(value);
  return 1;
}

std::string ExpandIPv6Address(const std::string& text) {
  // Groups are the pieces between ":" separators; a trailing separator adds none.
  size_t groups = 0;
  for (size_t i = 0; i < text.size(); ++i)
    if (text[i] == ':') ++groups;
  if (!text.empty() && text.back() != ':') ++groups;
  const size_t fill = groups < 9 ? 9 - groups : 0;
  std::string out;
  out.reserve(5 * (groups + fill * groups));
  size_t start = 0;
  for (size_t g = 0; g < groups; ++g) {
    size_t end = text.find(':', start);
    if (end == std::string::npos) end = text.size();
    const size_t length = end - start;
    if (length == 0) {
      // The missing groups, once for every empty one.
      for (size_t i = 0; i < fill; ++i) out.append("0000:", 5);
    } else {
      if (length < 4) out.append(4 - length, '0');
      out.append(text, start, length);
      out += ':';
    }
    start = end + 1;
  }
  if (!out.empty()) out.pop_back();
  return out;
}

bool isSamePrefixIPv4(const std::string& ip1, const std::string& ip2, const std::string& mask) {
  return same_prefix<4>(AF_INET, ip1, ip2, mask);
}

bool isSamePrefixIPv6(const std::string& ip1, const std::string& ip2, const std::string& mask) {
  return same_prefix<16>(AF_INET6, ip1, ip2, mask);
}

bool isPureIp6() {
  std::vector<CmIfAddress> list;
  if (!cm_net_list_addresses(list) || list.empty()) return false;
  bool usable6 = false, usable4 = false;
  for (const CmIfAddress& entry : list) {
    if (!(entry.flags & IFF_UP)) continue;
    char text[INET6_ADDRSTRLEN] = {};
    if (!address_text(entry.address, text)) continue;
    CM_DETAIL_TRACE("isPureIp6(), IP Address = " << entry.name.c_str() << ", " << text
                                                 << ", sa_family=" << entry.address.ss_family);
    const std::string address(text);
    if (entry.address.ss_family == AF_INET6) {
      if (address.compare(0, 5, "fe80:") != 0 && address != "::1") usable6 = true;
    } else if (address.compare(0, 8, "169.254.") != 0 && address.compare(0, 9, "127.0.0.1") != 0) {
      usable4 = true;
    }
  }
  return usable6 && !usable4;
}

unsigned int ip_check(unsigned int* cache, int family) {
  if (*cache != 0xffffffffu) return *cache;
  *cache = cm_net_family_available(family) ? 1 : 0;
  return *cache;
}

unsigned int ipv4_enabled() { return ip_check(&cm_ipv4_enabled, AF_INET); }

unsigned int ipv6_enabled() { return ip_check(&cm_ipv6_enabled, AF_INET6); }
