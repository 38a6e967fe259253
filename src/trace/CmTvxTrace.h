#pragma once
// The bridge to the optional trace plug-in behind route 1 of the trace core. Without a
// loaded plug-in every call does nothing.

class CCmTvxTrace {
 public:
  static CCmTvxTrace* instance();
  void trace_string(int level, const char* module, const char* text);
};
