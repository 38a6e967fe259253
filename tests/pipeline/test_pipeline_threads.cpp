// Cross-thread behaviour: items delivered exactly once and in order per channel, units
// running on their module's thread, and the queued path under concurrent producers.
#include <gtest/gtest.h>

#include <map>
#include <tuple>
#include <utility>
#include <vector>

#include "PipelineTestHelpers.h"

using namespace pipetest;

namespace {

class PipelineThreadsTest : public LeakCheckedTest {
 protected:
  // Holds the worker until m_release counts down, so that the queue and the posted
  // events pile up.
  void Hold(TaskThread& worker) {
    worker.Post([this] {
      m_blocked.CountDown();
      m_release.Wait();
    });
    ASSERT_TRUE(m_blocked.Wait());
  }
  Latch m_blocked, m_release;
};

// source thread -> middle module (thread T1, forwarding unit) -> sink module (thread T2)
TEST_F(PipelineThreadsTest, ThreeStagesExactlyOnceInOrderPerChannel) {
  constexpr uint32_t kPerChannel = 2000;
  constexpr unsigned short kChannels[] = {0, 1, 5};  // 5 leaves the middle on output 1
  TaskThread source("pl-source"), t1("pl-middle"), t2("pl-sink");
  ASSERT_TRUE(source.ok() && t1.ok() && t2.ok());

  Latch done;
  Ref<TestModule> middle(new TestModule);
  Ref<RecordingUnit> forward(new RecordingUnit(RecordingUnit::kForward));
  Sink sink("sink", t2.get(), new RecordingUnit(RecordingUnit::kSwallow, &done, kPerChannel * 3));
  RecordingUnit* record = sink.unit.get();
  middle->SetProcessModuleInfo("middle", 1);
  // middle output 0 -> sink input 0, middle output 1 -> sink input 1.
  ASSERT_EQ(CM_OK, middle->AddDeliver(sink.module.get(), 0, 0));
  ASSERT_EQ(CM_OK, middle->AddDeliver(sink.module.get(), 1, 1));
  StartModule(middle.get(), forward.get(), t1.get());

  // The source interleaves its channels item by item.
  source.Post([&] {
    for (uint32_t i = 0; i < kPerChannel; ++i) {
      for (unsigned short ch : kChannels) Deliver(middle, i, ch, ch);
    }
  });
  ASSERT_TRUE(done.Wait()) << "sink saw " << record->Count() << " items";
  ASSERT_TRUE(t1.Flush() && t2.Flush());

  // The middle unit ran only on T1, the sink unit only on T2.
  for (const Seen& s : forward->Seen_()) ASSERT_TRUE(IsThreadEqual(t1.id(), s.thread));
  std::map<uint32_t, std::vector<uint32_t>> byTag;
  for (const Seen& s : record->Seen_()) {
    ASSERT_TRUE(IsThreadEqual(t2.id(), s.thread));
    byTag[s.tag].push_back(s.seq);
    // channel 0 arrives on sink input 0; channels 1 and 5 leave on outputs 1 -> input 1
    ASSERT_EQ(s.tag == 0 ? 0 : 1, s.channel);
  }
  ASSERT_EQ(3u, byTag.size());
  for (auto& entry : byTag) {
    ASSERT_EQ(kPerChannel, entry.second.size()) << "tag " << entry.first;
    for (uint32_t i = 0; i < kPerChannel; ++i) ASSERT_EQ(i, entry.second[i]) << "tag " << entry.first;
  }
  // Every item counted once per stage; no queue left anything behind.
  EXPECT_EQ(std::make_tuple(static_cast<size_t>(kPerChannel) * 3, kPerChannel, kPerChannel * 2, 0u, 0u),
            std::make_tuple(record->Count(), middle->GetInputSampleCount(5), sink.module->GetInputSampleCount(1),
                            middle->_GetProcessDataToQueueSize(), sink.module->_GetProcessDataToQueueSize()));
}

TEST_F(PipelineThreadsTest, ConcurrentProducersOnSeparateChannels) {
  constexpr uint32_t kItems = 3000;
  TaskThread p1("pl-prod1"), p2("pl-prod2"), worker("pl-worker");
  ASSERT_TRUE(p1.ok() && p2.ok() && worker.ok());
  Latch done;
  Sink s("sink", worker.get(), new RecordingUnit(RecordingUnit::kSwallow, &done, kItems * 2));
  Latch go;
  auto produce = [&](unsigned short ch) {
    go.Wait();
    for (uint32_t i = 0; i < kItems; ++i) Deliver(s.module, i, ch, ch);
  };
  p1.Post([&] { produce(3); });
  p2.Post([&] { produce(8); });
  go.CountDown();
  ASSERT_TRUE(done.Wait());
  ASSERT_TRUE(worker.Flush());
  std::map<unsigned short, uint32_t> next;
  for (const Seen& seen : s.unit->Seen_()) {
    ASSERT_TRUE(IsThreadEqual(worker.id(), seen.thread));
    ASSERT_EQ(seen.tag, seen.channel);
    ASSERT_EQ(next[seen.channel]++, seen.seq) << "channel " << seen.channel;
  }
  EXPECT_EQ(std::make_tuple(kItems, kItems, kItems),
            std::make_tuple(next[3], next[8], s.module->GetInputSampleCount(3)));
}

TEST_F(PipelineThreadsTest, QueuedDeliveryPostsOneEventPerItemAndEachDrainTakesAtMostEight) {
  TaskThread worker("pl-batch");
  ASSERT_TRUE(worker.ok());
  Sink s("sink", worker.get());
  Hold(worker);
  for (uint32_t i = 0; i < 20; ++i) ASSERT_EQ(CM_OK, Deliver(s.module, i, 2));
  EXPECT_EQ(std::make_tuple(20u, 20u, size_t{0}),
            std::make_tuple(s.module->GetProcessModuleQueueSize(2),
                            worker.get()->GetEventQueue()->GetPendingEventsCount(), s.unit->Count()));
  // Drained by hand while the worker is held (the unit runs on this thread): 8, 8, the
  // last 4, then an empty queue, which still drains fine.
  for (unsigned left : {12u, 4u, 0u, 0u}) {
    EXPECT_EQ(CM_OK, s.module->_DrainQueueData(2));
    EXPECT_EQ(left, s.module->GetProcessModuleQueueSize(2));
  }
  EXPECT_EQ(CM_ERROR_FAILURE, s.module->_DrainQueueData(16));
  // The 20 drain events then find the queue empty and process nothing more.
  m_release.CountDown();
  ASSERT_TRUE(worker.Flush());
  ASSERT_EQ(20u, s.unit->Count());
  const auto seen = s.unit->Seen_();
  for (uint32_t i = 0; i < 20; ++i)
    EXPECT_EQ(std::make_tuple(i, 2, 19u - i),
              std::make_tuple(seen[i].seq, int{seen[i].channel}, seen[i].queueSizeAfterPop));
}

TEST_F(PipelineThreadsTest, UnlinkWhileRunningStopsDelivery) {
  TaskThread worker("pl-unlink");
  ASSERT_TRUE(worker.ok());
  Ref<TestModule> src(new TestModule);
  Sink sink("sink", worker.get());
  ASSERT_EQ(CM_OK, src->AddDeliver(sink.module.get(), 0, 0));
  // src not started: straight to its output 0
  for (uint32_t i = 0; i < 10; ++i) Deliver(src, i, 0);
  ASSERT_EQ(CM_OK, src->RemoveDeliver(sink.module.get()));
  for (uint32_t i = 10; i < 20; ++i) Deliver(src, i, 0);
  ASSERT_TRUE(worker.Flush());
  EXPECT_EQ(std::make_pair(size_t{10}, 20u), std::make_pair(sink.unit->Count(), src->GetOutputSampleCount(0)));
}

TEST_F(PipelineThreadsTest, ReleasingModuleWithItemsInFlightIsSafe) {
  TaskThread worker("pl-inflight");
  ASSERT_TRUE(worker.ok());
  Ref<RecordingUnit> unit(new RecordingUnit);
  ProcessModule* m = new ProcessModule;
  m->AddRef();
  StartModule(m, unit.get(), worker.get());
  Hold(worker);
  for (uint32_t i = 0; i < 10; ++i) Deliver(m, i, 0);
  EXPECT_EQ(11u, m->GetReference());  // ours and one per pending drain event
  EXPECT_EQ(10u, m->Release());
  m_release.CountDown();
  ASSERT_TRUE(worker.Flush());
  // Every item was processed on the worker, then the last event took the module away.
  ASSERT_EQ(10u, unit->Count());
  for (const Seen& s : unit->Seen_()) EXPECT_TRUE(IsThreadEqual(worker.id(), s.thread));
  EXPECT_EQ(std::make_pair(static_cast<IProcessModule*>(nullptr), 1u),
            std::make_pair(unit->GetProcessModule(), unit->GetReference()));
}

}  // namespace
