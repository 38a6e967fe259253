// The sampler on the live machine: timer-driven samples on a task thread, start/stop by
// count from several threads, and a busy thread found first in the busiest list.

#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include "cmutil/system/CmKelPerfsStats.h"
#include "cmutil/thread/CmThread.h"
#include "cmutil/thread/CmThreadSingletonFactory.h"
#include "common/CmTraceCapture.h"
#include "system/CmThreadCpuSampler.h"

namespace {

/// A started task thread with a timer queue, ended on destruction.
struct TaskThread {
  ACmThread* thread = nullptr;
  TaskThread() { EXPECT_EQ(CM_OK, CreateUserTaskThread("t-perfs-test", thread, TF_JOINABLE, true, TT_UNKNOWN)); }
  ~TaskThread() {
    if (!thread) return;
    thread->Stop(nullptr);
    thread->Join();
    thread->Destory(0);
  }
};

TEST(PerfsStatsLive, StartTwiceStopOnceKeepsSampling) {
  TaskThread task;
  CKelPerfsStats stats;
  stats.SetInterval(10);
  CmTraceCapture capture;
  ASSERT_EQ(CM_OK, stats.start(task.thread));
  ASSERT_EQ(CM_OK, stats.start(task.thread));
  EXPECT_TRUE(capture.contains("CKelPerfsStats::start, inst=0 [cid="));
  EXPECT_TRUE(capture.contains("perfs: it is already started."));
  stats.stop();
  EXPECT_TRUE(capture.contains("CKelPerfsStats::stop, inst=2"));
  EXPECT_FALSE(stats.is_stopped());
  ASSERT_TRUE(stats.WaitUntilReady(10000));
  _tagKelCPUUsage cpu;
  ASSERT_EQ(CM_OK, stats.get_cpu_statistics(cpu));
  EXPECT_GE(cpu.coreCount, 1u);
  EXPECT_LE(cpu.process, cpu.average);
  stats.stop();
  EXPECT_TRUE(stats.is_stopped());
  EXPECT_EQ(CM_ERROR_NOT_INITIALIZED, stats.get_cpu_statistics(cpu));
  stats.stop();  // unmatched: stays stopped
  EXPECT_TRUE(stats.is_stopped());
}

TEST(PerfsStatsLive, StartAndStopFromSeveralThreadsWhileSampling) {
  TaskThread task;
  CKelPerfsStats stats;
  stats.SetInterval(1);
  std::vector<std::thread> callers;
  for (int i = 0; i < 4; ++i)
    callers.emplace_back([&] {
      for (int round = 0; round < 25; ++round) {
        stats.start(task.thread);
        _tagKelCPUUsage cpu;
        stats.get_cpu_statistics(cpu);
        stats.stop();
      }
    });
  for (auto& t : callers) t.join();
  EXPECT_TRUE(stats.is_stopped());
  ASSERT_EQ(CM_OK, stats.start(task.thread));
  EXPECT_TRUE(stats.WaitUntilReady(10000));
  stats.stop();
  EXPECT_TRUE(stats.is_stopped());
}

TEST(PerfsStatsLive, BusyThreadComesFirst) {
  std::atomic<bool> done{false};
  std::thread burner([&] {
    pthread_setname_np(pthread_self(), "perfs-burner");
    volatile unsigned long spin = 0;
    while (!done.load(std::memory_order_relaxed)) ++spin;
  });
  TaskThread task;
  CKelPerfsStats stats;
  stats.SetInterval(100);
  ASSERT_EQ(CM_OK, stats.start(task.thread));
  const bool ready = stats.WaitUntilReady(20000);
  _tagKelCPUUsage cpu;
  const CmResult rv = stats.get_cpu_statistics(cpu);
  stats.stop();
  done = true;
  burner.join();
  ASSERT_TRUE(ready);
  ASSERT_EQ(CM_OK, rv);
  ASSERT_GE(cpu.threadCount, 1);
  EXPECT_STREQ("perfs-burner", cpu.threads[0].name);
  EXPECT_GT(cpu.threads[0].usage, 0.0f);
  EXPECT_GT(cpu.process, 0.0f);
}

}  // namespace
