// Event queues on their own, driven from the test thread.

#include <gtest/gtest.h>

#include <list>
#include <string>

#include "ThreadTestSupport.h"
#include "cmutil/thread/CmEventQueueBase.h"
#include "cmutil/trace/CmTrace.h"
#include "common/CmFakeClock.h"
#include "common/CmTraceCapture.h"

namespace {

// A queue driven by hand from the test thread, its events' log and the trace lines.
class CmEventQueueTest : public ::testing::Test {
 protected:
  // Takes every pending event out and runs it; returns how many there were.
  size_t Drain() {
    std::list<ICmEvent*> out;
    if (queue.PopPendingEvents(out) != CM_OK) return 0;
    EXPECT_EQ(CM_OK, queue.ProcessEvents(out));
    return out.size();
  }

  CmTraceCapture cap;
  EventLog log;  // outlives the queue, which destroys what is left in it
  CCmEventQueueUsingMutex queue;
};
using CmEventSynchronousTest = CmEventQueueTest;

TEST_F(CmEventQueueTest, StoppedQueueDestroysRefusedEventsUnfiredAndRateLimitsTrace) {
  queue.Stop();
  EXPECT_TRUE(cap.contains(2, "CCmEventQueueBase::Stop [this=0x"));
  // The rate limiter traces one refusal in 200 on a process-wide counter, so the lines
  // seen depend only on the count, whatever the counter stood at before: 201 consecutive
  // refusals hold one or two traced ones, 400 exactly two. PostEvent and SendEvent count
  // apart, so the other one's text never shows.
  const char* kRefused = "CCmEventQueueBase::PostEvent, has been stopped. [this=0x";
  for (int i = 0; i < 400; ++i) {
    EXPECT_EQ(CM_ERROR_NOT_INITIALIZED, queue.PostEvent(new LoggingEvent(&log, i)));
    EXPECT_EQ(static_cast<size_t>(i + 1), log.Destroyed().size());
    if (i == 200) {
      EXPECT_GE(cap.count(kRefused), 1u);
      EXPECT_LE(cap.count(kRefused), 2u);
    }
  }
  EXPECT_TRUE(log.Fired().empty());
  EXPECT_EQ(2u, cap.count(kRefused));
  EXPECT_EQ(0u, cap.count("CCmEventQueueBase::SendEvent, has been stopped."));
  EXPECT_EQ(CM_ERROR_NOT_INITIALIZED, queue.SendEvent(new LoggingEvent(&log, 500)));
  EXPECT_EQ(500, log.Destroyed().back());

  queue.Start();
  EXPECT_TRUE(cap.contains(2, "CCmEventQueueBase::Start [this=0x"));
  EXPECT_EQ(CM_OK, queue.PostEvent(new LoggingEvent(&log, 1000)));
  EXPECT_EQ(1u, queue.GetPendingEventsCount());
}

// Event 3 is a send that timed out, its wrapper waiting in the queue between posted
// events: the queue's end destroys the wrapped event, unfired, once, in its turn.
TEST(CmEventQueueScopeTest, DestroyingQueueDestroysPendingEventsAndTimedOutSendsOldestFirstWithoutFiring) {
  CmTraceCapture cap;
  EventLog log;
  {
    CCmEventQueueUsingConditionVariable queue;
    for (int i = 0; i < 3; ++i) queue.PostEvent(new LoggingEvent(&log, i));
    CCmTimeValue zero;
    EXPECT_EQ(CM_ERROR_TIMEOUT, queue.SendEvent(new LoggingEvent(&log, 3), &zero));
    // One event already taken over by a partial pop is still pending.
    std::list<ICmEvent*> out;
    queue.PopPendingEvents(out, 1, nullptr);
    queue.ProcessEvents(out);
    ASSERT_EQ(CM_OK, queue.PostEvent(new LoggingEvent(&log, 4)));
  }
  EXPECT_EQ(IdLists({0}, {0, 1, 2, 3, 4}), log.Both());
  EXPECT_TRUE(cap.contains(2, "CCmEventQueueBase::~CCmEventQueueBase [this=0x"));
  EXPECT_TRUE(cap.contains(2, "CCmEventQueueBase::DestoryPendingEvents, m_dwSize=4 [this=0x"));
}

TEST_F(CmEventQueueTest, SlowEventReportedOnlyAboveHalfSecond) {
  // Each reading of the clock is one step later, so firing "takes" one step: 0.5 s, then
  // just over 1.5 s. Only the second is reported (the count below rules out the first).
  for (int64_t stepUs : {500000, 1500001}) {
    CmFakeClock clock(1000, stepUs);
    queue.ProcessOneEvent(new LoggingEvent(&log, 1));
  }
  EXPECT_TRUE(cap.contains(1, "CCmEventQueueBase::ProcessOneEvent, report, sec=1 usec=500001 aEvent=0x"));
  EXPECT_EQ(1u, cap.count("ProcessOneEvent, report"));
}

TEST(CmEventQueueClockTest, LongQueueReportedOnceInThreeSecondsAbove100) {
  CmTraceCapture cap;
  EventLog log;
  CmFakeClock clock;
  CCmEventQueueUsingMutex queue;
  for (int i = 0; i < 99; ++i) queue.PostEvent(new LoggingEvent(&log, i));
  clock.AdvanceUs(3000001);
  queue.PostEvent(new LoggingEvent(&log, 99));  // 100 pending at the check: no report (see the count)

  clock.AdvanceUs(3000001);
  queue.PostEvent(new LoggingEvent(&log, 100));  // 101 pending: report
  EXPECT_TRUE(cap.contains(1, "CCmEventQueueBase::PostEvent, m_dwSize=101 m_Tid="));
  queue.PostEvent(new LoggingEvent(&log, 101));  // within three seconds: silent
  clock.AdvanceUs(3000000);
  queue.PostEvent(new LoggingEvent(&log, 102));  // exactly three seconds: silent
  EXPECT_EQ(1u, cap.count("PostEvent, m_dwSize="));
}

TEST_F(CmEventQueueTest, SendOnOwnThreadRunsInPlaceAheadOfPending) {
  queue.Reset2CurrentThreadInfo();
  queue.PostEvent(new LoggingEvent(&log, 1));
  EXPECT_EQ(CM_ERROR_GENERIC, queue.SendEvent(new LoggingEvent(&log, 2, CM_ERROR_GENERIC)));
  EXPECT_EQ(IdLists({2}, {2}), log.Both());
  EXPECT_EQ(1u, queue.GetPendingEventsCount());
}

TEST_F(CmEventSynchronousTest, NullWrappedEventGivesNullPointerAndTwoTripsDelete) {
  queue.Reset2CurrentThreadInfo();
  CCmEventSynchronous* sync = new CCmEventSynchronous(nullptr, &queue);
  EXPECT_EQ(CM_ERROR_NULL_POINTER, sync->OnEventFire());
  sync->OnDestorySelf();                  // first trip: the wrapper stays
  EXPECT_EQ(CM_OK, sync->OnEventFire());  // already fired: nothing
  EXPECT_EQ(CM_ERROR_NULL_POINTER, sync->WaitResultAndDeleteThis(nullptr));
  // The wrapper posted itself for its second trip; draining deletes it (ASan checks).
  ASSERT_EQ(1u, Drain());
  EXPECT_EQ(0u, queue.GetPendingEventsCount());
}

TEST(ICmEventTest, NothrowAndPlacementForms) {
  EventLog log;
  ICmEvent* nothrowEvent = new (std::nothrow) LoggingEvent(&log, 1);
  ASSERT_NE(nullptr, nothrowEvent);
  nothrowEvent->OnDestorySelf();
  alignas(LoggingEvent) unsigned char storage[sizeof(LoggingEvent)];
  LoggingEvent* placed = new (storage) LoggingEvent(&log, 2);
  EXPECT_EQ(CM_OK, placed->OnEventFire());
  placed->~LoggingEvent();
  EXPECT_EQ((std::vector<int>{1}), log.Destroyed());
}

// A send that times out while its wrapper still waits in the queue: the wrapper's
// deletion trip must queue behind it without disturbing it or the events around it.
TEST(CmEventSynchronousCondvarTest, TimedOutSendWhileStillQueuedKeepsOrderAndDeletesOnce) {
  EventLog log;
  CCmEventQueueUsingConditionVariable queue;  // no owner recorded: a send from here waits
  ASSERT_EQ(CM_OK, queue.PostEvent(new LoggingEvent(&log, 1)));
  CCmTimeValue zero;
  EXPECT_EQ(CM_ERROR_TIMEOUT, queue.SendEvent(new LoggingEvent(&log, 2), &zero));
  ASSERT_EQ(CM_OK, queue.PostEvent(new LoggingEvent(&log, 3)));
  // Event 1, the wrapper and event 3: the sender gave the wrapper up without a trip of
  // its own, and the wrapper's pass through the queue deletes it.
  EXPECT_EQ(3u, queue.GetPendingEventsCount());

  std::list<ICmEvent*> out;
  unsigned int remain = 99;
  ASSERT_EQ(CM_OK, queue.PopPendingEvents(out, 0xFFFFFFFFu, &remain));
  EXPECT_EQ(std::make_pair(0u, size_t{3}), std::make_pair(remain, out.size()));
  EXPECT_EQ(CM_OK, queue.ProcessEvents(out));
  EXPECT_EQ(IdLists({1, 2, 3}, {1, 2, 3}), log.Both());
  EXPECT_EQ(CM_ERROR_NOT_FOUND, queue.PopPendingEvents(out));
}

// A sender that gave up while its wrapper was being fired: the wrapper finishes its pass
// (the event is destroyed on the queue's side) and is deleted by that pass, once.
TEST_F(CmEventSynchronousTest, SenderReleaseBeforeTheQueuePassLeavesDeletionToThePass) {
  CCmTimeValue zero;
  EXPECT_EQ(CM_ERROR_TIMEOUT, queue.SendEvent(new LoggingEvent(&log, 1), &zero));
  EXPECT_EQ(IdLists(), log.Both());
  queue.Stop();  // the wrapper is already in: it still runs
  ASSERT_EQ(1u, Drain());
  EXPECT_EQ(IdLists({1}, {1}), log.Both());
  EXPECT_EQ(0u, Drain());
}

// The second trip of a wrapper whose pass is over is refused by a stopped queue: the
// refusal deletes the wrapper (ASan checks), and the wrapped event is not touched again.
TEST_F(CmEventSynchronousTest, RefusedSecondTripDeletesTheWrapperOnly) {
  CCmEventSynchronous* sync = new CCmEventSynchronous(new LoggingEvent(&log, 4), &queue);
  ASSERT_EQ(CM_OK, queue.PostEvent(sync));
  ASSERT_EQ(1u, Drain());
  EXPECT_EQ((std::vector<int>{4}), log.Destroyed());
  queue.Stop();
  EXPECT_EQ(CM_OK, sync->WaitResultAndDeleteThis(nullptr));
  EXPECT_EQ(0u, queue.GetPendingEventsCount());
  EXPECT_EQ(IdLists({4}, {4}), log.Both());
}

}  // namespace
