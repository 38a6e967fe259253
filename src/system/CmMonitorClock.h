#pragma once
// Clocks and GPU source of the resource monitor and the sampler. The clocks follow the
// library's test clock (base/CmClock.h), so refresh intervals and rates are checked
// without sleeping.

#include <cstdint>

#include "cmutil/base/CmExport.h"

/// The low tick in microseconds (the refresh clock).
int64_t cm_monitor_low_tick_us();
/// The wall clock in microseconds (the process-CPU clock).
int64_t cm_monitor_wall_us();
/// A monotonic clock in microseconds (the sampler's per-thread CPU clock).
int64_t cm_monitor_steady_us();

/// Busiest GPU percent through kel_get_GPU_usage; false when no GPU reports one.
bool cm_monitor_gpu_usage(long long& usage);
/// getGpuUsage(), or 0 when the GPU reader is not in this build.
float cm_monitor_gpu_percent();
