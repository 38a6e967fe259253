#pragma once
/// Trace sites. Each macro tests the effective mask first (one integer compare when the
/// line is suppressed), then formats its << chain with CCmTextFormator over a 1024-byte
/// stack buffer and hands it to util_adapter_trace with the module tag "UTIL".
///
///   CM_ERROR_TRACE("CCmFoo::Bar, open() failed! err=" << err);
///   CM_WARNING_TRACE_THIS("CCmFoo::Bar, queue is long, size=" << n);  // + " [this=0x...]"
///   CM_INFO_TRACE(CM_FUNC_NAME << ", enter");

#include "cmutil/trace/CmTextFormator.h"
#include "cmutil/trace/CmTrace.h"

/// The enclosing function's name, cut from the compiler's signature ("virtual A::~A()"
/// gives "A::~A"); valid until the end of the full expression that uses it.
class CCmFunctionName {
 public:
  explicit CCmFunctionName(const char* signature) { cm_cut_function_name(signature, m_szName, sizeof m_szName); }
  const char* c_str() const { return m_szName; }

 private:
  char m_szName[256];
};
#define CM_FUNC_NAME (CCmFunctionName(__PRETTY_FUNCTION__).c_str())

#define CM_TRACE_MODULE "UTIL"

#define CM_TRACE_AT(level, chain)                                                                              \
  do {                                                                                                         \
    if (cm_trace_effective_mask() >= (level)) {                                                                \
      char cm_trace_buffer_[1024];                                                                             \
      CCmTextFormator cm_trace_text_(cm_trace_buffer_, sizeof cm_trace_buffer_);                               \
      cm_trace_text_ << chain;                                                                                 \
      util_adapter_trace((level), CM_TRACE_MODULE, cm_trace_buffer_, static_cast<int>(cm_trace_text_.tell())); \
    }                                                                                                          \
  } while (0)

#define CM_TRACE_AT_THIS(level, chain) CM_TRACE_AT(level, chain << " [this=" << static_cast<const void*>(this) << "]")

#define CM_ERROR_TRACE(chain) CM_TRACE_AT(0, chain)
#define CM_WARNING_TRACE(chain) CM_TRACE_AT(1, chain)
#define CM_INFO_TRACE(chain) CM_TRACE_AT(2, chain)
#define CM_DETAIL_TRACE(chain) CM_TRACE_AT(3, chain)
#define CM_DEBUG_TRACE(chain) CM_TRACE_AT(4, chain)

#define CM_ERROR_TRACE_THIS(chain) CM_TRACE_AT_THIS(0, chain)
#define CM_WARNING_TRACE_THIS(chain) CM_TRACE_AT_THIS(1, chain)
#define CM_INFO_TRACE_THIS(chain) CM_TRACE_AT_THIS(2, chain)
#define CM_DETAIL_TRACE_THIS(chain) CM_TRACE_AT_THIS(3, chain)
#define CM_DEBUG_TRACE_THIS(chain) CM_TRACE_AT_THIS(4, chain)
