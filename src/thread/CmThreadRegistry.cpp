// The thread registry and ThreadWaiter.

#include "cmutil/thread/CmThreadRegistry.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <list>
#include <mutex>

#include "cmutil/thread/CmEventQueueBase.h"
#include "cmutil/thread/CmThreadWaiter.h"
#include "cmutil/timerqueue/CmTimerQueueBase.h"
#include "cmutil/trace/CmTraceMacros.h"

namespace {
struct Registry {
  CCmMutexThread mutex;
  std::list<ACmThread*> threads CM_GUARDED_BY(mutex);
  /// The list's length, changed under the mutex and read without it, so that traces
  /// can be written before the mutex is taken.
  std::atomic<unsigned long> count{0};
};

// Never destroyed: threads may unregister during static destruction.
Registry& TheRegistry() {
  static Registry* s_registry = new Registry;
  return *s_registry;
}

void TraceRegistration(const char* aWhat, ACmThread* aThread) {
  CM_INFO_TRACE(aWhat << ", thread=" << static_cast<const void*>(aThread)
                      << " tid=" << static_cast<unsigned long>(aThread->GetThreadId()) << " name=" << aThread->GetName()
                      << " type=" << aThread->GetThreadType()
                      << " eventQueue=" << static_cast<const void*>(aThread->GetEventQueue())
                      << " timerQueue=" << static_cast<const void*>(aThread->GetTimerQueue()));
}
}  // namespace

CmResult RegisterThread(ACmThread* aThread) {
  if (!aThread) return CM_ERROR_INVALID_ARG;
  TraceRegistration("RegisterThread", aThread);
  Registry& reg = TheRegistry();
  CCmMutexGuardT<CCmMutexThread> guard(reg.mutex);
  reg.threads.push_back(aThread);
  reg.count.store(reg.threads.size(), std::memory_order_relaxed);
  return CM_OK;
}

CmResult UnRegisterThread(ACmThread* aThread) {
  if (!aThread) return CM_ERROR_INVALID_ARG;
  TraceRegistration("UnRegisterThread", aThread);
  Registry& reg = TheRegistry();
  CCmMutexGuardT<CCmMutexThread> guard(reg.mutex);
  for (auto it = reg.threads.begin(); it != reg.threads.end(); ++it) {
    if (*it == aThread) {
      reg.threads.erase(it);
      reg.count.store(reg.threads.size(), std::memory_order_relaxed);
      return CM_OK;
    }
  }
  return CM_ERROR_NOT_FOUND;
}

ACmThread* GetThread(int aType) {
  Registry& reg = TheRegistry();
  {
    CCmMutexGuardT<CCmMutexThread> guard(reg.mutex);
    CM_THREAD_ID self = pthread_self();
    for (ACmThread* pThread : reg.threads) {
      if (aType == TT_CURRENT_THREAD_QUERY) {
        if (pthread_equal(pThread->GetThreadId(), self)) return pThread;
      } else if (pThread->GetThreadType() == aType) {
        return pThread;
      }
    }
  }
  CM_WARNING_TRACE("GetThread, aType=" << aType);
  return nullptr;
}

ACmThread* GetThreadById(CM_THREAD_ID aThreadId) {
  Registry& reg = TheRegistry();
  CCmMutexGuardT<CCmMutexThread> guard(reg.mutex);
  for (ACmThread* pThread : reg.threads) {
    if (pThread->GetThreadId() == aThreadId) return pThread;
  }
  return nullptr;
}

ACmThread* getCurrentThread() { return GetThreadById(pthread_self()); }

void TPCleanThreadList() {
  Registry& reg = TheRegistry();
  // Traced before the mutex is taken: a trace sink may itself look at the registry.
  CM_INFO_TRACE("CleanThreadList, list size=" << reg.count.load(std::memory_order_relaxed));
  CCmMutexGuardT<CCmMutexThread> guard(reg.mutex);
  for (ACmThread* pThread : reg.threads) pThread->Stop(nullptr);
  reg.threads.clear();
  reg.count.store(0, std::memory_order_relaxed);
}

// ---- ThreadWaiter ----

struct ThreadWaiter::State {
  std::mutex mutex;
  std::condition_variable cond;
  std::atomic<bool> finished{false};
  std::atomic<unsigned int> expected{0};
  std::atomic<unsigned int> count{0};
};

ThreadWaiter::ThreadWaiter(unsigned int aExpected) : m_pState(new State) {
  m_pState->expected.store(aExpected, std::memory_order_relaxed);
}

ThreadWaiter::~ThreadWaiter() { delete m_pState; }

void ThreadWaiter::Finished() {
  if (m_pState->finished.load(std::memory_order_acquire)) return;
  unsigned int n = m_pState->count.fetch_add(1, std::memory_order_acq_rel) + 1;
  if (n == m_pState->expected.load(std::memory_order_relaxed) ||
      (m_pState->expected.load(std::memory_order_relaxed) == 0 && n == 1)) {
    std::lock_guard<std::mutex> lock(m_pState->mutex);
    if (!m_pState->finished.load(std::memory_order_relaxed)) {
      m_pState->finished.store(true, std::memory_order_release);
      m_pState->cond.notify_one();
    }
  }
}

void ThreadWaiter::WaitUntilFinished() {
  std::unique_lock<std::mutex> lock(m_pState->mutex);
  m_pState->cond.wait(lock, [this] { return m_pState->finished.load(std::memory_order_acquire); });
}

bool ThreadWaiter::WaitUntilTimeout(unsigned int aMilliseconds) {
  std::unique_lock<std::mutex> lock(m_pState->mutex);
  auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(aMilliseconds);
  return m_pState->cond.wait_until(lock, deadline,
                                   [this] { return m_pState->finished.load(std::memory_order_acquire); });
}

void ThreadWaiter::Reset(unsigned int aExpected) {
  std::lock_guard<std::mutex> lock(m_pState->mutex);
  m_pState->expected.store(aExpected, std::memory_order_relaxed);
  m_pState->count.store(0, std::memory_order_relaxed);
  m_pState->finished.store(false, std::memory_order_release);
}

bool ThreadWaiter::IsFinished() const { return m_pState->finished.load(std::memory_order_acquire); }
