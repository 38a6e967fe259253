// Per-thread CPU between two passes over a process's task folder.

#include "system/CmThreadCpuSampler.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "platform/CmMonitorPlatform.h"
#include "system/CmMonitorParsers.h"

namespace {
constexpr size_t kMaxOpenFiles = 256;
}

CmThreadCpuSampler::CmThreadCpuSampler(const char* taskDir) : m_taskDir(taskDir ? taskDir : "/proc/self/task") {}

CmThreadCpuSampler::~CmThreadCpuSampler() {
  for (const Ticks& t : m_prev) cm_mon_close(t.fd);
}

CmThreadCpuSampler::Ticks* CmThreadCpuSampler::previous(int tid) {
  auto it = std::lower_bound(m_prev.begin(), m_prev.end(), tid, [](const Ticks& t, int id) { return t.tid < id; });
  return it != m_prev.end() && it->tid == tid ? &*it : nullptr;
}

bool CmThreadCpuSampler::readStat(int tid, Ticks* before, int& fd) {
  fd = -1;
  if (before) std::swap(fd, before->fd);  // the file moves on to this pass
  if (fd < 0 && m_next.size() < kMaxOpenFiles) fd = cm_mon_open_task_file(m_taskDir.c_str(), tid, "stat");
  const bool ok = fd >= 0 ? cm_mon_reread(fd, m_buf) : cm_mon_read_task_file(m_taskDir.c_str(), tid, "stat", m_buf);
  if (!ok) {
    cm_mon_close(fd);
    fd = -1;
  }
  return ok;
}

void CmThreadCpuSampler::readName(CmThreadCpu& thread) {
  thread.name[0] = '\0';
  if (!cm_mon_read_task_file(m_taskDir.c_str(), thread.tid, "comm", m_buf)) return;
  std::string_view name = cm_trim_comm(m_buf, sizeof thread.name - 1);
  std::memcpy(thread.name, name.data(), name.size());
  thread.name[name.size()] = '\0';
}

bool CmThreadCpuSampler::Sample(int64_t nowUs, size_t named) {
  m_threads.clear();
  m_next.clear();
  if (!cm_mon_list_tasks(m_taskDir.c_str(), m_tids)) return false;
  const double elapsedTicks = static_cast<double>(nowUs - m_prevUs) * cm_mon_ticks_per_second() / 1e6;
  for (int tid : m_tids) {
    Ticks* before = previous(tid);
    int fd = -1;
    uint64_t utime = 0, stime = 0;
    // A thread that ended after the listing has no stat any more: skip it.
    if (!readStat(tid, before, fd)) continue;
    if (!cm_parse_task_stat_times(m_buf, utime, stime)) {
      cm_mon_close(fd);
      continue;
    }
    m_next.push_back(Ticks{tid, utime + stime, fd});
    const uint64_t ran = before ? cm_tick_delta(before->ticks, utime + stime) : 0;
    if (!m_primed || ran == 0 || elapsedTicks <= 0) continue;  // idle since the last pass
    CmThreadCpu thread;
    thread.tid = tid;
    thread.percent = static_cast<float>(static_cast<double>(ran) * 100.0 / elapsedTicks);
    m_threads.push_back(thread);
  }
  for (const Ticks& t : m_prev) cm_mon_close(t.fd);  // threads that ended
  std::sort(m_threads.begin(), m_threads.end(),
            [](const CmThreadCpu& a, const CmThreadCpu& b) { return a.percent > b.percent; });
  for (size_t i = 0; i < m_threads.size() && i < named; ++i) readName(m_threads[i]);
  std::sort(m_next.begin(), m_next.end(), [](const Ticks& a, const Ticks& b) { return a.tid < b.tid; });
  m_prev.swap(m_next);
  m_prevUs = nowUs;
  m_primed = true;
  return true;
}
