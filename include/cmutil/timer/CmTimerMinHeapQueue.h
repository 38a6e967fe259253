#pragma once
/// Min-heap timer queue (CmQueueType 2).
///
/// Timers live in a growable array kept as a two-child min-heap on their expiry.
/// Scheduling a new handler and firing cost O(log n); cancelling a timer, or
/// rescheduling one that is pending, removes its node from the array and rebuilds
/// the heap, which is O(n). The order among equal expiries is unspecified.
/// Like every timer queue it belongs to one thread: schedule, cancel and
/// CheckExpire only on the thread that owns it (see CmTimerQueueBase.h).

#include "cmutil/timer/CmTimerQueueBase.h"

class CM_EXPORT CCmTimerMinHeapQueue : public CCmTimerQueueBase {
 public:
  explicit CCmTimerMinHeapQueue(ICmObserver* aObserver);
  ~CCmTimerMinHeapQueue() override;

  /// Number of pending timers.
  size_t GetCount() const;

 protected:
  int PushNode_l(const CNode& aPushNode) override;
  int EraseNode_l(ICmTimerHandler* aEh) override;
  int RePushNode_l(const CNode& aPushNode) override;
  int PopFirstNode_l(CNode& aPopNode) override;
  int GetEarliestTime_l(CCmTimeValue& aEarliest) const override;

 private:
  struct Impl;
  Impl* m_impl;
};
