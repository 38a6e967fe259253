// CCmTvxTrace: forwards trace lines to the optional plug-in and applies the
// troubleshooting settings of the debug configuration.
#include "cmutil/trace/CmTvxTrace.h"

#include <cstring>
#include <new>

#include "cmutil/trace/CmTrace.h"
#include "platform/CmPlatform.h"
#include "trace/CmTraceInternal.h"

std::atomic<int> g_kel_trace_topprocess{0};

CCmTvxTrace* CCmTvxTrace::instance() {
  // Created once (thread-safe static initialisation) and kept for the whole process, so
  // that traces from late destructors still find it.
  static CCmTvxTrace* s_instance = new (std::nothrow) CCmTvxTrace;
  return s_instance;
}

CCmTvxTrace::CCmTvxTrace() {
  for (std::atomic<int>& v : m_levelMap) v.store(0);
  m_levelMap[0] = 8;
  m_levelMap[1] = 4;
  m_levelMap[2] = 2;
  m_levelMap[3] = 1;
  m_levelMap[4] = 1;
  Init();
}

void CCmTvxTrace::UpdateTroubleShotConfigStatus() {
  int level = 0;
  if (cm_trace_debug_setting("kel_trace_level", &level)) set_troubleshoot_trace_mask(level);
  int top = 0;
  if (cm_trace_debug_setting("kel_trace_topprocess", &top)) g_kel_trace_topprocess.store(top);
}

bool CCmTvxTrace::LoadFromFolder(const std::string& folder) {
  CCmMutexGuardT<CCmMutexThreadRecursive> guard(m_mutex);
  if (m_hBundle) return true;
  std::string path = folder + "/tvxtrace.bundle";
  void* handle = cm_platform_load_library(path.c_str());
  if (!handle) {
    path = folder + "/../PlugIns/tvxtrace.bundle";
    handle = cm_platform_load_library(path.c_str());
  }
  if (!handle) return false;
  m_hBundle = handle;
  m_bLoaded = true;
  m_pTrace.store(reinterpret_cast<CmTvxTraceFn>(cm_platform_library_symbol(handle, "TVXTRACE")));
  m_pTraceRaw.store(reinterpret_cast<CmTvxTraceRawFn>(cm_platform_library_symbol(handle, "TVXTRACERAW")));
  return true;
}

void CCmTvxTrace::Init() {
  CCmMutexGuardT<CCmMutexThreadRecursive> guard(m_mutex);
  UpdateTroubleShotConfigStatus();
  if (m_bLoaded) return;
  char libraryPath[4096];
  cm_platform_library_path(libraryPath, sizeof(libraryPath));
  if (!libraryPath[0]) return;
  // A shared object has no bundle folder around it: the library's own folder is used.
  std::string folder(libraryPath);
  size_t slash = folder.rfind('/');
  folder = slash == std::string::npos ? std::string(".") : folder.substr(0, slash);
  if (folder.empty()) folder = "/";
  LoadFromFolder(folder);
}

bool CCmTvxTrace::trace_string(unsigned long level, const char* module, const char* text) {
  CmTvxTraceFn fn = m_pTrace.load(std::memory_order_acquire);
  if (!fn) return false;
  fn(m_levelMap[level % 256].load(std::memory_order_relaxed), module, "", text);
  return true;
}

bool CCmTvxTrace::GetTraceLevel(unsigned int level, int& value) {
  if (level > 255) return false;
  value = m_levelMap[level].load();
  return true;
}

bool CCmTvxTrace::UpdateTraceLevel(unsigned int level, int value) {
  if (level > 255) return false;
  m_levelMap[level].store(value);
  return true;
}

bool CCmTvxTrace::IsLoadDllSuccessfully() {
  return m_bLoaded && m_pTrace.load() != nullptr && m_pTraceRaw.load() != nullptr;
}

void CCmTvxTrace::Close() {
  CCmMutexGuardT<CCmMutexThreadRecursive> guard(m_mutex);
  m_pTrace.store(nullptr);
  m_pTraceRaw.store(nullptr);
  if (m_hBundle) cm_platform_free_library(m_hBundle);
  m_hBundle = nullptr;
  m_bLoaded = false;
}
