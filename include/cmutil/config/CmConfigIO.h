#pragma once
/// INI-style configuration lookups.
///
/// The reader scans one plain-text file per lookup: it opens the file, walks it line by
/// line and closes it again, so a change to the file is seen by the next lookup and
/// nothing is cached (except the executable name). Lookups never fail loudly: a missing
/// file, section or key, an empty value or the switched-off feature all end as "not
/// found" and the caller's default (or 0) applies.
///
/// File format accepted by read_init_file():
///  - a line whose first non-blank character is '#' is a comment;
///  - a line containing both '[' and ']' (anywhere) is a section header; its name is the
///    trimmed text between the first '[' and the first ']'. Note: key=[a] is therefore a
///    header too;
///  - any other line with '=' is key=value (key trimmed, compared without case);
///  - only the FIRST section of a given name is searched;
///  - a value wrapped in matching single or double quotes loses them;
///  - the free lookups (get_string_param...) drop one trailing ';' of the value.
///
/// Process-wide settings (g_cur_env, the file name, the switch) are plain globals that
/// are meant to be set once at start-up, before other threads look keys up. The free
/// functions take no lock.

#include <cstddef>
#include <cstdio>

#include "cmutil/base/CmExport.h"
#include "cmutil/base/CmProcessName.h"
#include "cmutil/base/CmString.h"

/// NAME of the environment variable that holds the home directory ("HOME" at start).
extern CM_EXPORT char g_cur_env[512];
/// File name used by get_config_file_name() ("nimra.cfg" at start).
extern CM_EXPORT CCmString g_nimra_config_file_name;
/// Last home directory computed by get_nimra_home_dir().
extern CM_EXPORT CCmString g_nimra_home_dir_name;
/// Master switch of the free-function lookups; off until the host turns it on.
extern CM_EXPORT bool m_bEnableConfigIOFeature;

/// Home directory provider: getenv(g_cur_env), or "/tmp" when that variable is unset.
class CM_EXPORT CCmDefaultDir {
 public:
  CCmDefaultDir() {}
  ~CCmDefaultDir() {}
  CCmString GetDefaultDir();
};

/// Trims blanks (space, tab, CR, LF) in place: trailing ones are overwritten with NUL and
/// the result points past the leading ones, inside `s`.
CM_EXPORT char* cm_trim_string(char* s);
/// True when the first non-blank character of `line` is '#'.
CM_EXPORT bool cm_is_comment_line(char* line);
/// Scans the open file `f` for `key` in `section` (null: the keys before the first
/// header). On success the value is copied with a bounded copy of `size` bytes into
/// `out`; a value of `size` bytes or more is NOT terminated by that copy.
CM_EXPORT bool read_init_file(FILE* f, const char* section, const char* key, char* out, size_t size);
/// Reads an int with "%d" from `path`; `def` when the file or key is missing.
CM_EXPORT int get_int_from_profile(const char* section, const char* key, int def, const char* path);
/// Looks `key` up in `path`; when not found, copies at most size-1 bytes of `def`. Returns
/// the length of `out`.
CM_EXPORT size_t get_string_from_profile(const char* section, const char* key, const char* def, char* out, size_t size,
                                         const char* path);

CM_EXPORT void set_nimra_config_file_name(const CCmString& name);
/// Sets g_nimra_home_dir_name from CCmDefaultDir and returns its text (valid until the
/// next call).
CM_EXPORT const char* get_nimra_home_dir();
/// From now on the home directory is read from the environment variable `name`
/// (copied into g_cur_env with strcpy_s: a null name or one of 512 bytes or more is
/// reported to the constraint handler and leaves g_cur_env as it was). Returns
/// strcpy_s's result: 0 on success, 22 on a violation.
CM_EXPORT int set_nimra_home_env(const char* name);
/// Home directory + "/conf/" + g_nimra_config_file_name.
CM_EXPORT CCmString get_config_file_name();
CM_EXPORT void enable_config_io_feature(bool on);

/// False while the switch is off; else get_string_param_from_ini_force().
CM_EXPORT bool get_string_param_from_configfile(const char* path, const char* section, const char* key, char* out,
                                                size_t size);
/// Ignores the switch. Clears `out`, looks the key up; an empty value counts as missing;
/// one trailing ';' is removed.
CM_EXPORT bool get_string_param_from_ini_force(const char* path, const char* section, const char* key, char* out,
                                               size_t size);
/// Looks the key up in get_config_file_name(); false while the switch is off.
CM_EXPORT bool get_string_param(const char* section, const char* key, char* out, size_t size);
/// Value parsed with "%d"; 0 when not found or not a number.
CM_EXPORT int get_int_param(const char* section, const char* key);
CM_EXPORT unsigned short get_uint16_param(const char* section, const char* key);
CM_EXPORT unsigned int get_uint32_param(const char* section, const char* key);
/// True exactly when the value equals "TRUE" ignoring case; `def` when not found.
CM_EXPORT bool get_bool_param(const char* section, const char* key, bool def);
