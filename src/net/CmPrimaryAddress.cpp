// Primary address detection through a connected (never used) datagram socket.

#include "cmutil/net/CmPrimaryAddress.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <string.h>

#include <atomic>

#include "cmutil/trace/CmTraceMacros.h"
#include "platform/CmNetPlatform.h"

bool g_bUseDefaultServer4PrimaryIp = true;
// Public unicast addresses; a datagram connect sends nothing, so neither is contacted.
const char* g_defaultServerAddr = "1.1.1.1";
unsigned int g_defaultServerPort = 5004;
const char* g_kDnsServerAddr = "8.8.8.8";
unsigned short g_kDnsPort = 53;

namespace {

constexpr int kFunctionEntryTraces = 150;

// Failure traces are at level 0: written whenever the mask is not negative.
int fail(const char* text, int error = -1) {
  if (error >= 0)
    CM_ERROR_TRACE(text << error);
  else
    CM_ERROR_TRACE(text);
  return -1;
}

std::string address_text(const sockaddr_storage& address) {
  char text[INET6_ADDRSTRLEN] = {};
  const void* bytes = address.ss_family == AF_INET6
                          ? static_cast<const void*>(&reinterpret_cast<const sockaddr_in6&>(address).sin6_addr)
                          : static_cast<const void*>(&reinterpret_cast<const sockaddr_in&>(address).sin_addr);
  const socklen_t size = address.ss_family == AF_INET6 ? 46 : 16;
  return inet_ntop(address.ss_family, bytes, text, size) ? text : "";
}

}  // namespace

void EnableDefaultServer4PrimaryIp(bool value) {
  CM_INFO_TRACE("EnableDefaultServer4PrimaryIp, value=" << static_cast<int>(value));
  g_bUseDefaultServer4PrimaryIp = value;
}

void getDefaultServerIpPort(const char*& ip, unsigned short& port) {
  ip = g_bUseDefaultServer4PrimaryIp ? g_defaultServerAddr : g_kDnsServerAddr;
  port = g_bUseDefaultServer4PrimaryIp ? static_cast<unsigned short>(g_defaultServerPort) : g_kDnsPort;
}

extern "C" int getPrimaryIp(struct sockaddr* addr, std::string& ip) {
  const char* detectIp = nullptr;
  unsigned short detectPort = 0;
  getDefaultServerIpPort(detectIp, detectPort);
  if (!detectIp || detectPort == 0) return fail("getPrimaryIp, invalid detectIP or detectPort");
  CM_DETAIL_TRACE("getPrimaryIp, detectIP=" << detectIp);

  sockaddr_in destination = {};
  destination.sin_family = AF_INET;
  destination.sin_port = htons(detectPort);
  inet_pton(AF_INET, detectIp, &destination.sin_addr);
  sockaddr_in local = {};
  socklen_t localLength = 0;
  int error = 0;
  switch (cm_net_route_source_v4(destination, local, localLength, error)) {
    case CmRouteStep::kSocketFailed:
      return fail("getPrimaryIp, socket failed");
    case CmRouteStep::kConnectFailed:
      return fail("getPrimaryIp, connect failed, errno=", error);
    case CmRouteStep::kGetsocknameFailed:
      return fail("getPrimaryIp, getsockname failed");
    case CmRouteStep::kOk:
      break;
  }
  char text[100] = {};
  if (!inet_ntop(AF_INET, &local.sin_addr, text, sizeof text))
    return fail("getPrimaryIp, inet_ntop failed, error=", errno);
  ip = text;
  CM_INFO_TRACE("getPrimaryIp is: " << ip);
  // A link-local address means no routable one.
  if (strncmp(text, "169.", 4) == 0) return -1;
  if (addr) memcpy(addr, &local, localLength < sizeof local ? localLength : sizeof local);
  return 0;
}

std::string getIFNameForPrimaryIP() {
  static std::atomic<int> entries{0};
  if (entries.fetch_add(1, std::memory_order_relaxed) < kFunctionEntryTraces)
    CM_INFO_TRACE("std::string getIFNameForPrimaryIP()");
  std::string primary;
  getPrimaryIp(nullptr, primary);  // on failure the text is whatever it holds
  std::vector<CmIfAddress> list;
  if (!cm_net_list_addresses(list) || list.empty()) return std::string();
  std::string name;
  for (const CmIfAddress& entry : list) {
    if (!(entry.flags & IFF_UP)) continue;
    const std::string text = address_text(entry.address);
    CM_INFO_TRACE("getIFNameForPrimaryIP, IP Address = " << entry.name << ", " << text
                                                         << ", sa_family=" << entry.address.ss_family);
    if (text == primary) {
      name = entry.name;
      break;
    }
  }
  CM_INFO_TRACE("getIFNameForPrimaryIP, primaryIp interface name:" << name);
  return name;
}
