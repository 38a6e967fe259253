#include <gtest/gtest.h>

#include <memory>
#include <tuple>
#include <utility>
#include <vector>

#include "PipelineTestHelpers.h"
#include "cmutil/trace/CmTrace.h"
#include "common/CmTraceCapture.h"

using namespace pipetest;

namespace {

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
  std::vector<std::pair<uint32_t, int>> arrivals;  // (seq, input channel) at out0, in order
  for (const Seen& s : out0.unit->Seen_()) arrivals.emplace_back(s.seq, s.channel);
  EXPECT_EQ((std::vector<std::pair<uint32_t, int>>{{0, 3}, {5, 3}, {15, 3}}), arrivals);
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

TEST_F(ProcessModuleTest, ThreadIsCallerMeansSynchronousAndDecisionIsCached) {
  TaskThread t("pm-cache");
  ASSERT_TRUE(t.ok());
  Sink m("sink", t.get());

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
  // Braced lists call left to right: Start, Stop, then Start, Start (no change, no event), Stop.
  EXPECT_EQ(std::vector<CmResult>(2, CM_ERROR_FAILURE), (std::vector<CmResult>{m->Start(), m->Stop()}));
  EXPECT_EQ(CM_OK, m->InitModule());
  EXPECT_EQ(PROCESS_MODULE_STATUS_INITED, m->GetProcessModuleStatus());
  EXPECT_EQ(std::vector<CmResult>(3, CM_OK), (std::vector<CmResult>{m->Start(), m->Start(), m->Stop()}));
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
  Ref<TestModule> a(new TestModule), b(new TestModule), next(new TestModule), shared(new TestModule);
  shared->AllowSharedInput(true);
  ASSERT_EQ(CM_OK, a->AddDeliver(next.get(), 3, 0));
  EXPECT_EQ(CM_ERROR_FAILURE, b->AddDeliver(next.get(), 3, 0));
  EXPECT_TRUE(cap.contains("ProcessModule::AddInputer exist same inputer for nChannelId=3"));
  EXPECT_TRUE(cap.contains("ProcessModule::AddDeliver fail add inputter"));
  // In order (a braced list calls left to right): the same module on another output of a
  // is refused too (its channel 3 is taken); another channel is fine; after unlinking,
  // channel 3 is free again; with shared input allowed, several inputters on one channel.
  EXPECT_EQ((std::vector<CmResult>{CM_ERROR_FAILURE, CM_OK, CM_OK, CM_OK, CM_OK, CM_OK}),
            (std::vector<CmResult>{a->AddDeliver(next.get(), 3, 1), b->AddDeliver(next.get(), 4, 0),
                                   a->RemoveDeliver(3, 0), b->AddDeliver(next.get(), 3, 2),
                                   a->AddDeliver(shared.get(), 0, 0), b->AddDeliver(shared.get(), 0, 0)}));
}

TEST_F(ProcessModuleTest, EveryLinkOfAnOutputGetsTheItemAsTheListGrowsAndShrinks) {
  Ref<TestModule> a(new TestModule);
  std::vector<std::unique_ptr<Sink>> sinks;
  // Sends one item on an output and gives how many items each sink has seen so far.
  auto sendAndCount = [&](unsigned short aOutput) {
    TestData* d = new TestData(1);
    a->DeliverDataToNextModule(d, aOutput);
    d->Release();
    std::vector<size_t> seen;
    for (auto& s : sinks) seen.push_back(s->unit->Count());
    return seen;
  };
  std::vector<size_t> expected;
  for (unsigned short ch = 0; ch < 10; ++ch) {  // up to 10 links on output 0
    sinks.emplace_back(new Sink("s"));
    ASSERT_EQ(CM_OK, a->AddDeliver(sinks.back()->module.get(), ch, 0));
    for (size_t& n : expected) ++n;
    expected.push_back(1);
    ASSERT_EQ(expected, sendAndCount(0)) << ch + 1 << " links";
  }
  // The first sink also on output 2; removal by module takes it from both outputs and
  // from the sink's inputters. Then one more by module and one by channel.
  ASSERT_EQ(CM_OK, a->AddDeliver(sinks[0]->module.get(), 1, 2));
  EXPECT_EQ(CM_ERROR_FAILURE, a->RemoveDeliver(static_cast<IProcessModule*>(nullptr)));
  ASSERT_EQ(CM_OK, a->RemoveDeliver(sinks[0]->module.get()));
  EXPECT_EQ(CM_ERROR_FAILURE, a->RemoveDeliver(sinks[0]->module.get()));
  EXPECT_EQ(CM_ERROR_FAILURE, sinks[0]->module->RemoveInputer(a.get()));
  ASSERT_EQ(CM_OK, a->RemoveDeliver(sinks[1]->module.get()));
  ASSERT_EQ(CM_OK, a->RemoveDeliver(9, 0));
  for (size_t i = 2; i < 9; ++i) ++expected[i];
  EXPECT_EQ(expected, sendAndCount(0));
  EXPECT_EQ(expected, sendAndCount(2));
}

TEST_F(ProcessModuleTest, RefusedDrainEventsAreTracedAndDestructionReleasesTheQueuedItems) {
  // A module whose thread has no event queue, or whose queue refuses posts, keeps every
  // item queued; destroying the module must release each of them exactly once.
  struct NoQueueThread : ACmThread {
    void OnThreadRun() override {}
    ~NoQueueThread() override {}
  };
  NoQueueThread* never = new NoQueueThread;  // not created: its id is 0, not the caller's
  TaskThread live("pm-live");
  ASSERT_TRUE(live.ok());
  CmTraceCapture cap;
  Sink s("sink", never);
  TestModule* m = s.module.get();
  const int64_t before = cm_get_assertions_count();
  TestData* d = new TestData(99);
  EXPECT_EQ(CM_OK, m->DeliverData(d, 1));
  EXPECT_TRUE(cap.contains("Assert failed: pEventQueue != NULL"));
  // Queued once, and the queue holds its own reference.
  EXPECT_EQ(std::make_tuple(before + 1, 1u, 2u),
            std::make_tuple(cm_get_assertions_count(), m->GetProcessModuleQueueSize(1), d->GetReference()));
  d->Release();
  m->SetProcessModuleThread(live.get());
  live.get()->Stop();  // the queue is stopped: drain events are destroyed unfired
  for (uint32_t i = 0; i < 50; ++i) {
    d = new TestData(i);
    EXPECT_EQ(CM_OK, m->DeliverData(d, static_cast<unsigned short>(i % 16)));
    EXPECT_EQ(2u, d->GetReference());
    d->Release();
  }
  EXPECT_TRUE(cap.contains(1, "ProcessModule::DeliverData, PostEvent failed, rv="));
  EXPECT_TRUE(cap.contains(1, " channel_id=3 queue_size=1 [this="));
  EXPECT_EQ(std::make_tuple(51u, 4u, m_liveBefore + 51),
            std::make_tuple(m->_GetProcessDataToQueueSize(), m->GetProcessModuleQueueSize(0), LiveData().load()));
  s.module.reset();  // destruction releases the queued items; none reached the unit
  EXPECT_EQ(std::make_pair(m_liveBefore, size_t{0}), std::make_pair(LiveData().load(), s.unit->Count()));
  delete never;
}

}  // namespace
