// CKelDebugFileConfig: typed debug settings from "config.json" and from run-time setters.
#include "cmutil/config/KelDebugFileConfig.h"

#include <fstream>
#include <iterator>
#include <new>
#include <sstream>

#include "cmutil/base/CmMutex.h"
#include "cmutil/config/CmJson.h"
#include "cmutil/trace/CmTraceMacros.h"
#include "config/CmConfigInternal.h"
#include "platform/CmPlatform.h"

struct CKelDebugFileConfig::Impl {
  CCmMutexThreadRecursive lock;
  std::map<std::string, json::Value> values CM_GUARDED_BY(lock);
  bool readPermission = false;
};

typedef CCmMutexGuardT<CCmMutexThreadRecursive> DebugConfigGuard;

#define CM_DEBUG_CONFIG_CHECK_IMPL(name, rv)                            \
  do {                                                                  \
    if (!m_pImpl) {                                                     \
      CM_ERROR_TRACE("[CKelDebugFileConfig::" name "] pImpl is null!"); \
      return rv;                                                        \
    }                                                                   \
  } while (0)

int GetConfigBasePath(std::string& path) {
  char dir[4096];
  if (cm_platform_user_config_dir(dir, sizeof(dir)) != 0) return CM_ERROR_FAILURE;
  path = std::string(dir) + "/Kalda Brenn";
  return CM_OK;
}

int DefaultConfigPathProvider::GetConfigBasePath(std::string& path) { return ::GetConfigBasePath(path); }

CKelDebugFileConfig& CKelDebugFileConfig::instance() {
  static CKelDebugFileConfig s_instance;
  return s_instance;
}

CKelDebugFileConfig::CKelDebugFileConfig() : m_pImpl(new (std::nothrow) Impl) {}

CKelDebugFileConfig::~CKelDebugFileConfig() { delete m_pImpl; }

CmResult CKelDebugFileConfig::SetReadPermission(bool allowed) {
  CM_DEBUG_CONFIG_CHECK_IMPL("SetReadPermission", CM_ERROR_FAILURE);
  m_pImpl->readPermission = allowed;
  return CM_OK;
}

bool CKelDebugFileConfig::GetReadPermission() {
  CM_DEBUG_CONFIG_CHECK_IMPL("GetReadPermission", false);
  return m_pImpl->readPermission;
}

CmResult CKelDebugFileConfig::ReadAndSetDebugConfigs(IConfigPathProvider* provider) {
  CM_DEBUG_CONFIG_CHECK_IMPL("ReadAndSetDebugConfigs", CM_ERROR_FAILURE);
  std::string base;
  int rv = provider ? provider->GetConfigBasePath(base) : CM_ERROR_FAILURE;
  if (rv != 0) {
    CM_ERROR_TRACE("[CKelDebugFileConfig::ReadAndSetDebugConfigs] Error: Failed to get the config file path.");
    return rv;
  }
  std::string path = base + "/" + "config.json";
  if (!m_pImpl->readPermission) {
    CM_ERROR_TRACE("[CKelDebugFileConfig::ReadAndSetDebugConfigs] Error: No read permission set.");
    return CM_ERROR_FAILURE;
  }
  std::string text;
  if (!ReadConfigFile(path, text)) {
    CM_ERROR_TRACE("[CKelDebugFileConfig::ReadAndSetDebugConfigs] Error: Failed to read the config file.");
    return CM_ERROR_FAILURE;
  }
  return ParseConfigJSON(text);
}

bool CKelDebugFileConfig::ReadConfigFile(const std::string& path, std::string& text) {
  CM_DEBUG_CONFIG_CHECK_IMPL("ReadConfigFile", false);
  std::ifstream in(path, std::ios::in | std::ios::binary);
  if (!in.is_open()) return false;
  std::string content((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (in.bad() || content.empty()) return false;
  text.swap(content);
  return true;
}

CmResult CKelDebugFileConfig::ParseConfigJSON(const std::string& text) {
  CM_DEBUG_CONFIG_CHECK_IMPL("ParseConfigJSON", CM_ERROR_FAILURE);
  json::Value doc = json::Deserialize(text);
  if (doc.GetType() != json::kObject) return CM_OK;
  json::Object members = doc.ToObject();
  DebugConfigGuard guard(m_pImpl->lock);
  for (auto& kv : members) m_pImpl->values[kv.first] = std::move(kv.second);
  return CM_OK;
}

namespace {

// Typed lookup under the record's lock: found only when the stored kind matches.
template <class T, class Read>
CmResult lookup(CKelDebugFileConfig::Impl* impl, const std::string& key, json::ValueType kind, T& out, Read read) {
  DebugConfigGuard guard(impl->lock);
  auto it = impl->values.find(key);
  if (it == impl->values.end() || it->second.GetType() != kind) return CM_ERROR_FAILURE;
  out = read(it->second);
  return CM_OK;
}

}  // namespace

CmResult CKelDebugFileConfig::GetValueInt(const std::string& key, int& value) {
  CM_DEBUG_CONFIG_CHECK_IMPL("GetValueInt", CM_ERROR_FAILURE);
  return lookup(m_pImpl, key, json::kInt, value, [](const json::Value& v) { return v.ToInt(); });
}

CmResult CKelDebugFileConfig::GetValueDouble(const std::string& key, double& value) {
  CM_DEBUG_CONFIG_CHECK_IMPL("GetValueDouble", CM_ERROR_FAILURE);
  return lookup(m_pImpl, key, json::kDouble, value, [](const json::Value& v) { return v.ToDouble(); });
}

CmResult CKelDebugFileConfig::GetValueBool(const std::string& key, bool& value) {
  CM_DEBUG_CONFIG_CHECK_IMPL("GetValueBool", CM_ERROR_FAILURE);
  return lookup(m_pImpl, key, json::kBool, value, [](const json::Value& v) { return v.ToBool(); });
}

CmResult CKelDebugFileConfig::GetValueString(const std::string& key, std::string& value) {
  CM_DEBUG_CONFIG_CHECK_IMPL("GetValueString", CM_ERROR_FAILURE);
  return lookup(m_pImpl, key, json::kString, value, [](const json::Value& v) { return v.ToString(); });
}

namespace {

// Stores `value` under `key` and tells whether the key was new.
bool store(std::map<std::string, json::Value>& values, const std::string& key, json::Value value) {
  auto it = values.find(key);
  if (it == values.end()) {
    values.emplace(key, std::move(value));
    return true;
  }
  it->second = std::move(value);
  return false;
}

}  // namespace

#define CM_DEBUG_CONFIG_TRACE_STORE(added, key, value)                                        \
  do {                                                                                        \
    if (added)                                                                                \
      CM_INFO_TRACE("KelDebugConfig added new key=" << (key).c_str() << ", value=" << value); \
    else                                                                                      \
      CM_INFO_TRACE("KelDebugConfig updated key=" << (key).c_str() << ", value=" << value);   \
  } while (0)

CmResult CKelDebugFileConfig::SetValueInt(const std::string& key, int value) {
  CM_DEBUG_CONFIG_CHECK_IMPL("SetValueInt", CM_ERROR_FAILURE);
  DebugConfigGuard guard(m_pImpl->lock);
  bool added = store(m_pImpl->values, key, json::Value(value));
  CM_DEBUG_CONFIG_TRACE_STORE(added, key, value);
  return CM_OK;
}

CmResult CKelDebugFileConfig::SetValueDouble(const std::string& key, double value) {
  CM_DEBUG_CONFIG_CHECK_IMPL("SetValueDouble", CM_ERROR_FAILURE);
  DebugConfigGuard guard(m_pImpl->lock);
  bool added = store(m_pImpl->values, key, json::Value(value));
  CM_DEBUG_CONFIG_TRACE_STORE(added, key, value);
  return CM_OK;
}

CmResult CKelDebugFileConfig::SetValueBool(const std::string& key, bool value) {
  CM_DEBUG_CONFIG_CHECK_IMPL("SetValueBool", CM_ERROR_FAILURE);
  DebugConfigGuard guard(m_pImpl->lock);
  bool added = store(m_pImpl->values, key, json::Value(value));
  CM_DEBUG_CONFIG_TRACE_STORE(added, key, (value ? "true" : "false"));
  return CM_OK;
}

CmResult CKelDebugFileConfig::SetValueString(const std::string& key, std::string value) {
  CM_DEBUG_CONFIG_CHECK_IMPL("SetValueString", CM_ERROR_FAILURE);
  DebugConfigGuard guard(m_pImpl->lock);
  bool added = store(m_pImpl->values, key, json::Value(value));
  CM_DEBUG_CONFIG_TRACE_STORE(added, key, value.c_str());
  return CM_OK;
}

CmResult CKelDebugFileConfig::CleanDebugConfigs() {
  CM_DEBUG_CONFIG_CHECK_IMPL("CleanDebugConfigs", CM_ERROR_FAILURE);
  DebugConfigGuard guard(m_pImpl->lock);
  m_pImpl->values.clear();
  return CM_OK;
}

// Test hook: simulates the failed allocation of the record.
void cm_debug_config_drop_impl_for_test(CKelDebugFileConfig& config) { CKelDebugFileConfigTestAccess::Drop(config); }

void CKelDebugFileConfigTestAccess::Drop(CKelDebugFileConfig& config) {
  delete config.m_pImpl;
  config.m_pImpl = nullptr;
}
