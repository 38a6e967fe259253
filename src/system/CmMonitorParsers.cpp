// Parsers of /proc/stat and task stat/comm text (see CmMonitorParsers.h).

#include "system/CmMonitorParsers.h"

#include "platform/CmFsRoot.h"

namespace {

constexpr uint64_t kMaxTicks = ~0ULL / 16;  // far above any real counter; stops overflow

/// Reads up to cap unsigned decimal numbers separated by blanks from the start of text;
/// stops at the first token that is not a number. Returns how many were read.
size_t read_numbers(std::string_view text, uint64_t* values, size_t cap) {
  size_t count = 0, i = 0;
  while (count < cap) {
    while (i < text.size() && text[i] == ' ') ++i;
    if (i >= text.size() || text[i] < '0' || text[i] > '9') break;
    uint64_t v = 0;
    while (i < text.size() && text[i] >= '0' && text[i] <= '9') {
      if (v < kMaxTicks) v = v * 10 + static_cast<uint64_t>(text[i] - '0');
      ++i;
    }
    if (i < text.size() && text[i] != ' ' && text[i] != '\n') break;
    values[count++] = v;
  }
  return count;
}

/// Folds the numbers after a "cpu" label into four counters; false under four numbers.
bool fold_ticks(std::string_view numbers, CmCpuTicks& out) {
  uint64_t v[10] = {};
  const size_t n = read_numbers(numbers, v, 10);
  if (n < 4) return false;
  out.user = v[0];
  out.nice = v[1];
  out.system = v[2] + v[5] + v[6] + v[7];
  out.idle = v[3] + v[4];
  return true;
}

/// The line starting at pos (without its newline) and the position after it.
std::string_view line_at(std::string_view text, size_t pos, size_t& next) {
  size_t end = text.find('\n', pos);
  if (end == std::string_view::npos) end = text.size();
  next = end + 1;
  return text.substr(pos, end - pos);
}

}  // namespace

bool cm_parse_stat_total(std::string_view text, CmCpuTicks& out) {
  for (size_t pos = 0, next = 0; pos < text.size(); pos = next) {
    std::string_view line = line_at(text, pos, next);
    if (line.size() > 4 && line.compare(0, 4, "cpu ") == 0) return fold_ticks(line.substr(4), out);
  }
  return false;
}

size_t cm_parse_stat_cores(std::string_view text, CmCoreTicks* out, size_t cap) {
  size_t count = 0;
  for (size_t pos = 0, next = 0; pos < text.size() && count < cap; pos = next) {
    std::string_view line = line_at(text, pos, next);
    if (line.size() < 5 || line.compare(0, 3, "cpu") != 0 || line[3] < '0' || line[3] > '9') continue;
    size_t i = 3;
    unsigned index = 0;
    while (i < line.size() && line[i] >= '0' && line[i] <= '9' && index < 1000000)
      index = index * 10 + (line[i++] - '0');
    if (i >= line.size() || line[i] != ' ') continue;
    if (!fold_ticks(line.substr(i), out[count].ticks)) continue;
    out[count++].index = index;
  }
  return count;
}

bool cm_parse_task_stat_times(std::string_view text, uint64_t& utime, uint64_t& stime) {
  const size_t close = text.rfind(')');
  if (close == std::string_view::npos) return false;
  // After ") " come field 3 (state) ... field 15: skip fields 3-13, read 14 and 15.
  size_t i = close + 1;
  for (int field = 3; field <= 13; ++field) {
    while (i < text.size() && text[i] == ' ') ++i;
    if (i >= text.size()) return false;
    while (i < text.size() && text[i] != ' ') ++i;
  }
  uint64_t v[2] = {};
  if (read_numbers(text.substr(i), v, 2) != 2) return false;
  utime = v[0];
  stime = v[1];
  return true;
}

std::string_view cm_trim_comm(std::string_view text, size_t cap) {
  while (!text.empty() && (text.back() == '\n' || text.back() == '\0')) text.remove_suffix(1);
  return text.substr(0, cap);
}

bool cm_find_status_number(std::string_view text, std::string_view key, uint64_t& value) {
  for (size_t pos = 0, next = 0; pos < text.size(); pos = next) {
    std::string_view line = line_at(text, pos, next);
    if (line.size() <= key.size() || line[key.size()] != ':' || line.compare(0, key.size(), key) != 0) continue;
    std::string_view rest = line.substr(key.size() + 1);
    while (!rest.empty() && (rest.front() == ' ' || rest.front() == '\t')) rest.remove_prefix(1);
    uint64_t v = 0;
    if (read_numbers(rest, &v, 1) != 1) return false;  // "123 kB" passes, "12x" does not
    value = v;
    return true;
  }
  return false;
}

bool cm_meminfo_used_kb(std::string_view text, uint64_t& totalKb, uint64_t& usedKb) {
  if (!cm_find_status_number(text, "MemTotal", totalKb)) return false;
  uint64_t available = 0;
  if (cm_find_status_number(text, "MemAvailable", available)) {
    usedKb = cm_tick_delta(available, totalKb);
    return true;
  }
  uint64_t freeKb = 0, buffers = 0, cached = 0, reclaimable = 0, shmem = 0;
  cm_find_status_number(text, "MemFree", freeKb);
  cm_find_status_number(text, "Buffers", buffers);
  cm_find_status_number(text, "Cached", cached);
  cm_find_status_number(text, "SReclaimable", reclaimable);
  cm_find_status_number(text, "Shmem", shmem);
  usedKb = cm_tick_delta(freeKb + buffers + cached + reclaimable, totalKb + shmem);
  return true;
}

bool cm_process_usage(CmProcessUsage& out, std::string& buf) {
  if (!cm_fs_root_is_set()) return cm_mon_process_usage(out);
  uint64_t utime = 0, stime = 0;
  if (!cm_read_fs_file("/proc/self/stat", buf) || !cm_parse_task_stat_times(buf, utime, stime)) return false;
  const int64_t usPerTick = 1000000 / cm_mon_ticks_per_second();
  out.userUs = static_cast<int64_t>(utime) * usPerTick;
  out.systemUs = static_cast<int64_t>(stime) * usPerTick;
  uint64_t switches = 0;
  out.voluntarySwitches =
      cm_read_fs_file("/proc/self/status", buf) && cm_find_status_number(buf, "voluntary_ctxt_switches", switches)
          ? switches
          : 0;
  return true;
}
