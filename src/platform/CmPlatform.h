#pragma once
// Internal interface to the operating system. Every OS query of the library lives in
// src/platform/linux/ behind these small functions, so the portable logic around them
// can be tested on its own. Append new declarations; keep each one small.

#include <cstddef>

#include "cmutil/base/CmExport.h"

// Host name into out (cap bytes, always terminated). Returns 0, or the errno of the
// failed call.
int cm_platform_host_name(char* out, size_t cap);

// The process name: the base name of /proc/self/exe, or the short invocation name when
// that link cannot be read. Always terminated; may be empty.
void cm_platform_process_name(char* out, size_t cap);
