// Locks, semaphores, condition variables, events and the stop flag.

// These tests lock recursively, lock in one helper and unlock in another, and call locks
// on destroyed objects on purpose; the static lock analysis cannot follow that.
#if defined(__clang__)
#pragma clang diagnostic ignored "-Wthread-safety-analysis"
#endif

#include <gtest/gtest.h>
#include <malloc.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <fstream>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "cmutil/base/CmMutex.h"
#include "cmutil/base/CmReferenceControl.h"
#include "cmutil/base/CmThreadMisc.h"
#include "cmutil/thread/CmConditionVariable.h"
#include "cmutil/thread/CmSemaphore.h"
#include "cmutil/thread/CmThreadSingletonFactory.h"
#include "common/CmTraceCapture.h"

namespace {

// Runs the mutex in raw storage so that its operations can be called after the
// destructor without touching freed memory.
template <class M>
struct DestroyedMutex {
  alignas(M) unsigned char storage[sizeof(M)];
  M* mutex;
  DestroyedMutex() : mutex(new (storage) M) { mutex->~M(); }
};

// Calls on a destroyed object are the subject of the test, so the sanitizer's type check
// is left out of these helpers.
__attribute__((no_sanitize("vptr"))) CmResult LockDead(CCmMutexThreadBase* m) { return m->Lock(); }
__attribute__((no_sanitize("vptr"))) CmResult UnLockDead(CCmMutexThreadBase* m) { return m->UnLock(); }
__attribute__((no_sanitize("vptr"))) CmResult TryLockDead(CCmMutexThreadBase* m) { return m->TryLock(); }

TEST(CmMutexTest, OperationsAfterDestructionFailWithTrace) {
  CmTraceCapture cap;
  DestroyedMutex<CCmMutexThread> dead;
  EXPECT_EQ(std::vector<CmResult>(3, CM_ERROR_FAILURE),
            (std::vector<CmResult>{LockDead(dead.mutex), UnLockDead(dead.mutex), TryLockDead(dead.mutex)}));
  for (const std::string op : {"Lock", "UnLock", "TryLock"})
    EXPECT_TRUE(cap.contains(0, "CCmMutexThreadBase::" + op + "() object instances already released [this=0x")) << op;
}

TEST(CmMutexTest, GuardExcludesOtherThreads) {
  CCmMutexThread mutex;
  long counter = 0;
  auto work = [&] {
    for (int i = 0; i < 20000; ++i) {
      CCmMutexGuardT<CCmMutexThread> guard(mutex);
      ++counter;
    }
  };
  std::thread a(work), b(work);
  a.join();
  b.join();
  EXPECT_EQ(40000, counter);
}

TEST(CmSemaphoreTest, PostNCountsAndIgnoresNonPositive) {
  CCmSemaphore sem(1, "s", 10);  // one to take at once, one posted below
  EXPECT_EQ(std::vector<CmResult>(3, CM_OK), (std::vector<CmResult>{sem.PostN(0), sem.PostN(-3), sem.PostN(1)}));
  errno = EINVAL;  // left over from an earlier call: the wait itself succeeds
  EXPECT_EQ(std::vector<CmResult>(2, CM_OK), (std::vector<CmResult>{sem.Lock(), sem.Lock()}));

  std::atomic<bool> passed{false};
  std::thread t([&] {
    sem.Lock();
    passed = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_FALSE(passed.load());
  EXPECT_EQ(CM_OK, sem.UnLock());
  t.join();
  EXPECT_TRUE(passed.load());
}

CmResult CreateTaskThreadWithTrace(CmTraceCapture& cap) {
  cap.clear();
  ACmThread* thread = nullptr;
  return CreateUserTaskThread("t-nostack", thread, TF_JOINABLE, true);
}

// A thread per call makes and drops these by the thousand, and a task thread that cannot
// start (here: no room for its stack) is refused with its code and trace, its half-made
// object freed. The heap's own count shows a leak in a plain build; the sanitizer builds
// keep a heap of their own and check leaks there.
TEST(CmSemaphoreTest, ShortLivedObjectsAndUnstartableThreadsGiveTheirMemoryBack) {
  pthread_attr_t saved, huge;
  ASSERT_EQ(0, pthread_getattr_default_np(&saved));
  pthread_attr_init(&huge);
  pthread_attr_setstacksize(&huge, size_t{1} << 48);  // more than the address space
  ASSERT_EQ(0, pthread_setattr_default_np(&huge));
  CmTraceCapture cap;
  EXPECT_EQ(CM_ERROR_THREAD_CREATE, CreateTaskThreadWithTrace(cap));  // also the first-use allocations
  EXPECT_TRUE(cap.contains(0, "ACmThread::Create, pthread_create() failed! err=11"));
  const size_t before = mallinfo2().uordblks;
  for (int i = 0; i < 1000; ++i) {
    CCmSemaphore sem(1, "s", 1);
    CCmStopFlag flag;
    if (i % 50 == 0) CreateTaskThreadWithTrace(cap);
  }
  cap.clear();
  pthread_setattr_default_np(&saved);
  pthread_attr_destroy(&huge);
  pthread_attr_destroy(&saved);
  EXPECT_LT(mallinfo2().uordblks, before + 4096);  // one lost chunk per round would be 32,000 bytes
}

TEST(CmConditionVariableTest, TimedWaitTimesOutAndSignalWakes) {
  CCmMutexThread mutex;
  CCmConditionVariableThread cond(mutex);
  mutex.Lock();
  // A negative part in either field counts as "no wait", never as an invalid time.
  const auto start = std::chrono::steady_clock::now();
  for (const CCmTimeValue& tv : {CCmTimeValue(0L, 20000L), CCmTimeValue(0L, -999999L), CCmTimeValue(-5L, 0L)}) {
    CCmTimeValue copy(tv);
    EXPECT_EQ(CM_ERROR_TIMEOUT, cond.Wait(&copy)) << tv.GetSec() << "s " << tv.GetUsec() << "us";
  }
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(19));  // the 20 ms waited its time
  mutex.UnLock();

  // Woken by a signal, with and without a time-out.
  CCmTimeValue longWait(10L);
  for (CCmTimeValue* timeout : {&longWait, static_cast<CCmTimeValue*>(nullptr)}) {
    bool ready = false;
    mutex.Lock();  // held until the wait below, so the wait always happens
    std::thread t([&] {
      mutex.Lock();
      ready = true;
      cond.Signal();
      mutex.UnLock();
    });
    while (!ready) ASSERT_EQ(CM_OK, cond.Wait(timeout));
    mutex.UnLock();
    t.join();
  }
}

// True once the kernel reports thread aTid asleep (state S). With the event's mutex free,
// a thread inside CCmEventThread::Wait can sleep only in the condition wait.
bool WaitUntilAsleep(long aTid) {
  const std::string path = "/proc/self/task/" + std::to_string(aTid) + "/stat";
  for (int i = 0; i < 100000; ++i) {
    std::ifstream f(path);
    if (!f) return false;
    std::string stat;
    std::getline(f, stat);
    const size_t close = stat.rfind(')');  // the state follows the name
    if (close != std::string::npos && stat.compare(close, 3, ") S") == 0) return true;
    std::this_thread::yield();
  }
  return false;
}

// A signal given to a waiting thread goes to that thread only: signalled stays clear, so
// a later zero wait times out.
TEST(CmEventThreadTest, AutoResetSignalToWaiterLeavesSignalledClear) {
  CCmEventThread ev(false, false, nullptr);
  std::atomic<CmResult> got{CM_ERROR_FAILURE};
  std::atomic<long> waiterTid{0};
  std::thread t([&] {
    waiterTid = static_cast<long>(CmGetThreadID());
    CCmTimeValue tv(10L);
    got = ev.Wait(&tv);
  });
  while (waiterTid.load() == 0) std::this_thread::yield();
  if (!WaitUntilAsleep(waiterTid.load())) {
    ev.Signal();
    t.join();
    GTEST_SKIP() << "cannot observe the waiter asleep";
  }
  ASSERT_EQ(CM_OK, ev.Signal());
  t.join();
  EXPECT_EQ(CM_OK, got.load());
  CCmTimeValue zero;
  EXPECT_EQ(CM_ERROR_TIMEOUT, ev.Wait(&zero));
  EXPECT_EQ(CM_OK, ev.Signal());  // no waiter now: kept for the next wait
  EXPECT_EQ(CM_OK, ev.Wait(&zero));
}

TEST(CmThreadMiscTest, OwnerRecordStopFlagAndIds) {
  CCmEnsureSingleThread owner;
  EXPECT_TRUE(IsEqualCurrentThread(owner.GetOwnerThreadId()));
  CM_THREAD_ID other = 0;
  std::thread t([&] { other = GetThreadSelfId(); });
  t.join();
  EXPECT_FALSE(IsThreadEqual(other, GetThreadSelfId()));
  owner.Reset2ThreadId(other);
  EXPECT_TRUE(IsThreadEqual(other, owner.GetOwnerThreadId()));
  EXPECT_GT(CmGetThreadID(), 0u);
  EXPECT_GT(CmGetProcessID(), 0);
  CCmStopFlag loop;
  EXPECT_TRUE(loop.IsFlagStopped());  // until its thread starts it
}

class CountedObject : public CCmReferenceControlT<CCmMutexThread> {
 public:
  explicit CountedObject(std::atomic<int>* deletions) : m_deletions(deletions) {}
  ~CountedObject() override { ++*m_deletions; }

 private:
  std::atomic<int>* m_deletions;
};

TEST(CmReferenceControlTest, LastReleaseDeletesOnceAcrossThreads) {
  std::atomic<int> deletions{0};
  CountedObject* obj = new CountedObject(&deletions);
  obj->AddReference();
  auto churn = [obj] {
    for (int i = 0; i < 1000; ++i) {
      obj->AddReference();
      obj->ReleaseReference();
    }
  };
  std::thread t(churn);
  churn();
  t.join();
  // Braces keep the calls in order.
  EXPECT_EQ((std::vector<uint32_t>{1, 2, 1}),
            (std::vector<uint32_t>{obj->GetReference(), obj->AddReference(), obj->ReleaseReference()}));
  EXPECT_EQ(0, deletions.load());
  EXPECT_EQ(0u, obj->ReleaseReference());
  EXPECT_EQ(1, deletions.load());
}

}  // namespace
