// The recycling memory of events, exercised in the build where it is compiled in (the
// sanitizer builds use the heap directly, and these tests then check only the events).

#include <gtest/gtest.h>

#include <pthread.h>

#include <atomic>
#include <thread>
#include <vector>

#include "ThreadTestSupport.h"
#include "cmutil/thread/CmThreadTask.h"
#include "cmutil/thread/CmThreadWaiter.h"
#include "thread/CmEventAllocator.h"

namespace {

const unsigned int kWaitMs = 20000;

std::atomic<long> g_fired{0};
std::atomic<long> g_corrupt{0};

// An event of N payload words beyond the base event, so that every size class (and the
// heap beyond the largest one) is used. Checks its payload when fired, to catch a block
// handed out twice. The counters are global: the smallest class has no room for fields.
template <int N>
class SizedEvent : public ICmEvent {
 public:
  explicit SizedEvent(long seed) {
    for (int i = 0; i < N; ++i) m_words[i] = seed + i;
  }
  CmResult OnEventFire() override {
    for (int i = 1; i < N; ++i) g_corrupt += m_words[i] != m_words[0] + i;
    ++g_fired;
    return CM_OK;
  }

 private:
  long m_words[N];
};

class BareEvent : public ICmEvent {
 public:
  CmResult OnEventFire() override {
    ++g_fired;
    return CM_OK;
  }
};

static_assert(sizeof(BareEvent) == 32 && sizeof(SizedEvent<4>) == 64 && sizeof(SizedEvent<12>) == 128,
              "one event kind per size class");

ICmEvent* MakeEvent(int kind, long seed) {
  if (kind % 5 == 0) return new BareEvent;
  if (kind % 5 == 1) return new SizedEvent<4>(seed);
  if (kind % 5 == 2) return new SizedEvent<8>(seed);
  if (kind % 5 == 3) return new SizedEvent<12>(seed);
  return new SizedEvent<40>(seed);  // beyond the classes: the heap
}

TEST(CmEventAllocatorTest, ProducersOfEverySizeClassExitingWithCachedBlocks) {
  const int kRounds = 6, kProducers = 4, kEach = 5000;
  g_fired = g_corrupt = 0;
  CCmThreadTaskWithEventQueueOnly* task = new CCmThreadTaskWithEventQueueOnly;
  ASSERT_EQ(CM_OK, task->Create("t-alloc", 1, TF_JOINABLE, false));
  for (int round = 0; round < kRounds; ++round) {
    std::vector<std::thread> producers;
    for (int p = 0; p < kProducers; ++p) {
      producers.emplace_back([&, p, round] {
        for (int i = 0; i < kEach; ++i) {
          long seed = (static_cast<long>(round) * kProducers + p) * kEach + i;
          ASSERT_EQ(CM_OK, task->GetEventQueue()->PostEvent(MakeEvent(i + p, seed)));
          // Some events are made and destroyed here, so that the producer ends with
          // blocks of its own in its cache.
          if (i % 7 == 0) MakeEvent(i, seed)->OnDestorySelf();
        }
        for (int k = 0; k < 5; ++k) MakeEvent(k, k)->OnDestorySelf();
        EXPECT_NE(0, cm_event_cached_blocks_for_test());  // -1: no cache in this build
      });
    }
    for (auto& t : producers) t.join();  // the producers exit holding cached blocks
  }
  ThreadWaiter drained(1);
  task->GetEventQueue()->PostEvent(CmNewInvokeEvent([&drained] { drained.Finished(); }));
  ASSERT_TRUE(drained.WaitUntilTimeout(kWaitMs));
  task->Stop(nullptr);
  task->Join();
  task->Destory(0);
  EXPECT_EQ(static_cast<long>(kRounds) * kProducers * kEach, g_fired.load());
  EXPECT_EQ(0, g_corrupt.load());
}

// A thread-exit callback that runs after the event memory released the thread's cache
// and then destroys an event: the block must go back to the heap, not into a cache that
// nothing will free any more.
pthread_key_t g_lateKey;
std::atomic<long> g_cachedAfterLateFree{-2};

void LateExitCallback(void* aEvent) {
  static_cast<ICmEvent*>(aEvent)->OnDestorySelf();
  g_cachedAfterLateFree = cm_event_cached_blocks_for_test();
}

TEST(CmEventAllocatorTest, EventFreedAfterTheThreadCacheWasReleasedIsNotKept) {
  if (cm_event_cached_blocks_for_test() < 0) GTEST_SKIP() << "event memory is the plain heap in this build";
  // The cache's own exit callback is registered on first use, so its key is older (and
  // its callback runs earlier) than the one created here.
  CmNewInvokeEvent([] {})->OnDestorySelf();
  ASSERT_EQ(0, pthread_key_create(&g_lateKey, &LateExitCallback));
  std::thread t([] {
    for (int kind = 0; kind < 4; ++kind) MakeEvent(kind, kind)->OnDestorySelf();  // a block of every class
    pthread_setspecific(g_lateKey, CmNewInvokeEvent([] {}));
  });
  t.join();
  pthread_key_delete(g_lateKey);
  EXPECT_EQ(0, g_cachedAfterLateFree.load());
}

}  // namespace
