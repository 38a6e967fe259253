// Threads demo: two task threads bounce events between them while a repeating timer
// runs on one of them; prints the event rate and the timer's observed period.

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <vector>

#include "CmCommand.h"
#include "cmutil/thread/CmThreadSingletonFactory.h"
#include "cmutil/thread/CmThreadTask.h"
#include "cmutil/thread/CmThreadWaiter.h"
#include "cmutil/timerqueue/CmTimerQueueBase.h"

namespace {

struct PingPong {
  ACmThread* a = nullptr;
  ACmThread* b = nullptr;
  std::atomic<bool> running{true};
  std::atomic<long> events{0};

  // One token: runs on one thread, then hands itself to the other.
  void Bounce(bool onA) {
    events.fetch_add(1, std::memory_order_relaxed);
    if (!running.load(std::memory_order_relaxed)) return;
    ACmThread* next = onA ? b : a;
    next->GetEventQueue()->PostEvent(CmNewInvokeEvent([this, onA] { Bounce(!onA); }));
  }
};

class PeriodProbe : public ICmTimerHandler {
 public:
  void OnTimeout(const CCmTimeValue&, void*) override {
    auto now = std::chrono::steady_clock::now();
    if (m_fired > 0) m_totalUs += std::chrono::duration_cast<std::chrono::microseconds>(now - m_last).count();
    m_last = now;
    ++m_fired;
  }
  int Fired() const { return m_fired; }
  double MeanPeriodMs() const { return m_fired > 1 ? m_totalUs / 1000.0 / (m_fired - 1) : 0.0; }

 private:
  std::chrono::steady_clock::time_point m_last;
  long long m_totalUs = 0;
  int m_fired = 0;
};

// Ends the threads of the demo: both are stopped before either is joined, and both
// are joined before either is destroyed, since a token running on one may still post to
// the other (a stopped queue refuses it; a destroyed one would be a dangling pointer).
void StopJoinDestory(std::initializer_list<ACmThread*> threads) {
  for (ACmThread* t : threads) t->Stop(nullptr);
  for (ACmThread* t : threads) t->Join();
  for (ACmThread* t : threads) t->Destory(0);
}

int RunThreads(double seconds, long timerMs, int tokens) {
  PingPong pp;
  if (CreateUserTaskThread("demo-a", pp.a, TF_JOINABLE, true, 101) != CM_OK) {
    std::fprintf(stderr, "threads: cannot create task threads\n");
    return 1;
  }
  if (CreateUserTaskThread("demo-b", pp.b, TF_JOINABLE, true, 102) != CM_OK) {
    std::fprintf(stderr, "threads: cannot create task threads\n");
    StopJoinDestory({pp.a});
    return 1;
  }
  PeriodProbe probe;
  CCmTimeValue interval(timerMs / 1000, (timerMs % 1000) * 1000);
  pp.a->GetEventQueue()->SendEvent(
      CmNewInvokeEvent([&] { pp.a->GetTimerQueue()->ScheduleTimer(&probe, nullptr, interval, 0); }));

  auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < tokens; ++i) pp.a->GetEventQueue()->PostEvent(CmNewInvokeEvent([&pp] { pp.Bounce(true); }));
  while (std::chrono::steady_clock::now() - start < std::chrono::duration<double>(seconds)) {
    ThreadWaiter tick(1);
    tick.WaitUntilTimeout(20);
  }
  pp.running = false;
  long events = pp.events.load();
  double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();

  pp.a->GetEventQueue()->SendEvent(CmNewInvokeEvent([&] { pp.a->GetTimerQueue()->CancelTimer(&probe); }));
  StopJoinDestory({pp.a, pp.b});
  std::printf("  two task threads, %d events in flight: %ld events in %.2f s = %.0f events/s\n", tokens, events,
              elapsed, events / elapsed);
  std::printf("  repeating timer of %ld ms on demo-a: fired %d times, observed period %.2f ms\n", timerMs,
              probe.Fired(), probe.MeanPeriodMs());
  return 0;
}

int DemoThreads() { return RunThreads(1.0, 100, 64); }

int CmdThreads(int argc, char** argv) {
  double seconds = 1.0;
  long timerMs = 100;
  int tokens = 64;
  if (argc > 4) {
    std::fprintf(stderr, "usage: cmutil %s [seconds] [timer-ms] [in-flight]\n", argv[0]);
    return 2;
  }
  char* end = nullptr;
  if (argc > 1) {
    seconds = std::strtod(argv[1], &end);
    if (*end || seconds <= 0 || seconds > 3600) {
      std::fprintf(stderr, "usage: cmutil %s [seconds] [timer-ms] [in-flight]\n", argv[0]);
      return 2;
    }
  }
  if (argc > 2) {
    timerMs = std::strtol(argv[2], &end, 10);
    if (*end || timerMs <= 0) {
      std::fprintf(stderr, "usage: cmutil %s [seconds] [timer-ms] [in-flight]\n", argv[0]);
      return 2;
    }
  }
  if (argc > 3) {
    tokens = static_cast<int>(std::strtol(argv[3], &end, 10));
    if (*end || tokens <= 0 || tokens > 100000) {
      std::fprintf(stderr, "usage: cmutil %s [seconds] [timer-ms] [in-flight]\n", argv[0]);
      return 2;
    }
  }
  return RunThreads(seconds, timerMs, tokens);
}

}  // namespace

CMUTIL_REGISTER_COMMAND("threads",
                        "threads [seconds] [timer-ms] [in-flight]\n  two task threads exchanging events, with a timer",
                        CmdThreads);
CMUTIL_REGISTER_DEMO(20, "threads", DemoThreads);
