#pragma once
/// `CCmDataBlock`: a reference-counted piece of memory holding the bytes of message
/// blocks (CmMessageBlock.h). One allocation carries the header and the payload, the
/// payload optionally aligned to a boundary of 1 to 2048 bytes (any value, not only
/// powers of two).
///
/// Ownership: a block is created with one reference for its creator. Every message block
/// that shares it takes one more; the release of the last reference destroys the header
/// and frees the allocation (with `free` when the release-with-free flag is set, else
/// with the allocator that made it). Never `delete` a data block yourself.
///
/// Threads: the count is atomic, so a block may be shared between threads; the payload
/// is not guarded.
///
/// ```
///   [ header | align gap | payload ........................ ]
///            ^m_dwAlignOffset bytes
///                        ^GetBasePtr()           GetLength() bytes to the end ^
/// ```

#include "cmutil/base/CmError.h"
#include "cmutil/base/CmExport.h"
#include "cmutil/base/CmReferenceControl.h"

class CM_EXPORT CCmDataBlock : public CCmReferenceControlT<CCmMutexThread> {
 public:
  /// One allocation of header + `aSize` bytes, count 1. Copies `aSize` bytes from
  /// `aData` when it is given; otherwise the payload is left uninitialised.
  /// `aSize` 0: assertion "aSize > 0", `CM_ERROR_INVALID_ARG`, `aDb` untouched.
  /// Allocation failure: `CM_ERROR_OUT_OF_MEMORY`.
  static CmResult CreateInstance(CCmDataBlock*& aDb, unsigned int aSize, const char* aData = nullptr);

  /// As `CreateInstance`, with the payload starting at the first multiple of
  /// `alignByte` (1..2048) at or after the end of the header. The allocation is
  /// header + `aSize` + `alignByte` bytes and `GetLength()` counts every byte from the
  /// payload to its end (`aSize` + `alignByte` - offset). Assertions "aSize > 0",
  /// "alignByte > 0", "alignByte <= 2048", each `CM_ERROR_INVALID_ARG`.
  static CmResult CreateInstanceWithAlignByte(CCmDataBlock*& aDb, unsigned int aSize, const char* aData,
                                              unsigned int alignByte);

  /// A header over storage the caller has laid out (the payload `aData` of `aSize`
  /// bytes, `aOffset` bytes of alignment gap). Count 0, release flag clear. Such a
  /// header must itself live at the start of an allocation of `::operator new` (or of
  /// `malloc`, after `SetReleaseWithFree(true)`), since the last release frees it.
  CCmDataBlock(unsigned int aSize, char* aData, unsigned int aOffset);

  /// Usable payload bytes from `GetBasePtr()` to the end of the allocation.
  unsigned int GetLength() const { return m_dwSize; }
  /// Start of the payload.
  char* GetBasePtr() const { return m_pData; }
  /// Bytes skipped between the header and an aligned payload (0 when unaligned).
  unsigned int GetAlignOffset() const { return m_dwAlignOffset; }
  /// Makes the last release hand the allocation to `free` instead of `::operator delete`.
  void SetReleaseWithFree(bool aFree) { m_bReleaseWithFree = aFree; }
  bool IsReleaseWithFree() const { return m_bReleaseWithFree; }

 protected:
  ~CCmDataBlock() override;
  /// Runs the destructor, then frees the one allocation.
  void OnReferenceDestory() override;

 private:
  unsigned int m_dwSize;
  char* m_pData;
  bool m_bReleaseWithFree;
  unsigned int m_dwAlignOffset;
};
