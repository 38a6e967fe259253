#include "cmutil/buffer/CmDataBlock.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

#include "cmutil/base/CmAssert.h"

namespace {

/// The header is rounded up so that an unaligned payload still starts on a 16-byte
/// boundary (the allocator's own alignment).
constexpr size_t kHeaderSize = (sizeof(CCmDataBlock) + 15) & ~size_t(15);

}  // namespace

CCmDataBlock::CCmDataBlock(unsigned int aSize, char* aData, unsigned int aOffset)
    : m_dwSize(aSize), m_pData(aData), m_bReleaseWithFree(false), m_dwAlignOffset(aOffset) {}

CCmDataBlock::~CCmDataBlock() = default;

void CCmDataBlock::OnReferenceDestory() {
  const bool withFree = m_bReleaseWithFree;
  void* storage = this;
  this->~CCmDataBlock();
  if (withFree)
    std::free(storage);
  else
    ::operator delete(storage);
}

CmResult CCmDataBlock::CreateInstance(CCmDataBlock*& aDb, unsigned int aSize, const char* aData) {
  CM_ASSERTE_RETURN(aSize > 0, CM_ERROR_INVALID_ARG);
  void* storage = ::operator new(kHeaderSize + aSize, std::nothrow);
  if (!storage) return CM_ERROR_OUT_OF_MEMORY;
  char* payload = static_cast<char*>(storage) + kHeaderSize;
  CCmDataBlock* db = new (storage) CCmDataBlock(aSize, payload, 0);
  if (aData) std::memcpy(payload, aData, aSize);
  db->AddReference();
  aDb = db;
  return CM_OK;
}

CmResult CCmDataBlock::CreateInstanceWithAlignByte(CCmDataBlock*& aDb, unsigned int aSize, const char* aData,
                                                   unsigned int alignByte) {
  CM_ASSERTE_RETURN(aSize > 0, CM_ERROR_INVALID_ARG);
  CM_ASSERTE_RETURN(alignByte > 0, CM_ERROR_INVALID_ARG);
  CM_ASSERTE_RETURN(alignByte <= 2048, CM_ERROR_INVALID_ARG);
  void* storage = ::operator new(kHeaderSize + size_t(aSize) + alignByte, std::nothrow);
  if (!storage) return CM_ERROR_OUT_OF_MEMORY;
  uintptr_t headerEnd = reinterpret_cast<uintptr_t>(storage) + kHeaderSize;
  uintptr_t start = headerEnd + alignByte - 1;
  start -= start % alignByte;
  unsigned int offset = static_cast<unsigned int>(start - headerEnd);
  char* payload = static_cast<char*>(storage) + kHeaderSize + offset;
  CCmDataBlock* db = new (storage) CCmDataBlock(aSize + alignByte - offset, payload, offset);
  if (aData) std::memcpy(payload, aData, aSize);
  db->AddReference();
  aDb = db;
  return CM_OK;
}
