#include "cmutil/base/KelUnknown.h"

#include "cmutil/base/CmAssert.h"

namespace kel {

const _tagUUID IID_IKelUnknown = {
    {0x00, 0x00, 0x00, 0x00, 0x13, 0x20, 0x14, 0x01, 0x01, 0x23, 0x45, 0x67, 0x89, 0xab, 0xcd, 0xef}};

CKelUnknownImpl::CKelUnknownImpl(unsigned int aInitialCount) : m_dwRefCount(aInitialCount) {}

CKelUnknownImpl::~CKelUnknownImpl() = default;

unsigned int CKelUnknownImpl::KelAddRef() { return m_dwRefCount.fetch_add(1, std::memory_order_relaxed) + 1; }

unsigned int CKelUnknownImpl::KelRelease() {
  uint32_t count = m_dwRefCount.load(std::memory_order_relaxed);
  do {
    // A release without a reference would wrap the count to 0xFFFFFFFF: refuse it.
    CM_ASSERTE_RETURN(count != 0, 0);
    // acq_rel: every write made by other owners must be visible to the deleter.
  } while (!m_dwRefCount.compare_exchange_weak(count, count - 1, std::memory_order_acq_rel, std::memory_order_relaxed));
  const uint32_t left = count - 1;
  if (left == 0) delete this;
  return left;
}

unsigned int CKelUnknownImpl::KelGetReference() const { return m_dwRefCount.load(std::memory_order_acquire); }

CmResult CKelUnknownImpl::KelQueryInterface(IKelUnknown* aSelf, const _tagUUID& aIid, void** aPpv) {
  if (!aPpv) return CM_ERROR_NULL_POINTER;
  if (aIid == IID_IKelUnknown && aSelf) {
    aSelf->AddRef();
    *aPpv = aSelf;
    return CM_OK;
  }
  *aPpv = nullptr;
  return CM_ERROR_NO_INTERFACE;
}

}  // namespace kel
