#pragma once
// Recycling allocator for small events. Events are typically allocated on a posting
// thread and freed on the loop thread; glibc's per-thread caches do not help that
// pattern. Freed blocks are collected per thread and handed back in batches through a
// shared depot, so both sides mostly touch their own thread-local lists. After a burst
// the depot keeps up to 262,144 blocks per size class (8 MiB for the smallest class) for
// reuse; blocks beyond that go back to the heap.

#include <cstddef>

#include "cmutil/base/CmExport.h"

// A block of at least aSize bytes (never null; falls back to the heap).
CM_EXPORT void* cm_event_alloc(size_t aSize);
// Returns a block from cm_event_alloc; aSize must be the size it was asked for.
CM_EXPORT void cm_event_free(void* aBlock, size_t aSize);
// Blocks of 16-byte alignment (what malloc gives); over-aligned events do not come here.

// Test-only: the number of blocks the calling thread holds in its cache, or -1 when the
// pool is compiled out (sanitizer builds).
CM_EXPORT long cm_event_cached_blocks_for_test();
