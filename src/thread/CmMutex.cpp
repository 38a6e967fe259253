// POSIX mutexes with the liveness marker.

#include "cmutil/thread/CmMutex.h"

#include "cmutil/trace/CmTraceMacros.h"

// Lock calls test the liveness marker of objects that may already be destroyed; the
// undefined-behaviour sanitizer's type check would report exactly that test.
#define CM_MUTEX_LIVENESS_CHECK __attribute__((no_sanitize("vptr")))

CCmMutexThreadBase::~CCmMutexThreadBase() {
  m_nMarker = 0;
  int nErr = pthread_mutex_destroy(&m_Lock);
  if (nErr != 0) {
    CM_ERROR_TRACE_THIS("CCmMutexThreadBase::~CCmMutexThreadBase, pthread_mutex_destroy() failed! err=" << nErr);
  }
}

// The marker is read even on a destroyed object: that is the point of the check.
CM_MUTEX_LIVENESS_CHECK CmResult CCmMutexThreadBase::Lock() {
  if (m_nMarker != kAliveMarker) {
    CM_ERROR_TRACE_THIS("CCmMutexThreadBase::Lock() object instances already released");
    return CM_ERROR_FAILURE;
  }
  return pthread_mutex_lock(&m_Lock) == 0 ? CM_OK : CM_ERROR_FAILURE;
}

// The marker is read even on a destroyed object: that is the point of the check.
CM_MUTEX_LIVENESS_CHECK CmResult CCmMutexThreadBase::UnLock() {
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

// The marker is read even on a destroyed object: that is the point of the check.
CM_MUTEX_LIVENESS_CHECK CmResult CCmMutexThreadBase::TryLock() {
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
