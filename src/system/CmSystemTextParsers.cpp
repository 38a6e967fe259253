// Parsers of /proc and /sys texts behind the machine facts.

#include "system/CmSystemTextParsers.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <set>
#include <utility>

namespace {

// Splits "key<TAB>: value" lines; the key loses its trailing blanks and tabs.
template <class Fn>
void for_each_key_value(const std::string& text, Fn&& fn) {
  size_t pos = 0;
  while (pos < text.size()) {
    size_t end = text.find('\n', pos);
    if (end == std::string::npos) end = text.size();
    size_t colon = text.find(':', pos);
    if (colon != std::string::npos && colon < end) {
      size_t keyEnd = colon;
      while (keyEnd > pos && (text[keyEnd - 1] == ' ' || text[keyEnd - 1] == '\t')) --keyEnd;
      size_t value = colon + 1;
      while (value < end && (text[value] == ' ' || text[value] == '\t')) ++value;
      fn(text.substr(pos, keyEnd - pos), text.substr(value, end - value));
    }
    pos = end + 1;
  }
}

bool parse_unsigned(const std::string& text, unsigned long long& value, int base = 10) {
  if (text.empty() || text[0] == '-' || text[0] == '+' || text[0] == ' ') return false;
  char* end = nullptr;
  errno = 0;
  value = std::strtoull(text.c_str(), &end, base);
  return end != text.c_str() && errno == 0;
}

}  // namespace

bool cm_parse_cpuinfo(const std::string& text, CmCpuInfoText& out) {
  out = CmCpuInfoText();
  std::set<std::pair<std::string, std::string>> cores;
  std::string physicalId;
  bool haveMhz = false, haveImplementer = false, havePart = false;
  for_each_key_value(text, [&](const std::string& key, const std::string& value) {
    unsigned long long number = 0;
    if (key == "processor") {
      ++out.processors;
    } else if (key == "model name" && out.modelName.empty()) {
      out.modelName = value;
    } else if (key == "Hardware" && out.hardware.empty()) {
      out.hardware = value;
    } else if (key == "cpu MHz" && !haveMhz) {
      char* end = nullptr;
      double mhz = std::strtod(value.c_str(), &end);
      if (end != value.c_str() && mhz > 0 && mhz < 1e7) out.mhz = mhz, haveMhz = true;
    } else if (key == "CPU implementer" && !haveImplementer && parse_unsigned(value, number, 0)) {
      out.implementer = static_cast<unsigned>(number), haveImplementer = true;
    } else if (key == "CPU part" && !havePart && parse_unsigned(value, number, 0)) {
      out.part = static_cast<unsigned>(number), havePart = true;
    } else if (key == "physical id") {
      physicalId = value;
    } else if (key == "core id") {
      cores.emplace(physicalId, value);
    }
  });
  out.hasArmIds = haveImplementer && havePart;
  out.physicalCores = static_cast<unsigned>(cores.size());
  return out.processors > 0;
}

std::string cm_arm_cpu_name(unsigned implementer, unsigned part) {
  struct Entry {
    unsigned implementer, part;
    const char* name;
  };
  static const Entry kNames[] = {
      {0x41, 0xd03, "ARM Cortex-A53"},    {0x41, 0xd04, "ARM Cortex-A35"},     {0x41, 0xd05, "ARM Cortex-A55"},
      {0x41, 0xd07, "ARM Cortex-A57"},    {0x41, 0xd08, "ARM Cortex-A72"},     {0x41, 0xd09, "ARM Cortex-A73"},
      {0x41, 0xd0a, "ARM Cortex-A75"},    {0x41, 0xd0b, "ARM Cortex-A76"},     {0x41, 0xd0c, "ARM Neoverse-N1"},
      {0x41, 0xd0d, "ARM Cortex-A77"},    {0x41, 0xd40, "ARM Neoverse-V1"},    {0x41, 0xd41, "ARM Cortex-A78"},
      {0x41, 0xd44, "ARM Cortex-X1"},     {0x41, 0xd46, "ARM Cortex-A510"},    {0x41, 0xd47, "ARM Cortex-A710"},
      {0x41, 0xd48, "ARM Cortex-X2"},     {0x41, 0xd49, "ARM Neoverse-N2"},    {0x41, 0xd4f, "ARM Neoverse-V2"},
      {0x61, 0x022, "Apple M1 Icestorm"}, {0x61, 0x023, "Apple M1 Firestorm"}, {0x51, 0x800, "Qualcomm Kryo 2xx"},
      {0x51, 0xc00, "Qualcomm Falkor"},   {0xc0, 0xac3, "Ampere-1"},           {0xc0, 0xac4, "Ampere-1a"},
  };
  for (const Entry& e : kNames)
    if (e.implementer == implementer && e.part == part) return e.name;
  static const std::pair<unsigned, const char*> kVendors[] = {{0x41, "ARM"},    {0x61, "Apple"},     {0x51, "Qualcomm"},
                                                              {0xc0, "Ampere"}, {0x48, "HiSilicon"}, {0x4e, "NVIDIA"}};
  for (const auto& v : kVendors)
    if (v.first == implementer) return v.second;
  return std::string();
}

bool cm_parse_cpulist(const std::string& text, std::vector<unsigned>& cpus) {
  constexpr unsigned long long kMaxCpu = 1u << 16;
  cpus.clear();
  size_t pos = 0;
  // Trailing newlines and blanks are not part of the list (npos + 1 is 0: nothing but blanks).
  const size_t size = text.find_last_not_of("\n ") + 1;
  if (size == 0) return true;  // an empty list: no CPU (an offline node)
  while (pos < size) {
    const size_t comma = std::min(text.find(',', pos), size);  // npos past the last item
    std::string item = text.substr(pos, comma - pos);
    size_t dash = item.find('-');
    unsigned long long first = 0, last = 0;
    if (!parse_unsigned(item.substr(0, dash), first)) return false;
    last = first;
    if (dash != std::string::npos && !parse_unsigned(item.substr(dash + 1), last)) return false;
    // Bounded in total too: repeated ranges must not grow the list without limit.
    if (last < first || last >= kMaxCpu || cpus.size() + (last - first) >= kMaxCpu) return false;
    for (unsigned long long cpu = first; cpu <= last; ++cpu) cpus.push_back(static_cast<unsigned>(cpu));
    pos = comma + 1;
  }
  return true;
}

bool cm_parse_kb_field(const std::string& text, const char* key, unsigned long long& kb) {
  bool found = false;
  for_each_key_value(text, [&](const std::string& name, const std::string& value) {
    if (!found && name == key) found = parse_unsigned(value, kb);
  });
  return found;
}

bool cm_parse_meminfo_used(const std::string& text, unsigned long long& totalKb, unsigned long long& usedKb) {
  if (!cm_parse_kb_field(text, "MemTotal", totalKb)) return false;
  unsigned long long available = 0;
  if (cm_parse_kb_field(text, "MemAvailable", available)) {
    usedKb = totalKb > available ? totalKb - available : 0;
    return true;
  }
  unsigned long long freeKb = 0, buffers = 0, cached = 0, reclaimable = 0, shmem = 0;
  cm_parse_kb_field(text, "MemFree", freeKb);
  cm_parse_kb_field(text, "Buffers", buffers);
  cm_parse_kb_field(text, "Cached", cached);
  cm_parse_kb_field(text, "SReclaimable", reclaimable);
  cm_parse_kb_field(text, "Shmem", shmem);
  // Signed sum: garbage counters must give 0, not a wrapped huge value.
  long double used = static_cast<long double>(totalKb) - freeKb - buffers - cached - reclaimable + shmem;
  usedKb = used > 0 ? (used > totalKb ? totalKb : static_cast<unsigned long long>(used)) : 0;
  return true;
}

bool cm_parse_release(const std::string& release, unsigned& major, unsigned& minor, unsigned& patch) {
  major = minor = patch = 0;
  unsigned* parts[] = {&major, &minor, &patch};
  const char* p = release.c_str();
  if (*p < '0' || *p > '9') return false;
  for (unsigned* part : parts) {
    unsigned long long value = 0;
    while (*p >= '0' && *p <= '9') {
      value = value * 10 + static_cast<unsigned>(*p++ - '0');
      if (value > 0xffffffffULL) value = 0xffffffffULL;
    }
    *part = static_cast<unsigned>(value);
    if (*p != '.' || p[1] < '0' || p[1] > '9') break;
    ++p;
  }
  return true;
}
