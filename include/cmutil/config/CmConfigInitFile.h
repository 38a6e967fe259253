#pragma once
/// CCmConfigInitFile: typed lookups in one INI file (format: see CmConfigIO.h).
///
/// The object is bound to its path at construction. Each getter takes the object's
/// recursive lock, calls the lookup function with a 256-byte buffer and converts the
/// text; every miss returns the caller's default. The default lookup function is
/// get_string_param_from_configfile, so a CCmConfigInitFile answers only defaults until
/// enable_config_io_feature(true) has been called.
///
/// Note: the default constructor uses "nimra.cfg" directly in the home directory (no
/// "/conf/"), and SetNimraConfigFileName() does not change that name; the free functions
/// and a default-constructed object may therefore read different files. This is intended.
///
/// Getters may be called from any thread (serialised per object; the lookup function
/// may call back into the same object). RegisterFunc() is not locked: call it before
/// sharing the object.

#include <memory>

#include "cmutil/base/CmExport.h"
#include "cmutil/base/CmString.h"

/// Lookup function: (path, section, key, out, size) -> found.
typedef unsigned char (*CmConfigLookupFunc)(const char* path, const char* section, const char* key, char* out,
                                            int size);

class CM_EXPORT CCmConfigInitFile {
 public:
  /// Path = CCmDefaultDir::GetDefaultDir() + "/nimra.cfg".
  CCmConfigInitFile();
  explicit CCmConfigInitFile(CCmString path);
  ~CCmConfigInitFile();
  CCmConfigInitFile(const CCmConfigInitFile&) = delete;
  CCmConfigInitFile& operator=(const CCmConfigInitFile&) = delete;

  /// Replaces the lookup function; null means that no key is ever found.
  void RegisterFunc(CmConfigLookupFunc fn);
  /// Does nothing and returns 0: the path cannot change after construction.
  int InitWithFileName(const CCmString& name);

  /// strtol base 10; default kept on a miss or 64-bit overflow. Non-numbers give 0.
  int GetIntParam(const CCmString& section, const CCmString& key, int def);
  /// strtoul base 10; default kept on a miss or 64-bit overflow.
  unsigned int GetDwordParam(const CCmString& section, const CCmString& key, unsigned int def);
  /// "%hu"; default kept on a miss or when nothing parses.
  unsigned short GetWordParam(const CCmString& section, const CCmString& key, unsigned short def);
  /// strtof; default kept on a miss, NaN, infinities and magnitudes of 2^63 and more.
  float GetFloatParam(const CCmString& section, const CCmString& key, float def);
  CCmString GetStringParam(const CCmString& section, const CCmString& key, CCmString def);
  /// True when the value equals "TRUE" ignoring case.
  bool GetBoolParam(const CCmString& section, const CCmString& key, bool def);

  /// The path this object reads.
  CCmString GetFilePath() const;

  static CCmString GetNimraHomeDir();
  static void SetNimraHomeEnv(const CCmString& name);
  /// Changes the file name of the free functions (not of this class) and traces it at
  /// level 2.
  static void SetNimraConfigFileName(const CCmString& name);

 private:
  struct Impl;
  bool Lookup(const CCmString& section, const CCmString& key, char* buf, int size);
  Impl* m_pImpl;
};
