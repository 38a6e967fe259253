#pragma once
// CPU of every thread of a process, from <proc>/task/<tid>/stat between two passes. The
// stat files stay open between passes (up to 256 of them; opening a /proc file costs
// more than reading it) and the buffers are kept, so a pass allocates nothing once they
// have grown to the process's thread count. Not thread-safe: one owner calls Sample.

#include <cstdint>
#include <string>
#include <vector>

#include "cmutil/base/CmExport.h"

/// One thread that ran since the previous pass.
struct CmThreadCpu {
  int tid = 0;
  float percent = 0;   ///< of one core
  char name[16] = {};  ///< comm, filled for the busiest ones only
};

class CM_EXPORT CmThreadCpuSampler {
 public:
  /// taskDir is the task folder of the process ("/proc/self/task", "/proc/42/task").
  explicit CmThreadCpuSampler(const char* taskDir = "/proc/self/task");
  ~CmThreadCpuSampler();
  CmThreadCpuSampler(const CmThreadCpuSampler&) = delete;
  CmThreadCpuSampler& operator=(const CmThreadCpuSampler&) = delete;

  /// One pass at nowUs (a monotonic clock). Threads() then holds every thread that used
  /// CPU since the previous pass, busiest first, named for the first `named` of them.
  /// The first pass only records. False when the task folder cannot be read.
  bool Sample(int64_t nowUs, size_t named);

  const std::vector<CmThreadCpu>& Threads() const { return m_threads; }
  /// Threads listed by the last pass, idle ones included.
  size_t ThreadCount() const { return m_prev.size(); }

 private:
  struct Ticks {
    int tid;
    uint64_t ticks;
    int fd;  // the open stat file, or -1
  };
  Ticks* previous(int tid);
  bool readStat(int tid, Ticks* before, int& fd);
  void readName(CmThreadCpu& thread);

  std::string m_taskDir;
  std::vector<int> m_tids;
  std::vector<Ticks> m_prev, m_next;
  std::vector<CmThreadCpu> m_threads;
  std::string m_buf;
  int64_t m_prevUs = 0;
  bool m_primed = false;
};
