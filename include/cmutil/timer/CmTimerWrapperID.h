#pragma once
/// Timer handles.
///
/// `CCmTimerWrapperID` is the timer object application code holds, usually as a
/// member of the class that wants the callbacks. It schedules on the calling
/// thread's timer queue (`Schedule`) or on another task thread's (`ScheduleInThread`,
/// carried there by an event), can be cancelled from any thread, and may be
/// destroyed while its timer is pending, even from inside its own `OnTimer`.
///
/// Binding: a handle stays bound to the first queue it was scheduled on until it is
/// cancelled; scheduling it on another thread meanwhile fails.
///
/// Cancel from the owning thread removes the timer at once. Cancel from a foreign
/// thread returns CM_ERROR_NULL_POINTER (0x46004006): it marks the handle cancelled,
/// waits up to 2150 ms (30 ms steps, then 100 ms) for a callback that is running
/// right now, and posts the removal to the owning thread. After it returns the sink
/// is not called again, except by a callback that had already started.
///
///     class Owner : public CCmTimerWrapperIDSink {
///         CCmTimerWrapperID m_timer;
///         void Start() { m_timer.Schedule(this, CCmTimeValue(0, 20000), 0); } // every 20 ms
///         void OnTimer(CCmTimerWrapperID*) override { ... }                   // on that thread
///     };

#include "cmutil/base/CmError.h"
#include "cmutil/base/CmExport.h"
#include "cmutil/base/CmTimeValue.h"

class ACmThread;
class CCmTimerWrapperID;
class CCmTimerWrapperRef;

/// Receives the callbacks of a CCmTimerWrapperID; runs on the queue's thread.
class CM_EXPORT CCmTimerWrapperIDSink {
 public:
  virtual void OnTimer(CCmTimerWrapperID* aId) = 0;
  virtual ~CCmTimerWrapperIDSink();
};

class CM_EXPORT CCmTimerWrapperID {
 public:
  CCmTimerWrapperID();
  /// Cancels (see Cancel) and drops its reference object. If the handle was bound
  /// to another thread this waits for a running callback as a foreign Cancel does.
  virtual ~CCmTimerWrapperID();

  /// Schedules on the calling thread's timer queue. aCount 0 repeats without end; a
  /// non-positive interval is allowed only with aCount 1. Rescheduling a pending
  /// timer returns CM_ERROR_FOUND (0x46004136) with the new values in force.
  /// Errors: CM_ERROR_INVALID_ARG (null sink), CM_ERROR_NULL_POINTER (not a library
  /// thread), CM_ERROR_THREAD_CREATE (thread without timer queue), CM_ERROR_FAILURE
  /// (still bound to another thread's queue).
  CmResult Schedule(CCmTimerWrapperIDSink* aSink, const CCmTimeValue& aInterval, unsigned int aCount = 0);

  /// Schedules on pThread's timer queue. From another thread this posts an event and
  /// returns the post's result; the timer is scheduled when pThread runs the event.
  CmResult ScheduleInThread(ACmThread* pThread, CCmTimerWrapperIDSink* aSink, const CCmTimeValue& aInterval,
                            unsigned int aCount = 0);
  /// Looks the thread up by type (GetThread) and continues as above.
  CmResult ScheduleInThread(int aThreadType, CCmTimerWrapperIDSink* aSink, const CCmTimeValue& aInterval,
                            unsigned int aCount = 0);

  /// Stops the timer; any thread. The flag is ignored. CM_OK / CM_ERROR_NOT_FOUND on
  /// the owning thread; CM_ERROR_NULL_POINTER from a foreign thread (the removal
  /// completes there later); CM_ERROR_NOT_FOUND for a handle never scheduled.
  CmResult Cancel(bool aFlag = false);

  /// Called by the reference object on the queue's thread: aArg is the sink.
  virtual void OnTimeout(const CCmTimeValue& aCurTime, void* aArg);

  CCmTimerWrapperID(const CCmTimerWrapperID&) = delete;
  CCmTimerWrapperID& operator=(const CCmTimerWrapperID&) = delete;

 private:
  struct Impl;
  Impl* m_impl;
};
