// Reading files under the process-wide filesystem root.

#include "platform/CmFsRoot.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <mutex>

namespace {

std::string& root_storage() {
  static std::string root = [] {
    const char* env = std::getenv("CMUTIL_FS_ROOT");
    std::string value = env ? env : "";
    while (!value.empty() && value.back() == '/') value.pop_back();
    return value;
  }();
  return root;
}

struct ResetList {
  std::mutex mutex;
  std::vector<void (*)()> resets;
};

ResetList& reset_list() {
  static ResetList list;
  return list;
}

class PathBuffer {
 public:
  explicit PathBuffer(const char* path) { m_ok = cm_fs_path(path, m_text, sizeof m_text); }
  bool ok() const { return m_ok; }
  const char* c_str() const { return m_text; }

 private:
  char m_text[4096];
  bool m_ok;
};

}  // namespace

const std::string& cm_fs_root() { return root_storage(); }

bool cm_fs_root_is_set() { return !root_storage().empty(); }

bool cm_fs_path(const char* path, char* out, size_t cap) {
  if (!out || cap == 0) return false;
  out[0] = '\0';
  if (!path) return false;
  const std::string& root = root_storage();
  size_t rootLen = root.size();
  size_t pathLen = std::strlen(path);
  if (rootLen + pathLen + 1 > cap) return false;
  std::memcpy(out, root.data(), rootLen);
  std::memcpy(out + rootLen, path, pathLen + 1);
  return true;
}

bool cm_read_fs_file(const char* path, std::string& out) {
  out.clear();
  PathBuffer full(path);
  if (!full.ok()) return false;
  int fd = open(full.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  if (out.capacity() < 4096) out.reserve(4096);
  bool ok = true;
  for (;;) {
    size_t used = out.size();
    if (out.capacity() - used < 1024) out.reserve(out.capacity() * 2);
    out.resize(out.capacity());
    ssize_t n = read(fd, &out[used], out.size() - used);
    if (n < 0 && errno == EINTR) {
      out.resize(used);
      continue;
    }
    out.resize(used + (n > 0 ? static_cast<size_t>(n) : 0));
    if (n < 0) ok = false;
    if (n <= 0) break;
  }
  close(fd);
  if (!ok) out.clear();
  return ok;
}

bool cm_read_fs_line(const char* path, std::string& out) {
  if (!cm_read_fs_file(path, out)) return false;
  while (!out.empty() && (out.back() == '\n' || out.back() == '\r')) out.pop_back();
  return true;
}

bool cm_read_fs_u64(const char* path, unsigned long long& value) {
  char text[64];
  PathBuffer full(path);
  if (!full.ok()) return false;
  int fd = open(full.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  ssize_t n;
  do {
    n = read(fd, text, sizeof text - 1);
  } while (n < 0 && errno == EINTR);
  close(fd);
  if (n <= 0) return false;
  text[n] = '\0';
  char* end = nullptr;
  errno = 0;
  unsigned long long parsed = std::strtoull(text, &end, 0);
  if (end == text || errno == ERANGE || text[0] == '-') return false;
  while (*end == '\n' || *end == ' ' || *end == '\r') ++end;
  if (*end != '\0') return false;
  value = parsed;
  return true;
}

bool cm_read_fs_link(const char* path, std::string& target) {
  target.clear();
  PathBuffer full(path);
  if (!full.ok()) return false;
  char buffer[4096];
  ssize_t n = readlink(full.c_str(), buffer, sizeof buffer - 1);
  if (n <= 0) return false;
  target.assign(buffer, static_cast<size_t>(n));
  return true;
}

bool cm_list_fs_dir(const char* path, std::vector<std::string>& names) {
  names.clear();
  PathBuffer full(path);
  if (!full.ok()) return false;
  DIR* dir = opendir(full.c_str());
  if (!dir) return false;
  while (dirent* entry = readdir(dir)) {
    const char* name = entry->d_name;
    if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0) continue;
    names.emplace_back(name);
  }
  closedir(dir);
  return true;
}

bool cm_fs_exists(const char* path) {
  PathBuffer full(path);
  struct stat st;
  return full.ok() && lstat(full.c_str(), &st) == 0;
}

void cm_fs_register_cache_reset(void (*reset)()) {
  ResetList& list = reset_list();
  std::lock_guard<std::mutex> lock(list.mutex);
  list.resets.push_back(reset);
}

void cm_set_fs_root_for_test(const char* root) {
  std::string value = root ? root : "";
  while (!value.empty() && value.back() == '/') value.pop_back();
  root_storage() = value;
  ResetList& list = reset_list();
  std::vector<void (*)()> resets;
  {
    std::lock_guard<std::mutex> lock(list.mutex);
    resets = list.resets;
  }
  for (auto reset : resets) reset();
}
