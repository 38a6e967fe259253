// Two threads schedule, reschedule, cancel and destroy handles bound to one task thread
// at random, from their own threads and on the owning thread, over each queue type; no
// callback may arrive after a cancel has returned.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

#include "TimerThreadSupport.h"

namespace {

struct StressSlot : CCmTimerWrapperIDSink {
  void OnTimer(CCmTimerWrapperID*) override {
    if (!live.load()) violations.fetch_add(1);
    fired.fetch_add(1);
  }

  std::mutex opMutex;  // serialises this handle's operations between the two drivers
  std::unique_ptr<CCmTimerWrapperID> handle{new CCmTimerWrapperID};
  std::atomic<bool> live{false};
  std::atomic<int> violations{0};
  std::atomic<int> fired{0};
};

using TimerStressOnQueueType = OnTimerQueueType;

// Operations from the two drivers: foreign Schedule/Cancel/destroy, and the same run
// on the owning thread itself (carried there synchronously), on 64 handles.
TEST_P(TimerStressOnQueueType, RandomScheduleCancelRescheduleFromTwoThreads) {
  TaskThread owner("t-stress", true, 1201);
  constexpr int kSlots = 64;
  constexpr int kOpsPerDriver = 5000;
  std::vector<StressSlot> slots(kSlots);  // built in place, never moved

  std::atomic<int> cancels{0}, schedules{0}, destroys{0}, ownThread{0};
  auto driver = [&](unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_int_distribution<int> pick(0, kSlots - 1), op(0, 11), ms(1, 4), count(0, 3);
    for (int i = 0; i < kOpsPerDriver; ++i) {
      StressSlot& s = slots[pick(rng)];
      std::lock_guard<std::mutex> lock(s.opMutex);
      const int what = op(rng);
      const CCmTimeValue interval(0L, ms(rng) * 1000L);
      const unsigned int n = static_cast<unsigned int>(count(rng));
      if (what < 3) {
        const CmResult rv = s.handle->Cancel();
        // Foreign once bound; unbound (scheduling event still queued) it is 0x46000001.
        EXPECT_TRUE(rv == CM_ERROR_NULL_POINTER || rv == CM_ERROR_NOT_FOUND || rv == CM_ERROR_GENERIC) << rv;
        s.live = false;  // from here on the sink must stay silent
        cancels.fetch_add(1);
      } else if (what == 3) {
        s.handle.reset(new CCmTimerWrapperID);  // destroyed on this foreign thread
        s.live = false;
        destroys.fetch_add(1);
      } else if (what < 7) {
        CmResult rv = -1;
        ASSERT_EQ(CM_OK, owner.Run([&] {
          if (what == 4) {
            rv = s.handle->Cancel();
            EXPECT_TRUE(rv == CM_OK || rv == CM_ERROR_NOT_FOUND) << rv;
            s.live = false;
          } else if (what == 5) {
            s.handle.reset(new CCmTimerWrapperID);  // destroyed on the owning thread
            s.live = false;
          } else {
            s.live = true;
            rv = s.handle->Schedule(&s, interval, n);
            EXPECT_TRUE(rv == CM_OK || rv == CM_ERROR_FOUND) << rv;
          }
        }));
        ownThread.fetch_add(1);
      } else {
        // A schedule on a pending handle reschedules it (same thread, same ref).
        s.live = true;
        EXPECT_EQ(CM_OK, s.handle->ScheduleInThread(owner.get(), &s, interval, n));
        schedules.fetch_add(1);
      }
      if (i % 50 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  };
  std::thread first(driver, 11u), second(driver, 22u);
  first.join();
  second.join();

  for (auto& s : slots) {
    std::lock_guard<std::mutex> lock(s.opMutex);
    s.handle->Cancel();
    s.live = false;
  }
  EXPECT_EQ(CM_OK, owner.Run([] {}));
  std::this_thread::sleep_for(std::chrono::milliseconds(20));

  int violations = 0, fired = 0;
  for (auto& s : slots) {
    violations += s.violations.load();
    fired += s.fired.load();
  }
  EXPECT_EQ(0, violations);
  EXPECT_GT(fired, 0);
  EXPECT_GT(destroys.load(), 0);
  EXPECT_GT(ownThread.load(), 0);
  EXPECT_EQ(2 * kOpsPerDriver, cancels.load() + schedules.load() + destroys.load() + ownThread.load());
}

INSTANTIATE_TEST_SUITE_P(QueueTypes, TimerStressOnQueueType, ::testing::Values(1u, 2u, 3u));

}  // namespace

// A cancel from a thread without a timer queue while the owner binds the handle (its
// scheduling event is running right now) must never touch the owner's queue itself,
// and the sink stays silent once the last cancel has returned.
TEST(TimerStress, CancelRacingTheBindingOfAQueuedSchedule) {
  TaskThread owner("t-bindrace", true, 1202);
  struct Sink : CCmTimerWrapperIDSink {
    void OnTimer(CCmTimerWrapperID*) override { fired.fetch_add(1); }
    std::atomic<int> fired{0};
  } sink;
  int unbound = 0, foreign = 0;
  long delayNs = 0;
  for (int i = 0; i < 3000; ++i) {
    CCmTimerWrapperID handle;
    ASSERT_EQ(CM_OK, handle.ScheduleInThread(owner.get(), &sink, CCmTimeValue(0L, 1000L), 0));
    // Home in on the moment of binding: wait a little longer after each cancel that
    // came too early (still unbound), a little shorter after each that came too late.
    const auto until = std::chrono::steady_clock::now() + std::chrono::nanoseconds(delayNs);
    while (std::chrono::steady_clock::now() < until) {
    }
    const CmResult rv = handle.Cancel();
    if (rv == CM_ERROR_GENERIC) {
      ++unbound;
      delayNs += 150 + (i % 7) * 10;
    } else {
      EXPECT_EQ(CM_ERROR_NULL_POINTER, rv);
      ++foreign;
      delayNs = delayNs > 200 ? delayNs - 200 : 0;
    }
  }
  EXPECT_EQ(CM_OK, owner.Run([] {}));  // every scheduling and cancelling event has run
  const int atEnd = sink.fired.load();
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_EQ(atEnd, sink.fired.load());
  EXPECT_EQ(3000, unbound + foreign);
  RecordProperty("unbound", unbound);
  RecordProperty("foreign", foreign);
}
