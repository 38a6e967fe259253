#pragma once
/// A small blocking mutex on a futex word (internal to the library).
///
/// Made for critical sections of a few instructions (a pointer push or pop, a short
/// list copy) taken very often: the uncontended path is one compare-exchange to take
/// it and one exchange to give it back, with no function call. A contender tries a few
/// times while the holder is likely still running, then parks in the kernel; the
/// holder wakes one parked waiter on release. Because waiters sleep instead of
/// spinning, a high-priority (real-time) thread cannot starve a preempted
/// lower-priority holder. Not recursive.

#include <atomic>
#include <cstdint>

#include "cmutil/base/CmExport.h"
#include "cmutil/base/CmThreadAnnotations.h"

class CM_EXPORT CM_CAPABILITY("mutex") CCmFutexLock {
 public:
  CCmFutexLock() = default;
  CCmFutexLock(const CCmFutexLock&) = delete;
  CCmFutexLock& operator=(const CCmFutexLock&) = delete;

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

/// Scoped holder of a `CCmFutexLock`.
class CM_SCOPED_CAPABILITY CCmFutexGuard {
 public:
  explicit CCmFutexGuard(CCmFutexLock& aLock) CM_ACQUIRE(aLock) : m_Lock(aLock) { m_Lock.Lock(); }
  ~CCmFutexGuard() CM_RELEASE() { m_Lock.UnLock(); }
  CCmFutexGuard(const CCmFutexGuard&) = delete;
  CCmFutexGuard& operator=(const CCmFutexGuard&) = delete;

 private:
  CCmFutexLock& m_Lock;
};
