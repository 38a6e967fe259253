// The pull-style resource monitor: refreshes machine CPU, process CPU, memory and GPU
// figures on demand, at most once per refresh interval.

#include "cmutil/system/KELSystemResourceMonitor.h"

#include <string>
#include <thread>

#include "cmutil/system/CmSystemInfo.h"
#include "cmutil/trace/CmTraceMacros.h"
#include "platform/CmFsRoot.h"
#include "platform/CmMonitorPlatform.h"
#include "system/CmMonitorClock.h"
#include "system/CmMonitorParsers.h"

namespace {

typedef CCmMutexGuardT<CCmMutexThreadRecursive> Guard;

constexpr uint32_t kNoGpu = 0xFFFFFFFFu;

/// Difference of two 32-bit counters that may have wrapped; a counter that went back
/// (iowait does) gives 0.
uint32_t counter_delta(uint32_t previous, uint32_t current) {
  const int32_t d = static_cast<int32_t>(current - previous);
  return d > 0 ? static_cast<uint32_t>(d) : 0;
}

KELSystemResourceMonitor& monitor_instance() {
  static KELSystemResourceMonitor monitor;
  return monitor;
}

void forget_monitor_readings() { monitor_instance().forget(); }
CM_FS_CACHE_RESET(forget_monitor_readings);

}  // namespace

IKELSystemResourceMonitor::~IKELSystemResourceMonitor() {}

KELSystemResourceMonitor::KELSystemResourceMonitor()
    : m_prevTicks{0, 0, 0, 0},
      m_prevProcessCpuMs(0),
      m_prevProcessWallMs(0),
      m_lastRefresh(0),
      m_totalCpu(0),
      m_processCpu(0),
      m_cores(std::thread::hardware_concurrency()),
      m_intervalMs(1000),
      m_memoryPercent(0),
      m_memoryUsedKib(0),
      m_memoryTotalKib(0),
      m_processKib(0),
      m_gpuUsage(kNoGpu) {}

KELSystemResourceMonitor::~KELSystemResourceMonitor() {}

void KELSystemResourceMonitor::forget() {
  Guard guard(m_lock);
  for (uint32_t& t : m_prevTicks) t = 0;
  m_prevProcessCpuMs = m_prevProcessWallMs = 0;
  m_lastRefresh = 0;
  m_totalCpu = m_processCpu = m_memoryPercent = 0;
  m_memoryUsedKib = m_memoryTotalKib = m_processKib = 0;
  m_gpuUsage = kNoGpu;
}

void KELSystemResourceMonitor::refresh() {
  Guard guard(m_lock);
  const uint64_t now = static_cast<uint64_t>(cm_monitor_low_tick_us());
  if (m_lastRefresh != 0 && static_cast<uint64_t>(m_intervalMs) * 1000 > now - m_lastRefresh) return;
  refreshCpu();
  refreshProcess();
  refreshMemory();
  refreshGpu();
  m_lastRefresh = now ? now : 1;
}

void KELSystemResourceMonitor::refreshCpu() {
  std::string text;
  CmCpuTicks ticks;
  if (!cm_mon_read("/proc/stat", text) || !cm_parse_stat_total(text, ticks)) return;
  const uint32_t user = static_cast<uint32_t>(ticks.user), system = static_cast<uint32_t>(ticks.system);
  const uint32_t idle = static_cast<uint32_t>(ticks.idle), nice = static_cast<uint32_t>(ticks.nice);
  if (m_lastRefresh != 0) {
    // Nice ticks are left out of both sides: background work run at low priority does
    // not count as load.
    const uint32_t busy = counter_delta(m_prevTicks[0] + m_prevTicks[1], user + system);
    const uint32_t total = busy + counter_delta(m_prevTicks[2], idle);
    if (total != 0) m_totalCpu = static_cast<float>(static_cast<double>(busy) * 100.0 / total);
  }
  m_prevTicks[0] = user;
  m_prevTicks[1] = system;
  m_prevTicks[2] = idle;
  m_prevTicks[3] = nice;
}

void KELSystemResourceMonitor::refreshProcess() {
  std::string scratch;
  CmProcessUsage usage;
  if (!cm_process_usage(usage, scratch)) return;
  const int64_t cpuMs = (usage.userUs + usage.systemUs) / 1000;
  const int64_t wallMs = cm_monitor_wall_us() / 1000;
  if (m_lastRefresh != 0) {
    const int64_t dCpu = cpuMs - m_prevProcessCpuMs, dWall = wallMs - m_prevProcessWallMs;
    if (dCpu > 0 && dWall > 0) m_processCpu = static_cast<float>(static_cast<double>(dCpu) * 100.0 / dWall);
  }
  m_prevProcessCpuMs = cpuMs;
  m_prevProcessWallMs = wallMs;
}

void KELSystemResourceMonitor::refreshMemory() {
  float percent = 0;
  unsigned long long used = 0, total = 0;
  if (get_memory_usage(percent, used, total) == 0) {
    if (percent > 0) m_memoryPercent = percent;
    m_memoryUsedKib = used;
    m_memoryTotalKib = total;
  } else {
    CM_ERROR_TRACE("get system memory usage info failed!");
  }
  unsigned long long resident = 0;
  if (GetProcessMemoryMac64(resident) == 0) {
    m_processKib = resident;
  } else {
    CM_ERROR_TRACE("get process memory usage info failed!");
  }
}

void KELSystemResourceMonitor::refreshGpu() {
  long long usage = 0;
  m_gpuUsage = cm_monitor_gpu_usage(usage) ? static_cast<uint32_t>(usage) : kNoGpu;
}

unsigned int KELSystemResourceMonitor::getCPUCores() {
  refresh();
  return m_cores;
}

bool KELSystemResourceMonitor::getTotalCPUUsage(float& usage) {
  Guard guard(m_lock);
  refresh();
  usage = m_totalCpu;
  return true;
}

bool KELSystemResourceMonitor::getProcessUsage(float& usage) {
  Guard guard(m_lock);
  refresh();
  usage = m_processCpu;
  return true;
}

bool KELSystemResourceMonitor::getTotalCPUUsage(unsigned int& usage) {
  float value = 0;
  static_cast<IKELSystemResourceMonitor*>(this)->getTotalCPUUsage(value);
  usage = static_cast<unsigned int>(value);
  return true;
}

bool KELSystemResourceMonitor::getProcessUsage(unsigned int& usage) {
  float value = 0;
  static_cast<IKELSystemResourceMonitor*>(this)->getProcessUsage(value);
  usage = static_cast<unsigned int>(value);
  return true;
}

void KELSystemResourceMonitor::setRefreshInterval(unsigned int milliseconds) {
  Guard guard(m_lock);
  m_intervalMs = milliseconds;
}

bool KELSystemResourceMonitor::getMemoryUsage(float& percent, unsigned long long& used_kib,
                                              unsigned long long& total_kib, unsigned long long& process_kib) {
  Guard guard(m_lock);
  refresh();
  percent = m_memoryPercent;
  used_kib = m_memoryUsedKib;
  total_kib = m_memoryTotalKib;
  process_kib = m_processKib;
  return true;
}

bool KELSystemResourceMonitor::getGPUUsage(unsigned int& usage) {
  Guard guard(m_lock);
  refresh();
  usage = m_gpuUsage;
  return true;
}

IKELSystemResourceMonitor* getKELSystemResourceMonitor() {
  KELSystemResourceMonitor& monitor = monitor_instance();
  monitor.refresh();
  return &monitor;
}

void releaseKELSystemResourceMonitor(IKELSystemResourceMonitor*) {}
