// Threads and task threads: creation, event loops, stop, synchronous send, deletion.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "ThreadTestSupport.h"
#include "cmutil/thread/CmThreadPriority.h"
#include "cmutil/thread/CmThreadTask.h"
#include "cmutil/thread/CmThreadWaiter.h"
#include "cmutil/trace/CmTrace.h"
#include "common/CmFakeClock.h"
#include "common/CmTraceCapture.h"

namespace {

const unsigned int kWaitMs = 10000;  // generous: only a broken build waits this long

template <class F>
CmResult Post(ACmThread* thread, F f) {
  return thread->GetEventQueue()->PostEvent(CmNewInvokeEvent(std::move(f)));
}

template <class T>
T* StartTask(const char* name, int type = 1) {
  T* task = new T;
  EXPECT_EQ(CM_OK, task->Create(name, type, TF_JOINABLE, false));
  return task;
}

void StopJoinDestroy(ACmThread* thread) {
  thread->Stop(nullptr);
  EXPECT_EQ(CM_OK, thread->Join());
  thread->Destory(0);
}

/// Holds a thread inside an event until released.
class Gate {
 public:
  Gate() : m_entered(1), m_open(1) {}
  explicit Gate(ACmThread* thread, std::function<void()> first = nullptr) : Gate() { Block(thread, std::move(first)); }
  /// Posts an event that runs `first`, then holds the loop thread; returns once it holds.
  void Block(ACmThread* thread, std::function<void()> first = nullptr) {
    Post(thread, Hold(std::move(first)));
    ASSERT_TRUE(Entered());
  }
  /// An action that runs `first`, then holds the thread running it until Open().
  std::function<void()> Hold(std::function<void()> first = nullptr) {
    return [this, first] {
      if (first) first();
      m_entered.Finished();
      m_open.WaitUntilTimeout(kWaitMs);
    };
  }
  bool Entered() { return m_entered.WaitUntilTimeout(kWaitMs); }
  void Open() { m_open.Finished(); }

 private:
  ThreadWaiter m_entered;
  ThreadWaiter m_open;
};

template <class T>
class TaskThreadTest : public ::testing::Test {};
typedef ::testing::Types<CCmThreadTask, CCmThreadTaskWithEventQueueOnly> TaskTypes;
TYPED_TEST_SUITE(TaskThreadTest, TaskTypes);

TYPED_TEST(TaskThreadTest, ManyProducersEveryEventOnceInPerProducerOrder) {
  const int kProducers = 4, kEvents = 3000;
  ACmThread* task = StartTask<TypeParam>("t-many");
  std::vector<std::vector<int>> seen(kProducers);  // touched on the task thread only
  ThreadWaiter done(kProducers * kEvents);
  std::vector<std::thread> producers;
  for (int p = 0; p < kProducers; ++p) {
    producers.emplace_back([&, p] {
      for (int i = 0; i < kEvents; ++i)
        ASSERT_EQ(CM_OK, Post(task, [&, p, i] {
                    seen[p].push_back(i);
                    done.Finished();
                  }));
    });
  }
  for (auto& t : producers) t.join();
  ASSERT_TRUE(done.WaitUntilTimeout(kWaitMs));
  StopJoinDestroy(task);
  for (int p = 0; p < kProducers; ++p) {
    ASSERT_EQ(static_cast<size_t>(kEvents), seen[p].size());
    for (int i = 0; i < kEvents; ++i) ASSERT_EQ(i, seen[p][i]) << "producer " << p;
  }
}

TYPED_TEST(TaskThreadTest, StopRunsEverythingBeforeAndRefusesAfter) {
  CmTraceCapture cap;
  EventLog log;
  ACmThread* task = StartTask<TypeParam>("t-stop");
  Gate gate(task);
  for (int i = 0; i < 20; ++i) ASSERT_EQ(CM_OK, task->GetEventQueue()->PostEvent(new LoggingEvent(&log, i)));
  EXPECT_EQ(CM_OK, task->Stop(nullptr));
  EXPECT_EQ(CM_ERROR_NOT_INITIALIZED, task->GetEventQueue()->PostEvent(new LoggingEvent(&log, 100)));
  gate.Open();
  // The second join finds the thread joined already: nothing to wait for, nothing failed.
  EXPECT_EQ(std::vector<CmResult>(2, CM_OK), (std::vector<CmResult>{task->Join(), task->Join()}));
  EXPECT_FALSE(cap.contains("failed"));
  std::vector<int> expected;
  for (int i = 0; i < 20; ++i) expected.push_back(i);
  EXPECT_EQ(expected, log.Fired());
  expected.insert(expected.begin(), 100);  // the refused one is destroyed at once
  EXPECT_EQ(expected, log.Destroyed());
  EXPECT_TRUE(task->GetStopFlag());
  task->Destory(0);
  EXPECT_TRUE(cap.contains(2, "CCmThreadTaskWithEventQueueOnly::Stop [this=0x"));
  EXPECT_TRUE(cap.contains(2, "ACmThread::threadProc end, GetName()=t-stop, m_Tid="));
}

TYPED_TEST(TaskThreadTest, StopWhileProducersPostLosesNothingAcceptedBefore) {
  ACmThread* task = StartTask<TypeParam>("t-stoprace");
  const int kProducers = 3, kEach = 4000;
  // Per event: 1 = fired, and whether it was accepted before Stop() was entered.
  std::vector<std::atomic<int>> fired(kProducers * kEach), destroyed(kProducers * kEach);
  std::vector<char> acceptedBeforeStop(kProducers * kEach, 0);
  std::atomic<bool> stopCalled{false};
  ThreadWaiter halfway(kProducers);

  class CountedEvent : public ICmEvent {
   public:
    CountedEvent(std::atomic<int>* f, std::atomic<int>* d) : m_fired(f), m_destroyed(d) {}
    CmResult OnEventFire() override {
      ++*m_fired;
      return CM_OK;
    }
    void OnDestorySelf() override {
      ++*m_destroyed;
      delete this;
    }

   private:
    std::atomic<int>* m_fired;
    std::atomic<int>* m_destroyed;
  };

  std::vector<std::thread> producers;
  for (int p = 0; p < kProducers; ++p) {
    producers.emplace_back([&, p] {
      for (int i = 0; i < kEach; ++i) {
        int id = p * kEach + i;
        CmResult rv = task->GetEventQueue()->PostEvent(new CountedEvent(&fired[id], &destroyed[id]));
        if (rv == CM_OK && !stopCalled.load()) acceptedBeforeStop[id] = 1;
        if (i == kEach / 2) halfway.Finished();
      }
    });
  }
  ASSERT_TRUE(halfway.WaitUntilTimeout(kWaitMs));
  stopCalled = true;
  task->Stop(nullptr);
  for (auto& t : producers) t.join();
  EXPECT_EQ(CM_OK, task->Join());
  task->Destory(0);
  int firedBeforeStop = 0;
  for (int id = 0; id < kProducers * kEach; ++id) {
    ASSERT_EQ(1, destroyed[id].load()) << id;  // every event destroyed exactly once
    ASSERT_LE(fired[id].load(), 1) << id;
    if (acceptedBeforeStop[id]) {
      ASSERT_EQ(1, fired[id].load()) << id;  // accepted before Stop: it ran
      ++firedBeforeStop;
    }
  }
  EXPECT_GE(firedBeforeStop, kProducers * (kEach / 2));
}

// The sender times out while its event runs, and the thread is stopped before that:
// the event must neither be destroyed while it runs nor lose its one destruction.
TYPED_TEST(TaskThreadTest, TimedOutSendAfterStopLeavesTheRunningEventAlone) {
  EventLog log;
  ACmThread* task = StartTask<TypeParam>("t-sendstop");
  Gate gate;  // holds the sent event while it runs
  std::atomic<CmResult> sent{CM_ERROR_FAILURE};
  std::thread sender([&] {
    CCmTimeValue timeout(0L, 200000L);
    sent = task->GetEventQueue()->SendEvent(new LoggingEvent(&log, 1, CM_OK, gate.Hold()), &timeout);
  });
  ASSERT_TRUE(gate.Entered());
  EXPECT_EQ(CM_OK, task->Stop(nullptr));  // well before the send's time-out
  sender.join();
  EXPECT_EQ(CM_ERROR_TIMEOUT, sent.load());
  EXPECT_TRUE(log.Destroyed().empty());  // still running
  gate.Open();
  EXPECT_EQ(CM_OK, task->Join());
  task->Destory(0);
  EXPECT_EQ(IdLists({1}, {1}), log.Both());
}

// The wrapper waits in the queue ahead of the stop event when the send times out: the
// time-out is traced, and the event still runs, once, and is destroyed once.
TYPED_TEST(TaskThreadTest, TimedOutSendQueuedBeforeStopStillRunsOnce) {
  CmTraceCapture cap;
  EventLog log;
  ACmThread* task = StartTask<TypeParam>("t-sendq");
  Gate gate(task);
  std::atomic<CmResult> sent{CM_ERROR_FAILURE};
  std::thread sender([&] {
    CCmTimeValue timeout(0L, 200000L);
    sent = task->GetEventQueue()->SendEvent(new LoggingEvent(&log, 7), &timeout);
  });
  while (task->GetEventQueue()->GetPendingEventsCount() < 1) std::this_thread::yield();
  EXPECT_EQ(CM_OK, task->Stop(nullptr));  // the stop event queues behind the wrapper
  sender.join();
  EXPECT_EQ(CM_ERROR_TIMEOUT, sent.load());
  EXPECT_TRUE(cap.contains(1, "CCmEventSynchronous::WaitResultAndDeleteThis, m_SendEvent.Wait() failed! [this=0x"));
  EXPECT_TRUE(log.Fired().empty());
  gate.Open();
  EXPECT_EQ(CM_OK, task->Join());
  task->Destory(0);
  EXPECT_EQ(IdLists({7}, {7}), log.Both());
}

// Counts the loop passes through the queue's hook (called once per ProcessEvents).
std::atomic<int> g_passes{0};
void CountPass() { ++g_passes; }

template <class Task>
class Hooked : public Task {
 public:
  void OnThreadInit() override {
    Task::OnThreadInit();
    this->m_EventQueue.SetLoopHook(&CountPass);
  }
};

template <class T>
std::vector<int> PassOfTenEvents() {
  ACmThread* task = StartTask<T>("t-passes");
  Gate gate(task);
  std::vector<int> pass(10, -1);
  ThreadWaiter done(10);
  for (int i = 0; i < 10; ++i) {
    Post(task, [&, i] {
      pass[i] = g_passes.load();
      done.Finished();
    });
  }
  g_passes = 0;
  gate.Open();
  EXPECT_TRUE(done.WaitUntilTimeout(kWaitMs));
  StopJoinDestroy(task);
  return pass;
}

// Five events per pass of a task thread (timers get their turn between batches); an
// events-only thread takes all ten at once.
TEST(CmThreadTaskTest, EventsPerLoopPass) {
  // The gate's own pass ends (hook: 1) before the first batch runs.
  EXPECT_EQ((std::vector<int>{1, 1, 1, 1, 1, 2, 2, 2, 2, 2}), PassOfTenEvents<Hooked<CCmThreadTask>>());
  EXPECT_EQ((std::vector<int>(10, 1)), PassOfTenEvents<Hooked<CCmThreadTaskWithEventQueueOnly>>());
}

class CountingHandler : public ICmTimerHandler {
 public:
  explicit CountingHandler(unsigned int expected) : waiter(expected) {}
  void OnTimeout(const CCmTimeValue&, void* aArg) override {
    EXPECT_EQ(this, aArg);
    thread = GetThreadSelfId();
    ++count;
    waiter.Finished();
  }
  std::atomic<int> count{0};
  std::atomic<CM_THREAD_ID> thread{0};
  ThreadWaiter waiter;
};

// A sleep inside a task event still serves the events posted meanwhile, for its time.
TEST(CmThreadTaskTest, SleepMsWithLoopServesEventsForItsTime) {
  CCmThreadTask* task = StartTask<CCmThreadTask>("t-sleep");
  EventLog log;
  const auto start = std::chrono::steady_clock::now();
  ASSERT_EQ(CM_OK, task->GetEventQueue()->SendEvent(CmNewInvokeEvent([&] {
    task->GetEventQueue()->PostEvent(new LoggingEvent(&log, 1));
    task->SleepMsWithLoop(20);
  })));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(19));
  EXPECT_EQ(std::vector<int>{1}, log.Fired());
  StopJoinDestroy(task);
}

TEST(CmThreadTaskTest, TimerFiresOnTaskThreadWhileQueueIsIdle) {
  CmTraceCapture cap;
  CCmThreadTask* task = StartTask<CCmThreadTask>("t-timer");
  ASSERT_NE(nullptr, task->GetTimerQueue());
  CountingHandler handler(3);
  auto start = std::chrono::steady_clock::now();
  ASSERT_EQ(CM_OK, task->GetEventQueue()->SendEvent(CmNewInvokeEvent([&] {
    task->GetTimerQueue()->ScheduleTimer(&handler, &handler, CCmTimeValue(0L, 20000L), 3);
  })));
  ASSERT_TRUE(handler.waiter.WaitUntilTimeout(kWaitMs));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(55));  // three periods of 20 ms
  EXPECT_TRUE(IsThreadEqual(task->GetThreadId(), handler.thread.load()));
  char osName[16] = {};  // the name top and debuggers show
  EXPECT_EQ(0, pthread_getname_np(task->GetThreadId(), osName, sizeof osName));
  EXPECT_STREQ("t-timer", osName);
  StopJoinDestroy(task);
  EXPECT_EQ(3, handler.count.load());
  EXPECT_TRUE(cap.contains(2, "CCmThreadTask::OnThreadRun, Begin. name=t-timer"));
  EXPECT_TRUE(cap.contains(2, "CCmThreadTask::OnThreadRun, End. name=t-timer"));
}

// Counts deletions, so that each ownership path can be checked to delete exactly once.
std::atomic<int> g_deleted{0};
ThreadWaiter* g_deletedWaiter = nullptr;

class CountingTask : public CCmThreadTaskWithEventQueueOnly {
 protected:
  ~CountingTask() override {
    ++g_deleted;
    if (g_deletedWaiter) g_deletedWaiter->Finished();
  }
};

// Every ownership path deletes the thread object exactly once: by Destory once the
// thread has ended (joined or not), or by the ending thread when Destory came first
// (detached, or joinable with late delete). Flags 3 (both bits) mean joinable.
TEST(CmThreadDeleteOnce, EveryOwnershipPathDeletesOnce) {
  enum class End { Joined, EndedAlone, StillRunning };
  const struct {
    const char* name;
    int flags;
    bool lateDelete;
    End end;
    bool detached;
  } cases[] = {
      {"t-join", TF_JOINABLE, false, End::Joined, false},
      {"t-det", TF_DETACHED, false, End::StillRunning, true},
      {"t-det2", TF_DETACHED, false, End::EndedAlone, true},
      {"t-late", TF_JOINABLE, true, End::StillRunning, false},
      {"t-late2", TF_JOINABLE, true, End::Joined, false},
      {"t-flag3", TF_JOINABLE | TF_DETACHED, false, End::Joined, false},
      {"t-flag0", TF_NONE, false, End::Joined, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    g_deleted = 0;
    ThreadWaiter deleted(1);
    g_deletedWaiter = &deleted;
    CountingTask* task = new CountingTask;
    task->SetLateDelete(c.lateDelete);
    ASSERT_EQ(CM_OK, task->Create(c.name, 1, c.flags, false));
    EXPECT_EQ(c.detached, task->IsDetached());
    Gate gate;
    if (c.end == End::StillRunning) gate.Block(task);
    task->Stop(nullptr);
    if (c.end == End::Joined) {
      EXPECT_EQ(CM_OK, task->Join());
      EXPECT_EQ(0u, static_cast<unsigned long>(task->GetThreadId()));  // joined: handle cleared
    }
    while (c.end == End::EndedAlone && !task->GetStopFlag())  // set by the ending thread just before it leaves
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_EQ(0, g_deleted.load());
    task->Destory(0);
    if (c.end == End::StillRunning) {
      EXPECT_EQ(0, g_deleted.load());  // first party: the ending thread deletes
      gate.Open();
      ASSERT_TRUE(deleted.WaitUntilTimeout(kWaitMs));
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    EXPECT_EQ(1, g_deleted.load());
    g_deletedWaiter = nullptr;
  }
}

// An event accepted after the stop event but before the queue refuses posts lies behind
// the stop event, which here ends a task thread's last pass of five: the loop thread
// destroys it once, unrun, before it ends. A trace sink posts it from inside the stop
// event's own post, whose long-queue report (105 pending, the clock 4 s on) comes just
// before the refusal.
std::atomic<ACmThread*> g_postOnReport{nullptr};
EventLog g_behindStop;

void PostOnLongQueueReport(int, const char* text, int len) {
  const std::string line(text, static_cast<size_t>(len));  // the loop's OS name, cut to 15 characters
  if (line.find("PostEvent, m_dwSize=105 ") == line.npos || line.find(" name=t-behindstop-qu ") == line.npos) return;
  if (ACmThread* thread = g_postOnReport.exchange(nullptr))
    thread->GetEventQueue()->PostEvent(new LoggingEvent(&g_behindStop, 999));
}

TEST(CmThreadTaskTest, EventAcceptedBehindTheStopEventIsDestroyedUnrun) {
  CmFakeClock clock;
  CmTraceCapture cap;
  set_util_external_trace_sink(&PostOnLongQueueReport);  // the capture's routing and mask stay
  CCmThreadTask* task = StartTask<CCmThreadTask>("t-behindstop-queue");
  Gate gate(task);
  std::vector<int> expected;
  for (int i = 0; i < 104; ++i) {
    ASSERT_EQ(CM_OK, task->GetEventQueue()->PostEvent(new LoggingEvent(&g_behindStop, i)));
    expected.push_back(i);
  }
  clock.AdvanceMs(4000);
  g_postOnReport = task;
  EXPECT_EQ(CM_OK, task->Stop(nullptr));
  gate.Open();
  EXPECT_EQ(CM_OK, task->Join());
  set_util_external_trace_sink(nullptr);
  EXPECT_EQ(expected, g_behindStop.Fired());
  expected.push_back(999);
  EXPECT_EQ(expected, g_behindStop.Destroyed());  // by the loop thread, before it ended
  task->Destory(0);
}

// Timers are not served once the queue is stopped, while the events posted before the
// stop still run.
TEST(CmThreadTaskTest, NoTimerFiresAfterTheQueueStopped) {
  EventLog log;
  CCmThreadTask* task = StartTask<CCmThreadTask>("t-nostoptimer");
  CountingHandler handler(1);
  Gate gate(task, [&] { task->GetTimerQueue()->ScheduleTimer(&handler, &handler, CCmTimeValue(0L, 1000L), 1); });
  for (int i = 0; i < 6; ++i) ASSERT_EQ(CM_OK, task->GetEventQueue()->PostEvent(new LoggingEvent(&log, i)));
  task->Stop(nullptr);
  std::this_thread::sleep_for(std::chrono::milliseconds(5));  // the timer falls due
  gate.Open();
  EXPECT_EQ(CM_OK, task->Join());
  EXPECT_EQ(0, handler.count.load());
  EXPECT_EQ((std::vector<int>{0, 1, 2, 3, 4, 5}), log.Fired());
  task->Destory(0);
}

}  // namespace
