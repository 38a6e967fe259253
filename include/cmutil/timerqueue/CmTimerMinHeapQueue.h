#pragma once
/// Min-heap timer queue (CmQueueType 2).
///
/// Timers live in a growable array kept as a two-child min-heap on their expiry.
/// An index from handler to array position makes every operation O(log n):
/// scheduling, firing, cancelling, and rescheduling a pending timer (which takes the
/// old node out in place). The order among equal expiries is unspecified.
/// Like every timer queue it belongs to one thread: schedule, cancel and
/// CheckExpire only on the thread that owns it (see CmTimerQueueBase.h).

#include "cmutil/timerqueue/CmTimerQueueBase.h"

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
