// The synchronous-send wrapper: the sender sleeps on a futex word until the target
// thread has run the event.

#include "cmutil/thread/CmEventQueueBase.h"

#include "cmutil/base/CmAssert.h"
#include "cmutil/trace/CmTraceMacros.h"
#include "platform/CmPlatform.h"

namespace {
// Values of CCmEventSynchronous::m_nSignal.
const int kSignalClear = 0;
const int kSignalSet = 1;
const int kSignalSleeping = 2;

}  // namespace

CCmEventSynchronous::CCmEventSynchronous(ICmEvent* aEventPost, CCmEventQueueBase* aEventQueue)
    : ICmEvent(0),
      m_pEventPost(aEventPost),
      m_Result(CM_ERROR_INCOMPLETE),
      m_pEventQueue(aEventQueue),
      m_nState(0),
      m_bFired(false),
      m_nSignal(kSignalClear) {}

CCmEventSynchronous::~CCmEventSynchronous() {
  ICmEvent* pEvent = m_pEventPost.exchange(nullptr, std::memory_order_acq_rel);
  if (pEvent) pEvent->OnDestorySelf();
  if (!m_bFired.load(std::memory_order_acquire)) SignalSender();
}

CmResult CCmEventSynchronous::OnEventFire() {
  // The second trip (and anything after the queue's pass) does nothing.
  if (m_bFired.load(std::memory_order_acquire) || (m_nState.load(std::memory_order_acquire) & kQueuePassDone))
    return CM_OK;
  ICmEvent* pEvent = m_pEventPost.load(std::memory_order_acquire);
  CmResult rv = pEvent ? pEvent->OnEventFire() : CM_ERROR_NULL_POINTER;
  m_Result.store(rv, std::memory_order_release);
  m_bFired.store(true, std::memory_order_release);
  // The wrapper outlives this call whatever the sender does: it is deleted only after
  // the queue's pass.
  SignalSender();
  return rv;
}

void CCmEventSynchronous::OnDestorySelf() {
  // The sender posts the wrapper again only after the queue's pass is over, so a call
  // that finds the pass done is the second trip (processed, discarded or refused).
  if (m_nState.load(std::memory_order_acquire) & kQueuePassDone) {
    delete this;
    return;
  }
  // The queue's pass. Nothing of *this is touched after the state changes unless this
  // pass is the last party: the sender may repost (and so delete) the wrapper at once.
  ICmEvent* pEvent = m_pEventPost.exchange(nullptr, std::memory_order_acq_rel);
  if (pEvent) pEvent->OnDestorySelf();
  if (m_nState.fetch_or(kQueuePassDone, std::memory_order_acq_rel) & kSenderReleased) delete this;
}

void CCmEventSynchronous::SignalSender() {
  if (m_nSignal.exchange(kSignalSet, std::memory_order_acq_rel) == kSignalSleeping)
    cm_platform_futex_wake_one(&m_nSignal);
}

CmResult CCmEventSynchronous::WaitSignal(CCmTimeValue* aTimeout) {
  int64_t llDeadlineNs = 0;
  if (aTimeout) {
    int64_t llWaitUs = static_cast<int64_t>(aTimeout->GetSec()) * 1000000 + aTimeout->GetUsec();
    llDeadlineNs = cm_platform_monotonic_ns() + (llWaitUs > 0 ? llWaitUs * 1000 : 0);
  }
  int nValue = m_nSignal.load(std::memory_order_acquire);
  for (;;) {
    if (nValue == kSignalSet) return CM_OK;
    int64_t llLeftNs = -1;  // no limit
    if (aTimeout) {
      llLeftNs = llDeadlineNs - cm_platform_monotonic_ns();
      if (llLeftNs <= 0) return CM_ERROR_TIMEOUT;
    }
    // Announce the sleep; a signal given meanwhile fails the exchange and is seen.
    if (nValue == kSignalClear &&
        !m_nSignal.compare_exchange_strong(nValue, kSignalSleeping, std::memory_order_acq_rel))
      continue;
    cm_platform_futex_wait(&m_nSignal, kSignalSleeping, llLeftNs);
    nValue = m_nSignal.load(std::memory_order_acquire);
  }
}

CmResult CCmEventSynchronous::WaitResultAndDeleteThis(CCmTimeValue* aTimeout) {
  CmResult rv = WaitSignal(aTimeout);
  if (rv == CM_OK) {
    rv = m_Result.load(std::memory_order_acquire);
  } else {
    CM_WARNING_TRACE_THIS("CCmEventSynchronous::WaitResultAndDeleteThis, m_SendEvent.Wait() failed!");
  }
  // The sender's release. While the queue's pass is still to come (time-out, or the
  // wrapper is between its firing and its first OnDestorySelf), leave the deletion to
  // that pass: the wrapped event then runs and is destroyed on the queue's thread only.
  int nState = m_nState.load(std::memory_order_acquire);
  while (!(nState & kQueuePassDone)) {
    if (m_nState.compare_exchange_weak(nState, nState | kSenderReleased, std::memory_order_acq_rel,
                                       std::memory_order_acquire))
      return rv;
  }
  // The pass is over and the wrapper is out of the queue's list: it makes its second
  // trip itself, so that the queue's thread deletes it. The trip does not wake the loop:
  // the loop takes it on its next pass, and a queue that is stopped refuses it (the
  // refusal deletes it here) or discards it when it is destroyed.
  CCmEventQueueBase* pQueue = m_pEventQueue;
  pQueue->CCmEventQueueBase::PostEvent(this, ICmEventQueue::EPRIORITY_NORMAL);
  return rv;
}
