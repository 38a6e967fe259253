#pragma once
/// Reference-count base of the library's shared objects.
///
/// An object starts with a count of 0; every holder calls AddReference() and later
/// ReleaseReference(). When the count drops to zero the object calls its virtual
/// OnReferenceDestory(), which deletes it through its virtual destructor; a subclass may
/// override the hook to recycle itself instead. The caller never deletes such an object.
///
/// The mutex policy M names the intended sharing: CCmMutexThread for objects used from
/// many threads, CCmMutexNullSingleThread (or CCmFakeMutex) for objects that stay on one
/// thread. The count itself is an atomic word in both cases, which is as cheap as the
/// single-thread increment on x86-64 for all practical purposes and always safe.

#include <atomic>
#include <cstdint>

#include "cmutil/base/CmExport.h"
#include "cmutil/base/CmMutex.h"

template <class MutexType>
class CCmReferenceControlT {
 public:
  typedef MutexType MutexPolicy;

  CCmReferenceControlT() : m_dwReference(0) {}
  virtual ~CCmReferenceControlT() {}

  CCmReferenceControlT(const CCmReferenceControlT&) = delete;
  CCmReferenceControlT& operator=(const CCmReferenceControlT&) = delete;

  /// Raises the count; returns the new count.
  uint32_t AddReference() { return m_dwReference.fetch_add(1, std::memory_order_relaxed) + 1; }

  /// Lowers the count; returns the new count. At zero the object destroys itself
  /// through OnReferenceDestory(): do not touch it after a result of 0. Releasing an
  /// object whose count is already 0 also destroys it (the count stays 0).
  uint32_t ReleaseReference() {
    // Acquire on every path (the CAS, and the loads that precede and follow a failed one)
    // so that the releasing thread sees all writes of the other holders before deleting.
    uint32_t old = m_dwReference.load(std::memory_order_acquire);
    while (old != 0 &&
           !m_dwReference.compare_exchange_weak(old, old - 1, std::memory_order_acq_rel, std::memory_order_acquire)) {
    }
    if (old <= 1) {
      OnReferenceDestory();
      return 0;
    }
    return old - 1;
  }

  /// Current count (a snapshot when other threads hold references).
  uint32_t GetReference() const { return m_dwReference.load(std::memory_order_relaxed); }

 protected:
  /// Called once when the count reaches zero; deletes the object.
  virtual void OnReferenceDestory() { delete this; }

 private:
  std::atomic<uint32_t> m_dwReference;
};
