#pragma once
// A temporary folder that is removed with everything in it when the object goes.

#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <string>

class CmTempDir {
 public:
  CmTempDir() {
    char pattern[] = "/tmp/cmutil-test-XXXXXX";
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
