#pragma once
/// Test hooks of the low tick: the count of startLowTick() calls not yet matched and
/// the "t-tick" thread (null while none runs). Both read under the tick-thread mutex.

#include "cmutil/base/CmExport.h"

class ACmThread;

CM_EXPORT unsigned int cm_low_tick_ref_count();
CM_EXPORT ACmThread* cm_low_tick_thread();
