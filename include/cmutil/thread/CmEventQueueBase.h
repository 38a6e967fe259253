#pragma once
/// Events and event queues: how work is handed between threads.
///
/// An ICmEvent is a small heap object run once on the thread that owns the queue it was
/// posted to. Ownership: an event posted successfully belongs to the queue until the
/// draining thread has called its OnDestorySelf() (after firing it, or instead of firing
/// it when the queue discards it); a refused event is destroyed before PostEvent
/// returns. The caller never deletes an event it handed over.
///
/// Any thread may PostEvent or SendEvent; exactly one thread (the owner recorded by
/// Reset2CurrentThreadInfo) pops and processes. Events are fired outside the queue lock,
/// so an event may post to its own queue. The queue has no length limit.
///
/// - CCmEventQueueBase(bool): the queue. Posting is lock-free whatever the flag: each
///   post links the event into an intrusive list with one atomic exchange, and the
///   owner unlinks events from the other end without any.
/// - CCmEventQueueUsingMutex: the base, kept as its own type for callers that name it.
/// - CCmEventQueueUsingConditionVariable: adds PopOrWaitPendingEvents, a pop that sleeps
///   until an event arrives or a time-out passes. Posting wakes the owner only when it
///   is (or is about to be) asleep.
/// - CCmEventSynchronous: the wrapper behind SendEvent from a foreign thread.
/// - CCmInvokeEvent<F>: runs a stored callable; CCmEventStopT<T>: stops a task thread.

#include <atomic>
#include <cstdint>
#include <list>
#include <new>
#include <utility>
#include <vector>

#include "cmutil/base/CmError.h"
#include "cmutil/base/CmExport.h"
#include "cmutil/base/CmMutex.h"
#include "cmutil/base/CmThreadMisc.h"
#include "cmutil/base/CmTimeValue.h"
#include "cmutil/thread/CmConditionVariable.h"

/// The unit of work.
class CM_EXPORT ICmEvent {
 public:
  explicit ICmEvent(unsigned int aType = 0)
      : m_dwEventType(aType), m_TidOrigin(pthread_self()), m_pNextEvent(nullptr) {}

  /// Does the work, on the queue's thread.
  virtual CmResult OnEventFire() = 0;
  /// Called exactly once after firing, or instead of firing when discarded. Deletes the
  /// event by default.
  virtual void OnDestorySelf();
  virtual ~ICmEvent();

  unsigned int GetEventType() const { return m_dwEventType; }

  /// Events are allocated from a recycling pool (cheap when one thread allocates and
  /// another frees); create them with new and let OnDestorySelf delete them as usual.
  /// Pool blocks are aligned for any type of alignment up to 16 bytes. Out of memory
  /// reports an assertion and the new-expression yields null (no exception).
  static void* operator new(size_t aSize) noexcept;
  static void operator delete(void* aBlock, size_t aSize);
  static void* operator new(size_t aSize, const std::nothrow_t&) noexcept;
  static void operator delete(void* aBlock, const std::nothrow_t&) noexcept;
  /// Event classes aligned above 16 bytes (alignas(32) and more) bypass the pool and
  /// take their memory from the global aligned allocation functions.
  static void* operator new(size_t aSize, std::align_val_t aAlign) noexcept;
  static void operator delete(void* aBlock, size_t aSize, std::align_val_t aAlign) noexcept;
  static void* operator new(size_t aSize, std::align_val_t aAlign, const std::nothrow_t&) noexcept;
  static void operator delete(void* aBlock, std::align_val_t aAlign, const std::nothrow_t&) noexcept;
  /// Placement forms stay available for events built in caller-owned storage.
  static void* operator new(size_t, void* aWhere) noexcept { return aWhere; }
  static void operator delete(void*, void*) noexcept {}
  /// The thread that created the event.
  CM_THREAD_ID GetOriginThreadId() const { return m_TidOrigin; }

 protected:
  unsigned int m_dwEventType;
  CM_THREAD_ID m_TidOrigin;

 private:
  friend class CCmEventQueueBase;
  /// Link used while the event waits in a queue (an event is in at most one queue);
  /// accessed with atomic builtins by the queue.
  ICmEvent* m_pNextEvent;
};

/// The queue interface.
class CM_EXPORT ICmEventQueue {
 public:
  /// Accepted and ignored by the queues here: all events go to the tail. The library
  /// itself always posts with EPRIORITY_NORMAL (128).
  enum EPriority {
    EPRIORITY_HIGH = 64,
    EPRIORITY_NORMAL = 128,
    EPRIORITY_LOW = 192,
  };

  /// Hands aEvent over (see the ownership rules above). aSizeBefore, when given,
  /// receives the number of pending events before this one.
  virtual CmResult PostEvent(ICmEvent* aEvent, EPriority aPri = EPRIORITY_NORMAL,
                             unsigned int* aSizeBefore = nullptr) = 0;
  /// Runs aEvent on the queue's thread and returns its OnEventFire() result. On the
  /// queue's own thread it runs in place at once. From another thread it blocks for at
  /// most aTimeout (null: no limit); on time-out it returns CM_ERROR_TIMEOUT and the
  /// event still runs later (its result is lost).
  virtual CmResult SendEvent(ICmEvent* aEvent, CCmTimeValue* aTimeout = nullptr) = 0;
  /// Number of pending events, read without the lock.
  virtual unsigned int GetPendingEventsCount() = 0;
  virtual ~ICmEventQueue() {}
};

class CM_EXPORT CCmEventQueueBase : public ICmEventQueue {
 public:
  /// Plain function called after each ProcessEvents batch when set; a set hook makes
  /// ProcessEvents return CM_ERROR_ABORTED.
  typedef void (*LoopHook)();

  explicit CCmEventQueueBase(bool aWithMutex = false);
  /// Discards pending events (destroyed, not fired).
  ~CCmEventQueueBase() override;

  CmResult PostEvent(ICmEvent* aEvent, EPriority aPri = EPRIORITY_NORMAL, unsigned int* aSizeBefore = nullptr) override;
  CmResult SendEvent(ICmEvent* aEvent, CCmTimeValue* aTimeout = nullptr) override;
  unsigned int GetPendingEventsCount() override { return PendingCount(); }

  /// Owner thread only. Moves up to aMaxCount of the oldest events to the end of
  /// aEvents (all when the queue holds at most aMaxCount; none for 0). aRemain gets
  /// the number left. CM_ERROR_NOT_FOUND (and nothing else) on an empty queue.
  CmResult PopPendingEvents(std::list<ICmEvent*>& aEvents, unsigned int aMaxCount = 0xFFFFFFFFu,
                            unsigned int* aRemain = nullptr);
  /// Owner thread only. Fires and destroys each event in order.
  CmResult ProcessEvents(const std::list<ICmEvent*>& aEvents);
  /// Fires and destroys one event; events slower than s_tvReportInterval are reported.
  CmResult ProcessOneEvent(ICmEvent* aEvent);

  /// Records the calling thread as the owner (handle and name).
  void Reset2CurrentThreadInfo();
  /// Lets posting resume after Stop().
  void Start();
  /// Refuses every later post and send with CM_ERROR_NOT_INITIALIZED; pending events
  /// stay.
  void Stop();
  bool IsStopped() const { return m_bIsStopped.load(std::memory_order_acquire); }
  /// Destroys every pending event, oldest first, without firing it.
  void DestoryPendingEvents();

  CM_THREAD_ID GetThreadId() const { return m_Tid.load(std::memory_order_acquire); }
  void SetLoopHook(LoopHook aHook) { m_pLoopHook = aHook; }

  /// Owner thread only: takes back the (processed) nodes of aEvents for later pops, so
  /// that a loop does not allocate list nodes per event. Leaves aEvents empty.
  void RecycleEventList(std::list<ICmEvent*>& aEvents);

  /// Firing time above which an event is reported (0.5 s).
  static CCmTimeValue s_tvReportInterval;

 protected:
  /// Number of events posted and not taken out yet.
  unsigned int PendingCount() const {
    // Taken first: it never passes the posted count, which only grows.
    unsigned int dwTaken = m_dwTaken.load(std::memory_order_acquire);
    return m_dwPosted.load(std::memory_order_acquire) - dwTaken;
  }
  /// Owner thread only: unlinks the oldest event, or returns null when none is fully
  /// posted yet.
  ICmEvent* PopOne();
  /// Owner thread only: detaches up to aMaxCount of the oldest events as a chain linked
  /// through m_pNextEvent (null when none) and lowers the size.
  ICmEvent* TakeBatch(unsigned int aMaxCount, unsigned int* aRemain);
  /// Owner thread only: fires and destroys the chain from TakeBatch, oldest first, then
  /// runs the loop hook as ProcessEvents does.
  CmResult ProcessChain(ICmEvent* aFirst);
  /// Owner thread only: takes up to aMaxCount events and processes them without building
  /// a list; CM_ERROR_NOT_FOUND when none is pending.
  CmResult PopAndProcessEvents(unsigned int aMaxCount);
  /// Fires and destroys one event. aStamp holds the time stamp taken before it and
  /// receives the one taken after it, so that a batch takes one stamp per event. With
  /// aCycles the stamps are processor cycle counts (see the .cpp), otherwise clock
  /// microseconds.
  void ProcessOneEventTimed(ICmEvent* aEvent, int64_t& aStamp, bool aCycles);
  void AppendEvent(std::list<ICmEvent*>& aEvents, ICmEvent* aEvent);

  /// List nodes kept for reuse by PopPendingEvents (owner thread only).
  std::list<ICmEvent*> m_listSpare;

  // Members are grouped by who writes them, one cache line apart, so that posting
  // threads and the owner do not slow each other down through shared lines.

  /// The pending events form a singly linked list through ICmEvent::m_pNextEvent, in
  /// posting order. A post swaps itself in as the tail (one atomic exchange) and then
  /// links the previous tail to itself; the owner unlinks from the head. Between those
  /// two steps of a post the list ends early for a moment, and the owner simply looks
  /// again. m_Stub keeps the list non-empty so that neither side needs a lock.
  alignas(64) std::atomic<ICmEvent*> m_pTail;
  /// Events ever posted; raised by a post before it links its event, so that the owner
  /// may briefly count an event that it cannot see yet, never the other way round.
  std::atomic<unsigned int> m_dwPosted;
  /// Wall clock (microseconds) of the last queue-length check.
  std::atomic<int64_t> m_llLastReportUs;

  /// Read by every post and every pass of the owner's loop, written almost never: a line
  /// of their own keeps those reads off the line that posts write.
  alignas(64) std::atomic<bool> m_bIsStopped;
  std::atomic<CM_THREAD_ID> m_Tid;

  /// Oldest node of the list (the stub or an event); owner thread only.
  alignas(64) ICmEvent* m_pHead;
  /// Events ever taken out of the list; written by the owner only. The pending count is
  /// m_dwPosted - m_dwTaken: posters and the owner each write a line of their own.
  std::atomic<unsigned int> m_dwTaken;
  /// The posted count as the owner last read it (owner thread only).
  unsigned int m_dwPostedSeen;
  LoopHook m_pLoopHook;
  char m_szThreadName[512];

 private:
  /// Placeholder node of the list; never fired.
  class CStubEvent : public ICmEvent {
   public:
    CmResult OnEventFire() override { return CM_OK; }
  };
  /// Links aNode at the tail (any thread).
  void Enqueue(ICmEvent* aNode);
  CStubEvent m_Stub;
};

class CM_EXPORT CCmEventQueueUsingMutex : public CCmEventQueueBase {
 public:
  CCmEventQueueUsingMutex() : CCmEventQueueBase(true) {}
};

class CM_EXPORT CCmEventQueueUsingConditionVariable : public CCmEventQueueBase {
 public:
  CCmEventQueueUsingConditionVariable();
  ~CCmEventQueueUsingConditionVariable() override;

  CmResult PostEvent(ICmEvent* aEvent, EPriority aPri = EPRIORITY_NORMAL, unsigned int* aSizeBefore = nullptr) override;

  /// Owner thread only. Pops up to aMaxCount events, first waiting at most aTimeout
  /// (null: no limit) when none is pending. An expired wait gives CM_ERROR_NOT_FOUND.
  CmResult PopOrWaitPendingEvents(std::list<ICmEvent*>& aEvents, CCmTimeValue* aTimeout, unsigned int aMaxCount);
  /// Owner thread only. Like PopOrWaitPendingEvents followed by ProcessEvents, without
  /// building a list: waits as above, then fires and destroys up to aMaxCount events.
  /// CM_ERROR_NOT_FOUND when none came.
  CmResult WaitAndProcessEvents(CCmTimeValue* aTimeout, unsigned int aMaxCount);

 private:
  /// Sleeps until an event is posted or aTimeout passes, unless one is pending already.
  void WaitForEvent(CCmTimeValue* aTimeout);
  /// Called after finding nothing to pop: lets a poster that has counted its event but
  /// not linked it yet run.
  void YieldToLinkingPoster();

  CCmMutexThread m_MutexForCondition;
  CCmConditionVariableThread m_Condition;
  /// Set by the owner while it is about to wait or waiting.
  alignas(64) std::atomic<bool> m_bWaiting;
};

/// Wrapper that carries an event sent from a foreign thread and its result back.
///
/// Two parties share it. The queue's pass: the queue fires the wrapper and calls its
/// first OnDestorySelf (or discards it, or refuses it); only this pass touches the
/// wrapped event, always on the queue's side. The sender's release: once the sender
/// stops waiting (result or time-out) it gives the wrapper up. Whichever party comes
/// last deletes the wrapper: when the queue's pass is already over, the sender posts the
/// wrapper again so that the queue's thread deletes it on a second trip; otherwise the
/// queue's pass deletes it as it ends. So a send that timed out still lets the event run
/// later on the queue's thread, exactly once, even when the queue is stopped meanwhile.
class CM_EXPORT CCmEventSynchronous : public ICmEvent {
 public:
  CCmEventSynchronous(ICmEvent* aEventPost, CCmEventQueueBase* aEventQueue);
  ~CCmEventSynchronous() override;

  CmResult OnEventFire() override;
  /// First call (the queue's pass): destroys the wrapped event; the wrapper is deleted
  /// by whichever of this pass and the sender's release comes last.
  void OnDestorySelf() override;

  /// Sender side: waits for the result, then gives the wrapper up (see above). Do not
  /// touch the object after this returns.
  CmResult WaitResultAndDeleteThis(CCmTimeValue* aTimeout);

 private:
  /// Bits of m_nState.
  enum : int {
    kQueuePassDone = 1,  ///< the queue's first OnDestorySelf has run
    kSenderReleased = 2  ///< the sender gave the wrapper up before that
  };
  /// The wrapped event; taken (exchanged with null) by the queue's pass.
  std::atomic<ICmEvent*> m_pEventPost;
  /// Written by the queue's thread before the signal, read by the sender after it.
  std::atomic<CmResult> m_Result;
  CCmEventQueueBase* m_pEventQueue;
  std::atomic<int> m_nState;
  /// Set once fired (m_Result written).
  std::atomic<bool> m_bFired;
  /// The sender's wake-up: an auto-reset signal for one waiter, kept in one word so
  /// that a round trip costs one futex wake at most. Values: 0 clear, 1 signalled,
  /// 2 the sender sleeps on it.
  std::atomic<int> m_nSignal;

  /// Sets the signal and wakes the sender if it sleeps.
  void SignalSender();
  /// Waits until signalled or aTimeout (null: no limit) passes: CM_OK or
  /// CM_ERROR_TIMEOUT.
  CmResult WaitSignal(CCmTimeValue* aTimeout);
};

/// Runs a stored callable on the queue's thread; returns CM_OK.
template <class F>
class CCmInvokeEvent : public ICmEvent {
 public:
  explicit CCmInvokeEvent(F aFunc) : ICmEvent(0), m_Func(std::move(aFunc)) {}
  CmResult OnEventFire() override {
    m_Func();
    return CM_OK;
  }

 private:
  F m_Func;
};

/// Makes a heap CCmInvokeEvent from any callable: queue->PostEvent(CmNewInvokeEvent([=]{...})).
template <class F>
CCmInvokeEvent<typename std::decay<F>::type>* CmNewInvokeEvent(F&& aFunc) {
  return new CCmInvokeEvent<typename std::decay<F>::type>(std::forward<F>(aFunc));
}

/// Sets the stop flag of task thread T when fired.
template <class T>
class CCmEventStopT : public ICmEvent {
 public:
  explicit CCmEventStopT(T* aThread) : ICmEvent(0), m_pOwnerThread(aThread) {}

  CmResult OnEventFire() override {
    if (m_pOwnerThread) m_pOwnerThread->m_Stop.SetStopFlag();
    return CM_OK;
  }

  /// Posts a stop event (priority 128) to aThread's event queue.
  static CmResult PostStopEvent(T* aThread) {
    CCmEventStopT<T>* pEvent = new CCmEventStopT<T>(aThread);
    ICmEventQueue* pQueue = aThread ? aThread->GetEventQueue() : nullptr;
    if (!pQueue) {
      pEvent->OnDestorySelf();
      return CM_ERROR_NULL_POINTER;
    }
    return pQueue->PostEvent(pEvent, ICmEventQueue::EPRIORITY_NORMAL);
  }

 private:
  T* m_pOwnerThread;
};
