#pragma once
/// Thread identity helpers, the single-thread owner record and the stop flag.
///
/// - CM_THREAD_ID is the POSIX thread handle; 0 means "no thread".
/// - CCmEnsureSingleThread records an owning thread (handle and name). Its
///   EnsureSingleThread() check is a free hook in this build: it does nothing.
/// - CCmStopFlag: one heap byte, 1 stopped / 0 running, starting stopped. The byte is
///   written with atomic stores so that any thread may read it at any time.

#include <pthread.h>
#include <sys/types.h>

#include <atomic>
#include <cstdint>

#include "cmutil/base/CmExport.h"

typedef pthread_t CM_THREAD_ID;

/// The calling thread's handle.
CM_EXPORT CM_THREAD_ID GetThreadSelfId();
/// The process id.
CM_EXPORT pid_t CmGetProcessID();
/// The system's numeric id of the calling thread (the kernel thread id).
CM_EXPORT uint64_t CmGetThreadID();
CM_EXPORT bool IsThreadEqual(CM_THREAD_ID aLeft, CM_THREAD_ID aRight);
CM_EXPORT bool IsEqualCurrentThread(CM_THREAD_ID aThread);

/// Records the thread that owns an object.
class CM_EXPORT CCmEnsureSingleThread {
 public:
  /// Records the constructing thread.
  CCmEnsureSingleThread();

  /// Check hook for single-thread operations; free of cost, does nothing.
  void EnsureSingleThread() const {}

  /// Records the calling thread again (handle and name).
  void Reset2CurrentThreadInfo();
  /// Replaces the recorded handle only.
  void Reset2ThreadId(CM_THREAD_ID aThreadId) { m_ThreadIdOpen = aThreadId; }

  CM_THREAD_ID GetOwnerThreadId() const { return m_ThreadIdOpen; }
  const char* GetOwnerThreadName() const { return m_szThreadName; }

 protected:
  CM_THREAD_ID m_ThreadIdOpen;
  char m_szThreadName[512];
};

/// Stop state of a loop: starts stopped; owned by one thread, readable from any.
class CM_EXPORT CCmStopFlag : public CCmEnsureSingleThread {
 public:
  CCmStopFlag();
  ~CCmStopFlag();

  CCmStopFlag(const CCmStopFlag&) = delete;
  CCmStopFlag& operator=(const CCmStopFlag&) = delete;

  void SetStartFlag() {
    EnsureSingleThread();
    SetStopFlagWithoutThreadCheck(false);
  }
  void SetStopFlag() {
    EnsureSingleThread();
    SetStopFlagWithoutThreadCheck(true);
  }
  bool IsFlagStopped() const {
    EnsureSingleThread();
    return IsFlagStoppedWithoutThreadCheck();
  }
  bool IsFlagStoppedWithoutThreadCheck() const {
    return m_pbStopped ? m_pbStopped->load(std::memory_order_acquire) != 0 : true;
  }
  void SetStopFlagWithoutThreadCheck(bool aStopped) {
    if (m_pbStopped) m_pbStopped->exchange(aStopped ? 1 : 0, std::memory_order_acq_rel);
  }

 private:
  std::atomic<uint8_t>* m_pbStopped;
};
