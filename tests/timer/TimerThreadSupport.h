#pragma once
// Real-thread helpers of the timer tests: task threads, running code on them, waiting.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

#include "cmutil/thread/CmEventQueueBase.h"
#include "cmutil/thread/CmThread.h"
#include "cmutil/thread/CmThreadSingletonFactory.h"
#include "cmutil/timer/CmTimerWrapperID.h"
#include "cmutil/timerqueue/CmTimerQueueBase.h"

/// Runs each test with the given queue type as the default of new timer queues.
class OnTimerQueueType : public ::testing::TestWithParam<unsigned int> {
 protected:
  void SetUp() override { cm_set_default_timer_type(GetParam()); }
  void TearDown() override { cm_set_default_timer_type(1); }
};

/// A task thread (event queue + timer queue) that is stopped, joined and destroyed at
/// the end of the scope.
class TaskThread {
 public:
  explicit TaskThread(const char* name, bool withTimers = true, int type = 1000) {
    EXPECT_EQ(CM_OK, CreateUserTaskThread(name, m_thread, TF_JOINABLE, withTimers, type));
  }
  ~TaskThread() {
    if (m_thread) {
      m_thread->Stop(nullptr);
      m_thread->Join();
      m_thread->Destory(0);
    }
  }
  TaskThread(const TaskThread&) = delete;
  TaskThread& operator=(const TaskThread&) = delete;

  ACmThread* get() const { return m_thread; }

  /// Runs f on the thread and waits for it.
  CmResult Run(std::function<void()> f) {
    return m_thread->GetEventQueue()->SendEvent(CmNewInvokeEvent([f] { f(); }), nullptr);
  }

 private:
  ACmThread* m_thread = nullptr;
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

  std::atomic<int> count{0};
  std::atomic<CM_THREAD_ID> lastThread{0};
  std::atomic<CCmTimerWrapperID*> lastId{nullptr};
  std::function<void(CCmTimerWrapperID*)> action;
};
