// Task-thread factory and shared task threads.

#include "cmutil/thread/CmThreadSingletonFactory.h"

#include <map>
#include <new>
#include <string>

#include "cmutil/thread/CmThreadTask.h"
#include "cmutil/trace/CmTraceMacros.h"

std::atomic<PFN_CreateUserTaskThread> p_CreateUserTaskThread{&do_CreateUserTaskThread};

CmResult do_CreateUserTaskThread(const char* aName, ACmThread*& aThread, TFlag aFlag, bool aWithTimerQueue,
                                 TType aType) {
  ACmThread* pThread = nullptr;
  if (aWithTimerQueue)
    pThread = new CCmThreadTask;
  else
    pThread = new CCmThreadTaskWithEventQueueOnly;
  CmResult rv = pThread->Create(aName, aType, aFlag, true);
  if (rv != CM_OK) {
    pThread->Destory(rv);
    return rv;
  }
  aThread = pThread;
  return CM_OK;
}

CmResult CreateUserTaskThread(const char* aName, ACmThread*& aThread, TFlag aFlag, bool aWithTimerQueue, TType aType) {
  PFN_CreateUserTaskThread fn = p_CreateUserTaskThread.load(std::memory_order_acquire);
  return fn(aName, aThread, aFlag, aWithTimerQueue, aType);
}

PFN_CreateUserTaskThread setCreateUserTaskThread(PFN_CreateUserTaskThread aFunc) {
  if (!aFunc) aFunc = &do_CreateUserTaskThread;
  return p_CreateUserTaskThread.exchange(aFunc, std::memory_order_acq_rel);
}

struct ACmThreadSingletonFactory::Impl {
  struct Entry {
    ACmThread* thread;
    uint32_t count;
  };
  CCmMutexThread mutex;
  std::map<std::string, Entry> threads CM_GUARDED_BY(mutex);
};

ACmThreadSingletonFactory* ACmThreadSingletonFactory::Instance() {
  // Never destroyed: shared threads may be released during static destruction.
  static ACmThreadSingletonFactory* s_instance = new ACmThreadSingletonFactory;
  return s_instance;
}

ACmThreadSingletonFactory::ACmThreadSingletonFactory() : m_pImpl(new (std::nothrow) Impl) {}

ACmThreadSingletonFactory::~ACmThreadSingletonFactory() { delete m_pImpl; }

CmResult ACmThreadSingletonFactory::GetSingletonThread(const char* aName, ACmThread*& aThread) {
  if (!aName) return CM_ERROR_INVALID_ARG;
  if (!m_pImpl) return CM_ERROR_OUT_OF_MEMORY;

  CCmMutexGuardT<CCmMutexThread> guard(m_pImpl->mutex);
  auto it = m_pImpl->threads.find(aName);
  if (it != m_pImpl->threads.end()) {
    aThread = it->second.thread;
    ++it->second.count;
    return CM_OK;
  }
  CmResult rv = CreateUserTaskThread(aName, aThread, TF_JOINABLE, true, TT_UNKNOWN);
  if (rv == CM_OK && aThread) m_pImpl->threads[aName] = Impl::Entry{aThread, 1};
  return rv;
}

void ACmThreadSingletonFactory::ResleseSingletonThread(const char* aName, ACmThread* aThread) {
  if (!aName || !aThread || !m_pImpl) return;
  CM_INFO_TRACE("ACmThreadSingletonFactory::ResleseSingletonThread, enter"
                << ", pThreadName=" << aName << ", (void*)aThread=" << static_cast<const void*>(aThread));
  {
    CCmMutexGuardT<CCmMutexThread> guard(m_pImpl->mutex);
    auto it = m_pImpl->threads.find(aName);
    if (it != m_pImpl->threads.end() && it->second.thread == aThread) {
      if (--it->second.count == 0) {
        aThread->Stop(nullptr);
        aThread->Join();
        aThread->Destory(0);
        m_pImpl->threads.erase(it);
      }
    }
  }
  CM_INFO_TRACE("ACmThreadSingletonFactory::ResleseSingletonThread, leave");
}
