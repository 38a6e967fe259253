#pragma once
/// Locks of the library.
///
/// - CCmMutexThreadRecursive: a recursive POSIX mutex.
/// - CCmMutexThread: a non-recursive, briefly spinning (adaptive) POSIX mutex; the
///   default lock of every shared structure in the library.
/// - CCmFakeMutex, CCmMutexNullSingleThread: policies for objects that stay on one thread;
///   they never block and give no protection between threads.
/// - CCmMutexGuardT<M>: scoped lock over any of the above.
/// - CCmSpinLock: a one-byte test-and-set lock for very short critical sections.
///
/// Every operation of the POSIX mutexes first checks a liveness marker, so that a lock
/// call on an object whose destructor already ran fails with CM_ERROR_FAILURE and a
/// trace instead of touching a destroyed platform mutex. None of these calls throws.

#include <pthread.h>

#include <atomic>
#include <cstdint>

#include "cmutil/base/CmError.h"
#include "cmutil/base/CmExport.h"
#include "cmutil/base/CmThreadAnnotations.h"

/// Common part of the two POSIX mutex kinds. Lock/UnLock/TryLock may be called from any
/// thread; UnLock must come from the thread that locked.
class CM_EXPORT CM_CAPABILITY("mutex") CCmMutexThreadBase {
 public:
  /// Value of the liveness marker while the object is alive.
  static constexpr int32_t kAliveMarker = 0x01357998;

  CCmMutexThreadBase() : m_nMarker(kAliveMarker) {}
  virtual ~CCmMutexThreadBase();

  CCmMutexThreadBase(const CCmMutexThreadBase&) = delete;
  CCmMutexThreadBase& operator=(const CCmMutexThreadBase&) = delete;

  /// Blocks until the mutex is held. CM_ERROR_FAILURE on a destroyed object or a
  /// platform error.
  CmResult Lock() CM_ACQUIRE();
  /// Releases the mutex. CM_ERROR_FAILURE (traced) on failure.
  CmResult UnLock() CM_RELEASE();
  /// Takes the mutex if free; CM_ERROR_FAILURE (not traced) when busy.
  CmResult TryLock();

  /// The platform mutex, for use with a condition variable.
  pthread_mutex_t& GetMutexType() { return m_Lock; }

 protected:
  pthread_mutex_t m_Lock;
  volatile int32_t m_nMarker;
};

/// Recursive mutex: the holding thread may lock it again; it must unlock as often.
class CM_EXPORT CCmMutexThreadRecursive : public CCmMutexThreadBase {
 public:
  CCmMutexThreadRecursive();
};

/// Non-recursive mutex of the adaptive kind (spins briefly before sleeping).
class CM_EXPORT CCmMutexThread : public CCmMutexThreadBase {
 public:
  CCmMutexThread();
};

/// Single-thread lock policy: records whether it is held, never blocks.
class CM_EXPORT CCmFakeMutex {
 public:
  CCmFakeMutex() : m_bLocked(false) {}
  CmResult Lock() {
    m_bLocked = true;
    return CM_OK;
  }
  CmResult UnLock() {
    m_bLocked = false;
    return CM_OK;
  }
  CmResult TryLock() {
    if (m_bLocked) return CM_ERROR_FAILURE;
    m_bLocked = true;
    return CM_OK;
  }

 private:
  bool m_bLocked;
};

/// Lock policy that does nothing at all, for objects confined to one thread.
class CM_EXPORT CCmMutexNullSingleThread {
 public:
  CmResult Lock() { return CM_OK; }
  CmResult UnLock() { return CM_OK; }
  CmResult TryLock() { return CM_OK; }
};

/// Scoped lock: locks in the constructor, unlocks in the destructor if the lock was
/// taken. The guard must be released on the thread that created it.
template <class MutexType>
class CM_SCOPED_CAPABILITY CCmMutexGuardT {
 public:
  explicit CCmMutexGuardT(MutexType& aMutex) CM_ACQUIRE(aMutex) : m_Mutex(aMutex), m_bLocked(false) { Lock(); }
  ~CCmMutexGuardT() CM_RELEASE() { UnLock(); }

  CCmMutexGuardT(const CCmMutexGuardT&) = delete;
  CCmMutexGuardT& operator=(const CCmMutexGuardT&) = delete;

  /// Takes the lock again after UnLock(); does nothing when already held.
  CmResult Lock() CM_NO_THREAD_SAFETY_ANALYSIS {
    if (m_bLocked) return CM_OK;
    CmResult rv = m_Mutex.Lock();
    m_bLocked = (rv == CM_OK);
    return rv;
  }
  /// Releases early; the destructor then does nothing.
  CmResult UnLock() CM_NO_THREAD_SAFETY_ANALYSIS {
    if (!m_bLocked) return CM_OK;
    m_bLocked = false;
    return m_Mutex.UnLock();
  }
  bool IsLocked() const { return m_bLocked; }

 private:
  MutexType& m_Mutex;
  bool m_bLocked;
};

/// Test-and-set spin lock on one byte. lock() spins without pause or yield, so keep the
/// critical section to a few instructions. Results: lock() and unlock() give 0;
/// try_lock() gives 0 when it took the lock and -1 when the lock was held.
class CM_EXPORT CCmSpinLock {
 public:
  CCmSpinLock() { m_held.store(0); }
  ~CCmSpinLock() {}

  int64_t lock() {
    while (m_held.exchange(1, std::memory_order_acquire) != 0) {
    }
    return 0;
  }
  int64_t try_lock() { return m_held.exchange(1, std::memory_order_acquire) == 0 ? 0 : -1; }
  int64_t unlock() {
    m_held.store(0, std::memory_order_release);
    return 0;
  }

 private:
  std::atomic<uint8_t> m_held;
};
