#pragma once
/// The trace core. Every message of the library goes through util_adapter_trace, which
/// prefixes the module tag ("[UTIL] text") and routes the line by the option word:
///
///   bit 1  the trace plug-in          bit 4  the external sink (exclusive when set)
///   bit 2  the library's trace files  bit 8  the structured-log sink
///
/// Levels: 0 error, 1 warning, 2 information, 3 and 4 finer detail. A line of level L is
/// produced when the effective mask (the larger of g_traceMask and
/// g_traceMask_TroubleShootConfig) is at least L. Trace sites test the mask before they
/// build any text (see CmTraceMacros.h).
///
/// Masks, options and sinks are meant to be set once at start-up, before other threads
/// trace. They are relaxed atomics so that a late change is not a data race, but a sink
/// being removed may still receive a line that was already on its way.

#include <atomic>
#include <cstdint>

#include "cmutil/base/CmAssert.h"
#include "cmutil/base/CmExport.h"

/// An external sink receives the level, the decorated text and its length.
typedef void (*CmTraceSink)(int level, const char* text, int len);
/// The crash sink receives the arguments of util_adapter_crash unchanged.
typedef void (*CmCrashSink)(const char* reason, void* context);

CM_EXPORT extern std::atomic<int> g_traceMask;
CM_EXPORT extern std::atomic<int> g_traceMask_TroubleShootConfig;
CM_EXPORT extern std::atomic<int> g_trace_option;
CM_EXPORT extern std::atomic<CmTraceSink> g_util_trace_sink;
CM_EXPORT extern std::atomic<CmTraceSink> g_util_logstash_external_sink;
CM_EXPORT extern std::atomic<CmCrashSink> g_util_crash_sink;
CM_EXPORT extern std::atomic<int64_t> g_cm_assertion_count;
CM_EXPORT extern std::atomic<int64_t> g_cm_temp_logs_count;
CM_EXPORT extern std::atomic<const char*> g_LeadingId;

/// The effective mask, the larger of g_traceMask and g_traceMask_TroubleShootConfig,
/// read afresh at every trace site (two relaxed loads and a compare), so that writing
/// either exported global directly takes effect at once.
inline int cm_trace_effective_mask() {
  const int a = g_traceMask.load(std::memory_order_relaxed);
  const int b = g_traceMask_TroubleShootConfig.load(std::memory_order_relaxed);
  return a > b ? a : b;
}

/// Routing bits of the option word.
enum {
  CM_TRACE_ROUTE_PLUGIN = 1,
  CM_TRACE_ROUTE_FILE = 2,
  CM_TRACE_ROUTE_SINK = 4,
  CM_TRACE_ROUTE_LOGSTASH = 8,
};

/// Decorates text and routes it by the option word. Safe from any thread; a text of up to
/// 1024 characters needs no heap memory here. A null module is taken as "UTIL".
CM_EXPORT void util_adapter_trace(int level, const char* module, const char* text, int length);

CM_EXPORT void set_external_trace_mask(int mask);
/// The effective mask: the larger of g_traceMask and the troubleshooting mask.
CM_EXPORT int get_external_trace_mask();
/// Sets the troubleshooting mask (written by the configuration code).
CM_EXPORT void set_troubleshoot_trace_mask(int mask);
CM_EXPORT void cm_set_trace_option(int option);
CM_EXPORT int cm_get_trace_option();
/// Install a sink; null removes it.
CM_EXPORT void set_util_external_trace_sink(CmTraceSink sink);
CM_EXPORT void set_util_logstash_external_trace_sink(CmTraceSink sink);
CM_EXPORT void set_util_external_crash_sink(CmCrashSink sink);
/// Forwards its arguments to the crash sink; does nothing without one.
CM_EXPORT void util_adapter_crash(const char* reason, void* context);

/// False without the trace-file object; otherwise asks it (mask, then its module set).
CM_EXPORT bool is_module_trace_enabled(int level, const char* module);

CM_EXPORT void cm_assertion_report();
CM_EXPORT int64_t cm_get_assertions_count();
CM_EXPORT void cm_add_temp_log();
CM_EXPORT int64_t cm_get_temp_logs_count();

/// Always the module tag "UTIL".
CM_EXPORT const char* getCallerModuleName(const char* text);

/// "<process>.<machine>." computed once and cached: the machine part is the configured
/// "MachineID" of section "Trace", else the host name; a trailing ".exe" is removed from
/// the process name. Safe from any thread; the text lives for the whole process.
CM_EXPORT const char* get_leading_id();

/// Cuts a compiler signature to the function's qualified name: the part from just after
/// the last blank before the first "(" up to that "(" ("virtual A::~A()" gives "A::~A").
/// Writes at most cap-1 characters and a terminator; no "(" gives an empty name.
CM_EXPORT void cm_cut_function_name(const char* signature, char* out, unsigned int cap);
