#pragma once
// Internal pieces of the trace core that tests reach directly.

#include <cstddef>

#include "cmutil/base/CmExport.h"

// The configured machine id ("MachineID" of section "Trace"), empty when none is set.
void cm_trace_configured_machine_id(char* out, size_t cap);

// Builds "<process>.<machine>." into out (at most cap-1 characters), removing a trailing
// ".exe" from the process name.
CM_EXPORT void cm_compose_leading_id(const char* process, const char* machine, char* out, size_t cap);

// Forgets the cached leading id so that a test can compute it again.
CM_EXPORT void cm_reset_leading_id_for_test();

// Replaces the executable name behind the leading id's process part (null restores the
// real one, get_exec_name). The process part is always cm_process_name_of(that name), so
// an empty name gives "util". Test hook.
CM_EXPORT void cm_set_leading_id_exec_source(const char* (*source)());
