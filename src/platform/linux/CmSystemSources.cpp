// System-call sources of machine facts, with their file equivalents under a root.

#include <sys/utsname.h>
#include <unistd.h>

#include "platform/CmFsRoot.h"
#include "platform/CmSystemPlatform.h"

namespace {

bool read_uname_field(const char* rootFile, std::string& out, const char* (*pick)(const utsname&)) {
  if (cm_fs_root_is_set()) return cm_read_fs_line(rootFile, out) && !out.empty();
  utsname names;
  if (uname(&names) != 0) return false;
  out = pick(names);
  return !out.empty();
}

}  // namespace

bool cm_sys_os_release(std::string& release) {
  return read_uname_field("/proc/sys/kernel/osrelease", release,
                          [](const utsname& u) -> const char* { return u.release; });
}

bool cm_sys_machine(std::string& machine) {
  return read_uname_field("/proc/sys/kernel/arch", machine, [](const utsname& u) -> const char* { return u.machine; });
}

bool cm_sys_online_cpu_count(unsigned& count) {
  if (cm_fs_root_is_set()) return false;
  long n = sysconf(_SC_NPROCESSORS_ONLN);
  if (n <= 0) return false;
  count = static_cast<unsigned>(n);
  return true;
}

bool cm_sys_physical_memory(unsigned long long& bytes) {
  if (cm_fs_root_is_set()) return false;
  long pages = sysconf(_SC_PHYS_PAGES);
  long pageSize = sysconf(_SC_PAGESIZE);
  if (pages <= 0 || pageSize <= 0) return false;
  bytes = static_cast<unsigned long long>(pages) * static_cast<unsigned long long>(pageSize);
  return true;
}
