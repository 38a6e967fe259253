// Folders, file locks and shared-object loading for the configuration and trace-file code.
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/CmPlatform.h"

namespace {

int xdg_dir(const char* variable, const char* fallback, char* out, size_t cap) {
  if (!out || cap == 0) return -1;
  out[0] = '\0';
  const char* v = getenv(variable);
  int n = 0;
  if (v && v[0] == '/') {
    n = snprintf(out, cap, "%s", v);
  } else {
    const char* home = getenv("HOME");
    if (!home || !*home) return -1;
    n = snprintf(out, cap, "%s/%s", home, fallback);
  }
  if (n < 0 || static_cast<size_t>(n) >= cap) {
    out[0] = '\0';
    return -1;
  }
  return 0;
}

}  // namespace

int cm_platform_user_config_dir(char* out, size_t cap) { return xdg_dir("XDG_CONFIG_HOME", ".config", out, cap); }

int cm_platform_user_state_dir(char* out, size_t cap) { return xdg_dir("XDG_STATE_HOME", ".local/state", out, cap); }

int cm_platform_make_dirs(const char* path) {
  if (!path || !*path) return EINVAL;
  std::string p(path);
  for (size_t i = 1; i <= p.size(); ++i) {
    if (i != p.size() && p[i] != '/') continue;
    std::string part = p.substr(0, i);
    if (mkdir(part.c_str(), 0777) != 0 && errno != EEXIST) return errno;
  }
  struct stat st;
  if (stat(path, &st) != 0) return errno;
  return S_ISDIR(st.st_mode) ? 0 : ENOTDIR;
}

namespace {

// A record lock over the whole file: from offset 0, length 0 (to the end, however far it grows).
struct flock whole_file(short type) {
  struct flock lk = {};
  lk.l_type = type;
  lk.l_whence = SEEK_SET;
  return lk;
}

}  // namespace

int cm_platform_lock_file(int fd) {
  const struct flock lk = whole_file(F_WRLCK);
  for (;;) {
    if (fcntl(fd, F_SETLKW, &lk) == 0) return 0;
    if (errno != EINTR && errno != EAGAIN) return errno;
  }
}

int cm_platform_unlock_file(int fd) {
  const struct flock lk = whole_file(F_UNLCK);
  return fcntl(fd, F_SETLK, &lk) == 0 ? 0 : errno;
}

void cm_platform_library_path(char* out, size_t cap) {
  if (!out || cap == 0) return;
  out[0] = '\0';
  Dl_info info = {};
  if (dladdr(reinterpret_cast<void*>(&cm_platform_library_path), &info) && info.dli_fname)
    snprintf(out, cap, "%s", info.dli_fname);
}

void* cm_platform_load_library(const char* path) {
  if (!path || !*path) return nullptr;
  return dlopen(path, RTLD_NOW | RTLD_LOCAL);
}

void* cm_platform_library_symbol(void* handle, const char* name) {
  if (!handle || !name) return nullptr;
  return dlsym(handle, name);
}

void cm_platform_free_library(void* handle) {
  if (handle) dlclose(handle);
}
