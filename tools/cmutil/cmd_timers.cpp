// Timers in the cmutil program: observed periods of timers on every queue type (ordered
// list, min-heap and wheel on task threads, the calendar, and the on-demand queue of a
// heartbeat thread driven by a host loop), and a handle cancelled from a foreign thread.

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <thread>
#include <vector>

#include "CmCommand.h"
#include "cmutil/thread/CmEventQueueBase.h"
#include "cmutil/thread/CmThread.h"
#include "cmutil/thread/CmThreadHeartBeat.h"
#include "cmutil/thread/CmThreadSingletonFactory.h"
#include "cmutil/timer/CmTimerQueueCalendar.h"
#include "cmutil/timer/CmTimerWrapperID.h"
#include "cmutil/timerqueue/CmTimerQueueBase.h"

namespace {

typedef std::chrono::steady_clock Clock;

const char* QueueName(unsigned int type) {
  switch (type) {
    case 1:
      return "ordered list";
    case 2:
      return "min-heap";
    case 3:
      return "wheel";
    default:
      return "?";
  }
}

/// Records the instants of its callbacks and signals after the expected number.
class PeriodSink : public CCmTimerWrapperIDSink {
 public:
  explicit PeriodSink(size_t expected) : m_expected(expected) {}

  void OnTimer(CCmTimerWrapperID*) override {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_times.push_back(Clock::now());
  }

  bool WaitDone(int timeoutMs) {
    const auto end = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (Clock::now() < end) {
      if (Count() >= m_expected) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return Count() >= m_expected;
  }

  size_t Count() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_times.size();
  }

  /// Mean, min and max period in milliseconds.
  void Periods(double& mean, double& lo, double& hi) {
    std::lock_guard<std::mutex> lock(m_mutex);
    mean = lo = hi = 0;
    if (m_times.size() < 2) return;
    lo = 1e9;
    for (size_t i = 1; i < m_times.size(); ++i) {
      const double ms = std::chrono::duration<double, std::milli>(m_times[i] - m_times[i - 1]).count();
      mean += ms;
      lo = ms < lo ? ms : lo;
      hi = ms > hi ? ms : hi;
    }
    mean /= static_cast<double>(m_times.size() - 1);
  }

 private:
  std::mutex m_mutex;
  std::vector<Clock::time_point> m_times;
  size_t m_expected;
};

/// Stops, joins and destroys a task thread.
void EndThread(ACmThread* thread) {
  if (!thread) return;
  thread->Stop(nullptr);
  thread->Join();
  thread->Destory(0);
}

/// Runs `count` firings of an `intervalMs` timer on a task thread whose timer queue is of
/// `type`, and prints the observed periods. Returns 0 on success.
int RunPeriods(unsigned int type, unsigned int intervalMs, unsigned int count) {
  cm_set_default_timer_type(type);
  ACmThread* thread = nullptr;
  CmResult rv = CreateUserTaskThread("t-demo-timer", thread, TF_JOINABLE, true, TT_UNKNOWN);
  cm_set_default_timer_type(1);
  if (rv != CM_OK) {
    std::fprintf(stderr, "cannot create a task thread: 0x%08x\n", static_cast<unsigned>(rv));
    return 1;
  }
  PeriodSink sink(count);
  int result = 0;
  {
    CCmTimerWrapperID timer;
    rv = timer.ScheduleInThread(thread, &sink, CCmTimeValue(0L, static_cast<long>(intervalMs) * 1000L), count);
    if (rv != CM_OK || !sink.WaitDone(static_cast<int>(intervalMs * count) + 2000)) {
      std::fprintf(stderr, "%s: timer did not complete (rv=0x%08x, %zu firings)\n", QueueName(type),
                   static_cast<unsigned>(rv), sink.Count());
      result = 1;
    }
  }
  double mean, lo, hi;
  sink.Periods(mean, lo, hi);
  std::printf("  %-13s %2zu firings every %u ms: observed period mean %.2f ms (min %.2f, max %.2f)\n", QueueName(type),
              sink.Count(), intervalMs, mean, lo, hi);
  EndThread(thread);
  return result;
}

/// A calendar queue ticked every 10 ms by a timer of its task thread.
class CalendarDriver : public CCmTimerWrapperIDSink, public ICmTimerHandler {
 public:
  CCmTimerQueueCalendar* calendar = nullptr;
  CCmTimerWrapperID ticker;
  std::mutex mutex;
  std::vector<Clock::time_point> times;

  void OnTimer(CCmTimerWrapperID*) override { calendar->TimerTick(); }
  void OnTimeout(const CCmTimeValue&, void*) override {
    std::lock_guard<std::mutex> lock(mutex);
    times.push_back(Clock::now());
  }
};

int RunCalendar() {
  ACmThread* thread = nullptr;
  if (CreateUserTaskThread("t-demo-cal", thread, TF_JOINABLE, true, TT_UNKNOWN) != CM_OK) return 1;
  CalendarDriver driver;
  ICmEventQueue* events = thread->GetEventQueue();
  // Everything calendar-related runs on the owning thread.
  events->SendEvent(CmNewInvokeEvent([&] {
    driver.calendar = new CCmTimerQueueCalendar(10, 1000, nullptr);
    driver.calendar->ScheduleTimer(&driver, nullptr, CCmTimeValue(0L, 30000L), 8);
    driver.ticker.Schedule(&driver, CCmTimeValue(0L, 10000L), 0);
  }));
  const auto end = Clock::now() + std::chrono::milliseconds(2000);
  for (;;) {
    {
      std::lock_guard<std::mutex> lock(driver.mutex);
      if (driver.times.size() >= 8 || Clock::now() > end) break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  events->SendEvent(CmNewInvokeEvent([&] {
    driver.ticker.Cancel();
    delete driver.calendar;
    driver.calendar = nullptr;
  }));
  double mean = 0;
  size_t n = 0;
  {
    std::lock_guard<std::mutex> lock(driver.mutex);
    n = driver.times.size();
    if (n >= 2)
      mean = std::chrono::duration<double, std::milli>(driver.times.back() - driver.times.front()).count() /
             static_cast<double>(n - 1);
  }
  std::printf("  %-13s %2zu firings every 30 ms (3 ticks of 10 ms): observed period mean %.2f ms\n", "calendar", n,
              mean);
  EndThread(thread);
  return n >= 8 ? 0 : 1;
}

/// The delay the heartbeat thread last asked its host for; kNoRequest when none.
constexpr unsigned int kNoRequest = 0xFFFFFFFFu;
std::atomic<unsigned int> g_heartBeatDelay{kNoRequest};

void AskHost(unsigned int aDelayMs) { g_heartBeatDelay.store(aDelayMs); }

/// A host run loop on a thread of its own drives a heartbeat thread: it sleeps for the
/// delay the heartbeat asked for, then beats. The timer goes to the heartbeat's
/// on-demand queue, whose notice makes the heartbeat ask for an early call.
int RunHeartBeat() {
  PeriodSink sink(10);
  unsigned int minDelay = kNoRequest, maxDelay = 0, beats = 0;
  CmResult scheduled = CM_ERROR_FAILURE;
  std::thread host([&] {
    CCmThreadHeartBeat* hb = new CCmThreadHeartBeat;
    if (hb->Create("t-demo-hb", TT_CURRENT, TF_JOINABLE, true) != CM_OK) {
      delete hb;
      return;
    }
    hb->OnThreadInit();
    hb->SetScheduler(&AskHost);
    {
      CCmTimerWrapperID timer;
      scheduled = timer.Schedule(&sink, CCmTimeValue(0L, 20000L), 10);
      const auto end = Clock::now() + std::chrono::milliseconds(3000);
      while (scheduled == CM_OK && sink.Count() < 10 && Clock::now() < end) {
        unsigned int delay = g_heartBeatDelay.exchange(kNoRequest);
        if (delay == kNoRequest) delay = 200;
        minDelay = delay < minDelay ? delay : minDelay;
        maxDelay = delay > maxDelay ? delay : maxDelay;
        std::this_thread::sleep_for(std::chrono::milliseconds(delay));
        hb->DoHeartBeat();
        ++beats;
      }
    }
    hb->Stop(nullptr);
    hb->Destory(0);
  });
  host.join();
  double mean, lo, hi;
  sink.Periods(mean, lo, hi);
  std::printf(
      "  %-13s %2zu firings every 20 ms on a heartbeat thread: observed period mean %.2f ms (min %.2f, max %.2f);"
      " %u beats, delays asked %u..%u ms\n",
      "on-demand", sink.Count(), mean, lo, hi, beats, minDelay == kNoRequest ? 0 : minDelay, maxDelay);
  return (scheduled == CM_OK && sink.Count() >= 10) ? 0 : 1;
}

int RunForeignCancel() {
  ACmThread* thread = nullptr;
  if (CreateUserTaskThread("t-demo-cancel", thread, TF_JOINABLE, true, TT_UNKNOWN) != CM_OK) return 1;
  PeriodSink sink(5);
  CCmTimerWrapperID timer;
  timer.ScheduleInThread(thread, &sink, CCmTimeValue(0L, 5000L), 0);
  sink.WaitDone(2000);
  const CmResult rv = timer.Cancel();  // from this (foreign) thread
  const size_t atCancel = sink.Count();
  thread->GetEventQueue()->SendEvent(CmNewInvokeEvent([] {}));  // the cancelling event has run
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  const size_t later = sink.Count();
  std::printf("  foreign cancel of a 5 ms timer after %zu firings: rv=0x%08x, firings 50 ms later: %zu\n", atCancel,
              static_cast<unsigned>(rv), later);
  EndThread(thread);
  return (rv == CM_ERROR_NULL_POINTER && later == atCancel) ? 0 : 1;
}

int TimersDemo() {
  int rv = 0;
  for (unsigned int type = 1; type <= 3; ++type) rv |= RunPeriods(type, 20, 10);
  rv |= RunCalendar();
  rv |= RunHeartBeat();
  rv |= RunForeignCancel();
  return rv;
}

int TimerPeriodsCommand(int argc, char** argv) {
  if (argc < 2 || argc > 4) {
    std::fprintf(stderr, "usage: cmutil %s <queue type 1|2|3> [interval ms, default 20] [count, default 10]\n",
                 argv[0]);
    return 2;
  }
  const long type = std::strtol(argv[1], nullptr, 10);
  const long interval = argc > 2 ? std::strtol(argv[2], nullptr, 10) : 20;
  const long count = argc > 3 ? std::strtol(argv[3], nullptr, 10) : 10;
  if (type < 1 || type > 3 || interval < 1 || interval > 10000 || count < 2 || count > 1000) {
    std::fprintf(stderr, "usage: cmutil %s <queue type 1|2|3> [interval ms 1..10000] [count 2..1000]\n", argv[0]);
    return 2;
  }
  return RunPeriods(static_cast<unsigned int>(type), static_cast<unsigned int>(interval),
                    static_cast<unsigned int>(count));
}

}  // namespace

CMUTIL_REGISTER_DEMO(30, "timers: periods on every queue type and a heartbeat thread, foreign cancel", TimersDemo);
CMUTIL_REGISTER_COMMAND("timer-periods",
                        "timer-periods <type 1|2|3> [ms] [count]\n  observed periods of a timer on a task thread",
                        TimerPeriodsCommand);
