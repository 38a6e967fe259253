#pragma once
// A throw-away filesystem tree for tests of the machine facts: files are written under a
// fresh temporary folder, the library's filesystem root points at it while the object
// lives, and the caches of facts are emptied on the way in and out.

#include <string>
#include <utility>
#include <vector>

#include "common/CmTempDir.h"
#include "platform/CmFsRoot.h"

class CmFsTree : public CmTempDir {
 public:
  using Files = std::vector<std::pair<std::string, std::string>>;

  explicit CmFsTree(const Files& files = {}) {
    for (const auto& file : files) Write(file.first, file.second);
    cm_set_fs_root_for_test(path().c_str());
  }
  ~CmFsTree() { cm_set_fs_root_for_test(nullptr); }
  CmFsTree(const CmFsTree&) = delete;
  CmFsTree& operator=(const CmFsTree&) = delete;

  /// Writes (or replaces) root + path, creating its folders.
  void Write(const std::string& at, const std::string& content) { write(at.substr(1), content); }
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
