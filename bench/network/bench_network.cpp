// Network facts beside the plain system calls: the local address list with IPv6 kinds
// and lifetimes against getifaddrs alone (which cannot tell them), and the address
// text utilities against plain inet_pton-based equivalents.

#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <ifaddrs.h>

#include <cstdio>
#include <string>

#include "cmutil/net/CmIpAddress.h"
#include "cmutil/net/CmLocalAddress.h"

namespace {

void BM_Cmutil_GetLocalAddr(benchmark::State& state) {
  size_t count = 0;
  for (auto _ : state) {
    local_addr_t* list = nullptr;
    get_local_addr(&list);
    count = 0;
    for (local_addr_t* n = list; n; n = n->next) ++count;
    free_local_addr(list);
  }
  state.counters["addresses"] = static_cast<double>(count);
}
BENCHMARK(BM_Cmutil_GetLocalAddr);

void BM_Plain_Getifaddrs(benchmark::State& state) {
  for (auto _ : state) {
    ifaddrs* list = nullptr;
    getifaddrs(&list);
    benchmark::DoNotOptimize(list);
    freeifaddrs(list);
  }
}
BENCHMARK(BM_Plain_Getifaddrs);

const char* const kV6Texts[] = {"fe80::1", "2001:db8:0:0:0:0:0:1", "2001:470:1f0b:1a2::7", "fd00::2"};

void BM_Cmutil_ExpandIPv6Address(benchmark::State& state) {
  size_t i = 0;
  for (auto _ : state) benchmark::DoNotOptimize(ExpandIPv6Address(kV6Texts[i++ & 3]));
}
BENCHMARK(BM_Cmutil_ExpandIPv6Address);

// The plain way: convert, then print the eight groups.
std::string PlainExpand(const std::string& text) {
  in6_addr address;
  if (inet_pton(AF_INET6, text.c_str(), &address) != 1) return std::string();
  char out[40];
  const uint8_t* b = address.s6_addr;
  std::snprintf(out, sizeof out, "%02x%02x:%02x%02x:%02x%02x:%02x%02x:%02x%02x:%02x%02x:%02x%02x:%02x%02x", b[0], b[1],
                b[2], b[3], b[4], b[5], b[6], b[7], b[8], b[9], b[10], b[11], b[12], b[13], b[14], b[15]);
  return out;
}

void BM_Plain_InetPtonExpand(benchmark::State& state) {
  size_t i = 0;
  for (auto _ : state) benchmark::DoNotOptimize(PlainExpand(kV6Texts[i++ & 3]));
}
BENCHMARK(BM_Plain_InetPtonExpand);

void BM_Cmutil_IsSamePrefixIPv6(benchmark::State& state) {
  const std::string a = "2001:db8::1", b = "2001:db8::ffff", mask = "ffff:ffff::";
  for (auto _ : state) benchmark::DoNotOptimize(isSamePrefixIPv6(a, b, mask));
}
BENCHMARK(BM_Cmutil_IsSamePrefixIPv6);

bool PlainSamePrefix(const std::string& a, const std::string& b, const std::string& mask) {
  in6_addr x, y, m;
  if (inet_pton(AF_INET6, a.c_str(), &x) != 1 || inet_pton(AF_INET6, b.c_str(), &y) != 1 ||
      inet_pton(AF_INET6, mask.c_str(), &m) != 1)
    return false;
  for (int i = 0; i < 16; ++i)
    if ((x.s6_addr[i] ^ y.s6_addr[i]) & m.s6_addr[i]) return false;
  return true;
}

void BM_Plain_InetPtonSamePrefix(benchmark::State& state) {
  const std::string a = "2001:db8::1", b = "2001:db8::ffff", mask = "ffff:ffff::";
  for (auto _ : state) benchmark::DoNotOptimize(PlainSamePrefix(a, b, mask));
}
BENCHMARK(BM_Plain_InetPtonSamePrefix);

}  // namespace
