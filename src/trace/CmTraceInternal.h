#pragma once
// Internal pieces of the trace core that tests reach directly.

#include <cstddef>

#include "cmutil/base/CmExport.h"

// Settings the trace takes from the configuration layer above it, which installs its
// readers as the library loads. Without readers the trace keeps its defaults.
struct CmTraceSettingsReaders {
  // The configured machine id ("MachineID" of section "Trace") into out, "" when none.
  void (*machineId)(char* out, size_t cap);
  // An integer of the debug configuration file; false when it is not set.
  bool (*debugInt)(const char* key, int* value);
};
void cm_set_trace_settings_readers(const CmTraceSettingsReaders& readers);

// The configured machine id, empty when none is set or no reader is installed.
void cm_trace_configured_machine_id(char* out, size_t cap);
// An integer of the debug configuration file; false when unset or no reader is installed.
bool cm_trace_debug_setting(const char* key, int* value);

// Builds "<process>.<machine>." into out (at most cap-1 characters), removing a trailing
// ".exe" from the process name.
CM_EXPORT void cm_compose_leading_id(const char* process, const char* machine, char* out, size_t cap);

// Forgets the cached leading id so that a test can compute it again.
CM_EXPORT void cm_reset_leading_id_for_test();

// Replaces the executable name behind the leading id's process part (null restores the
// real one, get_exec_name). The process part is always cm_process_name_of(that name), so
// an empty name gives "util". Test hook.
CM_EXPORT void cm_set_leading_id_exec_source(const char* (*source)());
