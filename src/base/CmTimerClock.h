#pragma once
// The wall clock as the timer queues see it. Every timer queue reads "now" through
// cm_timer_now(), so that tests can run expiry, re-arming and clock jumps on a fake
// clock without sleeping.

#include "cmutil/base/CmExport.h"
#include "cmutil/base/CmTimeValue.h"

typedef CCmTimeValue (*CmTimerClockFn)();

// Now, from the installed test clock or else CCmTimeValue::GetTimeOfDay().
CCmTimeValue cm_timer_now();

// Test-only: replaces the timer clock; nullptr restores the real clock.
CM_EXPORT void cm_set_timer_clock_for_test(CmTimerClockFn fn);
