// The timer queues' wall clock, replaceable in tests.

#include "base/CmTimerClock.h"

#include <atomic>

namespace {
std::atomic<CmTimerClockFn> g_timerClock{nullptr};
}

CCmTimeValue cm_timer_now() {
  CmTimerClockFn fn = g_timerClock.load(std::memory_order_acquire);
  return fn ? fn() : CCmTimeValue::GetTimeOfDay();
}

void cm_set_timer_clock_for_test(CmTimerClockFn fn) { g_timerClock.store(fn, std::memory_order_release); }
