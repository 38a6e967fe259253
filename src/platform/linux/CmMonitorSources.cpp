// Linux sources of the resource monitor and the sampler: /proc/stat, /proc/<pid>/task,
// getrusage, RAPL powercap counters and hwmon/thermal sensors, all under the filesystem
// root.

#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/CmFsRoot.h"
#include "platform/CmMonitorPlatform.h"

namespace {

constexpr size_t kPathCap = 512;

/// Parses a decimal thread id; 0 for anything else ("." and "..").
int parse_tid(const char* name) {
  int tid = 0;
  for (; *name; ++name) {
    if (*name < '0' || *name > '9' || tid > 100000000) return 0;
    tid = tid * 10 + (*name - '0');
  }
  return tid;
}

/// Reads a signed decimal number (millidegrees, RPM) from a one-value file.
bool read_signed(const std::string& path, long long& value) {
  std::string text;
  if (!cm_read_fs_line(path.c_str(), text) || text.empty()) return false;
  char* end = nullptr;
  value = std::strtoll(text.c_str(), &end, 10);
  return end && *end == '\0' && end != text.c_str();
}

/// Folder entries sorted, so "first" means the same sensor on every call.
std::vector<std::string> sorted_entries(const char* dir) {
  std::vector<std::string> names;
  cm_list_fs_dir(dir, names);
  std::sort(names.begin(), names.end());
  return names;
}

/// A whole decimal number with an optional trailing newline.
bool parse_u64(const std::string& text, uint64_t& value) {
  size_t i = 0;
  value = 0;
  while (i < text.size() && text[i] >= '0' && text[i] <= '9') value = value * 10 + (text[i++] - '0');
  return i > 0 && (i == text.size() || text[i] == '\n');
}

bool starts_with(const std::string& s, const char* prefix) { return s.compare(0, std::strlen(prefix), prefix) == 0; }

/// Rank of an hwmon temperature input (lower is better); -1 when it is no CPU sensor.
int hwmon_rank(const std::string& chip, const std::string& label) {
  if (chip == "coretemp") return label == "Package id 0" ? 0 : -1;
  if (chip == "k10temp") return label == "Tctl" ? 0 : label == "Tdie" ? 1 : -1;
  if (chip == "cpu_thermal" || chip == "soc_thermal") return 2;
  return -1;
}

bool hwmon_temperature(double& celsius) {
  int bestRank = 1000;
  for (const std::string& hw : sorted_entries("/sys/class/hwmon")) {
    const std::string base = "/sys/class/hwmon/" + hw + "/";
    std::string chip;
    if (!cm_read_fs_line((base + "name").c_str(), chip)) continue;
    for (const std::string& file : sorted_entries(base.c_str())) {
      if (!starts_with(file, "temp") || file.size() < 11 || file.compare(file.size() - 6, 6, "_input") != 0) continue;
      std::string label;
      cm_read_fs_line((base + file.substr(0, file.size() - 6) + "_label").c_str(), label);
      const int rank = hwmon_rank(chip, label);
      long long milli = 0;
      if (rank < 0 || rank >= bestRank || !read_signed(base + file, milli)) continue;
      bestRank = rank;
      celsius = static_cast<double>(milli) / 1000.0;
    }
  }
  return bestRank < 1000;
}

bool thermal_zone_temperature(double& celsius) {
  int bestRank = 1000;
  for (const std::string& zone : sorted_entries("/sys/class/thermal")) {
    if (!starts_with(zone, "thermal_zone")) continue;
    const std::string base = "/sys/class/thermal/" + zone + "/";
    std::string type;
    cm_read_fs_line((base + "type").c_str(), type);
    const int rank = type == "x86_pkg_temp" ? 0 : type == "acpitz" ? 1 : 2;
    long long milli = 0;
    if (rank >= bestRank || !read_signed(base + "temp", milli)) continue;
    bestRank = rank;
    celsius = static_cast<double>(milli) / 1000.0;
  }
  return bestRank < 1000;
}

}  // namespace

unsigned cm_mon_ticks_per_second() {
  if (cm_fs_root_is_set()) return 100;
  static const unsigned ticks = [] {
    const long v = sysconf(_SC_CLK_TCK);
    return v > 0 ? static_cast<unsigned>(v) : 100u;
  }();
  return ticks;
}

bool cm_mon_read(const char* path, std::string& buf) { return cm_read_fs_file(path, buf); }

bool cm_mon_list_tasks(const char* taskDir, std::vector<int>& tids) {
  tids.clear();
  char path[kPathCap];
  if (!cm_fs_path(taskDir, path, sizeof path)) return false;
  const int fd = open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return false;
  alignas(8) char buf[8192];
  for (;;) {
    const ssize_t n = getdents64(fd, buf, sizeof buf);
    if (n <= 0) break;
    for (ssize_t off = 0; off < n;) {
      const dirent64* entry = reinterpret_cast<const dirent64*>(buf + off);
      if (const int tid = parse_tid(entry->d_name)) tids.push_back(tid);
      off += entry->d_reclen;
    }
  }
  close(fd);
  return true;
}

int cm_mon_open_task_file(const char* taskDir, int tid, const char* leaf) {
  char relative[kPathCap], path[kPathCap];
  const int n = std::snprintf(relative, sizeof relative, "%s/%d/%s", taskDir, tid, leaf);
  if (n <= 0 || static_cast<size_t>(n) >= sizeof relative || !cm_fs_path(relative, path, sizeof path)) return -1;
  return open(path, O_RDONLY | O_CLOEXEC);
}

bool cm_mon_reread(int fd, std::string& buf) {
  buf.clear();
  if (fd < 0) return false;
  if (buf.capacity() < 4096) buf.reserve(4096);
  size_t used = 0;
  for (;;) {
    if (buf.capacity() - used < 1024) buf.reserve(buf.capacity() * 2);
    buf.resize(buf.capacity());
    const ssize_t n = pread(fd, &buf[used], buf.size() - used, static_cast<off_t>(used));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      buf.resize(used);
      return n == 0;
    }
    used += static_cast<size_t>(n);
  }
}

void cm_mon_close(int fd) {
  if (fd >= 0) close(fd);
}

bool CmRereadFile::Read(std::string& buf) {
  if (m_fd >= 0 && m_root != cm_fs_root()) {
    cm_mon_close(m_fd);
    m_fd = -1;
  }
  if (m_fd < 0) {
    char path[kPathCap];
    if (!cm_fs_path(m_path, path, sizeof path)) return false;
    m_fd = open(path, O_RDONLY | O_CLOEXEC);
    if (m_fd < 0) return false;
    m_root = cm_fs_root();
  }
  if (cm_mon_reread(m_fd, buf)) return true;
  cm_mon_close(m_fd);  // opened again next time
  m_fd = -1;
  return false;
}

bool cm_mon_read_task_file(const char* taskDir, int tid, const char* leaf, std::string& buf) {
  char path[kPathCap];
  const int n = std::snprintf(path, sizeof path, "%s/%d/%s", taskDir, tid, leaf);
  if (n <= 0 || static_cast<size_t>(n) >= sizeof path) return false;
  return cm_read_fs_file(path, buf);
}

bool cm_mon_process_usage(CmProcessUsage& out) {
  rusage usage;
  if (getrusage(RUSAGE_SELF, &usage) != 0) return false;
  out.userUs = static_cast<int64_t>(usage.ru_utime.tv_sec) * 1000000 + usage.ru_utime.tv_usec;
  out.systemUs = static_cast<int64_t>(usage.ru_stime.tv_sec) * 1000000 + usage.ru_stime.tv_usec;
  out.voluntarySwitches = static_cast<uint64_t>(usage.ru_nvcsw);
  return true;
}

void cm_mon_energy_files(std::vector<std::string>& files) {
  files.clear();
  for (const std::string& zone : sorted_entries("/sys/class/powercap")) {
    if (!starts_with(zone, "intel-rapl:") || zone.find(':', 11) != std::string::npos) continue;
    const std::string base = "/sys/class/powercap/" + zone + "/";
    std::string name;
    if (cm_read_fs_line((base + "name").c_str(), name) && starts_with(name, "package-"))
      files.push_back(base + "energy_uj");
  }
}

bool cm_mon_energy_uj(const std::vector<std::string>& files, std::string& buf, uint64_t& microjoules) {
  bool any = false;
  uint64_t sum = 0;
  for (const std::string& file : files) {
    uint64_t uj = 0;
    if (!cm_read_fs_file(file.c_str(), buf) || !parse_u64(buf, uj)) continue;
    sum += uj;
    any = true;
  }
  if (any) microjoules = sum;
  return any;
}

bool cm_mon_cpu_temperature(double& celsius) { return hwmon_temperature(celsius) || thermal_zone_temperature(celsius); }

bool cm_mon_fan_rpm(unsigned& rpm) {
  for (const std::string& hw : sorted_entries("/sys/class/hwmon")) {
    const std::string base = "/sys/class/hwmon/" + hw + "/";
    for (const std::string& file : sorted_entries(base.c_str())) {
      long long value = 0;
      if (!starts_with(file, "fan") || file.find("_input") == std::string::npos) continue;
      if (!read_signed(base + file, value) || value < 0) continue;
      rpm = static_cast<unsigned>(value);
      return true;
    }
  }
  return false;
}
