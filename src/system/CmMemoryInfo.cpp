// Memory facts: physical memory, memory in use and this process's resident memory, from
// /proc/meminfo and /proc/self/status.

#include <string>

#include "cmutil/system/CmSystemInfo.h"
#include "platform/CmFsRoot.h"
#include "platform/CmSystemPlatform.h"
#include "system/CmSystemTextParsers.h"

namespace {

constexpr unsigned long long kLow32 = 0xffffffffULL;

bool read_meminfo(std::string& text) { return cm_read_fs_file("/proc/meminfo", text); }

}  // namespace

unsigned long long kel_get_memory_total_memory() {
  std::string text;
  unsigned long long kb = 0;
  if (read_meminfo(text) && cm_parse_kb_field(text, "MemTotal", kb)) return kb * 1024;
  unsigned long long bytes = 0;
  return cm_sys_physical_memory(bytes) ? bytes : 0;
}

int get_memory_size(unsigned long long& memory_mb) {
  // Decimal megabytes, as the engine's thresholds are written.
  memory_mb = static_cast<unsigned long long>(static_cast<double>(kel_get_memory_total_memory()) / 1000000.0);
  return 0;
}

int GetMemoryUsageMac64(unsigned long long& used_kib, unsigned long long& total_kib) {
  std::string text;
  unsigned long long totalKb = 0, usedKb = 0;
  if (!read_meminfo(text) || !cm_parse_meminfo_used(text, totalKb, usedKb)) return -1;
  // Callers were written for 32-bit counters: both outputs keep only their low 32 bits.
  // The total is MemTotal of the same read (what kel_get_memory_total_memory gives).
  used_kib = usedKb & kLow32;
  total_kib = totalKb & kLow32;
  return 0;
}

int get_memory_usage(float& percent, unsigned long long& used_kib, unsigned long long& total_kib) {
  percent = 0;
  used_kib = total_kib = 0;
  if (GetMemoryUsageMac64(used_kib, total_kib) != 0) return -1;
  percent = total_kib ? static_cast<float>(used_kib) * 100.0f / static_cast<float>(total_kib) : 0.0f;
  return 0;
}

int GetProcessMemoryMac64(unsigned long long& resident_kib) {
  std::string text;
  unsigned long long kb = 0;
  if (!cm_read_fs_file("/proc/self/status", text) || !cm_parse_kb_field(text, "VmRSS", kb)) return -1;
  resident_kib = kb;
  return 0;
}

int get_process_memory(unsigned long long& resident_kib) { return GetProcessMemoryMac64(resident_kib); }
