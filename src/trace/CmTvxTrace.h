#pragma once
// The bridge to the optional trace plug-in behind route 1 of the trace core, and the
// troubleshooting settings that raise the trace mask. Exported for the tests; not part
// of the public interface.
//
// The plug-in is a shared object named "tvxtrace.bundle", looked for beside the library
// and then in "../PlugIns/" from there. Its entry "TVXTRACE" receives
// (plug-in level, module, "", text); "TVXTRACERAW" is looked up but not called. Without
// the plug-in every forward does nothing.

#include <atomic>
#include <string>

#include "cmutil/base/CmExport.h"
#include "cmutil/thread/CmMutex.h"

// The plug-in's trace entry.
typedef void (*CmTvxTraceFn)(int level, const char* module, const char* label, const char* text);
typedef void (*CmTvxTraceRawFn)(int level, const char* module, const char* label, const char* text, int len);

// Process-wide CPU-load troubleshooting flag, set from "kel_trace_topprocess".
CM_EXPORT extern std::atomic<int> g_kel_trace_topprocess;

class CM_EXPORT CCmTvxTrace {
 public:
  // The one object, created on first call (its constructor runs Init()). Call it once
  // before other threads trace.
  static CCmTvxTrace* instance();

  void Init();
  // False when the entry is missing; otherwise forwards (map[level % 256], module, "",
  // text) and returns true. Must not race with Close().
  bool trace_string(unsigned long level, const char* module, const char* text);
  bool GetTraceLevel(unsigned int level, int& value);
  bool UpdateTraceLevel(unsigned int level, int value);
  bool IsLoadDllSuccessfully();
  void Close();
  // Reads "kel_trace_level" (troubleshooting mask) and "kel_trace_topprocess" from the
  // debug configuration; keys that are not configured change nothing.
  void UpdateTroubleShotConfigStatus();

  // Loads "<folder>/tvxtrace.bundle", then "<folder>/../PlugIns/tvxtrace.bundle".
  // Returns true when a bundle was loaded. Used by Init(); exported for the tests.
  bool LoadFromFolder(const std::string& folder);

 private:
  CCmTvxTrace();

  CCmMutexThreadRecursive m_mutex;
  bool m_bLoaded = false;
  void* m_hBundle = nullptr;
  std::atomic<int> m_levelMap[256];
  std::atomic<CmTvxTraceFn> m_pTrace{nullptr};
  std::atomic<CmTvxTraceRawFn> m_pTraceRaw{nullptr};
};
