#pragma once
/// On-demand timer queue: the ordered list plus a wake-up notice.
///
/// Every successful ScheduleTimer (CM_OK, not a replacement) additionally calls the
/// observer with the topic "TimerQueueOnDemand", so a thread driven from outside (the
/// heartbeat thread) can ask to be called back sooner. Not created by CmQueueType;
/// construct it directly. One-thread object, like every timer queue.

#include "cmutil/timerqueue/CmTimerQueueOrderedList.h"

class CM_EXPORT CCmTimerQueueOnDemand : public CCmTimerQueueOrderedList {
 public:
  explicit CCmTimerQueueOnDemand(ICmObserver* aObserver);
  ~CCmTimerQueueOnDemand() override;

  CmResult ScheduleTimer(ICmTimerHandler* aEh, void* aArg, const CCmTimeValue& aInterval, unsigned int aCount) override;
};
