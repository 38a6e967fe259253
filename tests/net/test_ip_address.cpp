// IP address text utilities, and IPv6-only detection against the kernel in private
// network namespaces.

#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/socket.h>
#include <sys/utsname.h>

#include <string>
#include <tuple>

#include "cmutil/net/CmIpAddress.h"
#include "common/CmNetNamespace.h"
#include "common/CmTraceCapture.h"

namespace {

TEST(IpAddress, Classification) {
  for (const char* yes : {"10.0.0.1", "10 . 0", "", "\t1"}) EXPECT_EQ(1, is_ip_address(yes)) << yes;
  for (const char* no : {"fe80::1", "host1", "1.2.3.4a"}) EXPECT_EQ(0, is_ip_address(no)) << no;
  CmTraceCapture capture;
  EXPECT_EQ(0, is_ip_address(nullptr));
  EXPECT_TRUE(capture.contains(0, "is_ip_address: ip string is null"));
  for (const char* v6 : {"fe80::1", "::1", "::"}) EXPECT_TRUE(isIPv6(v6)) << v6;
  EXPECT_EQ(std::make_tuple(true, false, false),
            std::make_tuple(isIPv4("192.168.1.2"), isIPv4("192.168.1"), isIPv6("10.0.0.1")));
}

TEST(IpAddress, IdentifiersAndResolution) {
  const std::tuple<const char*, unsigned long, const char*> cases[] = {{"192.168.1.2", 3232235778ul, "192.168.1.2"},
                                                                       {"0.0.0.1", 1, "0.0.0.1"},
                                                                       {"10.1", 10ul << 24 | 1ul << 16, "10.1.0.0"},
                                                                       {"localhost", 0x7f000001ul, "127.0.0.1"},
                                                                       {"", 0, "0.0.0.0"}};
  for (const auto& [text, id, back] : cases) {
    EXPECT_EQ(id, ip_2_id(text)) << text;
    EXPECT_STREQ(back, id_2_ip(id)) << text;
  }
  CmTraceCapture capture;
  char out[64] = "kept";
  EXPECT_EQ(-1, resolve_2_ip(nullptr, out));
  EXPECT_EQ(-1, resolve_2_ip("no-such-host.invalid", out));
  EXPECT_STREQ("kept", out);
  EXPECT_TRUE(capture.contains(0, "resolve_2_ip: No host_name: "));
  EXPECT_TRUE(capture.contains(0, "resolve_2_ip: can't resolve host_name: no-such-host.invalid"));
  const size_t heapBefore = mallinfo2().uordblks;  // every answer of the resolver is given back
  for (int i = 0; i < 200; ++i) ASSERT_EQ(0, resolve_2_ip("localhost", out));
  EXPECT_LT(mallinfo2().uordblks, heapBefore + 4096);
  EXPECT_EQ(0u, ip_2_id("no-such-host.invalid"));
  utsname host = {};
  ASSERT_EQ(0, uname(&host));
  char own[64] = "0.0.0.0";  // what is left when the host's own name does not resolve
  resolve_2_ip(host.nodename, own);
  EXPECT_STREQ(own, get_local_ip());
  EXPECT_EQ(get_local_ip(), get_local_ip());  // remembered
}

TEST(IpAddress, TransportAddressParse) {
  // text, proto and ip sizes, result, proto, ip, port
  const std::tuple<const char*, int, int, int, std::string, std::string, unsigned short> cases[] = {
      {"udp://10.1.2.3:5004", 16, 64, 1, "udp", "10.1.2.3", 5004},
      {"udp://10.1.2.3:", 16, 64, 0, "udp", "10.1.2.3", 0},  // written before the empty port fails
      {"udp://10.1.2.3", 16, 64, 0, "", "", 0},
      {"10.1.2.3:5004", 16, 64, 0, "", "", 0},
      {"https://localhost:70000", 4, 64, 1, "htt", "127.0.0.1", 70000 & 0xffff},
      {"tcp://10.1.2.3:443", 16, 5, 1, "tcp", "10.1", 443},
      {"tcp://no-such-host.invalid:443", 16, 64, 0, "tcp", "", 0},
      // 64 characters pass, 65 fail.
      {"udp://10.1.2.3:5004/aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa", 16, 64, 1, "udp", "10.1.2.3", 5004},
      {"udp://10.1.2.3:5004/aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa", 16, 64, 0, "", "", 0},
  };
  for (const auto& [text, protoSize, ipSize, result, protoWanted, ipWanted, portWanted] : cases) {
    char proto[16] = {}, ip[64] = {};
    unsigned short port = 0;
    const int rc = transport_address_parse(text, proto, protoSize, ip, ipSize, port);
    EXPECT_EQ(std::make_tuple(result, protoWanted, ipWanted, portWanted),
              std::make_tuple(rc, std::string(proto), std::string(ip), port))
        << text;
  }
}

TEST(IpAddress, ExpansionAndPrefixes) {
  const std::pair<const char*, const char*> expansions[] = {
      {"fe80::1", "fe80:0000:0000:0000:0000:0000:0000:0001"},
      {"2001:db8:0:0:0:0:0:1", "2001:0db8:0000:0000:0000:0000:0000:0001"},
      {"1::", "0001:0000:0000:0000:0000:0000:0000:0000"},
      // Every empty group adds the missing ones: a leading "::" gives thirteen groups.
      {"::1", "0000:0000:0000:0000:0000:0000:0000:0000:0000:0000:0000:0000:0001"},
      {"", ""}};
  for (const auto& e : expansions) EXPECT_EQ(e.second, ExpandIPv6Address(e.first)) << e.first;
  const std::tuple<bool, const char*, const char*, const char*, bool> prefixes[] = {
      {false, "10.1.2.3", "10.1.9.9", "255.255.0.0", true},
      {false, "10.1.2.3", "10.1.9.9", "255.255.255.0", false},
      {false, "10.1.2.3", "10.1.2.3", "255.255.0", false},
      {true, "2001:db8::1", "2001:db8::ffff", "ffff:ffff::", true},
      {true, "2001:db8::1", "2001:db9::1", "ffff:ffff::", false},
      {true, "2001:db8::1", "x", "ffff::", false}};
  CmTraceCapture capture;
  for (const auto& [v6, a, b, mask, same] : prefixes)
    EXPECT_EQ(same, (v6 ? isSamePrefixIPv6 : isSamePrefixIPv4)(a, b, mask)) << a << " " << mask;
  EXPECT_TRUE(capture.contains(
      3, "isSamePrefixIPv4, Invalid IPv4 address or mask, ip1 = 10.1.2.3, ip2 = 10.1.2.3, mask = 255.255.0"));
  EXPECT_TRUE(capture.contains(3, "isSamePrefixIPv6, Invalid IPv6 address or mask, ip1 = 2001:db8::1"));
}

TEST(IpAddress, FamilyProbesAndIpv6OnlyHosts) {
  EXPECT_EQ(1u, ipv4_enabled());
  EXPECT_EQ(ipv4_enabled(), cm_ipv4_enabled);
  unsigned int cache = 0;
  EXPECT_EQ(0u, ip_check(&cache, AF_INET));  // a filled cache answers without probing
  const std::string up = "ip link set lo up";
  const std::tuple<const char*, std::vector<std::string>, std::string> cases[] = {
      {"link-local and self-assigned only",
       {up, "ip -6 addr add fe80::5/64 dev lo", "ip addr add 169.254.1.1/16 dev lo"},
       "0"},
      {"global IPv6 only", {up, "ip -6 addr add 2001:db8::5/64 dev lo"}, "1"},
      {"global IPv6 beside IPv4", {up, "ip -6 addr add 2001:db8::5/64 dev lo", "ip addr add 10.0.0.5/8 dev lo"}, "0"},
  };
  for (const auto& [name, setup, pure] : cases) {
    CmNetnsResult result = cm_run_in_netns(setup, [] { return std::to_string(isPureIp6()); });
    if (!result.ran) GTEST_SKIP() << result.skipReason;
    EXPECT_EQ(pure, result.output) << name;
  }
}

}  // namespace
