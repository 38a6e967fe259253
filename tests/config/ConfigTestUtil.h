#pragma once
// Temporary folders and files for the configuration tests, and a scoped environment
// variable so that HOME and the XDG folders point into the temporary folder.

#include <stdlib.h>

#include <fstream>
#include <sstream>
#include <string>

#include "common/CmTempDir.h"

class CmScopedEnv {
 public:
  CmScopedEnv(const char* name, const char* value) : m_name(name) {
    const char* old = getenv(name);
    m_had = old != nullptr;
    if (old) m_old = old;
    if (value)
      setenv(name, value, 1);
    else
      unsetenv(name);
  }
  ~CmScopedEnv() {
    if (m_had)
      setenv(m_name.c_str(), m_old.c_str(), 1);
    else
      unsetenv(m_name.c_str());
  }

 private:
  std::string m_name;
  std::string m_old;
  bool m_had = false;
};

inline std::string cm_read_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}
