// The default (ordered-list) queue through the base interface with a fake clock: refusal
// texts, remaining-time outputs, clock jumps, foreign cancel and the factory. Expiry,
// re-arming, counts and replacement over every variant are in the typed suite.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

#include "TimerTestSupport.h"
#include "cmutil/thread/CmThreadWaiter.h"
#include "cmutil/timerqueue/CmTimerQueueBase.h"
#include "cmutil/timerqueue/CmTimerQueueOrderedList.h"
#include "cmutil/trace/CmTrace.h"
#include "common/CmTraceCapture.h"

namespace {

std::unique_ptr<CCmTimerQueueBase> MakeQueue(ICmObserver* observer = nullptr) {
  return std::unique_ptr<CCmTimerQueueBase>(CCmTimerQueueBase::CreateTimerQueue(observer, 1));
}

TEST(CCmTimerQueueBaseTest, RemainingTimeAndEarliestOutputs) {
  CmFakeClock clock;
  auto queue = MakeQueue();
  RecordingHandler h("h", nullptr);
  CCmTimeValue remain(1L), earliest(1L);
  EXPECT_EQ(0, queue->CheckExpire(&remain, &earliest));  // empty: both outputs say "never"
  EXPECT_EQ(CCmTimeValue::get_tvMax(), remain);
  EXPECT_EQ(CCmTimeValue::get_tvMax(), earliest);
  CCmTimeValue start = clock.Now();
  queue->ScheduleTimer(&h, nullptr, CCmTimeValue(0L, 250000L), 1);
  EXPECT_EQ(0, queue->CheckExpire(&remain, &earliest));
  EXPECT_EQ(CCmTimeValue(0L, 250000L), remain);
  EXPECT_EQ(start + CCmTimeValue(0L, 250000L), earliest);
  clock.AdvanceMs(249);
  queue->CheckExpire(&remain, nullptr);
  EXPECT_EQ(CCmTimeValue(0L, 1000L), remain);
  clock.AdvanceMs(1);  // due exactly now: fires
  EXPECT_EQ(1, queue->CheckExpire(nullptr, &earliest));
  EXPECT_EQ(CCmTimeValue::get_tvMax(), earliest);
}

TEST(CCmTimerQueueBaseTest, ForwardJumpOfTwoHoursReArmsFromNow) {
  CmFakeClock clock;
  CmTraceCapture cap;
  auto queue = MakeQueue();
  RecordingHandler h("h", nullptr);
  queue->ScheduleTimer(&h, nullptr, CCmTimeValue(1L), 0);
  CCmTimeValue oldExpiry = queue->GetEarliestTime();
  clock.AdvanceMs(2L * 3600 * 1000);
  CCmTimeValue now = clock.Now();
  EXPECT_EQ(1, queue->CheckExpire());  // one firing, not 7200
  EXPECT_EQ(1, h.Count());
  EXPECT_EQ(now + CCmTimeValue(1L), queue->GetEarliestTime());
  std::string expected =
      "CCmTimerQueueBase::CheckExpire local changed, m_tvExpired=" + std::to_string(oldExpiry.GetTotalInMsec()) +
      ", tvCur=" + std::to_string(now.GetTotalInMsec()) + " [this=0x";
  EXPECT_TRUE(cap.contains(1, expected));
}

TEST(CCmTimerQueueBaseTest, BackwardJumpOfTwoHoursRebasesOrderedList) {
  CmFakeClock clock;
  CmTraceCapture cap;
  auto queue = MakeQueue();
  RecordingHandler h("h", nullptr);
  queue->ScheduleTimer(&h, nullptr, CCmTimeValue(0L, 100000L), 0);
  CCmTimeValue expiry = queue->GetEarliestTime();
  clock.AdvanceMs(-2L * 3600 * 1000);
  CCmTimeValue now = clock.Now();
  CCmTimeValue remain;
  EXPECT_EQ(0, queue->CheckExpire(&remain));
  EXPECT_EQ(CCmTimeValue::get_tvZero(), remain);
  std::string expected =
      "CCmTimerQueueBase::CheckExpire local changed, tvEarliest=" + std::to_string(expiry.GetTotalInMsec()) +
      ", tvCur=" + std::to_string(now.GetTotalInMsec()) + " [this=0x";
  EXPECT_TRUE(cap.contains(1, expected));
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

TEST(CCmTimerQueueBaseTest, FactoryFollowsDefaultType) {
  std::unique_ptr<CCmTimerQueueBase> q1(CCmTimerQueueBase::CreateTimerQueue(nullptr, 0));
  EXPECT_NE(nullptr, dynamic_cast<CCmTimerQueueOrderedList*>(q1.get()));
  EXPECT_EQ(nullptr, CCmTimerQueueBase::CreateTimerQueue(nullptr, 7));
  cm_set_default_timer_type(2);
  std::unique_ptr<CCmTimerQueueBase> q2(CCmTimerQueueBase::CreateTimerQueue(nullptr, 0));
  EXPECT_NE(nullptr, q2.get());
  EXPECT_EQ(nullptr, dynamic_cast<CCmTimerQueueOrderedList*>(q2.get()));
  cm_set_default_timer_type(0);  // ignored
  EXPECT_EQ(2u, m_defaultQueueType.load());
  cm_set_default_timer_type(9);
  EXPECT_EQ(nullptr, CCmTimerQueueBase::CreateTimerQueue(nullptr, 0));
  cm_set_default_timer_type(1);
}

}  // namespace
