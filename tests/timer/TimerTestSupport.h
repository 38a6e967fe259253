#pragma once
// Shared helpers of the timer tests: the fake clock and a recording timer handler.

#include <algorithm>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "cmutil/base/CmTimeValue.h"
#include "cmutil/timerqueue/CmTimerQueueBase.h"
#include "common/CmFakeClock.h"

inline CCmTimeValue Ms(long ms) { return CCmTimeValue(ms / 1000, (ms % 1000) * 1000); }

/// One firing as seen by a RecordingHandler.
struct Firing {
  std::string name;
  CCmTimeValue at;
  void* arg;
};

/// The handler names of a firing log, in firing order.
inline std::vector<std::string> NamesOf(const std::vector<Firing>& log) {
  std::vector<std::string> names;
  for (const Firing& f : log) names.push_back(f.name);
  return names;
}

/// Records every OnTimeout into a shared log; an optional action runs inside it.
class RecordingHandler : public ICmTimerHandler {
 public:
  RecordingHandler(std::string name, std::vector<Firing>* log) : m_name(std::move(name)), m_log(log) {}

  void OnTimeout(const CCmTimeValue& aCurTime, void* aArg) override {
    ++m_count;
    if (m_log) m_log->push_back(Firing{m_name, aCurTime, aArg});
    if (m_action) m_action(this);
  }

  void SetAction(std::function<void(RecordingHandler*)> f) { m_action = std::move(f); }

  int Count() const { return m_count; }

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
    return static_cast<int>(std::count(topics.begin(), topics.end(), topic));
  }
  std::vector<std::string> topics;
};
