// On-demand timer queue: the ordered list with a notice on every new timer.

#include "cmutil/timerqueue/CmTimerQueueOnDemand.h"

CCmTimerQueueOnDemand::CCmTimerQueueOnDemand(ICmObserver* aObserver) : CCmTimerQueueOrderedList(aObserver) {}

CCmTimerQueueOnDemand::~CCmTimerQueueOnDemand() {}

CmResult CCmTimerQueueOnDemand::ScheduleTimer(ICmTimerHandler* aEh, void* aArg, const CCmTimeValue& aInterval,
                                              unsigned int aCount) {
  const CmResult rv = CCmTimerQueueOrderedList::ScheduleTimer(aEh, aArg, aInterval, aCount);
  if (rv == CM_OK && m_pObserver) m_pObserver->OnObserve("TimerQueueOnDemand", nullptr);
  return rv;
}
