// Primary address detection against the real kernel in private network namespaces, and
// the detection endpoint settings.

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "cmutil/net/CmPrimaryAddress.h"
#include "common/CmNetNamespace.h"
#include "common/CmTraceCapture.h"

namespace {

// getPrimaryIp's result, its text, the interface name and whether a trace was seen.
std::string detect(const char* expectedTrace) {
  CmTraceCapture capture;
  std::string ip = "untouched";
  sockaddr_in addr = {};
  int rc = getPrimaryIp(reinterpret_cast<sockaddr*>(&addr), ip);
  char written[INET_ADDRSTRLEN] = {};
  inet_ntop(AF_INET, &addr.sin_addr, written, sizeof written);
  return std::to_string(rc) + "|" + ip + "|" + written + "|" + getIFNameForPrimaryIP() + "|" +
         (capture.contains(0, expectedTrace) ? "traced" : "silent");
}

TEST(PrimaryAddress, DetectsThroughTheRoutingTableOfANamespace) {
  const std::string up = "ip link set lo up";
  // name, setup, trace looked for, what detect() gives
  const std::tuple<const char*, std::vector<std::string>, const char*, std::string> cases[] = {
      // No route: connect fails, nothing is written, no interface carries "".
      {"no route", {up}, "getPrimaryIp, connect failed, errno=101", "-1|untouched|0.0.0.0||traced"},
      {"route on lo",
       {up, "ip addr add 10.9.8.7/32 dev lo", "ip route add default dev lo src 10.9.8.7"},
       "connect failed",
       "0|10.9.8.7|10.9.8.7|lo|silent"},
      // Only a self-assigned address: a failure, though its text is handed back.
      {"link-local only",
       {up, "ip addr add 169.254.3.4/16 dev lo", "ip route add default dev lo src 169.254.3.4"},
       "connect failed",
       "-1|169.254.3.4|0.0.0.0|lo|silent"},
  };
  for (const auto& [name, setup, trace, expected] : cases) {
    CmNetnsResult result = cm_run_in_netns(setup, [trace = trace] { return detect(trace); });
    if (!result.ran) GTEST_SKIP() << result.skipReason;
    EXPECT_EQ(expected, result.output) << name;
  }
}

TEST(PrimaryAddress, EndpointSettingChoosesServerOrResolver) {
  CmTraceCapture capture;
  const char* ip = nullptr;
  unsigned short port = 0;
  getDefaultServerIpPort(ip, port);
  EXPECT_EQ(std::make_pair(g_defaultServerAddr, static_cast<unsigned short>(5004)), std::make_pair(ip, port));
  EnableDefaultServer4PrimaryIp(false);
  getDefaultServerIpPort(ip, port);
  EXPECT_EQ(std::make_pair(g_kDnsServerAddr, static_cast<unsigned short>(53)), std::make_pair(ip, port));
  EnableDefaultServer4PrimaryIp(true);
  EXPECT_TRUE(capture.contains(2, "EnableDefaultServer4PrimaryIp, value=0"));
  EXPECT_TRUE(capture.contains(2, "EnableDefaultServer4PrimaryIp, value=1"));

  // A missing address or port is refused before any socket work.
  const char* savedAddr = g_defaultServerAddr;
  for (unsigned int port4 : {5004u, 0u}) {
    g_defaultServerAddr = port4 ? nullptr : savedAddr;
    g_defaultServerPort = port4;
    std::string text = "kept";
    EXPECT_EQ(-1, getPrimaryIp(nullptr, text));
    EXPECT_EQ("kept", text);
  }
  g_defaultServerAddr = savedAddr;
  g_defaultServerPort = 5004;
  EXPECT_EQ(2u, capture.count("getPrimaryIp, invalid detectIP or detectPort"));
}

}  // namespace
