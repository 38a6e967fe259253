#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <set>
#include <thread>
#include <utility>
#include <vector>

#include "buffer/KELMemPool.h"
#include "cmutil/buffer/CmMemoryPool.h"
#include "common/CmTraceCapture.h"

namespace {

/// Owns one reference of an initialised pool for the test's lifetime.
struct Pool {
  IKELMemPool* p;
  Pool(unsigned int size, unsigned int max) : p(CreateKELMemPool(size, max)) { p->Init(); }
  ~Pool() { p->Release(); }
  KELMemFixSizePoolInternal* internal() const { return static_cast<KELMemPool*>(p)->GetInternal(); }
  std::pair<unsigned, unsigned> sizes() const { return {internal()->GetCurBlockSize(), internal()->GetFreeCount()}; }
};

// A pool of at most 10 buffers is created whole; a larger one starts with 10 and grows by
// 10 up to its maximum. Running out is no fault: nothing is traced.
TEST(MemoryPool, GrowsByTenUpToTheMaximumAndExhaustsSilently) {
  CmTraceCapture cap;
  for (unsigned int max : {5u, 25u}) {
    Pool pool(1024, max);
    EXPECT_EQ(std::make_pair(std::min(max, 10u), std::min(max, 10u)), pool.sizes()) << max;
    std::vector<unsigned char*> got;
    for (unsigned int i = 1; i <= max; ++i) {  // 25 grows only on the 11th and the 21st
      got.push_back(pool.p->New(i % 2 ? 1024 : 1));
      ASSERT_NE(nullptr, got.back());
      memset(got.back(), static_cast<int>(i), 1024);  // the whole item is usable
      EXPECT_EQ(std::min(max, (i + 9) / 10 * 10), pool.internal()->GetCurBlockSize()) << i;
    }
    EXPECT_EQ(max, std::set<unsigned char*>(got.begin(), got.end()).size());
    cap.clear();
    EXPECT_EQ(nullptr, pool.p->New(1024));
    pool.p->Free(nullptr);  // handing back what the failed New gave is no fault either
    EXPECT_TRUE(cap.lines().empty());
    EXPECT_EQ(max, pool.internal()->GetCurBlockSize());
    for (unsigned char* b : got) pool.p->Free(b);
    EXPECT_EQ(max, pool.internal()->GetFreeCount());
  }
}

TEST(MemoryPool, CleanFreesFreeBuffersAndGrowsAgainFromNothing) {
  Pool pool(256, 30);
  unsigned char* out = pool.p->New(256);
  EXPECT_TRUE(pool.p->Clean());
  EXPECT_EQ(std::make_pair(0u, 0u), pool.sizes());
  pool.p->Free(out);  // a buffer that was out joins the list again
  EXPECT_EQ(1u, pool.internal()->GetFreeCount());
  unsigned char* again = pool.p->New(256);
  EXPECT_EQ(out, again);
  unsigned char* grown = pool.p->New(256);  // empty list: grows by 10
  ASSERT_NE(nullptr, grown);
  EXPECT_EQ(10u, pool.internal()->GetCurBlockSize());
  pool.p->Free(again);
  pool.p->Free(grown);
}

TEST(MemoryPool, ConcurrentNewFreeKeepsEveryBuffer) {
  Pool pool(64, 40);
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&pool, &failures, t] {
      for (int i = 0; i < 2000; ++i) {
        unsigned char* held[8];
        int n = 0;
        for (; n < 8; ++n) {
          held[n] = pool.p->New(64);
          if (!held[n]) break;
          held[n][0] = static_cast<unsigned char>(t);
        }
        for (int k = 0; k < n; ++k) {
          if (held[k][0] != static_cast<unsigned char>(t)) ++failures;  // shared by two owners
          pool.p->Free(held[k]);
        }
      }
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(0, failures.load());
  EXPECT_LE(pool.internal()->GetCurBlockSize(), 40u);
  EXPECT_EQ(pool.internal()->GetCurBlockSize(), pool.internal()->GetFreeCount());
}

TEST(MemoryPool, BuffersFreedOnOneThreadServeAnotherAtTheMaximum) {
  Pool pool(64, 100);
  std::thread([&pool] {  // more than a thread keeps to itself: part goes back to the shared list
    std::vector<unsigned char*> got;
    for (int i = 0; i < 100; ++i) got.push_back(pool.p->New(64));
    for (unsigned char* b : got) pool.p->Free(b);
  })
      .join();
  EXPECT_EQ(100u, pool.internal()->GetFreeCount());
  std::set<unsigned char*> got;
  std::thread([&] {  // the next thread has the next shard: it must take the first one's
    for (int i = 0; i < 100; ++i) got.insert(pool.p->New(64));
    got.erase(nullptr);
    EXPECT_EQ(nullptr, pool.p->New(64));
  })
      .join();
  EXPECT_EQ(std::make_pair(size_t{100}, 100u), std::make_pair(got.size(), pool.internal()->GetCurBlockSize()));
  for (unsigned char* b : got) pool.p->Free(b);
  pool.p->Clean();  // frees what the threads keep too (the leak check sees the rest)
  EXPECT_EQ(0u, pool.internal()->GetFreeCount());
}

TEST(MemoryPool, LockExcludesAndWakesParkedWaiters) {
  KELMemPoolLock lock;
  long counter = 0;  // plain: only the lock orders the threads (TSan checks)
  lock.Lock();
  std::atomic<int> started{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 3; ++t) {
    threads.emplace_back([&] {
      started.fetch_add(1);
      for (int i = 0; i < 20000; ++i) {
        KELMemPoolGuard guard(lock);
        ++counter;
      }
    });
  }
  while (started.load() < 3) std::this_thread::yield();
  counter = -1;  // still held: nobody has counted yet
  lock.UnLock();
  for (auto& th : threads) th.join();
  KELMemPoolGuard guard(lock);
  EXPECT_EQ(3 * 20000 - 1, counter);
}

}  // namespace
