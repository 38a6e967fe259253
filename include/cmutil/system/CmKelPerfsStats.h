#pragma once
/// Push-style performance sampler for the media engine.
///
/// Once started on a library task thread, a repeating timer samples every interval
/// (2000 ms by default): per-core and machine CPU, this process's CPU and its busiest
/// threads, system memory, GPU load (every fourth sample), wake-ups per second and the
/// energy rate. Callers copy the latest figures out with get_cpu_statistics and
/// get_memory_statistics from any thread. start/stop nest by count: the last stop
/// cancels the timer. One process-wide instance (instance()); a separately constructed
/// sampler is independent.
///
///   CKelPerfsStats* stats = CKelPerfsStats::instance();
///   stats->start(thread);          // a task thread with a timer queue
///   stats->WaitUntilReady();       // two samples taken: rates are meaningful
///   _tagKelCPUUsage cpu;
///   if (stats->get_cpu_statistics(cpu) == 0) use(cpu.average);
///   stats->stop();

#include <cstdint>

#include "cmutil/base/CmExport.h"
#include "cmutil/timer/CmTimerWrapperID.h"

class ACmThread;

/// One of the busiest threads: its name and its CPU in percent of one core.
struct CM_EXPORT _tagKelThreadUsage {
  char name[260];
  float usage;
};

/// CPU figures of one sample.
struct CM_EXPORT _tagKelCPUUsage {
  float average;                   ///< machine CPU, 0-100
  float cores[128];                ///< per-core percent, each at most 99.99
  uint32_t coreCount;              ///< cores sampled
  float process;                   ///< this process, 0-100 of the machine, never above average
  float reserved;                  ///< unused, 0
  float rawSum;                    ///< sum of the per-core percents before any cap
  _tagKelThreadUsage threads[20];  ///< busiest threads first
  int32_t threadCount;             ///< slots of threads filled
  float gpu;                       ///< busiest GPU percent (refreshed every fourth sample)
  uint32_t reserved2;              ///< unused, 0
  uint64_t wakeups;                ///< voluntary wake-ups of the process per second
  uint64_t energy;                 ///< energy rate in nanojoules per microsecond; 0 when unknown
};

/// Memory figures of one sample.
struct CM_EXPORT _tagKelMemoryUsage {
  float percent;               ///< system memory in use, percent
  unsigned long long used;     ///< KiB in use
  unsigned long long total;    ///< KiB in all
  unsigned long long process;  ///< this process's resident KiB
};

class CM_EXPORT CKelPerfsStats : public CCmTimerWrapperIDSink {
 public:
  CKelPerfsStats();
  /// Cancels the timer; do not destroy a sampler while another thread uses it.
  ~CKelPerfsStats() override;
  CKelPerfsStats(const CKelPerfsStats&) = delete;
  CKelPerfsStats& operator=(const CKelPerfsStats&) = delete;

  /// The process-wide sampler, constructed on first use.
  static CKelPerfsStats* instance();

  /// Starts sampling on thread's timer queue, or counts one more start when running.
  /// Returns the scheduling result (0 when already running).
  CmResult start(ACmThread* thread);
  /// Matches one start; the last one cancels the timer. Any thread, also while a sample
  /// runs (the sample finishes; no new one starts).
  void stop();
  bool is_stopped();

  /// Sampling interval in milliseconds; takes effect at the next start.
  void SetInterval(int milliseconds);
  /// Recorded for callers that ask for the full status; sampling is the same either way.
  void EnablFullPerfStatus(bool enable);
  /// Blocks until two samples have completed since the last start, init or reset.
  void WaitUntilReady();
  /// The same, giving up after timeoutMs; true when ready.
  bool WaitUntilReady(unsigned int timeoutMs);
  /// Both re-arm the ready wait and forget the per-core history.
  void init();
  void reset();

  /// Copies the latest CPU figures: 0, or 0x46004008 while stopped.
  CmResult get_cpu_statistics(_tagKelCPUUsage& usage);
  /// Copies the latest memory figures: 0, or 0x46004008 while stopped.
  CmResult get_memory_statistics(_tagKelMemoryUsage& usage);

  /// CPU temperature in degrees Celsius; 0 when the machine has no readable sensor.
  double get_cpu_temperature();
  /// Fan speed in RPM; 0 when the machine has no readable fan.
  unsigned int get_fan_speed();

  /// Caps value at cores x 100 - 0.01; with fewer than one core it is left as is.
  static void RoundCpu(int cores, float& value);

  void OnTimer(CCmTimerWrapperID* aId) override;

 private:
  friend struct CKelPerfsStatsTestHook;
  struct State;
  void _kick();
  void sampleMemory();
  void sampleCores(float& sum);
  void sampleThreads(float& sum);
  void publishCpu(float coreSum, float processSum);
  void sampleWakeups();
  void sampleEnergy();

  State* m_state;
};
