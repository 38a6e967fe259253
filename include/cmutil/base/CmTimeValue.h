#pragma once
/// CCmTimeValue: a signed time span or point in seconds and microseconds.
///
/// Kept normalised: the microseconds lie in -999999..999999 and never carry the opposite
/// sign of the seconds. Every timer interval, wait time-out and expiry time of the
/// library is one of these. get_tvMax() stands for "no limit" in waits. Plain value,
/// no shared state, safe to copy anywhere; 64-bit overflow is not guarded against.

#include <sys/time.h>

#include <cstdint>
#include <ctime>

#include "cmutil/base/CmExport.h"

class CM_EXPORT CCmTimeValue {
 public:
  CCmTimeValue() : m_lSec(0), m_lUsec(0) {}
  CCmTimeValue(int aSec) : m_lSec(aSec), m_lUsec(0) {}
  CCmTimeValue(long aSec) : m_lSec(aSec), m_lUsec(0) {}
  CCmTimeValue(long aSec, long aUsec) { Set(aSec, aUsec); }
  CCmTimeValue(const timeval& aTv) { Set(aTv); }
  /// Whole seconds and microseconds, each truncated toward zero.
  CCmTimeValue(double aSec) { Set(aSec); }

  void Set(long aSec, long aUsec) {
    m_lSec = aSec;
    m_lUsec = aUsec;
    Normalize();
  }
  void Set(const timeval& aTv) { Set(aTv.tv_sec, aTv.tv_usec); }
  void Set(double aSec);

  /// Milliseconds split with truncation toward zero (-1500 gives (-1, -500000)).
  void SetByTotalMsec(long aMsec);

  long GetSec() const { return m_lSec; }
  long GetUsec() const { return m_lUsec; }
  /// Seconds x 1000 + microseconds / 1000, truncated toward zero.
  long GetTotalInMsec() const { return m_lSec * 1000 + m_lUsec / 1000; }

  /// Moves whole seconds out of the microseconds and reconciles the signs.
  void Normalize();

  /// The wall clock (gettimeofday).
  static CCmTimeValue GetTimeOfDay();
  static const CCmTimeValue& get_tvZero();
  /// (9223372036854775807 s, 999999 us): "no limit".
  static const CCmTimeValue& get_tvMax();

  /// Calendar time of the seconds field (local or UTC); microseconds are ignored.
  void GetLocalTime(tm* aTm) const;
  void GetUTCTime(tm* aTm) const;

  CCmTimeValue& operator+=(const CCmTimeValue& aRight) {
    m_lSec += aRight.m_lSec;
    m_lUsec += aRight.m_lUsec;
    Normalize();
    return *this;
  }
  CCmTimeValue& operator-=(const CCmTimeValue& aRight) {
    m_lSec -= aRight.m_lSec;
    m_lUsec -= aRight.m_lUsec;
    Normalize();
    return *this;
  }

 private:
  long m_lSec;
  long m_lUsec;
};

inline void CCmTimeValue::Normalize() {
  if (m_lUsec >= 1000000 || m_lUsec <= -1000000) {
    m_lSec += m_lUsec / 1000000;
    m_lUsec %= 1000000;
  }
  if (m_lSec >= 1 && m_lUsec < 0) {
    --m_lSec;
    m_lUsec += 1000000;
  } else if (m_lSec < 0 && m_lUsec > 0) {
    ++m_lSec;
    m_lUsec -= 1000000;
  }
}

inline CCmTimeValue operator+(const CCmTimeValue& aLeft, const CCmTimeValue& aRight) {
  CCmTimeValue tv(aLeft);
  tv += aRight;
  return tv;
}
inline CCmTimeValue operator-(const CCmTimeValue& aLeft, const CCmTimeValue& aRight) {
  CCmTimeValue tv(aLeft);
  tv -= aRight;
  return tv;
}
inline bool operator==(const CCmTimeValue& aLeft, const CCmTimeValue& aRight) {
  return aLeft.GetSec() == aRight.GetSec() && aLeft.GetUsec() == aRight.GetUsec();
}
inline bool operator!=(const CCmTimeValue& aLeft, const CCmTimeValue& aRight) { return !(aLeft == aRight); }
inline bool operator<(const CCmTimeValue& aLeft, const CCmTimeValue& aRight) {
  return aLeft.GetSec() < aRight.GetSec() || (aLeft.GetSec() == aRight.GetSec() && aLeft.GetUsec() < aRight.GetUsec());
}
inline bool operator>(const CCmTimeValue& aLeft, const CCmTimeValue& aRight) { return aRight < aLeft; }
inline bool operator<=(const CCmTimeValue& aLeft, const CCmTimeValue& aRight) { return !(aRight < aLeft); }
inline bool operator>=(const CCmTimeValue& aLeft, const CCmTimeValue& aRight) { return !(aLeft < aRight); }
