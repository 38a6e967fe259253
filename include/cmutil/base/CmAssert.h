#pragma once
/// Assertions that never abort. A failed one writes a level-0 trace
/// "<file base name>:<line> Assert failed: <expression>", raises the assertion count
/// (cm_get_assertions_count) and lets the function go on with its own failure result:
///
///   CM_ASSERTE_RETURN(pEvent != nullptr, CM_ERROR_INVALID_ARG);

#include "cmutil/base/CmExport.h"

/// Reports a failed assertion: a level-0 trace line "<file base name>:<line> Assert failed:
/// <expression>", then cm_assertion_report(). Never aborts. The trace layer writes it;
/// this layer only names it, so that everything may assert without depending on the trace.
CM_EXPORT void cm_assert_failed(const char* file, int line, const char* expression);

/// A line of the lowest layer (a failed pthread call of the mutex, for instance): written
/// at <level> with the module tag "UTIL" when the trace mask lets it through.
CM_EXPORT void cm_low_layer_trace(int level, const char* text);

#define CM_ASSERTE(expr)                                      \
  do {                                                        \
    if (!(expr)) cm_assert_failed(__FILE__, __LINE__, #expr); \
  } while (0)

#define CM_ASSERTE_RETURN(expr, rv)                \
  do {                                             \
    if (!(expr)) {                                 \
      cm_assert_failed(__FILE__, __LINE__, #expr); \
      return rv;                                   \
    }                                              \
  } while (0)

#define CM_ASSERTE_RETURN_VOID(expr)               \
  do {                                             \
    if (!(expr)) {                                 \
      cm_assert_failed(__FILE__, __LINE__, #expr); \
      return;                                      \
    }                                              \
  } while (0)
