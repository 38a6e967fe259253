// Thread priorities and policies.

#include <gtest/gtest.h>

#include <linux/capability.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <future>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "cmutil/thread/CmThreadPriority.h"
#include "common/CmTraceCapture.h"

namespace {

TEST(CmThreadPriorityTest, TextsAndPercentages) {
  using Texts = std::vector<std::string>;
  EXPECT_EQ(
      (Texts{"Lowest", "TimeCritical", "Unknown", "Unknown", "UserInteractive", "Background", "Unknown"}),
      (Texts{ThreadPriorityToString(0), ThreadPriorityToString(5), ThreadPriorityToString(9),
             ThreadPriorityToString(-1), ThreadPolicyToString(0), ThreadPolicyToString(4), ThreadPolicyToString(5)}));
  EXPECT_EQ((std::vector<int>{0, 25, 90, 50}),
            (std::vector<int>{ThreadPriorityToNative(0), ThreadPriorityToNative(1), ThreadPriorityToNative(4),
                              ThreadPriorityToNative(9)}));
  const int kNiceOfPercent[][2] = {{-5, 19}, {0, 19}, {50, 0}, {99, -19}, {100, -20}, {150, -20}};
  for (const auto& row : kNiceOfPercent) EXPECT_EQ(row[1], ThreadPriorityPercentToNice(row[0])) << row[0];
}

// A nice value set from outside reads back as the nearest portable priority: -14 is 85 %.
TEST(CmThreadPriorityTest, NiceValueReadsAsTheNearestPriority) {
  KelThreadPriority read = KEL_THREAD_PRIORITY_LOWEST;
  int err = 0;
  std::thread t([&] {
    if (setpriority(PRIO_PROCESS, static_cast<id_t>(syscall(SYS_gettid)), -14) != 0) err = errno;
    GetCurrentThreadPriority(read);
  });
  t.join();
  if (err != 0) GTEST_SKIP() << "raising the priority is not permitted here, errno " << err;
  EXPECT_EQ(KEL_THREAD_PRIORITY_HIGHEST, read);
}

// Under the default policy the scheduler range is 0..0, so the portable priority goes
// through the nice value, with its trace. A thread the library did not start has no
// kernel id on record: setting its priority from outside fails rather than renicing
// some other thread.
TEST(CmThreadPriorityTest, DefaultPolicyFallsBackToNiceValue) {
  CmTraceCapture cap;
  CmResult rv = CM_ERROR_GENERIC;
  std::promise<void> release;
  std::thread t([&rv, done = release.get_future()] {
    rv = SetCurrentThreadPriority(KEL_THREAD_PRIORITY_BELOW_NORMAL);
    done.wait();
  });
  EXPECT_EQ(CM_ERROR_FAILURE, SetThreadPriorityByHandle(t.native_handle(), KEL_THREAD_PRIORITY_NORMAL));
  EXPECT_TRUE(cap.contains(0, "_SetNicePriority: Cannot get kernel thread ID"));
  release.set_value();
  t.join();
  EXPECT_EQ(CM_OK, rv);
  EXPECT_TRUE(cap.contains(2, "_SetPosixThreadPriorityImpl: Falling back to nice value"));
  EXPECT_TRUE(cap.contains(2, "_SetNicePriority: tid="));
}

// Under a real-time policy the raw priority is the scheduler's own: set, then read back.
TEST(CmThreadPriorityTest, RawPriorityUnderARealTimePolicyReadsBack) {
  int err = 0, read = -1, max = -1;
  CmResult set = CM_ERROR_FAILURE;
  std::thread t([&] {
    sched_param param{};
    param.sched_priority = 1;
    err = pthread_setschedparam(pthread_self(), SCHED_FIFO, &param);
    if (err != 0) return;
    set = SetCurrentThreadPriorityRaw(7);
    GetCurrentThreadPriorityRaw(read);
    max = GetThreadPriorityMax();  // the range of the thread's own policy
  });
  t.join();
  if (err != 0) GTEST_SKIP() << "real-time scheduling is not permitted here, error " << err;
  EXPECT_EQ(std::make_tuple(CM_OK, 7, sched_get_priority_max(SCHED_FIFO)), std::make_tuple(set, read, max));
}

// Raising the priority without the right to do so fails, after the nice fallback tried.
TEST(CmThreadPriorityTest, RaisingWithoutTheRightFailsWithTrace) {
  struct rlimit limit;
  if (getrlimit(RLIMIT_NICE, &limit) == 0 && limit.rlim_cur >= 40)
    GTEST_SKIP() << "RLIMIT_NICE lets this process raise priority anyway";
  CmTraceCapture cap;
  bool dropped = false;
  CmResult rv = CM_OK;
  std::thread t([&] {
    // Drops the right to raise priority from this thread's effective capabilities
    // (capabilities are per thread on Linux).
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct data[2] = {};
    if (syscall(SYS_capget, &header, data) != 0) return;
    data[CAP_SYS_NICE / 32].effective &= ~(1u << (CAP_SYS_NICE % 32));
    dropped = syscall(SYS_capset, &header, data) == 0;
    if (dropped) rv = SetCurrentThreadPriority(KEL_THREAD_PRIORITY_TIME_CRITICAL);
  });
  t.join();
  if (!dropped) GTEST_SKIP() << "cannot drop the right to raise priority here";
  EXPECT_EQ(CM_ERROR_FAILURE, rv);
  EXPECT_TRUE(cap.contains(2, "_SetPosixThreadPriorityImpl: Falling back to nice value"));
  EXPECT_TRUE(cap.contains(1, "_SetNicePriority: setpriority failed, error="));
}

}  // namespace
