#pragma once
// The clock the event queues read: the firing time of each event and the three-second
// queue-length check. Tests replace it to drive those checks without sleeping.

#include <cstdint>

#include "cmutil/base/CmExport.h"

typedef int64_t (*CmEventClockFn)();

// Wall-clock microseconds, from the test clock when one is installed.
int64_t cm_event_clock_now_us();
// The same clock at tick resolution (a few milliseconds), for cheap coarse checks.
int64_t cm_event_clock_coarse_us();

// Test-only: replaces the event-queue clock; nullptr restores the real one.
CM_EXPORT void cm_set_event_queue_clock_for_test(CmEventClockFn fn);
