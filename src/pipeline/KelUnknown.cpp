#include "cmutil/pipeline/KelUnknown.h"

namespace kel {

const _tagUUID IID_IKelUnknown = {
    {0x00, 0x00, 0x00, 0x00, 0x13, 0x20, 0x14, 0x01, 0x01, 0x23, 0x45, 0x67, 0x89, 0xab, 0xcd, 0xef}};

CKelUnknownImpl::CKelUnknownImpl(unsigned int aInitialCount) : m_dwRefCount(aInitialCount) {}

CKelUnknownImpl::~CKelUnknownImpl() = default;

unsigned int CKelUnknownImpl::KelAddRef() { return m_dwRefCount.fetch_add(1, std::memory_order_relaxed) + 1; }

unsigned int CKelUnknownImpl::KelRelease() {
  // acq_rel: every write made by other owners must be visible to the deleter.
  uint32_t left = m_dwRefCount.fetch_sub(1, std::memory_order_acq_rel) - 1;
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
