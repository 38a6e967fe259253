// Counting semaphore.

#include "cmutil/thread/CmSemaphore.h"

#include "cmutil/trace/CmTraceMacros.h"
#include "platform/CmPlatform.h"

CCmSemaphore::CCmSemaphore(long aInitialCount, const char*, long)
    : m_pSemaphore(cm_platform_sem_create(aInitialCount > 0 ? static_cast<unsigned int>(aInitialCount) : 0)) {}

CCmSemaphore::~CCmSemaphore() {
  cm_platform_sem_destroy(m_pSemaphore);
  m_pSemaphore = nullptr;
}

CmResult CCmSemaphore::Lock() {
  if (!m_pSemaphore) {
    CM_WARNING_TRACE_THIS("CCmSemaphore::Lock, dispatch semaphore is null!");
    return CM_ERROR_FAILURE;
  }
  return cm_platform_sem_wait(m_pSemaphore) == 0 ? CM_OK : CM_ERROR_FAILURE;
}

CmResult CCmSemaphore::UnLock() { return PostN(1); }

CmResult CCmSemaphore::PostN(long aCount) {
  if (!m_pSemaphore) {
    CM_WARNING_TRACE_THIS("CCmSemaphore::UnLock, dispatch semaphore is null!");
    return CM_ERROR_FAILURE;
  }
  for (long i = 0; i < aCount; ++i) cm_platform_sem_post(m_pSemaphore);
  return CM_OK;
}
