// The resource monitor and the sampler on hand-made /proc and /sys trees, with a fake
// clock and samples taken by hand, plus the parsers they read through; then the sampler
// on the live machine.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <pthread.h>
#include <time.h>

#include <future>
#include <sstream>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "cmutil/system/CmKelPerfsStats.h"
#include "cmutil/system/KELSystemResourceMonitor.h"
#include "common/CmFakeClock.h"
#include "common/CmFsTree.h"
#include "common/CmTaskThread.h"
#include "common/CmTraceCapture.h"
#include "platform/CmMonitorPlatform.h"
#include "system/CmKelPerfsStatsTestHook.h"
#include "system/CmMonitorParsers.h"

namespace {

typedef std::vector<float> Floats;
// Each float equal to its counterpart as EXPECT_FLOAT_EQ compares (within 4 ULPs).
auto AreFloats(const Floats& want) { return testing::Pointwise(testing::FloatEq(), want); }

/// A task stat line with the given name and utime/stime (fields 14 and 15).
std::string task_stat(int tid, const std::string& name, int utime, int stime) {
  return std::to_string(tid) + " (" + name + ") S 1 1 1 0 -1 4194560 100 0 0 0 " + std::to_string(utime) + " " +
         std::to_string(stime) + " 0 0 20 0 1 0 100 0 0\n";
}

TEST(MonitorParsers, StatLinesFoldIrqAndStealIntoSystemAndIowaitIntoIdle) {
  // text; whether the total parses, and its ticks; cores; the last core's index
  const std::tuple<const char*, bool, CmCpuTicks, size_t, unsigned> cases[] = {
      // user nice system idle iowait irq softirq steal guest guest_nice
      {"cpu  10 2 3 40 5 6 7 8 9 9\ncpu0 1 1 1 1\ncpu3 2 2 2 2 2\nintr 5\n", true, {10, 2, 24, 45}, 2, 3},
      {"cpu 1 2 3\ncpu0 1 2 3\ncpuX 1 2 3 4\n", false, {}, 0, 0},         // too few numbers, no index
      {"intr 1 2 3 4\ncpu0 1 2 3 4x\ncpu1  4 3 2 1\n", false, {}, 1, 1},  // a glued token ends the line
      {"", false, {}, 0, 0},
  };
  for (const auto& [text, ok, total, count, lastIndex] : cases) {
    CmCpuTicks t;
    EXPECT_EQ(ok, cm_parse_stat_total(text, t)) << text;
    if (ok) {
      EXPECT_EQ(std::tie(total.user, total.nice, total.system, total.idle), std::tie(t.user, t.nice, t.system, t.idle));
    }
    CmCoreTicks cores[4];
    ASSERT_EQ(count, cm_parse_stat_cores(text, cores, 4)) << text;
    EXPECT_EQ(lastIndex, count ? cores[count - 1].index : 0u);
  }
}

TEST(MonitorParsers, TaskStatCountsFieldsAfterTheLastParenthesis) {
  // text; whether it parses, utime, stime
  const std::tuple<std::string, bool, uint64_t, uint64_t> cases[] = {
      {task_stat(7, "a) b (c", 31, 4), true, 31, 4},        {task_stat(7, "))", 0, 99), true, 0, 99},
      {"7 (x) S 1 1 1 0 -1 4 100 0 0 0 12", false, 0, 0},  // stime missing
      {"7 x S 1 1 1 0 -1 4 100 0 0 0 1 2", false, 0, 0},   // no parenthesis
      {"7 (x) S 1 1 1 0 -1 4 100 0 0 0 -1 2", false, 0, 0},
  };
  for (const auto& [text, ok, utime, stime] : cases) {
    uint64_t u = 0, s = 0;
    EXPECT_EQ(ok, cm_parse_task_stat_times(text, u, s)) << text;
    EXPECT_EQ(std::make_pair(utime, stime), std::make_pair(u, s)) << text;
  }
  EXPECT_EQ("a) b (c", cm_trim_comm("a) b (c\n", 15));
  EXPECT_EQ("0123456789abcde", cm_trim_comm("0123456789abcdefgh\n", 15));
  uint64_t v = 0;
  EXPECT_TRUE(cm_find_status_number("Name:\tx\nvoluntary_ctxt_switches:\t12\n", "voluntary_ctxt_switches", v));
  EXPECT_EQ(12u, v);
  EXPECT_FALSE(cm_find_status_number("VmRSS: 12kB\n", "VmRSS", v));
}

TEST(ResourceMonitor, RefreshesAtMostOncePerIntervalAndLeavesNiceOut) {
  // ms advanced, /proc/stat, the process's utime; the total and process percent then
  const std::tuple<int, const char*, int, float, float> steps[] = {
      {0, "cpu  100 50 100 1000 0 0 0 0 0 0\n", 10, 0, 0},         // first refresh: no previous sample
      {200, "cpu  200 500 150 1050 0 0 0 0 0 0\n", 60, 0, 0},      // 200 ms later: not refreshed
      {800, "cpu  200 500 150 1050 0 0 0 0 0 0\n", 60, 75, 50},    // busy 150 of 200; 500 ms CPU in 1 s
      {1000, "cpu  300 900 150 1040 0 0 0 0 0 0\n", 60, 100, 50},  // idle went back: 0; CPU unchanged: kept
      {1000, "cpu  300 900 150 1040 0 0 0 0 0 0\n", 60, 100, 50},  // no tick passed: kept
  };
  CmFsTree tree(
      {{"/proc/meminfo", "MemTotal: 1000 kB\nMemAvailable: 250 kB\n"}, {"/proc/self/status", "VmRSS:\t42 kB\n"}});
  CmFakeClock clock(5000);
  IKELSystemResourceMonitor* monitor = nullptr;
  for (const auto& [advanceMs, stat, utime, wantTotal, wantProcess] : steps) {
    clock.AdvanceMs(advanceMs);
    tree.Write("/proc/stat", stat);
    tree.Write("/proc/self/stat", task_stat(1, "self", utime, 0));
    monitor = getKELSystemResourceMonitor();
    float total = -1, process = -1;
    unsigned int totalInt = 0;
    EXPECT_TRUE(monitor->getTotalCPUUsage(total) && monitor->getProcessUsage(process) &&
                monitor->getTotalCPUUsage(totalInt));
    EXPECT_THAT((Floats{total, process}), AreFloats({wantTotal, wantProcess})) << advanceMs;
    EXPECT_EQ(static_cast<unsigned>(wantTotal), totalInt);
  }
  float percent = 0;
  unsigned long long used = 0, all = 0, mine = 0;
  unsigned int gpu = 0;
  EXPECT_TRUE(monitor->getMemoryUsage(percent, used, all, mine) && monitor->getGPUUsage(gpu));
  EXPECT_FLOAT_EQ(75, percent);
  EXPECT_EQ(std::make_tuple(750ull, 1000ull, 42ull, 0xFFFFFFFFu), std::make_tuple(used, all, mine, gpu));
  // A shorter interval refreshes sooner; a 0 percent does not replace the last one.
  monitor->setRefreshInterval(100);
  clock.AdvanceMs(100);
  tree.Write("/proc/meminfo", "MemTotal: 1000 kB\nMemAvailable: 1000 kB\n");
  EXPECT_TRUE(monitor->getMemoryUsage(percent, used, all, mine));
  monitor->setRefreshInterval(1000);
  EXPECT_FLOAT_EQ(75, percent);
  EXPECT_EQ(std::make_pair(0ull, std::thread::hardware_concurrency()), std::make_pair(used, monitor->getCPUCores()));
}

// A source that opens but cannot be read (here a folder) is not reported as read.
TEST(MonitorSources, AnUnreadableSourceIsNotRead) {
  CmFsTree tree(CmFsTree::Files{{"/proc/stat/folder", ""}});
  std::string text;
  EXPECT_FALSE(CmRereadFile("/proc/stat").Read(text));
}

TEST(PerfsStats, RoundCpuCapsTheSumBelowCoresTimesHundred) {
  // cores, the sum in and out, whether it is traced
  const std::tuple<int, float, float, bool> cases[] = {
      {8, 850, 799.99f, false}, {8, 500, 500, false}, {1, 100, 99.99f, false}, {0, 850, 850, true}};
  for (const auto& [cores, in, out, traced] : cases) {
    CmTraceCapture capture;
    float v = in;
    CKelPerfsStats::RoundCpu(cores, v);
    EXPECT_FLOAT_EQ(out, v);
    EXPECT_EQ(traced, capture.contains("CKelPerfsStats::RoundCpu, rate = "));
  }
}

TEST(PerfsStats, SampleFromTreesPublishesCoresThreadsMemoryWakeupsAndEnergy) {
  // Busy ticks of threads 11 and 12, and the process percent. Two cores: the average is
  // (90 + 50) / 2 = 70 in the second sample.
  const std::tuple<int, int, float> cases[] = {{50, 20, 35},    // 70 % of one core over two cores
                                               {190, 20, 70}};  // 210 % caps at 199.99, then at the machine average
  for (const auto& [busyTicks11, busyTicks12, process] : cases) {
    CmFsTree tree({{"/proc/stat", "cpu  1 1 1 1\ncpu0 60 10 20 10 0 0 0 0 0 0\ncpu1 100 0 0 0\n"},
                   {"/proc/meminfo", "MemTotal: 2000 kB\nMemAvailable: 500 kB\n"},
                   {"/proc/self/status", "VmRSS: 77 kB\nvoluntary_ctxt_switches:\t100\n"},
                   {"/proc/self/stat", task_stat(1, "self", 0, 0)},
                   {"/proc/self/task/11/stat", task_stat(11, "a) b (c", 5, 5)},
                   {"/proc/self/task/11/comm", "a) b (c\n"},
                   {"/proc/self/task/12/stat", task_stat(12, "worker", 1, 0)},
                   {"/proc/self/task/12/comm", "worker\n"},
                   {"/proc/self/task/13/comm", "gone\n"},                     // ended between listing and reading
                   {"/proc/self/task/14/stat", task_stat(14, "idle", 3, 3)},  // ran nothing: not listed
                   {"/sys/class/powercap/intel-rapl:0/name", "package-0\n"},
                   {"/sys/class/powercap/intel-rapl:0/energy_uj", "1000000\n"},
                   {"/sys/class/powercap/intel-rapl:0:0/name", "core\n"},
                   {"/sys/class/powercap/intel-rapl:0:0/energy_uj", "999999999\n"}});
    CmFakeClock clock(5000);
    CKelPerfsStats stats;
    _tagKelCPUUsage cpu;
    EXPECT_EQ(CM_ERROR_NOT_INITIALIZED, stats.get_cpu_statistics(cpu));
    CKelPerfsStatsTestHook::StartWithoutTimer(stats, 1000);
    CKelPerfsStatsTestHook::Sample(stats);
    ASSERT_EQ(CM_OK, stats.get_cpu_statistics(cpu));
    EXPECT_EQ(2u, cpu.coreCount);
    // Cores, raw sum and average; the second core read 100 before the cap.
    EXPECT_THAT((Floats{cpu.cores[0], cpu.cores[1], cpu.rawSum, cpu.average}), AreFloats({90, 99.99f, 190, 95}));
    EXPECT_TRUE(cpu.threadCount == 0 && cpu.wakeups == 0 && cpu.energy == 0);  // nothing to compare with yet
    EXPECT_FALSE(stats.WaitUntilReady(0));

    clock.AdvanceMs(1000);
    tree.Write("/proc/stat", "cpu  1 1 1 1\ncpu0 60 10 20 10\ncpu1 110 0 0 10\n");
    tree.Write("/proc/self/task/11/stat", task_stat(11, "a) b (c", 5 + busyTicks11, 5));
    tree.Write("/proc/self/task/12/stat", task_stat(12, "worker", 1 + busyTicks12, 0));
    tree.Write("/proc/self/status", "VmRSS: 77 kB\nvoluntary_ctxt_switches:\t300\n");
    tree.Write("/sys/class/powercap/intel-rapl:0/energy_uj", "3000000\n");
    CKelPerfsStatsTestHook::Sample(stats);
    EXPECT_TRUE(stats.WaitUntilReady(0));
    ASSERT_EQ(CM_OK, stats.get_cpu_statistics(cpu));
    ASSERT_EQ(2, cpu.threadCount);
    // The first core: no ticks passed, the last usage stands. Then the first thread's usage.
    EXPECT_THAT((Floats{cpu.cores[0], cpu.cores[1], cpu.average, cpu.process, cpu.threads[0].usage}),
                AreFloats({90, 50, 70, process, static_cast<float>(busyTicks11)}));
    EXPECT_STREQ("a) b (c", cpu.threads[0].name);
    EXPECT_STREQ("worker", cpu.threads[1].name);
    // 200 switches in 1000 ms; 2 J in 1 s: 2000 nJ per microsecond.
    EXPECT_EQ(std::make_pair(uint64_t{200}, uint64_t{2000}), std::make_pair(cpu.wakeups, cpu.energy));
    _tagKelMemoryUsage memory;
    ASSERT_EQ(CM_OK, stats.get_memory_statistics(memory));
    EXPECT_FLOAT_EQ(75, memory.percent);
    EXPECT_EQ(std::make_tuple(1500ull, 2000ull, 77ull), std::make_tuple(memory.used, memory.total, memory.process));
    stats.stop();
    EXPECT_EQ(CM_ERROR_NOT_INITIALIZED, stats.get_memory_statistics(memory));
  }
}

// Temperature and fan on hand-made hwmon and thermal trees: the preferred CPU sensor,
// else thermal zones by type; a sensor that does not read as a number is skipped.
TEST(PerfsStats, TemperatureAndFanFromHwmonOrThermalZones) {
  // degrees, fan RPM, the files under /sys/class/hwmon or /sys/class/thermal as "path=content;..."
  const std::tuple<double, unsigned, const char*> cases[] = {
      // coretemp: the package over its cores
      {52, 1200,
       "hwmon0/name=coretemp;hwmon0/temp1_label=Core 0;hwmon0/temp1_input=80000;hwmon0/temp2_label=Package id 0;"
       "hwmon0/temp2_input=52000;hwmon0/fan1_input=1200"},
      // k10temp: Tctl over Tdie, both over a board sensor
      {61.5, 0,
       "hwmon0/name=cpu_thermal;hwmon0/temp1_input=45000;hwmon1/name=k10temp;hwmon1/temp1_label=Tdie;"
       "hwmon1/temp1_input=60000;hwmon1/temp3_label=Tctl;hwmon1/temp3_input=61500"},
      // what does not read as a number is skipped; below zero is kept
      {-5, 900,
       "hwmon0/name=coretemp;hwmon0/temp1_label=Package id 0;hwmon0/temp1_input=52000x;hwmon1/name=soc_thermal;"
       "hwmon1/temp1_input=-5000\n;hwmon1/fan1_input=fast;hwmon1/fan2_input=900\n"},
      // no CPU sensor in hwmon: thermal zones by type
      {55, 0,
       "hwmon0/name=nvme;hwmon0/temp1_input=35000;thermal_zone0/type=acpitz;thermal_zone0/temp=40000;"
       "thermal_zone1/type=x86_pkg_temp;thermal_zone1/temp=55000"},
      {0, 0, "thermal_zone0/type=acpitz"},  // nothing readable
  };
  for (const auto& [celsius, rpm, files] : cases) {
    CmFsTree tree;
    std::istringstream in(files);
    for (std::string item; std::getline(in, item, ';');) {
      const size_t eq = item.find('=');
      const char* folder = item.compare(0, 5, "hwmon") == 0 ? "/sys/class/hwmon/" : "/sys/class/thermal/";
      tree.Write(folder + item.substr(0, eq), item.substr(eq + 1));
    }
    CKelPerfsStats stats;
    EXPECT_DOUBLE_EQ(celsius, stats.get_cpu_temperature()) << files;
    EXPECT_EQ(rpm, stats.get_fan_speed()) << files;
  }
}

// On the live kernel and the real clocks: a thread that burns 100 ms of CPU between two
// samples leads the thread list with a visible share; a wrong clock unit flattens it.
TEST(PerfsStats, LiveBusyThreadLeadsTheThreadList) {
  std::promise<void> go, spun, release;
  std::thread spinner([&] {
    pthread_setname_np(pthread_self(), "cm-spin");
    go.get_future().wait();
    timespec cpu = {};
    do clock_gettime(CLOCK_THREAD_CPUTIME_ID, &cpu);
    while (cpu.tv_sec == 0 && cpu.tv_nsec < 100000000);
    spun.set_value();
    release.get_future().wait();
  });
  CKelPerfsStats stats;
  CKelPerfsStatsTestHook::StartWithoutTimer(stats, 1000);
  CKelPerfsStatsTestHook::Sample(stats);  // the spinner is known, idle so far
  go.set_value();
  spun.get_future().wait();
  CKelPerfsStatsTestHook::Sample(stats);
  _tagKelCPUUsage cpu;
  ASSERT_EQ(CM_OK, stats.get_cpu_statistics(cpu));
  release.set_value();
  spinner.join();
  ASSERT_GE(cpu.threadCount, 1);
  EXPECT_STREQ("cm-spin", cpu.threads[0].name);
  EXPECT_GT(cpu.threads[0].usage, 1.0f);  // 100 ms of CPU in the seconds at most between samples
}

// Timer-driven samples on a task thread, started and stopped by count from several threads.
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
