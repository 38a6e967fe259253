// Demo of the trace core: levels against the mask, an external sink, assertions.

#include <cstdio>

#include "CmCommand.h"
#include "cmutil/base/CmAssert.h"
#include "cmutil/base/CmError.h"
#include "cmutil/trace/CmTraceMacros.h"

namespace {

int g_linesSeen = 0;

void print_sink(int level, const char* text, int len) {
  ++g_linesSeen;
  std::printf("  sink <- level %d: %.*s\n", level, len, text);
}

CmResult check_positive(int value) {
  CM_ASSERTE_RETURN(value > 0, CM_ERROR_INVALID_ARG);
  return CM_OK;
}

int trace_demo() {
  const int savedMask = g_traceMask.load();  // the global itself, not the effective mask
  const int savedOption = cm_get_trace_option();
  set_util_external_trace_sink(print_sink);
  cm_set_trace_option(CM_TRACE_ROUTE_SINK);

  for (int mask : {0, 2, 4}) {
    set_external_trace_mask(mask);
    std::printf(" mask %d:\n", mask);
    CM_ERROR_TRACE("error line, code=" << CCmTextFormator::hex << 0x46004001u);
    CM_WARNING_TRACE("warning line, value=" << 42);
    CM_INFO_TRACE("information line, ratio=" << 2.5);
    CM_DEBUG_TRACE("debug line, from " << CM_FUNC_NAME);
  }
  set_external_trace_mask(2);
  const long long before = cm_get_assertions_count();
  CmResult rv = check_positive(-1);
  std::printf(" assertion: result 0x%x, assertions counted %lld -> %lld\n", static_cast<unsigned>(rv), before,
              static_cast<long long>(cm_get_assertions_count()));
  std::printf(" leading id: %s\n", get_leading_id());

  set_util_external_trace_sink(nullptr);
  cm_set_trace_option(savedOption);
  set_external_trace_mask(savedMask);
  // With the sink gone, lines take the routes of the demo's option word (the trace files).
  CM_INFO_TRACE("trace demo: the sink is removed, " << g_linesSeen << " lines reached it");
  std::printf(" %d lines reached the sink\n", g_linesSeen);
  return g_linesSeen > 0 ? 0 : 1;
}

}  // namespace

CMUTIL_REGISTER_DEMO(10, "trace", trace_demo);
