#pragma once
/// A pool of equally sized raw buffers for hot paths (frames and packets of a known
/// maximum size): steady-state allocation is one pointer pop, without contention
/// between threads.
///
/// `CreateKELMemPool(itemSize, maxItems)` returns a reference-counted `IKELMemPool`
/// holding one reference for the caller, who calls `Init()` before use and `Release()`
/// at the end. The pool starts with min(maxItems, 10) buffers, grows by 10 at a time
/// when it runs dry, never beyond `maxItems`, and never shrinks while it lives
/// (`Clean()` frees the buffers that are free at that moment).
///
/// ```
///   IKELMemPool* pool = CreateKELMemPool(1500, 256);
///   pool->Init();
///   unsigned char* p = pool->New(1500);   // null when exhausted or too large
///   ...
///   pool->Free(p);
///   pool->Release();
/// ```
///
/// Threads: `New` and `Free` may be called from any thread. Cost: each thread keeps up
/// to 64 free buffers of the pool close at hand (past eight threads, they share), taken
/// and given back with one atomic exchange and a store, so threads sharing a pool do not
/// wait for each other; beyond
/// that, one short futex lock around the pool's shared list (a batch of 32 moves at a
/// time). A buffer freed on one thread serves any other: a thread that finds the pool
/// dry takes the others' kept buffers before the pool grows (10 at a time, up to its
/// maximum). No thread spins waiting for another. `Free` trusts the caller:
/// the buffer must come from this pool and must not be free already. Buffers still out
/// when the pool dies are not freed by it.

#include "cmutil/base/CmExport.h"
#include "cmutil/base/KelUnknown.h"

class CM_EXPORT IKELMemPool : public kel::IKelUnknown {
 public:
  /// Creates the internal pool (with its first buffers) if it does not exist yet; true.
  virtual bool Init() = 0;
  /// Frees the free buffers; whether an internal pool exists.
  virtual bool Clean() = 0;
  /// A buffer of the pool's size, or null (no pool, `aSize` above the item size, or the
  /// pool exhausted at its maximum).
  virtual unsigned char* New(unsigned int aSize) = 0;
  /// Gives a buffer back; null is ignored.
  virtual void Free(unsigned char* aData) = 0;
};

/// A new pool object with one reference and no buffers yet (see `Init`).
CM_EXPORT IKELMemPool* CreateKELMemPool(unsigned int aItemSize, unsigned int aMaxItems);
