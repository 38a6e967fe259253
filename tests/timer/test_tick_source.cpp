// Clock policies, clock-field breakdowns, the low tick thread and elapsed-time facts.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "cmutil/timer/CmTimer.h"
#include "cmutil/timer/CmTimerFact.h"
#include "common/CmTraceCapture.h"
#include "timer/CmLowTickHooks.h"

namespace {

TEST(ClockFields, DurationsKeepWholeHoursAndCalendarMonthsStartAtOne) {
  const tick_type d(((25LL * 60 + 59) * 60 + 58) * 1000000 + 123456);  // hours are not reduced modulo 24
  EXPECT_EQ((std::vector<unsigned>{25, 59, 58, 123, 456}),
            (std::vector<unsigned>{d.hour, d.minute, d.second, d.millisecond, d.microsecond}));
  const long long us = 1767225600LL * 1000000LL + 123456LL;  // early 2026
  time_type t(us);
  const time_t secs = static_cast<time_t>(us / 1000000);
  struct tm expected;
  ASSERT_NE(nullptr, localtime_r(&secs, &expected));
  EXPECT_EQ(std::make_tuple(expected.tm_year + 1900, expected.tm_mon + 1, expected.tm_mday, expected.tm_hour,
                            expected.tm_min, expected.tm_sec, expected.tm_wday, expected.tm_yday, 123u, 456u),
            std::make_tuple(t.tm_year, t.tm_mon, t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec, t.tm_wday, t.tm_yday,
                            t.millisecond, t.microsecond));

  const time_type now = formatted_timer::now();
  EXPECT_TRUE(now.tm_year >= 2024 && now.tm_mon >= 1 && now.tm_mon <= 12) << now.tm_year << "-" << now.tm_mon;
}

TEST(LowTick, NestedStartStopCountsAndTheLastStopEndsTheThread) {
  CmTraceCapture cap;
  startLowTick();
  ACmThread* tick = cm_low_tick_thread();
  ASSERT_NE(nullptr, tick);
  EXPECT_EQ(1u, cm_low_tick_ref_count());
  EXPECT_TRUE(low_tick_generator::instance()->is_started());
  EXPECT_TRUE(cap.contains("low_tick_generator::start [this="));

  startLowTick();
  EXPECT_EQ(std::make_pair(2u, tick), std::make_pair(cm_low_tick_ref_count(), cm_low_tick_thread()));
  EXPECT_TRUE(cap.contains("startLowTick: g_tickThread has been initialized"));

  // The cached value moves on while the thread runs.
  const long long first = low_tick_policy::now();
  long long later = first;
  for (int i = 0; i < 300 && later == first; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    later = low_tick_policy::now();
  }
  EXPECT_GT(later, first);

  stopLowTick();
  EXPECT_EQ(std::make_pair(1u, tick), std::make_pair(cm_low_tick_ref_count(), cm_low_tick_thread()));
  EXPECT_TRUE(cap.contains("stopLowTick, leave. refNum=1"));

  stopLowTick();
  EXPECT_EQ(0u, cm_low_tick_ref_count());
  EXPECT_EQ(nullptr, cm_low_tick_thread());
  EXPECT_FALSE(low_tick_generator::instance()->is_started());
  EXPECT_TRUE(cap.contains("low_tick_generator::stop [this="));

  cap.clear();
  stopLowTick();  // unmatched: stays at 0
  EXPECT_EQ(0u, cm_low_tick_ref_count());
  EXPECT_TRUE(cap.contains("stopLowTick, enter."));
  EXPECT_TRUE(cap.contains("stopLowTick, leave. refNum=0"));

  // And it can start again afterwards.
  startLowTick();
  EXPECT_NE(nullptr, cm_low_tick_thread());
  stopLowTick();
  EXPECT_EQ(nullptr, cm_low_tick_thread());
}

// A reader that sees the generator started also sees a tick value taken at or after
// the start, never the initial zero.
TEST(LowTick, AReaderThatSeesTheStartSeesItsFirstTick) {
  const long long before = tick_policy::now();
  std::atomic<bool> go{false};
  std::atomic<long long> seen{-1};
  std::thread reader([&] {
    while (!go.load()) std::this_thread::yield();
    for (int i = 0; i < 2000000 && !low_tick_generator::instance()->is_started(); ++i) std::this_thread::yield();
    seen = low_tick_policy::now();
  });
  go = true;
  startLowTick();
  reader.join();
  stopLowTick();
  EXPECT_GE(seen.load(), before);
}

// ---- timer_fact ----

struct FakePolicy {
  static long long value;
  static long long now() { return value; }
  static long long max_time_value() { return 9223372036854775807LL; }
};
long long FakePolicy::value = 0;

TEST(TimerFact, MinusOneMeansNowAndOvertimeZeroIsAlwaysTrue) {
  FakePolicy::value = 777;
  timer_fact<FakePolicy> fact(-1);
  EXPECT_EQ(std::make_tuple(777LL, 0LL, true, false),
            std::make_tuple(fact.latest_tag(), fact.elapsed(), fact.overtime(0), fact.overtime(1)));
  FakePolicy::value = 900;
  fact.reset();
  EXPECT_EQ(std::make_pair(900LL, 900LL), std::make_pair(fact.latest_tag(), timer_fact<FakePolicy>::now()));
}

TEST(TimerFact, ClockBehindTheStartIsTakenAsAWrap) {
  const long long max = 9223372036854775807LL;
  FakePolicy::value = 100;
  timer_fact<FakePolicy> fact(5000);  // a wall-clock step backwards
  // elapsed_sec: both instants fall in second 0.
  EXPECT_EQ(std::make_tuple(max - 5000 + 100, true, (max - 5000) / 1000 + 0, 0LL),
            std::make_tuple(fact.elapsed(), fact.overtime(1000000000LL), fact.elapsed_mills(), fact.elapsed_sec()));
  fact.reset(5000000);
  EXPECT_EQ((max - 5000000) / 1000000 + 0, fact.elapsed_sec());

  // Start at the maximum itself: n - max.
  fact.reset(max);
  FakePolicy::value = 10;
  EXPECT_EQ(static_cast<long long>(10ULL - static_cast<unsigned long long>(max)), fact.elapsed());

  // nm below sm but max - start within one unit: plain nm - sm.
  fact.reset(max - 500);
  FakePolicy::value = max - 900;
  EXPECT_EQ((max - 900) / 1000 - (max - 500) / 1000, fact.elapsed_mills());
}

// The most negative reading of a clock behind the start: wrapped arithmetic without
// negating it (which would overflow).
TEST(TimerFact, ReadingOfTheMostNegativeValueWrapsWithoutOverflow) {
  const long long min = -9223372036854775807LL - 1;
  FakePolicy::value = min;
  timer_fact<FakePolicy> fact(5);
  // max - 5 + min, in two's complement: -6.
  EXPECT_EQ(std::make_tuple(-6LL, -6LL, true, false),
            std::make_tuple(fact.elapsed(), fact.elapsed_at(min), fact.overtime(-6), fact.overtime(-5)));
  // max - 5 is far outside one unit, so the scaled forms wrap as well.
  EXPECT_EQ((9223372036854775807LL - 5) / 1000 + min / 1000, fact.elapsed_mills());
  EXPECT_EQ((9223372036854775807LL - 5) / 1000000 + min / 1000000, fact.elapsed_sec());
}

}  // namespace
