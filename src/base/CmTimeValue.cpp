// CCmTimeValue: construction from doubles and milliseconds, clocks and calendar fields.

#include "cmutil/base/CmTimeValue.h"
#include "platform/CmPlatform.h"

#include <climits>

void CCmTimeValue::Set(double aSec) {
  m_lSec = static_cast<long>(aSec);
  m_lUsec = static_cast<long>((aSec - static_cast<double>(m_lSec)) * 1000000.0);
  Normalize();
}

void CCmTimeValue::SetByTotalMsec(long aMsec) {
  m_lSec = aMsec / 1000;
  m_lUsec = (aMsec - m_lSec * 1000) * 1000;
}

CCmTimeValue CCmTimeValue::GetTimeOfDay() {
  const long long us = cm_platform_realtime_us();
  return CCmTimeValue(static_cast<long>(us / 1000000), static_cast<long>(us % 1000000));
}

const CCmTimeValue& CCmTimeValue::get_tvZero() {
  static const CCmTimeValue s_zero;
  return s_zero;
}

const CCmTimeValue& CCmTimeValue::get_tvMax() {
  static const CCmTimeValue s_max(LONG_MAX, 999999L);
  return s_max;
}

void CCmTimeValue::GetLocalTime(tm* aTm) const {
  if (!aTm) return;
  time_t sec = static_cast<time_t>(m_lSec);
  localtime_r(&sec, aTm);
}

void CCmTimeValue::GetUTCTime(tm* aTm) const {
  if (!aTm) return;
  time_t sec = static_cast<time_t>(m_lSec);
  gmtime_r(&sec, aTm);
}
