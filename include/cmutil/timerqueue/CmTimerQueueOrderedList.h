#pragma once
/// CCmTimerQueueOrderedList: the default timer queue (CmQueueType 1).
///
/// One list sorted by expiry. Scheduling (and replacing) costs O(n) in the number of
/// timers; popping the earliest and reading it are O(1). Among equal expiries the timer
/// scheduled last fires first. It is the only variant that rebases every expiry to
/// "now + interval" after the wall clock jumps backwards by more than an hour. Single
/// thread, like every timer queue (see CmTimerQueueBase.h).

#include <memory>

#include "cmutil/timerqueue/CmTimerQueueBase.h"

class CM_EXPORT CCmTimerQueueOrderedList : public CCmTimerQueueBase {
 public:
  explicit CCmTimerQueueOrderedList(ICmObserver* aObserver);
  ~CCmTimerQueueOrderedList() override;

  /// The list is always sorted: does nothing, returns 0.
  int EnsureSorted();

 protected:
  int PushNode_l(const CNode& aNode) override;
  int EraseNode_l(ICmTimerHandler* aEh) override;
  int RePushNode_l(const CNode& aNode) override;
  int PopFirstNode_l(CNode& aNode) override;
  int GetEarliestTime_l(CCmTimeValue& aEarliest) const override;
  int ResetExpiredTime_l(const CCmTimeValue& aCurTime) override;

  struct Impl;
  std::unique_ptr<Impl> m_impl;
};
