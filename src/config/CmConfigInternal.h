#pragma once
// Internal hooks of the configuration code that tests reach directly.

#include "cmutil/base/CmExport.h"

class CKelDebugFileConfig;

struct CM_EXPORT CKelDebugFileConfigTestAccess {
  static void Drop(CKelDebugFileConfig& config);
};

// Frees the object's record, as if its allocation had failed.
CM_EXPORT void cm_debug_config_drop_impl_for_test(CKelDebugFileConfig& config);
