#pragma once
/// Pull-style resource monitor: machine CPU, this process's CPU, memory and GPU load.
///
/// Every getter refreshes the figures first, but no more often than the refresh interval
/// (1000 ms by default), so callers may ask as often as they like; in between they get
/// the figures of the last refresh. CPU percentages are 0 until two refreshes exist.
/// Process CPU is a percent of one core, so it exceeds 100 on a busy multi-threaded
/// process. One process-wide instance, safe from any thread (a recursive lock serialises
/// refreshes and reads).
///
///   unsigned int cpu = 0;
///   getKELSystemResourceMonitor()->getTotalCPUUsage(cpu);

#include <cstdint>

#include "cmutil/base/CmExport.h"
#include "cmutil/base/CmMutex.h"
#include "cmutil/base/CmThreadAnnotations.h"

class CM_EXPORT IKELSystemResourceMonitor {
 public:
  virtual ~IKELSystemResourceMonitor();
  /// Hardware concurrency, fixed at construction.
  virtual unsigned int getCPUCores() = 0;
  /// Machine CPU in percent (0-100), truncated.
  virtual bool getTotalCPUUsage(unsigned int& usage) = 0;
  /// Process CPU in percent of one core, truncated.
  virtual bool getProcessUsage(unsigned int& usage) = 0;
  virtual bool getTotalCPUUsage(float& usage) = 0;
  virtual bool getProcessUsage(float& usage) = 0;
  /// Minimum time between two refreshes, in milliseconds.
  virtual void setRefreshInterval(unsigned int milliseconds) = 0;
  /// System memory in use (percent, used and total KiB) and this process's resident KiB.
  virtual bool getMemoryUsage(float& percent, unsigned long long& used_kib, unsigned long long& total_kib,
                              unsigned long long& process_kib) = 0;
  /// Busiest GPU in percent, or 0xFFFFFFFF when no GPU reports a load.
  virtual bool getGPUUsage(unsigned int& usage) = 0;
};

class CM_EXPORT KELSystemResourceMonitor : public IKELSystemResourceMonitor {
 public:
  KELSystemResourceMonitor();
  ~KELSystemResourceMonitor() override;
  KELSystemResourceMonitor(const KELSystemResourceMonitor&) = delete;
  KELSystemResourceMonitor& operator=(const KELSystemResourceMonitor&) = delete;

  unsigned int getCPUCores() override;
  bool getTotalCPUUsage(unsigned int& usage) override;
  bool getProcessUsage(unsigned int& usage) override;
  bool getTotalCPUUsage(float& usage) override;
  bool getProcessUsage(float& usage) override;
  void setRefreshInterval(unsigned int milliseconds) override;
  bool getMemoryUsage(float& percent, unsigned long long& used_kib, unsigned long long& total_kib,
                      unsigned long long& process_kib) override;
  bool getGPUUsage(unsigned int& usage) override;

  /// Re-reads every figure unless the last refresh is younger than the interval.
  void refresh();
  /// Forgets every previous reading, as if never refreshed (the filesystem-root test
  /// setter calls it for the process-wide instance).
  void forget();

 private:
  void refreshCpu() CM_REQUIRES(m_lock);
  void refreshProcess() CM_REQUIRES(m_lock);
  void refreshMemory() CM_REQUIRES(m_lock);
  void refreshGpu() CM_REQUIRES(m_lock);

  CCmMutexThreadRecursive m_lock;
  uint32_t m_prevTicks[4] CM_GUARDED_BY(m_lock);  // user, system, idle, nice
  int64_t m_prevProcessCpuMs CM_GUARDED_BY(m_lock);
  int64_t m_prevProcessWallMs CM_GUARDED_BY(m_lock);
  uint64_t m_lastRefresh CM_GUARDED_BY(m_lock);  // low-tick microseconds; 0 = never
  float m_totalCpu CM_GUARDED_BY(m_lock);
  float m_processCpu CM_GUARDED_BY(m_lock);
  const uint32_t m_cores;  // fixed at construction
  uint32_t m_intervalMs CM_GUARDED_BY(m_lock);
  float m_memoryPercent CM_GUARDED_BY(m_lock);
  unsigned long long m_memoryUsedKib CM_GUARDED_BY(m_lock);
  unsigned long long m_memoryTotalKib CM_GUARDED_BY(m_lock);
  unsigned long long m_processKib CM_GUARDED_BY(m_lock);
  uint32_t m_gpuUsage CM_GUARDED_BY(m_lock);
};

/// Refreshes and returns the process-wide monitor.
CM_EXPORT IKELSystemResourceMonitor* getKELSystemResourceMonitor();
/// Does nothing: the monitor lives as long as the process.
CM_EXPORT void releaseKELSystemResourceMonitor(IKELSystemResourceMonitor* monitor);
