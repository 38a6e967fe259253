#pragma once
/// The bridge to the optional trace plug-in (route bit 1 of the trace option word, see
/// CmTrace.h), and the troubleshooting settings that raise the trace mask.
///
/// The plug-in is a shared object named "tvxtrace.bundle" that the host ships beside
/// libcmutil (or in "../PlugIns/" from there). It is loaded once, on the first call of
/// CCmTvxTrace::instance(); its entry "TVXTRACE" then receives every message of route 1
/// as (plug-in level, module, "", text), the plug-in level taken from a 256-entry map
/// indexed by the library's level (0->8, 1->4, 2->2, 3->1, 4->1, others 0).
/// "TVXTRACERAW" is looked up but not called. Without the plug-in every forward does
/// nothing; IsLoadDllSuccessfully() tells the host whether it was found.
///
///   CCmTvxTrace* tvx = CCmTvxTrace::instance();   // once, before other threads trace
///   if (tvx->IsLoadDllSuccessfully()) tvx->UpdateTraceLevel(2, 4);
///   cm_set_trace_option(CM_TRACE_ROUTE_PLUGIN);

#include <atomic>
#include <string>

#include "cmutil/base/CmExport.h"
#include "cmutil/base/CmMutex.h"

/// The plug-in's trace entry and its raw entry.
typedef void (*CmTvxTraceFn)(int level, const char* module, const char* label, const char* text);
typedef void (*CmTvxTraceRawFn)(int level, const char* module, const char* label, const char* text, int len);

/// Process-wide CPU-load troubleshooting flag, set from "kel_trace_topprocess".
CM_EXPORT extern std::atomic<int> g_kel_trace_topprocess;

/// The process-wide plug-in bridge. Loading and closing are serialised by its own mutex;
/// forwarding reads the entry without it, so Close() must not race with tracing.
class CM_EXPORT CCmTvxTrace {
 public:
  /// The one object, created on first call (its constructor runs Init()). Call it once
  /// before other threads trace.
  static CCmTvxTrace* instance();

  /// Reads the troubleshooting settings, then (unless a bundle is loaded already) finds
  /// libcmutil's own folder and loads the plug-in from there and looks up its entries.
  void Init();
  /// False when the entry is missing; otherwise forwards (map[level % 256], module, "",
  /// text) and returns true. Must not race with Close().
  bool trace_string(unsigned long level, const char* module, const char* text);
  /// Reads the plug-in level mapped to `level`; false (value untouched) above 255.
  bool GetTraceLevel(unsigned int level, int& value);
  /// Maps `level` to the plug-in level `value`; false (nothing changed) above 255.
  bool UpdateTraceLevel(unsigned int level, int value);
  /// True when the bundle is loaded and both entries were found.
  bool IsLoadDllSuccessfully();
  /// Forgets both entries and unloads the bundle; Init() may load it again.
  void Close();
  /// Reads "kel_trace_level" (troubleshooting mask) and "kel_trace_topprocess" from the
  /// debug configuration; keys that are not configured change nothing.
  void UpdateTroubleShotConfigStatus();

  /// Loads "<folder>/tvxtrace.bundle", then "<folder>/../PlugIns/tvxtrace.bundle".
  /// Returns true when a bundle was loaded. Used by Init(); exported for the tests.
  bool LoadFromFolder(const std::string& folder);

 private:
  CCmTvxTrace();

  CCmMutexThreadRecursive m_mutex;
  std::atomic<bool> m_bLoaded{false};  // written under m_mutex, read by the trace path
  void* m_hBundle CM_GUARDED_BY(m_mutex) = nullptr;
  std::atomic<int> m_levelMap[256];
  std::atomic<CmTvxTraceFn> m_pTrace{nullptr};
  std::atomic<CmTvxTraceRawFn> m_pTraceRaw{nullptr};
};
