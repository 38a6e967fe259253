// Thread priorities (scheduler range, then the per-thread nice value) and policies.

#include "cmutil/thread/CmThreadPriority.h"

#include <errno.h>
#include <pthread.h>

#include <map>
#include <mutex>

#include "cmutil/trace/CmTraceMacros.h"
#include "platform/CmPlatform.h"
#include "thread/CmThreadInternal.h"

namespace {
std::mutex& KernelTidMutex() {
  static std::mutex* s_mutex = new std::mutex;
  return *s_mutex;
}
std::map<CM_THREAD_ID, long>& KernelTids() {
  static std::map<CM_THREAD_ID, long>* s_map = new std::map<CM_THREAD_ID, long>;
  return *s_map;
}

CmResult SetNicePriority(CM_THREAD_ID aThread, int aPercent) {
  long tid = cm_thread_lookup_kernel_tid(aThread);
  if (tid == 0) {
    CM_ERROR_TRACE("_SetNicePriority: Cannot get kernel thread ID");
    return CM_ERROR_FAILURE;
  }
  int nice = ThreadPriorityPercentToNice(aPercent);
  int nErr = cm_platform_set_thread_nice(tid, nice);
  if (nErr != 0) {
    CM_WARNING_TRACE("_SetNicePriority: setpriority failed, error=" << nErr << ", tid=" << tid << ", nice=" << nice);
    return CM_ERROR_FAILURE;
  }
  CM_INFO_TRACE("_SetNicePriority: tid=" << tid << " nice=" << nice);
  return CM_OK;
}

CmResult SetRawImpl(CM_THREAD_ID aThread, int aPriority) {
  int policy = 0;
  int nOld = 0;
  if (cm_platform_get_sched(aThread, &policy, &nOld) != 0) {
    CM_ERROR_TRACE("_SetPosixThreadPriorityRawImpl: pthread_getschedparam failed");
    return CM_ERROR_FAILURE;
  }
  int nMin = 0, nMax = 0;
  cm_platform_priority_range(policy, &nMin, &nMax);
  int nRaw = aPriority < nMin ? nMin : (aPriority > nMax ? nMax : aPriority);
  int nErr = cm_platform_set_sched_priority(aThread, policy, nRaw);
  if (nErr != 0) {
    CM_WARNING_TRACE("_SetPosixThreadPriorityRawImpl: pthread_setschedparam failed, error=" << nErr
                                                                                            << ", policy=" << policy);
    return CM_ERROR_FAILURE;
  }
  int nNew = nRaw;
  int nRead = 0;
  if (cm_platform_get_sched(aThread, &policy, &nRead) == 0) nNew = nRead;
  CM_INFO_TRACE("_SetPosixThreadPriorityRawImpl: Priority [" << nMin << "," << nMax << "] from " << nOld << " to "
                                                             << nNew << "; policy=" << policy);
  return CM_OK;
}

CmResult SetPortableImpl(CM_THREAD_ID aThread, KelThreadPriority aPriority) {
  int policy = 0;
  int nCurrent = 0;
  if (cm_platform_get_sched(aThread, &policy, &nCurrent) != 0) {
    CM_ERROR_TRACE("_TrySetSchedPriority: pthread_getschedparam failed");
    return CM_ERROR_FAILURE;
  }
  int nMin = 0, nMax = 0;
  cm_platform_priority_range(policy, &nMin, &nMax);
  int nPercent = ThreadPriorityToNative(aPriority);
  CmResult rv = SetRawImpl(aThread, ThreadPriorityPercentToRaw(nPercent, nMin, nMax));
  // Under a policy without a priority range (SCHED_OTHER) the nice value is the only
  // thing that changes anything, so it is used there as well as after a failure.
  if (rv != CM_OK || nMin == nMax) {
    CM_INFO_TRACE("_SetPosixThreadPriorityImpl: Falling back to nice value");
    rv = SetNicePriority(aThread, nPercent);
  }
  return rv;
}

int NiceToPercent(int aNice) {
  // Inverse of ThreadPriorityPercentToNice, rounded to the nearest percent.
  return ((19 - aNice) * 100 + 19) / 39;
}
}  // namespace

void cm_thread_note_kernel_tid(CM_THREAD_ID aThread, long aKernelTid) {
  std::lock_guard<std::mutex> lock(KernelTidMutex());
  KernelTids()[aThread] = aKernelTid;
}

void cm_thread_forget_kernel_tid(CM_THREAD_ID aThread) {
  std::lock_guard<std::mutex> lock(KernelTidMutex());
  KernelTids().erase(aThread);
}

long cm_thread_lookup_kernel_tid(CM_THREAD_ID aThread) {
  if (pthread_equal(aThread, pthread_self())) return cm_platform_gettid();
  std::lock_guard<std::mutex> lock(KernelTidMutex());
  auto it = KernelTids().find(aThread);
  return it == KernelTids().end() ? 0 : it->second;
}

const char* ThreadPriorityToString(int aPriority) {
  static const char* const kNames[] = {"Lowest", "BelowNormal", "Normal", "AboveNormal", "Highest", "TimeCritical"};
  return (aPriority >= 0 && aPriority <= 5) ? kNames[aPriority] : "Unknown";
}

int ThreadPriorityToNative(int aPriority) {
  static const int kPercent[] = {0, 25, 50, 75, 90, 100};
  return (aPriority >= 0 && aPriority <= 5) ? kPercent[aPriority] : 50;
}

const char* ThreadPolicyToString(int aPolicy) {
  static const char* const kNames[] = {"UserInteractive", "UserInitiated", "Default", "Utility", "Background"};
  return (aPolicy >= 0 && aPolicy <= 4) ? kNames[aPolicy] : "Unknown";
}

int ThreadPriorityPercentToRaw(int aPercent, int aMin, int aMax) { return aMin + (aPercent * (aMax - aMin)) / 100; }

int ThreadPriorityPercentToNice(int aPercent) {
  if (aPercent < 0) aPercent = 0;
  if (aPercent > 100) aPercent = 100;
  return 19 - (aPercent * 39) / 100;
}

CmResult SetCurrentThreadPriority(KelThreadPriority aPriority) { return SetPortableImpl(pthread_self(), aPriority); }

CmResult SetThreadPriorityByHandle(CM_THREAD_ID aThread, KelThreadPriority aPriority) {
  return SetPortableImpl(aThread, aPriority);
}

CmResult SetThreadPriorityById(CM_THREAD_ID aThread, KelThreadPriority aPriority) {
  return SetPortableImpl(aThread, aPriority);
}

CmResult GetCurrentThreadPriority(KelThreadPriority& aPriority) {
  int policy = 0;
  int nCurrent = 0;
  if (cm_platform_get_sched(pthread_self(), &policy, &nCurrent) != 0) {
    CM_ERROR_TRACE("_GetPosixCurrentThreadPriority: pthread_getschedparam failed");
    return CM_ERROR_FAILURE;
  }
  int nMin = 0, nMax = 0;
  cm_platform_priority_range(policy, &nMin, &nMax);
  int nPercent = 50;
  if (nMax > nMin) {
    nPercent = ((nCurrent - nMin) * 100) / (nMax - nMin);
  } else {
    int nice = 0;
    if (cm_platform_get_thread_nice(cm_platform_gettid(), &nice) == 0) nPercent = NiceToPercent(nice);
  }
  // The portable priority whose percentage is nearest.
  int nBest = KEL_THREAD_PRIORITY_NORMAL;
  int nBestDistance = 1000;
  for (int p = KEL_THREAD_PRIORITY_LOWEST; p <= KEL_THREAD_PRIORITY_TIME_CRITICAL; ++p) {
    int d = ThreadPriorityToNative(p) - nPercent;
    if (d < 0) d = -d;
    if (d < nBestDistance) {
      nBestDistance = d;
      nBest = p;
    }
  }
  aPriority = nBest;
  return CM_OK;
}

CmResult SetCurrentThreadPriorityRaw(int aPriority) { return SetRawImpl(pthread_self(), aPriority); }

CmResult SetThreadPriorityRawByHandle(CM_THREAD_ID aThread, int aPriority) { return SetRawImpl(aThread, aPriority); }

CmResult SetThreadPriorityRawById(CM_THREAD_ID aThread, int aPriority) { return SetRawImpl(aThread, aPriority); }

CmResult GetCurrentThreadPriorityRaw(int& aPriority) { return GetThreadPriorityRawByHandle(pthread_self(), aPriority); }

CmResult GetThreadPriorityRawByHandle(CM_THREAD_ID aThread, int& aPriority) {
  int policy = 0;
  if (cm_platform_get_sched(aThread, &policy, &aPriority) != 0) {
    CM_ERROR_TRACE("_GetPosixThreadPriorityRaw: pthread_getschedparam failed");
    return CM_ERROR_FAILURE;
  }
  return CM_OK;
}

namespace {
// The priority range of the calling thread's policy (the default policy when unknown).
void CurrentPriorityRange(int* nMin, int* nMax) {
  int policy = 0, priority = 0;
  if (cm_platform_get_sched(pthread_self(), &policy, &priority) != 0) policy = SCHED_OTHER;
  cm_platform_priority_range(policy, nMin, nMax);
}
}  // namespace

int GetThreadPriorityMax() {
  int nMin = 0, nMax = 0;
  CurrentPriorityRange(&nMin, &nMax);
  return nMax;
}

int GetThreadPriorityMin() {
  int nMin = 0, nMax = 0;
  CurrentPriorityRange(&nMin, &nMax);
  return nMin;
}

CmResult SetCurrentThreadPolicy(KelThreadPolicy aPolicy) {
  if (aPolicy < 0 || aPolicy >= 5) {
    CM_ERROR_TRACE("SetCurrentThreadPolicy: Unknown policy " << aPolicy);
    return CM_ERROR_INVALID_ARG;
  }
  // Linux has no quality-of-service classes.
  return CM_ERROR_NOT_IMPLEMENTED;
}

CmResult GetCurrentThreadPolicy(KelThreadPolicy& aPolicy) {
  aPolicy = KEL_THREAD_POLICY_DEFAULT;
  CM_INFO_TRACE("GetCurrentThreadPolicy: QoS class is " << ThreadPolicyToString(aPolicy));
  return CM_OK;
}

CmResult SetThreadPolicyByHandle(CM_THREAD_ID, KelThreadPolicy) {
  CM_ERROR_TRACE("SetThreadPolicyByHandle: Setting QoS for another thread is not supported on Apple platforms");
  return CM_ERROR_NOT_IMPLEMENTED;
}

CmResult GetThreadPolicyByHandle(CM_THREAD_ID, KelThreadPolicy&) {
  CM_ERROR_TRACE("GetThreadPolicyByHandle: Getting QoS for another thread is not supported on Apple platforms");
  return CM_ERROR_NOT_IMPLEMENTED;
}

CM_THREAD_ID OpenThreadHandleFromId(CM_THREAD_ID aId) { return aId; }

CM_THREAD_ID GetThreadIdFromHandle(CM_THREAD_ID aHandle) { return aHandle; }

CM_THREAD_ID GetCurrentThreadHandle() { return pthread_self(); }

CM_THREAD_ID GetCurrentThreadId() { return pthread_self(); }

void CloseThreadHandle(CM_THREAD_ID) {}

CmResult GetCurrentThreadIdNative(unsigned long long& aId) {
  long tid = cm_platform_gettid();
  if (tid <= 0) {
    CM_ERROR_TRACE("GetCurrentThreadIdNative: pthread_threadid_np failed");
    return CM_ERROR_FAILURE;
  }
  aId = static_cast<unsigned long long>(tid);
  return CM_OK;
}
