// Heartbeat thread: timers and events driven by an outside scheduler.

#include "cmutil/thread/CmThreadHeartBeat.h"

#include <list>

#include "cmutil/timerqueue/CmTimerQueueOnDemand.h"
#include "cmutil/trace/CmTraceMacros.h"

namespace {

/// Counts 1..100 across the process: a delay cut to 1000 ms is traced once per 100 cuts.
std::atomic<unsigned int> g_capTraceCounter{0};

}  // namespace

CCmThreadHeartBeat::CCmThreadHeartBeat() : m_tvLastMark(CCmTimeValue::get_tvMax()), m_pScheduler(nullptr) {}

CCmThreadHeartBeat::~CCmThreadHeartBeat() { m_pTimerQueue.reset(); }

void CCmThreadHeartBeat::SetScheduler(SchedulerCallback aCallback) {
  m_pScheduler.store(aCallback, std::memory_order_release);
}

CCmThreadHeartBeat::SchedulerCallback CCmThreadHeartBeat::GetScheduler() const {
  return m_pScheduler.load(std::memory_order_acquire);
}

void CCmThreadHeartBeat::OnThreadInit() {
  CM_INFO_TRACE_THIS("CCmThreadHeartBeat::OnThreadInit");
  m_pTimerQueue.reset(new CCmTimerQueueOnDemand(this));
  Reset2CurrentThreadInfo();
}

void CCmThreadHeartBeat::OnThreadRun() {
  if (GetScheduler()) {
    CM_ERROR_TRACE_THIS(
        "CCmThreadHeartBeat::OnThreadRun, with scheduler you should never call OnThreadRun it "
        "will be driven by scheduler automatically.");
    return;
  }
  (void)DoHeartBeat();
}

CmResult CCmThreadHeartBeat::Stop(CCmTimeValue*) {
  SetScheduler(nullptr);
  return CM_OK;
}

ICmEventQueue* CCmThreadHeartBeat::GetEventQueue() { return this; }

ICmTimerQueue* CCmThreadHeartBeat::GetTimerQueue() { return m_pTimerQueue.get(); }

CmResult CCmThreadHeartBeat::PostEvent(ICmEvent* aEvent, EPriority aPri, unsigned int* aSizeBefore) {
  const CmResult rv = CCmEventQueueUsingMutex::PostEvent(aEvent, aPri, aSizeBefore);
  if (SchedulerCallback callback = GetScheduler()) callback(0);
  return rv;
}

void CCmThreadHeartBeat::OnObserve(const char*, void*) {
  if (SchedulerCallback callback = GetScheduler()) callback(10);
}

CmResult CCmThreadHeartBeat::DoHeartBeat() {
  CCmTimeValue next = CCmTimeValue::get_tvMax();
  CCmTimeValue mark = CCmTimeValue::get_tvMax();
  if (m_pTimerQueue) m_pTimerQueue->CheckExpire(&next, &mark);

  std::list<ICmEvent*> events;
  if (PopPendingEvents(events, 0xFFFFFFFFu, nullptr) == CM_OK) {
    if (ProcessEvents(events) == CM_ERROR_ABORTED) return CM_ERROR_ABORTED;
  }

  SchedulerCallback callback = GetScheduler();
  if (callback && mark != m_tvLastMark) {
    if (next != CCmTimeValue::get_tvMax()) {
      long long delay = next.GetTotalInMsec();
      delay = delay < 6 ? 10 : delay + 5;
      if (delay >= 1001) {
        const unsigned int n = g_capTraceCounter.fetch_add(1, std::memory_order_relaxed) % 100;
        if (n == 0) CM_INFO_TRACE_THIS("CCmThreadHeartBeat::DoHeartBeat schedule in ms =" << delay);
        delay = 1000;
      }
      callback(static_cast<unsigned int>(delay));
    } else {
      callback(200);
    }
  } else if (callback) {
    callback(200);
  }
  m_tvLastMark = mark;
  return CM_OK;
}
