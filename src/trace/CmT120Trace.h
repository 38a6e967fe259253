#pragma once
// Trace files: one open log file (CCmT120TraceFile), the process-wide list of open files
// (CCmT120TraceFileMgr) and the trace-file object behind route 2 of the trace core
// (CCmT120Trace). Exported for the tests; not part of the public interface.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "cmutil/base/CmExport.h"
#include "cmutil/base/CmMutex.h"
#include "cmutil/base/CmThreadAnnotations.h"

// Size of one buffer block and of the header.
constexpr uint32_t kCmTraceBlockSize = 10240;
constexpr long kCmTraceHeaderSize = 32;
constexpr uint32_t kCmTraceFileAlive = 20050704;
// Information and error files are replaced at this size.
constexpr unsigned long kCmTraceFileSizeLimit = 20971520;
extern const char kCmTraceCurrentPoint[];

// Wall-clock source of the trace files (seconds and microseconds since the epoch).
typedef void (*CmTraceClockFn)(int64_t* sec, int32_t* usec);
// Replaces the clock (null restores the real one). Test hook.
CM_EXPORT void cm_trace_file_set_clock(CmTraceClockFn fn);

class CM_EXPORT CCmT120TraceFile {
 public:
  CCmT120TraceFile(const char* path, unsigned long sizeLimit, bool lockWanted);
  ~CCmT120TraceFile();
  CCmT120TraceFile(const CCmT120TraceFile&) = delete;
  CCmT120TraceFile& operator=(const CCmT120TraceFile&) = delete;

  bool is_open() const;
  bool is_full() const;
  const std::string& path() const { return m_path; }

  // Formats one record into the buffer; flushes when the buffer cannot take it.
  void write(const char* module, const char* source, const char* text, size_t textLen);
  // The same with the time stamp given (seconds and microseconds since the epoch).
  void write(const char* module, const char* source, const char* text, size_t textLen, int64_t sec, int32_t usec);
  void flush_buffer();
  void refresh_settings(unsigned long sizeLimit, int blockCount);

 private:
  void flush_locked() CM_REQUIRES(m_mutex);
  void write_out(char* data, size_t len, bool markerRoom) CM_REQUIRES(m_mutex);
  size_t format_prefix(char* out, int64_t sec, int32_t usec) CM_REQUIRES(m_mutex);
  long read_header_offset() const CM_REQUIRES(m_mutex);
  void lock_file() CM_REQUIRES(m_mutex);
  void unlock_file() CM_REQUIRES(m_mutex);

  // Every member that changes after construction is under m_mutex, except the full flag,
  // which the trace object reads after a write.
  mutable CCmMutexThread m_mutex;
  std::atomic<bool> m_bFull{false};
  FILE* m_pStream CM_GUARDED_BY(m_mutex) = nullptr;
  const std::string m_path;
  unsigned long m_sizeLimit CM_GUARDED_BY(m_mutex) = 0;
  int m_nBlockCount CM_GUARDED_BY(m_mutex) = 1;
  const bool m_bLockWanted = false;
  std::vector<char> m_buffer CM_GUARDED_BY(m_mutex);
  uint32_t m_nUsed CM_GUARDED_BY(m_mutex) = 0;
  volatile uint32_t m_nMarker CM_GUARDED_BY(m_mutex) = kCmTraceFileAlive;
  int m_fd CM_GUARDED_BY(m_mutex) = -1;
  const uint32_t m_nBlockSize = kCmTraceBlockSize;
  // Cached "[MM/DD/YYYY HH:MM:SS." of the last second formatted.
  int64_t m_cachedSec CM_GUARDED_BY(m_mutex) = -1;
  char m_datePrefix[32] CM_GUARDED_BY(m_mutex) = {0};
};

class CM_EXPORT CCmT120TraceFileMgr {
 public:
  // Created on first use under the library's singleton mutex; lives until exit (its
  // files are flushed at exit).
  static CCmT120TraceFileMgr* instance();

  CCmT120TraceFile* open(const char* path, unsigned long sizeLimit, unsigned char lockWanted, unsigned char flag);
  void close(CCmT120TraceFile* file);
  void write(CCmT120TraceFile* file, const char* module, const char* source, const char* text);
  // file null: every open file.
  void refresh_settings(CCmT120TraceFile* file, unsigned long sizeLimit, int blockCount);
  void flush_all();
  size_t count();

 private:
  CCmT120TraceFileMgr() = default;
  bool known(CCmT120TraceFile* file) CM_NO_THREAD_SAFETY_ANALYSIS;

  CCmMutexThreadRecursive m_mutex;
  std::vector<CCmT120TraceFile*> m_files;  // the most recently opened first
};

class CM_EXPORT CCmT120Trace {
 public:
  enum Which { kAll = 0, kInfo = 1, kWarning = 2, kError = 3 };

  // The process-wide object, created on first use (null if it cannot be allocated).
  static CCmT120Trace* instance();
  // The object if it was already created, else null; never creates it.
  static CCmT120Trace* existing();

  virtual ~CCmT120Trace();

  // Route 2 of the trace core.
  void trace_string(int level, const char* module, const char* text, int len);
  bool is_module_trace_enabled(int level, const char* module);

  // The object's name, "Log".
  const char* name() const { return m_pszName; }

  // "<state folder>/<process name>".
  static std::string get_trace_dir();
  // Opens files: null = all (nothing when the information file is open already);
  // otherwise the file of that handle is replaced by the next numbered one.
  virtual void load(CCmT120TraceFile* handle);
  // When `handle` is one of this object's files, replaces it by the next one (closing
  // it) and returns true; otherwise false and nothing changes.
  bool replace_if_held(CCmT120TraceFile* handle);

  void enable_module(const char* module);
  void clear_modules();

  // Uses "<folder>/<name>.<n>" (or "<folder>/<name>" when single) instead of the
  // information and error files from the next load on. Null restores the default.
  void set_file_name(const char* name, bool single);
  // Opens `path` as the warning file (the library itself never does); when full, or when
  // the date changes, it is replaced by "<path>.1" ... "<path>.9", then `path` again.
  void open_warning_file(const char* path);

  // Test hooks: paths of the open files ("" when none), and a fresh start that closes
  // every file, resets the numbers and loads again from the current environment.
  std::string info_path();
  std::string error_path();
  std::string warning_path();
  void reset_for_test(bool reopen = true);

 private:
  CCmT120Trace();
  void open_which(Which which) CM_NO_THREAD_SAFETY_ANALYSIS;
  void open_next_warning(CCmT120TraceFileMgr* mgr) CM_NO_THREAD_SAFETY_ANALYSIS;
  void local_day_month(int* day, int* month);
  void local_day_month(int64_t sec, int* day, int* month);

  CCmMutexThreadRecursive m_mutex;
  const char* m_pszName = "Log";
  std::string m_fileName;  // configured name; empty = the default files
  bool m_bSingleFile = false;
  CCmT120TraceFile* m_pInfo = nullptr;
  CCmT120TraceFile* m_pWarning = nullptr;
  CCmT120TraceFile* m_pError = nullptr;
  int m_nInfoNumber = 0;
  int m_nErrorNumber = 0;
  std::string m_warningBase;  // path given to open_warning_file; empty = no warning file
  int m_nWarningNumber = 0;   // number of the open warning file (0 = the path itself)
  int m_nDay = 0;
  int m_nMonth = 0;
  int m_nPid = 0;
  // Local date of the last second converted (under m_mutex).
  int64_t m_dateSec = -1;
  int m_dateDay = 0;
  int m_dateMonth = 0;
  CCmMutexThreadRecursive m_moduleMutex;
  std::set<std::string> m_modules;
};
