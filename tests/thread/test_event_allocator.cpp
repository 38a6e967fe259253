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

// An event of N payload words, so that every size class (and the heap beyond the
// largest one) is used. Checks its payload when fired, to catch a block handed out twice.
template <int N>
class SizedEvent : public ICmEvent {
 public:
  SizedEvent(std::atomic<long>* fired, std::atomic<long>* corrupt, long seed) : m_fired(fired), m_corrupt(corrupt) {
    for (int i = 0; i < N; ++i) m_words[i] = seed + i;
  }
  CmResult OnEventFire() override {
    for (int i = 1; i < N; ++i) {
      if (m_words[i] != m_words[0] + i) ++*m_corrupt;
    }
    ++*m_fired;
    return CM_OK;
  }

 private:
  std::atomic<long>* m_fired;
  std::atomic<long>* m_corrupt;
  long m_words[N];
};

ICmEvent* MakeEvent(int kind, std::atomic<long>* fired, std::atomic<long>* corrupt, long seed) {
  switch (kind % 5) {
    case 0:
      return new SizedEvent<1>(fired, corrupt, seed);  // 32-byte class
    case 1:
      return new SizedEvent<5>(fired, corrupt, seed);  // 64-byte class
    case 2:
      return new SizedEvent<9>(fired, corrupt, seed);  // 96-byte class
    case 3:
      return new SizedEvent<13>(fired, corrupt, seed);  // 128-byte class
    default:
      return new SizedEvent<40>(fired, corrupt, seed);  // beyond the classes: the heap
  }
}

TEST(CmEventAllocatorTest, ProducersOfEverySizeClassExitingWithCachedBlocks) {
  const int kRounds = 6;
  const int kProducers = 4;
  const int kEach = 5000;
  std::atomic<long> fired{0};
  std::atomic<long> corrupt{0};
  CCmThreadTaskWithEventQueueOnly* task = new CCmThreadTaskWithEventQueueOnly;
  ASSERT_EQ(CM_OK, task->Create("t-alloc", 1, TF_JOINABLE, false));
  for (int round = 0; round < kRounds; ++round) {
    std::vector<std::thread> producers;
    for (int p = 0; p < kProducers; ++p) {
      producers.emplace_back([&, p, round] {
        for (int i = 0; i < kEach; ++i) {
          long seed = (static_cast<long>(round) * kProducers + p) * kEach + i;
          ASSERT_EQ(CM_OK, task->GetEventQueue()->PostEvent(MakeEvent(i + p, &fired, &corrupt, seed)));
          // Some events are made and destroyed here, so that the producer ends with
          // blocks of its own in its cache.
          if (i % 7 == 0) MakeEvent(i, &fired, &corrupt, seed)->OnDestorySelf();
        }
        for (int k = 0; k < 5; ++k) MakeEvent(k, &fired, &corrupt, k)->OnDestorySelf();
        if (cm_event_cached_blocks_for_test() >= 0) {
          EXPECT_GT(cm_event_cached_blocks_for_test(), 0);
        }
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
  EXPECT_EQ(static_cast<long>(kRounds) * kProducers * kEach, fired.load());
  EXPECT_EQ(0, corrupt.load());
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
  ICmEvent* warmUp = CmNewInvokeEvent([] {});
  warmUp->OnDestorySelf();
  ASSERT_EQ(0, pthread_key_create(&g_lateKey, &LateExitCallback));
  std::thread t([] {
    ICmEvent* first = CmNewInvokeEvent([] {});  // the thread's cache is in use
    first->OnDestorySelf();
    pthread_setspecific(g_lateKey, CmNewInvokeEvent([] {}));
  });
  t.join();
  pthread_key_delete(g_lateKey);
  EXPECT_EQ(0, g_cachedAfterLateFree.load());
}

}  // namespace
