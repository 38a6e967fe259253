#pragma once
/// The pool proper behind `IKELMemPool` (internal; exported for the tests).

#include <atomic>
#include <cstdint>
#include <vector>

#include "base/CmFutexLock.h"
#include "cmutil/base/CmError.h"
#include "cmutil/base/CmExport.h"
#include "cmutil/base/CmThreadAnnotations.h"
#include "cmutil/buffer/CmMemoryPool.h"

/// The pool's lock. Its critical sections are a pointer push or pop (a growth step of
/// 10 allocations at most): a futex mutex, one atomic operation to take and one to give
/// back when uncontended, waiters parked in the kernel (never spinning without end).
typedef CCmFutexLock KELMemPoolLock;
/// Scoped holder of a `KELMemPoolLock`.
typedef CCmFutexGuard KELMemPoolGuard;

class CM_EXPORT KELMemFixSizePoolInternal {
 public:
  /// Item size `aItemSize`, at most `aMaxItems` buffers, the first min(aMaxItems, 10)
  /// created at once.
  KELMemFixSizePoolInternal(unsigned int aItemSize, unsigned int aMaxItems);
  ~KELMemFixSizePoolInternal();

  KELMemFixSizePoolInternal(const KELMemFixSizePoolInternal&) = delete;
  KELMemFixSizePoolInternal& operator=(const KELMemFixSizePoolInternal&) = delete;

  CmResult CreateMemPool();
  /// Creates up to `dwItemNumber` more buffers (cut to the maximum). Call with the lock
  /// held (it is taken by `Alloc`; others take it through `GetLock`).
  CmResult AddMemPoolItem(unsigned int dwItemNumber) CM_REQUIRES(m_Lock);
  /// The pool's lock, for callers of `AddMemPoolItem`.
  KELMemPoolLock& GetLock() CM_THREAD_ANNOTATION(lock_returned(m_Lock)) { return m_Lock; }
  unsigned char* Alloc(unsigned int aSize);
  CmResult Free(unsigned char* pPointer);
  /// Frees every free buffer and sets the created count to 0.
  void DestroyMemPool();
  void Cleanup();

  unsigned int GetMemSize() const { return m_dwMemSize; }
  unsigned int GetCurBlockSize();
  unsigned int GetFreeCount();
  unsigned int GetMaxItems() const { return m_dwMaxItems; }

 private:
  KELMemPoolLock m_Lock;
  std::vector<unsigned char*> m_FreeList CM_GUARDED_BY(m_Lock);
  unsigned int m_dwMemSize;
  unsigned int m_dwCurBlockSize CM_GUARDED_BY(m_Lock);
  unsigned int m_dwMaxItems;
};

class CM_EXPORT KELMemPool : public IKELMemPool, public kel::CKelUnknownImpl {
 public:
  KELMemPool(unsigned int aItemSize, unsigned int aMaxItems);
  ~KELMemPool() override;

  KEL_IMPLEMENT_UNKNOWN()

  bool Init() override;
  bool Clean() override;
  unsigned char* New(unsigned int aSize) override;
  void Free(unsigned char* aData) override;

  KELMemFixSizePoolInternal* GetInternal() const { return m_pPool; }

 private:
  unsigned int m_dwItemSize;
  unsigned int m_dwMaxItems;
  KELMemFixSizePoolInternal* m_pPool;
};
