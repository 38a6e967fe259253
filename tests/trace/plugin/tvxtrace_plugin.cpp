// Test trace plug-in, built as the shared object "tvxtrace.bundle" beside the library.
// It keeps the last calls of its trace entry so that a test can read them back.
#include <cstdio>
#include <cstring>
#include <mutex>

namespace {

struct Call {
  int level;
  char module[32];
  char label[32];
  char text[256];
  int textLen;
};

constexpr int kKept = 64;
std::mutex g_mutex;
Call g_calls[kKept];
int g_count = 0;

}  // namespace

extern "C" {

__attribute__((visibility("default"))) void TVXTRACE(int level, const char* module, const char* label,
                                                     const char* text) {
  std::lock_guard<std::mutex> lock(g_mutex);
  Call& c = g_calls[g_count % kKept];
  c.level = level;
  // Truncated, always terminated copies; a null pointer reads "(null)".
  snprintf(c.module, sizeof c.module, "%s", module ? module : "(null)");
  snprintf(c.label, sizeof c.label, "%s", label ? label : "(null)");
  snprintf(c.text, sizeof c.text, "%s", text ? text : "(null)");
  c.textLen = text ? static_cast<int>(strlen(text)) : -1;
  ++g_count;
}

__attribute__((visibility("default"))) void TVXTRACERAW(int, const char*, const char*, const char*, int) {}

// Number of calls since the last reset.
__attribute__((visibility("default"))) int tvx_test_count() {
  std::lock_guard<std::mutex> lock(g_mutex);
  return g_count;
}

// Call i (0 = the oldest still kept); false when it is not kept.
__attribute__((visibility("default"))) bool tvx_test_call(int i, int* level, char* module, char* label, char* text,
                                                          int* textLen) {
  std::lock_guard<std::mutex> lock(g_mutex);
  if (i < 0 || i >= g_count || i < g_count - kKept) return false;
  const Call& c = g_calls[i % kKept];
  *level = c.level;
  strcpy(module, c.module);
  strcpy(label, c.label);
  strcpy(text, c.text);
  *textLen = c.textLen;
  return true;
}

__attribute__((visibility("default"))) void tvx_test_reset() {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_count = 0;
}
}
