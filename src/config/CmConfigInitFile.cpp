// CCmConfigInitFile: typed lookups in one INI file under a per-object recursive lock.
#include "cmutil/config/CmConfigInitFile.h"

#include <strings.h>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "cmutil/base/CmMutex.h"
#include "cmutil/config/CmConfigIO.h"
#include "cmutil/trace/CmTraceMacros.h"

namespace {

// File name of the default constructor; deliberately separate from
// g_nimra_config_file_name and never changed by any setter.
const CCmString config_file_name = "nimra.cfg";

unsigned char default_lookup(const char* path, const char* section, const char* key, char* out, int size) {
  if (size <= 0) return 0;
  return get_string_param_from_configfile(path, section, key, out, static_cast<size_t>(size)) ? 1 : 0;
}

constexpr int kValueBufSize = 256;

}  // namespace

struct CCmConfigInitFile::Impl {
  CCmMutexThreadRecursive lock;
  CCmString path CM_GUARDED_BY(lock);
  CmConfigLookupFunc lookup CM_GUARDED_BY(lock) = default_lookup;
};

CCmConfigInitFile::CCmConfigInitFile() : m_pImpl(new Impl) {
  m_pImpl->path = CCmDefaultDir().GetDefaultDir() + "/" + config_file_name;
}

CCmConfigInitFile::CCmConfigInitFile(CCmString path) : m_pImpl(new Impl) { m_pImpl->path = std::move(path); }

CCmConfigInitFile::~CCmConfigInitFile() {
  delete m_pImpl;
  m_pImpl = nullptr;
}

void CCmConfigInitFile::RegisterFunc(CmConfigLookupFunc fn) {
  CCmMutexGuardT<CCmMutexThreadRecursive> guard(m_pImpl->lock);
  m_pImpl->lookup = fn;
}

int CCmConfigInitFile::InitWithFileName(const CCmString&) { return 0; }

CCmString CCmConfigInitFile::GetFilePath() const {
  CCmMutexGuardT<CCmMutexThreadRecursive> guard(m_pImpl->lock);
  return m_pImpl->path;
}

// Runs the lookup function under the lock; `buf` must hold size + 1 bytes so that a
// value filling the whole size stays terminated.
bool CCmConfigInitFile::Lookup(const CCmString& section, const CCmString& key, char* buf, int size) {
  CCmMutexGuardT<CCmMutexThreadRecursive> guard(m_pImpl->lock);
  CmConfigLookupFunc fn = m_pImpl->lookup;
  if (!fn) return false;
  memset(buf, 0, static_cast<size_t>(size) + 1);
  return fn(m_pImpl->path.c_str(), section.c_str(), key.c_str(), buf, size) != 0;
}

int CCmConfigInitFile::GetIntParam(const CCmString& section, const CCmString& key, int def) {
  char buf[kValueBufSize + 1];
  if (!Lookup(section, key, buf, kValueBufSize)) return def;
  long v = strtol(buf, nullptr, 10);
  if (v == LONG_MAX || v == LONG_MIN) return def;
  return static_cast<int>(v);
}

unsigned int CCmConfigInitFile::GetDwordParam(const CCmString& section, const CCmString& key, unsigned int def) {
  char buf[kValueBufSize + 1];
  if (!Lookup(section, key, buf, kValueBufSize)) return def;
  unsigned long v = strtoul(buf, nullptr, 10);
  if (v == ULONG_MAX) return def;
  return static_cast<unsigned int>(v);
}

unsigned short CCmConfigInitFile::GetWordParam(const CCmString& section, const CCmString& key, unsigned short def) {
  char buf[kValueBufSize + 1];
  if (!Lookup(section, key, buf, kValueBufSize)) return def;
  unsigned short v = def;
  if (sscanf(buf, "%hu", &v) != 1) return def;
  return v;
}

float CCmConfigInitFile::GetFloatParam(const CCmString& section, const CCmString& key, float def) {
  char buf[kValueBufSize + 1];
  if (!Lookup(section, key, buf, kValueBufSize)) return def;
  float v = strtof(buf, nullptr);
  // Anything whose truncation would not fit a 64-bit integer (NaN, infinities,
  // magnitudes of 2^63 and more) keeps the default.
  if (!(v > -9223372036854775808.0f && v < 9223372036854775808.0f)) return def;
  return v;
}

CCmString CCmConfigInitFile::GetStringParam(const CCmString& section, const CCmString& key, CCmString def) {
  char buf[kValueBufSize + 1];
  if (!Lookup(section, key, buf, kValueBufSize)) return def;
  return CCmString(buf);
}

bool CCmConfigInitFile::GetBoolParam(const CCmString& section, const CCmString& key, bool def) {
  char buf[kValueBufSize + 1];
  if (!Lookup(section, key, buf, kValueBufSize)) return def;
  return strcasecmp(buf, "TRUE") == 0;
}

CCmString CCmConfigInitFile::GetNimraHomeDir() {
  const char* dir = get_nimra_home_dir();
  return dir ? CCmString(dir) : CCmString();
}

void CCmConfigInitFile::SetNimraHomeEnv(const CCmString& name) { set_nimra_home_env(name.c_str()); }

void CCmConfigInitFile::SetNimraConfigFileName(const CCmString& name) {
  set_nimra_config_file_name(name);
  CM_INFO_TRACE("CCmConfigInitFile::SetNimraConfigFileName, file name " << name.c_str());
}
