// Condition variable and event.

#include "cmutil/thread/CmConditionVariable.h"

#include <errno.h>
#include <time.h>

#include "cmutil/base/CmAssert.h"
#include "cmutil/trace/CmTraceMacros.h"
#include "platform/CmPlatform.h"

// Success test whose text the assertion reports.
#define IS_KEL_OK(rv) ((rv) == CM_OK)

CCmConditionVariableThread::CCmConditionVariableThread(CCmMutexThread& aMutex) : m_MutexExternal(aMutex) {
  int nErr = pthread_cond_init(&m_Condition, nullptr);
  if (nErr != 0) {
    CM_WARNING_TRACE_THIS(
        "CCmConditionVariableThread::CCmConditionVariableThread, pthread_cond_init() failed! err=" << nErr);
  }
}

CCmConditionVariableThread::~CCmConditionVariableThread() {
  int nErr = pthread_cond_destroy(&m_Condition);
  if (nErr != 0) {
    CM_WARNING_TRACE_THIS(
        "CCmConditionVariableThread::~CCmConditionVariableThread, pthread_cond_destroy() failed! err=" << nErr);
  }
}

CmResult CCmConditionVariableThread::Signal() {
  int nErr = pthread_cond_signal(&m_Condition);
  if (nErr != 0) {
    CM_WARNING_TRACE_THIS("CCmConditionVariableThread::Signal, pthread_cond_signal() failed! err=" << nErr);
    return CM_ERROR_FAILURE;
  }
  return CM_OK;
}

CmResult CCmConditionVariableThread::Broadcast() {
  int nErr = pthread_cond_broadcast(&m_Condition);
  if (nErr != 0) {
    CM_WARNING_TRACE_THIS("CCmConditionVariableThread::Signal, pthread_cond_broadcast() failed! err=" << nErr);
    return CM_ERROR_FAILURE;
  }
  return CM_OK;
}

CmResult CCmConditionVariableThread::Wait(CCmTimeValue* aTimeout) {
  if (!aTimeout) {
    int nErr = pthread_cond_wait(&m_Condition, &m_MutexExternal.GetMutexType());
    if (nErr != 0 && nErr != EINTR) {
      CM_WARNING_TRACE_THIS("CCmConditionVariableThread::Wait, pthread_cond_wait() failed! err=" << nErr);
      return CM_ERROR_FAILURE;
    }
    return CM_OK;
  }

  // Relative time-out turned into an absolute point of the realtime clock, which is
  // what pthread_cond_timedwait measures against.
  const long long nowUs = cm_platform_realtime_us();
  struct timespec abs = {static_cast<time_t>(nowUs / 1000000), static_cast<long>(nowUs % 1000000) * 1000};
  long sec = aTimeout->GetSec();
  long usec = aTimeout->GetUsec();
  if (sec < 0 || usec < 0) {
    sec = 0;
    usec = 0;
  }
  const long kMaxWaitSec = 100L * 365 * 24 * 3600;  // far enough to mean "no limit"
  if (sec > kMaxWaitSec) sec = kMaxWaitSec;
  abs.tv_sec += sec;
  abs.tv_nsec += usec * 1000;
  if (abs.tv_nsec >= 1000000000L) {
    abs.tv_sec += abs.tv_nsec / 1000000000L;
    abs.tv_nsec %= 1000000000L;
  }
  int nErr = pthread_cond_timedwait(&m_Condition, &m_MutexExternal.GetMutexType(), &abs);
  if (nErr == 0 || nErr == EINTR) return CM_OK;
  if (nErr == ETIMEDOUT) return CM_ERROR_TIMEOUT;
  CM_WARNING_TRACE_THIS("CCmConditionVariableThread::Wait, pthread_cond_timedwait() failed! err=" << nErr);
  return CM_ERROR_FAILURE;
}

CCmEventThread::CCmEventThread(bool aManualReset, bool aInitialState, const char*)
    : m_Condition(*this), m_bManualReset(aManualReset), m_bSignaled(aInitialState), m_nWaitingThreads(0) {}

CCmEventThread::~CCmEventThread() {}

CmResult CCmEventThread::Wait(CCmTimeValue* aTimeout) {
  CmResult rv = Lock();
  CM_ASSERTE_RETURN(IS_KEL_OK(rv), rv);

  if (m_bSignaled) {
    if (!m_bManualReset) m_bSignaled = 0;
    rv = CM_OK;
  } else {
    ++m_nWaitingThreads;
    rv = m_Condition.Wait(aTimeout);
    --m_nWaitingThreads;
  }
  UnLock();
  return rv;
}

CmResult CCmEventThread::Signal() {
  CmResult rv = Lock();
  CM_ASSERTE_RETURN(IS_KEL_OK(rv), rv);

  if (m_bManualReset) {
    m_bSignaled = 1;
    rv = m_Condition.Broadcast();
  } else if (m_nWaitingThreads == 0) {
    m_bSignaled = 1;
    rv = CM_OK;
  } else {
    // Signalled while the mutex is held: a waiter may time out or wake spuriously on
    // its own and then destroy this object, so nothing of it may be touched after the
    // mutex is released.
    rv = m_Condition.Signal();
  }
  UnLock();
  return rv;
}

CmResult CCmEventThread::Reset() { return CM_ERROR_FAILURE; }
