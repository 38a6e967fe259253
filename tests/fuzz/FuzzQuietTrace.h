#pragma once
// Shared by the fuzz targets: trace lines are still formatted (the failure paths run)
// but go to a sink that drops them, so a run prints nothing per input.

#include "cmutil/trace/CmTrace.h"

/// Routes every trace line to a sink that drops it; the first call only does the work.
inline void cm_fuzz_quiet_trace() {
  static const bool done = [] {
    set_util_external_trace_sink([](int, const char*, int) {});
    cm_set_trace_option(CM_TRACE_ROUTE_SINK);
    return true;
  }();
  (void)done;
}
