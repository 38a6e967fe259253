// The push-style sampler: a repeating timer on a task thread takes one sample per
// interval and publishes it as snapshots. A sample reads each source file once into
// buffers kept in the state, so after the first sample it allocates nothing.

#include "cmutil/system/CmKelPerfsStats.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include "cmutil/base/CmMutex.h"
#include "cmutil/base/CmThreadMisc.h"
#include "cmutil/thread/CmThreadWaiter.h"
#include "cmutil/trace/CmTraceMacros.h"
#include "platform/CmMonitorPlatform.h"
#include "system/CmKelPerfsStatsTestHook.h"
#include "system/CmMacSMC.h"
#include "system/CmMonitorClock.h"
#include "system/CmMonitorParsers.h"
#include "system/CmThreadCpuSampler.h"

namespace {

typedef CCmMutexGuardT<CCmMutexThreadRecursive> Guard;

constexpr int kMaxCores = 100;
constexpr int kThreadSlots = 20;
constexpr float kCoreCap = 99.99f;
constexpr unsigned kReadyCount = 2;

struct CoreHistory {
  uint64_t busy;
  uint64_t total;
  float usage;
};

}  // namespace

struct CKelPerfsStats::State {
  CCmMutexThreadRecursive lock;
  CoreHistory cores[kMaxCores] = {};
  int32_t startCount = 0;
  int32_t interval = 2000;
  int32_t topThreads = 10;
  _tagKelCPUUsage cpu = {};
  _tagKelMemoryUsage memory = {};
  CMacSMC* sensor = nullptr;
  CCmTimerWrapperID timer;
  uint32_t fullStatus = 0;
  uint32_t kicks = 0;
  ThreadWaiter ready{kReadyCount};
  uint64_t prevWakeups = 0, prevEnergy = 0;
  bool haveWakeups = false, haveEnergy = false;

  // Serialises start and stop, so the timer is scheduled and cancelled in the order the
  // counts changed, while a running sample (which needs only `lock`) can finish.
  std::mutex control;
  std::string text;  // one buffer for every file of a sample
  CmCoreTicks coreTicks[kMaxCores];
  CmThreadCpuSampler threads{"/proc/self/task"};
  CmRereadFile statFile{"/proc/stat"};
  CmRereadFile meminfoFile{"/proc/meminfo"};
  CmRereadFile statusFile{"/proc/self/status"};
  std::vector<std::string> energyFiles;
  bool energyProbed = false;

  void forgetHistory() {
    std::memset(cores, 0, sizeof cores);
    haveWakeups = haveEnergy = energyProbed = false;
  }
};

CKelPerfsStats::CKelPerfsStats() : m_state(new State) {
  m_state->sensor = new CMacSMC;
  if (!m_state->sensor->Open("AppleSMC")) {
    delete m_state->sensor;
    m_state->sensor = nullptr;
  }
}

CKelPerfsStats::~CKelPerfsStats() {
  m_state->timer.Cancel();
  delete m_state->sensor;
  delete m_state;
}

CKelPerfsStats* CKelPerfsStats::instance() {
  static CKelPerfsStats* stats = new CKelPerfsStats;  // never destroyed: timers may outlive statics
  return stats;
}

CmResult CKelPerfsStats::start(ACmThread* thread) {
  std::lock_guard<std::mutex> control(m_state->control);
  long long intervalUs = 0;
  {
    Guard guard(m_state->lock);
    CM_INFO_TRACE("CKelPerfsStats::start, inst=" << m_state->startCount << " [cid=" << CmGetThreadID() << "]");
    if (m_state->startCount > 0) {
      CM_INFO_TRACE("perfs: it is already started.");
      ++m_state->startCount;
      return CM_OK;
    }
    m_state->ready.Reset(kReadyCount);
    m_state->forgetHistory();
    m_state->startCount = 1;
    intervalUs = static_cast<long long>(m_state->interval) * 1000;
  }
  return m_state->timer.ScheduleInThread(
      thread, this, CCmTimeValue(static_cast<long>(intervalUs / 1000000), static_cast<long>(intervalUs % 1000000)), 0);
}

void CKelPerfsStats::stop() {
  std::lock_guard<std::mutex> control(m_state->control);
  {
    Guard guard(m_state->lock);
    CM_INFO_TRACE("CKelPerfsStats::stop, inst=" << m_state->startCount << " [cid=" << CmGetThreadID() << "]");
    if (m_state->startCount > 0 && --m_state->startCount > 0) return;
    m_state->startCount = 0;
    m_state->kicks = 0;
  }
  // Outside the state lock: a sample running now must be able to finish for the
  // cancel to return promptly.
  m_state->timer.Cancel();
}

bool CKelPerfsStats::is_stopped() {
  Guard guard(m_state->lock);
  return m_state->startCount == 0;
}

void CKelPerfsStats::SetInterval(int milliseconds) {
  Guard guard(m_state->lock);
  m_state->interval = milliseconds;
}

void CKelPerfsStats::EnablFullPerfStatus(bool enable) {
  Guard guard(m_state->lock);
  m_state->fullStatus = enable ? 1 : 0;
}

void CKelPerfsStats::WaitUntilReady() { m_state->ready.WaitUntilFinished(); }

bool CKelPerfsStats::WaitUntilReady(unsigned int timeoutMs) { return m_state->ready.WaitUntilTimeout(timeoutMs); }

void CKelPerfsStats::init() { reset(); }

void CKelPerfsStats::reset() {
  Guard guard(m_state->lock);
  m_state->ready.Reset(kReadyCount);
  m_state->forgetHistory();
}

CmResult CKelPerfsStats::get_cpu_statistics(_tagKelCPUUsage& usage) {
  Guard guard(m_state->lock);
  if (m_state->startCount == 0) return CM_ERROR_NOT_INITIALIZED;
  usage = m_state->cpu;
  return CM_OK;
}

CmResult CKelPerfsStats::get_memory_statistics(_tagKelMemoryUsage& usage) {
  Guard guard(m_state->lock);
  if (m_state->startCount == 0) return CM_ERROR_NOT_INITIALIZED;
  usage = m_state->memory;
  return CM_OK;
}

double CKelPerfsStats::get_cpu_temperature() {
  double celsius = 0;
  return m_state->sensor && m_state->sensor->ReadCpuTemperature(celsius) ? celsius : 0;
}

unsigned int CKelPerfsStats::get_fan_speed() {
  unsigned rpm = 0;
  return m_state->sensor && m_state->sensor->ReadFanSpeed(rpm) ? rpm : 0;
}

void CKelPerfsStats::RoundCpu(int cores, float& value) {
  if (cores >= 1) {
    value = std::min(value, static_cast<float>(cores) * 100.0f - 0.01f);
  } else {
    CM_INFO_TRACE("CKelPerfsStats::RoundCpu, rate = " << value << ", cores = " << cores);
  }
}

void CKelPerfsStats::OnTimer(CCmTimerWrapperID* aId) {
  if (aId == &m_state->timer) _kick();
}

void CKelPerfsStats::_kick() {
  Guard guard(m_state->lock);
  // A callback that began before the last stop must not publish.
  if (m_state->startCount == 0) return;
  sampleMemory();
  float coreSum = 0, processSum = 0;
  sampleCores(coreSum);
  sampleThreads(processSum);
  publishCpu(coreSum, processSum);
  if (m_state->kicks % 4 == 0) m_state->cpu.gpu = cm_monitor_gpu_percent();
  ++m_state->kicks;
  sampleWakeups();
  sampleEnergy();
  m_state->ready.Finished();
}

void CKelPerfsStats::sampleMemory() {
  State& s = *m_state;
  uint64_t totalKb = 0, usedKb = 0, residentKb = 0;
  if (s.meminfoFile.Read(s.text) && cm_meminfo_used_kb(s.text, totalKb, usedKb)) {
    // The same 32-bit figures the memory facts report.
    s.memory.used = usedKb & 0xffffffffULL;
    s.memory.total = totalKb & 0xffffffffULL;
    s.memory.percent = s.memory.total ? static_cast<float>(s.memory.used) * 100.0f / s.memory.total : 0.0f;
  }
  if (s.statusFile.Read(s.text) && cm_find_status_number(s.text, "VmRSS", residentKb)) s.memory.process = residentKb;
}

void CKelPerfsStats::sampleCores(float& sum) {
  State& s = *m_state;
  s.cpu.coreCount = 0;
  if (!s.statFile.Read(s.text)) return;
  const size_t n = cm_parse_stat_cores(s.text, s.coreTicks, kMaxCores);
  uint32_t count = 0;
  for (size_t i = 0; i < n; ++i) {
    const CmCoreTicks& core = s.coreTicks[i];
    if (core.index >= static_cast<unsigned>(kMaxCores)) continue;
    CoreHistory& h = s.cores[core.index];
    const uint64_t busy = core.ticks.user + core.ticks.system + core.ticks.nice;
    const uint64_t total = busy + core.ticks.idle;
    if (total != h.total) {
      const uint64_t dTotal = cm_tick_delta(h.total, total);
      if (dTotal > 0) h.usage = static_cast<float>(static_cast<double>(cm_tick_delta(h.busy, busy)) * 100.0 / dTotal);
    }
    h.busy = busy;
    h.total = total;
    s.cpu.cores[count++] = h.usage;
    sum += h.usage;
  }
  s.cpu.coreCount = count;
}

void CKelPerfsStats::sampleThreads(float& sum) {
  State& s = *m_state;
  const size_t slots = static_cast<size_t>(std::max(0, std::min(s.topThreads, kThreadSlots)));
  s.cpu.threadCount = 0;
  if (!s.threads.Sample(cm_monitor_steady_us(), slots)) return;
  for (const CmThreadCpu& t : s.threads.Threads()) sum += t.percent;
  size_t filled = 0;
  for (; filled < slots && filled < s.threads.Threads().size(); ++filled) {
    const CmThreadCpu& t = s.threads.Threads()[filled];
    std::memcpy(s.cpu.threads[filled].name, t.name, sizeof t.name);
    s.cpu.threads[filled].usage = t.percent;
  }
  s.cpu.threadCount = static_cast<int32_t>(filled);
}

void CKelPerfsStats::publishCpu(float coreSum, float processSum) {
  _tagKelCPUUsage& cpu = m_state->cpu;
  const int cores = static_cast<int>(cpu.coreCount);
  if (cores < 1) return;
  cpu.rawSum = coreSum;
  RoundCpu(cores, coreSum);
  cpu.average = std::max(0.0f, std::min(100.0f, coreSum / static_cast<float>(cores)));
  for (int i = 0; i < cores; ++i) cpu.cores[i] = std::min(cpu.cores[i], kCoreCap);
  RoundCpu(cores, processSum);
  const float process = std::max(0.0f, std::min(100.0f, processSum / static_cast<float>(cores)));
  cpu.process = std::min(process, cpu.average);
}

void CKelPerfsStats::sampleWakeups() {
  State& s = *m_state;
  CmProcessUsage usage;
  if (!cm_process_usage(usage, s.text)) return;  // keep the last rate
  s.cpu.wakeups = s.haveWakeups && s.interval > 0
                      ? cm_tick_delta(s.prevWakeups, usage.voluntarySwitches) * 1000 / static_cast<uint64_t>(s.interval)
                      : 0;
  s.prevWakeups = usage.voluntarySwitches;
  s.haveWakeups = true;
}

void CKelPerfsStats::sampleEnergy() {
  State& s = *m_state;
  if (!s.energyProbed) {  // the zones are found once per start, not every sample
    cm_mon_energy_files(s.energyFiles);
    s.energyProbed = true;
  }
  uint64_t microjoules = 0;
  if (!cm_mon_energy_uj(s.energyFiles, s.text, microjoules)) {
    s.cpu.energy = 0;
    return;
  }
  const uint64_t nanojoules = microjoules * 1000;
  s.cpu.energy = s.haveEnergy && s.interval > 0
                     ? cm_tick_delta(s.prevEnergy, nanojoules) / (static_cast<uint64_t>(s.interval) * 1000)
                     : 0;
  s.prevEnergy = nanojoules;
  s.haveEnergy = true;
}

void CKelPerfsStatsTestHook::StartWithoutTimer(CKelPerfsStats& stats, int intervalMs) {
  Guard guard(stats.m_state->lock);
  stats.m_state->interval = intervalMs;
  stats.m_state->ready.Reset(kReadyCount);
  stats.m_state->forgetHistory();
  stats.m_state->startCount = 1;
}

void CKelPerfsStatsTestHook::Sample(CKelPerfsStats& stats) { stats._kick(); }
