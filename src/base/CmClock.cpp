// The library's clocks and their one test seam.

#include "base/CmClock.h"

#include <atomic>

#include "platform/CmPlatform.h"

namespace {
std::atomic<CmClockFn> g_testClock{nullptr};
}

CmClockFn cm_test_clock() { return g_testClock.load(std::memory_order_acquire); }

int64_t cm_clock_wall_us() {
  CmClockFn fn = cm_test_clock();
  return fn ? fn() : cm_platform_realtime_us();
}

int64_t cm_clock_coarse_us() {
  CmClockFn fn = cm_test_clock();
  return fn ? fn() : cm_platform_realtime_coarse_us();
}

int64_t cm_clock_steady_us() {
  CmClockFn fn = cm_test_clock();
  return fn ? fn() : cm_platform_monotonic_ns() / 1000;
}

CCmTimeValue cm_timer_now() {
  const int64_t us = cm_clock_wall_us();
  return CCmTimeValue(static_cast<long>(us / 1000000), static_cast<long>(us % 1000000));
}

void cm_set_clock_for_test(CmClockFn fn) { g_testClock.store(fn, std::memory_order_release); }
