#pragma once
/// Calendar timer queue: a ring of slots driven by an external tick.
///
/// The host calls TimerTick() once per slot interval (nothing in the library does);
/// each tick advances the ring by one slot and fires the timers stored there. An
/// interval of n ms lands ceil(n / slot interval) slots ahead, capped at the ring's
/// reach (with a level-0 trace); an interval under 1 ms lands in the current slot and
/// so fires after a whole revolution. A zero interval fires once, soon, through an
/// event: the queue posts itself to its event queue and fires the waiting timers when
/// that event runs.
///
/// Single thread: ScheduleTimer, CancelTimer, TimerTick and the event must all run on
/// the thread that owns the queue and its event queue. Destroy the queue on that thread
/// and only when its event is not pending (run or discard the event queue first).
/// Scheduling is O(log n) (handler map), a tick touches one slot.

#include "cmutil/base/CmThreadMisc.h"
#include "cmutil/thread/CmEventQueueBase.h"
#include "cmutil/timerqueue/CmTimerQueueBase.h"

class CM_EXPORT CCmTimerQueueCalendar : public ICmTimerQueue, public ICmEvent {
 public:
  /// aSlotInterval: milliseconds per slot (raised to 10 when below). aMaxTime: the
  /// reach in milliseconds; the ring has aMaxTime / interval slots, at least 11.
  /// A null aEventQueue means the calling thread's event queue.
  CCmTimerQueueCalendar(unsigned int aSlotInterval, unsigned int aMaxTime, ICmEventQueue* aEventQueue);
  ~CCmTimerQueueCalendar() override;

  /// CM_OK for a new timer, CM_ERROR_FOUND when an existing one was moved (a zero
  /// interval gives CM_OK when this call posted the event), CM_ERROR_INVALID_ARG for a
  /// null handler, or the post's error.
  CmResult ScheduleTimer(ICmTimerHandler* aEh, void* aArg, const CCmTimeValue& aInterval, unsigned int aCount) override;
  /// CM_OK, CM_ERROR_NOT_FOUND, or CM_ERROR_INVALID_ARG for a null handler.
  CmResult CancelTimer(ICmTimerHandler* aEh) override;

  /// Advances one slot and fires its timers. Owner thread only.
  void TimerTick();

  /// Fires the zero-interval timers (the queue's own event).
  CmResult OnEventFire() override;
  /// Does nothing: the queue is not deleted with its event.
  void OnDestorySelf() override;

  unsigned int GetSlotInterval() const;
  unsigned int GetMaxSlotNumber() const;
  unsigned int GetCurrentSlot() const;

 private:
  CCmEnsureSingleThread m_Est;
  struct Impl;
  Impl* m_impl;
};
