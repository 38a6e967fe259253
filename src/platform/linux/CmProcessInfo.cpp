#include <errno.h>
#include <unistd.h>

#include <cstring>

#include "platform/CmPlatform.h"

int cm_platform_host_name(char* out, size_t cap) {
  if (cap == 0) return EINVAL;
  out[0] = '\0';
  if (gethostname(out, cap) != 0) {
    int err = errno;
    out[0] = '\0';
    return err;
  }
  out[cap - 1] = '\0';
  return 0;
}

void cm_platform_process_name(char* out, size_t cap) {
  if (cap == 0) return;
  char path[4096];
  ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
  const char* name = program_invocation_short_name;
  if (n > 0) {
    path[n] = '\0';
    const char* slash = std::strrchr(path, '/');
    name = slash ? slash + 1 : path;
  }
  std::strncpy(out, name ? name : "", cap - 1);
  out[cap - 1] = '\0';
}
