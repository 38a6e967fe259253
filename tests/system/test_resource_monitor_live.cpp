// The sampler on the live machine: timer-driven samples on a task thread, start/stop by
// count from several threads.

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "cmutil/system/CmKelPerfsStats.h"
#include "common/CmTaskThread.h"

namespace {

TEST(PerfsStatsLive, StartAndStopFromSeveralThreadsWhileSampling) {
  TaskThread task("t-perfs-test");
  CKelPerfsStats stats;
  stats.SetInterval(1);
  std::vector<std::thread> callers;
  for (int i = 0; i < 4; ++i)
    callers.emplace_back([&] {
      for (int round = 0; round < 25; ++round) {
        stats.start(task.get());
        _tagKelCPUUsage cpu;
        stats.get_cpu_statistics(cpu);
        stats.stop();
      }
    });
  for (auto& t : callers) t.join();
  EXPECT_TRUE(stats.is_stopped());
  ASSERT_EQ(CM_OK, stats.start(task.get()));
  EXPECT_TRUE(stats.WaitUntilReady(10000));
  stats.stop();
  EXPECT_TRUE(stats.is_stopped());
}

}  // namespace
