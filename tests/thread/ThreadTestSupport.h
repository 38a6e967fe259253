#pragma once
// Helpers of the thread tests: events that record what happened to them.

#include <functional>
#include <mutex>
#include <utility>
#include <vector>

#include "cmutil/thread/CmEventQueueBase.h"

/// Ids of the fired events and of the destroyed ones, compared in one check.
using IdLists = std::pair<std::vector<int>, std::vector<int>>;

/// Shared record of fired and destroyed events, by id.
struct EventLog {
  std::mutex mutex;
  std::vector<int> fired;
  std::vector<int> destroyed;

  void Add(std::vector<int>& list, int id) {
    std::lock_guard<std::mutex> lock(mutex);
    list.push_back(id);
  }
  std::vector<int> Fired() { return Both().first; }
  std::vector<int> Destroyed() { return Both().second; }
  IdLists Both() {
    std::lock_guard<std::mutex> lock(mutex);
    return {fired, destroyed};
  }
};

/// Logs its firing and its destruction; an optional action runs when fired.
class LoggingEvent : public ICmEvent {
 public:
  LoggingEvent(EventLog* log, int id, CmResult result = CM_OK, std::function<void()> action = nullptr)
      : m_log(log), m_id(id), m_result(result), m_action(std::move(action)) {}
  CmResult OnEventFire() override {
    m_log->Add(m_log->fired, m_id);
    if (m_action) m_action();
    return m_result;
  }
  void OnDestorySelf() override {
    m_log->Add(m_log->destroyed, m_id);
    delete this;
  }

 private:
  EventLog* m_log;
  int m_id;
  CmResult m_result;
  std::function<void()> m_action;
};
