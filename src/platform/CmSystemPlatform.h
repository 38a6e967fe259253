#pragma once
// Internal readers of machine facts behind the system-information functions. Each
// reads the live system or, when a filesystem root is set, its captured file
// equivalents, and returns false when the source is absent.

#include <string>

/// Kernel release ("6.1.0-18-amd64"): uname, or proc/sys/kernel/osrelease under a root.
bool cm_sys_os_release(std::string& release);

/// Machine name ("x86_64"): uname, or proc/sys/kernel/arch under a root.
bool cm_sys_machine(std::string& machine);
