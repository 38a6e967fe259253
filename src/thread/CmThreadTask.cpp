// The task threads' event loops.

#include "cmutil/thread/CmThreadTask.h"

#include "cmutil/trace/CmTraceMacros.h"

namespace {
const unsigned int kEventsPerPass = 5;
const unsigned int kAllEvents = 0xFFFFFFFFu;
}  // namespace

CCmThreadTaskWithEventQueueOnly::CCmThreadTaskWithEventQueueOnly() {}

CCmThreadTaskWithEventQueueOnly::~CCmThreadTaskWithEventQueueOnly() {}

CmResult CCmThreadTaskWithEventQueueOnly::Stop(CCmTimeValue*) {
  CM_INFO_TRACE_THIS("CCmThreadTaskWithEventQueueOnly::Stop");
  CmResult rv = CCmEventStopT<CCmThreadTaskWithEventQueueOnly>::PostStopEvent(this);
  m_EventQueue.Stop();
  return rv;
}

void CCmThreadTaskWithEventQueueOnly::OnThreadInit() {
  m_EventQueue.Reset2CurrentThreadInfo();
  m_Stop.Reset2CurrentThreadInfo();
  m_Stop.SetStartFlag();
}

void CCmThreadTaskWithEventQueueOnly::OnThreadRun() {
  CM_INFO_TRACE_THIS("CCmThreadTaskWithEventQueueOnly::OnThreadRun");
  while (!m_Stop.IsFlagStopped()) m_EventQueue.WaitAndProcessEvents(nullptr, kAllEvents);
  m_EventQueue.DestoryPendingEvents();
}

ICmEventQueue* CCmThreadTaskWithEventQueueOnly::GetEventQueue() { return &m_EventQueue; }

CCmThreadTask::CCmThreadTask() : m_pTimerQueue(nullptr) {}

CCmThreadTask::~CCmThreadTask() {
  delete m_pTimerQueue;
  m_pTimerQueue = nullptr;
}

void CCmThreadTask::OnThreadInit() {
  m_pTimerQueue = CCmTimerQueueBase::CreateTimerQueue(nullptr, 0);
  CCmThreadTaskWithEventQueueOnly::OnThreadInit();
}

void CCmThreadTask::OnThreadRun() {
  CM_INFO_TRACE_THIS("CCmThreadTask::OnThreadRun, Begin. name=" << GetName());
  while (!m_Stop.IsFlagStopped()) {
    CCmTimeValue tvWait = CCmTimeValue::get_tvMax();
    // Once the queue is stopped, timers are no longer served: a timer cancel posted from
    // another thread is refused from then on, so its handler may already be gone. The
    // events posted before the stop still run, up to the stop event.
    if (m_pTimerQueue && !m_EventQueue.IsStopped()) m_pTimerQueue->CheckExpire(&tvWait);
    CCmTimeValue* pWait = (tvWait == CCmTimeValue::get_tvMax()) ? nullptr : &tvWait;
    m_EventQueue.WaitAndProcessEvents(pWait, kEventsPerPass);
  }
  m_EventQueue.DestoryPendingEvents();
  CM_INFO_TRACE_THIS("CCmThreadTask::OnThreadRun, End. name=" << GetName());
}

ICmTimerQueue* CCmThreadTask::GetTimerQueue() { return m_pTimerQueue; }

void CCmThreadTask::SleepMsWithLoop(unsigned int aMs) {
  long lEnd = CCmTimeValue::GetTimeOfDay().GetTotalInMsec() + static_cast<long>(aMs);
  for (;;) {
    long lNow = CCmTimeValue::GetTimeOfDay().GetTotalInMsec();
    if (lNow >= lEnd) break;
    CCmTimeValue tvWait;
    tvWait.SetByTotalMsec(lEnd - lNow);
    m_EventQueue.WaitAndProcessEvents(&tvWait, kEventsPerPass);
  }
  m_EventQueue.DestoryPendingEvents();
}
