#pragma once
// Internal readers of machine facts that come from system calls rather than files. Under a
// filesystem root they read their captured file equivalents instead, so a captured tree
// answers for the whole machine. Each returns false when the source is absent.

#include <string>

/// Kernel release ("6.1.0-18-amd64"): uname, or proc/sys/kernel/osrelease under a root.
bool cm_sys_os_release(std::string& release);

/// Machine name ("x86_64"): uname, or proc/sys/kernel/arch under a root.
bool cm_sys_machine(std::string& machine);

/// Online CPU count from sysconf; false under a root (the cpulist file is the source there).
bool cm_sys_online_cpu_count(unsigned& count);

/// Physical memory in bytes from sysconf; false under a root.
bool cm_sys_physical_memory(unsigned long long& bytes);
