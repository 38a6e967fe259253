// The synchronous-send wrapper: the sender watches a futex word briefly, then sleeps on
// it, until the target thread has run the event.

#include "cmutil/thread/CmEventQueueBase.h"

#include <algorithm>

#include "base/CmCpuRelax.h"
#include "cmutil/base/CmAssert.h"
#include "cmutil/trace/CmTraceMacros.h"
#include "platform/CmPlatform.h"

namespace {
// Values of CCmEventSynchronous::m_nSignal.
const int kSignalClear = 0;
const int kSignalSet = 1;
const int kSignalSleeping = 2;

// A sender watches for its result, up to kWatchNs, before it sleeps. A result that
// comes within the watch saves the sender's own wake-up (tens of microseconds on a
// virtual machine), and a sender that stays awake finds the target still awake for its
// next send. On a busy machine the watch takes a processor the target may need and ends
// in a sleep anyway, so each sending thread skips the watch after one that did not pay,
// for twice as many sends after each further miss (up to kMaxSkip), and watches every
// time again once one pays. The watch is bounded: a real-time sender never spins
// against a preempted target for longer than kWatchNs.
const long long kWatchNs = 30000;
const unsigned kFirstSkip = 4;
const unsigned kMaxSkip = 1024;

struct SenderWatch {
  unsigned skipLeft = 0;   // sends still to go without a watch
  unsigned skipAfter = 0;  // the skip set by the last miss; 0 after a watch that paid
};
thread_local SenderWatch t_watch;

bool WatchWanted() {
  if (t_watch.skipLeft == 0) return true;
  --t_watch.skipLeft;
  return false;
}

void RecordWatch(bool aPaid) {
  if (aPaid) {
    t_watch.skipAfter = 0;
    return;
  }
  t_watch.skipAfter = std::min(kMaxSkip, std::max(kFirstSkip, 2 * t_watch.skipAfter));
  t_watch.skipLeft = t_watch.skipAfter;
}

// The signal's value once it is set or aUntilNs has passed.
int WatchUntil(const std::atomic<int>& aSignal, long long aUntilNs) {
  int nValue;
  while ((nValue = aSignal.load(std::memory_order_acquire)) != kSignalSet && cm_platform_monotonic_ns() < aUntilNs)
    CmCpuRelax();
  return nValue;
}

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
  if (nValue != kSignalSet && WatchWanted()) {
    const long long llWatchEndNs = cm_platform_monotonic_ns() + kWatchNs;
    nValue = WatchUntil(m_nSignal, aTimeout ? std::min<long long>(llWatchEndNs, llDeadlineNs) : llWatchEndNs);
    RecordWatch(nValue == kSignalSet);
  }
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
