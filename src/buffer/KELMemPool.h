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
#include "cmutil/trace/CmTrace.h"

/// The pool's lock. Its critical sections are a pointer push or pop, a batch move of a
/// few dozen pointers, or a growth step of 10 allocations: a futex mutex, one atomic
/// operation to take and one to give back when uncontended, waiters parked in the kernel
/// (never spinning without end).
typedef CCmFutexLock KELMemPoolLock;
/// Scoped holder of a `KELMemPoolLock`.
typedef CCmFutexGuard KELMemPoolGuard;

/// Free buffers kept close to the threads that use them, in front of the shared list, so
/// that threads working on one pool do not meet on one lock and one cache line. A thread
/// uses the shard of its thread slot; the shard is taken with one exchange and given back
/// with a store. Nobody ever waits for a shard while holding the pool's lock: whoever
/// finds a shard taken goes to the shared list instead (or, to empty it, sleeps and looks
/// again), so a preempted holder delays no one without bound.
struct alignas(64) KELMemPoolShard {
  static const unsigned int kCapacity = 64;
  std::atomic<uint32_t> m_Taken{0};
  /// Written only by the holder; read without it for the pool's free count.
  std::atomic<uint32_t> m_Count{0};
  unsigned char* m_Items[kCapacity];
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
  /// Frees every free buffer (the shards' too) and sets the created count to 0.
  void DestroyMemPool();
  void Cleanup();

  unsigned int GetMemSize() const { return m_dwMemSize; }
  unsigned int GetCurBlockSize();
  /// Free buffers: the shared list and every shard.
  unsigned int GetFreeCount();
  unsigned int GetMaxItems() const { return m_dwMaxItems; }

 private:
  static const unsigned int kShardCount = 8;

  KELMemPoolShard& MyShard();
  /// The shared list's path, for a thread whose shard is taken by another.
  unsigned char* AllocShared();
  void FreeShared(unsigned char* pPointer);
  /// With `aShard` held and empty: moves a batch from the shared list into it (refilling
  /// the shared list first) and pops one; null when the pool is exhausted.
  unsigned char* RefillAndPop(KELMemPoolShard& aShard);
  /// Moves up to half a shard's capacity from the (non-empty) shared list into the held,
  /// empty `aShard` and pops one.
  unsigned char* MoveBatchAndPop(KELMemPoolShard& aShard) CM_REQUIRES(m_Lock);
  /// With `aShard` held and full: moves its older half to the shared list.
  void SpillHalf(KELMemPoolShard& aShard);
  /// With the shared list empty: takes the shards' buffers, else grows by 10. False when
  /// nothing could be found or made; `aHolderBusy` tells whether a shard holding buffers
  /// was taken by someone else at the time.
  bool RefillSharedList(bool& aHolderBusy) CM_REQUIRES(m_Lock);
  /// Moves the free buffers of every shard it can take into the shared list; whether a
  /// shard holding buffers was taken by someone else.
  bool StealFromShards() CM_REQUIRES(m_Lock);
  /// The level-4 line of an Alloc or Free (`aWhat`), with the free and created counts.
  /// The level is tested here, inline: the formatting function sets up its 1 KiB frame
  /// before its own test, which cost a suppressed line an eighth of a New/Free pair.
  void TraceHandOver(const char* aWhat, unsigned char* pData) {
    if (cm_trace_effective_mask() >= kHandOverTraceLevel) FormatHandOver(aWhat, pData);
  }
  static constexpr int kHandOverTraceLevel = 4;
  void FormatHandOver(const char* aWhat, unsigned char* pData);

  KELMemPoolLock m_Lock;
  std::vector<unsigned char*> m_FreeList CM_GUARDED_BY(m_Lock);
  unsigned int m_dwMemSize;
  unsigned int m_dwCurBlockSize CM_GUARDED_BY(m_Lock);
  unsigned int m_dwMaxItems;
  KELMemPoolShard m_Shards[kShardCount];
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
