// CCmTimeValue: normalisation, conversions, arithmetic and comparisons.

#include <gtest/gtest.h>

#include <sys/time.h>

#include <ctime>
#include <tuple>
#include <utility>
#include <vector>

#include "cmutil/base/CmTimeValue.h"

namespace {

long long RealtimeUs() {
  timespec ts = {};
  clock_gettime(CLOCK_REALTIME, &ts);
  return ts.tv_sec * 1000000LL + ts.tv_nsec / 1000;
}

void ExpectTv(long sec, long usec, const CCmTimeValue& tv) {
  EXPECT_EQ(std::make_pair(sec, usec), std::make_pair(tv.GetSec(), tv.GetUsec()));
}

TEST(CCmTimeValueTest, NormalisesMicrosecondsAndSigns) {
  ExpectTv(2, 500000, CCmTimeValue(0L, 2500000L));
  ExpectTv(-2, -500000, CCmTimeValue(0L, -2500000L));
  ExpectTv(1, 500000, CCmTimeValue(2L, -500000L));
  ExpectTv(-1, -500000, CCmTimeValue(-2L, 500000L));
  ExpectTv(2, 500000, CCmTimeValue(1L, 1500000L));
  ExpectTv(0, 999999, CCmTimeValue(1L, -1L));
  ExpectTv(0, -999999, CCmTimeValue(-1L, 1L));
  ExpectTv(0, -5, CCmTimeValue(0L, -5L));
  ExpectTv(3, 0, CCmTimeValue(3L, 0L));
  ExpectTv(7, 0, CCmTimeValue(7));
  CCmTimeValue tv;
  tv.Set(5L, 1000000L);
  ExpectTv(6, 0, tv);
  // From a double: truncated toward zero.
  ExpectTv(1, 250000, CCmTimeValue(1.25));
  ExpectTv(-1, -250000, CCmTimeValue(-1.25));
  ExpectTv(0, 500000, CCmTimeValue(0.5));
  timeval raw = {4, 2000001};
  ExpectTv(6, 1, CCmTimeValue(raw));
  // Millisecond totals.
  tv.SetByTotalMsec(1001999);
  ExpectTv(1001, 999000, tv);
  tv.SetByTotalMsec(-1500);
  ExpectTv(-1, -500000, tv);
  EXPECT_EQ(std::make_pair(1999L, -1500L),
            std::make_pair(CCmTimeValue(1L, 999999L).GetTotalInMsec(), CCmTimeValue(-1L, -500999L).GetTotalInMsec()));
}

TEST(CCmTimeValueTest, ArithmeticAndOrdering) {
  ExpectTv(0, 999999, CCmTimeValue(1L, 0L) - CCmTimeValue(0L, 1L));
  ExpectTv(2, 100000, CCmTimeValue(1L, 600000L) + CCmTimeValue(0L, 500000L));
  ExpectTv(-1, -500000, CCmTimeValue(1L, 0L) - CCmTimeValue(2L, 500000L));
  CCmTimeValue acc(1L);
  acc += CCmTimeValue(0L, 999999L);
  acc -= CCmTimeValue(0L, 999999L);
  ExpectTv(1, 0, acc);

  const CCmTimeValue lo(0L, 999999L), one(1L, 0L), a(1L, 5L), b(1L, 5L), c(1L, 6L);
  EXPECT_EQ(std::vector<bool>(7, true), (std::vector<bool>{(lo < one), (one > lo), a <= b, a >= b, a == b, a != c,
                                                           CCmTimeValue(-1L, -5L) < CCmTimeValue(0L, -5L)}));
}

TEST(CCmTimeValueTest, CalendarFieldsOfTheSeconds) {
  tm utc = {};
  CCmTimeValue(86400L + 3723L, 999999L).GetUTCTime(&utc);  // 1970-01-02 01:02:03
  EXPECT_EQ(std::make_tuple(70, 0, 2, 1, 2, 3),
            std::make_tuple(utc.tm_year, utc.tm_mon, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec));
  tm local = {};
  CCmTimeValue(0L).GetLocalTime(&local);
  EXPECT_GE(local.tm_year, 69);
  // Bracketed by the precise realtime clock: time() reads the coarse one,
  // which lags by up to a tick and fails just after a second boundary.
  const long long before = RealtimeUs();
  const CCmTimeValue now = CCmTimeValue::GetTimeOfDay();
  const long long nowUs = now.GetSec() * 1000000LL + now.GetUsec();
  EXPECT_TRUE(nowUs >= before && nowUs <= RealtimeUs()) << nowUs;
}

}  // namespace
