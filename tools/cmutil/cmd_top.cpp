// "cmutil top": a live view of machine and process load sampled by the library's
// performance sampler on a task thread. On a terminal the view is redrawn in place;
// otherwise (or with --json) each sample is one line.

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "CmCommand.h"
#include "cmutil/system/CmKelPerfsStats.h"
#include "cmutil/system/KELSystemResourceMonitor.h"
#include "cmutil/thread/CmThread.h"
#include "cmutil/thread/CmThreadSingletonFactory.h"
#include "cmutil/thread/CmThreadWaiter.h"
#include "cmutil/timer/CmTimer.h"
#include "cmutil/timer/CmTimerWrapperID.h"
#include "system/CmThreadCpuSampler.h"

namespace {

const char kTopUsage[] =
    "top [--interval MS] [--count N] [--json] [--pid PID]\n"
    "  machine, per-core and process CPU, memory, GPU, wake-ups and energy every MS milliseconds\n"
    "  (default 1000, at least 10); N samples then exit (default: until interrupted); --json writes\n"
    "  one JSON object per sample; --pid also lists the busiest threads of process PID";

constexpr int kShownThreads = 10;

struct TopOptions {
  unsigned intervalMs = 1000;
  unsigned count = 0;  // 0: until interrupted
  bool json = false;
  int pid = 0;
};

/// A whole decimal number in [minimum, maximum]; false otherwise.
bool parse_number(const char* text, unsigned long minimum, unsigned long maximum, unsigned long& out) {
  if (!text || !*text || *text < '0' || *text > '9') return false;
  char* end = nullptr;
  errno = 0;
  out = std::strtoul(text, &end, 10);
  return errno == 0 && *end == '\0' && out >= minimum && out <= maximum;
}

/// Fills options from argv; false on a usage error.
bool parse_options(int argc, char** argv, TopOptions& options) {
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    unsigned long value = 0;
    const char* next = i + 1 < argc ? argv[i + 1] : nullptr;
    if (arg == "--json") {
      options.json = true;
    } else if (arg == "--interval" && parse_number(next, 10, 3600000, value)) {
      options.intervalMs = static_cast<unsigned>(value);
      ++i;
    } else if (arg == "--count" && parse_number(next, 1, 1000000, value)) {
      options.count = static_cast<unsigned>(value);
      ++i;
    } else if (arg == "--pid" && parse_number(next, 1, 0x7fffffff, value)) {
      options.pid = static_cast<int>(value);
      ++i;
    } else {
      return false;
    }
  }
  return true;
}

/// Writes text as a JSON string (quotes, backslashes and control bytes escaped).
void json_string(FILE* out, const char* text) {
  std::fputc('"', out);
  for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text); *p; ++p) {
    if (*p == '"' || *p == '\\')
      std::fprintf(out, "\\%c", *p);
    else if (*p < 0x20)
      std::fprintf(out, "\\u%04x", *p);
    else
      std::fputc(*p, out);
  }
  std::fputc('"', out);
}

/// One sample's figures as shown.
struct TopSample {
  unsigned number = 0;
  _tagKelCPUUsage cpu = {};
  _tagKelMemoryUsage memory = {};
  unsigned gpu = 0xFFFFFFFFu;  // unknown
  int threadCount = 0;
  CmThreadCpu threads[kShownThreads];
};

class TopView : public CCmTimerWrapperIDSink {
 public:
  TopView(const TopOptions& options, CKelPerfsStats& stats)
      : m_options(options), m_stats(stats), m_terminal(!options.json && isatty(STDOUT_FILENO)), m_done(1) {
    if (options.pid) m_pidSampler = new CmThreadCpuSampler(("/proc/" + std::to_string(options.pid) + "/task").c_str());
  }
  ~TopView() override { delete m_pidSampler; }

  /// Primes the other process's thread counters; false when the process cannot be read.
  bool Prime() { return !m_pidSampler || m_pidSampler->Sample(get_tick_count_us(), 0); }

  /// Shows the latest sample; false when the sampler has none.
  bool Show() {
    TopSample s;
    s.number = ++m_shown;
    if (m_stats.get_cpu_statistics(s.cpu) != 0 || m_stats.get_memory_statistics(s.memory) != 0) return false;
    getKELSystemResourceMonitor()->getGPUUsage(s.gpu);
    CollectThreads(s);
    if (m_options.json)
      PrintJson(s);
    else if (m_terminal)
      PrintScreen(s);
    else
      PrintLine(s);
    std::fflush(stdout);
    return true;
  }

  void OnTimer(CCmTimerWrapperID*) override {
    if (m_finished) return;
    if (!Show() || (m_options.count && m_shown >= m_options.count)) {
      m_finished = true;
      m_done.Finished();
    }
  }

  void WaitDone() { m_done.WaitUntilFinished(); }

 private:
  void CollectThreads(TopSample& s) {
    if (m_pidSampler) {
      m_pidSampler->Sample(get_tick_count_us(), kShownThreads);
      for (const CmThreadCpu& t : m_pidSampler->Threads()) {
        if (s.threadCount == kShownThreads) break;
        s.threads[s.threadCount++] = t;
      }
      return;
    }
    for (int i = 0; i < s.cpu.threadCount && s.threadCount < kShownThreads; ++i) {
      CmThreadCpu& t = s.threads[s.threadCount++];
      std::snprintf(t.name, sizeof t.name, "%s", s.cpu.threads[i].name);
      t.percent = s.cpu.threads[i].usage;
    }
  }

  void PrintScreen(const TopSample& s) {
    std::printf("\x1b[H\x1b[2J");
    std::printf("cmutil top: sample %u, every %u ms\n\n", s.number, m_options.intervalMs);
    std::printf("CPU %6.2f%% machine   %6.2f%% this process   %u cores\n", s.cpu.average, s.cpu.process,
                s.cpu.coreCount);
    for (unsigned i = 0; i < s.cpu.coreCount && i < 128; ++i) {
      const int filled = static_cast<int>(s.cpu.cores[i] / 100.0f * 40.0f + 0.5f);
      std::printf("  cpu%-3u [%-40.*s] %6.2f%%\n", i, filled, "########################################",
                  s.cpu.cores[i]);
    }
    std::printf("Memory %5.1f%%  %llu of %llu MiB in use, this process %llu MiB\n", s.memory.percent,
                s.memory.used / 1024, s.memory.total / 1024, s.memory.process / 1024);
    if (s.gpu == 0xFFFFFFFFu)
      std::printf("GPU    -\n");
    else
      std::printf("GPU    %u%%\n", s.gpu);
    std::printf("Wake-ups %llu/s", static_cast<unsigned long long>(s.cpu.wakeups));
    if (s.cpu.energy) std::printf("   energy %llu nJ/us", static_cast<unsigned long long>(s.cpu.energy));
    std::printf("\n\nBusiest threads of %s:\n",
                m_options.pid ? ("process " + std::to_string(m_options.pid)).c_str() : "this process");
    for (int i = 0; i < s.threadCount; ++i) std::printf("  %7.2f%%  %s\n", s.threads[i].percent, s.threads[i].name);
  }

  void PrintLine(const TopSample& s) {
    std::printf("sample %u: cpu %.2f%% process %.2f%% cores %u memory %.1f%% (%llu/%llu MiB) gpu ", s.number,
                s.cpu.average, s.cpu.process, s.cpu.coreCount, s.memory.percent, s.memory.used / 1024,
                s.memory.total / 1024);
    if (s.gpu == 0xFFFFFFFFu)
      std::printf("-");
    else
      std::printf("%u%%", s.gpu);
    std::printf(" wakeups %llu/s", static_cast<unsigned long long>(s.cpu.wakeups));
    if (s.cpu.energy) std::printf(" energy %llu nJ/us", static_cast<unsigned long long>(s.cpu.energy));
    std::printf(" threads");
    for (int i = 0; i < s.threadCount; ++i) std::printf(" %s=%.2f%%", s.threads[i].name, s.threads[i].percent);
    std::printf("\n");
  }

  void PrintJson(const TopSample& s) {
    std::printf(
        "{\"sample\":%u,\"interval_ms\":%u,\"cpu\":{\"average\":%.2f,\"process\":%.2f,\"raw_sum\":%.2f,\"cores\":[",
        s.number, m_options.intervalMs, s.cpu.average, s.cpu.process, s.cpu.rawSum);
    for (unsigned i = 0; i < s.cpu.coreCount && i < 128; ++i) std::printf("%s%.2f", i ? "," : "", s.cpu.cores[i]);
    std::printf("]},\"memory\":{\"percent\":%.2f,\"used_kib\":%llu,\"total_kib\":%llu,\"process_kib\":%llu},",
                s.memory.percent, s.memory.used, s.memory.total, s.memory.process);
    if (s.gpu == 0xFFFFFFFFu)
      std::printf("\"gpu\":null,");
    else
      std::printf("\"gpu\":%u,", s.gpu);
    std::printf("\"wakeups_per_s\":%llu,\"energy_nj_per_us\":%llu,", static_cast<unsigned long long>(s.cpu.wakeups),
                static_cast<unsigned long long>(s.cpu.energy));
    if (m_options.pid) std::printf("\"pid\":%d,", m_options.pid);
    std::printf("\"threads\":[");
    for (int i = 0; i < s.threadCount; ++i) {
      std::printf("%s{\"name\":", i ? "," : "");
      json_string(stdout, s.threads[i].name);
      std::printf(",\"cpu\":%.2f}", s.threads[i].percent);
    }
    std::printf("]}\n");
  }

  const TopOptions& m_options;
  CKelPerfsStats& m_stats;
  const bool m_terminal;
  CmThreadCpuSampler* m_pidSampler = nullptr;
  unsigned m_shown = 0;
  bool m_finished = false;
  ThreadWaiter m_done;
};

/// Stops, joins and destroys a task thread.
void end_thread(ACmThread* thread) {
  thread->Stop(nullptr);
  thread->Join();
  thread->Destory(0);
}

int top_command(int argc, char** argv) {
  TopOptions options;
  if (!parse_options(argc, argv, options)) {
    std::fprintf(stderr, "usage: cmutil %s\n", kTopUsage);
    return 2;
  }
  CKelPerfsStats& stats = *CKelPerfsStats::instance();
  TopView view(options, stats);
  if (!view.Prime()) {
    std::fprintf(stderr, "cmutil: cannot read the threads of process %d\n", options.pid);
    return 1;
  }
  ACmThread* thread = nullptr;
  if (CreateUserTaskThread("t-top", thread, TF_JOINABLE, true, TT_UNKNOWN) != CM_OK || !thread) {
    std::fprintf(stderr, "cmutil: cannot create a task thread\n");
    return 1;
  }
  stats.SetInterval(static_cast<int>(options.intervalMs));
  int rc = 0;
  if (stats.start(thread) != CM_OK || !stats.WaitUntilReady(options.intervalMs * 2 + 10000) || !view.Show()) {
    std::fprintf(stderr, "cmutil: the sampler produced no sample\n");
    rc = 1;
  } else if (options.count != 1) {
    // Shown right after each later sample: the view's timer starts just after one and
    // repeats at the sampler's interval on the same thread.
    CCmTimerWrapperID display;
    const CCmTimeValue every(static_cast<long>(options.intervalMs / 1000),
                             static_cast<long>(options.intervalMs % 1000) * 1000);
    if (display.ScheduleInThread(thread, &view, every, options.count ? options.count - 1 : 0) == CM_OK) {
      view.WaitDone();
    } else {
      rc = 1;
    }
    display.Cancel();
  }
  stats.stop();
  end_thread(thread);
  return rc;
}

}  // namespace

CMUTIL_REGISTER_COMMAND("top", kTopUsage, top_command);
