// INI scanner and the process-wide parameter lookups.
#include "cmutil/config/CmConfigIO.h"

#include <strings.h>
#include <cstdlib>
#include <cstring>

#include "cmutil/config/KelDebugFileConfig.h"
#include "cmutil/safe/CmSafeLib.h"
#include "config/CmConfigInternal.h"
#include "platform/CmPlatform.h"
#include "trace/CmTraceInternal.h"

char g_cur_env[512] = "HOME";
CCmString g_nimra_config_file_name = "nimra.cfg";
CCmString g_nimra_home_dir_name;
bool m_bEnableConfigIOFeature = false;

namespace {

inline bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

// Size of the stack buffers of the typed free lookups; one extra byte keeps the text
// terminated even when a value fills the whole lookup size.
constexpr size_t kParamBufSize = 256;

}  // namespace

CCmString CCmDefaultDir::GetDefaultDir() {
  const char* v = getenv(g_cur_env);
  if (!v) return CCmString("/tmp");
  return CCmString(v);
}

char* cm_trim_string(char* s) {
  if (!s) return s;
  size_t n = strlen(s);
  while (n > 0 && is_blank(s[n - 1])) s[--n] = '\0';
  while (is_blank(*s)) ++s;
  return s;
}

bool cm_is_comment_line(char* line) {
  if (!line) return false;
  while (is_blank(*line)) ++line;
  return *line == '#';
}

bool read_init_file(FILE* f, const char* section, const char* key, char* out, size_t size) {
  if (!f) return false;
  char line[2048];
  bool inSection = (section == nullptr);
  while (!feof(f)) {
    if (!fgets(line, sizeof(line), f)) return false;
    if (cm_is_comment_line(line)) continue;
    char* open = strchr(line, '[');
    char* close = strchr(line, ']');
    if (open && close) {
      if (inSection) return false;  // the wanted section (or the header-less keys) ended
      // The name runs from after the first '[' to the first ']'; a ']' that comes
      // first gives an empty name.
      char* name = open + 1;
      if (close >= name)
        *close = '\0';
      else
        *name = '\0';
      inSection = strcasecmp(cm_trim_string(name), section) == 0;
      continue;
    }
    if (!inSection) continue;
    char* eq = strchr(line, '=');
    if (!eq) continue;
    *eq = '\0';
    if (!key || strcasecmp(cm_trim_string(line), key) != 0) continue;
    char* value = cm_trim_string(eq + 1);
    size_t len = strlen(value);
    if (len > 0 && (value[0] == '\'' || value[0] == '"') && value[len - 1] == value[0]) {
      if (len == 1) {
        value[0] = '\0';
      } else {
        value[len - 1] = '\0';
        value = cm_trim_string(value + 1);
      }
    }
    if (out && size > 0) strncpy(out, value, size);
    return true;
  }
  return false;
}

size_t get_string_from_profile(const char* section, const char* key, const char* def, char* out, size_t size,
                               const char* path) {
  if (!out || size == 0) return 0;
  bool found = false;
  FILE* f = path ? fopen(path, "rt") : nullptr;
  if (f) {
    found = read_init_file(f, section, key, out, size);
    fclose(f);
  }
  if (!found) {
    size_t n = def ? strnlen(def, size - 1) : 0;
    if (n) memcpy(out, def, n);
    out[n] = '\0';
  }
  // A found value of `size` bytes or more is not terminated: never read past `size`.
  return strnlen(out, size);
}

int get_int_from_profile(const char* section, const char* key, int def, const char* path) {
  FILE* f = path ? fopen(path, "rt") : nullptr;
  if (!f) return def;
  char buf[kParamBufSize + 1] = {0};
  bool found = read_init_file(f, section, key, buf, kParamBufSize);
  fclose(f);
  if (!found) return def;
  int v = def;
  if (sscanf(buf, "%d", &v) != 1) return def;
  return v;
}

void set_nimra_config_file_name(const CCmString& name) { g_nimra_config_file_name = name; }

const char* get_nimra_home_dir() {
  g_nimra_home_dir_name = CCmDefaultDir().GetDefaultDir();
  return g_nimra_home_dir_name.c_str();
}

int set_nimra_home_env(const char* name) {
  // Bounded copy: a null name or one that does not fit is reported by the constraint
  // handler and leaves the variable name as it was.
  return strcpy_s(g_cur_env, sizeof(g_cur_env), name);
}

CCmString get_config_file_name() {
  CCmString path = get_nimra_home_dir();
  path += "/conf/";
  path += g_nimra_config_file_name;
  return path;
}

void enable_config_io_feature(bool on) { m_bEnableConfigIOFeature = on; }

bool get_string_param_from_ini_force(const char* path, const char* section, const char* key, char* out, size_t size) {
  if (!out || size == 0) return false;
  out[0] = '\0';
  size_t len = get_string_from_profile(section, key, "", out, size, path);
  if (len == 0) return false;  // an empty value is the same as a missing key
  if (out[len - 1] == ';') out[len - 1] = '\0';
  return true;
}

bool get_string_param_from_configfile(const char* path, const char* section, const char* key, char* out, size_t size) {
  if (!m_bEnableConfigIOFeature) return false;
  return get_string_param_from_ini_force(path, section, key, out, size);
}

bool get_string_param(const char* section, const char* key, char* out, size_t size) {
  if (!m_bEnableConfigIOFeature) return false;
  CCmString path = get_config_file_name();
  return get_string_param_from_ini_force(path.c_str(), section, key, out, size);
}

int get_int_param(const char* section, const char* key) {
  char buf[kParamBufSize + 1] = {0};
  if (!get_string_param(section, key, buf, kParamBufSize)) return 0;
  int v = 0;
  if (sscanf(buf, "%d", &v) != 1) return 0;
  return v;
}

unsigned short get_uint16_param(const char* section, const char* key) {
  return static_cast<unsigned short>(get_int_param(section, key));
}

unsigned int get_uint32_param(const char* section, const char* key) {
  char buf[kParamBufSize + 1] = {0};
  if (!get_string_param(section, key, buf, kParamBufSize)) return 0;
  unsigned long v = 0;
  if (sscanf(buf, "%lu", &v) != 1) return 0;
  return static_cast<unsigned int>(v);
}

bool get_bool_param(const char* section, const char* key, bool def) {
  char buf[kParamBufSize + 1] = {0};
  if (!get_string_param(section, key, buf, kParamBufSize)) return def;
  return strcasecmp(buf, "TRUE") == 0;
}

namespace {
// The trace core's "MachineID" lookup (section "Trace", at most 256 characters).
void ReadConfiguredMachineId(char* out, size_t cap) {
  if (!out || cap == 0) return;
  out[0] = '\0';
  char buf[kParamBufSize + 1] = {0};
  if (!get_string_param("Trace", "MachineID", buf, kParamBufSize)) return;
  size_t n = strnlen(buf, cap - 1);
  memcpy(out, buf, n);
  out[n] = '\0';
}

bool ReadDebugInt(const char* key, int* value) {
  return CKelDebugFileConfig::instance().GetValueInt(key, *value) == CM_OK;
}

// The trace sits below the configuration and reads these two settings through readers
// installed here as the library loads.
[[maybe_unused]] const bool g_traceReadersInstalled = [] {
  cm_set_trace_settings_readers({&ReadConfiguredMachineId, &ReadDebugInt});
  return true;
}();
}  // namespace
