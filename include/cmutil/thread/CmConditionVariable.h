#pragma once
/// Condition variable bound to a CCmMutexThread, and CCmEventThread, a Windows-style
/// event (manual or auto reset) built from a mutex and a condition variable.
///
/// CCmEventThread::Wait makes a single condition wait (no loop): a spurious wake-up
/// returns CM_OK. An auto-reset event signalled with nobody waiting lets exactly one
/// later Wait through; a manual-reset event, once signalled, stays signalled (Reset is
/// not supported and returns CM_ERROR_FAILURE). Both classes are safe between threads.

#include <pthread.h>

#include "cmutil/base/CmError.h"
#include "cmutil/base/CmExport.h"
#include "cmutil/base/CmMutex.h"
#include "cmutil/base/CmTimeValue.h"

class CM_EXPORT CCmConditionVariableThread {
 public:
  explicit CCmConditionVariableThread(CCmMutexThread& aMutex);
  ~CCmConditionVariableThread();

  CCmConditionVariableThread(const CCmConditionVariableThread&) = delete;
  CCmConditionVariableThread& operator=(const CCmConditionVariableThread&) = delete;

  /// Wakes one waiter.
  CmResult Signal();
  /// Wakes all waiters.
  CmResult Broadcast();
  /// The caller holds the bound mutex. Waits at most the relative aTimeout (null: no
  /// limit). CM_OK when woken (or interrupted), CM_ERROR_TIMEOUT on time-out.
  CmResult Wait(CCmTimeValue* aTimeout = nullptr);

  CCmMutexThread& GetUnderlyingMutex() { return m_MutexExternal; }

 private:
  CCmMutexThread& m_MutexExternal;
  pthread_cond_t m_Condition;
};

class CM_EXPORT CCmEventThread : public CCmMutexThread {
 public:
  CCmEventThread(bool aManualReset = false, bool aInitialState = false, const char* aName = nullptr);
  ~CCmEventThread() override;

  /// Returns at once (CM_OK) when signalled, consuming the signal of an auto-reset
  /// event; otherwise one wait of at most aTimeout (null: no limit).
  CmResult Wait(CCmTimeValue* aTimeout = nullptr) CM_NO_THREAD_SAFETY_ANALYSIS;
  /// Manual reset: signals and wakes all. Auto reset: wakes one waiter, or stays
  /// signalled for the next Wait when nobody waits.
  CmResult Signal() CM_NO_THREAD_SAFETY_ANALYSIS;
  /// Not supported: always CM_ERROR_FAILURE, changes nothing.
  CmResult Reset();

 private:
  CCmConditionVariableThread m_Condition;
  int m_bManualReset;
  int m_bSignaled;
  unsigned int m_nWaitingThreads;
};
