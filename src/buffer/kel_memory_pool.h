#pragma once
/// The pool proper behind `IKELMemPool` (internal; exported for the tests).

#include <atomic>
#include <cstdint>
#include <vector>

#include "cmutil/base/CmError.h"
#include "cmutil/base/CmExport.h"
#include "cmutil/base/CmThreadAnnotations.h"
#include "cmutil/buffer/CmMemoryPool.h"

/// The pool's lock: a blocking mutex on a futex word. Its critical sections are a
/// pointer push or pop (a growth step of 10 allocations at most), so the uncontended
/// path matters most: one compare-exchange to take it and one exchange to give it back.
/// A contender tries a few times while the holder is likely still running, then parks
/// in the kernel; the holder wakes one parked waiter on release. Because waiters sleep
/// instead of spinning, a high-priority (real-time) thread cannot starve a preempted
/// lower-priority holder.
class CM_EXPORT CM_CAPABILITY("mutex") KELMemPoolLock {
 public:
  void Lock() CM_ACQUIRE() {
    uint32_t expected = kFree;
    if (m_State.compare_exchange_strong(expected, kHeld, std::memory_order_acquire, std::memory_order_relaxed)) return;
    LockContended();
  }
  void UnLock() CM_RELEASE() {
    if (m_State.exchange(kFree, std::memory_order_release) == kHeldWithWaiters) WakeOne();
  }

 private:
  static constexpr uint32_t kFree = 0;
  static constexpr uint32_t kHeld = 1;
  static constexpr uint32_t kHeldWithWaiters = 2;

  /// Slow path of Lock: a short bounded spin, then sleeps on the futex until it gets
  /// the lock (the state then stays "with waiters" so that the release wakes the next).
  void LockContended();
  void WakeOne();

  std::atomic<uint32_t> m_State{kFree};
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
