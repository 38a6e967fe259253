#pragma once
// The library's clocks, behind one seam. Everything that decides by "now" (timer expiry
// and re-arming, event firing times and the queue-length check, the resource monitor's
// refresh and rates) reads these functions, so that a test installs one fake clock and
// runs all of it without sleeping.

#include <cstdint>

#include "cmutil/base/CmExport.h"
#include "cmutil/base/CmTimeValue.h"

/// A test clock: microseconds, returned by every clock below while it is installed.
typedef int64_t (*CmClockFn)();

/// The installed test clock, or null.
CmClockFn cm_test_clock();

/// Wall-clock microseconds since the epoch.
int64_t cm_clock_wall_us();
/// The wall clock at tick resolution (a few milliseconds), for cheap coarse checks.
int64_t cm_clock_coarse_us();
/// Monotonic microseconds.
int64_t cm_clock_steady_us();
/// The wall clock as the timer queues see it.
CCmTimeValue cm_timer_now();

/// Test-only: installs fn as every clock of the library; nullptr restores the real ones.
CM_EXPORT void cm_set_clock_for_test(CmClockFn fn);
