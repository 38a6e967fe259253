#pragma once
/// Wheel timer queue (CmQueueType 3): 3000 slots of 10 ms, a 30-second wheel.
///
/// Each slot has a near list (timers due within the next 30 s, in arrival order) and
/// a far list (timers 30 s or more ahead, sorted by expiry). Scheduling a near timer
/// and firing cost O(1); a far timer costs a walk of its slot's far list. When the
/// slot of the earliest timer runs empty the wheel rescans forward (at most 3000
/// slots), moving far timers that have come within 30 s into their near lists; it
/// tells a slot's timers of the current revolution from those of later ones. No timer
/// fires before its expiry, and the due timers of one slot fire in the order they were
/// stored. The block of 6000 list heads is allocated once per queue.
///
/// The handler's `m_dwWheelSlot` records where its node lies, so a handler can be
/// kept by at most one wheel at a time. One-thread object, like every timer queue.

#include <cstddef>

#include "cmutil/timerqueue/CmTimerQueueBase.h"

class CM_EXPORT CCmTimerWheelQueue : public CCmTimerQueueBase {
 public:
  enum { kSlotCount = 3000, kSlotMs = 10 };

  explicit CCmTimerWheelQueue(ICmObserver* aObserver);
  ~CCmTimerWheelQueue() override;

  /// Number of pending timers.
  size_t GetCount() const;
  /// The slot of time t: (seconds x 100 + microseconds / 10000) mod 3000.
  static unsigned int SlotOf(const CCmTimeValue& t);

 protected:
  int PushNode_l(const CNode& aPushNode) override;
  int EraseNode_l(ICmTimerHandler* aEh) override;
  int RePushNode_l(const CNode& aPushNode) override;
  int PopFirstNode_l(CNode& aPopNode) override;
  int GetEarliestTime_l(CCmTimeValue& aEarliest) const override;

 private:
  friend struct CmTimerWheelInspector;
  struct Impl;
  Impl* m_impl;
};
