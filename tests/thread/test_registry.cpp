// Thread registry, ThreadWaiter, shared threads, the task-thread factory, singletons and
// the clean-up list.

// These tests lock recursively, lock in one helper and unlock in another, and call locks
// on destroyed objects on purpose; the static lock analysis cannot follow that.
#if defined(__clang__)
#pragma clang diagnostic ignored "-Wthread-safety-analysis"
#endif

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "cmutil/base/CmSingleton.h"
#include "cmutil/thread/CmThreadRegistry.h"
#include "cmutil/thread/CmThreadSingletonFactory.h"
#include "cmutil/thread/CmThreadTask.h"
#include "cmutil/thread/CmThreadWaiter.h"
#include "common/CmTraceCapture.h"

namespace {

ACmThread* StartRegistered(const char* name, int type) {
  CCmThreadTaskWithEventQueueOnly* task = new CCmThreadTaskWithEventQueueOnly;
  EXPECT_EQ(CM_OK, task->Create(name, type, TF_JOINABLE, true));
  return task;
}

// A trace sink that passes every line on to the capture and, when the clean-up list is
// traced, looks the registry up from another thread: the look-up gets through at once
// only if the registry mutex is not held then.
std::atomic<int> g_probeResult{0};  // 0 not run, 1 got through, 2 blocked
std::thread* g_probeThread = nullptr;

void ProbingSink(int level, const char* text, int len) {
  CmTraceCapture::sink(level, text, len);
  std::string line(text, static_cast<size_t>(len));
  if (line.find("CleanThreadList, list size=") == std::string::npos || g_probeThread) return;
  std::shared_ptr<ThreadWaiter> through = std::make_shared<ThreadWaiter>(1);
  g_probeThread = new std::thread([through] {
    GetThreadById(GetThreadSelfId());
    through->Finished();
  });
  g_probeResult = through->WaitUntilTimeout(2000) ? 1 : 2;
}

TEST(CmThreadRegistryTest, CleanThreadListTracesBeforeTakingTheMutexAndStopsEveryRegisteredThread) {
  CmTraceCapture cap;
  ACmThread* a = StartRegistered("reg-c1", 11);
  ACmThread* b = StartRegistered("reg-c2", 12);
  ACmThread* gone = StartRegistered("reg-c3", 13);
  EXPECT_EQ(gone, GetThread(13));
  gone->Stop(nullptr);
  EXPECT_EQ(CM_OK, gone->Join());
  gone->Destory(0);  // takes itself out of the registry
  EXPECT_EQ(nullptr, GetThread(13));
  set_util_external_trace_sink(&ProbingSink);
  TPCleanThreadList();
  set_util_external_trace_sink(&CmTraceCapture::sink);
  ASSERT_NE(nullptr, g_probeThread);
  g_probeThread->join();
  delete g_probeThread;
  g_probeThread = nullptr;
  EXPECT_EQ(1, g_probeResult.load());
  EXPECT_TRUE(cap.contains(2, "CleanThreadList, list size=2"));
  EXPECT_EQ(std::make_pair(CM_OK, CM_OK), std::make_pair(a->Join(), b->Join()));  // both loops end: they were stopped
  EXPECT_EQ(nullptr, GetThread(11));
  EXPECT_EQ(CM_ERROR_NOT_FOUND, UnRegisterThread(a));  // the clean-up took it out
  for (ACmThread* thread : {a, b}) thread->Destory(0);
}

TEST(ThreadWaiterTest, FinishesOnTheExpectedReportOnly) {
  ThreadWaiter waiter(3);
  waiter.Finished();
  waiter.Finished();
  EXPECT_FALSE(waiter.IsFinished());
  EXPECT_FALSE(waiter.WaitUntilTimeout(1));
  waiter.Finished();
  EXPECT_TRUE(waiter.IsFinished());
  waiter.Finished();
  EXPECT_TRUE(waiter.WaitUntilTimeout(0));
  waiter.WaitUntilFinished();

  waiter.Reset(1);
  EXPECT_FALSE(waiter.IsFinished());
  waiter.Finished();
  EXPECT_TRUE(waiter.IsFinished());
  ThreadWaiter anyOne(0);  // 0: the first report finishes
  anyOne.Finished();
  EXPECT_TRUE(anyOne.IsFinished());
}

TEST(ACmThreadSingletonFactoryTest, SharedThreadCreatedOnceAndStoppedOnLastRelease) {
  CmTraceCapture cap;
  ACmThreadSingletonFactory* factory = ACmThreadSingletonFactory::Instance();
  ACmThread *first = nullptr, *second = nullptr, *other = nullptr, *again = nullptr;
  ASSERT_EQ(CM_OK, factory->GetSingletonThread("shared-x", first));
  ASSERT_EQ(CM_OK, factory->GetSingletonThread("shared-x", second));
  ASSERT_NE(nullptr, first);
  EXPECT_EQ(first, second);
  EXPECT_NE(nullptr, first->GetTimerQueue());  // a task thread with timers
  EXPECT_TRUE(cap.contains(1, "thread type is TT_UNKNOWN"));

  // A release naming another thread changes nothing.
  ASSERT_EQ(CM_OK, factory->GetSingletonThread("shared-y", other));
  factory->ResleseSingletonThread("shared-x", other);
  factory->ResleseSingletonThread("no-such", first);

  factory->ResleseSingletonThread("shared-x", first);
  CCmTimeValue aMinute(60L, 0L);  // a timed send that is answered in time
  EXPECT_EQ(CM_OK, first->GetEventQueue()->SendEvent(CmNewInvokeEvent([] {}), &aMinute));  // still running
  EXPECT_TRUE(cap.contains(2, "ACmThreadSingletonFactory::ResleseSingletonThread, enter, pThreadName=shared-x"));

  cap.clear();
  factory->ResleseSingletonThread("shared-x", first);  // last user: stopped, joined, destroyed
  EXPECT_TRUE(cap.contains(2, "ACmThread::threadProc end, GetName()=shared-x"));
  EXPECT_TRUE(cap.contains(2, "ACmThreadSingletonFactory::ResleseSingletonThread, leave"));

  ASSERT_EQ(CM_OK, factory->GetSingletonThread("shared-x", again));
  factory->ResleseSingletonThread("shared-x", again);
  factory->ResleseSingletonThread("shared-y", other);
  EXPECT_EQ(CM_ERROR_INVALID_ARG, factory->GetSingletonThread(nullptr, again));
}

class CleanUpProbe : public CCmCleanUpBase {
 public:
  CleanUpProbe(std::vector<int>* order, int id) : m_order(order), m_id(id) {}
  ~CleanUpProbe() override { m_order->push_back(m_id); }

 private:
  std::vector<int>* m_order;
  int m_id;
};

struct CM_EXPORT SingletonPayload {
  SingletonPayload() { ++constructed; }
  ~SingletonPayload() { ++destroyed; }
  static std::atomic<int> constructed;
  static std::atomic<int> destroyed;
};
std::atomic<int> SingletonPayload::constructed{0};
std::atomic<int> SingletonPayload::destroyed{0};

// The singleton lives until the clean-up list is run, which then destroys its entries
// newest first and ends empty.
TEST(CCmSingletonTTest, OneInstanceAcrossThreadsUntilCleanupWhichRunsNewestFirst) {
  std::vector<SingletonPayload*> seen(8, nullptr);
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) threads.emplace_back([&, i] { seen[i] = CCmSingletonT<SingletonPayload>::Instance(); });
  for (auto& t : threads) t.join();
  for (SingletonPayload* p : seen) EXPECT_EQ(seen[0], p);
  EXPECT_NE(nullptr, seen[0]);
  EXPECT_EQ(1, SingletonPayload::constructed.load());
  CCmCleanUpBase::CleanupAll();
  EXPECT_EQ(1, SingletonPayload::destroyed.load());
  EXPECT_NE(nullptr, CCmSingletonT<SingletonPayload>::Instance());  // created afresh
  EXPECT_EQ(2, SingletonPayload::constructed.load());
  CCmCleanUpBase::CleanupAll();  // the list is empty from here
  std::vector<int> order;
  for (int id = 1; id <= 3; ++id) new CleanUpProbe(&order, id);
  CCmCleanUpBase::CleanupAll();
  EXPECT_EQ((std::vector<int>{3, 2, 1}), order);
  CCmCleanUpBase::CleanupAll();  // the list ended empty
  EXPECT_EQ(3u, order.size());
}

// Sanitizer allocators (g++ and clang spell their presence differently) abort on
// impossible sizes instead of failing.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define CM_TEST_SANITIZED_ALLOCATOR 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define CM_TEST_SANITIZED_ALLOCATOR 1
#endif
#endif

// Larger than any address space: the singleton cannot be allocated.
struct CM_EXPORT UnallocatablePayload {
  char bytes[1ULL << 52];
};

TEST(CCmSingletonTTest, AllocationFailureReportsAssertionAndYieldsNull) {
#if defined(CM_TEST_SANITIZED_ALLOCATOR)
  GTEST_SKIP() << "sanitizer allocators abort on impossible sizes instead of failing";
#else
  CmTraceCapture cap;
  int64_t before = cm_get_assertions_count();
  EXPECT_EQ(nullptr, CCmSingletonT<UnallocatablePayload>::Instance());
  EXPECT_EQ(before + 1, cm_get_assertions_count());
  EXPECT_TRUE(cap.contains(0, "Assert failed: m_psInstance"));
#endif
}

}  // namespace
