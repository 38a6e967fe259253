// Clocks of the resource monitor and the sampler, and their one link to the GPU reader.

#include "system/CmMonitorClock.h"

#include <atomic>

#include "cmutil/system/CmSystemInfo.h"
#include "cmutil/timer/CmTimer.h"

namespace {
std::atomic<CmMonitorClockFn> g_testClock{nullptr};
}

int64_t cm_monitor_low_tick_us() {
  if (CmMonitorClockFn fn = g_testClock.load(std::memory_order_acquire)) return fn();
  return low_tick_policy::now();
}

int64_t cm_monitor_wall_us() {
  if (CmMonitorClockFn fn = g_testClock.load(std::memory_order_acquire)) return fn();
  return timer_policy::now();
}

int64_t cm_monitor_steady_us() {
  if (CmMonitorClockFn fn = g_testClock.load(std::memory_order_acquire)) return fn();
  return tick_policy::now_us();
}

void cm_set_monitor_clock_for_test(CmMonitorClockFn fn) { g_testClock.store(fn, std::memory_order_release); }

bool cm_monitor_gpu_usage(long long& usage) { return kel_get_GPU_usage(usage); }

float cm_monitor_gpu_percent() { return getGpuUsage(); }
