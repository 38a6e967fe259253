#pragma once
/// Task threads: ACmThread with an event loop.
///
/// - CCmThreadTaskWithEventQueueOnly drains its event queue: every pass takes all
///   pending events and runs them in order, sleeping without limit when there are none.
/// - CCmThreadTask adds a timer queue (created on the thread at start, of the default
///   CmQueueType) and interleaves timers with events: each pass fires due timers
///   (CheckExpire), then runs at most 5 events, sleeping at most until the next timer.
///   The cap keeps timers on time under a flood of events.
///
/// Post work from any thread through GetEventQueue(); schedule timers only on the task
/// thread itself through GetTimerQueue() (from elsewhere, post an event that does it).
/// Stop() posts a stop event: everything posted before it runs, later posts are refused
/// with CM_ERROR_NOT_INITIALIZED, and events left behind are destroyed unfired.

#include <list>

#include "cmutil/thread/CmEventQueueBase.h"
#include "cmutil/thread/CmThread.h"
#include "cmutil/timerqueue/CmTimerQueueBase.h"

class CM_EXPORT CCmThreadTaskWithEventQueueOnly : public ACmThread {
 public:
  CCmThreadTaskWithEventQueueOnly();

  /// Posts the stop event, then stops the queue. Returns the post's result; aTimeout is
  /// not used. Any thread.
  CmResult Stop(CCmTimeValue* aTimeout = nullptr) override;
  void OnThreadInit() override;
  void OnThreadRun() override;
  ICmEventQueue* GetEventQueue() override;

 protected:
  ~CCmThreadTaskWithEventQueueOnly() override;

  friend class CCmEventStopT<CCmThreadTaskWithEventQueueOnly>;

  /// The loop's own stop flag, set by the stop event.
  CCmStopFlag m_Stop;
  CCmEventQueueUsingConditionVariable m_EventQueue;
};

class CM_EXPORT CCmThreadTask : public CCmThreadTaskWithEventQueueOnly {
 public:
  CCmThreadTask();

  void OnThreadInit() override;
  void OnThreadRun() override;
  /// The thread's timer queue; null before the thread started.
  ICmTimerQueue* GetTimerQueue() override;

  /// Task thread only: waits aMs milliseconds while still running events (timers are
  /// not served meanwhile), then destroys the events still pending at that moment.
  void SleepMsWithLoop(unsigned int aMs);

 protected:
  ~CCmThreadTask() override;

  CCmTimerQueueBase* m_pTimerQueue;
};
