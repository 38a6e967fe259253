#pragma once
// Temporary folders and files for the configuration tests, and a scoped environment
// variable so that HOME and the XDG folders point into the temporary folder.

#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

class CmTempDir {
 public:
  CmTempDir() {
    char pattern[] = "/tmp/cmutil-config-XXXXXX";
    const char* dir = mkdtemp(pattern);
    m_path = dir ? dir : "/tmp";
  }
  ~CmTempDir() {
    std::string cmd = "rm -rf '" + m_path + "'";
    if (m_path != "/tmp" && system(cmd.c_str()) != 0) {
    }
  }
  const std::string& path() const { return m_path; }
  std::string file(const std::string& name) const { return m_path + "/" + name; }

  // Writes `content` to <dir>/<name> (creating sub-folders) and returns the path.
  std::string write(const std::string& name, const std::string& content) const {
    std::string full = file(name);
    for (size_t i = m_path.size() + 1; i < full.size(); ++i) {
      if (full[i] == '/') mkdir(full.substr(0, i).c_str(), 0777);
    }
    std::ofstream out(full, std::ios::binary | std::ios::trunc);
    out << content;
    return full;
  }

 private:
  std::string m_path;
};

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
