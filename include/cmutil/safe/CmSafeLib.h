#pragma once
/// Bounds-checked memory and string functions. Every violated constraint is reported to
/// the installed constraint handler (by default one line through safe_log) with error 22,
/// and the function returns that error; the destination is then left as it was, except
/// for the fills of memset_s. A size "exceeds max" when its top bit is set.
///
/// Deliberate departures from the published bounds-checking interfaces:
///  - strncpy_s that has to truncate both reports it (error 84) and carries it out;
///  - the overlap rules differ between the functions (see each function).
/// The functions keep no state and may be called from any thread; the handler and logger
/// settings are meant to be set once at start-up.

#include <cstdarg>
#include <cstddef>

#include "cmutil/base/CmExport.h"

extern "C" {

/// A constraint handler receives the message, a context pointer and the error number.
typedef void (*constraint_handler_t)(const char* msg, void* ptr, int error);
/// A logger receives a printf-style format and its argument list.
typedef int (*safe_log_func_t)(const char* format, va_list args);

CM_EXPORT extern constraint_handler_t safe_constraint_handler;
CM_EXPORT extern unsigned int safe_desired_log_lvl;
CM_EXPORT extern safe_log_func_t safe_log_func;

/// Copies n bytes. Overlap: dest after src with src + n beyond dest, or dest before src
/// with src inside the whole destination capacity dmax. dest == src copies nothing.
CM_EXPORT int memcpy_s(void* dest, size_t dmax, const void* src, size_t n);
/// Fills n bytes with c. When n is too large, fills all smax bytes and still reports.
CM_EXPORT int memset_s(void* s, size_t smax, int c, size_t n);
/// *diff = byte comparison of n bytes; every violation after the diff check sets it to -1.
CM_EXPORT int memcmp_s(const void* s1, size_t s1max, const void* s2, size_t n, int* diff);
/// *indicator = comparison of s1 (bounded by s1max) and s2; -1 on any violation.
CM_EXPORT int strcmp_s(const char* s1, size_t s1max, const char* s2, int* indicator);
/// Copies src with its terminator; src must fit below dmax. dest == src is an overlap.
CM_EXPORT int strcpy_s(char* dest, size_t dmax, const char* src);
/// Copies at most n characters and terminates. When src does not fit, copies dmax - 1
/// characters, terminates, reports the truncation and returns 84.
CM_EXPORT int strncpy_s(char* dest, size_t dmax, const char* src, size_t n);
/// Length of s, at most maxlen; 0 for a null s.
CM_EXPORT size_t strnlen_s(const char* s, size_t maxlen);

/// Installs handler (null installs dcdi_handler_s) and returns the previous one.
CM_EXPORT constraint_handler_t set_constraint_handler_s(constraint_handler_t handler);
/// Set errno to error, then call the installed handler.
CM_EXPORT void invoke_safe_mem_constraint_handler(const char* msg, void* ptr, int error);
CM_EXPORT void invoke_safe_str_constraint_handler(const char* msg, void* ptr, int error);
/// The default handler: safe_log at level 1 of
/// "DATA INCONSISTENCY/DATA CORRUPTION: (<error>) <msg>\n".
CM_EXPORT void dcdi_handler_s(const char* msg, void* ptr, int error);

/// Sets the level and the logger (null logs to the standard error stream); returns 0.
CM_EXPORT int safe_init_logger(unsigned int level, safe_log_func_t func);
/// Logs when safe_desired_log_lvl is at least level.
CM_EXPORT void safe_log(unsigned int level, const char* format, ...) __attribute__((format(printf, 2, 3)));
CM_EXPORT void safe_enable_backtrace(void);
CM_EXPORT void safe_log_backtrace(void);
}
