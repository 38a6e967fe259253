// POSIX mutexes with the liveness marker.

#include "cmutil/thread/CmMutex.h"

#include "cmutil/trace/CmTraceMacros.h"

CCmMutexThreadBase::~CCmMutexThreadBase() {
  m_nMarker = 0;
  int nErr = pthread_mutex_destroy(&m_Lock);
  if (nErr != 0) {
    CM_ERROR_TRACE_THIS("CCmMutexThreadBase::~CCmMutexThreadBase, pthread_mutex_destroy() failed! err=" << nErr);
  }
}

CmResult CCmMutexThreadBase::Lock() {
  if (m_nMarker != kAliveMarker) {
    CM_ERROR_TRACE_THIS("CCmMutexThreadBase::Lock() object instances already released");
    return CM_ERROR_FAILURE;
  }
  return pthread_mutex_lock(&m_Lock) == 0 ? CM_OK : CM_ERROR_FAILURE;
}

CmResult CCmMutexThreadBase::UnLock() {
  if (m_nMarker != kAliveMarker) {
    CM_ERROR_TRACE_THIS("CCmMutexThreadBase::UnLock() object instances already released");
    return CM_ERROR_FAILURE;
  }
  int nErr = pthread_mutex_unlock(&m_Lock);
  if (nErr != 0) {
    CM_ERROR_TRACE_THIS("CCmMutexThreadBase::UnLock, pthread_mutex_unlock() failed! err=" << nErr);
    return CM_ERROR_FAILURE;
  }
  return CM_OK;
}

CmResult CCmMutexThreadBase::TryLock() {
  if (m_nMarker != kAliveMarker) {
    CM_ERROR_TRACE_THIS("CCmMutexThreadBase::TryLock() object instances already released");
    return CM_ERROR_FAILURE;
  }
  return pthread_mutex_trylock(&m_Lock) == 0 ? CM_OK : CM_ERROR_FAILURE;
}

CCmMutexThreadRecursive::CCmMutexThreadRecursive() {
  pthread_mutexattr_t attr;
  pthread_mutexattr_init(&attr);
  pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
  int nErr = pthread_mutex_init(&m_Lock, &attr);
  pthread_mutexattr_destroy(&attr);
  if (nErr != 0) {
    CM_ERROR_TRACE_THIS("CCmMutexThreadRecursive::CCmMutexThreadRecursive, pthread_mutex_init() failed! err=" << nErr);
  }
}

CCmMutexThread::CCmMutexThread() {
  pthread_mutexattr_t attr;
  pthread_mutexattr_init(&attr);
  // Kind 3 is the adaptive mutex on glibc; if refused, the default kind is fine.
  (void)pthread_mutexattr_settype(&attr, 3);
  int nErr = pthread_mutex_init(&m_Lock, &attr);
  pthread_mutexattr_destroy(&attr);
  if (nErr != 0) {
    CM_ERROR_TRACE_THIS("CCmMutexThread::CCmMutexThread, pthread_mutex_init() failed! err=" << nErr);
  }
}
