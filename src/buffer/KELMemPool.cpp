#include "buffer/KELMemPool.h"

#include <new>

#include "cmutil/base/CmAssert.h"
#include "cmutil/trace/CmTraceMacros.h"

namespace {

/// Buffers created at once at start-up (at most) and on every expansion.
const unsigned int kGrowStep = 10;

}  // namespace

KELMemFixSizePoolInternal::KELMemFixSizePoolInternal(unsigned int aItemSize, unsigned int aMaxItems)
    : m_dwMemSize(aItemSize), m_dwCurBlockSize(aMaxItems < kGrowStep ? aMaxItems : kGrowStep), m_dwMaxItems(aMaxItems) {
  CreateMemPool();
}

KELMemFixSizePoolInternal::~KELMemFixSizePoolInternal() { DestroyMemPool(); }

CmResult KELMemFixSizePoolInternal::CreateMemPool() {
  KELMemPoolGuard guard(m_Lock);
  CM_ASSERTE_RETURN(m_dwMemSize && m_dwCurBlockSize, CM_ERROR_INVALID_ARG);
  // Room for every buffer the pool may ever hold, so that Free never reallocates.
  m_FreeList.reserve(m_dwMaxItems < 4096 ? m_dwMaxItems : m_dwCurBlockSize);
  unsigned int made = 0;
  for (; made < m_dwCurBlockSize; ++made) {
    unsigned char* p = new (std::nothrow) unsigned char[m_dwMemSize];
    if (!p) break;
    m_FreeList.push_back(p);
  }
  m_dwCurBlockSize = made;
  return made ? CM_OK : CM_ERROR_OUT_OF_MEMORY;
}

CmResult KELMemFixSizePoolInternal::AddMemPoolItem(unsigned int dwItemNumber) {
  CM_ASSERTE_RETURN(dwItemNumber, CM_ERROR_INVALID_ARG);
  if (m_dwCurBlockSize >= m_dwMaxItems) return CM_ERROR_FAILURE;
  unsigned int room = m_dwMaxItems - m_dwCurBlockSize;
  unsigned int add = dwItemNumber < room ? dwItemNumber : room;
  unsigned int made = 0;
  for (; made < add; ++made) {
    unsigned char* p = new (std::nothrow) unsigned char[m_dwMemSize];
    if (!p) break;
    m_FreeList.push_back(p);
  }
  m_dwCurBlockSize += made;
  return made == add ? CM_OK : CM_ERROR_OUT_OF_MEMORY;
}

unsigned char* KELMemFixSizePoolInternal::Alloc(unsigned int aSize) {
  if (aSize > m_dwMemSize) return nullptr;
  KELMemPoolGuard guard(m_Lock);
  if (m_FreeList.empty()) {
    if (m_dwCurBlockSize >= m_dwMaxItems) return nullptr;
    AddMemPoolItem(kGrowStep);
    if (m_FreeList.empty()) {
      CM_DETAIL_TRACE("KEL_MEM_POOL fail expand, cur_size=" << m_dwCurBlockSize << ",max_size=" << m_dwMaxItems);
      return nullptr;
    }
  }
  unsigned char* pRet = m_FreeList.back();
  m_FreeList.pop_back();
  CM_DEBUG_TRACE("KEL_MEM_POOL Alloc, size_in_pool=" << static_cast<unsigned int>(m_FreeList.size()) << ",cur_size="
                                                     << m_dwCurBlockSize << ",pData=" << static_cast<void*>(pRet));
  CM_ASSERTE_RETURN(pRet, nullptr);
  return pRet;
}

CmResult KELMemFixSizePoolInternal::Free(unsigned char* pPointer) {
  // clang-format off
  CM_ASSERTE_RETURN(pPointer!=nullptr, CM_ERROR_NULL_POINTER);  // the trace reads "pPointer!=nullptr"
  // clang-format on
  KELMemPoolGuard guard(m_Lock);
  m_FreeList.push_back(pPointer);
  CM_DEBUG_TRACE("KEL_MEM_POOL Free, size_in_pool=" << static_cast<unsigned int>(m_FreeList.size()) << ",cur_size="
                                                    << m_dwCurBlockSize << ",pData=" << static_cast<void*>(pPointer));
  return CM_OK;
}

void KELMemFixSizePoolInternal::DestroyMemPool() {
  KELMemPoolGuard guard(m_Lock);
  for (unsigned char* p : m_FreeList) delete[] p;
  m_FreeList.clear();
  m_dwCurBlockSize = 0;
}

void KELMemFixSizePoolInternal::Cleanup() { DestroyMemPool(); }

unsigned int KELMemFixSizePoolInternal::GetCurBlockSize() {
  KELMemPoolGuard guard(m_Lock);
  return m_dwCurBlockSize;
}

unsigned int KELMemFixSizePoolInternal::GetFreeCount() {
  KELMemPoolGuard guard(m_Lock);
  return static_cast<unsigned int>(m_FreeList.size());
}

KELMemPool::KELMemPool(unsigned int aItemSize, unsigned int aMaxItems)
    : m_dwItemSize(aItemSize), m_dwMaxItems(aMaxItems), m_pPool(nullptr) {}

KELMemPool::~KELMemPool() { delete m_pPool; }

bool KELMemPool::Init() {
  if (m_pPool) return true;
  m_pPool = new (std::nothrow) KELMemFixSizePoolInternal(m_dwItemSize, m_dwMaxItems);
  return true;
}

bool KELMemPool::Clean() {
  if (!m_pPool) return false;
  m_pPool->DestroyMemPool();
  return true;
}

unsigned char* KELMemPool::New(unsigned int aSize) {
  if (!m_pPool) return nullptr;
  return m_pPool->Alloc(aSize);
}

void KELMemPool::Free(unsigned char* aData) {
  if (!aData || !m_pPool) return;
  m_pPool->Free(aData);
}

IKELMemPool* CreateKELMemPool(unsigned int aItemSize, unsigned int aMaxItems) {
  KELMemPool* pool = new (std::nothrow) KELMemPool(aItemSize, aMaxItems);
  if (pool) pool->AddRef();
  return pool;
}
