#pragma once
// A started task thread for the tests: stopped, joined and destroyed at the end of the
// scope, with ways to run code on it and to wait for what was posted.

#include <gtest/gtest.h>

#include <functional>
#include <utility>

#include "cmutil/thread/CmEventQueueBase.h"
#include "cmutil/thread/CmThread.h"
#include "cmutil/thread/CmThreadSingletonFactory.h"

class TaskThread {
 public:
  explicit TaskThread(const char* aName, bool aWithTimers = true, TType aType = TT_UNKNOWN) {
    EXPECT_EQ(CM_OK, CreateUserTaskThread(aName, m_pThread, TF_JOINABLE, aWithTimers, aType));
  }
  ~TaskThread() {
    if (!m_pThread) return;
    m_pThread->Stop(nullptr);
    m_pThread->Join();
    m_pThread->Destory(0);
  }
  TaskThread(const TaskThread&) = delete;
  TaskThread& operator=(const TaskThread&) = delete;

  bool ok() const { return m_pThread != nullptr; }
  ACmThread* get() const { return m_pThread; }
  CM_THREAD_ID id() const { return m_pThread->GetThreadId(); }

  /// Runs f on the thread and waits for it.
  CmResult Run(std::function<void()> f) {
    return m_pThread->GetEventQueue()->SendEvent(CmNewInvokeEvent(std::move(f)), nullptr);
  }
  /// Queues f to run on the thread.
  template <class F>
  CmResult Post(F&& f) {
    return m_pThread->GetEventQueue()->PostEvent(CmNewInvokeEvent(std::forward<F>(f)));
  }
  /// Waits until everything posted so far has run.
  bool Flush() {
    return Run([] {}) == CM_OK;
  }

 private:
  ACmThread* m_pThread = nullptr;
};
