// The singleton mutex and the clean-up list.

#include "cmutil/base/CmSingleton.h"

CCmMutexThreadRecursive& CmGetSingletonMutex() {
  // Never destroyed: singletons may still be created or cleaned up during static
  // destruction of other objects.
  static CCmMutexThreadRecursive* s_mutex = new CCmMutexThreadRecursive;
  return *s_mutex;
}

CCmCleanUpBase* CCmCleanUpBase::s_pHeader = nullptr;

CCmCleanUpBase::CCmCleanUpBase() {
  CCmMutexGuardT<CCmMutexThreadRecursive> guard(CmGetSingletonMutex());
  m_pNext = s_pHeader;
  s_pHeader = this;
}

CCmCleanUpBase::~CCmCleanUpBase() {}

void CCmCleanUpBase::CleanUp() { delete this; }

void CCmCleanUpBase::CleanupAll() {
  CCmMutexGuardT<CCmMutexThreadRecursive> guard(CmGetSingletonMutex());
  while (s_pHeader) {
    CCmCleanUpBase* pNext = s_pHeader->m_pNext;
    s_pHeader->CleanUp();
    s_pHeader = pNext;
  }
}
