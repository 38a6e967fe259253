#include "cmutil/trace/CmTrace.h"

#include <cstdlib>
#include <cstring>
#include <mutex>

#include "cmutil/base/CmProcessName.h"
#include "cmutil/trace/CmTraceMacros.h"
#include "cmutil/trace/CmTvxTrace.h"
#include "platform/CmPlatform.h"
#include "trace/CmT120Trace.h"
#include "trace/CmTraceInternal.h"

std::atomic<int> g_traceMask{2};
std::atomic<int> g_traceMask_TroubleShootConfig{0};
std::atomic<int> g_trace_option{5};
std::atomic<CmTraceSink> g_util_trace_sink{nullptr};
std::atomic<CmTraceSink> g_util_logstash_external_sink{nullptr};
std::atomic<CmCrashSink> g_util_crash_sink{nullptr};
std::atomic<int64_t> g_cm_assertion_count{0};
std::atomic<int64_t> g_cm_temp_logs_count{0};
std::atomic<const char*> g_LeadingId{nullptr};

namespace {

constexpr std::memory_order kRelaxed = std::memory_order_relaxed;
// Texts up to this length are decorated on the stack.
constexpr int kStackTextLimit = 1024;
// Room for "[" module "] " around the text.
constexpr int kDecorationRoom = 200;
// The plug-in takes long texts in pieces that start this far apart.
constexpr int kPluginPieceStride = 2047;
constexpr int kPluginPieceThreshold = 2048;

// "[" module "] " text, zero-terminated; returns its length.
int decorate(char* out, const char* module, size_t moduleLen, const char* text, int length) {
  char* p = out;
  *p++ = '[';
  std::memcpy(p, module, moduleLen);
  p += moduleLen;
  *p++ = ']';
  *p++ = ' ';
  std::memcpy(p, text, static_cast<size_t>(length));
  p += length;
  *p = '\0';
  return static_cast<int>(p - out);
}

void route_to_plugin(int level, const char* module, const char* text, int length) {
  CCmTvxTrace* plugin = CCmTvxTrace::instance();
  if (plugin == nullptr) return;
  if (length < kPluginPieceThreshold) {
    plugin->trace_string(level, module, text);
    return;
  }
  for (int start = 0; start < length; start += kPluginPieceStride) {
    plugin->trace_string(level, module, text + start);
  }
}

}  // namespace

void util_adapter_trace(int level, const char* module, const char* text, int length) {
  if (text == nullptr) {
    text = "";  // a null text is an empty one, whatever length came with it
    length = 0;
  }
  if (length < 0) length = static_cast<int>(std::strlen(text));
  const int option = g_trace_option.load(kRelaxed);
  const CmTraceSink sink = (option & CM_TRACE_ROUTE_SINK) ? g_util_trace_sink.load(kRelaxed) : nullptr;
  const CmTraceSink logstash =
      (option & CM_TRACE_ROUTE_LOGSTASH) ? g_util_logstash_external_sink.load(kRelaxed) : nullptr;

  // The decorated copy is made only for the routes that take it (the sinks, and the
  // plug-in, which takes the terminated text inside it); the trace files take the
  // caller's text with its length.
  char stackBuffer[kStackTextLimit + kDecorationRoom];
  char* heapBuffer = nullptr;
  char* decorated = nullptr;
  int decoratedLen = 0;
  if (sink != nullptr || logstash != nullptr || (option & CM_TRACE_ROUTE_PLUGIN)) {
    const char* tag = module ? module : "UTIL";
    const size_t tagLen = std::strlen(tag);
    decorated = stackBuffer;
    if (length > kStackTextLimit || tagLen + 4 > kDecorationRoom) {
      heapBuffer = static_cast<char*>(std::malloc(static_cast<size_t>(length) + tagLen + kDecorationRoom));
      if (heapBuffer == nullptr) return;
      decorated = heapBuffer;
    }
    decoratedLen = decorate(decorated, tag, tagLen, text, length);
  }

  if (sink != nullptr) {
    sink(level, decorated, decoratedLen);
    std::free(heapBuffer);
    return;
  }
  const char* routeModule = (module == nullptr || module[0] == '\0') ? getCallerModuleName(text) : module;
  // The plug-in takes a terminated text without a length: hand it the copy inside the
  // decorated buffer, never the caller's text, which need not be terminated.
  if (option & CM_TRACE_ROUTE_PLUGIN) route_to_plugin(level, routeModule, decorated + decoratedLen - length, length);
  if (option & CM_TRACE_ROUTE_FILE) {
    if (CCmT120Trace* files = CCmT120Trace::instance()) files->trace_string(level, routeModule, text, length);
  }
  if (logstash != nullptr) logstash(level, decorated, decoratedLen);
  std::free(heapBuffer);
}

void set_external_trace_mask(int mask) { g_traceMask.store(mask, kRelaxed); }

int get_external_trace_mask() { return cm_trace_effective_mask(); }

void set_troubleshoot_trace_mask(int mask) { g_traceMask_TroubleShootConfig.store(mask, kRelaxed); }

void cm_set_trace_option(int option) { g_trace_option.store(option, kRelaxed); }
int cm_get_trace_option() { return g_trace_option.load(kRelaxed); }

void set_util_external_trace_sink(CmTraceSink sink) { g_util_trace_sink.store(sink, kRelaxed); }
void set_util_logstash_external_trace_sink(CmTraceSink sink) { g_util_logstash_external_sink.store(sink, kRelaxed); }
void set_util_external_crash_sink(CmCrashSink sink) { g_util_crash_sink.store(sink, kRelaxed); }

void util_adapter_crash(const char* reason, void* context) {
  if (CmCrashSink sink = g_util_crash_sink.load(kRelaxed)) sink(reason, context);
}

bool is_module_trace_enabled(int level, const char* module) {
  CCmT120Trace* files = CCmT120Trace::existing();
  return files != nullptr && files->is_module_trace_enabled(level, module);
}

void cm_assertion_report() { g_cm_assertion_count.fetch_add(1, kRelaxed); }
int64_t cm_get_assertions_count() { return g_cm_assertion_count.load(kRelaxed); }
void cm_add_temp_log() { g_cm_temp_logs_count.fetch_add(1, kRelaxed); }
int64_t cm_get_temp_logs_count() { return g_cm_temp_logs_count.load(kRelaxed); }

const char* getCallerModuleName(const char*) { return "UTIL"; }

void cm_cut_function_name(const char* signature, char* out, unsigned int cap) {
  if (out == nullptr || cap == 0) return;
  out[0] = '\0';
  if (signature == nullptr) return;
  const char* paren = std::strchr(signature, '(');
  if (paren == nullptr) return;
  const char* start = paren;
  while (start > signature && start[-1] != ' ') --start;
  size_t len = static_cast<size_t>(paren - start);
  if (len >= cap) len = cap - 1;
  std::memcpy(out, start, len);
  out[len] = '\0';
}

namespace {
std::atomic<void (*)(char*, size_t)> g_machineIdReader{nullptr};
std::atomic<bool (*)(const char*, int*)> g_debugIntReader{nullptr};
}  // namespace

void cm_set_trace_settings_readers(const CmTraceSettingsReaders& readers) {
  g_machineIdReader.store(readers.machineId);
  g_debugIntReader.store(readers.debugInt);
}

void cm_trace_configured_machine_id(char* out, size_t cap) {
  if (!out || cap == 0) return;
  out[0] = '\0';
  if (auto reader = g_machineIdReader.load()) reader(out, cap);
}

bool cm_trace_debug_setting(const char* key, int* value) {
  auto reader = g_debugIntReader.load();
  return reader && reader(key, value);
}

void cm_low_layer_trace(int level, const char* text) { CM_TRACE_AT(level, text); }

void cm_assert_failed(const char* file, int line, const char* expression) {
  const char* slash = file ? std::strrchr(file, '/') : nullptr;
  const char* base = slash ? slash + 1 : (file ? file : "");
  CM_ERROR_TRACE(base << ":" << line << " Assert failed: " << expression);
  cm_assertion_report();
}

// ---- leading id ----

namespace {
constexpr size_t kLeadingIdSize = 1024;
constexpr size_t kMachineIdSize = 257;
constexpr size_t kHostNameSize = 513;
char g_leadingIdBuffer[kLeadingIdSize];
std::atomic<const char* (*)()> g_leadingIdExecSource{nullptr};

std::recursive_mutex& leading_id_mutex() {
  static std::recursive_mutex* mutex = new std::recursive_mutex;  // lives for the process
  return *mutex;
}
}  // namespace

void cm_compose_leading_id(const char* process, const char* machine, char* out, size_t cap) {
  if (out == nullptr || cap == 0) return;
  size_t processLen = process ? std::strlen(process) : 0;
  if (processLen >= 4 && std::strcmp(process + processLen - 4, ".exe") == 0) processLen -= 4;
  const size_t machineLen = machine ? std::strlen(machine) : 0;
  size_t pos = 0;
  auto put = [&](const char* text, size_t len) {
    for (size_t i = 0; i < len && pos + 1 < cap; ++i) out[pos++] = text[i];
  };
  put(process ? process : "", processLen);
  put(".", 1);
  put(machine ? machine : "", machineLen);
  put(".", 1);
  out[pos] = '\0';
}

const char* get_leading_id() {
  if (const char* cached = g_LeadingId.load(std::memory_order_acquire)) return cached;
  std::lock_guard<std::recursive_mutex> lock(leading_id_mutex());
  if (const char* cached = g_LeadingId.load(std::memory_order_acquire)) return cached;

  char machine[kHostNameSize] = {0};
  cm_trace_configured_machine_id(machine, kMachineIdSize);
  if (machine[0] == '\0') {
    int err = cm_platform_host_name(machine, sizeof machine);
    if (err != 0) CM_WARNING_TRACE("CCmDnsManager::GetLocalIps, gethostname() failed! err=" << err);
  }
  const char* (*source)() = g_leadingIdExecSource.load(std::memory_order_acquire);
  const char* process = source ? cm_process_name_of(source()) : get_process_name();
  cm_compose_leading_id(process, machine, g_leadingIdBuffer, sizeof g_leadingIdBuffer);
  g_LeadingId.store(g_leadingIdBuffer, std::memory_order_release);
  return g_leadingIdBuffer;
}

void cm_set_leading_id_exec_source(const char* (*source)()) {
  g_leadingIdExecSource.store(source, std::memory_order_release);
}

void cm_reset_leading_id_for_test() {
  std::lock_guard<std::recursive_mutex> lock(leading_id_mutex());
  g_LeadingId.store(nullptr, std::memory_order_release);
}
