// Event queues and the event base.

#include "cmutil/thread/CmEventQueueBase.h"

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#include <x86intrin.h>
#endif

#include <cstdlib>
#include <iterator>

#include "base/CmClock.h"
#include "cmutil/base/CmAssert.h"
#include "cmutil/trace/CmTraceMacros.h"
#include "platform/CmPlatform.h"
#include "thread/CmEventAllocator.h"

namespace {
// Rate limiters of the "has been stopped" warnings, shared by all queues: the 1st,
// 201st, 401st ... refusal is traced.
std::atomic<unsigned int> g_postStoppedCount{0};
std::atomic<unsigned int> g_sendStoppedCount{0};

const int64_t kLongQueueCheckUs = 3 * 1000000LL;
const unsigned int kLongQueueSize = 100;
}  // namespace

// ---- Firing time of events ----
//
// An event is timed from the stamp before it to the stamp after it, one stamp per event.
// A precise clock reading per event would cost as much as the rest of the loop, so on
// processors with an invariant cycle counter the stamps are cycle counts. A span far
// below the report limit at any plausible counter rate needs no clock at all; a longer
// one is converted to microseconds of the precise clock through the thread's anchor, a
// pair of a cycle count and a precise clock reading taken before the event began (and
// renewed every few seconds), so that the reported time follows the precise clock. A
// test clock, or a processor without such a counter, times events with the clock.
namespace {
// Lowest counter rate assumed by the quick check (250 MHz).
const int64_t kMinCyclesPerUs = 250;
// The anchor is renewed when older than this many cycles (about 1 to 4 s).
const int64_t kAnchorRenewCycles = int64_t(1) << 32;

struct CycleAnchor {
  int64_t cycles;
  int64_t us;
};
thread_local CycleAnchor t_anchor = {0, 0};

#if defined(__x86_64__) || defined(__i386__)
bool DetectInvariantCycles() {
  unsigned int a = 0, b = 0, c = 0, d = 0;
  if (!__get_cpuid(0x80000007u, &a, &b, &c, &d)) return false;
  return (d >> 8) & 1u;
}
int64_t ReadCycles() { return static_cast<int64_t>(__rdtsc()); }
#else
bool DetectInvariantCycles() { return false; }
int64_t ReadCycles() { return 0; }
#endif

bool CyclesUsable() {
  static const bool s_usable = DetectInvariantCycles();
  return s_usable && cm_test_clock() == nullptr;
}

// Stamp before the first event of a batch; decides the kind of stamps for the batch.
int64_t FirstStamp(bool& aCycles) {
  aCycles = CyclesUsable();
  if (!aCycles) return cm_clock_wall_us();
  int64_t now = ReadCycles();
  if (t_anchor.us == 0 || now - t_anchor.cycles > kAnchorRenewCycles) {
    t_anchor.us = cm_clock_wall_us();
    t_anchor.cycles = ReadCycles();
    now = t_anchor.cycles;
  }
  return now;
}

// Precise microseconds between two cycle stamps taken on this thread after its anchor.
int64_t CyclesToPreciseUs(int64_t aBegin, int64_t aEnd) {
  int64_t nowUs = cm_clock_wall_us();
  int64_t nowCycles = ReadCycles();
  int64_t spanCycles = nowCycles - t_anchor.cycles;
  int64_t spanUs = nowUs - t_anchor.us;
  if (spanCycles <= 0 || spanUs <= 0 || aEnd <= aBegin) return 0;
  return static_cast<int64_t>(static_cast<__int128>(aEnd - aBegin) * spanUs / spanCycles);
}
}  // namespace

// ---- ICmEvent ----

void ICmEvent::OnDestorySelf() { delete this; }

ICmEvent::~ICmEvent() {}

// ---- CCmEventQueueBase ----

CCmTimeValue CCmEventQueueBase::s_tvReportInterval(0L, 500000L);

// The list is lock-free whatever aWithMutex says: a post is one atomic exchange.
CCmEventQueueBase::CCmEventQueueBase(bool)
    : m_pTail(&m_Stub),
      m_dwPosted(0),
      m_llLastReportUs(cm_clock_wall_us()),
      m_bIsStopped(false),
      m_Tid(0),
      m_pHead(&m_Stub),
      m_dwTaken(0),
      m_dwPostedSeen(0),
      m_pLoopHook(nullptr),
      m_szThreadName{} {}

CCmEventQueueBase::~CCmEventQueueBase() {
  CM_INFO_TRACE_THIS(CM_FUNC_NAME);
  DestoryPendingEvents();
}

CmResult CCmEventQueueBase::PostEvent(ICmEvent* aEvent, EPriority, unsigned int* aSizeBefore) {
  CM_ASSERTE_RETURN(aEvent, CM_ERROR_INVALID_ARG);

  if (m_bIsStopped.load(std::memory_order_acquire)) {
    if (g_postStoppedCount.fetch_add(1, std::memory_order_relaxed) % 200 == 0)
      CM_WARNING_TRACE_THIS("CCmEventQueueBase::PostEvent, has been stopped.");
    aEvent->OnDestorySelf();
    return CM_ERROR_NOT_INITIALIZED;
  }

  // Count first, link second: the owner may then see a count without the event (and
  // look again), but never an event it has not counted. Sequentially consistent, as the
  // condition-variable queue's wake-up protocol relies on it.
  unsigned int dwPostedBefore = m_dwPosted.fetch_add(1, std::memory_order_seq_cst);
  if (aSizeBefore) {
    // Another post counted after this one may already have been taken.
    unsigned int dwTaken = m_dwTaken.load(std::memory_order_acquire);
    *aSizeBefore = static_cast<int>(dwPostedBefore - dwTaken) > 0 ? dwPostedBefore - dwTaken : 0;
  }
  Enqueue(aEvent);

  // Long-queue report: at most once in three seconds, only by a post. A coarse clock
  // reading is plenty for a three-second check and keeps posting cheap.
  int64_t now = cm_clock_coarse_us();
  int64_t last = m_llLastReportUs.load(std::memory_order_relaxed);
  if (now - last > kLongQueueCheckUs &&
      m_llLastReportUs.compare_exchange_strong(last, now, std::memory_order_relaxed)) {
    unsigned int dwSize = PendingCount();
    if (dwSize > kLongQueueSize) {
      CM_WARNING_TRACE_THIS("CCmEventQueueBase::PostEvent, m_dwSize=" << dwSize << " m_Tid="
                                                                      << static_cast<unsigned long>(GetThreadId())
                                                                      << " name=" << m_szThreadName);
    }
  }
  return CM_OK;
}

CmResult CCmEventQueueBase::SendEvent(ICmEvent* aEvent, CCmTimeValue* aTimeout) {
  CM_ASSERTE_RETURN(aEvent, CM_ERROR_INVALID_ARG);

  if (m_bIsStopped.load(std::memory_order_acquire)) {
    if (g_sendStoppedCount.fetch_add(1, std::memory_order_relaxed) % 200 == 0)
      CM_WARNING_TRACE_THIS("CCmEventQueueBase::SendEvent, has been stopped.");
    aEvent->OnDestorySelf();
    return CM_ERROR_NOT_INITIALIZED;
  }

  // On the queue's own thread: run in place, so the thread never waits for itself.
  if (pthread_equal(GetThreadId(), pthread_self())) {
    CmResult rv = aEvent->OnEventFire();
    aEvent->OnDestorySelf();
    return rv;
  }

  CCmEventSynchronous* pSync = new CCmEventSynchronous(aEvent, this);
  CmResult rv = PostEvent(pSync, EPRIORITY_NORMAL);
  if (rv != CM_OK) {
    // The refusal already ran the wrapper's first OnDestorySelf (the wrapped event is
    // gone); the wrapper itself is not in any queue, so it is freed here.
    delete pSync;
    return rv;
  }
  return pSync->WaitResultAndDeleteThis(aTimeout);
}

void CCmEventQueueBase::Enqueue(ICmEvent* aNode) {
  __atomic_store_n(&aNode->m_pNextEvent, nullptr, __ATOMIC_RELAXED);
  // Become the tail first, then link the previous tail to this node. The release on the
  // link publishes the node's contents to the owner, which reads the link with acquire.
  ICmEvent* pPrev = m_pTail.exchange(aNode, std::memory_order_acq_rel);
  __atomic_store_n(&pPrev->m_pNextEvent, aNode, __ATOMIC_RELEASE);
}

ICmEvent* CCmEventQueueBase::PopOne() {
  ICmEvent* pHead = m_pHead;
  ICmEvent* pNext = __atomic_load_n(&pHead->m_pNextEvent, __ATOMIC_ACQUIRE);
  if (pHead == &m_Stub) {
    // Step over the stub.
    if (!pNext) return nullptr;
    m_pHead = pHead = pNext;
    pNext = __atomic_load_n(&pHead->m_pNextEvent, __ATOMIC_ACQUIRE);
  }
  if (pNext) {
    // The next event was written by a poster on another processor: start fetching it,
    // so that its link is at hand by the time the owner comes back for it.
    __builtin_prefetch(pNext);
    m_pHead = pNext;
    return pHead;
  }
  // pHead looks like the last node. If a post has already swapped itself in behind it
  // but not linked it yet, wait for the next look.
  if (pHead != m_pTail.load(std::memory_order_acquire)) return nullptr;
  // It is the last one: put the stub behind it, so that pHead can be handed out while
  // the list stays non-empty.
  Enqueue(&m_Stub);
  pNext = __atomic_load_n(&pHead->m_pNextEvent, __ATOMIC_ACQUIRE);
  if (pNext) {
    m_pHead = pNext;
    return pHead;
  }
  return nullptr;  // a post got in between and has not linked yet
}

ICmEvent* CCmEventQueueBase::TakeBatch(unsigned int aMaxCount, unsigned int* aRemain) {
  // Unlinked events are no longer reachable from the list, so their link field is free
  // to chain the batch.
  ICmEvent* pFirst = nullptr;
  ICmEvent** ppLink = &pFirst;
  // One pass never takes more than was pending on entry: under a steady flood an
  // unbounded take would never return to its caller.
  // The posted count lives on the posters' line: read it only when the count last seen
  // does not already cover this pass (it only grows, so an old reading stays a bound).
  const unsigned int dwTakenBefore = m_dwTaken.load(std::memory_order_relaxed);
  if (m_dwPostedSeen - dwTakenBefore < aMaxCount) m_dwPostedSeen = m_dwPosted.load(std::memory_order_acquire);
  unsigned int dwPending = m_dwPostedSeen - dwTakenBefore;
  if (aMaxCount > dwPending) aMaxCount = dwPending;
  unsigned int dwTaken = 0;
  while (dwTaken < aMaxCount) {
    ICmEvent* pEvent = PopOne();
    if (!pEvent) break;
    *ppLink = pEvent;
    ppLink = &pEvent->m_pNextEvent;
    ++dwTaken;
  }
  *ppLink = nullptr;
  if (dwTaken) m_dwTaken.store(dwTakenBefore + dwTaken, std::memory_order_release);
  if (aRemain) *aRemain = PendingCount();
  return pFirst;
}

CmResult CCmEventQueueBase::PopPendingEvents(std::list<ICmEvent*>& aEvents, unsigned int aMaxCount,
                                             unsigned int* aRemain) {
  if (aMaxCount == 0) {
    unsigned int dwSize = PendingCount();
    if (!dwSize) return CM_ERROR_NOT_FOUND;
    if (aRemain) *aRemain = dwSize;
    return CM_OK;
  }
  unsigned int dwRemain = 0;
  ICmEvent* pEvent = TakeBatch(aMaxCount, &dwRemain);
  if (!pEvent) return CM_ERROR_NOT_FOUND;
  if (aRemain) *aRemain = dwRemain;
  while (pEvent) {
    ICmEvent* pNext = pEvent->m_pNextEvent;
    AppendEvent(aEvents, pEvent);
    pEvent = pNext;
  }
  return CM_OK;
}

CmResult CCmEventQueueBase::PopAndProcessEvents(unsigned int aMaxCount) {
  ICmEvent* pFirst = TakeBatch(aMaxCount, nullptr);
  if (!pFirst) return CM_ERROR_NOT_FOUND;
  return ProcessChain(pFirst);
}

CmResult CCmEventQueueBase::ProcessChain(ICmEvent* aFirst) {
  bool bCycles = false;
  int64_t tStamp = FirstStamp(bCycles);
  ICmEvent* pEvent = aFirst;
  while (pEvent) {
    // Read the link before the event destroys itself; the next event was written by
    // another thread, so start fetching it early.
    ICmEvent* pNext = pEvent->m_pNextEvent;
    if (pNext) __builtin_prefetch(pNext);
    ProcessOneEventTimed(pEvent, tStamp, bCycles);
    pEvent = pNext;
  }
  if (m_pLoopHook) {
    m_pLoopHook();
    return CM_ERROR_ABORTED;
  }
  return CM_OK;
}

void CCmEventQueueBase::AppendEvent(std::list<ICmEvent*>& aEvents, ICmEvent* aEvent) {
  if (m_listSpare.empty()) {
    aEvents.push_back(aEvent);
    return;
  }
  aEvents.splice(aEvents.end(), m_listSpare, m_listSpare.begin());
  aEvents.back() = aEvent;
}

void CCmEventQueueBase::RecycleEventList(std::list<ICmEvent*>& aEvents) {
  // Keep a small stock only: a huge batch should not pin its nodes for ever.
  const size_t kMaxSpare = 256;
  if (m_listSpare.size() < kMaxSpare) m_listSpare.splice(m_listSpare.end(), aEvents);
  aEvents.clear();
}

CmResult CCmEventQueueBase::ProcessEvents(const std::list<ICmEvent*>& aEvents) {
  bool bCycles = false;
  int64_t tStamp = FirstStamp(bCycles);
  for (auto it = aEvents.begin(); it != aEvents.end(); ++it) {
    ICmEvent* pEvent = *it;
    if (!pEvent) {
      ProcessOneEvent(pEvent);  // reports the assertion
      continue;
    }
    // The events were written by other threads: start fetching the next one early.
    auto next = std::next(it);
    if (next != aEvents.end()) __builtin_prefetch(*next);
    ProcessOneEventTimed(pEvent, tStamp, bCycles);
  }
  if (m_pLoopHook) {
    m_pLoopHook();
    return CM_ERROR_ABORTED;
  }
  return CM_OK;
}

CmResult CCmEventQueueBase::ProcessOneEvent(ICmEvent* aEvent) {
  CM_ASSERTE_RETURN(aEvent, CM_ERROR_INVALID_ARG);
  bool bCycles = false;
  int64_t tStamp = FirstStamp(bCycles);
  ProcessOneEventTimed(aEvent, tStamp, bCycles);
  return CM_OK;
}

void CCmEventQueueBase::ProcessOneEventTimed(ICmEvent* aEvent, int64_t& aStamp, bool aCycles) {
  int64_t tBegin = aStamp;
  aEvent->OnEventFire();
  aEvent->OnDestorySelf();
  int64_t tLimit = static_cast<int64_t>(s_tvReportInterval.GetSec()) * 1000000 + s_tvReportInterval.GetUsec();
  int64_t tSpent = 0;
  if (aCycles) {
    aStamp = ReadCycles();
    // Far below the limit at any plausible counter rate: done, without reading a clock.
    if (aStamp - tBegin <= tLimit * kMinCyclesPerUs) return;
    tSpent = CyclesToPreciseUs(tBegin, aStamp);
  } else {
    aStamp = cm_clock_wall_us();
    tSpent = aStamp - tBegin;
  }
  if (tSpent > tLimit) {
    CM_WARNING_TRACE_THIS("CCmEventQueueBase::ProcessOneEvent, report, sec="
                          << static_cast<long>(tSpent / 1000000) << " usec=" << static_cast<long>(tSpent % 1000000)
                          << " aEvent=" << static_cast<const void*>(aEvent) << " m_dwSize=" << PendingCount()
                          << " tid=" << static_cast<unsigned long>(GetThreadId()) << " name=" << m_szThreadName);
  }
}

void CCmEventQueueBase::Reset2CurrentThreadInfo() {
  cm_platform_get_thread_name(m_szThreadName, sizeof(m_szThreadName));
  m_Tid.store(pthread_self(), std::memory_order_release);
}

void CCmEventQueueBase::Start() {
  m_bIsStopped.store(false, std::memory_order_release);
  CM_INFO_TRACE_THIS("CCmEventQueueBase::Start");
}

void CCmEventQueueBase::Stop() {
  m_bIsStopped.store(true, std::memory_order_release);
  CM_INFO_TRACE_THIS("CCmEventQueueBase::Stop");
}

void CCmEventQueueBase::DestoryPendingEvents() {
  CM_INFO_TRACE_THIS(CM_FUNC_NAME << ", m_dwSize=" << PendingCount());

  // Take everything posted so far, oldest first, then destroy it outside any state of
  // the queue (an OnDestorySelf may post again).
  ICmEvent* pEvent = TakeBatch(0xFFFFFFFFu, nullptr);
  while (pEvent) {
    ICmEvent* pNext = pEvent->m_pNextEvent;
    pEvent->OnDestorySelf();
    pEvent = pNext;
  }
}

// ---- CCmEventQueueUsingConditionVariable ----

CCmEventQueueUsingConditionVariable::CCmEventQueueUsingConditionVariable()
    : CCmEventQueueBase(true), m_Condition(m_MutexForCondition), m_bWaiting(false) {}

CCmEventQueueUsingConditionVariable::~CCmEventQueueUsingConditionVariable() {}

CmResult CCmEventQueueUsingConditionVariable::PostEvent(ICmEvent* aEvent, EPriority aPri, unsigned int* aSizeBefore) {
  CmResult rv = CCmEventQueueBase::PostEvent(aEvent, aPri, aSizeBefore);
  // The posted count was raised (sequentially consistent) before this read; the owner sets
  // m_bWaiting before its last look at the size. So either the owner sees the event,
  // or this post sees the owner waiting and wakes it under the condition's mutex.
  // Only the poster that clears the flag wakes the owner; later posts of the same round
  // find it cleared and skip the wake-up.
  if (rv == CM_OK && m_bWaiting.load(std::memory_order_seq_cst) &&
      m_bWaiting.exchange(false, std::memory_order_seq_cst)) {
    m_MutexForCondition.Lock();
    m_MutexForCondition.UnLock();
    m_Condition.Signal();
  }
  return rv;
}

void CCmEventQueueUsingConditionVariable::WaitForEvent(CCmTimeValue* aTimeout) {
  const unsigned int dwTaken = m_dwTaken.load(std::memory_order_relaxed);  // own variable
  if (m_dwPosted.load(std::memory_order_relaxed) != dwTaken) return;

  // No spinning before the sleep: the loop usually shares a processor with its posters
  // on a busy machine, where a spin only delays them, and a synchronous sender pays for
  // it in its round trip. A steady poster finds the loop awake anyway.
  bool bMayWait = !aTimeout || *aTimeout > CCmTimeValue::get_tvZero();
  if (!bMayWait) return;

  CCmMutexGuardT<CCmMutexThread> guard(m_MutexForCondition);
  if (m_dwPosted.load(std::memory_order_seq_cst) == dwTaken) {
    m_bWaiting.store(true, std::memory_order_seq_cst);
    if (m_dwPosted.load(std::memory_order_seq_cst) == dwTaken) {
      CmResult rv = m_Condition.Wait(aTimeout);
      if (rv != CM_OK && rv != CM_ERROR_TIMEOUT) {
        CM_ERROR_TRACE_THIS(
            "CCmEventQueueUsingConditionVariable::PopOrWaitPendingEvents,Wait() failed while pending size="
            << PendingCount() << " rv=" << rv);
      }
    }
    m_bWaiting.store(false, std::memory_order_seq_cst);
  }
}

CmResult CCmEventQueueUsingConditionVariable::PopOrWaitPendingEvents(std::list<ICmEvent*>& aEvents,
                                                                     CCmTimeValue* aTimeout, unsigned int aMaxCount) {
  // Look first: while events keep coming, the owner never reads the posters' count.
  CmResult rv = PopPendingEvents(aEvents, aMaxCount, nullptr);
  if (rv != CM_ERROR_NOT_FOUND) return rv;
  WaitForEvent(aTimeout);
  rv = PopPendingEvents(aEvents, aMaxCount, nullptr);
  if (rv == CM_ERROR_NOT_FOUND) YieldToLinkingPoster();
  return rv;
}

void CCmEventQueueUsingConditionVariable::YieldToLinkingPoster() {
  // Counted but not linked yet: a poster sits between its two steps, maybe preempted.
  // The next wait returns at once while the count is up, so give it the processor
  // rather than spin.
  if (PendingCount() != 0) cm_platform_yield();
}

CmResult CCmEventQueueUsingConditionVariable::WaitAndProcessEvents(CCmTimeValue* aTimeout, unsigned int aMaxCount) {
  CmResult rv = PopAndProcessEvents(aMaxCount);
  if (rv != CM_ERROR_NOT_FOUND) return rv;
  WaitForEvent(aTimeout);
  rv = PopAndProcessEvents(aMaxCount);
  if (rv == CM_ERROR_NOT_FOUND) YieldToLinkingPoster();
  return rv;
}
