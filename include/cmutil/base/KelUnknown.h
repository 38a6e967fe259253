#pragma once
/// The reference-counted unknown base shared by the engine-facing interfaces
/// (memory pool, process modules, process units, process data).
///
/// `kel::IKelUnknown` is the abstract interface: `AddRef`, `Release`,
/// `QueryInterface` and `GetReference`. `kel::CKelUnknownImpl` is the
/// implementation base a concrete class derives from beside its interface; it
/// owns the 32-bit atomic count. The macro `KEL_IMPLEMENT_UNKNOWN()` placed in
/// the concrete class forwards the four interface operations to that base:
///
/// ```
/// class CMyData : public IMyData, public kel::CKelUnknownImpl {
/// public:
///     KEL_IMPLEMENT_UNKNOWN()
/// };
/// ```
///
/// Ownership: `Release` deletes the object (through the virtual destructor of
/// `CKelUnknownImpl`) when the count reaches zero. A new object starts with the
/// count given to the base constructor (0 by default); the creator takes its
/// first reference with `AddRef` unless it passed 1. `AddRef`, `Release` and
/// `GetReference` may be called from any thread.

#include <atomic>
#include <cstdint>
#include <cstring>
#include <memory>

#include "cmutil/base/CmError.h"
#include "cmutil/base/CmExport.h"

namespace kel {

/// A 16-byte interface identifier, compared byte for byte.
struct _tagUUID {
  unsigned char data[16];
};

inline bool operator==(const _tagUUID& a, const _tagUUID& b) {
  return std::memcmp(a.data, b.data, sizeof(a.data)) == 0;
}
inline bool operator!=(const _tagUUID& a, const _tagUUID& b) { return !(a == b); }

/// The identifier of the base unknown interface:
/// 00 00 00 00 13 20 14 01 01 23 45 67 89 ab cd ef.
CM_EXPORT extern const _tagUUID IID_IKelUnknown;

/// The unknown interface. Every engine-facing interface derives from it.
class CM_EXPORT IKelUnknown {
 public:
  virtual ~IKelUnknown() {}
  /// Takes one reference; returns the new count.
  virtual unsigned int AddRef() = 0;
  /// Drops one reference; returns the new count. At 0 the object deletes
  /// itself, so the caller must not touch it afterwards.
  virtual unsigned int Release() = 0;
  /// Null `ppv`: `CM_ERROR_NULL_POINTER`. A known id: `*ppv` is the object with
  /// one more reference, `CM_OK`. Any other id: `*ppv` = null,
  /// `CM_ERROR_NO_INTERFACE`.
  virtual CmResult QueryInterface(const _tagUUID& iid, void** ppv) = 0;
  /// The current count (a snapshot when other threads hold references).
  virtual unsigned int GetReference() = 0;
};

/// Implementation base holding the atomic reference count.
class CM_EXPORT CKelUnknownImpl {
 public:
  explicit CKelUnknownImpl(unsigned int aInitialCount = 0);
  virtual ~CKelUnknownImpl();

  CKelUnknownImpl(const CKelUnknownImpl&) = delete;
  CKelUnknownImpl& operator=(const CKelUnknownImpl&) = delete;

 protected:
  unsigned int KelAddRef();
  /// Lowers the count; at zero deletes the object and returns 0. A count already at 0
  /// (an object never referenced) is left there: assertion "count != 0", result 0.
  unsigned int KelRelease();
  unsigned int KelGetReference() const;
  /// Answers the base unknown id with `aSelf` (after one `AddRef` on it);
  /// refuses others. Classes that expose more interfaces test their own ids
  /// first and call this for the rest.
  CmResult KelQueryInterface(IKelUnknown* aSelf, const _tagUUID& aIid, void** aPpv);

 private:
  std::atomic<uint32_t> m_dwRefCount;
};

}  // namespace kel

/// Defines the four `IKelUnknown` operations of a class deriving from both an
/// interface (itself derived from `kel::IKelUnknown`) and
/// `kel::CKelUnknownImpl`.
#define KEL_IMPLEMENT_UNKNOWN()                                                            \
  unsigned int AddRef() override { return kel::CKelUnknownImpl::KelAddRef(); }             \
  unsigned int Release() override { return kel::CKelUnknownImpl::KelRelease(); }           \
  unsigned int GetReference() override { return kel::CKelUnknownImpl::KelGetReference(); } \
  CmResult QueryInterface(const kel::_tagUUID& aIid, void** aPpv) override {               \
    return kel::CKelUnknownImpl::KelQueryInterface(this, aIid, aPpv);                      \
  }

/// Wraps an object into a shared pointer WITHOUT taking a reference: the shared
/// pointer adopts one the caller already owns and calls `Release` when the last
/// shared owner goes. Null gives an empty pointer.
template <class T>
std::shared_ptr<T> KelUnknownPtr_to_shared_ptr(T* aPtr) {
  if (!aPtr) return std::shared_ptr<T>();
  return std::shared_ptr<T>(aPtr, [](T* p) { p->Release(); });
}

/// Wraps an object into a shared pointer and takes one reference (`AddRef`) for
/// it; `Release` is called when the last shared owner goes. Null gives an empty
/// pointer.
template <class T>
std::shared_ptr<T> KelUnknownPtrWithRef_to_shared_ptr(T* aPtr) {
  if (!aPtr) return std::shared_ptr<T>();
  aPtr->AddRef();
  return std::shared_ptr<T>(aPtr, [](T* p) { p->Release(); });
}
