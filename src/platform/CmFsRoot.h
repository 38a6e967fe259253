#pragma once
// One process-wide root under which every reader of /proc, /sys, /etc and /usr/share opens
// its files. It is empty for the live system and taken once from the environment variable
// CMUTIL_FS_ROOT, so a test (or a user reproducing a report) can point the library at a
// captured tree. Readers only read: parsing lives beside the facts that use the text.

#include <string>
#include <vector>

#include "cmutil/base/CmExport.h"

/// The root prefix; empty for the live system.
const std::string& cm_fs_root();

/// True when a root is set. Facts the live system gives through system calls (uname,
/// sysconf, getrusage, netlink) are then read from their file equivalents under the root.
bool cm_fs_root_is_set();

/// Reads root + path (an absolute path such as "/proc/stat") to its end into out, reusing
/// out's storage. procfs reports size 0 and sysfs 4096, so the size is never trusted.
/// Any error (ENOENT, EACCES, ENODATA, EIO ...) returns false: the fact is not available.
bool cm_read_fs_file(const char* path, std::string& out);

/// Like cm_read_fs_file, with the trailing newlines removed.
bool cm_read_fs_line(const char* path, std::string& out);

/// Reads a whole decimal (or 0x hex) number from a one-value file; false when absent or
/// not a number.
bool cm_read_fs_u64(const char* path, unsigned long long& value);

/// Target of the symbolic link root + path; false when it is no link.
bool cm_read_fs_link(const char* path, std::string& target);

/// Names in the folder root + path, without "." and "..", in no particular order.
bool cm_list_fs_dir(const char* path, std::vector<std::string>& names);

/// True when root + path exists (file, folder or link, dangling links included).
bool cm_fs_exists(const char* path);

/// Composes root + path into out (cap bytes, always terminated). Returns false when the
/// path does not fit; out is then empty.
bool cm_fs_path(const char* path, char* out, size_t cap);

/// Registers a function that empties one cache of facts. The test setter below calls
/// every registered function; call it from a static initialiser of the caching file.
void cm_fs_register_cache_reset(void (*reset)());

/// Test only: replaces the root (null or "" for the live system) and clears every
/// registered cache. Not thread-safe: call it while no fact is being read.
CM_EXPORT void cm_set_fs_root_for_test(const char* root);

/// Registers fn as a cache reset at load time: `CM_FS_CACHE_RESET(clear_my_cache);`
#define CM_FS_CACHE_RESET(fn) \
  static const bool cm_fs_cache_reset_registered_##fn = (cm_fs_register_cache_reset(&fn), true)
