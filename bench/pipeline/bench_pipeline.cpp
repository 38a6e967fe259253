// Items through a three-stage chain on three threads: ProcessModules on three task
// threads (each module's unit forwards to the next module, which queues the item onto
// its own thread), against the same chain on Boost.Asio (three io_context threads, each
// stage posting the item to the next). Each iteration pushes a batch of heap items from
// the benchmark thread into stage 1 and waits until the last stage has seen all of them.

#include <benchmark/benchmark.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

#include "cmutil/pipeline/CmProcessModule.h"
#include "cmutil/pipeline/CmProcessUnit.h"
#include "cmutil/thread/CmEventQueueBase.h"
#include "cmutil/thread/CmThread.h"
#include "cmutil/thread/CmThreadSingletonFactory.h"

#if CMUTIL_HAVE_BOOST
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#endif

namespace {

constexpr int kBatch = 10000;

// Counts arrivals at the last stage and wakes the benchmark thread at the batch's end.
class Completion {
 public:
  void Reset(int aExpected) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_remaining = aExpected;
  }
  void Arrive() {
    if (m_left.fetch_sub(1, std::memory_order_acq_rel) == 1) {
      std::lock_guard<std::mutex> lock(m_mutex);
      m_remaining = 0;
      m_cv.notify_one();
    }
  }
  void Arm(int aExpected) {
    m_left.store(aExpected, std::memory_order_release);
    Reset(aExpected);
  }
  void Wait() {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_cv.wait(lock, [&] { return m_remaining == 0; });
  }

 private:
  std::atomic<int> m_left{0};
  std::mutex m_mutex;
  std::condition_variable m_cv;
  int m_remaining = 0;
};

// A small payload, as a media packet descriptor would be.
struct Payload {
  uint64_t seq;
  uint32_t stamp[6];
};

class BenchItem : public IProcessData, public kel::CKelUnknownImpl {
 public:
  explicit BenchItem(uint64_t aSeq) : kel::CKelUnknownImpl(1) { m_payload.seq = aSeq; }
  KEL_IMPLEMENT_UNKNOWN()
  uint32_t GetDataType() override { return 0; }
  void* GetData() override { return &m_payload; }
  uint32_t GetDataLength() override { return sizeof m_payload; }
  Payload m_payload{};
};

// Stages 1 and 2: touch the item and pass it on through output channel 0.
class StageUnit : public ProcessUnit {
 protected:
  IProcessData* _Process(IProcessData* aData, unsigned short) override {
    static_cast<BenchItem*>(aData)->m_payload.stamp[0]++;
    aData->AddRef();
    return aData;
  }
};

// Stage 3: counts.
class LastUnit : public ProcessUnit {
 public:
  explicit LastUnit(Completion* aDone) : m_pDone(aDone) {}

 protected:
  IProcessData* _Process(IProcessData* aData, unsigned short) override {
    static_cast<BenchItem*>(aData)->m_payload.stamp[0]++;
    m_pDone->Arrive();
    return nullptr;
  }

 private:
  Completion* m_pDone;
};

void BM_ProcessModule_ThreeStages(benchmark::State& state) {
  ACmThread* threads[3] = {};
  const char* names[3] = {"bench-stage1", "bench-stage2", "bench-stage3"};
  for (int i = 0; i < 3; ++i) {
    if (CreateUserTaskThread(names[i], threads[i], TF_JOINABLE, state.range(0) != 0) != CM_OK) {
      state.SkipWithError("cannot start task threads");
      return;
    }
  }
  Completion done;
  ProcessModule* modules[3];
  for (int i = 0; i < 3; ++i) {
    modules[i] = new ProcessModule;
    modules[i]->AddRef();
    modules[i]->SetProcessUnit(i < 2 ? static_cast<ProcessUnit*>(new StageUnit)
                                     : static_cast<ProcessUnit*>(new LastUnit(&done)));
    modules[i]->SetProcessModuleThread(threads[i]);
    if (i > 0) modules[i - 1]->AddDeliver(modules[i], 0, 0);
  }
  for (ProcessModule* m : modules) {
    m->InitModule();
    m->Start();
  }

  uint64_t seq = 0;
  for (auto _ : state) {
    done.Arm(kBatch);
    for (int i = 0; i < kBatch; ++i) {
      BenchItem* item = new BenchItem(seq++);
      modules[0]->DeliverData(item, 0);
      item->Release();
    }
    done.Wait();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kBatch);

  for (ACmThread* t : threads) {
    t->Stop();
    t->Join();
  }
  for (int i = 0; i < 2; ++i) modules[i]->RemoveDeliver(modules[i + 1]);
  for (ProcessModule* m : modules) m->Release();
  for (ACmThread* t : threads) t->Destory(0);
}
BENCHMARK(BM_ProcessModule_ThreeStages)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime();

// The event layer alone: the same chain with plain CCmInvokeEvents posted from stage to
// stage, no modules. Shows what the modules add on top of the task threads.
void BM_TaskThreadEvents_ThreeStages(benchmark::State& state) {
  ACmThread* threads[3] = {};
  const char* names[3] = {"bench-event1", "bench-event2", "bench-event3"};
  for (int i = 0; i < 3; ++i) {
    if (CreateUserTaskThread(names[i], threads[i], TF_JOINABLE, true) != CM_OK) {
      state.SkipWithError("cannot start task threads");
      return;
    }
  }
  ICmEventQueue* q[3];
  for (int i = 0; i < 3; ++i) q[i] = threads[i]->GetEventQueue();
  Completion done;
  uint64_t seq = 0;
  for (auto _ : state) {
    done.Arm(kBatch);
    for (int i = 0; i < kBatch; ++i) {
      BenchItem* item = new BenchItem(seq++);
      q[0]->PostEvent(CmNewInvokeEvent([item, &q, &done] {
        item->m_payload.stamp[0]++;
        q[1]->PostEvent(CmNewInvokeEvent([item, &q, &done] {
          item->m_payload.stamp[0]++;
          q[2]->PostEvent(CmNewInvokeEvent([item, &done] {
            item->m_payload.stamp[0]++;
            item->Release();
            done.Arrive();
          }));
        }));
      }));
    }
    done.Wait();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kBatch);
  for (ACmThread* t : threads) {
    t->Stop();
    t->Join();
    t->Destory(0);
  }
}
BENCHMARK(BM_TaskThreadEvents_ThreeStages)->Unit(benchmark::kMillisecond)->UseRealTime();

#if CMUTIL_HAVE_BOOST
// The same chain on Boost.Asio: a heap item is posted from stage to stage.
struct AsioItem {
  Payload payload{};
};

void BM_Asio_ThreeStages(benchmark::State& state) {
  boost::asio::io_context contexts[3];
  std::vector<boost::asio::executor_work_guard<boost::asio::io_context::executor_type>> guards;
  for (auto& c : contexts) guards.emplace_back(c.get_executor());
  std::vector<std::thread> threads;
  for (auto& c : contexts) threads.emplace_back([&c] { c.run(); });
  Completion done;

  uint64_t seq = 0;
  for (auto _ : state) {
    done.Arm(kBatch);
    for (int i = 0; i < kBatch; ++i) {
      AsioItem* item = new AsioItem;
      item->payload.seq = seq++;
      boost::asio::post(contexts[0], [item, &contexts, &done] {
        item->payload.stamp[0]++;
        boost::asio::post(contexts[1], [item, &contexts, &done] {
          item->payload.stamp[0]++;
          boost::asio::post(contexts[2], [item, &done] {
            item->payload.stamp[0]++;
            delete item;
            done.Arrive();
          });
        });
      });
    }
    done.Wait();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kBatch);
  guards.clear();
  for (auto& c : contexts) c.stop();
  for (auto& t : threads) t.join();
}
BENCHMARK(BM_Asio_ThreeStages)->Unit(benchmark::kMillisecond)->UseRealTime();
#endif

}  // namespace
