#pragma once
// Helpers of the thread tests: events that record what happened to them.

#include <atomic>
#include <functional>
#include <mutex>
#include <utility>
#include <vector>

#include "cmutil/thread/CmEventQueueBase.h"

/// Shared record of fired and destroyed events, by id.
struct EventLog {
  std::mutex mutex;
  std::vector<int> fired;
  std::vector<int> destroyed;

  std::vector<int> Fired() {
    std::lock_guard<std::mutex> lock(mutex);
    return fired;
  }
  std::vector<int> Destroyed() {
    std::lock_guard<std::mutex> lock(mutex);
    return destroyed;
  }
};

/// Logs its firing and its destruction; an optional action runs when fired.
class LoggingEvent : public ICmEvent {
 public:
  LoggingEvent(EventLog* log, int id, CmResult result = CM_OK, std::function<void()> action = nullptr)
      : m_log(log), m_id(id), m_result(result), m_action(std::move(action)) {}
  CmResult OnEventFire() override {
    {
      std::lock_guard<std::mutex> lock(m_log->mutex);
      m_log->fired.push_back(m_id);
    }
    if (m_action) m_action();
    return m_result;
  }
  void OnDestorySelf() override {
    {
      std::lock_guard<std::mutex> lock(m_log->mutex);
      m_log->destroyed.push_back(m_id);
    }
    delete this;
  }

 private:
  EventLog* m_log;
  int m_id;
  CmResult m_result;
  std::function<void()> m_action;
};
