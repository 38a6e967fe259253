#pragma once
// The one fake clock of the tests: installed through the library's clock seam for the
// object's lifetime, it drives timer expiry, event timings, the queue-length check and
// the resource monitor alike. The start is a whole second, so that the timer wheel's
// 10 ms slots line up with round intervals. A step moves it on at every reading, for
// code that measures how long its own work took.

#include <atomic>
#include <cstdint>

#include "base/CmClock.h"
#include "cmutil/base/CmTimeValue.h"

class CmFakeClock {
 public:
  explicit CmFakeClock(long startSec = 1700000000L, int64_t stepUs = 0) {
    us() = static_cast<int64_t>(startSec) * 1000000;
    step() = stepUs;
    cm_set_clock_for_test(&CmFakeClock::read);
  }
  ~CmFakeClock() { cm_set_clock_for_test(nullptr); }
  CmFakeClock(const CmFakeClock&) = delete;
  CmFakeClock& operator=(const CmFakeClock&) = delete;

  void AdvanceUs(int64_t delta) { us() += delta; }
  void AdvanceMs(long ms) { AdvanceUs(static_cast<int64_t>(ms) * 1000); }
  void Set(const CCmTimeValue& t) { us() = static_cast<int64_t>(t.GetSec()) * 1000000 + t.GetUsec(); }
  CCmTimeValue Now() const {
    const int64_t now = us().load();
    return CCmTimeValue(static_cast<long>(now / 1000000), static_cast<long>(now % 1000000));
  }

 private:
  // Read by the threads of a test while the test moves it.
  static std::atomic<int64_t>& us() {
    static std::atomic<int64_t> value{0};
    return value;
  }
  static std::atomic<int64_t>& step() {
    static std::atomic<int64_t> value{0};
    return value;
  }
  static int64_t read() { return us().fetch_add(step().load()); }
};
