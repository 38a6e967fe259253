#pragma once
// Shared helpers of the timer tests: a fake wall clock for the timer queues and a
// recording timer handler.

#include <atomic>
#include <cctype>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "base/CmClock.h"
#include "cmutil/base/CmTimeValue.h"
#include "cmutil/timerqueue/CmTimerQueueBase.h"
#include "common/CmTraceCapture.h"

/// Installs the fake clock of the library for its lifetime. The start is aligned to a
/// whole second so that the wheel's 10 ms slots line up with round intervals.
class FakeTimerClock {
 public:
  explicit FakeTimerClock(long startSec = 1700000000L) {
    us() = static_cast<int64_t>(startSec) * 1000000;
    cm_set_clock_for_test(&FakeTimerClock::read);
  }
  ~FakeTimerClock() { cm_set_clock_for_test(nullptr); }
  FakeTimerClock(const FakeTimerClock&) = delete;
  FakeTimerClock& operator=(const FakeTimerClock&) = delete;

  void AdvanceMs(long ms) { us() += static_cast<int64_t>(ms) * 1000; }
  void Set(const CCmTimeValue& t) { us() = static_cast<int64_t>(t.GetSec()) * 1000000 + t.GetUsec(); }
  CCmTimeValue Now() const {
    const int64_t now = us().load();
    return CCmTimeValue(static_cast<long>(now / 1000000), static_cast<long>(now % 1000000));
  }

 private:
  // Read by the threads of a test while the test moves it.
  static std::atomic<int64_t>& us() {
    static std::atomic<int64_t> value{0};
    return value;
  }
  static int64_t read() { return us().load(); }
};

/// One firing as seen by a RecordingHandler.
struct Firing {
  std::string name;
  CCmTimeValue at;
  void* arg;
};

/// Records every OnTimeout into a shared log; an optional action runs inside it.
class RecordingHandler : public ICmTimerHandler {
 public:
  RecordingHandler(std::string name, std::vector<Firing>* log) : m_name(std::move(name)), m_log(log) {}

  void OnTimeout(const CCmTimeValue& aCurTime, void* aArg) override {
    ++m_count;
    if (m_log) m_log->push_back(Firing{m_name, aCurTime, aArg});
    if (m_action) m_action(this);
  }

  template <class F>
  void SetAction(F f) {
    m_action = f;
  }

  int Count() const { return m_count; }
  const std::string& Name() const { return m_name; }

 private:
  std::string m_name;
  std::vector<Firing>* m_log;
  int m_count = 0;
  std::function<void(RecordingHandler*)> m_action;
};

/// Counts observer notices by topic.
class CountingObserver : public ICmObserver {
 public:
  void OnObserve(const char* aTopic, void*) override { topics.push_back(aTopic ? aTopic : ""); }
  int Count(const std::string& topic) const {
    int n = 0;
    for (const auto& t : topics) n += (t == topic);
    return n;
  }
  std::vector<std::string> topics;
};
