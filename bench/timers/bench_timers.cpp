// Timer queues beside Boost.Asio's timer queue (steady_timer-style timers on an
// io_context) and libuv timers: schedule, cancel and fire-due per operation for N timers
// with random intervals of 10 ms .. 30 s. Also the low tick clock beside clock_gettime.
//
// Every side gets the same intervals. Our queues run on a fake clock so that
// "fire" means "everything is due"; Asio timers are set 31 s in the past and libuv's loop
// time is moved back 31 s before scheduling, so theirs are all due at once as well.
//
// Fairness of the clock: our ScheduleTimer reads the wall clock for every timer (the
// expiry is now + interval), while the peers are given absolute expiries (Asio) or use
// the loop's cached time (libuv) and read no clock per timer. On the fake clock a read
// is an indirect call returning a stored value, cheaper than gettimeofday(). The
// *_RealClock cases run our schedule and cancel on the real wall clock, so that cost is
// shown as well; fire-due needs every timer due at once and so stays on the fake clock.
// The Cancel cases time the cancels only: the queue is filled once, outside the timing;
// each iteration cancels the next 1,000 timers of a shuffled order (so the cancelled
// timers are not the ones the last iteration just touched) and, untimed, schedules them
// again, so the queue stays at N timers without being rebuilt for every iteration.

#include <benchmark/benchmark.h>
#include <malloc.h>
#include <time.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <random>
#include <vector>

#include "base/CmClock.h"
#include "cmutil/timer/CmTimer.h"
#include "cmutil/timerqueue/CmTimerMinHeapQueue.h"
#include "cmutil/timerqueue/CmTimerQueueOrderedList.h"
#include "cmutil/timerqueue/CmTimerWheelQueue.h"

#if CMUTIL_HAVE_BOOST
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/wait_traits.hpp>
#endif
#if CMUTIL_HAVE_LIBUV
#include <uv.h>
#endif

namespace {

// glibc moves its mmap and trim thresholds as blocks are freed, so whether a freshly
// built queue faults in new pages depends on which case ran before it: the same
// 100,000-timer schedule measured 49 or 136 ns. Fixed thresholds keep freed memory in
// the heap for every side alike, so the cases measure the queues, not the history.
const bool g_allocatorPinned = [] {
  return mallopt(M_MMAP_THRESHOLD, 32 << 20) == 1 && mallopt(M_TRIM_THRESHOLD, 1 << 30) == 1;
}();

constexpr int kMaxCancels = 1000;

/// The same random intervals (milliseconds) and cancel order for every side.
struct Workload {
  std::vector<long> ms;
  std::vector<size_t> cancelOrder;  // a permutation of every timer

  /// The timers cancelled by iteration k: the k-th window of the cancel order.
  std::vector<size_t> CancelWindow(size_t k) const {
    const size_t count = std::min<size_t>(cancelOrder.size(), kMaxCancels);
    const size_t first = (k * count) % cancelOrder.size();
    std::vector<size_t> window(count);
    for (size_t i = 0; i < count; ++i) window[i] = cancelOrder[(first + i) % cancelOrder.size()];
    return window;
  }

  explicit Workload(size_t n) {
    std::mt19937_64 rng(42 + n);
    std::uniform_int_distribution<long> dist(10, 30000);
    ms.resize(n);
    for (auto& v : ms) v = dist(rng);
    cancelOrder.resize(n);
    for (size_t i = 0; i < n; ++i) cancelOrder[i] = i;
    std::shuffle(cancelOrder.begin(), cancelOrder.end(), rng);
  }
};

const Workload& GetWorkload(size_t n) {
  static std::unique_ptr<Workload> cache[3];
  const int idx = n <= 1000 ? 0 : (n <= 10000 ? 1 : 2);
  if (!cache[idx] || cache[idx]->ms.size() != n) cache[idx].reset(new Workload(n));
  return *cache[idx];
}

void ReportPerOp(benchmark::State& state, size_t opsPerIteration) {
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(opsPerIteration));
  state.counters["per_op"] =
      benchmark::Counter(static_cast<double>(opsPerIteration),
                         benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// ---- our queues, on a fake clock ----

CCmTimeValue g_fakeNow(1700000000L, 0L);
int64_t FakeNow() { return static_cast<int64_t>(g_fakeNow.GetSec()) * 1000000 + g_fakeNow.GetUsec(); }

struct ClockScope {
  ClockScope() {
    g_fakeNow = CCmTimeValue(1700000000L, 0L);
    cm_set_clock_for_test(&FakeNow);
  }
  ~ClockScope() { cm_set_clock_for_test(nullptr); }
};

struct CountingHandler : ICmTimerHandler {
  void OnTimeout(const CCmTimeValue&, void*) override { ++fired; }
  int64_t fired = 0;
};

CCmTimeValue MsValue(long ms) { return CCmTimeValue(ms / 1000, (ms % 1000) * 1000); }

template <class Q>
void FillQueue(Q& q, std::vector<CountingHandler>& handlers, const Workload& w) {
  for (size_t i = 0; i < w.ms.size(); ++i) q.ScheduleTimer(&handlers[i], nullptr, MsValue(w.ms[i]), 1);
}

// Schedule and cancel run either on the fake clock or on the real wall clock (no fake
// clock installed), so the cost of the clock reads shows on its own.
template <class Q>
void RunSchedule(benchmark::State& state, bool fakeClock) {
  const size_t n = static_cast<size_t>(state.range(0));
  const Workload& w = GetWorkload(n);
  std::optional<ClockScope> clock;
  if (fakeClock) clock.emplace();
  std::vector<CountingHandler> handlers(n);
  for (auto _ : state) {
    state.PauseTiming();
    std::unique_ptr<Q> q(new Q(nullptr));
    state.ResumeTiming();
    FillQueue(*q, handlers, w);
    state.PauseTiming();
    q.reset();
    for (auto& h : handlers) h.m_dwWheelSlot = 0xFFFFFFFFu;
    state.ResumeTiming();
  }
  ReportPerOp(state, n);
}

/// Runs a cancel case: `cancel(idx)` is timed for each timer of an iteration's window,
/// `reschedule(window)` puts them back untimed.
template <class Cancel, class Reschedule>
void CancelWindows(benchmark::State& state, const Workload& w, Cancel cancel, Reschedule reschedule) {
  size_t k = 0;
  size_t perIteration = 0;
  for (auto _ : state) {
    state.PauseTiming();
    const std::vector<size_t> window = w.CancelWindow(k++);
    perIteration = window.size();
    state.ResumeTiming();
    for (size_t idx : window) cancel(idx);
    state.PauseTiming();
    reschedule(window);
    state.ResumeTiming();
  }
  ReportPerOp(state, perIteration);
}

template <class Q>
void RunCancel(benchmark::State& state, bool fakeClock) {
  const size_t n = static_cast<size_t>(state.range(0));
  const Workload& w = GetWorkload(n);
  std::optional<ClockScope> clock;
  if (fakeClock) clock.emplace();
  std::vector<CountingHandler> handlers(n);
  std::unique_ptr<Q> q(new Q(nullptr));
  FillQueue(*q, handlers, w);
  CancelWindows(
      state, w, [&](size_t idx) { benchmark::DoNotOptimize(q->CancelTimer(&handlers[idx])); },
      [&](const std::vector<size_t>& window) {
        for (size_t idx : window) q->ScheduleTimer(&handlers[idx], nullptr, MsValue(w.ms[idx]), 1);
      });
}

template <class Q>
void BM_Ours_Schedule(benchmark::State& state) {
  RunSchedule<Q>(state, true);
}

template <class Q>
void BM_Ours_Cancel(benchmark::State& state) {
  RunCancel<Q>(state, true);
}

template <class Q>
void BM_Ours_Schedule_RealClock(benchmark::State& state) {
  RunSchedule<Q>(state, false);
}

template <class Q>
void BM_Ours_Cancel_RealClock(benchmark::State& state) {
  RunCancel<Q>(state, false);
}

template <class Q>
void BM_Ours_FireDue(benchmark::State& state) {
  const size_t n = static_cast<size_t>(state.range(0));
  const Workload& w = GetWorkload(n);
  ClockScope clock;
  std::vector<CountingHandler> handlers(n);
  bool allFired = true;
  for (auto _ : state) {
    state.PauseTiming();
    g_fakeNow = CCmTimeValue(1700000000L, 0L);
    std::unique_ptr<Q> q(new Q(nullptr));
    FillQueue(*q, handlers, w);
    g_fakeNow += CCmTimeValue(31L, 0L);
    state.ResumeTiming();
    const int fired = q->CheckExpire(nullptr, nullptr);
    state.PauseTiming();
    if (static_cast<size_t>(fired) != n) allFired = false;
    q.reset();
    state.ResumeTiming();
  }
  if (!allFired) state.SkipWithError("not every timer fired");
  ReportPerOp(state, n);
}

// EXTRA bounds a queue's cases: the ordered list refills 10,000 timers (linear inserts,
// about 0.15 s) outside the timing of every cancel and fire-due iteration, so those
// iterations are capped to keep the whole suite within minutes.
#define CMUTIL_OUR_QUEUE_BENCHES(Q, MAXN, EXTRA)                                                                       \
  BENCHMARK_TEMPLATE(BM_Ours_Schedule, Q)                                                                              \
      ->RangeMultiplier(10)                                                                                            \
      ->Range(1000, MAXN)                                                                                              \
      ->Unit(benchmark::kMicrosecond) EXTRA;                                                                           \
  BENCHMARK_TEMPLATE(BM_Ours_Cancel, Q)->RangeMultiplier(10)->Range(1000, MAXN)->Unit(benchmark::kMicrosecond) EXTRA;  \
  BENCHMARK_TEMPLATE(BM_Ours_FireDue, Q)->RangeMultiplier(10)->Range(1000, MAXN)->Unit(benchmark::kMicrosecond) EXTRA; \
  BENCHMARK_TEMPLATE(BM_Ours_Schedule_RealClock, Q)                                                                    \
      ->RangeMultiplier(10)                                                                                            \
      ->Range(1000, MAXN)                                                                                              \
      ->Unit(benchmark::kMicrosecond) EXTRA;                                                                           \
  BENCHMARK_TEMPLATE(BM_Ours_Cancel_RealClock, Q)                                                                      \
      ->RangeMultiplier(10)                                                                                            \
      ->Range(1000, MAXN)                                                                                              \
      ->Unit(benchmark::kMicrosecond) EXTRA

#define CMUTIL_UNBOUNDED
CMUTIL_OUR_QUEUE_BENCHES(CCmTimerMinHeapQueue, 100000, CMUTIL_UNBOUNDED);
CMUTIL_OUR_QUEUE_BENCHES(CCmTimerWheelQueue, 100000, CMUTIL_UNBOUNDED);
CMUTIL_OUR_QUEUE_BENCHES(CCmTimerQueueOrderedList, 10000, ->Iterations(4));
// How the wheel's cancel scales: 1,000 to 1,000,000 timers.
BENCHMARK_TEMPLATE(BM_Ours_Cancel, CCmTimerWheelQueue)->Arg(1000000)->Unit(benchmark::kMicrosecond)->Iterations(20);

#if CMUTIL_HAVE_BOOST
// ---- Boost.Asio: waitable timers on an io_context, over a settable clock ----

typedef boost::asio::steady_timer AsioTimer;

struct AsioSide {
  boost::asio::io_context io;
  std::vector<std::unique_ptr<AsioTimer>> timers;
  int64_t fired = 0;

  explicit AsioSide(size_t n) {
    timers.reserve(n);
    for (size_t i = 0; i < n; ++i) timers.emplace_back(new AsioTimer(io));
  }
  /// With `past`, every expiry lies 31 s before now, so all timers are due at once.
  void Fill(const Workload& w, bool past = false) {
    const auto base = std::chrono::steady_clock::now() - (past ? std::chrono::seconds(31) : std::chrono::seconds(0));
    for (size_t i = 0; i < w.ms.size(); ++i) ArmAt(i, base + std::chrono::milliseconds(w.ms[i]));
  }
  void Arm(size_t i, long ms) { ArmAt(i, std::chrono::steady_clock::now() + std::chrono::milliseconds(ms)); }
  void ArmAt(size_t i, std::chrono::steady_clock::time_point at) {
    timers[i]->expires_at(at);
    timers[i]->async_wait([this](const boost::system::error_code& ec) {
      if (!ec) ++fired;
    });
  }
};

void BM_Asio_Schedule(benchmark::State& state) {
  const size_t n = static_cast<size_t>(state.range(0));
  const Workload& w = GetWorkload(n);
  for (auto _ : state) {
    state.PauseTiming();
    std::unique_ptr<AsioSide> side(new AsioSide(n));
    state.ResumeTiming();
    side->Fill(w);
    state.PauseTiming();
    side.reset();
    state.ResumeTiming();
  }
  ReportPerOp(state, n);
}

void BM_Asio_Cancel(benchmark::State& state) {
  const size_t n = static_cast<size_t>(state.range(0));
  const Workload& w = GetWorkload(n);
  AsioSide side(n);
  side.Fill(w);
  CancelWindows(
      state, w, [&](size_t idx) { benchmark::DoNotOptimize(side.timers[idx]->cancel()); },
      [&](const std::vector<size_t>& window) {
        side.io.poll();  // runs the cancelled waits' completions
        side.io.restart();
        for (size_t idx : window) side.Arm(idx, w.ms[idx]);
      });
}

void BM_Asio_FireDue(benchmark::State& state) {
  const size_t n = static_cast<size_t>(state.range(0));
  const Workload& w = GetWorkload(n);
  bool allFired = true;
  for (auto _ : state) {
    state.PauseTiming();
    std::unique_ptr<AsioSide> side(new AsioSide(n));
    side->Fill(w, true);
    state.ResumeTiming();
    // Every timer is due: run() returns once all of them have run.
    side->io.run();
    state.PauseTiming();
    if (static_cast<size_t>(side->fired) != n) allFired = false;
    side.reset();
    state.ResumeTiming();
  }
  if (!allFired) state.SkipWithError("not every timer fired");
  ReportPerOp(state, n);
}

BENCHMARK(BM_Asio_Schedule)->RangeMultiplier(10)->Range(1000, 100000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Asio_Cancel)->RangeMultiplier(10)->Range(1000, 100000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Asio_FireDue)->RangeMultiplier(10)->Range(1000, 100000)->Unit(benchmark::kMicrosecond);
#endif  // CMUTIL_HAVE_BOOST

#if CMUTIL_HAVE_LIBUV
// ---- libuv: uv_timer_t on a loop ----

struct UvSide {
  uv_loop_t loop;
  std::vector<uv_timer_t> timers;
  int64_t fired = 0;

  explicit UvSide(size_t n) : timers(n) {
    uv_loop_init(&loop);
    for (auto& t : timers) {
      uv_timer_init(&loop, &t);
      t.data = this;
    }
  }
  ~UvSide() {
    for (auto& t : timers) uv_close(reinterpret_cast<uv_handle_t*>(&t), nullptr);
    uv_run(&loop, UV_RUN_DEFAULT);
    uv_loop_close(&loop);
  }
  static void OnTimer(uv_timer_t* t) { ++static_cast<UvSide*>(t->data)->fired; }
  void Fill(const Workload& w) {
    for (size_t i = 0; i < w.ms.size(); ++i) Arm(i, w.ms[i]);
  }
  void Arm(size_t i, long ms) { uv_timer_start(&timers[i], &UvSide::OnTimer, static_cast<uint64_t>(ms), 0); }
};

void BM_Uv_Schedule(benchmark::State& state) {
  const size_t n = static_cast<size_t>(state.range(0));
  const Workload& w = GetWorkload(n);
  for (auto _ : state) {
    state.PauseTiming();
    std::unique_ptr<UvSide> side(new UvSide(n));
    state.ResumeTiming();
    side->Fill(w);
    state.PauseTiming();
    side.reset();
    state.ResumeTiming();
  }
  ReportPerOp(state, n);
}

void BM_Uv_Cancel(benchmark::State& state) {
  const size_t n = static_cast<size_t>(state.range(0));
  const Workload& w = GetWorkload(n);
  UvSide side(n);
  side.Fill(w);
  CancelWindows(
      state, w, [&](size_t idx) { benchmark::DoNotOptimize(uv_timer_stop(&side.timers[idx])); },
      [&](const std::vector<size_t>& window) {
        for (size_t idx : window) side.Arm(idx, w.ms[idx]);
      });
}

void BM_Uv_FireDue(benchmark::State& state) {
  const size_t n = static_cast<size_t>(state.range(0));
  const Workload& w = GetWorkload(n);
  bool allFired = true;
  for (auto _ : state) {
    state.PauseTiming();
    std::unique_ptr<UvSide> side(new UvSide(n));
    uv_update_time(&side->loop);
    side->loop.time -= 31000;  // every timer is due at the next run
    side->Fill(w);
    state.ResumeTiming();
    uv_run(&side->loop, UV_RUN_NOWAIT);
    state.PauseTiming();
    if (static_cast<size_t>(side->fired) != n) allFired = false;
    side.reset();
    state.ResumeTiming();
  }
  if (!allFired) state.SkipWithError("not every timer fired");
  ReportPerOp(state, n);
}

BENCHMARK(BM_Uv_Schedule)->RangeMultiplier(10)->Range(1000, 100000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Uv_Cancel)->RangeMultiplier(10)->Range(1000, 100000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Uv_FireDue)->RangeMultiplier(10)->Range(1000, 100000)->Unit(benchmark::kMicrosecond);
#endif  // CMUTIL_HAVE_LIBUV

// ---- the low tick: one load instead of a clock call ----

void BM_LowTickPolicyNow(benchmark::State& state) {
  startLowTick();
  for (auto _ : state) benchmark::DoNotOptimize(low_tick_policy::now());
  stopLowTick();
}
BENCHMARK(BM_LowTickPolicyNow);

void BM_ClockGettimeMonotonic(benchmark::State& state) {
  struct timespec ts;
  for (auto _ : state) {
    clock_gettime(CLOCK_MONOTONIC, &ts);
    benchmark::DoNotOptimize(ts);
  }
}
BENCHMARK(BM_ClockGettimeMonotonic);

// The machine's floor under every queue operation that visits random timers: one
// dependent load from a random 64-byte line of a working set as large as N wheel nodes
// (64 bytes each), 1,000 to 1,000,000. A cancel visits at least the handler and its
// node, so it cannot stay flat once these loads leave the caches.
void BM_RandomLineLoad(benchmark::State& state) {
  const size_t lines = static_cast<size_t>(state.range(0));
  struct alignas(64) Line {
    size_t next;
  };
  std::vector<Line> ring(lines);
  std::vector<size_t> order(lines);
  for (size_t i = 0; i < lines; ++i) order[i] = i;
  std::shuffle(order.begin() + 1, order.end(), std::mt19937_64(7));
  for (size_t i = 0; i < lines; ++i) ring[order[i]].next = order[(i + 1) % lines];
  size_t at = 0;
  for (auto _ : state) {
    for (int i = 0; i < 1000; ++i) at = ring[at].next;
    benchmark::DoNotOptimize(at);
  }
  ReportPerOp(state, 1000);
}
BENCHMARK(BM_RandomLineLoad)->RangeMultiplier(10)->Range(1000, 1000000);

void BM_TickPolicyNow(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(tick_policy::now());
}
BENCHMARK(BM_TickPolicyNow);

}  // namespace
