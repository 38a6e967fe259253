#pragma once
// Temporary folders and files for the configuration tests, and a scoped environment
// variable so that HOME and the XDG folders point into the temporary folder.

#include <stdlib.h>

#include <fstream>
#include <optional>
#include <sstream>
#include <string>

#include "common/CmTempDir.h"

/// Sets (or, with null, removes) an environment variable and puts back what was there.
class CmScopedEnv {
 public:
  CmScopedEnv(const char* name, const char* value) : m_name(name) {
    if (const char* old = getenv(name)) m_old = old;
    put(name, value);
  }
  ~CmScopedEnv() { put(m_name.c_str(), m_old ? m_old->c_str() : nullptr); }

 private:
  static void put(const char* name, const char* value) { value ? setenv(name, value, 1) : unsetenv(name); }

  std::string m_name;
  std::optional<std::string> m_old;  // none: the variable was not set
};

inline std::string cm_read_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}
