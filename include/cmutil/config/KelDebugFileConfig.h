#pragma once
/// CKelDebugFileConfig: the process-wide store of typed debug settings.
///
/// Values come from the JSON file "config.json" in the per-user configuration folder
/// ($XDG_CONFIG_HOME, else $HOME/.config, then "Kalda Brenn") and can also be set at run
/// time. Reading the file is refused until the host grants read permission with
/// SetReadPermission(true).
///
/// A lookup succeeds only when the stored value has the getter's kind: a whole number in
/// the file is an int, so GetValueDouble does not find it. Setters replace a value
/// whatever its previous kind.
///
/// All map access is serialised on the object's recursive lock; every operation may be
/// called from any thread. The read-permission flag is a plain flag meant to be set at
/// start-up.

#include <map>
#include <string>

#include "cmutil/base/CmError.h"
#include "cmutil/base/CmExport.h"

/// Supplies the folder in which "config.json" lies.
class CM_EXPORT IConfigPathProvider {
 public:
  virtual ~IConfigPathProvider() {}
  /// Writes the folder into `path`; returns 0 on success.
  virtual int GetConfigBasePath(std::string& path) = 0;
};

/// The per-user configuration folder + "/Kalda Brenn". CM_ERROR_FAILURE (and `path`
/// unchanged) when there is no home folder at all.
CM_EXPORT int GetConfigBasePath(std::string& path);

/// Provider that calls GetConfigBasePath().
class CM_EXPORT DefaultConfigPathProvider : public IConfigPathProvider {
 public:
  int GetConfigBasePath(std::string& path) override;
};

class CM_EXPORT CKelDebugFileConfig {
 public:
  /// The process-wide store, created on first use (thread-safe) and destroyed at exit.
  static CKelDebugFileConfig& instance();

  CKelDebugFileConfig();
  ~CKelDebugFileConfig();
  CKelDebugFileConfig(const CKelDebugFileConfig&) = delete;
  CKelDebugFileConfig& operator=(const CKelDebugFileConfig&) = delete;

  CmResult SetReadPermission(bool allowed);
  bool GetReadPermission();

  /// Reads "<base>/config.json" of the provider's folder and merges its top-level
  /// members into the store (keys not in the file keep their values). Fails with
  /// CM_ERROR_FAILURE and a level-0 trace without read permission, when the file cannot
  /// be read or is empty; a provider failure is returned as it is.
  CmResult ReadAndSetDebugConfigs(IConfigPathProvider* provider);
  /// True when the file opened and its content is not empty.
  bool ReadConfigFile(const std::string& path, std::string& text);
  /// Merges the members of a JSON object into the store; text that is not an object
  /// stores nothing. Always CM_OK (unless the object is unusable).
  CmResult ParseConfigJSON(const std::string& text);

  /// CM_OK and the value when the key holds a value of this kind; else
  /// CM_ERROR_FAILURE with `value` untouched.
  CmResult GetValueInt(const std::string& key, int& value);
  CmResult GetValueDouble(const std::string& key, double& value);
  CmResult GetValueBool(const std::string& key, bool& value);
  CmResult GetValueString(const std::string& key, std::string& value);

  /// Stores (inserts or replaces) a value; traces the change at level 2.
  CmResult SetValueInt(const std::string& key, int value);
  CmResult SetValueDouble(const std::string& key, double value);
  CmResult SetValueBool(const std::string& key, bool value);
  CmResult SetValueString(const std::string& key, std::string value);

  /// Empties the store.
  CmResult CleanDebugConfigs();

  struct Impl;

 private:
  friend struct CKelDebugFileConfigTestAccess;
  Impl* m_pImpl;
};
