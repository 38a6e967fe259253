#pragma once
/// Process-wide singletons and the shutdown clean-up list.
///
/// - CmGetSingletonMutex(): the one recursive mutex under which every process-wide object
///   is created (tested before and after taking it). It lives until the process ends.
/// - CCmCleanUpBase: objects that register themselves at construction and are destroyed
///   together by CCmCleanUpBase::CleanupAll(), the last registered first.
/// - CCmSingletonT<T>: lazily creates one T per process. Instance() is safe from any
///   thread; it returns null (and reports the assertion "m_psInstance") when the object
///   cannot be allocated. T must be an exported (default-visibility) class, so that the
///   library and its callers share one instance.

#include <atomic>
#include <new>

#include "cmutil/base/CmAssert.h"
#include "cmutil/base/CmExport.h"
#include "cmutil/base/CmMutex.h"

/// The library's singleton mutex (recursive, so nested singleton creation is safe).
CM_EXPORT CCmMutexThreadRecursive& CmGetSingletonMutex();

/// Base of objects destroyed together at shutdown.
class CM_EXPORT CCmCleanUpBase {
 public:
  /// Puts the object at the head of the clean-up list, under the singleton mutex.
  CCmCleanUpBase();
  virtual ~CCmCleanUpBase();

  CCmCleanUpBase(const CCmCleanUpBase&) = delete;
  CCmCleanUpBase& operator=(const CCmCleanUpBase&) = delete;

  /// Destroys the object through its virtual destructor.
  virtual void CleanUp();

  /// Cleans up every registered object, most recently registered first, and empties the
  /// list. Runs under the singleton mutex; call it once at shutdown, when no other
  /// thread uses the objects any more.
  static void CleanupAll();

 private:
  CCmCleanUpBase* m_pNext;
  static CCmCleanUpBase* s_pHeader;
};

/// One lazily created T per process, destroyed by CCmCleanUpBase::CleanupAll().
template <class T>
class CM_EXPORT CCmSingletonT : public CCmCleanUpBase {
 public:
  /// The instance, created on first use. Null (with an assertion report) if it could
  /// not be allocated.
  static T* Instance() {
    if (!m_psInstance.load(std::memory_order_acquire)) {
      CCmMutexGuardT<CCmMutexThreadRecursive> guard(CmGetSingletonMutex());
      if (!m_psInstance.load(std::memory_order_relaxed))
        m_psInstance.store(new (std::nothrow) CCmSingletonT<T>, std::memory_order_release);
    }
    CM_ASSERTE_RETURN(m_psInstance, nullptr);
    return &m_psInstance.load(std::memory_order_acquire)->m_Instance;
  }

 protected:
  CCmSingletonT() {}
  ~CCmSingletonT() override { m_psInstance.store(nullptr, std::memory_order_release); }

  T m_Instance;
  static std::atomic<CCmSingletonT<T>*> m_psInstance;
};

template <class T>
std::atomic<CCmSingletonT<T>*> CCmSingletonT<T>::m_psInstance{nullptr};
