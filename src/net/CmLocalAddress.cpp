// The local address list: interface addresses, with each IPv6 address's kind and the
// end of its preferred lifetime read from the kernel's address table (rtnetlink, or
// /proc/net/if_inet6 where netlink is refused).

#include "cmutil/net/CmLocalAddress.h"

#include <arpa/inet.h>
#include <errno.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "cmutil/trace/CmTraceMacros.h"
#include "net/CmNetTextParsers.h"
#include "net/CmNetlink.h"
#include "platform/CmFsRoot.h"
#include "platform/CmNetPlatform.h"
#include "platform/CmNetlinkPlatform.h"

bool cm_check_manual_IPv6_disabled = false;

void disable_detect_manual_ipv6(bool disable) { cm_check_manual_IPv6_disabled = disable; }

namespace {

constexpr uint32_t kTemporary = 0x01, kPermanent = 0x80, kManageTempAddr = 0x100, kStablePrivacy = 0x800;
constexpr uint8_t kProtoLoopback = 1, kProtoRouterAdvert = 2, kProtoLinkLocal = 3;
constexpr uint32_t kForever = 0xffffffffu;
constexpr unsigned kScopeHost = 0x10, kScopeLink = 0x20;

// What the kernel's address table says about one IPv6 address.
struct V6Detail {
  unsigned char address[16];
  unsigned ifindex = 0;
  std::string ifname;  // set by the /proc fallback, which names interfaces
  uint32_t flags = 0;
  uint8_t proto = 0;
  unsigned prefixLength = 0;
  bool linkScope = false, hostScope = false;
  bool haveLifetime = false;
  uint32_t preferred = 0;
};

struct V6Table {
  bool read = false;
  time_t now = 0;
  std::vector<V6Detail> rows;
};

bool is_link_local(const unsigned char* a) { return a[0] == 0xfe && (a[1] & 0xc0) == 0x80; }

bool read_netlink(V6Table& table) {
  struct Request {
    nlmsghdr header;
    ifaddrmsg body;
  } request = {};
  request.header.nlmsg_len = sizeof request;
  request.header.nlmsg_type = RTM_GETADDR;
  request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  request.body.ifa_family = AF_INET6;
  std::vector<uint8_t> bytes(reinterpret_cast<uint8_t*>(&request),
                             reinterpret_cast<uint8_t*>(&request) + sizeof request);
  uint32_t seq = 0;
  int error = 0;
  CmNlStatus status = CmNlStatus::kMore;
  std::vector<CmNlAddress> addresses;
  const bool asked = cm_netlink_request(
      NETLINK_ROUTE, bytes, seq,
      [&](const uint8_t* data, size_t size) {
        status = cm_nl_parse_address_dump(data, size, seq, addresses, error);
        return status == CmNlStatus::kMore;
      },
      error);
  if (!asked || status != CmNlStatus::kDone) return false;
  for (const CmNlAddress& a : addresses) {
    V6Detail d;
    std::memcpy(d.address, a.address, 16);
    d.ifindex = a.ifindex;
    d.flags = a.flags;
    d.proto = a.proto;
    d.prefixLength = a.prefixLength;
    d.linkScope = a.scope == RT_SCOPE_LINK;
    d.hostScope = a.scope == RT_SCOPE_HOST;
    d.haveLifetime = a.haveCacheInfo;
    d.preferred = a.preferred;
    table.rows.push_back(d);
  }
  return true;
}

bool read_proc(V6Table& table) {
  std::string text;
  if (!cm_read_fs_file("/proc/net/if_inet6", text)) return false;
  for (const CmInet6Row& row : cm_parse_if_inet6(text)) {
    V6Detail d;
    std::memcpy(d.address, row.address, 16);
    d.ifname = row.name;
    d.flags = row.flags;
    d.prefixLength = row.prefixLength;
    d.linkScope = row.scope == kScopeLink;
    d.hostScope = row.scope == kScopeHost;
    table.rows.push_back(d);
  }
  return true;
}

V6Table read_v6_table() {
  V6Table table;
  table.now = time(nullptr);
  table.read = read_netlink(table) || read_proc(table);
  return table;
}

// The address's origin, first match: temporary; router advertisement or stable
// privacy (autoconfigured); managed temporary (userspace SLAAC); link-local; loopback
// or permanent (configured by hand); a single /128 (DHCPv6); else autoconfigured.
uint32_t kind_of(const V6Detail& d) {
  if (d.flags & kTemporary) return kLocalAddrTemporary;
  if (d.proto == kProtoRouterAdvert || (d.flags & kStablePrivacy)) return kLocalAddrAutoconf;
  if (d.flags & kManageTempAddr) return kLocalAddrAutoconf;
  if (d.proto == kProtoLinkLocal || (d.proto == 0 && (is_link_local(d.address) || d.linkScope))) return kLocalAddrOther;
  if (d.proto == kProtoLoopback || (d.flags & kPermanent) || d.hostScope)
    return cm_check_manual_IPv6_disabled ? kLocalAddrOther : kLocalAddrManual;
  if (d.prefixLength == 128) return kLocalAddrDhcp;
  return kLocalAddrAutoconf;
}

const V6Detail* find_detail(const V6Table& table, const char* ifname, const unsigned char* address) {
  const unsigned index = cm_fs_root_is_set() ? 0 : cm_net_if_index(ifname);
  for (const V6Detail& d : table.rows) {
    if (std::memcmp(d.address, address, 16) != 0) continue;
    if (d.ifname.empty() ? d.ifindex == index : d.ifname == ifname) return &d;
  }
  return nullptr;
}

bool fill_detail(const V6Table& table, const char* ifname, local_addr_t* node) {
  std::snprintf(node->ifname, sizeof node->ifname, "%s", ifname);
  node->flag = 0;
  node->expire = 0;
  const V6Detail* d = table.read ? find_detail(table, ifname, node->addr.sin6_addr.s6_addr) : nullptr;
  if (!d) {
    CM_INFO_TRACE("get_v6_lifetime: ioctl(SIOCGIFAFLAG_IN6), errno=" << (table.read ? ENXIO : errno));
    return false;
  }
  node->flag = kind_of(*d);
  if (!d->haveLifetime) {
    CM_INFO_TRACE("get_v6_lifetime, errno=" << ENODATA);
    return false;
  }
  // Relative seconds count down from the dump; "forever" never stops being preferred.
  node->expire = d->preferred == kForever ? 0 : static_cast<uint64_t>(table.now) + d->preferred;
  return true;
}

local_addr_t* new_node(const sockaddr_storage& address) {
  local_addr_t* node = new local_addr_t();
  std::memcpy(&node->addr, &address, address.ss_family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in));
  return node;
}

}  // namespace

bool cm_fill_v6_addr_detail(const char* ifname, local_addr_t* node) {
  if (!ifname || !node) return false;
  if (!cm_net_family_available(AF_INET6)) {
    std::perror("ifconfig: socket");
    return false;
  }
  return fill_detail(read_v6_table(), ifname, node);
}

int get_local_addr(local_addr_t** list) {
  if (!list) return -1;
  *list = nullptr;
  local_addr_t** tail = list;
  std::vector<CmIfAddress> addresses;
  cm_net_list_addresses(addresses);
  V6Table table;
  bool tableRead = false;
  for (const CmIfAddress& entry : addresses) {
    if (!(entry.flags & IFF_UP)) continue;
    if (entry.address.ss_family == AF_INET6) {
      const auto& v6 = reinterpret_cast<const sockaddr_in6&>(entry.address);
      char text[INET6_ADDRSTRLEN] = {};
      inet_ntop(AF_INET6, &v6.sin6_addr, text, sizeof text);
      CM_DETAIL_TRACE("get_local_addr, IP Address = " << entry.name.c_str() << ", " << text
                                                      << ", sa_family=" << entry.address.ss_family);
      if (is_link_local(v6.sin6_addr.s6_addr)) continue;
      if (!tableRead) table = read_v6_table(), tableRead = true;  // one dump serves every address
      local_addr_t* node = new_node(entry.address);
      fill_detail(table, entry.name.c_str(), node);
      *tail = node;
      tail = &node->next;
    } else if (entry.address.ss_family == AF_INET) {
      local_addr_t* node = new_node(entry.address);
      std::snprintf(node->ifname, sizeof node->ifname, "%s", entry.name.c_str());
      *tail = node;
      tail = &node->next;
    }
  }
  return *list ? 0 : -1;
}
