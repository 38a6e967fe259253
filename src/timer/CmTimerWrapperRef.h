#pragma once
/// The reference object behind a timer handle: the ICmTimerHandler that a timer queue
/// actually holds. Reference counted, so a handle may be destroyed while the queue's
/// callback or a posted scheduling/cancelling event still uses it. The queue itself
/// holds no count: removal from the queue happens on the queue's own thread (at once,
/// or through the cancelling event) before the last count goes.
///
/// When the last count goes on another thread while the queue may still hold the
/// object (the cancelling event could not be posted, e.g. because the owning thread is
/// stopping), the object is not freed there: it becomes an orphan, kept until the
/// owning thread meets it again (its next firing removes and frees it) or until its
/// queue is destroyed.

#include <atomic>
#include <cstddef>

#include "cmutil/base/CmMutex.h"
#include "cmutil/base/CmReferenceControl.h"
#include "cmutil/base/CmThreadMisc.h"
#include "cmutil/timer/CmTimerWrapperID.h"
#include "cmutil/timerqueue/CmTimerQueueBase.h"

class CM_EXPORT CCmTimerWrapperRef : public CCmReferenceControlT<CCmMutexThread>, public ICmTimerHandler {
 public:
  CCmTimerWrapperRef(CCmTimerWrapperID* aParent, CM_THREAD_ID aThreadId);
  ~CCmTimerWrapperRef() override;

  void OnTimeout(const CCmTimeValue& aCurTime, void* aArg) override;

  /// Schedules this reference in its bound queue (owner thread only).
  CmResult ScheduleTimer(CCmTimerWrapperIDSink* aSink, const CCmTimeValue& aInterval, unsigned int aCount);
  /// Marks cancelled, forgets the parent; removes the timer at once on the owning
  /// thread, else waits for a running callback (bounded) and posts the removal.
  CmResult Cancel();
  /// Removes this reference's timer from aQueue (the bound queue, on its own thread).
  CmResult RemoveFromQueue(ICmTimerQueue* aQueue);

  ICmTimerQueue* GetTimerQueue() const { return m_pTimerQueue.load(); }
  /// Binds an unbound reference to aQueue, owned by thread aThreadId, and returns the
  /// queue it is bound to afterwards (aQueue, or the one another thread bound first).
  /// Once bound, the binding never changes.
  ICmTimerQueue* BindTimerQueue(ICmTimerQueue* aQueue, CM_THREAD_ID aThreadId);
  CM_THREAD_ID GetThreadId() const { return m_ThreadId.load(); }
  bool IsCancelled() const { return m_bCancelled.load(); }

 protected:
  void OnReferenceDestory() override;

 private:
  std::atomic<CCmTimerWrapperID*> m_pParent;
  std::atomic<ICmTimerQueue*> m_pTimerQueue;
  std::atomic<CM_THREAD_ID> m_ThreadId;
  std::atomic<bool> m_bExecuting;
  std::atomic<bool> m_bCancelled;
  /// True once the owning thread removed the timer from the queue for good.
  std::atomic<bool> m_bUnqueued;
  /// True while parked in the orphan list.
  std::atomic<bool> m_bOrphan;

  friend struct CmTimerOrphans;
};

/// Frees the orphans parked for aQueue; the queue-gone listener, run as a queue is destroyed.
void cm_timer_release_orphans(ICmTimerQueue* aQueue);

/// Test hook: the number of orphans currently parked.
CM_EXPORT size_t cm_timer_orphan_count_for_test();

/// Test hook: how long a foreign Cancel may wait for a running callback, as the
/// number of sleeps (default 25: five of 30 ms, then 100 ms each).
CM_EXPORT void cm_set_timer_cancel_wait_rounds_for_test(int aRounds);
