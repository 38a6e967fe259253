#include "cmutil/base/CmProcessName.h"

#include "platform/CmPlatform.h"

char* get_exec_name() {
  // Filled once; a failure is cached as an empty name. The static initialisation is
  // thread-safe, which keeps concurrent first calls from racing on the buffer.
  static char s_name[1024];
  static char* s_cached = [] {
    s_name[0] = '\0';
    cm_platform_process_name(s_name, sizeof(s_name));
    return s_name;
  }();
  return s_cached;
}

const char* cm_process_name_of(const char* exec) {
  if (!exec || !*exec) return "util";
  const char* last = exec;
  for (const char* p = exec; *p; ++p) {
    if (*p == '/' || *p == '\\') last = p + 1;
  }
  return last;
}

const char* get_process_name() { return cm_process_name_of(get_exec_name()); }
