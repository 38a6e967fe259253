// Thread identity helpers, owner record and stop flag.

#include "cmutil/base/CmThreadMisc.h"

#include "platform/CmPlatform.h"

CM_THREAD_ID GetThreadSelfId() { return pthread_self(); }

pid_t CmGetProcessID() { return cm_platform_getpid(); }

uint64_t CmGetThreadID() { return static_cast<uint64_t>(cm_platform_gettid()); }

bool IsThreadEqual(CM_THREAD_ID aLeft, CM_THREAD_ID aRight) { return pthread_equal(aLeft, aRight) != 0; }

bool IsEqualCurrentThread(CM_THREAD_ID aThread) { return pthread_equal(aThread, pthread_self()) != 0; }

CCmEnsureSingleThread::CCmEnsureSingleThread() { Reset2CurrentThreadInfo(); }

void CCmEnsureSingleThread::Reset2CurrentThreadInfo() {
  m_ThreadIdOpen = pthread_self();
  cm_platform_get_thread_name(m_szThreadName, sizeof(m_szThreadName));
}

CCmStopFlag::CCmStopFlag() : m_pbStopped(new std::atomic<uint8_t>(1)) {}

CCmStopFlag::~CCmStopFlag() {
  delete m_pbStopped;
  m_pbStopped = nullptr;
}
