#pragma once
// Test access to the sampler: count it as started without a timer and take samples by
// hand, so a test controls exactly when the source files are read.

#include "cmutil/system/CmKelPerfsStats.h"

struct CM_EXPORT CKelPerfsStatsTestHook {
  /// As start() with the given interval, but nothing is scheduled.
  static void StartWithoutTimer(CKelPerfsStats& stats, int intervalMs);
  /// One sample now, on the calling thread.
  static void Sample(CKelPerfsStats& stats);
};
