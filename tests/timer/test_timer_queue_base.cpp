// The default (ordered-list) queue through the base interface with a fake clock:
// remaining-time outputs, clock jumps and the factory. Refusals, expiry, re-arming, counts
// and replacement over every variant are in the typed suite.

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <utility>

#include "TimerTestSupport.h"
#include "cmutil/timerqueue/CmTimerMinHeapQueue.h"
#include "cmutil/timerqueue/CmTimerQueueBase.h"
#include "cmutil/timerqueue/CmTimerQueueOrderedList.h"
#include "common/CmTraceCapture.h"

namespace {

// The default queue (type 1) on a fake clock, with one handler and captured traces.
class CCmTimerQueueBaseTest : public ::testing::Test {
 protected:
  CmFakeClock clock;
  CmTraceCapture cap;
  std::unique_ptr<CCmTimerQueueBase> queue{CCmTimerQueueBase::CreateTimerQueue(nullptr, 1)};
  RecordingHandler h{"h", nullptr};
};

TEST_F(CCmTimerQueueBaseTest, RemainingTimeAndEarliestOutputs) {
  CCmTimeValue remain(1L), earliest(1L);
  EXPECT_EQ(0, queue->CheckExpire(&remain, &earliest));  // empty: both outputs say "never"
  EXPECT_EQ(std::make_pair(CCmTimeValue::get_tvMax(), CCmTimeValue::get_tvMax()), std::make_pair(remain, earliest));
  CCmTimeValue start = clock.Now();
  queue->ScheduleTimer(&h, nullptr, CCmTimeValue(0L, 250000L), 1);
  EXPECT_EQ(0, queue->CheckExpire(&remain, &earliest));
  EXPECT_EQ(std::make_pair(CCmTimeValue(0L, 250000L), start + CCmTimeValue(0L, 250000L)),
            std::make_pair(remain, earliest));
  clock.AdvanceMs(249);
  queue->CheckExpire(&remain, nullptr);
  EXPECT_EQ(CCmTimeValue(0L, 1000L), remain);
  clock.AdvanceMs(1);  // due exactly now: fires
  EXPECT_EQ(1, queue->CheckExpire(nullptr, &earliest));
  EXPECT_EQ(CCmTimeValue::get_tvMax(), earliest);
}

TEST_F(CCmTimerQueueBaseTest, ForwardJumpOfTwoHoursReArmsFromNow) {
  queue->ScheduleTimer(&h, nullptr, CCmTimeValue(1L), 0);
  CCmTimeValue oldExpiry = queue->GetEarliestTime();
  clock.AdvanceMs(2L * 3600 * 1000);
  CCmTimeValue now = clock.Now();
  EXPECT_EQ(1, queue->CheckExpire());  // one firing, not 7200
  EXPECT_EQ(std::make_pair(1, now + CCmTimeValue(1L)), std::make_pair(h.Count(), queue->GetEarliestTime()));
  EXPECT_TRUE(cap.contains(
      1, "CCmTimerQueueBase::CheckExpire local changed, m_tvExpired=" + std::to_string(oldExpiry.GetTotalInMsec()) +
             ", tvCur=" + std::to_string(now.GetTotalInMsec()) + " [this=0x"));
}

TEST_F(CCmTimerQueueBaseTest, BackwardJumpOfTwoHoursRebasesOrderedList) {
  queue->ScheduleTimer(&h, nullptr, CCmTimeValue(0L, 100000L), 0);
  CCmTimeValue expiry = queue->GetEarliestTime();
  clock.AdvanceMs(-2L * 3600 * 1000);
  CCmTimeValue now = clock.Now();
  CCmTimeValue remain;
  EXPECT_EQ(0, queue->CheckExpire(&remain));
  EXPECT_EQ(CCmTimeValue::get_tvZero(), remain);
  EXPECT_TRUE(cap.contains(
      1, "CCmTimerQueueBase::CheckExpire local changed, tvEarliest=" + std::to_string(expiry.GetTotalInMsec()) +
             ", tvCur=" + std::to_string(now.GetTotalInMsec()) + " [this=0x"));
  // Rebased: due one interval after the new time, and then every interval.
  EXPECT_EQ(now + CCmTimeValue(0L, 100000L), queue->GetEarliestTime());
  cap.clear();
  clock.AdvanceMs(100);
  EXPECT_EQ(1, queue->CheckExpire(&remain));
  EXPECT_EQ(CCmTimeValue(0L, 100000L), remain);
  clock.AdvanceMs(100);
  EXPECT_EQ(1, queue->CheckExpire());
  EXPECT_FALSE(cap.contains("local changed"));
}

TEST_F(CCmTimerQueueBaseTest, FactoryFollowsDefaultType) {
  std::unique_ptr<CCmTimerQueueBase> q1(CCmTimerQueueBase::CreateTimerQueue(nullptr, 0));
  EXPECT_NE(nullptr, dynamic_cast<CCmTimerQueueOrderedList*>(q1.get()));
  EXPECT_EQ(nullptr, CCmTimerQueueBase::CreateTimerQueue(nullptr, 7));
  cm_set_default_timer_type(2);
  std::unique_ptr<CCmTimerQueueBase> q2(CCmTimerQueueBase::CreateTimerQueue(nullptr, 0));
  EXPECT_NE(nullptr, dynamic_cast<CCmTimerMinHeapQueue*>(q2.get()));
  cm_set_default_timer_type(0);  // ignored
  EXPECT_EQ(2u, m_defaultQueueType.load());
  cm_set_default_timer_type(9);
  EXPECT_EQ(nullptr, CCmTimerQueueBase::CreateTimerQueue(nullptr, 0));
  cm_set_default_timer_type(1);
}

}  // namespace
