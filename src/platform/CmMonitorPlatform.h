#pragma once
// Internal readers behind the resource monitor and the sampler: /proc/stat, a process's
// task list and per-task files, the process's resource usage, RAPL energy and hwmon
// sensors. Readers only fetch bytes (parsing lives in system/CmMonitorParsers.h); the
// ones used every sample reuse the caller's buffers and allocate nothing once those
// have grown. All go through the filesystem root; under a root, getrusage is answered
// from proc/self files.

#include <cstdint>
#include <string>
#include <vector>

#include "cmutil/base/CmExport.h"

/// What getrusage says about this process (all threads, finished ones included).
struct CmProcessUsage {
  int64_t userUs = 0;
  int64_t systemUs = 0;
  uint64_t voluntarySwitches = 0;
};

/// Kernel ticks per second of the /proc counters (USER_HZ; 100 under a root).
CM_EXPORT unsigned cm_mon_ticks_per_second();

/// Reads root + path into buf (reusing it); false when absent.
CM_EXPORT bool cm_mon_read(const char* path, std::string& buf);

/// Thread ids under root + taskDir ("/proc/self/task"), reusing tids; false when the
/// folder cannot be opened. Reads the folder with getdents64 into a stack buffer, so
/// nothing is allocated once tids has room.
CM_EXPORT bool cm_mon_list_tasks(const char* taskDir, std::vector<int>& tids);

/// Opens root + taskDir/<tid>/<leaf> for repeated reads; -1 when the thread is gone.
CM_EXPORT int cm_mon_open_task_file(const char* taskDir, int tid, const char* leaf);

/// Reads an open /proc or /sys file again from its start into buf (procfs renders it
/// anew); false when the read fails (the thread behind a task file has ended).
CM_EXPORT bool cm_mon_reread(int fd, std::string& buf);

CM_EXPORT void cm_mon_close(int fd);

/// A file under the root kept open between reads, because opening a /proc file costs
/// more than reading it. Reopens when the filesystem root changed or a read failed.
class CM_EXPORT CmRereadFile {
 public:
  explicit CmRereadFile(const char* path) : m_path(path) {}
  ~CmRereadFile() { cm_mon_close(m_fd); }
  CmRereadFile(const CmRereadFile&) = delete;
  CmRereadFile& operator=(const CmRereadFile&) = delete;

  /// The whole file into buf; false when it cannot be read.
  bool Read(std::string& buf);

 private:
  const char* m_path;
  int m_fd = -1;
  std::string m_root;  // the root the file was opened under
};

/// Reads root + taskDir/<tid>/<leaf> into buf; false when the thread is gone.
CM_EXPORT bool cm_mon_read_task_file(const char* taskDir, int tid, const char* leaf, std::string& buf);

/// The process's CPU times and voluntary context switches (getrusage).
CM_EXPORT bool cm_mon_process_usage(CmProcessUsage& out);

/// The energy_uj files of the RAPL packages ("intel-rapl:N" zones named "package-*";
/// sub-zones are inside them). Empty when the machine has none.
CM_EXPORT void cm_mon_energy_files(std::vector<std::string>& files);

/// Sum of the given energy counters in microjoules, buf as scratch; false when none is
/// readable (the counters are root-only on current kernels).
CM_EXPORT bool cm_mon_energy_uj(const std::vector<std::string>& files, std::string& buf, uint64_t& microjoules);

/// CPU temperature in degrees Celsius from hwmon (coretemp "Package id 0", k10temp
/// "Tctl"/"Tdie", cpu_thermal, soc_thermal) or else a thermal zone (x86_pkg_temp, acpitz,
/// first); false when there is none.
CM_EXPORT bool cm_mon_cpu_temperature(double& celsius);

/// First readable hwmon fan speed in RPM; false when there is none.
CM_EXPORT bool cm_mon_fan_rpm(unsigned& rpm);
