#pragma once
/// Assertions that never abort. A failed one writes a level-0 trace
/// "<file base name>:<line> Assert failed: <expression>", raises the assertion count
/// (cm_get_assertions_count) and lets the function go on with its own failure result:
///
///   CM_ASSERTE_RETURN(pEvent != nullptr, CM_ERROR_INVALID_ARG);

#include "cmutil/trace/CmTrace.h"

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
