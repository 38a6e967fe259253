#pragma once
/// Library start-up and shut-down hooks. Process-wide state is created lazily on first
/// use, so both calls do nothing; they exist for hosts that call them by habit.

#include "cmutil/base/CmExport.h"

extern "C" {
CM_EXPORT void CmUtilInit();
CM_EXPORT void CmUtilCleanup();
/// The library's version text, "major.minor.patch".
CM_EXPORT const char* cm_util_version();
}
