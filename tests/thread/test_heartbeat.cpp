// The heartbeat thread: delays asked of the outside scheduler, events and Stop.

#include <gtest/gtest.h>

#include <mutex>
#include <utility>
#include <vector>

#include "cmutil/thread/CmThreadHeartBeat.h"
#include "common/CmTraceCapture.h"
#include "timer/TimerTestSupport.h"

namespace {

std::mutex g_delaysMutex;
std::vector<unsigned int> g_delays;

void RecordDelay(unsigned int ms) {
  std::lock_guard<std::mutex> lock(g_delaysMutex);
  g_delays.push_back(ms);
}

std::vector<unsigned int> TakeDelays() {
  std::lock_guard<std::mutex> lock(g_delaysMutex);
  return std::exchange(g_delays, {});
}

class HeartBeatTest : public ::testing::Test {
 protected:
  HeartBeatTest() : hb(new CCmThreadHeartBeat) {
    EXPECT_EQ(CM_OK, hb->Create("hb-test", 0, TF_JOINABLE, false));
    hb->OnThreadInit();
    hb->SetScheduler(&RecordDelay);
    TakeDelays();
  }
  ~HeartBeatTest() override {
    hb->Stop(nullptr);
    hb->Destory(0);  // the next test's set-up empties the delays
  }

  // One heartbeat; returns the delays it asked for.
  std::vector<unsigned int> Beat() {
    EXPECT_EQ(CM_OK, hb->DoHeartBeat());
    return TakeDelays();
  }

  unsigned int DelayAfterTimer(long ms) {
    RecordingHandler h("h", nullptr);
    EXPECT_EQ(CM_OK, hb->GetTimerQueue()->ScheduleTimer(&h, nullptr, Ms(ms), 1));
    TakeDelays();
    const auto delays = Beat();
    EXPECT_EQ(CM_OK, hb->GetTimerQueue()->CancelTimer(&h));
    return delays.size() == 1 ? delays[0] : 0xFFFFFFFFu;
  }

  CmFakeClock clock;
  CCmThreadHeartBeat* hb;
};

TEST_F(HeartBeatTest, DelayFollowsTheNextTimer) {
  // Under 6 ms: a 10 ms floor; else 5 ms slack; capped at one second from 1001 on.
  const struct {
    long timerMs;
    unsigned int askedMs;
  } cases[] = {{3, 10}, {5, 10}, {6, 11}, {40, 45}, {994, 999}, {995, 1000}, {996, 1000}, {5000, 1000}};
  for (const auto& c : cases) {
    clock.AdvanceMs(1);  // a new earliest each time
    EXPECT_EQ(c.askedMs, DelayAfterTimer(c.timerMs)) << c.timerMs;
  }
}

TEST_F(HeartBeatTest, NoTimerOrNoChangeAsksFor200AndPostAsksForZero) {
  EXPECT_EQ(std::vector<unsigned int>{200u}, Beat());
  RecordingHandler h("h", nullptr);
  ASSERT_EQ(CM_OK, hb->GetTimerQueue()->ScheduleTimer(&h, nullptr, Ms(100), 1));
  // A timer landing in an empty queue, then the on-demand notice: 10 ms each.
  EXPECT_EQ((std::vector<unsigned int>{10u, 10u}), TakeDelays());
  EXPECT_EQ(std::vector<unsigned int>{105u}, Beat());
  clock.AdvanceMs(30);
  EXPECT_EQ(std::vector<unsigned int>{200u}, Beat());  // same earliest as before
  clock.AdvanceMs(70);
  EXPECT_EQ(std::vector<unsigned int>{200u}, Beat());  // the timer fired: queue now empty
  EXPECT_EQ(1, h.Count());
  // A post asks for a beat at once, and that beat runs the event.
  int fired = 0;
  EXPECT_EQ(CM_OK, hb->GetEventQueue()->PostEvent(CmNewInvokeEvent([&fired] { ++fired; })));
  EXPECT_EQ(std::make_pair(std::vector<unsigned int>{0u}, 0), std::make_pair(TakeDelays(), fired));
  EXPECT_EQ(CM_OK, hb->DoHeartBeat());
  EXPECT_EQ(1, fired);
}

}  // namespace
