// The calendar queue: ring arithmetic, tick counting, the immediate list fired through
// the queue's own event, and moving a handler's single node.

#include <gtest/gtest.h>

#include <list>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "TimerTestSupport.h"
#include "cmutil/thread/CmEventQueueBase.h"
#include "cmutil/timer/CmTimerQueueCalendar.h"
#include "common/CmTraceCapture.h"

namespace {

class CalendarTest : public ::testing::Test {
 protected:
  CalendarTest() { events.Reset2CurrentThreadInfo(); }
  ~CalendarTest() override { events.DestoryPendingEvents(); }

  /// Ticks until h has fired; returns the number of ticks, or -1 after `limit`.
  int TicksUntilFired(CCmTimerQueueCalendar& cal, RecordingHandler& h, int limit = 100) {
    const int before = h.Count();
    for (int i = 1; i <= limit; ++i) {
      cal.TimerTick();
      if (h.Count() != before) return i;
    }
    return -1;
  }

  int RunEvents() {
    std::list<ICmEvent*> list;
    if (events.PopPendingEvents(list) != CM_OK) return 0;
    events.ProcessEvents(list);
    return static_cast<int>(list.size());
  }

  CmFakeClock clock;
  CCmEventQueueUsingMutex events;
  std::vector<Firing> log;
  CCmTimerQueueCalendar cal{10, 1000, &events};  // no event of it is pending when a test ends
};

// The slot interval is at least 10 ms and the ring at least 11 slots; a timer beyond the
// ring's reach is traced and parked in its farthest slot.
TEST_F(CalendarTest, RingGeometryAndIntervalsBeyondItsReach) {
  struct {
    unsigned interval, reach, slotInterval, maxSlot;
  } rings[] = {{5, 50, 10, 10}, {9, 1000, 10, 99}, {10, 100, 10, 10}, {10, 120, 10, 11}, {100, 50, 100, 10}};
  for (const auto& r : rings) {
    CCmTimerQueueCalendar ring(r.interval, r.reach, &events);
    EXPECT_EQ(r.slotInterval, ring.GetSlotInterval()) << r.interval;
    EXPECT_EQ(r.maxSlot, ring.GetMaxSlotNumber()) << r.interval << "/" << r.reach;
  }
  CmTraceCapture cap;
  CCmTimerQueueCalendar small(10, 100, &events);
  RecordingHandler h("h", &log), exact("exact", &log);
  EXPECT_EQ(CM_OK, small.ScheduleTimer(&h, nullptr, Ms(200), 1));
  EXPECT_TRUE(
      cap.contains("CCmTimerQueueCalendar::InsertUnique_i, exceed max interval. interval_s=0 "
                   "interval_us=200000 dwDistance=20 m_impl->dwMaxSlotNumber=10 [this="));
  EXPECT_EQ(CM_OK, small.ScheduleTimer(&exact, nullptr, Ms(100), 1));  // the farthest slot itself: traced too
  EXPECT_EQ(2, cap.count("exceed max interval"));
  EXPECT_EQ(10, TicksUntilFired(small, h));
}

TEST_F(CalendarTest, TwentyFiveMsFiresOnTheThirdTickAndRepeats) {
  RecordingHandler h("h", &log), other("other", &log);
  auto slow = [&](RecordingHandler*) { clock.AdvanceMs(5); };
  h.SetAction(slow);
  other.SetAction(slow);
  int arg = 3;
  EXPECT_EQ(CM_OK, cal.ScheduleTimer(&h, &arg, Ms(25), 0));
  EXPECT_EQ(CM_OK, cal.ScheduleTimer(&other, &arg, Ms(25), 1));
  const CCmTimeValue start = clock.Now();
  EXPECT_EQ(3, TicksUntilFired(cal, h));
  ASSERT_EQ(2u, log.size());  // one slot, one pass, one time however long the callbacks take
  for (const Firing& f : log) EXPECT_EQ(std::make_pair(static_cast<void*>(&arg), start), std::make_pair(f.arg, f.at));
  EXPECT_EQ(3, TicksUntilFired(cal, h));  // re-armed from the current slot
}

TEST_F(CalendarTest, ZeroIntervalFiresOnceThroughTheEventAndCanBeCancelledOrRefused) {
  RecordingHandler a("a", &log), b("b", &log);
  EXPECT_EQ(CM_OK, cal.ScheduleTimer(&a, nullptr, CCmTimeValue(0L, 0L), 5));
  EXPECT_EQ(1u, events.GetPendingEventsCount());
  EXPECT_EQ(CM_OK, cal.ScheduleTimer(&b, nullptr, CCmTimeValue(0L, 0L), 1));
  EXPECT_EQ(1u, events.GetPendingEventsCount());  // posted once
  // A tick leaves the immediate list alone; its event fires it once, whatever the count.
  cal.TimerTick();
  EXPECT_EQ((std::vector<int>{0, 1, 0}), (std::vector<int>{a.Count(), RunEvents(), RunEvents()}));
  EXPECT_EQ((std::vector<std::string>{"b", "a"}), NamesOf(log));  // each once, the immediate list head first
  // The queue survives its event's destruction and can post again.
  EXPECT_EQ(CM_OK, cal.ScheduleTimer(&a, nullptr, CCmTimeValue(0L, 0L), 1));
  EXPECT_EQ((std::vector<int>{1, 2}), (std::vector<int>{RunEvents(), a.Count()}));
  // A waiting zero-interval timer can be cancelled: the event then finds the list empty.
  EXPECT_EQ(CM_OK, cal.ScheduleTimer(&a, nullptr, CCmTimeValue(0L, 0L), 1));
  EXPECT_EQ(CM_OK, cal.CancelTimer(&a));
  EXPECT_EQ(CM_ERROR_NOT_FOUND, cal.CancelTimer(&a));
  EXPECT_EQ((std::vector<int>{1, 2}), (std::vector<int>{RunEvents(), a.Count()}));  // braced: in this order
  // A refused post clears the mark, so the next zero-interval timer posts again.
  events.Stop();
  EXPECT_EQ(CM_ERROR_NOT_INITIALIZED, cal.ScheduleTimer(&a, nullptr, CCmTimeValue(0L, 0L), 1));
  events.Start();
  EXPECT_EQ(CM_ERROR_FOUND, cal.ScheduleTimer(&a, nullptr, Ms(10), 1));  // the waiting node moves
  EXPECT_EQ(CM_OK, cal.ScheduleTimer(&a, nullptr, CCmTimeValue(0L, 0L), 1));
  EXPECT_EQ((std::vector<int>{1, 3}), (std::vector<int>{RunEvents(), a.Count()}));
}

// A callback that ticks the queue again (a host driving its tick from a timer) must not
// lose the rest of the outer tick's slot: those timers still fire, stay cancellable
// and are freed.
TEST_F(CalendarTest, TickFromInsideACallbackKeepsTheOuterSlotsTimers) {
  RecordingHandler ticker("ticker", &log), b("b", &log), c("c", &log), d("d", &log), next("next", &log);
  CmResult cancelD = -1;
  int ticks = 0;
  ticker.SetAction([&](RecordingHandler*) {
    if (ticks++ == 0) {
      cal.TimerTick();  // fires `next`, one slot on
      cancelD = cal.CancelTimer(&d);
    }
  });
  // Nodes go to the head of a slot: the ticker fires first, then b, c and d.
  ASSERT_EQ(CM_OK, cal.ScheduleTimer(&d, nullptr, Ms(10), 1));
  ASSERT_EQ(CM_OK, cal.ScheduleTimer(&c, nullptr, Ms(10), 2));
  ASSERT_EQ(CM_OK, cal.ScheduleTimer(&b, nullptr, Ms(10), 1));
  ASSERT_EQ(CM_OK, cal.ScheduleTimer(&ticker, nullptr, Ms(10), 1));
  ASSERT_EQ(CM_OK, cal.ScheduleTimer(&next, nullptr, Ms(20), 1));
  cal.TimerTick();
  EXPECT_EQ((std::vector<std::string>{"ticker", "next", "b", "c"}), NamesOf(log));
  EXPECT_EQ(std::make_pair(CM_OK, 0), std::make_pair(cancelD, d.Count()));
  // c repeats: it is still known to the queue and can be cancelled.
  EXPECT_EQ(CM_OK, cal.CancelTimer(&c));
  EXPECT_EQ(CM_ERROR_NOT_FOUND, cal.CancelTimer(&b));
}

// A callback may cancel a timer that waits later in the same tick, also when that tick
// runs nested inside another one.
TEST_F(CalendarTest, NestedTickCallbackCancelsATimerOfTheOuterTick) {
  RecordingHandler outer("outer", &log), inner("inner", &log), victim("victim", &log);
  CmResult rv = -1;
  inner.SetAction([&](RecordingHandler*) { rv = cal.CancelTimer(&victim); });
  outer.SetAction([&](RecordingHandler*) { cal.TimerTick(); });
  ASSERT_EQ(CM_OK, cal.ScheduleTimer(&victim, nullptr, Ms(10), 0));
  ASSERT_EQ(CM_OK, cal.ScheduleTimer(&outer, nullptr, Ms(10), 1));
  ASSERT_EQ(CM_OK, cal.ScheduleTimer(&inner, nullptr, Ms(20), 1));
  cal.TimerTick();
  EXPECT_EQ(std::make_tuple(CM_OK, 0, 1), std::make_tuple(rv, victim.Count(), inner.Count()));
  for (int i = 0; i < 200; ++i) cal.TimerTick();
  EXPECT_EQ(0, victim.Count());
}

}  // namespace
