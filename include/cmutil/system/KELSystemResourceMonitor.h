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
  void refreshCpu();
  void refreshProcess();
  void refreshMemory();
  void refreshGpu();

  uint32_t m_prevTicks[4];  // user, system, idle, nice
  int64_t m_prevProcessCpuMs;
  int64_t m_prevProcessWallMs;
  uint64_t m_lastRefresh;  // low-tick microseconds; 0 = never
  CCmMutexThreadRecursive m_lock;
  float m_totalCpu;
  float m_processCpu;
  uint32_t m_cores;
  uint32_t m_intervalMs;
  float m_memoryPercent;
  unsigned long long m_memoryUsedKib;
  unsigned long long m_memoryTotalKib;
  unsigned long long m_processKib;
  uint32_t m_gpuUsage;
};

/// Refreshes and returns the process-wide monitor.
CM_EXPORT IKELSystemResourceMonitor* getKELSystemResourceMonitor();
/// Does nothing: the monitor lives as long as the process.
CM_EXPORT void releaseKELSystemResourceMonitor(IKELSystemResourceMonitor* monitor);
