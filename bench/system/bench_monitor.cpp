// One full performance sample (per-core CPU, every thread of a 50-thread process with
// its name, system memory) by the library's sampler, beside the same figures collected
// through procps' libproc2, the library behind top. Heap allocations are counted by
// interposing malloc for the whole program: after its first sample ours should make none.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <thread>
#include <vector>

#include "cmutil/system/CmKelPerfsStats.h"
#include "platform/CmMonitorPlatform.h"
#include "system/CmKelPerfsStatsTestHook.h"

#ifdef CMUTIL_HAVE_LIBPROC2
#include <libproc2/meminfo.h>
#include <libproc2/pids.h>
#include <libproc2/stat.h>
#endif

// ---- allocation counter (malloc interposition; this binary is never sanitised) ----
extern "C" void* __libc_malloc(size_t);
extern "C" void* __libc_calloc(size_t, size_t);
extern "C" void* __libc_realloc(void*, size_t);
extern "C" void __libc_free(void*);

namespace {
std::atomic<unsigned long long> g_allocations{0};
}

extern "C" void* malloc(size_t n) {
  g_allocations.fetch_add(1, std::memory_order_relaxed);
  return __libc_malloc(n);
}
extern "C" void* calloc(size_t n, size_t size) {
  g_allocations.fetch_add(1, std::memory_order_relaxed);
  return __libc_calloc(n, size);
}
extern "C" void* realloc(void* p, size_t n) {
  g_allocations.fetch_add(1, std::memory_order_relaxed);
  return __libc_realloc(p, n);
}
extern "C" void free(void* p) { __libc_free(p); }

namespace {

/// Brings the process to 50 threads (49 idle ones beside the main thread) for its life.
class FiftyThreads {
 public:
  FiftyThreads() {
    for (int i = 0; i < 49; ++i)
      m_threads.emplace_back([this] {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_wake.wait(lock, [this] { return m_done; });
      });
  }
  ~FiftyThreads() {
    {
      std::lock_guard<std::mutex> lock(m_mutex);
      m_done = true;
    }
    m_wake.notify_all();
    for (auto& t : m_threads) t.join();
  }

 private:
  std::mutex m_mutex;
  std::condition_variable m_wake;
  bool m_done = false;
  std::vector<std::thread> m_threads;
};

FiftyThreads& fifty_threads() {
  static FiftyThreads threads;
  return threads;
}

size_t live_thread_count() {
  std::vector<int> tids;
  cm_mon_list_tasks("/proc/self/task", tids);
  return tids.size();
}

void BM_Sample_Cmutil(benchmark::State& state) {
  fifty_threads();
  CKelPerfsStats stats;
  CKelPerfsStatsTestHook::StartWithoutTimer(stats, 1000);
  CKelPerfsStatsTestHook::Sample(stats);  // the first sample sizes every buffer
  CKelPerfsStatsTestHook::Sample(stats);
  const unsigned long long before = g_allocations.load();
  for (auto _ : state) CKelPerfsStatsTestHook::Sample(stats);
  const unsigned long long allocations = g_allocations.load() - before;
  _tagKelCPUUsage cpu;
  stats.get_cpu_statistics(cpu);
  state.counters["allocs_per_sample"] = static_cast<double>(allocations) / static_cast<double>(state.iterations());
  state.counters["threads"] = static_cast<double>(live_thread_count());
  state.counters["cores"] = cpu.coreCount;
  stats.stop();
}
BENCHMARK(BM_Sample_Cmutil)->Unit(benchmark::kMicrosecond);

#ifdef CMUTIL_HAVE_LIBPROC2
/// The same figures through libproc2: per-CPU tick deltas, the process's threads with
/// their tick deltas and names sorted busiest first, and memory used and total.
class Libproc2Sampler {
 public:
  Libproc2Sampler() {
    procps_stat_new(&m_stat);
    procps_pids_new(&m_pids, m_pidItems, 3);
    procps_meminfo_new(&m_memory);
  }
  ~Libproc2Sampler() {
    procps_stat_unref(&m_stat);
    procps_pids_unref(&m_pids);
    procps_meminfo_unref(&m_memory);
  }

  /// Returns how many threads were read.
  int Sample(double& coreSum, unsigned long& usedKb, unsigned long& totalKb) {
    coreSum = 0;
    if (stat_reaped* cpus = procps_stat_reap(m_stat, STAT_REAP_CPUS_ONLY, m_statItems, 2)) {
      for (int i = 0; i < cpus->cpus->total; ++i) {
        const long busy = STAT_VAL(0, sl_int, cpus->cpus->stacks[i], m_stat);
        const long total = STAT_VAL(1, sl_int, cpus->cpus->stacks[i], m_stat);
        coreSum += total > 0 ? static_cast<double>(busy) * 100.0 / static_cast<double>(total) : 0.0;
      }
    }
    unsigned pid = static_cast<unsigned>(getpid());
    int threads = 0;
    if (pids_fetch* fetched = procps_pids_select(m_pids, &pid, 1, PIDS_SELECT_PID_THREADS)) {
      threads = fetched->counts->total;
      procps_pids_sort(m_pids, fetched->stacks, threads, PIDS_TICS_ALL_DELTA, PIDS_SORT_DESCEND);
      benchmark::DoNotOptimize(threads ? PIDS_VAL(2, str, fetched->stacks[0], m_pids) : nullptr);
    }
    meminfo_result* used = procps_meminfo_get(m_memory, MEMINFO_MEM_USED);
    meminfo_result* total = procps_meminfo_get(m_memory, MEMINFO_MEM_TOTAL);
    usedKb = used ? used->result.ul_int : 0;
    totalKb = total ? total->result.ul_int : 0;
    return threads;
  }

 private:
  stat_info* m_stat = nullptr;
  pids_info* m_pids = nullptr;
  meminfo_info* m_memory = nullptr;
  stat_item m_statItems[2] = {STAT_TIC_SUM_DELTA_BUSY, STAT_TIC_SUM_DELTA_TOTAL};
  pids_item m_pidItems[3] = {PIDS_ID_TID, PIDS_TICS_ALL_DELTA, PIDS_CMD};
};

void BM_Sample_Libproc2(benchmark::State& state) {
  fifty_threads();
  Libproc2Sampler sampler;
  double coreSum = 0;
  unsigned long used = 0, total = 0;
  int threads = sampler.Sample(coreSum, used, total);
  sampler.Sample(coreSum, used, total);
  const unsigned long long before = g_allocations.load();
  for (auto _ : state) {
    threads = sampler.Sample(coreSum, used, total);
    benchmark::DoNotOptimize(coreSum);
  }
  const unsigned long long allocations = g_allocations.load() - before;
  state.counters["allocs_per_sample"] = static_cast<double>(allocations) / static_cast<double>(state.iterations());
  state.counters["threads"] = threads;
}
BENCHMARK(BM_Sample_Libproc2)->Unit(benchmark::kMicrosecond);
#endif

}  // namespace
