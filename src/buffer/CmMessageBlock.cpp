#include "cmutil/buffer/CmMessageBlock.h"

#include <cstdint>
#include <cstring>
#include <new>

#include "cmutil/buffer/CmDataBlock.h"
#include "cmutil/trace/CmTraceMacros.h"

namespace {

/// Flag bits that SetData never stores: the request bit and the lock bits.
constexpr unsigned long kNotStoredOnSet = CCmMessageBlock::COPY_ON_SET | 0xff00;
/// The data-block form also drops USER_MEMORY.
constexpr unsigned long kNotStoredOnDataBlock = 0x3 | 0xff00;

}  // namespace

CCmMessageBlock::CCmMessageBlock()
    : m_pNext(nullptr),
      m_pDataBlock(nullptr),
      m_pReadPtr(nullptr),
      m_pWritePtr(nullptr),
      m_pBeginPtr(nullptr),
      m_pEndPtr(nullptr),
      m_Flag(0),
      m_bRtpChainedFlag(false) {}

CCmMessageBlock::CCmMessageBlock(unsigned int aSize, const char* aData, MFlag aFlag, unsigned int aAdvanceWrite)
    : CCmMessageBlock() {
  SetData(aSize, aData, aFlag, aAdvanceWrite);
}

CCmMessageBlock::CCmMessageBlock(CCmDataBlock* aDb, MFlag aFlag, unsigned int aAdvanceWrite) : CCmMessageBlock() {
  SetData(aDb, aFlag, aAdvanceWrite);
}

CCmMessageBlock::~CCmMessageBlock() {
  if (m_bRtpChainedFlag) {
    // Unlink iteratively so that a long chain does not recurse once per block.
    CCmMessageBlock* next = m_pNext;
    m_pNext = nullptr;
    while (next) {
      CCmMessageBlock* after = next->m_bRtpChainedFlag ? next->m_pNext : nullptr;
      if (next->m_bRtpChainedFlag) next->m_pNext = nullptr;
      delete next;
      next = after;
    }
  }
  if (m_pDataBlock) m_pDataBlock->ReleaseReference();
}

CmResult CCmMessageBlock::SetData(unsigned int aSize, const char* aData, MFlag aFlag, unsigned int aAdvanceWrite) {
  if (m_pBeginPtr) return CM_ERROR_FAILURE;
  if (aData && CM_BIT_DISABLED(aFlag, COPY_ON_SET)) {
    if (m_pDataBlock) {
      m_pDataBlock->ReleaseReference();
      m_pDataBlock = nullptr;
    }
    m_pBeginPtr = const_cast<char*>(aData);
    m_pEndPtr = m_pBeginPtr + aSize;
    m_Flag = static_cast<DWORD>((aFlag & ~kNotStoredOnSet) | USER_MEMORY);
  } else {
    CCmDataBlock* db = nullptr;
    if (aSize > 0) {
      CmResult rv = CCmDataBlock::CreateInstance(db, aSize, nullptr);
      if (CM_FAILED(rv)) return rv;
    }
    if (m_pDataBlock) m_pDataBlock->ReleaseReference();
    m_pDataBlock = db;
    m_pBeginPtr = db ? db->GetBasePtr() : nullptr;
    m_pEndPtr = db ? m_pBeginPtr + db->GetLength() : nullptr;
    m_Flag = static_cast<DWORD>(aFlag & ~(kNotStoredOnSet | USER_MEMORY));
  }
  m_pReadPtr = m_pWritePtr = m_pBeginPtr;
  if (aAdvanceWrite) return AdvanceTopLevelWritePtr(aAdvanceWrite);
  return CM_OK;
}

CmResult CCmMessageBlock::SetData(CCmDataBlock* aDb, MFlag aFlag, unsigned int aAdvanceWrite) {
  if (m_pBeginPtr) {
    CM_WARNING_TRACE_THIS("CCmMessageBlock::SetData failed, m_pBeginPtr is not NULL");
    return CM_ERROR_FAILURE;
  }
  CM_ASSERTE_RETURN(aDb, CM_ERROR_INVALID_ARG);
  aDb->AddReference();
  if (m_pDataBlock) m_pDataBlock->ReleaseReference();
  m_pDataBlock = aDb;
  m_pBeginPtr = aDb->GetBasePtr();
  m_pEndPtr = m_pBeginPtr + aDb->GetLength();
  m_pReadPtr = m_pWritePtr = m_pBeginPtr;
  m_Flag = static_cast<DWORD>(aFlag & ~kNotStoredOnDataBlock);
  if (aAdvanceWrite) return AdvanceTopLevelWritePtr(aAdvanceWrite);
  return CM_OK;
}

CmResult CCmMessageBlock::ReserveCapacity(unsigned int aCapacity) {
  DWORD capacity = GetTopLevelCapacity();
  if (capacity >= aCapacity) return CM_OK;
  CCmDataBlock* db = nullptr;
  CmResult rv = CCmDataBlock::CreateInstance(db, aCapacity, nullptr);
  if (CM_FAILED(rv)) return rv;
  DWORD readOffset = (DWORD)(m_pReadPtr - m_pBeginPtr);
  DWORD writeOffset = (DWORD)(m_pWritePtr - m_pBeginPtr);
  if (capacity) std::memcpy(db->GetBasePtr(), m_pBeginPtr, capacity);
  if (m_pDataBlock) m_pDataBlock->ReleaseReference();
  m_pDataBlock = db;
  m_pBeginPtr = db->GetBasePtr();
  m_pEndPtr = m_pBeginPtr + db->GetLength();
  m_pReadPtr = m_pBeginPtr + readOffset;
  m_pWritePtr = m_pBeginPtr + writeOffset;
  // USER_MEMORY is deliberately left as it was.
  m_Flag &= ~static_cast<DWORD>(kNotStoredOnSet);
  return CM_OK;
}

CmResult CCmMessageBlock::ReserveSpace(unsigned int aSpace) {
  if (GetTopLevelSpace() >= aSpace) return CM_OK;
  return ReserveCapacity((DWORD)(m_pWritePtr - m_pBeginPtr) + aSpace);
}

CmResult CCmMessageBlock::Read(void* aDst, unsigned int aCount, unsigned int* aBytesRead, bool aAdvance) {
  char* dst = static_cast<char*>(aDst);
  unsigned int done = 0;
  CmResult rv = CM_ERROR_PARTIAL_DATA;
  for (CCmMessageBlock* mb = this; mb; mb = mb->m_pNext) {
    if (!CM_BIT_DISABLED(mb->m_Flag, READ_LOCKED)) {
      cm_assert_failed(__FILE__, __LINE__, "CM_BIT_DISABLED(m_Flag, READ_LOCKED)");
      rv = CM_ERROR_FAILURE;
      break;
    }
    unsigned int want = aCount - done;
    unsigned int len = mb->GetTopLevelLength();
    unsigned int n = len >= want ? want : len;
    if (dst && n) {
      std::memcpy(dst, mb->m_pReadPtr, n);
      dst += n;
    }
    if (aAdvance) mb->m_pReadPtr += n;
    done += n;
    if (len >= want) {
      rv = CM_OK;
      break;
    }
  }
  if (aBytesRead) *aBytesRead = done;
  return rv;
}

CmResult CCmMessageBlock::Write(const void* aSrc, unsigned int aCount, unsigned int* aBytesWritten) {
  const char* src = static_cast<const char*>(aSrc);
  unsigned int done = 0;
  CmResult rv = CM_ERROR_PARTIAL_DATA;
  for (CCmMessageBlock* mb = this; mb; mb = mb->m_pNext) {
    if (!CM_BIT_DISABLED(mb->m_Flag, WRITE_LOCKED)) {
      cm_assert_failed(__FILE__, __LINE__, "CM_BIT_DISABLED(m_Flag, WRITE_LOCKED)");
      rv = CM_ERROR_FAILURE;
      break;
    }
    unsigned int want = aCount - done;
    unsigned int space = mb->GetTopLevelSpace();
    unsigned int n = space >= want ? want : space;
    if (src && n) {
      std::memcpy(mb->m_pWritePtr, src, n);
      src += n;
    }
    mb->m_pWritePtr += n;
    done += n;
    if (space >= want) {
      rv = CM_OK;
      break;
    }
  }
  if (aBytesWritten) *aBytesWritten = done;
  return rv;
}

CmResult CCmMessageBlock::AdvanceChainedReadPtr(unsigned int aStep, unsigned int* aBytes) {
  return Read(nullptr, aStep, aBytes, true);
}

CmResult CCmMessageBlock::AdvanceChainedWritePtr(unsigned int aStep, unsigned int* aBytes) {
  CM_ASSERTE_RETURN(CM_BIT_DISABLED(m_Flag, WRITE_LOCKED), CM_ERROR_FAILURE);
  if (aStep == 0) {
    if (aBytes) *aBytes = 0;
    return CM_ERROR_PARTIAL_DATA;
  }
  unsigned int remaining = aStep;
  for (CCmMessageBlock* mb = this; mb && remaining; mb = mb->m_pNext) {
    // Every block the walk reaches must be writable, as in Write.
    if (!CM_BIT_DISABLED(mb->m_Flag, WRITE_LOCKED)) {
      cm_assert_failed(__FILE__, __LINE__, "CM_BIT_DISABLED(m_Flag, WRITE_LOCKED)");
      if (aBytes) *aBytes = aStep - remaining;
      return CM_ERROR_FAILURE;
    }
    if (mb->m_pReadPtr != mb->m_pBeginPtr) {
      CM_ERROR_TRACE("CCmMessageBlock::AdvanceChainedWritePtr, can't advance. m_pBeginPtr="
                     << static_cast<void*>(mb->m_pBeginPtr) << " m_pReadPtr=" << static_cast<void*>(mb->m_pReadPtr)
                     << " [this=" << static_cast<void*>(mb) << "]");
      break;
    }
    unsigned int space = mb->GetTopLevelSpace();
    unsigned int n = space >= remaining ? remaining : space;
    mb->m_pWritePtr += n;
    remaining -= n;
  }
  if (aBytes) *aBytes = aStep - remaining;
  return remaining == 0 ? CM_OK : CM_ERROR_PARTIAL_DATA;
}

unsigned int CCmMessageBlock::GetChainedLength() const {
  unsigned int total = 0;
  for (const CCmMessageBlock* mb = this; mb; mb = mb->m_pNext) total += mb->GetTopLevelLength();
  return total;
}

unsigned int CCmMessageBlock::GetChainedSpace() const {
  unsigned int total = 0;
  for (const CCmMessageBlock* mb = this; mb; mb = mb->m_pNext) total += mb->GetTopLevelSpace();
  return total;
}

void CCmMessageBlock::Append(CCmMessageBlock* aMb) {
  CCmMessageBlock* pMbMove = this;
  for (;;) {
    CM_ASSERTE_RETURN_VOID(aMb != pMbMove);
    if (!pMbMove->m_pNext) break;
    pMbMove = pMbMove->m_pNext;
  }
  pMbMove->m_pNext = aMb;
}

unsigned int CCmMessageBlock::FillIov(iovec* aIov, unsigned int aMax) const {
  unsigned int filled = 0;
  for (const CCmMessageBlock* mb = this; mb && filled < aMax; mb = mb->m_pNext) {
    unsigned int len = mb->GetTopLevelLength();
    if (len == 0) continue;
    aIov[filled].iov_base = mb->m_pReadPtr;
    aIov[filled].iov_len = len;
    ++filled;
  }
  return filled;
}

void CCmMessageBlock::RewindChained() {
  char* firstBegin = m_pBeginPtr;
  for (CCmMessageBlock* mb = this; mb; mb = mb->m_pNext) {
    mb->m_pReadPtr = mb->m_pBeginPtr;
    mb->m_pWritePtr = firstBegin;
  }
}

CmResult CCmMessageBlock::Peek(unsigned char* pPeekBuffer, unsigned int nPeekLen, unsigned int nOffset) {
  if (nPeekLen == 0) return CM_OK;
  CM_ASSERTE_RETURN(pPeekBuffer, CM_ERROR_FAILURE);
  // Checked in 64 bits so that a huge offset cannot wrap around the sum.
  if (uint64_t(nPeekLen) + nOffset > this->GetChainedLength()) {
    cm_assert_failed(__FILE__, __LINE__, "nPeekLen + nOffset <= this->GetChainedLength()");
    return CM_ERROR_FAILURE;
  }
  const CCmMessageBlock* pMB = this;
  unsigned int skip = nOffset;
  unsigned int left = nPeekLen;
  unsigned char* dst = pPeekBuffer;
  while (left) {
    CM_ASSERTE_RETURN(pMB, CM_ERROR_FAILURE);
    unsigned int len = pMB->GetTopLevelLength();
    if (skip >= len) {
      skip -= len;
    } else {
      unsigned int n = len - skip < left ? len - skip : left;
      std::memcpy(dst, pMB->m_pReadPtr + skip, n);
      dst += n;
      left -= n;
      skip = 0;
    }
    pMB = pMB->m_pNext;
  }
  return CM_OK;
}

CmResult CCmMessageBlock::Update(const unsigned char* pSrc, unsigned int nSrcLen, unsigned int nOffset) {
  if (nSrcLen == 0) return CM_OK;
  CM_ASSERTE_RETURN(pSrc, CM_ERROR_FAILURE);
  if (uint64_t(nSrcLen) + nOffset > this->GetChainedLength()) {
    cm_assert_failed(__FILE__, __LINE__, "nSrcLen + nOffset <= this->GetChainedLength()");
    return CM_ERROR_FAILURE;
  }
  CCmMessageBlock* pMB = this;
  unsigned int skip = nOffset;
  unsigned int left = nSrcLen;
  const unsigned char* src = pSrc;
  while (left) {
    CM_ASSERTE_RETURN(pMB, CM_ERROR_FAILURE);
    unsigned int len = pMB->GetTopLevelLength();
    if (skip >= len) {
      skip -= len;
    } else {
      unsigned int n = len - skip < left ? len - skip : left;
      std::memcpy(pMB->m_pReadPtr + skip, src, n);
      src += n;
      left -= n;
      skip = 0;
    }
    pMB = pMB->m_pNext;
  }
  return CM_OK;
}

CCmString CCmMessageBlock::FlattenChained() {
  CCmString out;
  out.reserve(size_t(GetChainedLength()) + 1);
  for (const CCmMessageBlock* mb = this; mb; mb = mb->m_pNext) {
    unsigned int len = mb->GetTopLevelLength();
    if (len) out.append(mb->m_pReadPtr, len);
  }
  return out;
}

CmResult CCmMessageBlock::DuplicateInto(CCmMessageBlock& aDup) const {
  DWORD flag = (m_Flag & ~static_cast<DWORD>(kNotStoredOnDataBlock)) | DUPLICATED;
  if (CM_BIT_ENABLED(m_Flag, USER_MEMORY)) {
    // Caller memory may go away: copy the whole span into a data block of our own.
    DWORD capacity = GetTopLevelCapacity();
    CmResult rv = aDup.SetData(capacity, m_pBeginPtr, COPY_ON_SET, 0);
    if (CM_FAILED(rv)) return rv;
    if (capacity) std::memcpy(aDup.m_pBeginPtr, m_pBeginPtr, capacity);
  } else if (m_pDataBlock) {
    m_pDataBlock->AddReference();
    aDup.m_pDataBlock = m_pDataBlock;
    aDup.m_pBeginPtr = m_pBeginPtr;
    aDup.m_pEndPtr = m_pEndPtr;
  }
  aDup.m_Flag = flag;
  aDup.m_pReadPtr = aDup.m_pBeginPtr ? aDup.m_pBeginPtr + (m_pReadPtr - m_pBeginPtr) : nullptr;
  aDup.m_pWritePtr = aDup.m_pBeginPtr ? aDup.m_pBeginPtr + (m_pWritePtr - m_pBeginPtr) : nullptr;
  return CM_OK;
}

CCmMessageBlock* CCmMessageBlock::DuplicateTopLevel() const {
  CCmMessageBlock* dup = new (std::nothrow) CCmMessageBlock();
  if (!dup) return nullptr;
  if (CM_FAILED(DuplicateInto(*dup))) {
    delete dup;
    return nullptr;
  }
  return dup;
}

CCmMessageBlock* CCmMessageBlock::DuplicateChained() const {
  CCmMessageBlock* head = nullptr;
  CCmMessageBlock* tail = nullptr;
  for (const CCmMessageBlock* mb = this; mb; mb = mb->m_pNext) {
    CCmMessageBlock* dup = mb->DuplicateTopLevel();
    if (!dup) {
      if (head) head->DestroyChained();
      return nullptr;
    }
    if (tail)
      tail->m_pNext = dup;
    else
      head = dup;
    tail = dup;
  }
  return head;
}

CCmMessageBlock* CCmMessageBlock::Disjoint(unsigned int aStart) {
  CCmMessageBlock* mb = this;
  unsigned int offset = aStart;
  while (mb) {
    unsigned int len = mb->GetTopLevelLength();
    if (offset <= len) break;
    offset -= len;
    mb = mb->m_pNext;
  }
  if (!mb) return nullptr;

  CCmMessageBlock* rest = nullptr;
  if (offset == mb->GetTopLevelLength()) {
    // At the block's end: cut behind it.
    rest = mb->m_pNext;
    mb->m_pNext = nullptr;
  } else {
    // Inside the block: the duplicate keeps the bytes from the offset on.
    CCmMessageBlock* dup = mb->DuplicateTopLevel();
    if (!dup) return nullptr;
    dup->m_pReadPtr += offset;
    mb->m_pWritePtr = mb->m_pReadPtr + offset;
    dup->m_pNext = mb->m_pNext;
    mb->m_pNext = nullptr;
    rest = dup;
  }

  // The returned chain must consist of blocks that DestroyChained will free.
  CCmMessageBlock** link = &rest;
  while (*link) {
    CCmMessageBlock* cur = *link;
    if (CM_BIT_DISABLED(cur->m_Flag, DUPLICATED)) {
      CM_ERROR_TRACE_THIS(
          "CCmMessageBlock::Disjoint, there are not DUPLICATED blocks behind the "
          "disjointed block.");
      CCmMessageBlock* dup = cur->DuplicateTopLevel();
      if (!dup) {
        // Keep the chain well formed: give back what was built so far.
        *link = nullptr;
        if (rest) rest->DestroyChained();
        return nullptr;
      }
      // Only the returned chain is relinked: the original keeps its own successor, which
      // it may own (m_bRtpChainedFlag), so cutting it here would cut the caller's chain.
      dup->m_pNext = cur->m_pNext;
      *link = dup;
      cur = dup;
    }
    link = &cur->m_pNext;
  }
  return rest;
}

CCmMessageBlock* CCmMessageBlock::CombineSingleBuffer() {
  unsigned int total = GetChainedLength();
  if (GetTopLevelLength() >= total) return DuplicateChained();
  CCmMessageBlock combined(total);
  if (!combined.m_pDataBlock) return nullptr;
  for (const CCmMessageBlock* mb = this; mb; mb = mb->m_pNext) {
    unsigned int len = mb->GetTopLevelLength();
    if (len) combined.Write(mb->m_pReadPtr, len);
  }
  return combined.DuplicateTopLevel();
}

void CCmMessageBlock::DestroyChained() {
  CCmMessageBlock* mb = this;
  while (mb) {
    CCmMessageBlock* next = mb->m_pNext;
    if (CM_BIT_ENABLED(mb->m_Flag, DUPLICATED)) {
      if (mb->m_bRtpChainedFlag) mb->m_pNext = nullptr;
      delete mb;
    }
    mb = next;
  }
}

CCmMessageBlock* CCmMessageBlock::ReclaimGarbage() {
  if (m_bRtpChainedFlag) {
    CM_ERROR_TRACE_THIS(
        "CCmMessageBlock::ReclaimGarbage, this function should not be called when "
        "m_bRtpChainedFlag = "
        << m_bRtpChainedFlag);
    return nullptr;
  }
  CCmMessageBlock* mb = this;
  CCmMessageBlock* kept = nullptr;  // last empty block that is not ours to delete
  while (mb && mb->GetTopLevelLength() == 0) {
    CCmMessageBlock* next = mb->m_pNext;
    if (CM_BIT_ENABLED(mb->m_Flag, DUPLICATED)) {
      // A block skipped before must not keep pointing at the deleted one.
      if (kept) kept->m_pNext = next;
      mb->m_pNext = nullptr;
      delete mb;
    } else {
      kept = mb;
    }
    mb = next;
  }
  return mb;
}
