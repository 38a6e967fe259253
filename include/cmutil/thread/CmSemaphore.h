#pragma once
/// CCmSemaphore: a counting semaphore (POSIX unnamed semaphore underneath).
/// Lock() waits for a count and takes it; UnLock()/PostN() add counts. Safe between
/// threads. The name and maximum given to the constructor have no effect.

#include "cmutil/base/CmError.h"
#include "cmutil/base/CmExport.h"

class CM_EXPORT CCmSemaphore {
 public:
  CCmSemaphore(long aInitialCount = 0, const char* aName = nullptr, long aMaximumCount = 0x7fffffff);
  ~CCmSemaphore();

  CCmSemaphore(const CCmSemaphore&) = delete;
  CCmSemaphore& operator=(const CCmSemaphore&) = delete;

  /// Waits without limit for a count. CM_ERROR_FAILURE (traced) without a semaphore.
  CmResult Lock();
  /// Same as PostN(1).
  CmResult UnLock();
  /// Adds n counts; nothing for n <= 0. CM_ERROR_FAILURE (traced) without a semaphore.
  CmResult PostN(long aCount);

 private:
  void* m_pSemaphore;
};
