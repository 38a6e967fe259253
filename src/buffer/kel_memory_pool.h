#pragma once
/// The pool proper behind `IKELMemPool` (internal; exported for the tests).

#include <sched.h>

#include <atomic>
#include <vector>

#include "cmutil/base/CmError.h"
#include "cmutil/base/CmExport.h"
#include "cmutil/base/CmThreadAnnotations.h"
#include "cmutil/buffer/CmMemoryPool.h"

/// The pool's lock. Its critical sections are a pointer push or pop (a growth step of
/// 10 allocations at most), so a test-and-set lock serves them best: taking it is one
/// atomic exchange and releasing it a plain store, half the atomic operations of a
/// blocking mutex. A waiter spins briefly on a read, then yields its time slice, so a
/// holder that was preempted gets the processor back.
class CM_CAPABILITY("mutex") KELMemPoolLock {
 public:
  void Lock() CM_ACQUIRE() {
    while (m_bHeld.exchange(true, std::memory_order_acquire)) {
      int spins = 0;
      while (m_bHeld.load(std::memory_order_relaxed)) {
        if (++spins < 64) {
#if defined(__x86_64__) || defined(__i386__)
          __builtin_ia32_pause();
#endif
        } else {
          sched_yield();
          spins = 0;
        }
      }
    }
  }
  void UnLock() CM_RELEASE() { m_bHeld.store(false, std::memory_order_release); }

 private:
  std::atomic<bool> m_bHeld{false};
};

/// Scoped holder of a `KELMemPoolLock`.
class CM_SCOPED_CAPABILITY KELMemPoolGuard {
 public:
  explicit KELMemPoolGuard(KELMemPoolLock& aLock) CM_ACQUIRE(aLock) : m_Lock(aLock) { m_Lock.Lock(); }
  ~KELMemPoolGuard() CM_RELEASE() { m_Lock.UnLock(); }
  KELMemPoolGuard(const KELMemPoolGuard&) = delete;
  KELMemPoolGuard& operator=(const KELMemPoolGuard&) = delete;

 private:
  KELMemPoolLock& m_Lock;
};

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
  /// held (it is taken by `Alloc`).
  CmResult AddMemPoolItem(unsigned int dwItemNumber) CM_NO_THREAD_SAFETY_ANALYSIS;
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
