#pragma once
/// Heartbeat thread: the library's event and timer machinery on a thread driven from
/// outside (for example the host's run loop).
///
/// `CCmThreadHeartBeat` has no loop of its own. A scheduler supplied by the host calls
/// `DoHeartBeat()` from time to time; each call fires due timers (an on-demand timer
/// queue), runs every pending event and asks the scheduler, through the callback set
/// with `SetScheduler`, to call again after a delay in milliseconds:
///  - 0 right after an event was posted, 10 when a timer lands in an empty queue or a
///    new timer is scheduled;
///  - with a timer pending: its distance + 5 ms (10 ms when due within 6 ms), at most
///    1000 ms;
///  - 200 ms when no timer is pending or nothing changed since the previous heartbeat.
///
/// Threads: DoHeartBeat() must always run on the same thread, the one that ran
/// OnThreadInit() (Create does that for a started thread; for a thread adopted with
/// type 0 call OnThreadInit() yourself on that thread first). Any thread may post
/// events. Set the scheduler before the scheduler starts; Stop() clears it.
///
///     void AskHostToCall(unsigned int ms) { ... }   // host's run loop arms a timer
///     CCmThreadHeartBeat* hb = new CCmThreadHeartBeat;
///     hb->Create("main-hb", 0, TF_JOINABLE, true);  // adopt this thread, register it
///     hb->OnThreadInit();
///     hb->SetScheduler(&AskHostToCall);
///     ...                                           // host calls hb->DoHeartBeat()

#include <atomic>
#include <memory>

#include "cmutil/base/CmExport.h"
#include "cmutil/thread/CmEventQueueBase.h"
#include "cmutil/thread/CmThread.h"
#include "cmutil/timerqueue/CmTimerQueueBase.h"

class CCmTimerQueueOnDemand;

class CM_EXPORT CCmThreadHeartBeat : public ACmThread, public CCmEventQueueUsingMutex, public ICmObserver {
 public:
  /// Asks the outside scheduler to call DoHeartBeat() after aDelayMs milliseconds.
  typedef void (*SchedulerCallback)(unsigned int aDelayMs);

  CCmThreadHeartBeat();
  ~CCmThreadHeartBeat() override;

  /// Installs (or, with null, removes) the scheduler callback.
  void SetScheduler(SchedulerCallback aCallback);
  SchedulerCallback GetScheduler() const;

  /// Fires due timers, runs all pending events, then asks for the next call.
  /// CM_ERROR_ABORTED when event processing was broken off by the loop hook.
  CmResult DoHeartBeat();

  /// Creates the on-demand timer queue and records the calling thread as the owner.
  void OnThreadInit() override;
  /// Without a scheduler: one DoHeartBeat(). With one: does nothing (level-0 trace).
  void OnThreadRun() override;
  /// Clears the scheduler callback; no further heartbeats are asked for. CM_OK.
  CmResult Stop(CCmTimeValue* aTimeout = nullptr) override;
  ICmEventQueue* GetEventQueue() override;
  ICmTimerQueue* GetTimerQueue() override;

  /// Posts like the base queue, then asks the scheduler for an immediate call (0).
  CmResult PostEvent(ICmEvent* aEvent, EPriority aPri = EPRIORITY_NORMAL, unsigned int* aSizeBefore = nullptr) override;

  /// The timer queue reports a change: asks the scheduler for a call in 10 ms.
  void OnObserve(const char* aTopic, void* aData) override;

 private:
  CCmTimeValue m_tvLastMark;
  std::unique_ptr<CCmTimerQueueOnDemand> m_pTimerQueue;
  std::atomic<SchedulerCallback> m_pScheduler;
};
