// Feeds arbitrary text to the parsers of /proc/stat, task stat and comm, and
// /proc/meminfo-style "key: value" files. Each must answer or refuse without reading
// past the text, and what it answers must be consistent with the text.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "system/CmMonitorParsers.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  CmCpuTicks total;
  cm_parse_stat_total(text, total);
  CmCoreTicks cores[8];
  if (cm_parse_stat_cores(text, cores, 8) > 8) __builtin_trap();
  uint64_t utime = 0, stime = 0;
  if (cm_parse_task_stat_times(text, utime, stime) && text.rfind(')') == std::string_view::npos) __builtin_trap();
  if (cm_trim_comm(text, 15).size() > 15) __builtin_trap();
  uint64_t totalKb = 0, usedKb = 0, value = 0;
  cm_meminfo_used_kb(text, totalKb, usedKb);
  cm_find_status_number(text, "VmRSS", value);
  return 0;
}
