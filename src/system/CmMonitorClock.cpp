// Clocks of the resource monitor and the sampler, and their one link to the GPU reader.

#include "system/CmMonitorClock.h"

#include "base/CmClock.h"
#include "cmutil/system/CmSystemInfo.h"
#include "cmutil/timer/CmTimer.h"

int64_t cm_monitor_low_tick_us() {
  if (CmClockFn fn = cm_test_clock()) return fn();
  return low_tick_policy::now();
}

int64_t cm_monitor_wall_us() { return cm_clock_wall_us(); }

int64_t cm_monitor_steady_us() { return cm_clock_steady_us(); }

bool cm_monitor_gpu_usage(long long& usage) { return kel_get_GPU_usage(usage); }

float cm_monitor_gpu_percent() { return getGpuUsage(); }
