// CPU facts: core counts (with hybrid performance/efficiency levels), brand, frequency
// and architecture, read from /proc/cpuinfo and /sys/devices/system/cpu.

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "cmutil/safe/CmSafeLib.h"
#include "cmutil/system/CmSystemInfo.h"
#include "cmutil/trace/CmTraceMacros.h"
#include "platform/CmFsRoot.h"
#include "platform/CmSystemPlatform.h"
#include "system/CmFactCache.h"
#include "system/CmSystemTextParsers.h"

namespace {

constexpr unsigned kDefaultFrequencyMhz = 2800;
constexpr unsigned kMinimumFrequencyMhz = 500;
constexpr int kArchQueryCap = 32;

CmFactCache<std::string> g_cpu_brand;
CmFactCache<std::string> g_cpu_arch;
CmFactCache<unsigned> g_cpu_frequency;

void clear_cpu_caches() {
  g_cpu_brand.Clear();
  g_cpu_arch.Clear();
  g_cpu_frequency.Clear();
}
CM_FS_CACHE_RESET(clear_cpu_caches);

std::string cpu_path(unsigned cpu, const char* leaf) {
  char path[128];
  std::snprintf(path, sizeof path, "/sys/devices/system/cpu/cpu%u/%s", cpu, leaf);
  return path;
}

bool read_cpulist(const char* path, std::vector<unsigned>& cpus) {
  std::string text;
  return cm_read_fs_line(path, text) && cm_parse_cpulist(text, cpus) && !cpus.empty();
}

bool online_cpus(std::vector<unsigned>& cpus) {
  if (read_cpulist("/sys/devices/system/cpu/online", cpus)) return true;
  unsigned count = 0;
  if (!cm_sys_online_cpu_count(count)) return false;
  cpus.clear();
  for (unsigned cpu = 0; cpu < count; ++cpu) cpus.push_back(cpu);
  return true;
}

// Physical cores among cpus: CPUs sharing one core list one another as siblings.
// 0 when a CPU has no topology (an offline one, or an old kernel).
unsigned physical_cores_among(const std::vector<unsigned>& cpus) {
  std::set<std::string> cores;
  std::string siblings;
  for (unsigned cpu : cpus) {
    if (!cm_read_fs_line(cpu_path(cpu, "topology/core_cpus_list").c_str(), siblings) &&
        !cm_read_fs_line(cpu_path(cpu, "topology/thread_siblings_list").c_str(), siblings))
      return 0;
    cores.insert(siblings);
  }
  return static_cast<unsigned>(cores.size());
}

unsigned physical_or_logical(const std::vector<unsigned>& cpus) {
  unsigned physical = physical_cores_among(cpus);
  return physical ? physical : static_cast<unsigned>(cpus.size());
}

bool read_cpuinfo(CmCpuInfoText& info) {
  std::string text;
  return cm_read_fs_file("/proc/cpuinfo", text) && cm_parse_cpuinfo(text, info);
}

bool host_core_counts(unsigned& physical, unsigned& logical) {
  std::vector<unsigned> cpus;
  if (!online_cpus(cpus)) return false;
  logical = static_cast<unsigned>(cpus.size());
  physical = physical_cores_among(cpus);
  CmCpuInfoText info;
  if (physical == 0 && read_cpuinfo(info)) physical = info.physicalCores;
  if (physical == 0) physical = logical;
  return true;
}

bool is_x86() {
  std::string machine;
  if (!cm_sys_machine(machine)) return false;
  return machine == "x86_64" || (machine.size() == 4 && machine[0] == 'i' && machine.compare(2, 2, "86") == 0);
}

// x86 hybrid CPUs name their core kinds in two PMU folders.
bool x86_core_levels(unsigned& performance, unsigned& efficiency) {
  std::vector<unsigned> big, little;
  if (!read_cpulist("/sys/devices/cpu_core/cpus", big)) return false;
  read_cpulist("/sys/devices/cpu_atom/cpus", little);
  performance = physical_or_logical(big);
  efficiency = little.empty() ? 0 : physical_or_logical(little);
  return true;
}

// Other architectures rate each CPU's capacity (0-1024); the slowest ones are the
// efficiency cores when there are at least two ratings.
bool capacity_core_levels(unsigned& performance, unsigned& efficiency) {
  std::vector<unsigned> cpus;
  if (!online_cpus(cpus)) return false;
  std::vector<unsigned long long> capacity(cpus.size());
  unsigned long long lowest = ~0ULL, highest = 0;
  for (size_t i = 0; i < cpus.size(); ++i) {
    if (!cm_read_fs_u64(cpu_path(cpus[i], "cpu_capacity").c_str(), capacity[i])) return false;
    lowest = std::min(lowest, capacity[i]);
    highest = std::max(highest, capacity[i]);
  }
  if (lowest == highest) return false;
  std::vector<unsigned> big, little;
  for (size_t i = 0; i < cpus.size(); ++i) (capacity[i] == lowest ? little : big).push_back(cpus[i]);
  performance = physical_or_logical(big);
  efficiency = physical_or_logical(little);
  return true;
}

std::string query_brand() {
  CmCpuInfoText info;
  if (!read_cpuinfo(info)) return std::string();
  if (!info.modelName.empty()) return info.modelName;
  if (!info.hardware.empty()) return info.hardware;
  return info.hasArmIds ? cm_arm_cpu_name(info.implementer, info.part) : std::string();
}

// Lowest frequency the CPU runs at, in Hz.
bool query_min_frequency_hz(unsigned long long& hz) {
  unsigned long long value = 0;
  if (cm_read_fs_u64("/sys/devices/system/cpu/cpu0/cpufreq/cpuinfo_min_freq", value)) {
    hz = value * 1000;
    return true;
  }
  if (cm_read_fs_u64("/sys/devices/system/cpu/cpu0/acpi_cppc/lowest_freq", value)) {
    hz = value * 1000000;
    return true;
  }
  return false;
}

// Base (nominal) frequency in Hz, else the highest, else the current one.
bool query_frequency_hz(unsigned long long& hz) {
  struct Source {
    const char* path;
    unsigned long long toHz;
  };
  static const Source kSources[] = {
      {"/sys/devices/system/cpu/cpu0/cpufreq/base_frequency", 1000},
      {"/sys/devices/system/cpu/cpu0/acpi_cppc/nominal_freq", 1000000},
      {"/sys/devices/system/cpu/cpu0/cpufreq/cpuinfo_max_freq", 1000},
  };
  unsigned long long value = 0;
  for (const Source& source : kSources) {
    if (cm_read_fs_u64(source.path, value)) {
      hz = value * source.toHz;
      return true;
    }
  }
  CmCpuInfoText info;
  if (!read_cpuinfo(info) || info.mhz <= 0) return false;
  hz = static_cast<unsigned long long>(info.mhz * 1e6 + 0.5);
  return true;
}

int errno_or_enoent() { return errno ? errno : ENOENT; }

}  // namespace

void get_cpu_core_levels(unsigned int& performance_cores, unsigned int& efficiency_cores) {
  performance_cores = efficiency_cores = 0;
  unsigned p = 0, e = 0;
  bool found = is_x86() ? x86_core_levels(p, e) : capacity_core_levels(p, e);
  if (found) performance_cores = p, efficiency_cores = e;
}

int get_cpu_core(unsigned int& physical_core_num, unsigned int& threads_per_core) {
  unsigned physical = 0, logical = 0;
  if (!host_core_counts(physical, logical)) return 1;
  physical_core_num = physical;
  if (physical != 0) threads_per_core = logical / physical;

  unsigned performance = 0, efficiency = 0;
  get_cpu_core_levels(performance, efficiency);
  // A CPU with one kind of core has neither level (an x86 hybrid PMU may lack the atom one).
  if (performance == 0) CM_WARNING_TRACE("get_cpu_core cpu_performace_core_num failed with error: " << ENOENT);
  if (efficiency == 0) CM_WARNING_TRACE("get_cpu_core cpu_efficiency_core_num failed with error: " << ENOENT);
  CM_INFO_TRACE("get_cpu_core cpu_performace_core_num = " << performance << ", cpu_efficiency_core_num = " << efficiency
                                                          << ", old physical_core_num = " << physical_core_num);
  if (performance != 0) physical_core_num = performance + efficiency;
  CM_INFO_TRACE("get_cpu_core new physical_core_num = " << physical_core_num);
  return 0;
}

int get_cpu_brand(char* dest, int size) {
  if (!dest || size <= 0) return 0;
  if (g_cpu_brand.Filled()) {
    strcpy_s(dest, static_cast<size_t>(size), g_cpu_brand.Value().c_str());
    return 0;
  }
  std::string brand = query_brand();
  // Like a sized system query: a brand that does not fit is not written at all.
  if (brand.empty() || brand.size() + 1 > static_cast<size_t>(size)) return 0;
  strcpy_s(dest, static_cast<size_t>(size), brand.c_str());
  g_cpu_brand.Set(brand);
  return 0;
}

int set_cpu_frequency_min(int value, int minimum, int fallback) { return value >= minimum ? value : fallback; }

int get_cpu_frequency(unsigned int& frequency_mhz) {
  unsigned cached = 0;
  if (g_cpu_frequency.Get(cached)) {
    frequency_mhz = cached;
    return 0;
  }
  unsigned long long hz = 0;
  errno = 0;
  bool haveMin = query_min_frequency_hz(hz);
  if (!haveMin) CM_WARNING_TRACE("get_cpu_frequency hw.cpufrequency_min failed with error: " << errno_or_enoent());
  unsigned result = 0;
  if (!haveMin || hz == 0) {
    int status = query_frequency_hz(hz) ? 0 : -1;
    if (status != 0) hz = 0;
    if (hz == 0) {
      CM_WARNING_TRACE("get_cpu_frequency error result=" << status);
      CM_WARNING_TRACE("get_cpu_frequency error , set cpu frequency to default(" << kDefaultFrequencyMhz << ")");
      result = kDefaultFrequencyMhz;
    }
  }
  if (result == 0) {
    unsigned long long mhz = hz / 1000000;
    int value = mhz > 0x7fffffffULL ? 0x7fffffff : static_cast<int>(mhz);
    int clamped = set_cpu_frequency_min(value, kMinimumFrequencyMhz, kDefaultFrequencyMhz);
    if (clamped != value)
      CM_WARNING_TRACE("get_cpu_frequency cpu_frequency is abnormal, frequency = "
                       << value << ", set cpu frequency to default = " << kDefaultFrequencyMhz);
    result = static_cast<unsigned>(clamped);
  }
  CM_INFO_TRACE("get_cpu_frequency cpu_frequency = " << result);
  g_cpu_frequency.Set(result);
  frequency_mhz = result;
  return 0;
}

int get_cpu_arch(char* dest, int size) {
  if (!dest || size <= 0) return -1;
  if (g_cpu_arch.Filled()) {
    strcpy_s(dest, static_cast<size_t>(size), g_cpu_arch.Value().c_str());
    return 0;
  }
  // The machine name is asked into a buffer of at most 32 bytes; a name that does not
  // fit fails the query.
  size_t cap = static_cast<size_t>(std::min(size, kArchQueryCap));
  std::string machine;
  if (!cm_sys_machine(machine) || machine.size() + 1 > cap) {
    CM_ERROR_TRACE("get_cpu_arch failed");
    return -1;
  }
  strcpy_s(dest, static_cast<size_t>(size), machine.c_str());
  g_cpu_arch.Set(machine);
  return 0;
}

int regex_parse_info(const std::string& text, const std::string& pattern, std::string& out) {
  try {
    std::regex expression(pattern);
    std::smatch match;
    if (!std::regex_match(text, match, expression)) return 0;
    out = match.size() > 1 && match[1].matched ? match[1].str() : std::string();
  } catch (const std::exception& e) {
    CM_WARNING_TRACE("regex_parse_info bad pattern " << pattern << ": " << e.what());
  }
  return 0;
}
