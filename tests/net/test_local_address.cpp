// The local address list against the real kernel in a private network namespace, the
// pruning rules on lists built here, and the netlink parsers on hostile bytes.

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <ctime>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "NetlinkBytes.h"
#include "cmutil/net/CmLocalAddress.h"
#include "common/CmFsTree.h"
#include "common/CmNetNamespace.h"
#include "common/CmTraceCapture.h"
#include "net/CmNetlink.h"

namespace {

std::string text_of(const local_addr_t* node) {
  char text[INET6_ADDRSTRLEN] = {};
  const bool v6 = node->addr.sin6_family == AF_INET6;
  const void* bytes = v6 ? static_cast<const void*>(&node->addr.sin6_addr)
                         : &reinterpret_cast<const sockaddr_in*>(&node->addr)->sin_addr;
  return inet_ntop(v6 ? AF_INET6 : AF_INET, bytes, text, sizeof text) ? text : "";
}

std::string describe(const local_addr_t* list) {
  std::string out;
  for (; list; list = list->next) out += (out.empty() ? "" : " ") + text_of(list);
  return out;
}

// A list from "address interface kind expiry, ...": expiry 0 is never, F an hour
// ahead, F+n n seconds later, P long past.
local_addr_t* make_list(const char* entries) {
  const uint64_t future = static_cast<uint64_t>(time(nullptr)) + 3600;
  local_addr_t* list = nullptr;
  local_addr_t** tail = &list;
  std::istringstream in(entries);
  for (std::string item; std::getline(in, item, ',');) {
    char text[64] = {}, expiry[16] = {};
    local_addr_t* node = *tail = new local_addr_t();
    tail = &node->next;
    EXPECT_EQ(4, sscanf(item.c_str(), "%63s %15s %u %15s", text, node->ifname, &node->flag, expiry)) << item;
    node->expire = expiry[0] == 'F' ? future + strtoull(expiry + 1, nullptr, 10) : expiry[0] == 'P' ? 1000 : 0;
    const bool v6 = std::strchr(text, ':') != nullptr;
    node->addr.sin6_family = v6 ? AF_INET6 : AF_INET;  // sockaddr_in keeps its family at the same place
    inet_pton(node->addr.sin6_family, text,
              v6 ? static_cast<void*>(&node->addr.sin6_addr) : &reinterpret_cast<sockaddr_in*>(&node->addr)->sin_addr);
  }
  return list;
}

const prune_local_addr_options strict = {false, false, false};

// With the third option off, kept IPv6 removes the 464XLAT group and sets the flag,
// even when that group is empty.
TEST(LocalAddressPrune, DecisionsInOrder) {
  // name, list, options, what is kept, xlat removed
  const std::tuple<const char*, const char*, const prune_local_addr_options*, std::string, bool> cases[] = {
      {"xlat dropped beside real IPv6", "127.0.0.1 lo 0 0, 192.168.1.5 en0 0 0, 192.0.0.2 v4 0 0, 2600::5 en0 1 F",
       &strict, "192.168.1.5 2600::5", true},
      {"xlat kept at the end without IPv6",
       "192.0.0.2 v4 0 0, 192.168.1.5 en0 0 0, 2001:db8::5 en0 1 0, 3fff::1 en0 1 0", &strict, "192.168.1.5 192.0.0.2",
       false},
      {"temporary replaces autoconfigured in place", "2600::1 en0 1 F, 10.0.0.1 en0 0 0, 2600::2 en0 2 F", &strict,
       "2600::2 10.0.0.1", true},
      {"autoconfigured loses to a kept temporary, past another interface's",
       "2600::5 en1 1 0, 2600::2 en0 2 F, 2600::1 en0 1 F", &strict, "2600::5 2600::2", true},
      {"of two temporaries the earlier end stays", "2600::2 en0 2 F+50, 2600::3 en0 2 F, 2600::4 en0 2 F+9", &strict,
       "2600::3", true},
      {"other interfaces and other kinds do not decide",
       "2600::1 en0 1 0, 2600::5 en1 1 0, 2600::6 en0 4 0, 2600::7 en0 16 0", &strict,
       "2600::1 2600::5 2600::6 2600::7", true},
      {"kind 8 and expired manual addresses go", "2600::8 en0 8 0, 2600::9 en0 16 P, 2600::a en0 16 F", &strict,
       "2600::a", true},
      {"null options keep link-local, unique-local and xlat",
       "fe80::1 en0 1 0, fd00::1 en0 4 0, 192.0.0.2 v4 0 0, 2600::1 en1 1 0, ff02::1 en0 1 0", nullptr,
       "fe80::1 fd00::1 2600::1 192.0.0.2", false},
  };
  for (const auto& [name, entries, options, kept, xlatRemoved] : cases) {
    local_addr_t* list = make_list(entries);
    CmTraceCapture capture;
    bool removed = !xlatRemoved;
    prune_local_addr(&list, options, &removed);
    EXPECT_EQ(std::make_pair(kept, xlatRemoved), std::make_pair(describe(list), removed)) << name;
    free_local_addr(list);
  }
  CmTraceCapture capture;
  local_addr_t* list = make_list("2600::7 en0 16 0, 127.0.0.1 lo 0 0");
  prune_local_addr(&list, nullptr);
  EXPECT_TRUE(
      capture.contains(2, "prune_local_addr, statically configured IPv6 address [2600::7] is permanent, not expire"));
  EXPECT_TRUE(capture.contains(3, "prune_local_addr, keep global unicast IPv6 Address= 2600::7, expire=0, flag=16"));
  EXPECT_TRUE(capture.contains(3, "prune_local_addr, delete loopback IPv4 Address= 127.0.0.1"));
  EXPECT_TRUE(capture.contains(2, "prune_local_addr, IP Address= 127.0.0.1, flag=0"));
  free_local_addr(list);
  free_local_addr(nullptr);
}

TEST(LocalAddressPrune, StrcpyForsafe) {
  char out[4];
  EXPECT_EQ(0, strcpy_forsafe(out, "abcdef", 2, sizeof out));
  EXPECT_STREQ("ab", out);
  EXPECT_EQ(0, strcpy_forsafe(out, "abcdef", sizeof out, sizeof out));  // one too many for the terminator
  EXPECT_STREQ("abc", out);
  EXPECT_EQ(std::make_tuple(-1, -1, -1, -1),
            std::make_tuple(strcpy_forsafe(nullptr, "a", 1, 4), strcpy_forsafe(out, nullptr, 1, 4),
                            strcpy_forsafe(out, "a", 0, 4), strcpy_forsafe(out, "a", 1, 0)));
}

// Adds address/64 to lo as the kernel's router-advertisement code would label it
// (IFA_PROTO 2); ip(8) of this system cannot set the protocol.
bool add_ra_labelled_address(const char* text) {
  Bytes request;
  request.put<uint8_t>(AF_INET6).put<uint8_t>(64).put<uint16_t>(0).put<uint32_t>(1);  // ifaddrmsg on lo
  in6_addr address = {};
  inet_pton(AF_INET6, text, &address);
  request.attr(2, &address, sizeof address).attr<uint8_t>(11, 2);  // IFA_LOCAL, IFA_PROTO
  Bytes message = nl_message(20, 1, request);                      // RTM_NEWADDR
  const uint16_t flags = 0x1 | 0x4 | 0x400;                        // request, acknowledge, create
  std::memcpy(message.data.data() + 6, &flags, sizeof flags);
  const int fd = socket(AF_NETLINK, SOCK_RAW, NETLINK_ROUTE);  // unaddressed: to the kernel
  int32_t reply[64] = {}, error = -1;                          // the acknowledgement's error follows its header
  if (fd >= 0 && send(fd, message.data.data(), message.data.size(), 0) > 0 && recv(fd, reply, sizeof reply, 0) >= 20)
    error = reply[4];
  if (fd >= 0) close(fd);
  return error == 0;
}

// The kernel's own flags and lifetimes, read back through get_local_addr.
TEST(LocalAddressKernel, KindsLifetimesAndPruningOnLo) {
  std::vector<std::string> setup = {"ip link set lo up"};
  for (const char* address :
       {"2001:db8::5/64 dev lo valid_lft 3600 preferred_lft 1800", "2001:470::7/64 dev lo mngtmpaddr",
        "2001:470::8/64 dev lo", "fd00::1/64 dev lo", "fec0::7/64 dev lo", "fe80::5/64 dev lo",
        "2001:470::9/128 dev lo valid_lft 3600 preferred_lft 1000"})
    setup.push_back(std::string("ip -6 addr add ") + address);
  setup.push_back("ip addr add 192.0.0.2/29 dev lo");
  CmNetnsResult result = cm_run_in_netns(setup, [] {
    if (!add_ra_labelled_address("2001:470:1::a")) return std::string("RA-labelled address refused\n");
    local_addr_t* list = nullptr;
    std::string out = std::to_string(get_local_addr(&list)) + "\n";
    const uint64_t now = static_cast<uint64_t>(time(nullptr));
    for (local_addr_t* n = list; n; n = n->next) {
      const uint64_t left = n->expire ? n->expire - now : 0;  // about 1800 or 1000 seconds
      out += text_of(n) + " " + n->ifname + " " + std::to_string(n->flag) + " " +
             (n->expire == 0               ? "never"
              : left > 900 && left <= 1800 ? std::to_string((left + 50) / 100 * 100)
                                           : "bad") +
             "\n";
    }
    bool removed = false;
    prune_local_addr(&list, &strict, &removed);
    out += "pruned: " + describe(list) + (removed ? " (xlat removed)" : "");
    free_local_addr(list);
    return out;
  });
  if (!result.ran) GTEST_SKIP() << result.skipReason;
  const std::string& out = result.output;
  EXPECT_EQ(0u, out.find("0\n")) << out;
  EXPECT_EQ(std::string::npos, out.find("fe80::5")) << out;  // link-local addresses are not listed
  // Loopback and permanent addresses were configured by hand; the /128 with a finite
  // lifetime came from DHCPv6; mngtmpaddr, the router-advertised and a finite /64 from
  // autoconfiguration. Of two never-expiring autoconfigured ones, the newest (listed
  // first) stays.
  for (const char* line :
       {"127.0.0.1 lo 0 never\n", "192.0.0.2 lo 0 never\n", "::1 lo 16 never\n", "fd00::1 lo 16 never\n",
        "fec0::7 lo 16 never\n", "2001:470::7 lo 1 never\n", "2001:470:1::a lo 1 never\n", "2001:470::8 lo 16 never\n",
        "2001:470::9 lo 4 1000\n", "2001:db8::5 lo 1 1800\n"})
    EXPECT_NE(std::string::npos, out.find(line)) << line << " in\n" << out;
  EXPECT_NE(std::string::npos, out.find("pruned: ")) << out;
  const std::string pruned = out.substr(out.find("pruned: "));
  for (const char* kept : {"2001:470:1::a", "2001:470::8", "2001:470::9", "(xlat removed)"})
    EXPECT_NE(std::string::npos, pruned.find(kept)) << kept << " in " << pruned;
  for (const char* gone : {"127.0.0.1", "192.0.0.2", "::1 ", "fd00::1", "2001:db8::5", "2001:470::7"})
    EXPECT_EQ(std::string::npos, pruned.find(gone)) << gone << " in " << pruned;
}

TEST(LocalAddressKernel, ProcFallbackWhenNetlinkIsRefused) {
  // A captured tree stands in for the kernel: netlink is not asked, if_inet6 answers.
  CmFixtureRoot root("vm-debian12-kvm-2c", "net");
  local_addr_t node = {};
  node.addr.sin6_family = AF_INET6;
  inet_pton(AF_INET6, "fd00::2", &node.addr.sin6_addr);
  CmTraceCapture capture;
  EXPECT_FALSE(cm_fill_v6_addr_detail("eth0", &node));  // no lifetimes in if_inet6
  // Flags 0x82 in if_inet6: permanent.
  EXPECT_EQ(std::make_pair(16u, std::string("eth0")), std::make_pair(node.flag, std::string(node.ifname)));
  EXPECT_TRUE(capture.contains(2, "get_v6_lifetime, errno="));
  disable_detect_manual_ipv6(true);
  cm_fill_v6_addr_detail("eth0", &node);
  EXPECT_EQ(8u, node.flag);
  disable_detect_manual_ipv6(false);
  inet_pton(AF_INET6, "2001:db8::77", &node.addr.sin6_addr);
  EXPECT_FALSE(cm_fill_v6_addr_detail("eth0", &node));
  EXPECT_TRUE(capture.contains(2, "get_v6_lifetime: ioctl(SIOCGIFAFLAG_IN6), errno="));
}

// ---- netlink bytes ----

// One RTM_NEWADDR message for 2600::1/64 on ifindex 3 with flags, proto and cache info.
Bytes address_message(uint32_t seq, uint32_t flags, uint8_t proto, uint32_t preferred) {
  uint8_t address[16] = {0x26, 0x00};
  address[15] = 1;
  const uint32_t cacheInfo[4] = {preferred, 7200, 0, 0};
  Bytes body;
  body.put<uint8_t>(10).put<uint8_t>(64).put<uint8_t>(0).put<uint8_t>(0).put<uint32_t>(3);
  body.attr(1, address, 16).attr<uint32_t>(8, flags).attr<uint8_t>(11, proto);  // IFA_ADDRESS, _FLAGS, _PROTO
  body.attr(6, cacheInfo, sizeof cacheInfo);                                    // IFA_CACHEINFO
  return nl_message(20, seq, body);
}

TEST(Netlink, AddressDumpsAndHostileBytes) {
  const Bytes good = address_message(7, 0x100, 2, 1800);
  const std::vector<uint8_t> dump = Bytes(good).append(nl_done(7)).data;
  std::vector<CmNlAddress> out;
  int error = 0;
  ASSERT_EQ(CmNlStatus::kDone, cm_nl_parse_address_dump(dump.data(), dump.size(), 7, out, error));
  ASSERT_EQ(1u, out.size());
  EXPECT_EQ(std::make_tuple(3u, 0x100u, 2, 1800u, 0x26),
            std::make_tuple(out[0].ifindex, out[0].flags, out[0].proto, out[0].preferred, out[0].address[0]));

  const std::tuple<const char*, std::vector<uint8_t>, CmNlStatus, int> cases[] = {
      {"wrong sequence", address_message(8, 0, 0, 0).data, CmNlStatus::kError, -74},
      {"truncated header", std::vector<uint8_t>(good.data.begin(), good.data.begin() + 10), CmNlStatus::kError, -74},
      {"length past the end", std::vector<uint8_t>(good.data.begin(), good.data.end() - 4), CmNlStatus::kError, -74},
      {"kernel error", nl_error(7, -13).data, CmNlStatus::kError, -13},
      {"acknowledgement inside a dump", nl_error(7, 0).data, CmNlStatus::kError, -74},
      {"positive error", nl_error(7, 13).data, CmNlStatus::kError, -74},  // found by the fuzzer
      {"no end yet", good.data, CmNlStatus::kMore, 0},
      {"empty", {}, CmNlStatus::kMore, 0},
  };
  for (const auto& [name, bytes, status, wantedError] : cases) {
    out.clear();
    EXPECT_EQ(status, cm_nl_parse_address_dump(bytes.data(), bytes.size(), 7, out, error)) << name;
    EXPECT_EQ(wantedError, error) << name;
  }
  // An attribute whose length runs past the message, and a zero-length one: the address
  // is refused, the walk goes on.
  for (uint16_t badLength : {uint16_t(200), uint16_t(0)}) {
    Bytes bad = address_message(7, 0, 0, 0);
    std::memcpy(bad.data.data() + 24, &badLength, 2);
    out.clear();
    EXPECT_EQ(CmNlStatus::kMore, cm_nl_parse_address_dump(bad.data.data(), bad.data.size(), 7, out, error));
    EXPECT_TRUE(out.empty());
  }
}

TEST(Netlink, RouteLookupReplies) {
  Bytes route;
  route.put<uint8_t>(2).put<uint8_t>(32).put<uint16_t>(0).put<uint32_t>(0x01fe0400).put<uint32_t>(0);
  route.attr<uint32_t>(1, 0x08080808).attr<uint32_t>(4, 5);  // RTA_DST, RTA_OIF
  const Bytes reply = nl_message(24, 4, route);
  uint32_t oif = 0;
  int error = 0;
  EXPECT_TRUE(cm_nl_parse_route_oif(reply.data.data(), reply.data.size(), 4, oif, error));
  EXPECT_EQ(5u, oif);
  EXPECT_FALSE(cm_nl_parse_route_oif(reply.data.data(), reply.data.size(), 5, oif, error));  // another request's
  const Bytes unreachable = nl_error(4, -101);
  EXPECT_FALSE(cm_nl_parse_route_oif(unreachable.data.data(), unreachable.data.size(), 4, oif, error));
  EXPECT_EQ(-101, error);
}

}  // namespace
