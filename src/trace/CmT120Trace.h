#pragma once
// The trace-file object behind route 2 of the trace core. It is created by the trace-file
// code; until then instance() is null and the route does nothing.

class CCmT120Trace {
 public:
  static CCmT120Trace* instance();
  void trace_string(int level, const char* module, const char* text, int len);
  bool is_module_trace_enabled(int level, const char* module);
};
