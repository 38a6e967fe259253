#include "base/CmFutexLock.h"

#include "base/CmCpuRelax.h"
#include "platform/CmPlatform.h"

namespace {

/// Tries of the contended path before a waiter parks: about the time a holder needs
/// for a short section, so that a brief overlap does not cost two system calls.
const int kSpinTries = 40;

inline uint32_t* FutexWord(std::atomic<uint32_t>& aState) {
  static_assert(sizeof(std::atomic<uint32_t>) == sizeof(uint32_t), "a futex word is 32 bits");
  return reinterpret_cast<uint32_t*>(&aState);
}

}  // namespace

void CCmFutexLock::LockContended() {
  for (int i = 0; i < kSpinTries; ++i) {
    CmCpuRelax();
    uint32_t expected = kFree;
    if (m_State.load(std::memory_order_relaxed) == kFree &&
        m_State.compare_exchange_weak(expected, kHeld, std::memory_order_acquire, std::memory_order_relaxed))
      return;
  }
  // Announce a waiter; whoever finds the lock free here owns it, still marked as
  // having waiters (a spurious wake-up at worst).
  while (m_State.exchange(kHeldWithWaiters, std::memory_order_acquire) != kFree)
    cm_platform_futex_wait(FutexWord(m_State), kHeldWithWaiters, -1);
}

void CCmFutexLock::WakeOne() { cm_platform_futex_wake_one(FutexWord(m_State)); }
