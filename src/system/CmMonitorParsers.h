#pragma once
// Parsers of the kernel's CPU accounting text: /proc/stat "cpu" lines and a task's
// "stat" and "comm" files. They take bytes, never touch the filesystem and never
// allocate, so the sampler can run them every interval and a fuzzer can feed them
// anything.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "cmutil/base/CmExport.h"
#include "platform/CmMonitorPlatform.h"

/// One CPU's tick counters folded into four: irq, softirq and steal count as system
/// (time the CPU was taken from the guest is time it was busy), iowait counts as idle.
/// guest and guest_nice are already inside user and nice and are left out.
struct CmCpuTicks {
  uint64_t user = 0;
  uint64_t nice = 0;
  uint64_t system = 0;
  uint64_t idle = 0;
};

/// The counters of one "cpuN" line with its number N.
struct CmCoreTicks {
  unsigned index = 0;
  CmCpuTicks ticks;
};

/// The machine-wide "cpu " line of /proc/stat text; false when it is missing or has
/// fewer than four numbers.
CM_EXPORT bool cm_parse_stat_total(std::string_view text, CmCpuTicks& out);

/// The "cpuN" lines in order, at most cap of them; a malformed line is skipped. Returns
/// how many were stored.
CM_EXPORT size_t cm_parse_stat_cores(std::string_view text, CmCoreTicks* out, size_t cap);

/// utime and stime (fields 14 and 15) of a task's stat text. The name in parentheses may
/// hold blanks and parentheses itself, so the fields are counted after the last ')'.
CM_EXPORT bool cm_parse_task_stat_times(std::string_view text, uint64_t& utime, uint64_t& stime);

/// A comm text without its trailing newline, cut to cap bytes.
CM_EXPORT std::string_view cm_trim_comm(std::string_view text, size_t cap);

/// The number after "key:" in a "key: value" text (/proc/self/status, /proc/meminfo);
/// false when the key is missing or its value is no number.
CM_EXPORT bool cm_find_status_number(std::string_view text, std::string_view key, uint64_t& value);

/// Memory in use from /proc/meminfo text in kB, as the machine facts count it:
/// MemTotal - MemAvailable, or without MemAvailable MemTotal - MemFree - Buffers - Cached
/// - SReclaimable + Shmem; never below 0.
CM_EXPORT bool cm_meminfo_used_kb(std::string_view text, uint64_t& totalKb, uint64_t& usedKb);

/// b - a, or 0 when the counter went backwards (iowait may, and a counter may restart).
inline uint64_t cm_tick_delta(uint64_t a, uint64_t b) { return b > a ? b - a : 0; }

/// The process's CPU times and voluntary context switches: getrusage live, the /proc/self
/// files under a filesystem root (buf is scratch space for them).
CM_EXPORT bool cm_process_usage(CmProcessUsage& out, std::string& buf);
