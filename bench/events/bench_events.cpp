// Event loops and the ordered-list timer queue beside their peers.
//
// Post1M: one producer posts 1,000,000 small callables to one loop thread and waits
// until the last one ran (items/s = events/s). SendRoundTrip: post one callable and wait
// for its result. OrderedList*: per-operation cost of the ordered-list timer queue at 100
// and 1,000 timers against a std::multimap keyed by expiry.

#include <benchmark/benchmark.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <thread>
#include <unordered_map>
#include <vector>

#include "base/CmClock.h"
#include "cmutil/thread/CmThreadTask.h"
#include "cmutil/thread/CmThreadWaiter.h"
#include "cmutil/timerqueue/CmTimerQueueOrderedList.h"

#if CMUTIL_HAVE_BOOST
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#endif
#if CMUTIL_HAVE_LIBUV
#include <uv.h>
#endif

namespace {

const int kEvents = 1000000;

// ---------------------------------------------------------------- cmutil task thread

struct CmLoop {
  CmLoop() {
    task = new CCmThreadTask;
    task->Create("bench-loop", 1, TF_JOINABLE, false);
  }
  ~CmLoop() {
    task->Stop(nullptr);
    task->Join();
    task->Destory(0);
  }
  CCmThreadTask* task;
};

void BM_Post1M_CmThreadTask(benchmark::State& state) {
  CmLoop loop;
  ICmEventQueue* queue = loop.task->GetEventQueue();
  for (auto _ : state) {
    ThreadWaiter done(1);
    long counter = 0;
    for (int i = 0; i < kEvents - 1; ++i) queue->PostEvent(CmNewInvokeEvent([&counter] { ++counter; }));
    queue->PostEvent(CmNewInvokeEvent([&] {
      ++counter;
      done.Finished();
    }));
    done.WaitUntilFinished();
    benchmark::DoNotOptimize(counter);
  }
  state.SetItemsProcessed(state.iterations() * kEvents);
}
BENCHMARK(BM_Post1M_CmThreadTask)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);

void BM_SendRoundTrip_CmThreadTask(benchmark::State& state) {
  CmLoop loop;
  ICmEventQueue* queue = loop.task->GetEventQueue();
  long counter = 0;
  for (auto _ : state) {
    CmResult rv = queue->SendEvent(CmNewInvokeEvent([&counter] { ++counter; }));
    benchmark::DoNotOptimize(rv);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_SendRoundTrip_CmThreadTask)->UseRealTime();

// ---------------------------------------------------------------- plain std loop

class StdLoop {
 public:
  StdLoop() : m_thread([this] { Run(); }) {}
  ~StdLoop() {
    Post(nullptr);
    m_thread.join();
  }
  void Post(std::function<void()> f) {
    {
      std::lock_guard<std::mutex> lock(m_mutex);
      m_queue.push_back(std::move(f));
    }
    m_cond.notify_one();
  }

 private:
  void Run() {
    std::deque<std::function<void()>> batch;
    for (;;) {
      {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_cond.wait(lock, [this] { return !m_queue.empty(); });
        batch.swap(m_queue);
      }
      for (auto& f : batch) {
        if (!f) return;
        f();
      }
      batch.clear();
    }
  }
  std::mutex m_mutex;
  std::condition_variable m_cond;
  std::deque<std::function<void()>> m_queue;
  std::thread m_thread;
};

void BM_Post1M_StdMutexCondvarLoop(benchmark::State& state) {
  StdLoop loop;
  for (auto _ : state) {
    ThreadWaiter done(1);
    long counter = 0;
    for (int i = 0; i < kEvents - 1; ++i) loop.Post([&counter] { ++counter; });
    loop.Post([&] {
      ++counter;
      done.Finished();
    });
    done.WaitUntilFinished();
    benchmark::DoNotOptimize(counter);
  }
  state.SetItemsProcessed(state.iterations() * kEvents);
}
BENCHMARK(BM_Post1M_StdMutexCondvarLoop)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);

// ---------------------------------------------------------------- Boost.Asio

#if CMUTIL_HAVE_BOOST
struct AsioLoop {
  AsioLoop() : guard(boost::asio::make_work_guard(ctx)), thread([this] { ctx.run(); }) {}
  ~AsioLoop() {
    guard.reset();
    thread.join();
  }
  boost::asio::io_context ctx{1};
  boost::asio::executor_work_guard<boost::asio::io_context::executor_type> guard;
  std::thread thread;
};

void BM_Post1M_AsioIoContext(benchmark::State& state) {
  AsioLoop loop;
  for (auto _ : state) {
    ThreadWaiter done(1);
    long counter = 0;
    for (int i = 0; i < kEvents - 1; ++i) boost::asio::post(loop.ctx, [&counter] { ++counter; });
    boost::asio::post(loop.ctx, [&] {
      ++counter;
      done.Finished();
    });
    done.WaitUntilFinished();
    benchmark::DoNotOptimize(counter);
  }
  state.SetItemsProcessed(state.iterations() * kEvents);
}
BENCHMARK(BM_Post1M_AsioIoContext)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);

void BM_SendRoundTrip_AsioPromise(benchmark::State& state) {
  AsioLoop loop;
  long counter = 0;
  for (auto _ : state) {
    std::promise<int> promise;
    std::future<int> result = promise.get_future();
    boost::asio::post(loop.ctx, [&] {
      ++counter;
      promise.set_value(0);
    });
    benchmark::DoNotOptimize(result.get());
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_SendRoundTrip_AsioPromise)->UseRealTime();
#endif

// ---------------------------------------------------------------- libuv

#if CMUTIL_HAVE_LIBUV
class UvLoop {
 public:
  UvLoop() {
    uv_loop_init(&m_loop);
    uv_async_init(&m_loop, &m_async, &UvLoop::OnAsync);
    m_async.data = this;
    m_thread = std::thread([this] { uv_run(&m_loop, UV_RUN_DEFAULT); });
  }
  ~UvLoop() {
    Post(nullptr);
    m_thread.join();
    uv_loop_close(&m_loop);
  }
  void Post(std::function<void()> f) {
    {
      std::lock_guard<std::mutex> lock(m_mutex);
      m_queue.push_back(std::move(f));
    }
    uv_async_send(&m_async);
  }

 private:
  static void OnAsync(uv_async_t* handle) {
    UvLoop* self = static_cast<UvLoop*>(handle->data);
    std::deque<std::function<void()>> batch;
    {
      std::lock_guard<std::mutex> lock(self->m_mutex);
      batch.swap(self->m_queue);
    }
    for (auto& f : batch) {
      if (!f) {
        uv_close(reinterpret_cast<uv_handle_t*>(&self->m_async), nullptr);
        return;
      }
      f();
    }
  }
  uv_loop_t m_loop;
  uv_async_t m_async;
  std::mutex m_mutex;
  std::deque<std::function<void()>> m_queue;
  std::thread m_thread;
};

void BM_Post1M_LibuvAsync(benchmark::State& state) {
  UvLoop loop;
  for (auto _ : state) {
    ThreadWaiter done(1);
    long counter = 0;
    for (int i = 0; i < kEvents - 1; ++i) loop.Post([&counter] { ++counter; });
    loop.Post([&] {
      ++counter;
      done.Finished();
    });
    done.WaitUntilFinished();
    benchmark::DoNotOptimize(counter);
  }
  state.SetItemsProcessed(state.iterations() * kEvents);
}
BENCHMARK(BM_Post1M_LibuvAsync)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);
#endif

// ---------------------------------------------------------------- timer queues

// A fake clock so that firing is measured without waiting.
CCmTimeValue g_benchNow(1700000000L, 0L);
int64_t BenchClock() { return static_cast<int64_t>(g_benchNow.GetSec()) * 1000000 + g_benchNow.GetUsec(); }

class NullHandler : public ICmTimerHandler {
 public:
  void OnTimeout(const CCmTimeValue&, void*) override { ++fired; }
  long fired = 0;
};

struct ClockScope {
  ClockScope() {
    g_benchNow = CCmTimeValue(1700000000L, 0L);
    cm_set_clock_for_test(&BenchClock);
  }
  ~ClockScope() { cm_set_clock_for_test(nullptr); }
};

// Intervals 1..n ms apart so that one timer is due per millisecond step.
CCmTimeValue IntervalOf(int i) { return CCmTimeValue(0L, static_cast<long>(1000 * (i + 1))); }

void BM_OrderedList_ScheduleReplace(benchmark::State& state) {
  ClockScope clock;
  const int n = static_cast<int>(state.range(0));
  std::vector<NullHandler> handlers(n);
  CCmTimerQueueOrderedList queue(nullptr);
  for (int i = 0; i < n; ++i) queue.ScheduleTimer(&handlers[i], nullptr, IntervalOf(i), 0);
  std::mt19937 rng(7);
  for (auto _ : state) {
    int i = static_cast<int>(rng() % n);
    benchmark::DoNotOptimize(queue.ScheduleTimer(&handlers[i], nullptr, IntervalOf(static_cast<int>(rng() % n)), 0));
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_OrderedList_ScheduleReplace)->Arg(100)->Arg(1000);

void BM_OrderedList_CancelAndReschedule(benchmark::State& state) {
  ClockScope clock;
  const int n = static_cast<int>(state.range(0));
  std::vector<NullHandler> handlers(n);
  CCmTimerQueueOrderedList queue(nullptr);
  for (int i = 0; i < n; ++i) queue.ScheduleTimer(&handlers[i], nullptr, IntervalOf(i), 0);
  std::mt19937 rng(7);
  for (auto _ : state) {
    int i = static_cast<int>(rng() % n);
    queue.CancelTimer(&handlers[i]);
    queue.ScheduleTimer(&handlers[i], nullptr, IntervalOf(i), 0);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_OrderedList_CancelAndReschedule)->Arg(100)->Arg(1000);

void BM_OrderedList_FireDue(benchmark::State& state) {
  ClockScope clock;
  const int n = static_cast<int>(state.range(0));
  std::vector<NullHandler> handlers(n);
  CCmTimerQueueOrderedList queue(nullptr);
  // Every timer repeats with period n ms, phases 1 ms apart: one is due per 1 ms step.
  for (int i = 0; i < n; ++i) queue.ScheduleTimer(&handlers[i], nullptr, CCmTimeValue(0L, 1000L * n), 0);
  for (int i = 0; i < n; ++i) {
    queue.CancelTimer(&handlers[i]);
    queue.ScheduleTimer(&handlers[i], nullptr, CCmTimeValue(0L, 1000L * n), 0);
    g_benchNow += CCmTimeValue(0L, 1000L);
  }
  long fired = 0;
  for (auto _ : state) {
    g_benchNow += CCmTimeValue(0L, 1000L);
    fired += queue.CheckExpire();
  }
  state.SetItemsProcessed(fired);
}
BENCHMARK(BM_OrderedList_FireDue)->Arg(100)->Arg(1000);

// The naive baseline: expiry-keyed multimap plus a handler index for cancelling.
struct MultimapQueue {
  struct Timer {
    int64_t interval;
  };
  std::multimap<int64_t, NullHandler*> byExpiry;
  std::unordered_map<NullHandler*, std::multimap<int64_t, NullHandler*>::iterator> index;
  std::unordered_map<NullHandler*, int64_t> intervals;

  static int64_t Now() { return g_benchNow.GetSec() * 1000000 + g_benchNow.GetUsec(); }
  void Schedule(NullHandler* h, int64_t intervalUs) {
    Cancel(h);
    index[h] = byExpiry.emplace(Now() + intervalUs, h);
    intervals[h] = intervalUs;
  }
  bool Cancel(NullHandler* h) {
    auto it = index.find(h);
    if (it == index.end()) return false;
    byExpiry.erase(it->second);
    index.erase(it);
    return true;
  }
  int FireDue() {
    int fired = 0;
    int64_t now = Now();
    while (!byExpiry.empty() && byExpiry.begin()->first <= now) {
      auto first = byExpiry.begin();
      NullHandler* h = first->second;
      int64_t expiry = first->first;
      int64_t interval = intervals[h];
      byExpiry.erase(first);
      while (expiry <= now) expiry += interval;
      index[h] = byExpiry.emplace(expiry, h);
      h->OnTimeout(g_benchNow, nullptr);
      ++fired;
    }
    return fired;
  }
};

void BM_Multimap_ScheduleReplace(benchmark::State& state) {
  ClockScope clock;
  const int n = static_cast<int>(state.range(0));
  std::vector<NullHandler> handlers(n);
  MultimapQueue queue;
  for (int i = 0; i < n; ++i) queue.Schedule(&handlers[i], 1000 * (i + 1));
  std::mt19937 rng(7);
  for (auto _ : state) {
    int i = static_cast<int>(rng() % n);
    queue.Schedule(&handlers[i], 1000 * (static_cast<int>(rng() % n) + 1));
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Multimap_ScheduleReplace)->Arg(100)->Arg(1000);

void BM_Multimap_CancelAndReschedule(benchmark::State& state) {
  ClockScope clock;
  const int n = static_cast<int>(state.range(0));
  std::vector<NullHandler> handlers(n);
  MultimapQueue queue;
  for (int i = 0; i < n; ++i) queue.Schedule(&handlers[i], 1000 * (i + 1));
  std::mt19937 rng(7);
  for (auto _ : state) {
    int i = static_cast<int>(rng() % n);
    queue.Cancel(&handlers[i]);
    queue.Schedule(&handlers[i], 1000 * (i + 1));
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Multimap_CancelAndReschedule)->Arg(100)->Arg(1000);

void BM_Multimap_FireDue(benchmark::State& state) {
  ClockScope clock;
  const int n = static_cast<int>(state.range(0));
  std::vector<NullHandler> handlers(n);
  MultimapQueue queue;
  for (int i = 0; i < n; ++i) {
    queue.Schedule(&handlers[i], 1000L * n);
    g_benchNow += CCmTimeValue(0L, 1000L);
  }
  long fired = 0;
  for (auto _ : state) {
    g_benchNow += CCmTimeValue(0L, 1000L);
    fired += queue.FireDue();
  }
  state.SetItemsProcessed(fired);
}
BENCHMARK(BM_Multimap_FireDue)->Arg(100)->Arg(1000);

}  // namespace
