#include "buffer/KELMemPool.h"

#include <cstring>
#include <new>

#include "cmutil/base/CmAssert.h"
#include "cmutil/trace/CmTraceMacros.h"
#include "platform/CmPlatform.h"

namespace {

/// Buffers created at once at start-up (at most) and on every expansion.
const unsigned int kGrowStep = 10;
/// Buffers a thread moves from the shared list into its shard at a time.
const unsigned int kRefillBatch = KELMemPoolShard::kCapacity / 2;
/// Rounds an exhausted pool looks again at shards whose holders were busy with them.
const int kStealRounds = 3;
/// How long a thread emptying a shard sleeps before it looks again.
const long long kShardWaitNs = 50 * 1000;

/// The calling thread's slot, numbered from 1 on first use; it picks the thread's shard
/// in every pool. Initial-exec: one load, no call, on the hot path.
__thread unsigned int t_dwPoolSlot __attribute__((tls_model("initial-exec"))) = 0;
std::atomic<unsigned int> g_dwNextPoolSlot{0};

bool TryTake(KELMemPoolShard& aShard) { return aShard.m_Taken.exchange(1, std::memory_order_acquire) == 0; }

void Give(KELMemPoolShard& aShard) { aShard.m_Taken.store(0, std::memory_order_release); }

/// Takes a shard for emptying, sleeping while its holder is busy (never spinning).
void TakeWaiting(KELMemPoolShard& aShard) {
  while (!TryTake(aShard)) cm_platform_futex_wait(&aShard.m_Taken, 1, kShardWaitNs);
}

unsigned int CountOf(const KELMemPoolShard& aShard) { return aShard.m_Count.load(std::memory_order_relaxed); }

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

KELMemPoolShard& KELMemFixSizePoolInternal::MyShard() {
  unsigned int slot = t_dwPoolSlot;
  if (!slot) slot = t_dwPoolSlot = g_dwNextPoolSlot.fetch_add(1, std::memory_order_relaxed) + 1;
  return m_Shards[slot % kShardCount];
}

unsigned char* KELMemFixSizePoolInternal::Alloc(unsigned int aSize) {
  if (aSize > m_dwMemSize) return nullptr;
  KELMemPoolShard& shard = MyShard();
  unsigned char* pRet;
  if (TryTake(shard)) {
    unsigned int count = CountOf(shard);
    if (count) {
      pRet = shard.m_Items[count - 1];
      shard.m_Count.store(count - 1, std::memory_order_relaxed);
    } else {
      pRet = RefillAndPop(shard);
    }
    Give(shard);
  } else {
    pRet = AllocShared();
  }
  if (pRet) TraceHandOver("Alloc", pRet);
  return pRet;
}

unsigned char* KELMemFixSizePoolInternal::AllocShared() {
  KELMemPoolGuard guard(m_Lock);
  bool holderBusy = false;
  if (m_FreeList.empty() && !RefillSharedList(holderBusy)) return nullptr;
  unsigned char* pRet = m_FreeList.back();
  m_FreeList.pop_back();
  return pRet;
}

unsigned char* KELMemFixSizePoolInternal::RefillAndPop(KELMemPoolShard& aShard) {
  for (int round = 1;; ++round) {
    {
      KELMemPoolGuard guard(m_Lock);
      bool holderBusy = false;
      if (!m_FreeList.empty() || RefillSharedList(holderBusy)) return MoveBatchAndPop(aShard);
      if (!holderBusy || round == kStealRounds) return nullptr;
    }
    // A shard's holder gives it back within a few instructions: look again before calling
    // the pool exhausted, after letting that holder run.
    cm_platform_yield();
  }
}

unsigned char* KELMemFixSizePoolInternal::MoveBatchAndPop(KELMemPoolShard& aShard) {
  size_t n = m_FreeList.size() < kRefillBatch ? m_FreeList.size() : kRefillBatch;
  // The list's top stays on top: the most recently freed buffer is handed out first.
  memcpy(aShard.m_Items, m_FreeList.data() + m_FreeList.size() - n, n * sizeof(unsigned char*));
  m_FreeList.resize(m_FreeList.size() - n);
  aShard.m_Count.store(static_cast<uint32_t>(n - 1), std::memory_order_relaxed);
  return aShard.m_Items[n - 1];
}

bool KELMemFixSizePoolInternal::RefillSharedList(bool& aHolderBusy) {
  aHolderBusy = StealFromShards();
  if (!m_FreeList.empty()) return true;
  if (m_dwCurBlockSize >= m_dwMaxItems) return false;
  AddMemPoolItem(kGrowStep);
  if (m_FreeList.empty()) {
    CM_DETAIL_TRACE("KEL_MEM_POOL fail expand, cur_size=" << m_dwCurBlockSize << ",max_size=" << m_dwMaxItems);
    return false;
  }
  return true;
}

bool KELMemFixSizePoolInternal::StealFromShards() {
  bool holderBusy = false;
  for (KELMemPoolShard& shard : m_Shards) {
    if (!CountOf(shard)) continue;
    if (!TryTake(shard)) {
      holderBusy = true;
      continue;
    }
    unsigned int count = CountOf(shard);
    m_FreeList.insert(m_FreeList.end(), shard.m_Items, shard.m_Items + count);
    shard.m_Count.store(0, std::memory_order_relaxed);
    Give(shard);
  }
  return holderBusy;
}

CmResult KELMemFixSizePoolInternal::Free(unsigned char* pPointer) {
  // clang-format off
  CM_ASSERTE_RETURN(pPointer!=nullptr, CM_ERROR_NULL_POINTER);  // the trace reads "pPointer!=nullptr"
  // clang-format on
  KELMemPoolShard& shard = MyShard();
  if (TryTake(shard)) {
    if (CountOf(shard) == KELMemPoolShard::kCapacity) SpillHalf(shard);
    unsigned int count = CountOf(shard);
    shard.m_Items[count] = pPointer;
    shard.m_Count.store(count + 1, std::memory_order_relaxed);
    Give(shard);
  } else {
    FreeShared(pPointer);
  }
  TraceHandOver("Free", pPointer);
  return CM_OK;
}

void KELMemFixSizePoolInternal::FreeShared(unsigned char* pPointer) {
  KELMemPoolGuard guard(m_Lock);
  m_FreeList.push_back(pPointer);
}

void KELMemFixSizePoolInternal::SpillHalf(KELMemPoolShard& aShard) {
  const unsigned int half = KELMemPoolShard::kCapacity / 2;
  {
    KELMemPoolGuard guard(m_Lock);
    m_FreeList.insert(m_FreeList.end(), aShard.m_Items, aShard.m_Items + half);
  }
  memmove(aShard.m_Items, aShard.m_Items + half, (KELMemPoolShard::kCapacity - half) * sizeof(unsigned char*));
  aShard.m_Count.store(KELMemPoolShard::kCapacity - half, std::memory_order_relaxed);
}

void KELMemFixSizePoolInternal::FormatHandOver(const char* aWhat, unsigned char* pData) {
  CM_TRACE_AT(kHandOverTraceLevel, "KEL_MEM_POOL " << aWhat << ", size_in_pool=" << GetFreeCount() << ",cur_size="
                                                   << GetCurBlockSize() << ",pData=" << static_cast<void*>(pData));
}

void KELMemFixSizePoolInternal::DestroyMemPool() {
  for (KELMemPoolShard& shard : m_Shards) {
    TakeWaiting(shard);
    for (unsigned int i = 0; i < CountOf(shard); ++i) delete[] shard.m_Items[i];
    shard.m_Count.store(0, std::memory_order_relaxed);
    Give(shard);
  }
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
  unsigned int inShards = 0;
  for (const KELMemPoolShard& shard : m_Shards) inShards += CountOf(shard);
  KELMemPoolGuard guard(m_Lock);
  return static_cast<unsigned int>(m_FreeList.size()) + inShards;
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
