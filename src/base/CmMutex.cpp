// POSIX mutexes with the liveness marker.

#include "cmutil/base/CmMutex.h"

#include <cinttypes>
#include <cstdio>

#include "cmutil/base/CmAssert.h"

// Lock calls test the liveness marker of objects that may already be destroyed; the
// undefined-behaviour sanitizer's type check would report exactly that test.
#define CM_MUTEX_LIVENESS_CHECK __attribute__((no_sanitize("vptr")))

namespace {
// "<what>[ err=<code>] [this=0x<address>]" at error level, as every line of the library.
void TraceMutexError(const void* self, const char* what, int err = 0, bool withErr = false) {
  char text[256];
  char code[32] = "";
  if (withErr) std::snprintf(code, sizeof code, " err=%d", err);
  std::snprintf(text, sizeof text, "%s%s [this=0x%" PRIxPTR "]", what, code, reinterpret_cast<uintptr_t>(self));
  cm_low_layer_trace(0, text);
}
}  // namespace

CCmMutexThreadBase::~CCmMutexThreadBase() {
  m_nMarker = 0;
  int nErr = pthread_mutex_destroy(&m_Lock);
  if (nErr != 0) {
    TraceMutexError(this, "CCmMutexThreadBase::~CCmMutexThreadBase, pthread_mutex_destroy() failed!", nErr, true);
  }
}

// The marker is read even on a destroyed object: that is the point of the check.
CM_MUTEX_LIVENESS_CHECK CmResult CCmMutexThreadBase::Lock() {
  if (m_nMarker != kAliveMarker) {
    TraceMutexError(this, "CCmMutexThreadBase::Lock() object instances already released");
    return CM_ERROR_FAILURE;
  }
  return pthread_mutex_lock(&m_Lock) == 0 ? CM_OK : CM_ERROR_FAILURE;
}

// The marker is read even on a destroyed object: that is the point of the check.
CM_MUTEX_LIVENESS_CHECK CmResult CCmMutexThreadBase::UnLock() {
  if (m_nMarker != kAliveMarker) {
    TraceMutexError(this, "CCmMutexThreadBase::UnLock() object instances already released");
    return CM_ERROR_FAILURE;
  }
  int nErr = pthread_mutex_unlock(&m_Lock);
  if (nErr != 0) {
    TraceMutexError(this, "CCmMutexThreadBase::UnLock, pthread_mutex_unlock() failed!", nErr, true);
    return CM_ERROR_FAILURE;
  }
  return CM_OK;
}

// The marker is read even on a destroyed object: that is the point of the check.
CM_MUTEX_LIVENESS_CHECK CmResult CCmMutexThreadBase::TryLock() {
  if (m_nMarker != kAliveMarker) {
    TraceMutexError(this, "CCmMutexThreadBase::TryLock() object instances already released");
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
    TraceMutexError(this, "CCmMutexThreadRecursive::CCmMutexThreadRecursive, pthread_mutex_init() failed!", nErr, true);
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
    TraceMutexError(this, "CCmMutexThread::CCmMutexThread, pthread_mutex_init() failed!", nErr, true);
  }
}
