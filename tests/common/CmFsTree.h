#pragma once
// A throw-away filesystem tree for tests of the machine facts: files are written under a
// fresh temporary folder, the library's filesystem root points at it while the object
// lives, and the caches of facts are emptied on the way in and out.

#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "platform/CmFsRoot.h"

class CmFsTree {
 public:
  using Files = std::vector<std::pair<std::string, std::string>>;

  explicit CmFsTree(const Files& files = {}) {
    char pattern[] = "/tmp/cmutil-fs-XXXXXX";
    m_root = mkdtemp(pattern);
    for (const auto& file : files) Write(file.first, file.second);
    cm_set_fs_root_for_test(m_root.c_str());
  }
  ~CmFsTree() {
    cm_set_fs_root_for_test(nullptr);
    std::string command = "rm -rf '" + m_root + "'";
    if (system(command.c_str()) != 0) {
    }
  }
  CmFsTree(const CmFsTree&) = delete;
  CmFsTree& operator=(const CmFsTree&) = delete;

  /// Writes (or replaces) root + path, creating its folders.
  void Write(const std::string& path, const std::string& content) {
    std::string command = "mkdir -p \"$(dirname '" + m_root + path + "')\"";
    if (system(command.c_str()) != 0) return;
    std::ofstream(m_root + path, std::ios::binary) << content;
  }

  const std::string& root() const { return m_root; }

 private:
  std::string m_root;
};

/// Points the filesystem root at a captured tree under tests/fixtures/<folder> for the
/// object's lifetime.
class CmFixtureRoot {
 public:
  explicit CmFixtureRoot(const std::string& tree, const std::string& folder = "system") {
    cm_set_fs_root_for_test((std::string(CMUTIL_TEST_FIXTURES) + "/" + folder + "/" + tree).c_str());
  }
  ~CmFixtureRoot() { cm_set_fs_root_for_test(nullptr); }
};
