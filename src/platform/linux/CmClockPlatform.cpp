// Linux clocks, futex words, the process id and the scheduler's yield and sleep.

#include <linux/futex.h>
#include <sched.h>
#include <sys/syscall.h>
#include <sys/times.h>
#include <time.h>
#include <unistd.h>

#include "platform/CmPlatform.h"

namespace {
long long MicrosecondsOf(clockid_t clock) {
  timespec ts;
  clock_gettime(clock, &ts);
  return static_cast<long long>(ts.tv_sec) * 1000000 + ts.tv_nsec / 1000;
}
}  // namespace

long long cm_platform_realtime_us() { return MicrosecondsOf(CLOCK_REALTIME); }

long long cm_platform_realtime_coarse_us() { return MicrosecondsOf(CLOCK_REALTIME_COARSE); }

long long cm_platform_monotonic_ns() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<long long>(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

long long cm_platform_clock_ticks() {
  tms unused;
  return static_cast<long long>(times(&unused));
}

long cm_platform_ticks_per_second() {
  const long ticks = sysconf(_SC_CLK_TCK);
  return ticks > 0 ? ticks : 100;  // the usual Linux value; never divide by zero
}

int cm_platform_getpid() { return static_cast<int>(getpid()); }

void cm_platform_futex_wait(void* word, unsigned int expected, long long relativeNs) {
  timespec timeout;
  timespec* limit = nullptr;
  if (relativeNs >= 0) {
    timeout.tv_sec = static_cast<time_t>(relativeNs / 1000000000);
    timeout.tv_nsec = static_cast<long>(relativeNs % 1000000000);
    limit = &timeout;
  }
  syscall(SYS_futex, static_cast<int*>(word), FUTEX_WAIT_PRIVATE, expected, limit, nullptr, 0);
}

void cm_platform_futex_wake_one(void* word) {
  syscall(SYS_futex, static_cast<int*>(word), FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

void cm_platform_yield() { sched_yield(); }

void cm_platform_sleep_ms(unsigned int ms) {
  timespec ts = {static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000) * 1000000};
  while (nanosleep(&ts, &ts) != 0) {  // a signal cuts it short: sleep what is left
  }
}
