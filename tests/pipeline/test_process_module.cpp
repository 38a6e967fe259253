#include <gtest/gtest.h>

#include <tuple>
#include <utility>
#include <vector>

#include "PipelineTestHelpers.h"
#include "cmutil/trace/CmTrace.h"
#include "common/CmTraceCapture.h"

using namespace pipetest;

namespace {

// (seq, input channel) of every item the unit saw, in order.
using Arrivals = std::vector<std::pair<uint32_t, int>>;
Arrivals ArrivalsAt(RecordingUnit* aUnit) {
  Arrivals out;
  for (const Seen& s : aUnit->Seen_()) out.emplace_back(s.seq, s.channel);
  return out;
}

using ProcessModuleTest = LeakCheckedTest;

TEST_F(ProcessModuleTest, InvalidDeliveryCountsNothingNotStartedForwardsEveryChannelToOutputZero) {
  Ref<TestModule> src(new TestModule);
  TestData* bad = new TestData(1);
  EXPECT_EQ(CM_ERROR_INVALID_ARG, src->DeliverData(nullptr, 0));
  EXPECT_EQ(CM_ERROR_INVALID_ARG, src->DeliverData(bad, 16));
  for (unsigned short ch = 0; ch < 16; ++ch) EXPECT_EQ(0u, src->GetInputSampleCount(ch));
  EXPECT_EQ(1u, bad->GetReference());
  bad->Release();
  Ref<RecordingUnit> srcUnit(new RecordingUnit);
  src->SetProcessUnit(srcUnit.get());
  Sink out0, out1;
  ASSERT_EQ(CM_OK, src->AddDeliver(out0.module.get(), 3, 0));
  ASSERT_EQ(CM_OK, src->AddDeliver(out1.module.get(), 0, 1));

  for (unsigned short ch : {0, 5, 15}) EXPECT_EQ(CM_OK, Deliver(src, ch, ch));
  EXPECT_EQ((Arrivals{{0, 3}, {5, 3}, {15, 3}}), ArrivalsAt(out0.unit.get()));
  // Not started: the unit is bypassed, and nothing leaves on output 1.
  EXPECT_EQ(std::make_tuple(size_t{0}, size_t{0}, 1u, 3u, 0u),
            std::make_tuple(srcUnit->Count(), out1.unit->Count(), src->GetInputSampleCount(5),
                            src->GetOutputSampleCount(0), src->GetOutputSampleCount(1)));

  // Initialised but not started still passes through; stopped passes through too.
  ASSERT_EQ(CM_OK, src->InitModule());
  ASSERT_EQ(CM_OK, src->Start());
  ASSERT_EQ(CM_OK, src->Stop());
  Deliver(src, 99, 7);
  EXPECT_EQ(std::make_pair(size_t{0}, size_t{4}), std::make_pair(srcUnit->Count(), out0.unit->Count()));
}

TEST_F(ProcessModuleTest, UnitOutputGoesToOutputZeroDeliversInLinkOrderOnce) {
  Sink m("m", nullptr, new RecordingUnit(RecordingUnit::kEmit));
  std::vector<int> order;  // every module runs on this thread
  struct OrderUnit : ProcessUnit {
    OrderUnit(int aId, std::vector<int>* aOrder) : id(aId), order(aOrder) {}
    IProcessData* _Process(IProcessData*, unsigned short) override {
      order->push_back(id);
      return nullptr;
    }
    int id;
    std::vector<int>* order;
  };
  Ref<TestModule> a(new TestModule), b(new TestModule), c(new TestModule);
  int id = 1;
  for (TestModule* x : {a.get(), b.get(), c.get()}) StartModule(x, new OrderUnit(id++, &order));
  ASSERT_EQ(CM_OK, m.module->AddDeliver(b.get(), 0, 0));
  ASSERT_EQ(CM_OK, m.module->AddDeliver(a.get(), 0, 0));
  ASSERT_EQ(CM_OK, m.module->AddDeliver(c.get(), 0, 1));  // output 1: not used by Process
  TestData* d = new TestData(1);
  m.module->DeliverData(d, 0);
  EXPECT_EQ(1u, d->GetReference());  // the emitted reference was released after delivery
  d->Release();
  EXPECT_EQ((std::vector<int>{2, 1}), order);
}

TEST_F(ProcessModuleTest, ThreadIsCallerMeansSynchronousAndDecisionIsCached) {
  TaskThread t("pm-cache");
  ASSERT_TRUE(t.ok());
  Sink m;
  m.module->SetProcessModuleThread(t.get());

  // The first item on channel 2 comes from the module thread itself: no queue, and that
  // decision stays for the channel.
  Latch first;
  t.Post([&] {
    Deliver(m.module, 1, 2);
    first.CountDown();
  });
  ASSERT_TRUE(first.Wait());
  EXPECT_TRUE(m.module->_NeedQueuedProcess(2) == false);
  Deliver(m.module, 2, 2);  // from the test thread, still synchronous: cached
  ASSERT_EQ(2u, m.unit->Count());
  EXPECT_TRUE(IsThreadEqual(t.id(), m.unit->Seen_()[0].thread) &&
              IsThreadEqual(GetThreadSelfId(), m.unit->Seen_()[1].thread));

  // Channel 3 decides afresh from the test thread: queued onto the module thread.
  EXPECT_TRUE(m.module->_NeedQueuedProcess(3));

  // Setting the thread again forgets the decisions: channel 2 now queues as well.
  m.module->SetProcessModuleThread(t.get());
  Deliver(m.module, 3, 2);
  ASSERT_TRUE(t.Flush());
  ASSERT_EQ(3u, m.unit->Count());
  EXPECT_TRUE(IsThreadEqual(t.id(), m.unit->Seen_()[2].thread));
}

TEST_F(ProcessModuleTest, MissingEventQueueAssertsAndKeepsItemQueued) {
  struct NoQueueThread : ACmThread {
    void OnThreadRun() override {}
    ~NoQueueThread() override {}
  };
  NoQueueThread* never = new NoQueueThread;  // not created: its id is 0, not the caller's
  CmTraceCapture cap;
  Sink m;
  m.module->SetProcessModuleThread(never);
  const int64_t before = cm_get_assertions_count();
  TestData* d = new TestData(1);
  EXPECT_EQ(CM_OK, m.module->DeliverData(d, 1));
  EXPECT_TRUE(cap.contains("Assert failed: pEventQueue != NULL"));
  // Queued once, and the queue holds its own reference.
  EXPECT_EQ(std::make_tuple(before + 1, 1u, 2u, size_t{0}),
            std::make_tuple(cm_get_assertions_count(), m.module->GetProcessModuleQueueSize(1), d->GetReference(),
                            m.unit->Count()));
  d->Release();
  m.module->SetProcessModuleThread(nullptr);
  m.module.reset();  // destruction releases the queued item
  EXPECT_EQ(m_liveBefore, LiveData().load());
  delete never;
}

TEST_F(ProcessModuleTest, DrainTakesAtMostEightPerCall) {
  Sink m;
  for (uint32_t i = 0; i < 20; ++i) {
    TestData* d = new TestData(i);
    m.module->_PushProcessDataToQueue(d, 6);
    d->Release();
  }
  EXPECT_EQ(20u, m.module->GetProcessModuleQueueSize(6));
  for (unsigned left : {12u, 4u, 0u, 0u}) {  // the last drain finds it empty: still CM_OK
    EXPECT_EQ(CM_OK, m.module->_DrainQueueData(6));
    EXPECT_EQ(left, m.module->GetProcessModuleQueueSize(6));
  }
  EXPECT_EQ(CM_ERROR_FAILURE, m.module->_DrainQueueData(16));
  Arrivals expected;
  for (uint32_t i = 0; i < 20; ++i) expected.emplace_back(i, 6);
  EXPECT_EQ(expected, ArrivalsAt(m.unit.get()));
}

TEST_F(ProcessModuleTest, StatusRulesAndEvents) {
  struct Log : IProcessModuleEventNotify {
    std::vector<uint32_t> values;
    void OnProcessModuleEvent(uint32_t aType, const ProcessModuleValue& aValue) override {
      EXPECT_EQ(uint32_t{PROCESS_MODULE_EVENT_STATUS_CHANGED}, aType);
      values.push_back(aValue.dwValue);
    }
  } status;
  Ref<TestModule> m(new TestModule);
  ASSERT_EQ(CM_OK, m->AddObserver(&status, PROCESS_MODULE_LISTEN_STATUS));
  EXPECT_EQ(PROCESS_MODULE_STATUS_CREATED, m->GetProcessModuleStatus());
  EXPECT_EQ(CM_ERROR_FAILURE, m->Start());
  EXPECT_EQ(CM_ERROR_FAILURE, m->Stop());
  EXPECT_EQ(CM_OK, m->InitModule());
  EXPECT_EQ(PROCESS_MODULE_STATUS_INITED, m->GetProcessModuleStatus());
  EXPECT_EQ(CM_OK, m->Start());
  EXPECT_EQ(CM_OK, m->Start());  // no change, no event
  EXPECT_EQ(CM_OK, m->Stop());
  EXPECT_EQ(PROCESS_MODULE_STATUS_STOPPED, m->GetProcessModuleStatus());
  EXPECT_EQ(CM_OK, m->Start());
  EXPECT_EQ(PROCESS_MODULE_STATUS_STARTED, m->GetProcessModuleStatus());
  EXPECT_EQ((std::vector<uint32_t>{PROCESS_MODULE_STATUS_INITED, PROCESS_MODULE_STATUS_STARTED,
                                   PROCESS_MODULE_STATUS_STOPPED, PROCESS_MODULE_STATUS_STARTED}),
            status.values);
}

TEST_F(ProcessModuleTest, ObserverMayUnregisterDuringNotification) {
  struct SelfRemoving : IProcessModuleEventNotify {
    ProcessModule* module = nullptr;
    int calls = 0;
    void OnProcessModuleEvent(uint32_t, const ProcessModuleValue&) override {
      ++calls;
      module->RemoveObserver(this);  // would deadlock if called under the table mutex
    }
  } obs;
  Ref<TestModule> m(new TestModule);
  obs.module = m.get();
  m->AddObserver(&obs, PROCESS_MODULE_LISTEN_ALL);
  m->InitModule();
  m->Start();
  EXPECT_EQ(1, obs.calls);
}

// ---------------------------------------------------------------- links

TEST_F(ProcessModuleTest, OneInputterPerChannel) {
  CmTraceCapture cap;
  Ref<TestModule> a(new TestModule), b(new TestModule), next(new TestModule);
  ASSERT_EQ(CM_OK, a->AddDeliver(next.get(), 3, 0));
  EXPECT_EQ(CM_ERROR_FAILURE, b->AddDeliver(next.get(), 3, 0));
  EXPECT_TRUE(cap.contains("ProcessModule::AddInputer exist same inputer for nChannelId=3"));
  EXPECT_TRUE(cap.contains("ProcessModule::AddDeliver fail add inputter"));
  // The same module on another output of a is refused too (its channel 3 is taken).
  EXPECT_EQ(CM_ERROR_FAILURE, a->AddDeliver(next.get(), 3, 1));
  EXPECT_EQ(CM_OK, b->AddDeliver(next.get(), 4, 0));

  // After unlinking, the channel is free again.
  EXPECT_EQ(CM_OK, a->RemoveDeliver(3, 0));
  EXPECT_EQ(CM_OK, b->AddDeliver(next.get(), 3, 2));

  // Shared input allowed: several inputters on one channel.
  Ref<TestModule> shared(new TestModule);
  shared->AllowSharedInput(true);
  EXPECT_EQ(CM_OK, a->AddDeliver(shared.get(), 0, 0));
  EXPECT_EQ(CM_OK, b->AddDeliver(shared.get(), 0, 0));
}

TEST_F(ProcessModuleTest, RemoveDeliverByModuleFromEveryOutput) {
  Sink b("b"), c("c");
  Ref<TestModule> a(new TestModule);
  ASSERT_EQ(CM_OK, a->AddDeliver(b.module.get(), 0, 0));
  ASSERT_EQ(CM_OK, a->AddDeliver(b.module.get(), 1, 2));
  ASSERT_EQ(CM_OK, a->AddDeliver(c.module.get(), 0, 0));
  EXPECT_EQ(CM_ERROR_FAILURE, a->RemoveDeliver(static_cast<IProcessModule*>(nullptr)));
  EXPECT_EQ(CM_OK, a->RemoveDeliver(b.module.get()));
  EXPECT_EQ(CM_ERROR_FAILURE, a->RemoveDeliver(b.module.get()));
  EXPECT_EQ(CM_ERROR_FAILURE, b.module->RemoveInputer(a.get()));  // both entries removed
  TestData* d = new TestData(1);
  a->DeliverDataToNextModule(d, 0);
  a->DeliverDataToNextModule(d, 2);
  d->Release();
  EXPECT_EQ(std::make_pair(size_t{0}, size_t{1}), std::make_pair(b.unit->Count(), c.unit->Count()));
}

TEST_F(ProcessModuleTest, RefusedDrainEventsAreTracedAndDestructionReleasesTheQueuedItems) {
  // A module whose thread's queue refuses posts keeps every item queued; destroying the
  // module must release each of them exactly once.
  TaskThread live("pm-live");
  ASSERT_TRUE(live.ok());
  Sink s;
  TestModule* m = s.module.get();
  m->SetProcessModuleThread(live.get());
  live.get()->Stop();  // the queue is stopped: drain events are destroyed unfired
  CmTraceCapture cap;
  for (uint32_t i = 0; i < 50; ++i) {
    TestData* d = new TestData(i);
    EXPECT_EQ(CM_OK, m->DeliverData(d, static_cast<unsigned short>(i % 16)));
    EXPECT_EQ(2u, d->GetReference());
    d->Release();
  }
  EXPECT_TRUE(cap.contains(1, "ProcessModule::DeliverData, PostEvent failed, rv="));
  EXPECT_TRUE(cap.contains(1, " channel_id=3 queue_size=1 [this="));
  EXPECT_EQ(std::make_tuple(50u, 4u, m_liveBefore + 50),
            std::make_tuple(m->_GetProcessDataToQueueSize(), m->GetProcessModuleQueueSize(0), LiveData().load()));
  s.module.reset();
  EXPECT_EQ(std::make_pair(m_liveBefore, size_t{0}), std::make_pair(LiveData().load(), s.unit->Count()));
}

}  // namespace
