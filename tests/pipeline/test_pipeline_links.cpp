// Links made and unmade from several threads at once, a unit replaced while items flow,
// and a module thread whose queue refuses the drain events.
#include <gtest/gtest.h>

#include <thread>
#include <tuple>
#include <vector>

#include "PipelineTestHelpers.h"

using namespace pipetest;

namespace {

using PipelineLinksTest = LeakCheckedTest;

// Runs both bodies on threads of their own, released together.
template <class F, class G>
void RunTogether(F&& aFirst, G&& aSecond) {
  std::atomic<int> ready{0};
  auto gate = [&ready] {
    ready.fetch_add(1);
    while (ready.load() < 2) std::this_thread::yield();
  };
  std::thread one([&] {
    gate();
    aFirst();
  });
  std::thread two([&] {
    gate();
    aSecond();
  });
  one.join();
  two.join();
}

TEST_F(PipelineLinksTest, CrossLinkingInOppositeDirectionsDoesNotDeadlock) {
  // a -> b on one thread while b -> a on another: each AddDeliver also records an
  // inputter on the other module, so the two link locks are taken by both threads.
  constexpr int kRounds = 2000;
  Ref<TestModule> a(new TestModule), b(new TestModule);
  std::atomic<int> failures{0};
  auto cycle = [&failures](TestModule* from, TestModule* to) {
    for (int i = 0; i < kRounds; ++i) {
      for (CmResult rv :
           {from->AddDeliver(to, 0, 0), from->RemoveDeliver(to), from->AddDeliver(to, 2, 1), from->RemoveDeliver(2, 1)})
        failures += rv != CM_OK;
    }
  };
  RunTogether([&] { cycle(a.get(), b.get()); }, [&] { cycle(b.get(), a.get()); });
  EXPECT_EQ(0, failures.load());
  // Everything was unlinked on both sides (a braced list calls them left to right).
  EXPECT_EQ(std::vector<CmResult>(4, CM_ERROR_FAILURE),
            (std::vector<CmResult>{a->RemoveDeliver(b.get()), b->RemoveDeliver(a.get()), a->RemoveInputer(b.get()),
                                   b->RemoveInputer(a.get())}));
}

TEST_F(PipelineLinksTest, DeliverByIndexHoldsAReferenceOnTheTargetDuringTheCall) {
  // The target unlinks itself from inside DeliverData; the call itself holds a reference
  // on it, so an owner releasing it at that moment would not free it under the caller.
  class SelfUnlinking : public TestModule {
   public:
    ProcessModule* from = nullptr;
    int delivered = 0;
    unsigned int refsDuringCall = 0;
    CmResult DeliverData(IProcessData*, unsigned short) override {
      ++delivered;
      refsDuringCall = GetReference();
      return from->RemoveDeliver(this);
    }
  };
  Ref<TestModule> a(new TestModule);
  Ref<SelfUnlinking> b(new SelfUnlinking);
  b->from = a.get();
  ASSERT_EQ(CM_OK, a->AddDeliver(b.get(), 0, 0));
  TestData* d = new TestData(1);
  EXPECT_EQ(CM_OK, a->DeliverDataToNextModuleByDeliverIndex(d, 0, 0));
  // Delivered once, with the call's reference held during it and given back after.
  EXPECT_EQ(std::make_tuple(1, 2u, 1u, 1u),
            std::make_tuple(b->delivered, b->refsDuringCall, b->GetReference(), a->GetOutputSampleCount(0)));
  EXPECT_EQ(CM_ERROR_FAILURE, a->DeliverDataToNextModuleByDeliverIndex(d, 0, 0));  // unlinked
  d->Release();
}

std::atomic<int> g_processedByAnyUnit{0};
std::atomic<int> g_unitsDestroyed{0};
std::atomic<int> g_destroyedSeenInside{-1};

// Counts every item in a counter that outlives the unit.
class CountingUnit : public ProcessUnit {
 protected:
  IProcessData* _Process(IProcessData*, unsigned short) override {
    g_processedByAnyUnit.fetch_add(1);
    return nullptr;
  }
};

TEST_F(PipelineLinksTest, UnitReplacedWhileItemsFlow) {
  // Items go to the unit, straight on the delivering thread or drained on a module
  // thread, while another thread keeps replacing it; each replaced unit loses its last
  // reference to the module. A call in progress must keep its unit alive (ASan reports a
  // use after free otherwise).
  constexpr int kItems = 20000;
  for (bool queued : {false, true}) {
    TaskThread worker("pl-unit");
    Ref<TestModule> m(new TestModule);
    StartModule(m.get(), new CountingUnit, queued ? worker.get() : nullptr);
    g_processedByAnyUnit = 0;
    std::atomic<bool> stop{false};
    RunTogether(
        [&] {
          for (int i = 0; i < kItems; ++i) Deliver(m, static_cast<uint32_t>(i), 0);
          ASSERT_TRUE(worker.Flush());
          stop = true;
        },
        [&] {
          while (!stop.load()) m->SetProcessUnit(new CountingUnit);
        });
    EXPECT_EQ(kItems, g_processedByAnyUnit.load()) << queued;  // a unit was always there
    m->SetProcessUnit(nullptr);
  }
}

// Replaces itself from inside its own Process, then keeps using its own members.
class SelfReplacingUnit : public ProcessUnit {
 public:
  explicit SelfReplacingUnit(ProcessModule* aModule) : m_pModule(aModule) {}
  ~SelfReplacingUnit() override { g_unitsDestroyed.fetch_add(1); }

 protected:
  IProcessData* _Process(IProcessData*, unsigned short) override {
    m_pModule->SetProcessUnit(new CountingUnit);  // drops the module's reference on this unit
    ++m_nCalls;                                   // this unit must still be alive here
    g_destroyedSeenInside = g_unitsDestroyed.load();
    return nullptr;
  }

 private:
  ProcessModule* m_pModule;
  int m_nCalls = 0;
};

TEST_F(PipelineLinksTest, UnitReplacedFromInsideItsOwnCallLivesUntilTheCallReturns) {
  Ref<TestModule> m(new TestModule);
  SelfReplacingUnit* unit = new SelfReplacingUnit(m.get());
  StartModule(m.get(), unit);
  g_unitsDestroyed = 0;
  Deliver(m, 1, 0);
  EXPECT_EQ(0, g_destroyedSeenInside.load());  // alive during its call
  EXPECT_EQ(1, g_unitsDestroyed.load());       // released once it returned
  EXPECT_NE(static_cast<IProcessUnit*>(unit), m->GetProcessUnit());
  g_processedByAnyUnit = 0;
  Deliver(m, 2, 0);
  EXPECT_EQ(1, g_processedByAnyUnit.load());  // the new unit took the next item
  m->SetProcessUnit(nullptr);
}

}  // namespace
