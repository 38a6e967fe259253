// Timer handles on real task threads: scheduling in another thread, binding, own and
// foreign cancel, cancel during a running callback, destruction inside OnTimer.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <utility>

#include "TimerTestSupport.h"
#include "TimerThreadSupport.h"
#include "cmutil/timerqueue/CmTimerQueueBase.h"
#include "common/CmTraceCapture.h"
#include "timer/CmTimerWrapperRef.h"

namespace {

using TimerHandleOnQueueType = OnTimerQueueType;

TEST_P(TimerHandleOnQueueType, ScheduleInAnotherThreadFiresThereWithItsCount) {
  TaskThread worker("t-worker", true, 1102);
  CountingSink sink;
  CCmTimerWrapperID handle;
  EXPECT_EQ(CM_OK, handle.ScheduleInThread(worker.get(), &sink, Ms(5), 3));
  ASSERT_TRUE(WaitFor([&] { return sink.count.load() == 3; }));
  EXPECT_TRUE(IsThreadEqual(worker.get()->GetThreadId(), sink.lastThread.load()));
  EXPECT_EQ(&handle, sink.lastId.load());
  // The queue is done with it; nothing more arrives.
  EXPECT_EQ(3, sink.CountAfterQuiet(worker));
}

// The owner stops inside a firing pass and a foreign thread cancels and destroys the
// handle there: the cancelling event is refused and the reference is parked. With the
// handle's timer due later in the same pass, the queue must still reach the handler
// safely; otherwise the parked reference is freed together with its queue.
TEST_P(TimerHandleOnQueueType, ForeignCancelRefusedWhileTheOwnerStopsMidPass) {
  for (const bool dueInThePass : {true, false}) {
    SCOPED_TRACE(dueInThePass ? "due in the pass" : "not due again");
    std::unique_ptr<TaskThread> worker(new TaskThread("t-stopping", true, 1113));
    ACmThread* thread = worker->get();
    CountingSink sink;
    CCmTimerWrapperID* handle = new CCmTimerWrapperID;
    CmResult cancelRv = -1;
    size_t parked = 0;
    std::atomic<bool> blocked{false};
    RecordingHandler blocker("blocker", nullptr);
    blocker.SetAction([&](RecordingHandler*) {
      thread->Stop(nullptr);  // the loop leaves after this pass; posts are refused now
      std::thread foreign([&] {
        cancelRv = handle->Cancel();
        delete handle;
      });
      foreign.join();
      parked = cm_timer_orphan_count_for_test();
      blocked = true;
    });
    EXPECT_EQ(CM_OK, worker->Run([&] {
      EXPECT_EQ(CM_OK, thread->GetTimerQueue()->ScheduleTimer(&blocker, nullptr, Ms(1), 1));
      EXPECT_EQ(CM_OK, handle->Schedule(&sink, Ms(dueInThePass ? 2 : 60000), 0));
      // Both are overdue when the loop looks at its timers next.
      if (dueInThePass) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }));
    ASSERT_TRUE(WaitFor([&] { return blocked.load(); }));
    EXPECT_EQ(std::make_pair(CM_ERROR_NULL_POINTER, size_t{1}), std::make_pair(cancelRv, parked));
    worker.reset();
    EXPECT_EQ(std::make_pair(size_t{0}, 0), std::make_pair(cm_timer_orphan_count_for_test(), sink.count.load()));
  }
}

INSTANTIATE_TEST_SUITE_P(QueueTypes, TimerHandleOnQueueType, ::testing::Values(1u, 2u, 3u));

// A foreign cancel waits for a running callback of its handle, but only up to its bound:
// then it gives up with a trace.
TEST(TimerHandle, ForeignCancelWaitsForARunningCallbackUpToItsBound) {
  for (const bool stuck : {false, true}) {
    SCOPED_TRACE(stuck ? "stuck" : "slow");
    if (stuck) cm_set_timer_cancel_wait_rounds_for_test(1);  // one 30 ms sleep instead of 25 rounds
    CmTraceCapture cap;
    TaskThread worker("t-slow", true, 1106);
    CountingSink sink;
    std::atomic<bool> inside{false}, finished{false}, release{false};
    sink.action = [&](CCmTimerWrapperID*) {
      inside = true;
      if (stuck) {
        WaitFor([&] { return release.load(); });
      } else {
        std::this_thread::sleep_for(std::chrono::milliseconds(120));
      }
      finished = true;
    };
    CCmTimerWrapperID handle;
    EXPECT_EQ(CM_OK, handle.ScheduleInThread(worker.get(), &sink, Ms(1), 1));
    ASSERT_TRUE(WaitFor([&] { return inside.load(); }));
    EXPECT_EQ(CM_ERROR_NULL_POINTER, handle.Cancel());
    EXPECT_EQ(!stuck, finished.load());  // a stuck callback is still held in it
    EXPECT_EQ(stuck, cap.contains("CCmTimerWrapperRef::Cancel, the timer has been executed too long time, parent="));
    release = true;
    cm_set_timer_cancel_wait_rounds_for_test(-1);
    EXPECT_EQ(CM_OK, worker.Run([] {}));
  }
}

TEST(TimerHandle, HandleDestroyedInsideItsOwnOnTimer) {
  TaskThread worker("t-selfdel", true, 1108);
  CountingSink sink;
  CCmTimerWrapperID* handle = new CCmTimerWrapperID;
  std::atomic<bool> deleted{false};
  sink.action = [&](CCmTimerWrapperID* id) {
    EXPECT_EQ(handle, id);
    delete id;
    deleted = true;
  };
  EXPECT_EQ(CM_OK, handle->ScheduleInThread(worker.get(), &sink, Ms(2), 0));
  ASSERT_TRUE(WaitFor([&] { return deleted.load(); }));
  EXPECT_EQ(1, sink.CountAfterQuiet(worker));
}

TEST(TimerHandle, DestroyingAPendingHandleFromAForeignThreadIsSafe) {
  TaskThread worker("t-dtor", true, 1111);
  CountingSink sink;
  {
    CCmTimerWrapperID handle;
    EXPECT_EQ(CM_OK, handle.ScheduleInThread(worker.get(), &sink, Ms(1), 0));
    ASSERT_TRUE(WaitFor([&] { return sink.count.load() >= 2; }));
  }
  const int atDestroy = sink.count.load();
  EXPECT_EQ(atDestroy, sink.CountAfterQuiet(worker));
}

TEST(TimerHandle, CancelBeforeTheSchedulingEventRanStillSilences) {
  TaskThread worker("t-early", true, 1112);
  CountingSink sink;
  std::atomic<bool> gate{false};
  // Hold the worker busy so the scheduling and cancelling events queue up behind it.
  worker.get()->GetEventQueue()->PostEvent(CmNewInvokeEvent([&] { WaitFor([&] { return gate.load(); }); }));
  CCmTimerWrapperID handle;
  EXPECT_EQ(CM_OK, handle.ScheduleInThread(worker.get(), &sink, CCmTimeValue(0L, 0L), 1));
  // Not bound yet, and this thread has no timer queue either: nothing to cancel in.
  EXPECT_EQ(CM_ERROR_GENERIC, handle.Cancel());
  gate = true;
  EXPECT_EQ(0, sink.CountAfterQuiet(worker));
  // On its own thread the schedule is made at once, so a cancel right after finds it.
  EXPECT_EQ(CM_OK, worker.Run([&] {
    EXPECT_EQ(CM_OK, handle.ScheduleInThread(worker.get(), &sink, Ms(60000), 1));
    EXPECT_EQ(CM_OK, handle.Cancel());
  }));
}

}  // namespace
