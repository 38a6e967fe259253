// Two threads schedule, reschedule and cancel handles bound to one task thread at
// random; no callback may arrive after a cancel has returned.

#include <gtest/gtest.h>

#include <atomic>
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
  CCmTimerWrapperID handle;
  std::atomic<bool> live{false};
  std::atomic<int> violations{0};
  std::atomic<int> fired{0};
};

TEST(TimerStress, RandomScheduleCancelRescheduleFromTwoThreads) {
  TaskThread owner("t-stress", true, 1201);
  constexpr int kSlots = 64;
  constexpr int kOpsPerDriver = 5000;
  std::vector<std::unique_ptr<StressSlot>> slots;
  for (int i = 0; i < kSlots; ++i) slots.emplace_back(new StressSlot);

  std::atomic<int> cancels{0}, schedules{0};
  auto driver = [&](unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_int_distribution<int> pick(0, kSlots - 1), op(0, 9), ms(1, 4), count(0, 3);
    for (int i = 0; i < kOpsPerDriver; ++i) {
      StressSlot& s = *slots[pick(rng)];
      std::lock_guard<std::mutex> lock(s.opMutex);
      if (op(rng) < 4) {
        const CmResult rv = s.handle.Cancel();
        // Foreign once bound; unbound (scheduling event still queued) it is 0x46000001.
        EXPECT_TRUE(rv == CM_ERROR_NULL_POINTER || rv == CM_ERROR_NOT_FOUND || rv == CM_ERROR_GENERIC) << rv;
        s.live = false;  // from here on the sink must stay silent
        cancels.fetch_add(1);
      } else {
        // A schedule on a pending handle reschedules it (same thread, same ref).
        s.live = true;
        const CmResult rv = s.handle.ScheduleInThread(owner.get(), &s, CCmTimeValue(0L, ms(rng) * 1000L), count(rng));
        EXPECT_EQ(CM_OK, rv);
        schedules.fetch_add(1);
      }
      if (i % 50 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  };
  std::thread first(driver, 11u), second(driver, 22u);
  first.join();
  second.join();

  for (auto& s : slots) {
    std::lock_guard<std::mutex> lock(s->opMutex);
    s->handle.Cancel();
    s->live = false;
  }
  EXPECT_EQ(CM_OK, owner.Run([] {}));
  std::this_thread::sleep_for(std::chrono::milliseconds(20));

  int violations = 0, fired = 0;
  for (auto& s : slots) {
    violations += s->violations.load();
    fired += s->fired.load();
  }
  EXPECT_EQ(0, violations);
  EXPECT_GT(fired, 0);
  EXPECT_EQ(2 * kOpsPerDriver, cancels.load() + schedules.load());
}

}  // namespace
