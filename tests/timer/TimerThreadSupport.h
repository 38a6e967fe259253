#pragma once
// Real-thread helpers of the timer tests: the queue-type fixture, waiting, a counting sink.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

#include "cmutil/timer/CmTimerWrapperID.h"
#include "cmutil/timerqueue/CmTimerQueueBase.h"
#include "common/CmTaskThread.h"

/// Runs each test with the given queue type as the default of new timer queues.
class OnTimerQueueType : public ::testing::TestWithParam<unsigned int> {
 protected:
  void SetUp() override { cm_set_default_timer_type(GetParam()); }
  void TearDown() override { cm_set_default_timer_type(1); }
};

/// Waits for a predicate with a generous time-out (only a broken build waits it out).
template <class Pred>
bool WaitFor(Pred pred, int timeoutMs = 5000) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  while (!pred()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

/// Counts OnTimer calls and the thread they ran on; an optional action runs inside.
class CountingSink : public CCmTimerWrapperIDSink {
 public:
  void OnTimer(CCmTimerWrapperID* aId) override {
    lastThread.store(GetThreadSelfId());
    lastId.store(aId);
    if (action) action(aId);
    count.fetch_add(1);
  }

  /// The count once `worker` has run a whole pass and 20 quiet milliseconds have gone by:
  /// a firing that should not come would have come by then.
  int CountAfterQuiet(TaskThread& worker) {
    EXPECT_EQ(CM_OK, worker.Run([] {}));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    return count.load();
  }

  std::atomic<int> count{0};
  std::atomic<CM_THREAD_ID> lastThread{0};
  std::atomic<CCmTimerWrapperID*> lastId{nullptr};
  std::function<void(CCmTimerWrapperID*)> action;
};
