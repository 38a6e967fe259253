// Parsers of /proc/net/route, /proc/net/ipv6_route and /proc/net/wireless.

#include "net/CmNetTextParsers.h"

#include <cstdlib>
#include <sstream>
#include <vector>

namespace {

std::vector<std::string> words_of(const std::string& line) {
  std::vector<std::string> words;
  std::istringstream in(line);
  std::string word;
  while (in >> word) words.push_back(word);
  return words;
}

bool hex_value(const std::string& text, unsigned long long& value) {
  if (text.empty() || text.size() > 32) return false;
  char* end = nullptr;
  value = std::strtoull(text.c_str(), &end, 16);
  return end && *end == '\0';
}

bool all_zero(const std::string& text) { return !text.empty() && text.find_first_not_of('0') == std::string::npos; }

constexpr unsigned long long kRouteUp = 0x1;
constexpr unsigned long long kRouteReject = 0x200;

bool usable_route(const std::string& flagsText) {
  unsigned long long flags = 0;
  return hex_value(flagsText, flags) && (flags & kRouteUp) && !(flags & kRouteReject);
}

template <class Fn>
void for_each_line(const std::string& text, Fn&& fn) {
  std::istringstream in(text);
  std::string line;
  while (std::getline(in, line)) fn(line);
}

// A /proc/net/wireless figure: "-56." or an old unsigned byte "200".
int wireless_dbm(std::string text) {
  while (!text.empty() && text.back() == '.') text.pop_back();
  char* end = nullptr;
  long value = std::strtol(text.c_str(), &end, 10);
  if (end == text.c_str() || value < -512 || value > 512) return 0;
  return static_cast<int>(value > 0 ? value - 256 : value);
}

}  // namespace

std::string cm_parse_default_route_v4(const std::string& text) {
  // Iface Destination Gateway Flags RefCnt Use Metric Mask MTU Window IRTT
  std::string best;
  unsigned long long bestMetric = ~0ULL;
  for_each_line(text, [&](const std::string& line) {
    std::vector<std::string> w = words_of(line);
    if (w.size() < 8 || !all_zero(w[1]) || !all_zero(w[7]) || !usable_route(w[3])) return;
    char* end = nullptr;
    unsigned long long metric = std::strtoull(w[6].c_str(), &end, 10);
    if (!end || *end != '\0') return;
    if (best.empty() || metric < bestMetric) best = w[0], bestMetric = metric;
  });
  return best;
}

std::string cm_parse_default_route_v6(const std::string& text) {
  // dest plen src splen nexthop metric refcnt use flags dev
  std::string best;
  unsigned long long bestMetric = ~0ULL;
  for_each_line(text, [&](const std::string& line) {
    std::vector<std::string> w = words_of(line);
    if (w.size() < 10 || w[0].size() != 32 || !all_zero(w[0]) || w[1] != "00" || !usable_route(w[8]) || w[9] == "lo")
      return;
    unsigned long long metric = 0;
    if (!hex_value(w[5], metric)) return;
    if (best.empty() || metric < bestMetric) best = w[9], bestMetric = metric;
  });
  return best;
}

bool cm_parse_proc_wireless(const std::string& text, const std::string& name, int& rssi, int& noise) {
  bool found = false;
  for_each_line(text, [&](const std::string& line) {
    std::vector<std::string> w = words_of(line);
    // "wlan0: 0000 54. -56. -256 ..." : name, status, link quality, signal, noise.
    if (found || w.size() < 5 || w[0] != name + ":") return;
    rssi = wireless_dbm(w[3]);
    noise = wireless_dbm(w[4]);
    if (noise == -256) noise = 0;
    found = true;
  });
  return found;
}

std::vector<CmInet6Row> cm_parse_if_inet6(const std::string& text) {
  std::vector<CmInet6Row> rows;
  for_each_line(text, [&](const std::string& line) {
    std::vector<std::string> w = words_of(line);
    if (w.size() != 6 || w[0].size() != 32) return;
    CmInet6Row row;
    unsigned long long value = 0;
    for (size_t i = 0; i < 16; ++i) {
      if (!hex_value(w[0].substr(2 * i, 2), value)) return;
      row.address[i] = static_cast<unsigned char>(value);
    }
    unsigned long long fields[4];
    for (size_t i = 0; i < 4; ++i)
      if (!hex_value(w[i + 1], fields[i]) || fields[i] > 0xffffffffULL) return;
    row.prefixLength = static_cast<unsigned>(fields[1]);
    row.scope = static_cast<unsigned>(fields[2]);
    row.flags = static_cast<unsigned>(fields[3]);
    row.name = w[5];
    rows.push_back(row);
  });
  return rows;
}
