// One behaviour suite over every timer-queue variant built on the shared base (ordered
// list, min-heap, wheel, on-demand), on a fake clock, plus each variant's own quirks.

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "TimerTestSupport.h"
#include "cmutil/timerqueue/CmTimerMinHeapQueue.h"
#include "cmutil/timerqueue/CmTimerQueueOnDemand.h"
#include "cmutil/timerqueue/CmTimerQueueOrderedList.h"
#include "cmutil/timerqueue/CmTimerWheelQueue.h"
#include "common/CmTraceCapture.h"
#include "timerqueue/CmTimerNodePool.h"
#include "timerqueue/CmTimerPtrMap.h"
#include "timerqueue/CmTimerWheelInspector.h"

namespace {

template <class Q>
class TimerQueueVariant : public ::testing::Test {
 protected:
  TimerQueueVariant() : queue(new Q(&observer)) {}

  int Check(CCmTimeValue* remain = nullptr, CCmTimeValue* earliest = nullptr) {
    CCmTimeValue r = CCmTimeValue::get_tvMax();
    const int fired = queue->CheckExpire(&r, earliest);
    if (remain) *remain = r;
    return fired;
  }
  int CheckAfter(long ms, CCmTimeValue* remain = nullptr, CCmTimeValue* earliest = nullptr) {
    clock.AdvanceMs(ms);
    return Check(remain, earliest);
  }

  CmFakeClock clock;
  CountingObserver observer;
  std::unique_ptr<CCmTimerQueueBase> queue;
  std::vector<Firing> log;
  // The on-demand queue tells its observer of every new timer, refusals and replacements aside.
  const int onDemandNotices = std::is_same<Q, CCmTimerQueueOnDemand>::value;
};

using Variants =
    ::testing::Types<CCmTimerQueueOrderedList, CCmTimerMinHeapQueue, CCmTimerWheelQueue, CCmTimerQueueOnDemand>;
TYPED_TEST_SUITE(TimerQueueVariant, Variants);

TYPED_TEST(TimerQueueVariant, ZeroIntervalOneShotFiresOnceOnNextCheck) {
  RecordingHandler h("h", &this->log);
  int arg = 7;
  EXPECT_EQ(CM_OK, this->queue->ScheduleTimer(&h, &arg, CCmTimeValue(0L, 0L), 1));
  CCmTimeValue remain;
  EXPECT_EQ(1, this->Check(&remain));
  ASSERT_EQ(1u, this->log.size());
  EXPECT_EQ(std::make_tuple(static_cast<void*>(&arg), this->clock.Now(), CCmTimeValue::get_tvMax()),
            std::make_tuple(this->log[0].arg, this->log[0].at, remain));
  EXPECT_EQ((std::vector<int>{0, 1}), (std::vector<int>{this->Check(), h.Count()}));  // braced: in this order
}

TYPED_TEST(TimerQueueVariant, RefusesNullHandlerAndRepeatingZeroInterval) {
  CmTraceCapture cap;
  RecordingHandler h("h", &this->log);
  EXPECT_EQ(CM_ERROR_INVALID_ARG, this->queue->ScheduleTimer(nullptr, nullptr, Ms(10), 1));
  EXPECT_EQ(CM_ERROR_INVALID_ARG, this->queue->ScheduleTimer(&h, nullptr, CCmTimeValue(0L, 0L), 0));
  EXPECT_TRUE(cap.contains("Assert failed: aInterval > CCmTimeValue::get_tvZero() || aCount == 1"));
  EXPECT_EQ(CM_ERROR_INVALID_ARG, this->queue->CancelTimer(nullptr));
  EXPECT_EQ(CCmTimeValue::get_tvMax(), this->queue->GetEarliestTime());
  EXPECT_EQ(0, this->observer.Count("TimerQueueOnDemand"));
}

TYPED_TEST(TimerQueueVariant, FiresInExpiryOrderWithOneTimeForThePass) {
  std::vector<std::unique_ptr<RecordingHandler>> handlers;
  const long intervals[] = {30, 10, 50, 20, 40};
  for (long ms : intervals) {
    handlers.emplace_back(new RecordingHandler(std::to_string(ms), &this->log));
    ASSERT_EQ(CM_OK, this->queue->ScheduleTimer(handlers.back().get(), nullptr, Ms(ms), 1));
  }
  // Told of the first timer of an empty queue only; the on-demand queue also of each new one.
  EXPECT_EQ(std::make_pair(1, 5 * this->onDemandNotices),
            std::make_pair(this->observer.Count("TimerQueue"), this->observer.Count("TimerQueueOnDemand")));
  EXPECT_EQ((std::vector<int>{3, 2}), (std::vector<int>{this->CheckAfter(35), this->CheckAfter(20)}));
  EXPECT_EQ((std::vector<std::string>{"10", "20", "30", "40", "50"}), NamesOf(this->log));
  EXPECT_EQ(this->log[0].at, this->log[2].at);  // one pass, one time
}

TYPED_TEST(TimerQueueVariant, MissedPeriodsAreSkippedNotBurst) {
  RecordingHandler h("h", &this->log);
  const CCmTimeValue start = this->clock.Now();
  ASSERT_EQ(CM_OK, this->queue->ScheduleTimer(&h, nullptr, Ms(100), 0));
  CCmTimeValue remain, earliest;
  EXPECT_EQ(1, this->CheckAfter(350, &remain, &earliest));
  EXPECT_EQ(std::make_pair(start + Ms(400), Ms(50)), std::make_pair(earliest, remain));
  EXPECT_EQ((std::vector<int>{1, 2}), (std::vector<int>{this->CheckAfter(50), h.Count()}));
}

TYPED_TEST(TimerQueueVariant, CountedTimerRunsOutAndEmptiesTheQueue) {
  RecordingHandler h("h", &this->log);
  ASSERT_EQ(CM_OK, this->queue->ScheduleTimer(&h, nullptr, Ms(20), 3));
  CCmTimeValue remain;
  for (int i = 0; i < 5; ++i) this->CheckAfter(20, &remain);
  EXPECT_EQ(std::make_tuple(3, CCmTimeValue::get_tvMax(), CCmTimeValue::get_tvMax()),
            std::make_tuple(h.Count(), remain, this->queue->GetEarliestTime()));
}

TYPED_TEST(TimerQueueVariant, RescheduleReplacesTheSingleTimer) {
  RecordingHandler h("h", &this->log);
  int a = 1, b = 2;
  ASSERT_EQ(CM_OK, this->queue->ScheduleTimer(&h, &a, Ms(50), 1));
  EXPECT_EQ(CM_ERROR_FOUND, this->queue->ScheduleTimer(&h, &b, Ms(200), 2));
  EXPECT_EQ(this->onDemandNotices, this->observer.Count("TimerQueueOnDemand"));  // none for the replacement
  // Braced lists run their elements in order: the checks follow one another.
  EXPECT_EQ((std::vector<int>{0, 1, 1, 0}), (std::vector<int>{this->CheckAfter(100), this->CheckAfter(100),
                                                              this->CheckAfter(200), this->CheckAfter(200)}));
  ASSERT_EQ(2u, this->log.size());
  EXPECT_EQ((std::pair<void*, void*>(&b, &b)), std::make_pair(this->log[0].arg, this->log[1].arg));
}

TYPED_TEST(TimerQueueVariant, CancelRemovesAndUnknownIsNotFound) {
  RecordingHandler h("h", &this->log), other("o", &this->log);
  ASSERT_EQ(CM_OK, this->queue->ScheduleTimer(&h, nullptr, Ms(10), 0));
  ASSERT_EQ(CM_OK, this->queue->ScheduleTimer(&other, nullptr, Ms(30), 1));
  EXPECT_EQ(CM_OK, this->queue->CancelTimer(&h));
  EXPECT_EQ(CM_ERROR_NOT_FOUND, this->queue->CancelTimer(&h));
  EXPECT_EQ((std::vector<int>{1, 0, 1}), (std::vector<int>{this->CheckAfter(40), h.Count(), other.Count()}));
}

TYPED_TEST(TimerQueueVariant, SelfCancelInsideCallback) {
  RecordingHandler repeating("r", &this->log), oneShot("o", &this->log);
  CmResult repeatingRv = -1, oneShotRv = -1;
  auto* q = this->queue.get();
  repeating.SetAction([&](RecordingHandler* self) { repeatingRv = q->CancelTimer(self); });
  oneShot.SetAction([&](RecordingHandler* self) { oneShotRv = q->CancelTimer(self); });
  ASSERT_EQ(CM_OK, q->ScheduleTimer(&repeating, nullptr, Ms(10), 0));
  ASSERT_EQ(CM_OK, q->ScheduleTimer(&oneShot, nullptr, Ms(20), 1));
  EXPECT_EQ(2, this->CheckAfter(20));
  EXPECT_EQ((std::pair<CmResult, CmResult>(CM_OK, CM_ERROR_NOT_FOUND)), std::make_pair(repeatingRv, oneShotRv));
  EXPECT_EQ((std::vector<int>{0, 1}), (std::vector<int>{this->CheckAfter(100), repeating.Count()}));
}

TYPED_TEST(TimerQueueVariant, CallbackCancelsAnotherDueTimerOfTheSamePass) {
  RecordingHandler first("first", &this->log), second("second", &this->log);
  auto* q = this->queue.get();
  first.SetAction([&](RecordingHandler*) { EXPECT_EQ(CM_OK, q->CancelTimer(&second)); });
  ASSERT_EQ(CM_OK, q->ScheduleTimer(&first, nullptr, Ms(10), 1));
  ASSERT_EQ(CM_OK, q->ScheduleTimer(&second, nullptr, Ms(20), 1));
  EXPECT_EQ((std::vector<int>{1, 0}), (std::vector<int>{this->CheckAfter(30), second.Count()}));
}

// A due timer leaves the slot it shares with two repeating timers that are not due yet:
// the pass must stop there instead of re-arming the two forever. The callbacks cancel
// themselves after a bounded number of runs so that a regression fails instead of hanging.
TYPED_TEST(TimerQueueVariant, PassEndsWhenTheRestOfASharedSlotIsNotDue) {
  RecordingHandler a("a", &this->log), b("b", &this->log), c("c", &this->log);
  auto* q = this->queue.get();
  auto brake = [q](RecordingHandler* self) {
    if (self->Count() > 20) q->CancelTimer(self);
  };
  b.SetAction(brake);
  c.SetAction(brake);
  ASSERT_EQ(CM_OK, q->ScheduleTimer(&a, nullptr, Ms(11), 1));
  ASSERT_EQ(CM_OK, q->ScheduleTimer(&b, nullptr, Ms(15), 0));
  ASSERT_EQ(CM_OK, q->ScheduleTimer(&c, nullptr, Ms(16), 0));
  const CCmTimeValue start = this->clock.Now();
  CCmTimeValue remain, earliest;
  EXPECT_EQ(1, this->CheckAfter(11, &remain, &earliest));
  EXPECT_EQ(std::make_tuple(0, 0, start + Ms(15), Ms(4)), std::make_tuple(b.Count(), c.Count(), earliest, remain));
  EXPECT_EQ(1, this->CheckAfter(4, &remain, &earliest));
  EXPECT_EQ(std::make_tuple(1, 0, start + Ms(16)), std::make_tuple(b.Count(), c.Count(), earliest));
  EXPECT_EQ(1, this->CheckAfter(1, &remain, &earliest));
  EXPECT_EQ(std::make_pair(1, start + Ms(30)), std::make_pair(c.Count(), earliest));
  EXPECT_EQ((std::vector<std::string>{"a", "b", "c"}), NamesOf(this->log));
}

// Cancelling the earliest timer of a slot that keeps other timers must not leave its
// expiry behind as the queue's earliest.
TYPED_TEST(TimerQueueVariant, CancelOfTheEarliestInASharedSlotUpdatesTheEarliest) {
  RecordingHandler a("a", &this->log), b("b", &this->log), c("c", &this->log);
  auto* q = this->queue.get();
  ASSERT_EQ(CM_OK, q->ScheduleTimer(&a, nullptr, Ms(11), 1));
  ASSERT_EQ(CM_OK, q->ScheduleTimer(&b, nullptr, Ms(15), 0));
  ASSERT_EQ(CM_OK, q->ScheduleTimer(&c, nullptr, Ms(16), 0));
  const CCmTimeValue start = this->clock.Now();
  EXPECT_EQ(CM_OK, q->CancelTimer(&a));
  EXPECT_EQ(start + Ms(15), q->GetEarliestTime());
  EXPECT_EQ((std::vector<int>{0, 0, 0}), (std::vector<int>{this->CheckAfter(12), b.Count(), c.Count()}));
  EXPECT_EQ(CM_OK, q->CancelTimer(&b));
  EXPECT_EQ(start + Ms(16), q->GetEarliestTime());
  EXPECT_EQ((std::vector<int>{1, 1}), (std::vector<int>{this->CheckAfter(4), c.Count()}));
}

// About 2,000 live timers (far more than one pool block of the wheel), one-shot,
// counted and repeating, from 10 ms to 40 s (so some wait in the wheel's far lists),
// with cancels and reschedules interleaved between checks on an irregular clock. After
// every check each handler must have fired exactly as often as a plain model says.
TYPED_TEST(TimerQueueVariant, ManyTimersMatchAReferenceModel) {
  struct Model {
    bool active = false;
    long long expiry = 0;  // ms since the start
    long long interval = 0;
    unsigned int left = 0;  // firings left; 0 without end
    int fired = 0;
  };
  constexpr int kTimers = 2000;
  std::mt19937 rng(4);
  std::uniform_int_distribution<int> pick(0, kTimers - 1);
  std::uniform_int_distribution<int> shortMs(10, 3000);
  std::uniform_int_distribution<int> longMs(3000, 40000);
  std::uniform_int_distribution<int> percent(0, 99);
  std::vector<std::unique_ptr<RecordingHandler>> handlers;
  std::vector<Model> model(kTimers);
  long long now = 0;
  auto schedule = [&](int i) {
    const long long ms = percent(rng) < 80 ? shortMs(rng) : longMs(rng);
    const int kind = percent(rng);
    const unsigned int count = kind < 40 ? 1u : (kind < 70 ? 3u : 0u);
    const CmResult rv = this->queue->ScheduleTimer(handlers[i].get(), nullptr, Ms(ms), count);
    ASSERT_EQ(model[i].active ? CM_ERROR_FOUND : CM_OK, rv) << "timer " << i;
    model[i] = {true, now + ms, ms, count, model[i].fired};
  };
  for (int i = 0; i < kTimers; ++i) {
    handlers.emplace_back(new RecordingHandler(std::to_string(i), nullptr));
    schedule(i);
  }
  size_t maxLive = 0;
  for (int step = 0; step < 1500; ++step) {
    // A few operations between checks.
    for (int op = percent(rng) % 6; op > 0; --op) {
      const int i = pick(rng);
      if (percent(rng) < 40) {
        const CmResult rv = this->queue->CancelTimer(handlers[i].get());
        ASSERT_EQ(model[i].active ? CM_OK : CM_ERROR_NOT_FOUND, rv) << "timer " << i;
        model[i].active = false;
      } else {
        schedule(i);
      }
    }
    const int jump = percent(rng);
    const long advance =
        jump == 0 ? 25000 + percent(rng) * 200 : (jump < 3 ? 1000 + percent(rng) * 20 : 1 + percent(rng) % 37);
    this->clock.AdvanceMs(advance);
    now += advance;
    int expected = 0;
    size_t live = 0;
    long long modelEarliest = -1;
    for (Model& m : model) {
      if (m.active && m.expiry <= now) {
        ++m.fired;
        ++expected;
        if (m.left == 1) {
          m.active = false;
        } else {
          if (m.left != 0) --m.left;
          while (m.expiry <= now) m.expiry += m.interval;
        }
      }
      live += m.active;
      if (m.active && (modelEarliest < 0 || m.expiry < modelEarliest)) modelEarliest = m.expiry;
    }
    maxLive = std::max(maxLive, live);
    EXPECT_EQ(expected, this->Check()) << "step " << step << " at " << now << " ms";
    for (int i = 0; i < kTimers; ++i)
      ASSERT_EQ(model[i].fired, handlers[i]->Count())
          << "timer " << i << " exp " << model[i].expiry << " int " << model[i].interval << " left " << model[i].left
          << " active " << model[i].active;
    ASSERT_EQ(modelEarliest < 0 ? CCmTimeValue::get_tvMax() : this->clock.Now() + Ms(modelEarliest - now),
              this->queue->GetEarliestTime())
        << "step " << step;
  }
  EXPECT_GT(maxLive, 512u);
}

// ---- quirks of the min-heap ----

TEST(TimerQueueQuirks, MinHeapKeepsOrderAfterRemoveAndRebuild) {
  CmFakeClock clock;
  CCmTimerMinHeapQueue queue(nullptr);
  std::vector<Firing> log;
  std::vector<std::unique_ptr<RecordingHandler>> handlers;
  std::mt19937 rng(99);
  std::uniform_int_distribution<int> dist(1, 1000);
  std::vector<long> due;
  for (int i = 0; i < 200; ++i) {
    handlers.emplace_back(new RecordingHandler(std::to_string(i), &log));
    due.push_back(dist(rng));
    queue.ScheduleTimer(handlers.back().get(), nullptr, Ms(due.back()), 1);
  }
  for (int i = 0; i < 200; i += 3) EXPECT_EQ(CM_OK, queue.CancelTimer(handlers[i].get()));
  for (int i = 1; i < 200; i += 7) {  // reschedule some live ones: remove + re-insert
    if (i % 3 == 0) continue;
    EXPECT_EQ(CM_ERROR_FOUND, queue.ScheduleTimer(handlers[i].get(), nullptr, Ms(due[i] = dist(rng)), 1));
  }
  EXPECT_EQ(200u - 67u, queue.GetCount());
  clock.AdvanceMs(1000);
  queue.CheckExpire(nullptr, nullptr);
  ASSERT_EQ(133u, log.size());
  for (size_t i = 1; i < log.size(); ++i) EXPECT_LE(due[std::stoi(log[i - 1].name)], due[std::stoi(log[i].name)]);
  EXPECT_EQ(0u, queue.GetCount());
}

// ---- the wheel ----

class TimerWheel : public ::testing::Test {
 protected:
  int CheckAfter(long ms, CCmTimeValue* remain = nullptr) {
    clock.AdvanceMs(ms);
    return queue.CheckExpire(remain, nullptr);
  }

  CmFakeClock clock;
  CCmTimerWheelQueue queue{nullptr};
  std::vector<Firing> log;
};

TEST_F(TimerWheel, AnEarlierTimerStoredBehindALaterOneFiresAloneAndNothingFiresTwice) {
  RecordingHandler later("later", &log), sooner("sooner", &log);
  ASSERT_EQ(CM_OK, queue.ScheduleTimer(&later, nullptr, CCmTimeValue(0L, 15000L), 0));
  ASSERT_EQ(CM_OK, queue.ScheduleTimer(&sooner, nullptr, CCmTimeValue(0L, 12000L), 1));
  const CCmTimeValue start = clock.Now();
  EXPECT_EQ(start + CCmTimeValue(0L, 12000L), CmTimerWheelInspector::CachedEarliest(queue));
  EXPECT_EQ((std::vector<int>{1, 1, 0}), (std::vector<int>{CheckAfter(12), sooner.Count(), later.Count()}));
  EXPECT_EQ(start + CCmTimeValue(0L, 15000L), CmTimerWheelInspector::CachedEarliest(queue));
  EXPECT_EQ((std::vector<int>{1, 0, 1}), (std::vector<int>{CheckAfter(3), CheckAfter(5), later.Count()}));
  EXPECT_EQ(start + CCmTimeValue(0L, 30000L), queue.GetEarliestTime());
}

// After the clock ran ahead, the slot of an overdue timer may also hold a timer one
// revolution later; the earliest after the overdue one fires lies in another slot.
TEST_F(TimerWheel, ASlotsNextRevolutionTimerDoesNotHideAnEarlierOneElsewhere) {
  RecordingHandler overdue("overdue", nullptr), nextLap("nextLap", nullptr), soon("soon", nullptr);
  const CCmTimeValue start = clock.Now();
  ASSERT_EQ(CM_OK, queue.ScheduleTimer(&overdue, nullptr, Ms(15), 1));
  clock.AdvanceMs(1000);
  // 30.015 s after the start: the same slot as `overdue`, and within 30 s of now.
  ASSERT_EQ(CM_OK, queue.ScheduleTimer(&nextLap, nullptr, Ms(29015), 1));
  ASSERT_EQ(CM_OK, queue.ScheduleTimer(&soon, nullptr, Ms(500), 1));
  EXPECT_EQ(CCmTimerWheelQueue::SlotOf(start + Ms(15)), CCmTimerWheelQueue::SlotOf(start + Ms(30015)));
  CCmTimeValue remain;
  EXPECT_EQ(1, queue.CheckExpire(&remain, nullptr));
  EXPECT_EQ(std::make_tuple(1, start + Ms(1500), Ms(500)),
            std::make_tuple(overdue.Count(), queue.GetEarliestTime(), remain));
  EXPECT_EQ((std::vector<int>{1, 1, 0}), (std::vector<int>{CheckAfter(500), soon.Count(), nextLap.Count()}));
  EXPECT_EQ(start + Ms(30015), queue.GetEarliestTime());
}

TEST_F(TimerWheel, FarTimerMovesToItsNearListWhenARescanReachesIt) {
  RecordingHandler far("far", nullptr), near("near", nullptr);
  const CCmTimeValue farAt = clock.Now() + Ms(45000);
  const unsigned int farSlot = CCmTimerWheelQueue::SlotOf(farAt);
  ASSERT_EQ(CM_OK, queue.ScheduleTimer(&far, nullptr, Ms(45000), 1));
  EXPECT_EQ(1u, CmTimerWheelInspector::FarCount(queue, farSlot));
  EXPECT_EQ(0u, CmTimerWheelInspector::NearCount(queue, farSlot));
  EXPECT_EQ(farSlot, far.m_dwWheelSlot);

  // 40 s later a near timer fires; the rescan after its pop walks to the far slot.
  clock.AdvanceMs(40000);
  ASSERT_EQ(CM_OK, queue.ScheduleTimer(&near, nullptr, Ms(10), 1));
  EXPECT_EQ(1, CheckAfter(10));
  EXPECT_EQ(0u, CmTimerWheelInspector::FarCount(queue, farSlot));
  EXPECT_EQ(1u, CmTimerWheelInspector::NearCount(queue, farSlot));
  EXPECT_EQ(farAt, CmTimerWheelInspector::CachedEarliest(queue));

  EXPECT_EQ((std::vector<int>{0, 1, 1}), (std::vector<int>{CheckAfter(4989), CheckAfter(1), far.Count()}));
}

TEST_F(TimerWheel, QueueOfOnlyFarTimersStillFiresThem) {
  RecordingHandler a("a", nullptr), b("b", nullptr), c("c", nullptr);
  ASSERT_EQ(CM_OK, queue.ScheduleTimer(&a, nullptr, Ms(31000), 1));
  ASSERT_EQ(CM_OK, queue.ScheduleTimer(&b, nullptr, Ms(45000), 1));
  ASSERT_EQ(CM_OK, queue.ScheduleTimer(&c, nullptr, Ms(75000), 1));
  // After each pop no near timer is left; the far ones keep the earliest time.
  CCmTimeValue r1, r2, r3;
  EXPECT_EQ((std::vector<int>{1, 1, 1}),
            (std::vector<int>{CheckAfter(31000, &r1), CheckAfter(14000, &r2), CheckAfter(30000, &r3)}));
  EXPECT_EQ(std::make_tuple(Ms(14000), Ms(30000), CCmTimeValue::get_tvMax()), std::make_tuple(r1, r2, r3));
  EXPECT_EQ(std::make_tuple(1, 1, 1), std::make_tuple(a.Count(), b.Count(), c.Count()));
}

TEST_F(TimerWheel, FarListIsSortedAndRepeatingFarTimerReArms) {
  RecordingHandler later("later", &log), sooner("sooner", &log);
  // Same slot (both multiples of 30 s from an aligned start), one revolution apart.
  ASSERT_EQ(CM_OK, queue.ScheduleTimer(&later, nullptr, Ms(90000), 1));
  ASSERT_EQ(CM_OK, queue.ScheduleTimer(&sooner, nullptr, Ms(60000), 0));
  const unsigned int slot = CCmTimerWheelQueue::SlotOf(clock.Now());
  EXPECT_EQ(2u, CmTimerWheelInspector::FarCount(queue, slot));
  EXPECT_EQ((std::vector<int>{1, 1, 1}), (std::vector<int>{CheckAfter(60000), CheckAfter(30000), CheckAfter(30000)}));
  EXPECT_EQ((std::vector<std::string>{"sooner", "later", "sooner"}), NamesOf(log));
}

TEST_F(TimerWheel, CancellingTheEarliestRescansToTheNext) {
  RecordingHandler a("a", nullptr), b("b", nullptr), far("far", nullptr);
  const std::pair<RecordingHandler*, long> timers[] = {{&a, 100}, {&b, 2500}, {&far, 40000}};
  for (const auto& t : timers) ASSERT_EQ(CM_OK, queue.ScheduleTimer(t.first, nullptr, Ms(t.second), 1));
  for (const auto& t : timers) {  // the earliest is cancelled each time
    EXPECT_EQ(clock.Now() + Ms(t.second), queue.GetEarliestTime()) << t.second;
    EXPECT_EQ(CM_OK, queue.CancelTimer(t.first));
  }
  EXPECT_EQ(std::make_pair(CCmTimeValue::get_tvMax(), size_t{0}),
            std::make_pair(queue.GetEarliestTime(), queue.GetCount()));
}

TEST(TimerPointerIndex, MapSurvivesEraseAndGrowth) {
  std::mt19937 rng(5);
  std::vector<int> objects(3000);
  std::vector<const void*> keys;
  for (auto& o : objects) keys.push_back(&o);
  std::shuffle(keys.begin(), keys.end(), rng);
  CmTimerPtrMap<size_t> map;
  for (size_t i = 0; i < keys.size(); ++i) map.set(keys[i], i);
  bool added = true;
  EXPECT_EQ(0u, *map.find_or_add(keys[0], 7, added));
  EXPECT_FALSE(added);
  for (size_t i = 0; i < keys.size(); i += 2) EXPECT_TRUE(map.erase(keys[i]));
  EXPECT_FALSE(map.erase(keys[0]));
  EXPECT_EQ(1500u, map.size());
  for (size_t i = 0; i < keys.size(); ++i) {
    const size_t* v = map.find(keys[i]);
    EXPECT_EQ(i % 2 == 1 ? i : SIZE_MAX, v ? *v : SIZE_MAX) << i;
  }
}

// A pool hands out every record of a block, lowest first, before it adds a block, and
// reuses a released record first.
TEST(TimerPointerIndex, NodePoolFillsEachBlockBeforeAddingOne) {
  struct Node : CCmTimerQueueBase::CNode {
    uint32_t next;
  };
  CmTimerNodePool<Node> pool;
  for (uint32_t i = 0; i < 1024; ++i) ASSERT_EQ(i, pool.alloc({}));
  EXPECT_EQ(1024u, pool.capacity());
  pool.release(700);
  EXPECT_EQ(700u, pool.alloc({}));
}

}  // namespace
