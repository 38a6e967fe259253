// Recycling allocator for small events: thread-local free lists plus a shared depot of
// full batches.

#include "thread/CmEventAllocator.h"

#include <pthread.h>

#include <cstdlib>
#include <mutex>
#include <new>
#include <vector>

#include "cmutil/base/CmAssert.h"
#include "cmutil/thread/CmEventQueueBase.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define CM_EVENT_POOL_DISABLED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define CM_EVENT_POOL_DISABLED 1
#endif
#endif

#if defined(CM_EVENT_POOL_DISABLED)

// Sanitizer builds use the heap directly, so that use-after-free of events is caught.
void* cm_event_alloc(size_t aSize) {
  void* p = std::malloc(aSize);
  CM_ASSERTE(p);  // out of memory: the new-expression yields null
  return p;
}

void cm_event_free(void* aBlock, size_t) { std::free(aBlock); }

long cm_event_cached_blocks_for_test() { return -1; }

#else

namespace {

const size_t kGranule = 32;
const int kClasses = 4;                // 32, 64, 96 and 128 bytes
const unsigned int kBatch = 64;        // blocks moved to or from the depot at once
const size_t kMaxDepotBatches = 4096;  // per class (262,144 blocks); beyond that blocks go back to the heap

struct FreeBlock {
  FreeBlock* next;
};

struct Depot {
  std::mutex mutex;
  std::vector<FreeBlock*> batches[kClasses];
};

Depot& TheDepot() {
  static Depot* s_depot = new Depot;  // never destroyed: threads may exit late
  return *s_depot;
}

void FreeChain(FreeBlock* b) {
  while (b) {
    FreeBlock* next = b->next;
    std::free(b);
    b = next;
  }
}

// Life of a thread's cache: unused, in use (the thread-exit callback is registered), or
// released (the callback has run; the thread is ending).
enum CacheState : unsigned char { kCacheUnused = 0, kCacheActive = 1, kCacheReleased = 2 };

// Plain data, so that reaching it costs no initialisation check; the blocks a thread
// still holds when it ends are freed by a thread-exit callback registered on first use.
struct ThreadCache {
  FreeBlock* alloc[kClasses];
  FreeBlock* freed[kClasses];
  unsigned int freedCount[kClasses];
  CacheState state;
};

// Initial-exec: the library is linked at start-up, and this avoids a lookup per call.
__attribute__((tls_model("initial-exec"))) __thread ThreadCache t_cache;

void ReleaseThreadCache(void* aCache) {
  ThreadCache* cache = static_cast<ThreadCache*>(aCache);
  for (int c = 0; c < kClasses; ++c) {
    FreeChain(cache->alloc[c]);
    FreeChain(cache->freed[c]);
    cache->alloc[c] = nullptr;
    cache->freed[c] = nullptr;
    cache->freedCount[c] = 0;
  }
  // Events may still be made or destroyed later in the thread's exit (by other
  // thread-exit callbacks): from now on they bypass the cache and use the heap directly,
  // since nothing would free blocks cached from here on.
  cache->state = kCacheReleased;
}

pthread_key_t CacheKey() {
  static pthread_key_t s_key = [] {
    pthread_key_t key;
    pthread_key_create(&key, &ReleaseThreadCache);
    return key;
  }();
  return s_key;
}

// The calling thread's cache, or null once its exit callback has run.
ThreadCache* Cache() {
  ThreadCache& cache = t_cache;
  if (__builtin_expect(cache.state != kCacheActive, 0)) {
    if (cache.state == kCacheReleased) return nullptr;
    cache.state = kCacheActive;
    pthread_setspecific(CacheKey(), &cache);
  }
  return &cache;
}

int ClassOf(size_t aSize) {
  if (aSize == 0 || aSize > kGranule * kClasses) return -1;
  return static_cast<int>((aSize - 1) / kGranule);
}

}  // namespace

void* cm_event_alloc(size_t aSize) {
  int c = ClassOf(aSize);
  ThreadCache* pCache = c >= 0 ? Cache() : nullptr;
  if (pCache) {
    ThreadCache& cache = *pCache;
    FreeBlock* b = cache.alloc[c];
    if (!b && cache.freed[c]) {
      cache.alloc[c] = cache.freed[c];
      cache.freed[c] = nullptr;
      cache.freedCount[c] = 0;
      b = cache.alloc[c];
    }
    if (!b) {
      Depot& depot = TheDepot();
      std::lock_guard<std::mutex> lock(depot.mutex);
      if (!depot.batches[c].empty()) {
        b = depot.batches[c].back();
        depot.batches[c].pop_back();
        cache.alloc[c] = b;
      }
    }
    if (b) {
      FreeBlock* next = b->next;
      cache.alloc[c] = next;
      // Recycled blocks were last written by the thread that freed them: start fetching
      // the next one now, so that the next allocation does not wait for it.
      if (next) __builtin_prefetch(next, 1);
      return b;
    }
  }
  if (c >= 0) aSize = kGranule * static_cast<size_t>(c + 1);
  void* p = std::malloc(aSize);
  CM_ASSERTE(p);  // out of memory: the new-expression yields null
  return p;
}

void cm_event_free(void* aBlock, size_t aSize) {
  if (!aBlock) return;
  int c = ClassOf(aSize);
  ThreadCache* pCache = c >= 0 ? Cache() : nullptr;
  if (!pCache) {
    std::free(aBlock);
    return;
  }
  ThreadCache& cache = *pCache;
  FreeBlock* b = static_cast<FreeBlock*>(aBlock);
  b->next = cache.freed[c];
  cache.freed[c] = b;
  if (++cache.freedCount[c] < kBatch) return;
  FreeBlock* batch = cache.freed[c];
  cache.freed[c] = nullptr;
  cache.freedCount[c] = 0;
  {
    Depot& depot = TheDepot();
    std::lock_guard<std::mutex> lock(depot.mutex);
    if (depot.batches[c].size() < kMaxDepotBatches) {
      depot.batches[c].push_back(batch);
      return;
    }
  }
  FreeChain(batch);
}

long cm_event_cached_blocks_for_test() {
  ThreadCache& cache = t_cache;
  long n = 0;
  for (int c = 0; c < kClasses; ++c) {
    for (FreeBlock* b = cache.alloc[c]; b; b = b->next) ++n;
    for (FreeBlock* b = cache.freed[c]; b; b = b->next) ++n;
  }
  return n;
}

#endif

// ---- the event classes' allocation functions ----

void* ICmEvent::operator new(size_t aSize) noexcept { return cm_event_alloc(aSize); }

void ICmEvent::operator delete(void* aBlock, size_t aSize) { cm_event_free(aBlock, aSize); }

void* ICmEvent::operator new(size_t aSize, const std::nothrow_t&) noexcept { return cm_event_alloc(aSize); }

// Only reached when a nothrow construction throws; the size is not known here, so the
// block goes back to the heap (cm_event_alloc blocks are plain heap blocks too).
void ICmEvent::operator delete(void* aBlock, const std::nothrow_t&) noexcept { std::free(aBlock); }

void* ICmEvent::operator new(size_t aSize, std::align_val_t aAlign) noexcept {
  void* p = ::operator new(aSize, aAlign, std::nothrow);
  CM_ASSERTE(p);  // out of memory: the new-expression yields null
  return p;
}

// The unsized form: sized deallocation is not declared by every compiler mode.
void ICmEvent::operator delete(void* aBlock, size_t, std::align_val_t aAlign) noexcept {
  ::operator delete(aBlock, aAlign);
}

void* ICmEvent::operator new(size_t aSize, std::align_val_t aAlign, const std::nothrow_t&) noexcept {
  return ::operator new(aSize, aAlign, std::nothrow);
}

void ICmEvent::operator delete(void* aBlock, std::align_val_t aAlign, const std::nothrow_t&) noexcept {
  ::operator delete(aBlock, aAlign);
}
