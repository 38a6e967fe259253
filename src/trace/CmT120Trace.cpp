// Trace files: buffered, rotating log files with an offset header and a current-point
// marker, shareable between processes through a whole-file lock.
#include "trace/CmT120Trace.h"

#include <fcntl.h>
#include <pthread.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>

#include "cmutil/base/CmProcessName.h"
#include "cmutil/base/CmSingleton.h"
#include "cmutil/trace/CmT120Trace.h"
#include "cmutil/trace/CmTrace.h"
#include "platform/CmPlatform.h"

const char kCmTraceCurrentPoint[] = "************************* Current Trace Point *************************\n\n";

namespace {

constexpr size_t kCurrentPointLen = sizeof(kCmTraceCurrentPoint) - 1;

void real_clock(int64_t* sec, int32_t* usec) {
  const long long us = cm_platform_realtime_us();
  *sec = us / 1000000;
  *usec = static_cast<int32_t>(us % 1000000);
}

std::atomic<CmTraceClockFn> g_traceClock{&real_clock};

void trace_now(int64_t* sec, int32_t* usec) { g_traceClock.load(std::memory_order_relaxed)(sec, usec); }

// Process id, refreshed in a forked child.
std::atomic<int> g_tracePid{0};
std::once_flag g_tracePidOnce;

void refresh_pid() { g_tracePid.store(cm_platform_getpid(), std::memory_order_relaxed); }

int trace_pid() {
  std::call_once(g_tracePidOnce, [] {
    refresh_pid();
    pthread_atfork(nullptr, nullptr, &refresh_pid);
  });
  return g_tracePid.load(std::memory_order_relaxed);
}

// Writes the decimal of v (may be negative) and returns the number of characters.
size_t put_int(char* out, long long v) {
  char tmp[24];
  size_t n = 0;
  unsigned long long u = v < 0 ? 0ULL - static_cast<unsigned long long>(v) : static_cast<unsigned long long>(v);
  do {
    tmp[n++] = static_cast<char>('0' + u % 10);
    u /= 10;
  } while (u);
  size_t len = 0;
  if (v < 0) out[len++] = '-';
  while (n) out[len++] = tmp[--n];
  return len;
}

inline void put2(char* out, int v) {
  out[0] = static_cast<char>('0' + (v / 10) % 10);
  out[1] = static_cast<char>('0' + v % 10);
}

bool pwrite_all(int fd, const char* data, size_t len, off_t offset, size_t* written) {
  size_t done = 0;
  while (done < len) {
    ssize_t w = pwrite(fd, data + done, len - done, offset + static_cast<off_t>(done));
    if (w < 0) {
      if (errno == EINTR) continue;
      break;
    }
    if (w == 0) break;
    done += static_cast<size_t>(w);
  }
  *written = done;
  return done == len;
}

}  // namespace

void cm_trace_file_set_clock(CmTraceClockFn fn) { g_traceClock.store(fn ? fn : &real_clock); }

// ---------------------------------------------------------------- CCmT120TraceFile

CCmT120TraceFile::CCmT120TraceFile(const char* path, unsigned long sizeLimit, bool lockWanted)
    : m_path(path ? path : ""), m_sizeLimit(sizeLimit), m_bLockWanted(lockWanted) {
  m_buffer.resize(static_cast<size_t>(m_nBlockCount) * m_nBlockSize + 1 + kCurrentPointLen);
  if (m_path.empty()) return;
  m_pStream = fopen(m_path.c_str(), "w+b");
  if (!m_pStream) return;
  m_fd = fileno(m_pStream);
  char header[kCmTraceHeaderSize + 1];
  snprintf(header, sizeof(header), "%-31ld\n", kCmTraceHeaderSize);
  size_t written = 0;
  pwrite_all(m_fd, header, kCmTraceHeaderSize, 0, &written);
}

CCmT120TraceFile::~CCmT120TraceFile() {
  {
    CCmMutexGuardT<CCmMutexThread> guard(m_mutex);
    flush_locked();
    if (m_pStream) fclose(m_pStream);
    m_pStream = nullptr;
    m_fd = -1;
    m_nMarker = 0;
  }
}

bool CCmT120TraceFile::is_open() const {
  CCmMutexGuardT<CCmMutexThread> guard(m_mutex);
  return m_fd >= 0;
}

bool CCmT120TraceFile::is_full() const { return m_bFull.load(std::memory_order_relaxed); }

size_t CCmT120TraceFile::format_prefix(char* out, int64_t sec, int32_t usec) {
  if (sec != m_cachedSec) {
    time_t t = static_cast<time_t>(sec);
    struct tm tmv;
    memset(&tmv, 0, sizeof(tmv));
    localtime_r(&t, &tmv);
    // "[MM/DD/YYYY HH:MM:SS."
    char* p = m_datePrefix;
    *p++ = '[';
    put2(p, tmv.tm_mon + 1);
    p += 2;
    *p++ = '/';
    put2(p, tmv.tm_mday);
    p += 2;
    *p++ = '/';
    int year = tmv.tm_year + 1900;
    if (year >= 0 && year <= 9999) {
      put2(p, year / 100);
      put2(p + 2, year % 100);
      p += 4;
    } else {
      p += put_int(p, year);
    }
    *p++ = ' ';
    put2(p, tmv.tm_hour);
    p += 2;
    *p++ = ':';
    put2(p, tmv.tm_min);
    p += 2;
    *p++ = ':';
    put2(p, tmv.tm_sec);
    p += 2;
    *p++ = '.';
    *p = '\0';
    m_cachedSec = sec;
  }
  size_t n = strlen(m_datePrefix);
  memcpy(out, m_datePrefix, n);
  int ms = usec / 1000;
  out[n++] = static_cast<char>('0' + ms / 100);
  out[n++] = static_cast<char>('0' + (ms / 10) % 10);
  out[n++] = static_cast<char>('0' + ms % 10);
  // " pid=P tid=T] " is fixed per thread (and per process after a fork).
  struct IdText {
    int pid = -1;
    size_t len = 0;
    char text[48];
  };
  thread_local IdText t_ids;
  const int pid = trace_pid();
  if (t_ids.pid != pid) {
    size_t k = 0;
    memcpy(t_ids.text, " pid=", 5);
    k += 5;
    k += put_int(t_ids.text + k, pid);
    memcpy(t_ids.text + k, " tid=", 5);
    k += 5;
    k += put_int(t_ids.text + k, cm_platform_gettid());
    t_ids.text[k++] = ']';
    t_ids.text[k++] = ' ';
    t_ids.len = k;
    t_ids.pid = pid;
  }
  memcpy(out + n, t_ids.text, t_ids.len);
  return n + t_ids.len;
}

void CCmT120TraceFile::write(const char* module, const char* source, const char* text, size_t textLen) {
  int64_t sec = 0;
  int32_t usec = 0;
  trace_now(&sec, &usec);
  write(module, source, text, textLen, sec, usec);
}

void CCmT120TraceFile::write(const char* module, const char* source, const char* text, size_t textLen, int64_t sec,
                             int32_t usec) {
  if (!text) text = "";
  char prefix[96];
  CCmMutexGuardT<CCmMutexThread> guard(m_mutex);
  if (m_fd < 0) return;
  size_t prefixLen = format_prefix(prefix, sec, usec);
  size_t moduleLen = 0, sourceLen = 0;
  const bool withModule = module && source;
  const bool withSource = source != nullptr;
  if (withModule) moduleLen = strlen(module);
  if (withSource) sourceLen = strlen(source);
  // prefix [module] source:text\n
  size_t need = prefixLen + (withModule ? moduleLen + 3 : 0) + (withSource ? sourceLen + 1 : 0) + textLen + 1;
  const size_t capacity = static_cast<size_t>(m_nBlockCount) * m_nBlockSize;
  if (need > capacity - m_nUsed) flush_locked();
  std::string big;
  char* out = nullptr;
  if (need > capacity) {
    big.resize(need);  // a record larger than the buffer goes out on its own
    out = &big[0];
  } else {
    out = m_buffer.data() + m_nUsed;
  }
  char* p = out;
  memcpy(p, prefix, prefixLen);
  p += prefixLen;
  if (withModule) {
    *p++ = '[';
    memcpy(p, module, moduleLen);
    p += moduleLen;
    *p++ = ']';
    *p++ = ' ';
  }
  if (withSource) {
    memcpy(p, source, sourceLen);
    p += sourceLen;
    *p++ = ':';
  }
  memcpy(p, text, textLen);
  p += textLen;
  *p++ = '\n';
  if (need > capacity)
    write_out(out, need, false);
  else
    m_nUsed += static_cast<uint32_t>(need);
}

void CCmT120TraceFile::flush_buffer() {
  CCmMutexGuardT<CCmMutexThread> guard(m_mutex);
  flush_locked();
}

void CCmT120TraceFile::flush_locked() {
  if (m_nUsed == 0) return;
  write_out(m_buffer.data(), m_nUsed, true);
  m_nUsed = 0;
}

void CCmT120TraceFile::lock_file() {
  if (m_bLockWanted && m_fd >= 0) cm_platform_lock_file(m_fd);
}

void CCmT120TraceFile::unlock_file() {
  if (m_bLockWanted && m_fd >= 0) cm_platform_unlock_file(m_fd);
}

// The decimal offset held in the header, 0 when it cannot be read.
long CCmT120TraceFile::read_header_offset() const {
  char header[kCmTraceHeaderSize + 1];
  ssize_t r = pread(m_fd, header, kCmTraceHeaderSize, 0);
  if (r <= 0) return 0;
  header[r] = '\0';
  return strtol(header, nullptr, 10);
}

// Appends `data` at the offset of the header, then the marker, then the new header.
// With markerRoom, `data` has room for the marker behind it and both go out in one write.
void CCmT120TraceFile::write_out(char* data, size_t len, bool markerRoom) {
  if (m_fd < 0 || len == 0) return;
  lock_file();
  // The header is the truth: another process (or another open of the same path in this
  // one) may have moved the end since our last flush, so it is read again every time.
  long offset = read_header_offset();
  // A damaged header must not let records overwrite the header itself.
  if (offset < kCmTraceHeaderSize) offset = kCmTraceHeaderSize;
  if (m_sizeLimit && static_cast<unsigned long>(offset) >= m_sizeLimit) {
    if (ftruncate(m_fd, offset) != 0) {
      // the old marker stays behind the records; the header still names their end
    }
    m_bFull.store(true, std::memory_order_relaxed);
  }
  size_t written = 0;
  if (markerRoom) {
    memcpy(data + len, kCmTraceCurrentPoint, kCurrentPointLen);
    pwrite_all(m_fd, data, len + kCurrentPointLen, offset, &written);
    if (written > len) written = len;
  } else {
    pwrite_all(m_fd, data, len, offset, &written);
    size_t markerWritten = 0;
    pwrite_all(m_fd, kCmTraceCurrentPoint, kCurrentPointLen, offset + static_cast<off_t>(written), &markerWritten);
  }
  offset += static_cast<long>(written);
  char header[kCmTraceHeaderSize + 1];
  snprintf(header, sizeof(header), "%-31ld\n", offset);
  size_t headerWritten = 0;
  pwrite_all(m_fd, header, kCmTraceHeaderSize, 0, &headerWritten);
  unlock_file();
}

void CCmT120TraceFile::refresh_settings(unsigned long sizeLimit, int blockCount) {
  CCmMutexGuardT<CCmMutexThread> guard(m_mutex);
  flush_locked();
  m_sizeLimit = sizeLimit;
  if (blockCount < 1) blockCount = 1;
  if (blockCount != m_nBlockCount) {
    m_nBlockCount = blockCount;
    std::vector<char>(static_cast<size_t>(blockCount) * m_nBlockSize + 1 + kCurrentPointLen).swap(m_buffer);
  }
}

// ---------------------------------------------------------------- CCmT120TraceFileMgr

namespace {
std::atomic<CCmT120TraceFileMgr*> g_traceFileMgr{nullptr};

void flush_trace_files_at_exit() {
  if (CCmT120TraceFileMgr* mgr = g_traceFileMgr.load()) mgr->flush_all();
}
}  // namespace

CCmT120TraceFileMgr* CCmT120TraceFileMgr::instance() {
  CCmT120TraceFileMgr* mgr = g_traceFileMgr.load(std::memory_order_acquire);
  if (mgr) return mgr;
  CCmMutexGuardT<CCmMutexThreadRecursive> guard(CmGetSingletonMutex());
  mgr = g_traceFileMgr.load(std::memory_order_relaxed);
  if (!mgr) {
    mgr = new (std::nothrow) CCmT120TraceFileMgr;
    if (mgr) {
      g_traceFileMgr.store(mgr, std::memory_order_release);
      atexit(&flush_trace_files_at_exit);
    }
  }
  return mgr;
}

bool CCmT120TraceFileMgr::known(CCmT120TraceFile* file) {
  return file && std::find(m_files.begin(), m_files.end(), file) != m_files.end();
}

CCmT120TraceFile* CCmT120TraceFileMgr::open(const char* path, unsigned long sizeLimit, unsigned char lockWanted,
                                            unsigned char flag) {
  (void)flag;
  if (!path || !*path) return nullptr;
  CCmMutexGuardT<CCmMutexThreadRecursive> guard(m_mutex);
  for (CCmT120TraceFile* f : m_files) {
    if (f->path() == path) return f;
  }
  CCmT120TraceFile* file = new (std::nothrow) CCmT120TraceFile(path, sizeLimit, lockWanted != 0);
  if (!file) return nullptr;
  if (!file->is_open()) {
    delete file;
    return nullptr;
  }
  m_files.insert(m_files.begin(), file);
  return file;
}

void CCmT120TraceFileMgr::close(CCmT120TraceFile* file) {
  CCmMutexGuardT<CCmMutexThreadRecursive> guard(m_mutex);
  auto it = std::find(m_files.begin(), m_files.end(), file);
  if (it == m_files.end()) return;
  m_files.erase(it);
  delete file;
}

void CCmT120TraceFileMgr::write(CCmT120TraceFile* file, const char* module, const char* source, const char* text) {
  CCmMutexGuardT<CCmMutexThreadRecursive> guard(m_mutex);
  if (!known(file)) return;
  file->write(module, source, text, text ? strlen(text) : 0);
}

void CCmT120TraceFileMgr::refresh_settings(CCmT120TraceFile* file, unsigned long sizeLimit, int blockCount) {
  CCmMutexGuardT<CCmMutexThreadRecursive> guard(m_mutex);
  for (CCmT120TraceFile* f : m_files) {
    if (!file || f == file) f->refresh_settings(sizeLimit, blockCount);
  }
}

void CCmT120TraceFileMgr::flush_all() {
  CCmMutexGuardT<CCmMutexThreadRecursive> guard(m_mutex);
  for (CCmT120TraceFile* f : m_files) f->flush_buffer();
}

size_t CCmT120TraceFileMgr::count() {
  CCmMutexGuardT<CCmMutexThreadRecursive> guard(m_mutex);
  return m_files.size();
}

CM_TRACE_DEV T120_Open_Trace_Dev(const char* path, unsigned long sizeLimit, unsigned char lockWanted,
                                 unsigned char flag) {
  CCmT120TraceFileMgr* mgr = CCmT120TraceFileMgr::instance();
  return mgr ? mgr->open(path, sizeLimit, lockWanted, flag) : nullptr;
}

void T120_Close_Trace_Dev(CM_TRACE_DEV dev) {
  CCmT120TraceFile* file = static_cast<CCmT120TraceFile*>(dev);
  // A file of the trace object is replaced by its next one (which closes it) rather than
  // closed behind the object's back, which would leave it writing to a freed file.
  if (CCmT120Trace* trace = CCmT120Trace::existing()) {
    if (trace->replace_if_held(file)) return;
  }
  if (CCmT120TraceFileMgr* mgr = CCmT120TraceFileMgr::instance()) mgr->close(file);
}

void T120_Write_Trace_Dev(CM_TRACE_DEV dev, const char* module, const char* source, const char* text) {
  if (CCmT120TraceFileMgr* mgr = CCmT120TraceFileMgr::instance())
    mgr->write(static_cast<CCmT120TraceFile*>(dev), module, source, text);
}

void T120_Refresh_Settings(unsigned long sizeLimit, int blockCount) {
  if (CCmT120TraceFileMgr* mgr = CCmT120TraceFileMgr::instance()) mgr->refresh_settings(nullptr, sizeLimit, blockCount);
}

// ---------------------------------------------------------------- CCmT120Trace

namespace {
std::atomic<CCmT120Trace*> g_traceObject{nullptr};
}  // namespace

CCmT120Trace* CCmT120Trace::instance() {
  CCmT120Trace* obj = g_traceObject.load(std::memory_order_acquire);
  if (obj) return obj;
  CCmMutexGuardT<CCmMutexThreadRecursive> guard(CmGetSingletonMutex());
  obj = g_traceObject.load(std::memory_order_relaxed);
  if (!obj) {
    obj = new (std::nothrow) CCmT120Trace;
    if (obj) {
      // Other threads that find the object wait on its mutex until its files are open;
      // a trace made while opening them (this thread) finds the object, not a new one.
      CCmMutexGuardT<CCmMutexThreadRecursive> opening(obj->m_mutex);
      g_traceObject.store(obj, std::memory_order_release);
      obj->load(nullptr);
    }
  }
  return obj;
}

CCmT120Trace* CCmT120Trace::existing() { return g_traceObject.load(std::memory_order_acquire); }

CCmT120Trace::CCmT120Trace() : m_nPid(trace_pid()) { local_day_month(&m_nDay, &m_nMonth); }

CCmT120Trace::~CCmT120Trace() {}

void CCmT120Trace::local_day_month(int64_t sec, int* day, int* month) {
  // The local date can only change at a second boundary: convert once per second.
  if (sec != m_dateSec) {
    time_t t = static_cast<time_t>(sec);
    struct tm tmv;
    memset(&tmv, 0, sizeof(tmv));
    localtime_r(&t, &tmv);
    m_dateSec = sec;
    m_dateDay = tmv.tm_mday;
    m_dateMonth = tmv.tm_mon + 1;
  }
  *day = m_dateDay;
  *month = m_dateMonth;
}

void CCmT120Trace::local_day_month(int* day, int* month) {
  int64_t sec = 0;
  int32_t usec = 0;
  trace_now(&sec, &usec);
  local_day_month(sec, day, month);
}

std::string CCmT120Trace::get_trace_dir() {
  char state[4096];
  if (cm_platform_user_state_dir(state, sizeof(state)) != 0) return std::string();
  // "%s/%s" of the folder and the process name, at most 511 characters.
  std::string dir = std::string(state) + "/" + get_process_name();
  if (dir.size() > 511) dir.resize(511);
  return dir;
}

// Replaces one file (or all) by the next numbered file. Caller holds m_mutex.
void CCmT120Trace::open_which(Which which) {
  CCmT120TraceFileMgr* mgr = CCmT120TraceFileMgr::instance();
  if (!mgr) return;
  std::string dir = get_trace_dir();
  if (!dir.empty()) cm_platform_make_dirs(dir.c_str());
  char path[1024];
  if (!m_fileName.empty()) {
    if (which != kAll && which != kInfo) return;
    if (m_bSingleFile) {
      snprintf(path, sizeof(path), "%s/%s", dir.c_str(), m_fileName.c_str());
    } else {
      snprintf(path, sizeof(path), "%s/%s.%d", dir.c_str(), m_fileName.c_str(), m_nInfoNumber);
      m_nInfoNumber = (m_nInfoNumber + 1) % 10;
    }
    if (m_pInfo) mgr->close(m_pInfo);
    m_pInfo = dir.empty() ? nullptr : mgr->open(path, kCmTraceFileSizeLimit, m_bSingleFile, 0);
    return;
  }
  const char* process = get_process_name();
  if (which == kAll || which == kInfo) {
    snprintf(path, sizeof(path), "%s/%s_info_%d.log", dir.c_str(), process, m_nInfoNumber);
    m_nInfoNumber = (m_nInfoNumber + 1) % 10;
    if (m_pInfo) mgr->close(m_pInfo);
    m_pInfo = dir.empty() ? nullptr : mgr->open(path, kCmTraceFileSizeLimit, m_bSingleFile, 0);
  }
  if (which == kAll || which == kError) {
    snprintf(path, sizeof(path), "%s/%s_error_%d.log", dir.c_str(), process, m_nErrorNumber);
    m_nErrorNumber = (m_nErrorNumber + 1) % 10;
    if (m_pError) mgr->close(m_pError);
    m_pError = dir.empty() ? nullptr : mgr->open(path, kCmTraceFileSizeLimit, m_bSingleFile, 0);
  }
  if ((which == kAll || which == kWarning) && !m_warningBase.empty()) open_next_warning(mgr);
}

// The warning file is opened only at the host's request (open_warning_file), under the
// path it gave; a reload replaces it by "<path>.1" to "<path>.9", then the path itself
// again, so warnings keep flowing after the file is full or the date changed.
void CCmT120Trace::open_next_warning(CCmT120TraceFileMgr* mgr) {
  m_nWarningNumber = (m_nWarningNumber + 1) % 10;
  std::string path = m_warningBase;
  if (m_nWarningNumber != 0) path += "." + std::to_string(m_nWarningNumber);
  if (m_pWarning) mgr->close(m_pWarning);
  m_pWarning = mgr->open(path.c_str(), kCmTraceFileSizeLimit, m_bSingleFile, 0);
}

void CCmT120Trace::load(CCmT120TraceFile* handle) {
  CCmMutexGuardT<CCmMutexThreadRecursive> guard(m_mutex);
  if (!handle) {
    if (m_pInfo) return;
    open_which(kAll);
    return;
  }
  if (handle == m_pInfo)
    open_which(kInfo);
  else if (handle == m_pError)
    open_which(kError);
  else if (handle == m_pWarning)
    open_which(kWarning);
}

bool CCmT120Trace::replace_if_held(CCmT120TraceFile* handle) {
  if (!handle) return false;
  CCmMutexGuardT<CCmMutexThreadRecursive> guard(m_mutex);
  if (handle != m_pInfo && handle != m_pError && handle != m_pWarning) return false;
  load(handle);
  return true;
}

void CCmT120Trace::trace_string(int level, const char* module, const char* text, int len) {
  if (!text) return;
  size_t textLen = len >= 0 ? static_cast<size_t>(len) : strlen(text);
  int64_t sec = 0;
  int32_t usec = 0;
  trace_now(&sec, &usec);
  CCmMutexGuardT<CCmMutexThreadRecursive> guard(m_mutex);
  if (m_pInfo) m_pInfo->write(module, "", text, textLen, sec, usec);
  int day = 0, month = 0;
  local_day_month(sec, &day, &month);
  if (day != m_nDay || month != m_nMonth) {
    m_nDay = day;
    m_nMonth = month;
    open_which(kAll);
  }
  if (m_pInfo && m_pInfo->is_full()) open_which(kInfo);
  if (level == 1 && m_pWarning) {
    m_pWarning->write(module, "", text, textLen, sec, usec);
    if (m_pWarning->is_full()) open_which(kWarning);
    return;
  }
  if (level == 0 && m_pError) {
    m_pError->write(module, "", text, textLen, sec, usec);
    if (m_pError->is_full()) open_which(kError);
  }
}

bool CCmT120Trace::is_module_trace_enabled(int level, const char* module) {
  if (get_external_trace_mask() < level) return false;
  CCmMutexGuardT<CCmMutexThreadRecursive> guard(m_moduleMutex);
  if (!m_modules.empty()) return module != nullptr && m_modules.count(module) != 0;
  return module == nullptr;
}

void CCmT120Trace::enable_module(const char* module) {
  if (!module) return;
  CCmMutexGuardT<CCmMutexThreadRecursive> guard(m_moduleMutex);
  m_modules.insert(module);
}

void CCmT120Trace::clear_modules() {
  CCmMutexGuardT<CCmMutexThreadRecursive> guard(m_moduleMutex);
  m_modules.clear();
}

void CCmT120Trace::set_file_name(const char* name, bool single) {
  CCmMutexGuardT<CCmMutexThreadRecursive> guard(m_mutex);
  m_fileName = name ? name : "";
  m_bSingleFile = single;
}

void CCmT120Trace::open_warning_file(const char* path) {
  CCmMutexGuardT<CCmMutexThreadRecursive> guard(m_mutex);
  CCmT120TraceFileMgr* mgr = CCmT120TraceFileMgr::instance();
  if (!mgr) return;
  if (m_pWarning) mgr->close(m_pWarning);
  m_pWarning = nullptr;
  m_warningBase = path ? path : "";
  m_nWarningNumber = 0;
  if (!m_warningBase.empty()) m_pWarning = mgr->open(path, kCmTraceFileSizeLimit, m_bSingleFile, 0);
}

std::string CCmT120Trace::info_path() {
  CCmMutexGuardT<CCmMutexThreadRecursive> guard(m_mutex);
  return m_pInfo ? m_pInfo->path() : std::string();
}

std::string CCmT120Trace::error_path() {
  CCmMutexGuardT<CCmMutexThreadRecursive> guard(m_mutex);
  return m_pError ? m_pError->path() : std::string();
}

std::string CCmT120Trace::warning_path() {
  CCmMutexGuardT<CCmMutexThreadRecursive> guard(m_mutex);
  return m_pWarning ? m_pWarning->path() : std::string();
}

void CCmT120Trace::reset_for_test(bool reopen) {
  CCmMutexGuardT<CCmMutexThreadRecursive> guard(m_mutex);
  CCmT120TraceFileMgr* mgr = CCmT120TraceFileMgr::instance();
  if (mgr) {
    if (m_pInfo) mgr->close(m_pInfo);
    if (m_pError) mgr->close(m_pError);
    if (m_pWarning) mgr->close(m_pWarning);
  }
  m_pInfo = m_pError = m_pWarning = nullptr;
  m_nInfoNumber = m_nErrorNumber = m_nWarningNumber = 0;
  m_warningBase.clear();
  local_day_month(&m_nDay, &m_nMonth);
  if (reopen) open_which(kAll);
}

// ---------------------------------------------------------------- public helpers

CCmString cm_trace_files_folder() { return CCmT120Trace::get_trace_dir(); }

bool cm_trace_files_open() {
  CCmT120Trace* trace = CCmT120Trace::instance();
  if (!trace) return false;
  trace->load(nullptr);
  return !trace->info_path().empty();
}

CCmString cm_trace_files_info_path() {
  CCmT120Trace* trace = CCmT120Trace::existing();
  return trace ? trace->info_path() : CCmString();
}

CCmString cm_trace_files_error_path() {
  CCmT120Trace* trace = CCmT120Trace::existing();
  return trace ? trace->error_path() : CCmString();
}

void cm_trace_files_flush() {
  if (CCmT120TraceFileMgr* mgr = g_traceFileMgr.load(std::memory_order_acquire)) mgr->flush_all();
}
