#pragma once
/// Test hook: looks into a wheel's lists.

#include "cmutil/timerqueue/CmTimerWheelQueue.h"

struct CM_EXPORT CmTimerWheelInspector {
  static unsigned int NearCount(const CCmTimerWheelQueue& q, unsigned int slot);
  static unsigned int FarCount(const CCmTimerWheelQueue& q, unsigned int slot);
  static CCmTimeValue CachedEarliest(const CCmTimerWheelQueue& q);
};
