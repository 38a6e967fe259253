#pragma once
/// Clock policies and tick sources.
///
/// Three interchangeable clock policies yield "now" as signed 64-bit microseconds:
///  - `timer_policy`    the wall clock (gettimeofday); jumps when the clock is set.
///  - `tick_policy`     kernel ticks from an arbitrary point (times()); resolution of
///                      one kernel tick (10 ms on Linux).
///  - `low_tick_policy` a cached kernel-tick reading refreshed every 10 ms by the
///                      "t-tick" thread while `startLowTick()` is in force, so a
///                      reading costs one memory load; before `startLowTick()` (or
///                      after the last `stopLowTick()`) it falls back to `tick_policy`.
///
/// `tick_type` and `time_type` break a microsecond count into clock fields for
/// printing. `get_tick_count()` is the wall clock in milliseconds and
/// `get_tick_count_us()` a monotonic clock in microseconds.

#include <ctime>

#include "cmutil/base/CmExport.h"
#include "cmutil/timer/CmTimerWrapperID.h"

/// Milliseconds per kernel clock tick, computed once from sysconf(_SC_CLK_TCK).
/// Reached through the process singleton; never zero.
class CM_EXPORT PretInitialationTimer {
 public:
  PretInitialationTimer();
  unsigned int GetMsPerTick() const { return m_dwMsPerTick; }

 private:
  unsigned int m_dwMsPerTick;
};

/// Wall-clock policy: gettimeofday in microseconds.
class CM_EXPORT timer_policy {
 public:
  static long long now();
  static long long max_time_value() { return 9223372036854775807LL; }
};

/// Kernel-tick policy: times() x milliseconds-per-tick x 1000.
class CM_EXPORT tick_policy {
 public:
  static long long now();
  /// Monotonic steady clock in microseconds (full resolution).
  static long long now_us();
  static long long max_time_value() { return 9223372036854775807LL; }
};

/// Cached kernel tick, refreshed every 10 ms by the "t-tick" thread.
class CM_EXPORT low_tick_policy {
 public:
  /// One atomic load while the generator is started; one times() call otherwise.
  static long long now();
  /// Start/stop the generator on the calling thread's timer queue (the calling
  /// thread must be a library task thread with a timer queue).
  static void start();
  static void stop();
  static long long max_time_value() { return 9223372036854775807LL; }
};

/// Keeps the low tick: a repeating 10 ms timer stores a fresh tick_policy reading.
/// A process singleton, reached through instance(). start()/stop() are normally
/// driven by startLowTick()/stopLowTick(); start() must run on a task thread.
class CM_EXPORT low_tick_generator : public CCmTimerWrapperIDSink {
 public:
  low_tick_generator();
  void OnTimer(CCmTimerWrapperID* aId) override;
  ~low_tick_generator() override;

  static low_tick_generator* instance();

  /// The cached tick while started, else a fresh tick_policy reading.
  long long now() const;
  void start();
  void stop();
  bool is_started() const;

 private:
  struct Impl;
  Impl* m_impl;
  CCmTimerWrapperID timer;
};

/// Starts (first call) or counts (later calls) the "t-tick" thread. Returns once
/// the thread runs the 10 ms timer. Callable from any thread; calls nest by count.
CM_EXPORT void startLowTick();
/// Matches one startLowTick(); the last one stops, joins and destroys "t-tick".
/// An unmatched call leaves the count at 0.
CM_EXPORT void stopLowTick();

/// Wall clock in milliseconds.
CM_EXPORT unsigned long long get_tick_count();
/// Monotonic clock in microseconds (the same as tick_policy::now_us()).
CM_EXPORT long long get_tick_count_us();

/// A microsecond count broken into hours (not reduced modulo 24), minutes,
/// seconds, milliseconds and microseconds.
struct CM_EXPORT tick_type {
  unsigned int hour;
  unsigned int minute;
  unsigned int second;
  unsigned int millisecond;
  unsigned int microsecond;

  /// Breaks down a fresh tick_policy reading.
  tick_type();
  explicit tick_type(long long us);
  void reset(long long us);
};

/// Calendar breakdown in local time of microseconds since the Unix epoch. The month
/// is 1-based and the year is full (2026), unlike tm; the zone fields are untouched.
struct CM_EXPORT time_type : public tm {
  unsigned int millisecond;
  unsigned int microsecond;

  /// Breaks down a fresh timer_policy reading.
  time_type();
  explicit time_type(long long us);
  void reset(long long us);
};

/// The current kernel tick as clock fields.
class CM_EXPORT formatted_ticker {
 public:
  static tick_type now();
};

/// The current wall-clock time as calendar fields.
class CM_EXPORT formatted_timer {
 public:
  static time_type now();
};
