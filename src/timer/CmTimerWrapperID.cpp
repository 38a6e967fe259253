// Timer handles: CCmTimerWrapperID and its reference object CCmTimerWrapperRef.

#include "cmutil/timer/CmTimerWrapperID.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <utility>
#include <vector>

#include "cmutil/base/CmAssert.h"
#include "cmutil/thread/CmEventQueueBase.h"
#include "cmutil/thread/CmThread.h"
#include "cmutil/thread/CmThreadRegistry.h"
#include "cmutil/thread/CmThreadSingletonFactory.h"
#include "cmutil/trace/CmTraceMacros.h"
#include "platform/CmPlatform.h"
#include "timer/CmTimerWrapperRef.h"
#include "timerqueue/CmTimerQueueGone.h"

namespace {

constexpr ICmEventQueue::EPriority kTimerEventPriority = ICmEventQueue::EPRIORITY_NORMAL;

std::atomic<int> g_cancelWaitRounds{25};

ICmTimerQueue* current_timer_queue() {
  ACmThread* current = getCurrentThread();
  return current ? current->GetTimerQueue() : nullptr;
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
    ACmThread* current = getCurrentThread();
    ICmTimerQueue* mine = current ? current->GetTimerQueue() : nullptr;
    ICmTimerQueue* bound = r->GetTimerQueue();
    if (!bound) {
      if (!mine) return;  // CM_ERROR_THREAD_CREATE: nothing to bind to
      // Binding races with a Schedule() of the same handle on another thread: the
      // first one wins and the reference stays with that queue.
      bound = r->BindTimerQueue(mine, current->GetThreadId());
    }
    // A queue is only ever touched from its own thread.
    if (bound != mine) return;
    (void)r->ScheduleTimer(sink, interval, count);
  }
};

/// Runs on the owning thread: removes the reference's timer from the bound queue.
struct CancelCall {
  RefHolder ref;

  void operator()() const {
    ICmTimerQueue* queue = ref.get()->GetTimerQueue();
    if (queue && queue == current_timer_queue()) (void)ref.get()->RemoveFromQueue(queue);
  }
};

}  // namespace

/// References whose last count went on a foreign thread while their queue could still
/// reach them. Allocated once and never destroyed: queues may die during exit.
struct CmTimerOrphans {
  std::mutex mutex;
  std::vector<std::pair<ICmTimerQueue*, CCmTimerWrapperRef*>> parked;

  // A queue destroyed while it may still hold orphans frees them: the listener is in
  // place before the first orphan is parked.
  static CmTimerOrphans& Get() {
    static CmTimerOrphans* orphans = [] {
      cm_set_timer_queue_gone_listener(&cm_timer_release_orphans);
      return new CmTimerOrphans;
    }();
    return *orphans;
  }

  void Adopt(ICmTimerQueue* aQueue, CCmTimerWrapperRef* aRef) {
    std::lock_guard<std::mutex> guard(mutex);
    aRef->m_bOrphan.store(true);
    parked.emplace_back(aQueue, aRef);
  }

  /// Takes aRef out of the list; false if it is not (or no longer) there.
  bool Forget(CCmTimerWrapperRef* aRef) {
    std::lock_guard<std::mutex> guard(mutex);
    auto it = std::find_if(parked.begin(), parked.end(), [aRef](const auto& p) { return p.second == aRef; });
    if (it == parked.end()) return false;
    *it = parked.back();
    parked.pop_back();
    aRef->m_bOrphan.store(false);
    return true;
  }

  std::vector<CCmTimerWrapperRef*> TakeAll(ICmTimerQueue* aQueue) {
    std::vector<CCmTimerWrapperRef*> taken;
    std::lock_guard<std::mutex> guard(mutex);
    for (size_t i = 0; i < parked.size();) {
      if (parked[i].first == aQueue) {
        taken.push_back(parked[i].second);
        parked[i] = parked.back();
        parked.pop_back();
      } else {
        ++i;
      }
    }
    return taken;
  }

  void ReleaseFor(ICmTimerQueue* aQueue) {
    for (CCmTimerWrapperRef* ref : TakeAll(aQueue)) {
      // The queue is going away: nothing can reach the object any more, and its
      // destructor must not touch the dying queue.
      ref->m_pTimerQueue.store(nullptr);
      ref->m_bOrphan.store(false);
      delete ref;
    }
  }

  size_t Count() {
    std::lock_guard<std::mutex> guard(mutex);
    return parked.size();
  }
};

void cm_timer_release_orphans(ICmTimerQueue* aQueue) { CmTimerOrphans::Get().ReleaseFor(aQueue); }

size_t cm_timer_orphan_count_for_test() { return CmTimerOrphans::Get().Count(); }

void cm_set_timer_cancel_wait_rounds_for_test(int aRounds) { g_cancelWaitRounds.store(aRounds < 0 ? 25 : aRounds); }

// ---- CCmTimerWrapperRef ----

CCmTimerWrapperRef::CCmTimerWrapperRef(CCmTimerWrapperID* aParent, CM_THREAD_ID aThreadId)
    : m_pParent(aParent),
      m_pTimerQueue(nullptr),
      m_ThreadId(aThreadId),
      m_bExecuting(false),
      m_bCancelled(false),
      m_bUnqueued(false),
      m_bOrphan(false) {}

CCmTimerWrapperRef::~CCmTimerWrapperRef() {
  // The last count is gone, so no event refers to this object any more. Mark it
  // cancelled and, on the owning thread, make sure the queue forgets it. (Posting a
  // cancelling event from here would hand out a dying object.)
  m_bCancelled.store(true);
  m_pParent.store(nullptr);
  ICmTimerQueue* queue = GetTimerQueue();
  if (queue && queue == current_timer_queue()) (void)queue->CancelTimer(this);
  m_ThreadId.store(0);
}

void CCmTimerWrapperRef::OnReferenceDestory() {
  ICmTimerQueue* queue = GetTimerQueue();
  const CM_THREAD_ID owner = m_ThreadId.load();
  const bool onOwner = owner != 0 && pthread_equal(owner, pthread_self());
  if (queue && !onOwner && !m_bUnqueued.load()) {
    // The owning thread may be about to fire this object (it may have popped it
    // already): freeing it here would leave the queue a dangling handler. Park it;
    // this thread must not touch it after this call.
    CmTimerOrphans::Get().Adopt(queue, this);
    return;
  }
  delete this;
}

ICmTimerQueue* CCmTimerWrapperRef::BindTimerQueue(ICmTimerQueue* aQueue, CM_THREAD_ID aThreadId) {
  ICmTimerQueue* expected = nullptr;
  if (m_pTimerQueue.compare_exchange_strong(expected, aQueue)) {
    m_ThreadId.store(aThreadId);
    return aQueue;
  }
  return expected;
}

CmResult CCmTimerWrapperRef::ScheduleTimer(CCmTimerWrapperIDSink* aSink, const CCmTimeValue& aInterval,
                                           unsigned int aCount) {
  CM_ASSERTE_RETURN(m_pTimerQueue != NULL, CM_ERROR_NOT_INITIALIZED);
  // Bound once and never unbound, so this read sees the queue just checked.
  ICmTimerQueue* queue = GetTimerQueue();
  m_bCancelled.store(false);
  m_bUnqueued.store(false);
  return queue->ScheduleTimer(this, aSink, aInterval, aCount);
}

CmResult CCmTimerWrapperRef::RemoveFromQueue(ICmTimerQueue* aQueue) {
  const CmResult rv = aQueue->CancelTimer(this);
  m_bUnqueued.store(true);
  return rv;
}

CmResult CCmTimerWrapperRef::Cancel() {
  m_bCancelled.store(true);
  CCmTimerWrapperID* parent = m_pParent.exchange(nullptr);
  (void)parent;
  // Read the binding once: the owning thread may bind an unbound reference at any
  // moment (a queued scheduling event), and a second read could then hand the
  // queue to this thread although the decision below was taken for "unbound".
  ICmTimerQueue* queue = GetTimerQueue();
  ICmTimerQueue* mine = current_timer_queue();
  if (queue && queue == mine) return RemoveFromQueue(queue);

  // Foreign thread: wait for a callback that is running right now.
  const int rounds = g_cancelWaitRounds.load();
  for (int i = 0; i < rounds && m_bExecuting.load(); ++i) cm_platform_sleep_ms(i < 5 ? 30 : 100);
  if (m_bExecuting.load()) {
    CM_ERROR_TRACE_THIS("CCmTimerWrapperRef::Cancel, the timer has been executed too long time, parent="
                        << static_cast<const void*>(m_pParent.load()) << ", thread=" << m_ThreadId.load());
  }
  // Also when unbound: a scheduling event may still be queued on the owning thread;
  // the cancelling event runs after it and takes the timer out again.
  if (ACmThread* owner = GetThreadById(m_ThreadId.load())) {
    if (ICmEventQueue* eventQueue = owner->GetEventQueue())
      (void)eventQueue->PostEvent(new CCmInvokeEvent<CancelCall>(CancelCall{RefHolder(this)}), kTimerEventPriority,
                                  nullptr);
  }
  // Neither side has a queue: nothing was bound to cancel in.
  if (!queue && !mine) return CM_ERROR_GENERIC;
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
    // An orphan met again on its owning thread: take it out of the queue and free it.
    // Nothing touches the object after this (the queue does not look at a handler
    // once its OnTimeout has returned).
    if (m_bOrphan.load() && CmTimerOrphans::Get().Forget(this)) delete this;
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
  CM_ASSERTE_RETURN(aSink, CM_ERROR_INVALID_ARG);
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
  // Binds an unbound reference to this queue; a queued scheduling event of another
  // thread may have bound it first.
  if (ref->BindTimerQueue(queue, current->GetThreadId()) != queue) {
    CM_ERROR_TRACE_THIS("CCmTimerWrapperID::Schedule, schedule in different thread is not allowed.");
    return CM_ERROR_FAILURE;
  }
  return ref->ScheduleTimer(aSink, aInterval, aCount);
}

CmResult CCmTimerWrapperID::ScheduleInThread(int aThreadType, CCmTimerWrapperIDSink* aSink,
                                             const CCmTimeValue& aInterval, unsigned int aCount) {
  CM_ASSERTE_RETURN(aSink, CM_ERROR_INVALID_ARG);
  ACmThread* pThread = GetThread(aThreadType);
  CM_ASSERTE_RETURN(pThread != NULL, CM_ERROR_INVALID_ARG);
  return ScheduleInThread(pThread, aSink, aInterval, aCount);
}

CmResult CCmTimerWrapperID::ScheduleInThread(ACmThread* pThread, CCmTimerWrapperIDSink* aSink,
                                             const CCmTimeValue& aInterval, unsigned int aCount) {
  CM_ASSERTE_RETURN(pThread != NULL, CM_ERROR_INVALID_ARG);
  CM_ASSERTE_RETURN(aSink, CM_ERROR_INVALID_ARG);
  if (IsEqualCurrentThread(pThread->GetThreadId())) return Schedule(aSink, aInterval, aCount);
  ICmTimerQueue* pTimerQueue = pThread->GetTimerQueue();
  CM_ASSERTE_RETURN(pTimerQueue != NULL, CM_ERROR_THREAD_CREATE);
  CCmMutexGuardT<CCmMutexThreadRecursive> guard(m_impl->lock);
  if (!m_impl->ref) {
    m_impl->ref = new CCmTimerWrapperRef(this, pThread->GetThreadId());
    m_impl->ref->AddReference();
  }
  CCmTimerWrapperRef* ref = m_impl->ref;
  ICmTimerQueue* bound = ref->GetTimerQueue();
  if (bound && bound != pTimerQueue) {
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
