#pragma once
/// Elapsed-time facts: a stopwatch value over one clock policy.
///
/// `timer_fact<policy>` remembers one start instant (microseconds of the policy's
/// time base) and answers how much time has passed and whether a limit is reached.
/// A clock that reads earlier than the start is taken to have wrapped at
/// `policy::max_time_value()`, so a wall-clock step backwards yields a very large
/// elapsed time. The value is a plain 8-byte object; use it from one thread or copy it.
///
///     timer_fact<low_tick_policy> watch;      // starts now
///     ...
///     if (watch.overtime_mills(500)) { ... } // at least 500 ms have passed

#include "cmutil/base/CmExport.h"
#include "cmutil/timer/CmTimer.h"

template <class policy>
class timer_fact {
 public:
  /// -1 means "now".
  explicit timer_fact(long long aStart = -1) { reset(aStart); }

  void reset(long long aStart = -1) { m_start = (aStart == -1) ? policy::now() : aStart; }
  long long latest_tag() const { return m_start; }
  static long long now() { return policy::now(); }

  long long elapsed() const { return elapsed_at(policy::now()); }
  long long elapsed_mills() const { return scaled_at(policy::now(), 1000LL); }
  long long elapsed_sec() const { return scaled_at(policy::now(), 1000000LL); }

  bool overtime(long long aLimit) const { return elapsed() >= aLimit; }
  bool overtime_mills(long long aLimit) const { return elapsed_mills() >= aLimit; }
  bool overtime_sec(long long aLimit) const { return elapsed_sec() >= aLimit; }

  /// The elapsed microseconds for a given reading `n` of the policy's clock.
  long long elapsed_at(long long n) const {
    if (n >= m_start) return n - m_start;
    const long long max = policy::max_time_value();
    if (m_start != max) return wrap_add(wrap_sub(max, m_start), n);
    return wrap_sub(n, max);
  }

  /// Elapsed time in units of `unit` microseconds for a reading `n`; each instant is
  /// divided separately, so 999 us -> 1000 us counts as one millisecond.
  long long scaled_at(long long n, long long unit) const {
    const long long nm = n / unit;
    const long long sm = m_start / unit;
    if (nm < sm) {
      const long long d = wrap_sub(policy::max_time_value(), m_start);
      if (d < -(unit - 1) || d > unit - 1) return wrap_add(d / unit, nm);
    }
    return nm - sm;
  }

 private:
  /// a - b in two's complement without signed-overflow UB.
  static long long wrap_sub(long long a, long long b) {
    return static_cast<long long>(static_cast<unsigned long long>(a) - static_cast<unsigned long long>(b));
  }

  /// a + b in two's complement without signed-overflow UB (b may be LLONG_MIN).
  static long long wrap_add(long long a, long long b) {
    return static_cast<long long>(static_cast<unsigned long long>(a) + static_cast<unsigned long long>(b));
  }

  long long m_start;
};

extern template class CM_EXPORT timer_fact<timer_policy>;
extern template class CM_EXPORT timer_fact<tick_policy>;
extern template class CM_EXPORT timer_fact<low_tick_policy>;
