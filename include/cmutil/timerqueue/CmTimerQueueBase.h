#pragma once
/// Timer queues: the callback and queue interfaces and the shared scheduling algorithm.
///
/// A timer queue belongs to one thread (normally a CCmThreadTask, which creates it at
/// start and destroys it at exit). All ScheduleTimer, CancelTimer and CheckExpire calls
/// are made on that thread; the queue takes no lock. The one exception is CancelTimer
/// from another thread while the handler's OnTimeout is running: it then polls every
/// 10 ms until the callback has returned (a bounded but real wait for the caller).
///
/// A queue holds at most one timer per handler; it keeps a raw pointer and never owns
/// handlers, so a handler must outlive its timer (cancel it before deleting it).
/// Concrete storage comes from the variants (ordered list, min-heap, wheel), which
/// implement the *_l primitives; CreateTimerQueue picks one by CmQueueType.

#include <atomic>
#include <cstdint>

#include "cmutil/base/CmError.h"
#include "cmutil/base/CmExport.h"
#include "cmutil/base/CmThreadMisc.h"
#include "cmutil/base/CmTimeValue.h"

/// Timer callback.
class CM_EXPORT ICmTimerHandler {
 public:
  ICmTimerHandler() : m_dwWheelSlot(0xFFFFFFFFu) {}
  /// Runs on the queue's thread. aCurTime is the wall-clock time at which the firing
  /// pass began; aArg is the argument given when scheduling. May schedule or cancel
  /// timers (its own included) re-entrantly.
  virtual void OnTimeout(const CCmTimeValue& aCurTime, void* aArg) = 0;
  virtual ~ICmTimerHandler() {}

  /// Slot index used only by the wheel queue; 4294967295 when not stored in one.
  uint32_t m_dwWheelSlot;
};

/// Change notice from a timer queue (topic "TimerQueue" when a timer lands in an empty
/// queue), so that the owning thread can recompute its sleep.
class CM_EXPORT ICmObserver {
 public:
  virtual void OnObserve(const char* aTopic, void* aData) = 0;
  virtual ~ICmObserver() {}
};

/// The abstract timer queue.
class CM_EXPORT ICmTimerQueue {
 public:
  /// Schedules aEh to fire after aInterval, aCount times (0: without end), replacing
  /// any timer of the same handler (then CM_ERROR_FOUND, with the new timer in force).
  virtual CmResult ScheduleTimer(ICmTimerHandler* aEh, void* aArg, const CCmTimeValue& aInterval,
                                 unsigned int aCount) = 0;
  /// Removes aEh's timer; CM_ERROR_NOT_FOUND if it has none.
  virtual CmResult CancelTimer(ICmTimerHandler* aEh) = 0;
  virtual ~ICmTimerQueue() {}
};

/// 0: the process default; 1: ordered list; 2: min-heap; 3: wheel.
typedef unsigned int CmQueueType;

/// The process default queue type used for CmQueueType 0 (initially 1).
CM_EXPORT extern std::atomic<unsigned int> m_defaultQueueType;

/// Sets the default queue type; 0 is ignored. No validation: a value above 3 makes later
/// default creations yield null.
extern "C" CM_EXPORT void cm_set_default_timer_type(unsigned int type);

/// Scheduling, cancelling and firing shared by the ordered variants.
class CM_EXPORT CCmTimerQueueBase : public ICmTimerQueue {
 public:
  /// One scheduled timer.
  struct CNode {
    CNode() : m_pEh(nullptr), m_pToken(nullptr), m_dwCount(0) {}
    CNode(ICmTimerHandler* aEh, void* aToken) : m_pEh(aEh), m_pToken(aToken), m_dwCount(0) {}

    ICmTimerHandler* m_pEh;
    void* m_pToken;
    CCmTimeValue m_tvExpired;
    CCmTimeValue m_tvInterval;
    /// Firings still to come; 0xFFFFFFFF means without end.
    uint32_t m_dwCount;
  };

  /// Creates the variant for aType (0 resolves to the default) with the observer.
  /// Ownership goes to the caller. Unknown types yield null.
  static CCmTimerQueueBase* CreateTimerQueue(ICmObserver* aObserver, CmQueueType aType);

  explicit CCmTimerQueueBase(ICmObserver* aObserver);
  ~CCmTimerQueueBase() override;

  CmResult ScheduleTimer(ICmTimerHandler* aEh, void* aArg, const CCmTimeValue& aInterval, unsigned int aCount) override;
  CmResult CancelTimer(ICmTimerHandler* aEh) override;

  /// Fires every due timer (re-arming repeating ones, skipping missed periods) and
  /// returns how many fired. aRemainTime receives the time until the next expiry (zero
  /// when already due) or get_tvMax() when the queue is empty; aEarliest receives the
  /// earliest expiry itself. Either may be null. Owner thread only.
  virtual int CheckExpire(CCmTimeValue* aRemainTime = nullptr, CCmTimeValue* aEarliest = nullptr);

  /// The earliest expiry, or get_tvMax() when empty.
  CCmTimeValue GetEarliestTime() const;

 protected:
  /// Insert; a node of the same handler is removed first. 0 new, 1 replaced.
  virtual int PushNode_l(const CNode& aNode) = 0;
  /// Remove the handler's node. 0 removed, 1 none.
  virtual int EraseNode_l(ICmTimerHandler* aEh) = 0;
  /// Insert a node just popped (its handler is not present). 0.
  virtual int RePushNode_l(const CNode& aNode) = 0;
  /// Remove and return the earliest node. 0, or -1 (with an assertion) when empty.
  virtual int PopFirstNode_l(CNode& aNode) = 0;
  /// The earliest expiry. 0, or -1 when empty.
  virtual int GetEarliestTime_l(CCmTimeValue& aEarliest) const = 0;
  /// Called after the wall clock jumped backwards by more than an hour.
  virtual int ResetExpiredTime_l(const CCmTimeValue& aCurTime);

  CCmEnsureSingleThread m_Est;
  ICmObserver* m_pObserver;
  /// The handler whose OnTimeout runs right now (read by foreign cancels).
  std::atomic<ICmTimerHandler*> m_pCurrentHandler;
  /// The thread inside CheckExpire, or 0.
  std::atomic<CM_THREAD_ID> m_CheckingThread;
};
