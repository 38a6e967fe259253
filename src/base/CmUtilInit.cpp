#include "cmutil/base/CmUtilInit.h"

#ifndef CMUTIL_VERSION_TEXT
#define CMUTIL_VERSION_TEXT "0.1.0"
#endif

void CmUtilInit() {}
void CmUtilCleanup() {}
const char* cm_util_version() { return CMUTIL_VERSION_TEXT; }
