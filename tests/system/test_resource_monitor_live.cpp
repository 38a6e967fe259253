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

}  // namespace
