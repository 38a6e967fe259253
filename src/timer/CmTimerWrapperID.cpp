// Timer handles: CCmTimerWrapperID and its reference object CCmTimerWrapperRef.

#include "cmutil/timer/CmTimerWrapperID.h"

#include <time.h>

#include <atomic>

#include "cmutil/base/CmAssert.h"
#include "cmutil/thread/CmEventQueueBase.h"
#include "cmutil/thread/CmThread.h"
#include "cmutil/thread/CmThreadRegistry.h"
#include "cmutil/thread/CmThreadSingletonFactory.h"
#include "cmutil/trace/CmTraceMacros.h"
#include "timer/CmTimerWrapperRef.h"

namespace {

constexpr ICmEventQueue::EPriority kTimerEventPriority = ICmEventQueue::EPRIORITY_NORMAL;

std::atomic<int> g_cancelWaitRounds{25};

void sleep_ms(unsigned int ms) {
  struct timespec ts;
  ts.tv_sec = ms / 1000;
  ts.tv_nsec = static_cast<long>(ms % 1000) * 1000000L;
  while (::nanosleep(&ts, &ts) != 0) {
  }
}

/// One counted reference held by a posted event; released when the event goes.
class RefHolder {
 public:
  explicit RefHolder(CCmTimerWrapperRef* aRef) : m_pRef(aRef) { m_pRef->AddReference(); }
  RefHolder(const RefHolder& aOther) : m_pRef(aOther.m_pRef) { m_pRef->AddReference(); }
  RefHolder& operator=(const RefHolder&) = delete;
  ~RefHolder() { m_pRef->ReleaseReference(); }
  CCmTimerWrapperRef* get() const { return m_pRef; }

 private:
  CCmTimerWrapperRef* m_pRef;
};

/// Runs on the target thread: binds the reference to that thread's queue if it is
/// still unbound, then schedules it.
struct ScheduleCall {
  RefHolder ref;
  CCmTimerWrapperIDSink* sink;
  CCmTimeValue interval;
  unsigned int count;

  void operator()() const {
    CCmTimerWrapperRef* r = ref.get();
    if (!r->GetTimerQueue()) {
      ACmThread* current = getCurrentThread();
      ICmTimerQueue* queue = current ? current->GetTimerQueue() : nullptr;
      if (!queue) return;  // CM_ERROR_THREAD_CREATE: nothing to bind to
      r->BindTimerQueue(queue);
    }
    (void)r->ScheduleTimer(sink, interval, count);
  }
};

/// Runs on the owning thread: removes the reference's timer from the bound queue.
struct CancelCall {
  RefHolder ref;

  void operator()() const {
    if (ICmTimerQueue* queue = ref.get()->GetTimerQueue()) (void)queue->CancelTimer(ref.get());
  }
};

ICmTimerQueue* current_timer_queue() {
  ACmThread* current = getCurrentThread();
  return current ? current->GetTimerQueue() : nullptr;
}

}  // namespace

void cm_set_timer_cancel_wait_rounds_for_test(int aRounds) { g_cancelWaitRounds.store(aRounds < 0 ? 25 : aRounds); }

// ---- CCmTimerWrapperRef ----

CCmTimerWrapperRef::CCmTimerWrapperRef(CCmTimerWrapperID* aParent, CM_THREAD_ID aThreadId)
    : m_pParent(aParent), m_pTimerQueue(nullptr), m_ThreadId(aThreadId), m_bExecuting(false), m_bCancelled(false) {}

CCmTimerWrapperRef::~CCmTimerWrapperRef() {
  // The last count is gone, so no event refers to this object any more. Mark it
  // cancelled and, on the owning thread, make sure the queue forgets it. (Posting a
  // cancelling event from here would hand out a dying object.)
  m_bCancelled.store(true);
  m_pParent.store(nullptr);
  ICmTimerQueue* queue = GetTimerQueue();
  if (queue && IsOwnThread()) (void)queue->CancelTimer(this);
  m_ThreadId = 0;
}

void CCmTimerWrapperRef::OnReferenceDestory() { delete this; }

bool CCmTimerWrapperRef::IsOwnThread() const { return current_timer_queue() == GetTimerQueue(); }

CmResult CCmTimerWrapperRef::ScheduleTimer(CCmTimerWrapperIDSink* aSink, const CCmTimeValue& aInterval,
                                           unsigned int aCount) {
  ICmTimerQueue* queue = GetTimerQueue();
  if (!queue) {
    cm_assert_failed("CmTimerWrapperID", 70, "m_pTimerQueue != NULL");
    return CM_ERROR_NOT_INITIALIZED;
  }
  m_bCancelled.store(false);
  return queue->ScheduleTimer(this, aSink, aInterval, aCount);
}

CmResult CCmTimerWrapperRef::Cancel() {
  m_bCancelled.store(true);
  CCmTimerWrapperID* parent = m_pParent.exchange(nullptr);
  (void)parent;
  if (IsOwnThread()) {
    ICmTimerQueue* queue = GetTimerQueue();
    return queue ? queue->CancelTimer(this) : CM_ERROR_GENERIC;
  }

  // Foreign thread: wait for a callback that is running right now.
  const int rounds = g_cancelWaitRounds.load();
  for (int i = 0; i < rounds && m_bExecuting.load(); ++i) sleep_ms(i < 5 ? 30 : 100);
  if (m_bExecuting.load()) {
    CM_ERROR_TRACE_THIS("CCmTimerWrapperRef::Cancel, the timer has been executed too long time, parent="
                        << static_cast<const void*>(m_pParent.load()) << ", thread=" << m_ThreadId);
  }
  if (ACmThread* owner = GetThreadById(m_ThreadId)) {
    if (ICmEventQueue* eventQueue = owner->GetEventQueue())
      (void)eventQueue->PostEvent(new CCmInvokeEvent<CancelCall>(CancelCall{RefHolder(this)}), kTimerEventPriority,
                                  nullptr);
  }
  return CM_ERROR_NULL_POINTER;
}

void CCmTimerWrapperRef::OnTimeout(const CCmTimeValue& aCurTime, void* aArg) {
  m_bExecuting.store(true);
  if (!m_bCancelled.load()) {
    AddReference();
    if (CCmTimerWrapperID* parent = m_pParent.load()) parent->OnTimeout(aCurTime, aArg);
    m_bExecuting.store(false);
    ReleaseReference();
  } else {
    m_bExecuting.store(false);
  }
}

// ---- CCmTimerWrapperIDSink ----

CCmTimerWrapperIDSink::~CCmTimerWrapperIDSink() {}

// ---- CCmTimerWrapperID ----

struct CCmTimerWrapperID::Impl {
  CCmMutexThreadRecursive lock;
  CCmTimerWrapperRef* ref CM_GUARDED_BY(lock) = nullptr;
};

CCmTimerWrapperID::CCmTimerWrapperID() : m_impl(new Impl) {}

CCmTimerWrapperID::~CCmTimerWrapperID() {
  (void)Cancel();
  CCmTimerWrapperRef* ref = nullptr;
  {
    CCmMutexGuardT<CCmMutexThreadRecursive> guard(m_impl->lock);
    ref = m_impl->ref;
    m_impl->ref = nullptr;
  }
  if (ref) ref->ReleaseReference();
  delete m_impl;
}

CmResult CCmTimerWrapperID::Schedule(CCmTimerWrapperIDSink* aSink, const CCmTimeValue& aInterval, unsigned int aCount) {
  if (!aSink) {
    cm_assert_failed("CmTimerWrapperID", 159, "aSink");
    return CM_ERROR_INVALID_ARG;
  }
  ACmThread* current = getCurrentThread();
  if (!current) {
    CM_ERROR_TRACE_THIS("CCmTimerWrapperID::Schedule, your thread doesn't support TP timer queue.");
    return CM_ERROR_NULL_POINTER;
  }
  ICmTimerQueue* queue = current->GetTimerQueue();
  if (!queue) {
    CM_WARNING_TRACE_THIS("CCmTimerWrapperID::Schedule, your thread doesn't support TP timer queue 2.");
    return CM_ERROR_THREAD_CREATE;
  }
  CCmMutexGuardT<CCmMutexThreadRecursive> guard(m_impl->lock);
  if (!m_impl->ref) {
    m_impl->ref = new CCmTimerWrapperRef(this, current->GetThreadId());
    m_impl->ref->AddReference();
  }
  CCmTimerWrapperRef* ref = m_impl->ref;
  ICmTimerQueue* bound = ref->GetTimerQueue();
  if (bound && bound != queue) {
    CM_ERROR_TRACE_THIS("CCmTimerWrapperID::Schedule, schedule in different thread is not allowed.");
    return CM_ERROR_FAILURE;
  }
  ref->BindTimerQueue(queue);
  return ref->ScheduleTimer(aSink, aInterval, aCount);
}

CmResult CCmTimerWrapperID::ScheduleInThread(int aThreadType, CCmTimerWrapperIDSink* aSink,
                                             const CCmTimeValue& aInterval, unsigned int aCount) {
  if (!aSink) {
    cm_assert_failed("CmTimerWrapperID", 190, "aSink");
    return CM_ERROR_INVALID_ARG;
  }
  ACmThread* thread = GetThread(aThreadType);
  if (!thread) {
    cm_assert_failed("CmTimerWrapperID", 192, "pThread != NULL");
    return CM_ERROR_INVALID_ARG;
  }
  return ScheduleInThread(thread, aSink, aInterval, aCount);
}

CmResult CCmTimerWrapperID::ScheduleInThread(ACmThread* pThread, CCmTimerWrapperIDSink* aSink,
                                             const CCmTimeValue& aInterval, unsigned int aCount) {
  if (!pThread) {
    cm_assert_failed("CmTimerWrapperID", 201, "pThread != NULL");
    return CM_ERROR_INVALID_ARG;
  }
  if (!aSink) {
    cm_assert_failed("CmTimerWrapperID", 202, "aSink");
    return CM_ERROR_INVALID_ARG;
  }
  if (IsEqualCurrentThread(pThread->GetThreadId())) return Schedule(aSink, aInterval, aCount);
  ICmTimerQueue* queue = pThread->GetTimerQueue();
  if (!queue) {
    cm_assert_failed("CmTimerWrapperID", 210, "pTimerQueue != NULL");
    return CM_ERROR_THREAD_CREATE;
  }
  CCmMutexGuardT<CCmMutexThreadRecursive> guard(m_impl->lock);
  if (!m_impl->ref) {
    m_impl->ref = new CCmTimerWrapperRef(this, pThread->GetThreadId());
    m_impl->ref->AddReference();
  }
  CCmTimerWrapperRef* ref = m_impl->ref;
  ICmTimerQueue* bound = ref->GetTimerQueue();
  if (bound && bound != queue) {
    CM_ERROR_TRACE_THIS("CCmTimerWrapperID::ScheduleInThread, schedule 2 timers in different thread is not supported.");
    return CM_ERROR_NULL_POINTER;
  }
  ICmEventQueue* eventQueue = pThread->GetEventQueue();
  if (!eventQueue) return CM_ERROR_NULL_POINTER;
  return eventQueue->PostEvent(new CCmInvokeEvent<ScheduleCall>(ScheduleCall{RefHolder(ref), aSink, aInterval, aCount}),
                               kTimerEventPriority, nullptr);
}

CmResult CCmTimerWrapperID::Cancel(bool) {
  CCmTimerWrapperRef* ref = nullptr;
  {
    CCmMutexGuardT<CCmMutexThreadRecursive> guard(m_impl->lock);
    ref = m_impl->ref;
    m_impl->ref = nullptr;
  }
  if (!ref) return CM_ERROR_NOT_FOUND;
  // The handle's count now serves as the local one.
  const CmResult rv = ref->Cancel();
  ref->ReleaseReference();
  return rv;
}

void CCmTimerWrapperID::OnTimeout(const CCmTimeValue&, void* aArg) {
  CCmTimerWrapperIDSink* sink = static_cast<CCmTimerWrapperIDSink*>(aArg);
  bool hasRef = false;
  {
    CCmMutexGuardT<CCmMutexThreadRecursive> guard(m_impl->lock);
    hasRef = m_impl->ref != nullptr;
  }
  if (sink && hasRef) sink->OnTimer(this);
}
