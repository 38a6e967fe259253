// Scheduling, cancelling and firing of the ordered timer queues.

#include "cmutil/timerqueue/CmTimerQueueBase.h"

#include <atomic>

#include "base/CmClock.h"
#include "cmutil/base/CmAssert.h"
#include "cmutil/timerqueue/CmTimerMinHeapQueue.h"
#include "cmutil/timerqueue/CmTimerQueueOrderedList.h"
#include "cmutil/timerqueue/CmTimerWheelQueue.h"
#include "cmutil/trace/CmTraceMacros.h"
#include "platform/CmPlatform.h"
#include "timerqueue/CmTimerQueueGone.h"

std::atomic<unsigned int> m_defaultQueueType{1};

void cm_set_default_timer_type(unsigned int type) {
  if (type != 0) m_defaultQueueType.store(type, std::memory_order_relaxed);
}

CCmTimerQueueBase* CCmTimerQueueBase::CreateTimerQueue(ICmObserver* aObserver, CmQueueType aType) {
  if (aType == 0) aType = m_defaultQueueType.load(std::memory_order_relaxed);
  switch (aType) {
    case 1:
      return new CCmTimerQueueOrderedList(aObserver);
    case 2:
      return new CCmTimerMinHeapQueue(aObserver);
    case 3:
      return new CCmTimerWheelQueue(aObserver);
    default:
      return nullptr;
  }
}

namespace {
std::atomic<CmTimerQueueGoneFn> g_queueGoneListener{nullptr};
}  // namespace

void cm_set_timer_queue_gone_listener(CmTimerQueueGoneFn aListener) { g_queueGoneListener.store(aListener); }

void cm_notify_timer_queue_gone(ICmTimerQueue* aQueue) {
  if (CmTimerQueueGoneFn listener = g_queueGoneListener.load()) listener(aQueue);
}

CCmTimerQueueBase::CCmTimerQueueBase(ICmObserver* aObserver)
    : m_pObserver(aObserver), m_pCurrentHandler(nullptr), m_CheckingThread(0) {}

CCmTimerQueueBase::~CCmTimerQueueBase() {
  // Timer handles parked because their queue could still reach them die with it.
  cm_notify_timer_queue_gone(this);
}

int CCmTimerQueueBase::ResetExpiredTime_l(const CCmTimeValue&) { return 0; }

CCmTimeValue CCmTimerQueueBase::GetEarliestTime() const {
  CCmTimeValue tv;
  if (GetEarliestTime_l(tv) == -1) return CCmTimeValue::get_tvMax();
  return tv;
}

CmResult CCmTimerQueueBase::ScheduleTimer(ICmTimerHandler* aEh, void* aArg, const CCmTimeValue& aInterval,
                                          unsigned int aCount) {
  m_Est.EnsureSingleThread();
  CM_ASSERTE_RETURN(aEh, CM_ERROR_INVALID_ARG);
  CM_ASSERTE_RETURN(aInterval > CCmTimeValue::get_tvZero() || aCount == 1, CM_ERROR_INVALID_ARG);

  bool bWasEmpty = false;
  if (m_pObserver) {
    CCmTimeValue tvEarliest;
    bWasEmpty = (GetEarliestTime_l(tvEarliest) == -1);
  }

  CNode node(aEh, aArg);
  node.m_tvExpired = cm_timer_now() + aInterval;
  node.m_tvInterval = aInterval;
  node.m_dwCount = (aCount == 0) ? 0xFFFFFFFFu : aCount;

  int nRet = PushNode_l(node);
  CmResult rv;
  if (nRet == 0)
    rv = CM_OK;
  else if (nRet == 1)
    rv = CM_ERROR_FOUND;
  else
    rv = CM_ERROR_FAILURE;

  if (m_pObserver && bWasEmpty) m_pObserver->OnObserve("TimerQueue", nullptr);
  return rv;
}

CmResult CCmTimerQueueBase::CancelTimer(ICmTimerHandler* aEh) {
  m_Est.EnsureSingleThread();
  CM_ASSERTE_RETURN(aEh, CM_ERROR_INVALID_ARG);

  int nRet = EraseNode_l(aEh);

  // A foreign thread waits until a running callback of this handler has returned, so
  // that the caller may delete the handler afterwards.
  CM_THREAD_ID self = pthread_self();
  for (;;) {
    CM_THREAD_ID checking = m_CheckingThread.load(std::memory_order_acquire);
    if (m_pCurrentHandler.load(std::memory_order_acquire) != aEh || checking == 0 || pthread_equal(checking, self))
      break;
    cm_platform_sleep_ms(10);
  }

  if (nRet == 0) return CM_OK;
  if (nRet == 1) return CM_ERROR_NOT_FOUND;
  return CM_ERROR_FAILURE;
}

int CCmTimerQueueBase::CheckExpire(CCmTimeValue* aRemainTime, CCmTimeValue* aEarliest) {
  m_Est.EnsureSingleThread();
  int nFired = 0;
  CCmTimeValue tvCur;
  CCmTimeValue tvEarliest;
  // An empty queue needs no clock reading: the loop of an idle task thread asks often.
  if (GetEarliestTime_l(tvEarliest) == -1) {
    if (aRemainTime) *aRemainTime = CCmTimeValue::get_tvMax();
    if (aEarliest) *aEarliest = CCmTimeValue::get_tvMax();
    return 0;
  }
  tvCur = cm_timer_now();
  m_CheckingThread.store(pthread_self(), std::memory_order_release);

  while (tvEarliest <= tvCur) {
    CNode node;
    if (PopFirstNode_l(node) != 0) {
      m_CheckingThread.store(0, std::memory_order_release);
      return nFired;
    }
    m_pCurrentHandler.store(node.m_pEh, std::memory_order_release);
    void* pArg = node.m_pToken;

    bool bRepush = true;
    if (node.m_dwCount != 0xFFFFFFFFu) {
      if (node.m_dwCount-- == 1) bRepush = false;
    }
    if (bRepush && !(node.m_tvInterval > CCmTimeValue::get_tvZero())) bRepush = false;

    if (bRepush) {
      if (node.m_tvExpired + CCmTimeValue(3600L) < tvCur) {
        CM_WARNING_TRACE_THIS("CCmTimerQueueBase::CheckExpire local changed, m_tvExpired="
                              << node.m_tvExpired.GetTotalInMsec() << ", tvCur=" << tvCur.GetTotalInMsec());
        node.m_tvExpired = tvCur + node.m_tvInterval;
      } else {
        // Missed periods are skipped, not fired in a burst.
        while (node.m_tvExpired <= tvCur) node.m_tvExpired += node.m_tvInterval;
      }
      RePushNode_l(node);
    }

    ICmTimerHandler* pHandler = m_pCurrentHandler.load(std::memory_order_relaxed);
    if (pHandler) {
      pHandler->OnTimeout(tvCur, pArg);
      m_pCurrentHandler.store(nullptr, std::memory_order_release);
      ++nFired;
    }

    if (GetEarliestTime_l(tvEarliest) == -1) goto empty_queue;
  }

  if (tvEarliest - CCmTimeValue(3600L) > tvCur) {
    ResetExpiredTime_l(tvCur);
    CM_WARNING_TRACE_THIS("CCmTimerQueueBase::CheckExpire local changed, tvEarliest="
                          << tvEarliest.GetTotalInMsec() << ", tvCur=" << tvCur.GetTotalInMsec());
    tvEarliest = tvCur;
  }

  if (aRemainTime) {
    CCmTimeValue tvNow = cm_timer_now();
    *aRemainTime = (tvEarliest > tvNow) ? tvEarliest - tvNow : CCmTimeValue::get_tvZero();
  }
  if (aEarliest) *aEarliest = tvEarliest;
  m_CheckingThread.store(0, std::memory_order_release);
  return nFired;

empty_queue:
  if (aRemainTime) *aRemainTime = CCmTimeValue::get_tvMax();
  if (aEarliest) *aEarliest = CCmTimeValue::get_tvMax();
  m_CheckingThread.store(0, std::memory_order_release);
  return nFired;
}
