#pragma once
/// The running program's names, used by the trace (leading id, trace folder) and the
/// configuration alike.

#include "cmutil/base/CmExport.h"

/// Executable name, filled once (thread-safe) from the base name of the running
/// program; empty when it cannot be found. The buffer lives until exit.
CM_EXPORT char* get_exec_name();
/// Part of the executable name after the last '/' or '\\'; "util" when it is empty.
CM_EXPORT const char* get_process_name();
/// The process name of an executable name: the part after the last '/' or '\\', "util"
/// when the name is empty.
CM_EXPORT const char* cm_process_name_of(const char* exec);
