// ACmThread: creation, thread entry, join and the agreed deletion.

#include "cmutil/thread/CmThread.h"

#include <climits>

#include "cmutil/base/CmAssert.h"
#include "cmutil/thread/CmEventQueueBase.h"
#include "cmutil/thread/CmThreadPriority.h"
#include "cmutil/thread/CmThreadRegistry.h"
#include "cmutil/timerqueue/CmTimerQueueBase.h"
#include "cmutil/trace/CmTraceMacros.h"
#include "platform/CmPlatform.h"
#include "thread/CmThreadInternal.h"

namespace {
// Entry traces are written for the first 150 calls of each operation only.
const int kEntryTraceCalls = 150;
std::atomic<int> g_createCalls{0};
std::atomic<int> g_joinCalls{0};
std::atomic<int> g_destoryCalls{0};
std::atomic<int> g_terminateCalls{0};

bool FirstCalls(std::atomic<int>& aCounter) {
  return aCounter.fetch_add(1, std::memory_order_relaxed) < kEntryTraceCalls;
}

const int kNoPriority = -1;

// The one rule for "detached", the one Create starts the thread with: the two low flag
// bits are exactly 2. Any other value (0 is stored as 1, and 3 sets both bits) is joinable.
bool FlagIsDetached(TFlag aFlag) { return (aFlag & 3) == TF_DETACHED; }
}  // namespace

ACmThread::ACmThread()
    : m_Tid(0),
      m_Tid2(0),
      m_Type(TT_UNKNOWN),
      m_Flag(TF_NONE),
      m_bStopFlag(false),
      m_pName(nullptr),
      m_pEvent(nullptr),
      m_bRegistered(false),
      m_nPriority(kNoPriority),
      m_nRunState(0),
      m_dwDeleteCount(0),
      m_bLateDelete(false),
      m_lKernelTid(0) {}

ACmThread::~ACmThread() {
  delete m_pName;
  m_pName = nullptr;
  delete m_pEvent;
  m_pEvent = nullptr;
}

const char* ACmThread::GetName() const { return m_pName ? m_pName->c_str() : ""; }

CmResult ACmThread::Create(const char* aName, int aType, TFlag aFlag, bool aRegister) {
  if (FirstCalls(g_createCalls)) {
    CM_INFO_TRACE_THIS("ACmThread::Create, aType=" << aType << ", aFlag=" << aFlag
                                                   << ", Register=" << static_cast<int>(aRegister)
                                                   << ", name=" << (aName ? aName : "(null)"));
  }
  CM_ASSERTE_RETURN(m_Type == TT_UNKNOWN, CM_ERROR_ALREADY_CREATED);

  if (aType == TT_UNKNOWN) CM_WARNING_TRACE_THIS("thread type is TT_UNKNOWN");

  delete m_pName;
  m_pName = new std::string(aName ? aName : "ACmThread");
  m_Type = aType;
  m_Flag = (aFlag == TF_NONE) ? TF_JOINABLE : aFlag;

  if (aType == TT_CURRENT) {
    m_Tid.store(pthread_self(), std::memory_order_release);
    m_Tid2.store(pthread_self(), std::memory_order_release);
    m_lKernelTid.store(cm_platform_gettid(), std::memory_order_release);
    cm_platform_set_thread_name(m_pName->c_str());
  } else {
    {
      CCmMutexGuardT<CCmMutexThread> guard(m_Mutex);
      m_pEvent = new CCmEventThread(false, false, nullptr);
    }
    {
      CCmMutexGuardT<CCmMutexThread> guard(m_StateMutex);
      m_nRunState = 1;
    }
    // The event must be read before the new thread can end (a detached thread may
    // delete this object as soon as its body returns).
    CCmEventThread* pStartEvent = m_pEvent;
    CM_THREAD_ID tid = 0;
    const char* failedCall = "";
    int nErr = cm_platform_thread_create(&tid, FlagIsDetached(m_Flag), &ACmThread::ThreadProc, this, &failedCall);
    if (nErr != 0) {
      CM_ERROR_TRACE_THIS("ACmThread::Create, " << failedCall << " failed! err=" << nErr);
      CCmMutexGuardT<CCmMutexThread> guard(m_Mutex);
      delete m_pEvent;
      m_pEvent = nullptr;
      return CM_ERROR_THREAD_CREATE;
    }
    m_Tid.store(tid, std::memory_order_release);
    m_Tid2.store(tid, std::memory_order_release);
    CM_INFO_TRACE_THIS("ACmThread::Create, thread succeed"
                       << ", m_Tid=" << static_cast<unsigned long>(tid));

    pStartEvent->Wait(nullptr);
    CCmMutexGuardT<CCmMutexThread> guard(m_Mutex);
    delete m_pEvent;
    m_pEvent = nullptr;
  }

  int nPriority = m_nPriority.load(std::memory_order_relaxed);
  if (nPriority != kNoPriority) SetPriority(nPriority);

  m_bRegistered = aRegister;
  if (aRegister) {
    CmResult rv = RegisterThread(this);
    if (rv != CM_OK) {
      Stop(nullptr);
      Join();
      return rv;
    }
  }
  return CM_OK;
}

void* ACmThread::ThreadProc(void* aParam) {
  CM_ASSERTE_RETURN(aParam, nullptr);
  static_cast<ACmThread*>(aParam)->threadProc();
  return nullptr;
}

void ACmThread::threadProc() {
  CM_THREAD_ID self = pthread_self();
  m_Tid.store(self, std::memory_order_release);
  long lKernelTid = cm_platform_gettid();
  m_lKernelTid.store(lKernelTid, std::memory_order_release);
  cm_thread_note_kernel_tid(self, lKernelTid);
  {
    CCmMutexGuardT<CCmMutexThread> guard(m_StateMutex);
    m_nRunState = 2;
  }
  CM_INFO_TRACE_THIS("ACmThread::threadProc begin"
                     << ", GetName()=" << GetName() << ", m_Tid=" << static_cast<unsigned long>(self));
  cm_platform_set_thread_name(GetName());

  OnThreadInit();

  if (m_Type != TT_CURRENT) {
    CCmMutexGuardT<CCmMutexThread> guard(m_Mutex);
    if (m_pEvent) m_pEvent->Signal();
  }

  OnThreadRun();

  cm_thread_forget_kernel_tid(self);
  bool bDelete = false;
  bool bJoinable = false;
  {
    // Everything that touches the object happens under the state mutex, so that a
    // concurrent Destory() cannot delete it underneath.
    CCmMutexGuardT<CCmMutexThread> guard(m_StateMutex);
    bJoinable = !FlagIsDetached(m_Flag);
    if (!bJoinable || m_bLateDelete) {
      bDelete = (m_dwDeleteCount >= 1);
      ++m_dwDeleteCount;
    }
    m_nRunState = 3;
    CM_INFO_TRACE_THIS("ACmThread::threadProc end"
                       << ", GetName()=" << GetName() << ", m_Tid=" << static_cast<unsigned long>(self) << ", ifDelete="
                       << static_cast<int>(bDelete) << ", m_bLateDelete=" << static_cast<int>(m_bLateDelete));
    SetStop();
  }
  if (bDelete) {
    // Nobody can join a thread whose object is gone: let the system reclaim it.
    if (bJoinable) cm_platform_thread_detach(self);
    delete this;
  }
}

CmResult ACmThread::Stop(CCmTimeValue*) { return CM_ERROR_NOT_IMPLEMENTED; }

void ACmThread::OnThreadInit() {}

void* ACmThread::GetReactor() { return nullptr; }

ICmEventQueue* ACmThread::GetEventQueue() { return nullptr; }

ICmTimerQueue* ACmThread::GetTimerQueue() { return nullptr; }

void ACmThread::SetStop() {
  CM_INFO_TRACE_THIS("ACmThread::SetStop");
  m_bStopFlag.store(true, std::memory_order_release);
}

bool ACmThread::GetStopFlag() { return m_bStopFlag.load(std::memory_order_acquire); }

bool ACmThread::IsDetached() { return FlagIsDetached(m_Flag); }

CmResult ACmThread::SetPriority(const int& aPriority) {
  m_nPriority.store(aPriority, std::memory_order_relaxed);
  CM_THREAD_ID tid = GetThreadId();
  if (tid == 0) return CM_OK;  // applied by Create
  return SetThreadPriorityByHandle(tid, aPriority);
}

CmResult ACmThread::GetPriority(int& aPriority) {
  aPriority = m_nPriority.load(std::memory_order_relaxed);
  return CM_OK;
}

CmResult ACmThread::Join() {
  if (FirstCalls(g_joinCalls)) CM_INFO_TRACE_THIS("ACmThread::Join, name=" << GetName());

  CM_THREAD_ID tid = GetThreadId();
  if (tid != 0 && pthread_equal(tid, pthread_self())) return CM_ERROR_FAILURE;
  if (tid == 0 || FlagIsDetached(m_Flag) || m_Type == TT_CURRENT) return CM_OK;

  int nErr = cm_platform_thread_join(tid);
  if (nErr == 0) {
    m_Tid.store(0, std::memory_order_release);
    m_Tid2.store(0, std::memory_order_release);
  } else {
    CM_ERROR_TRACE_THIS("ACmThread::Join, pthread_join() failed! err=" << nErr);
  }
  while (!GetStopFlag()) {
    cm_platform_sleep_ms(50);
  }
  CM_INFO_TRACE_THIS("ACmThread::Join, GetStopFlag()=" << static_cast<int>(GetStopFlag()));
  return CM_OK;
}

CmResult ACmThread::Destory(int aReason) {
  if (FirstCalls(g_destoryCalls))
    CM_INFO_TRACE_THIS("ACmThread::Destory, aReason=" << aReason << ", name=" << GetName());

  if (m_bRegistered) {
    m_bRegistered = false;
    UnRegisterThread(this);
  }
  bool bDelete = true;
  {
    CCmMutexGuardT<CCmMutexThread> guard(m_StateMutex);
    if (FlagIsDetached(m_Flag) || m_bLateDelete) {
      bDelete = (m_dwDeleteCount >= 1);
      ++m_dwDeleteCount;
    }
  }
  if (bDelete) {
    // A late-delete thread that ended without being joined: release its system thread.
    CM_THREAD_ID tid = GetThreadId();
    if (m_bLateDelete && tid != 0 && m_Type != TT_CURRENT && !FlagIsDetached(m_Flag)) cm_platform_thread_detach(tid);
    delete this;
  }
  return CM_OK;
}

CmResult ACmThread::Terminate() {
  if (FirstCalls(g_terminateCalls)) CM_INFO_TRACE_THIS("ACmThread::Terminate, name=" << GetName());
  m_nPriority.store(INT_MAX, std::memory_order_relaxed);
  CM_THREAD_ID tid = GetThreadId();
  if (tid != 0 && m_Type != TT_CURRENT) pthread_cancel(tid);
  SetStop();
  return CM_OK;
}
