#pragma once
/// Thread priority and scheduling policy.
///
/// Portable priorities (KelThreadPriority) map to a percentage of the current
/// scheduler's range: Lowest 0 %, BelowNormal 25 %, Normal 50 %, AboveNormal 75 %,
/// Highest 90 %, TimeCritical 100 %. Under the default Linux policy (SCHED_OTHER) that
/// range is 0..0, so the per-thread nice value carries the priority: 0 % is nice 19,
/// 100 % nice -20. Raising priority needs the right to do so (CAP_SYS_NICE); without it
/// the call fails with CM_ERROR_FAILURE and a trace.
///
/// Policies (KelThreadPolicy) are quality-of-service classes, which Linux does not have:
/// setting one gives CM_ERROR_NOT_IMPLEMENTED; reading gives Default with CM_OK.

#include <cstdint>

#include "cmutil/base/CmError.h"
#include "cmutil/base/CmExport.h"
#include "cmutil/base/CmThreadMisc.h"

typedef int KelThreadPriority;
constexpr KelThreadPriority KEL_THREAD_PRIORITY_LOWEST = 0;
constexpr KelThreadPriority KEL_THREAD_PRIORITY_BELOW_NORMAL = 1;
constexpr KelThreadPriority KEL_THREAD_PRIORITY_NORMAL = 2;
constexpr KelThreadPriority KEL_THREAD_PRIORITY_ABOVE_NORMAL = 3;
constexpr KelThreadPriority KEL_THREAD_PRIORITY_HIGHEST = 4;
constexpr KelThreadPriority KEL_THREAD_PRIORITY_TIME_CRITICAL = 5;

typedef int KelThreadPolicy;
constexpr KelThreadPolicy KEL_THREAD_POLICY_USER_INTERACTIVE = 0;
constexpr KelThreadPolicy KEL_THREAD_POLICY_USER_INITIATED = 1;
constexpr KelThreadPolicy KEL_THREAD_POLICY_DEFAULT = 2;
constexpr KelThreadPolicy KEL_THREAD_POLICY_UTILITY = 3;
constexpr KelThreadPolicy KEL_THREAD_POLICY_BACKGROUND = 4;

/// "Lowest" .. "TimeCritical", "Unknown" otherwise.
CM_EXPORT const char* ThreadPriorityToString(int aPriority);
/// Place in the scheduler's range in percent; 50 for unknown values.
CM_EXPORT int ThreadPriorityToNative(int aPriority);
/// "UserInteractive" .. "Background", "Unknown" otherwise.
CM_EXPORT const char* ThreadPolicyToString(int aPolicy);
/// Raw priority for a percentage of [aMin, aMax], truncating toward zero.
CM_EXPORT int ThreadPriorityPercentToRaw(int aPercent, int aMin, int aMax);
/// Nice value for a percentage: 0 % gives 19, 100 % gives -20.
CM_EXPORT int ThreadPriorityPercentToNice(int aPercent);

CM_EXPORT CmResult SetCurrentThreadPriority(KelThreadPriority aPriority);
CM_EXPORT CmResult SetThreadPriorityByHandle(CM_THREAD_ID aThread, KelThreadPriority aPriority);
CM_EXPORT CmResult SetThreadPriorityById(CM_THREAD_ID aThread, KelThreadPriority aPriority);
CM_EXPORT CmResult GetCurrentThreadPriority(KelThreadPriority& aPriority);

CM_EXPORT CmResult SetCurrentThreadPriorityRaw(int aPriority);
CM_EXPORT CmResult SetThreadPriorityRawByHandle(CM_THREAD_ID aThread, int aPriority);
CM_EXPORT CmResult SetThreadPriorityRawById(CM_THREAD_ID aThread, int aPriority);
CM_EXPORT CmResult GetCurrentThreadPriorityRaw(int& aPriority);
CM_EXPORT CmResult GetThreadPriorityRawByHandle(CM_THREAD_ID aThread, int& aPriority);

/// Largest and smallest priority of the calling thread's current policy.
CM_EXPORT int GetThreadPriorityMax();
CM_EXPORT int GetThreadPriorityMin();

CM_EXPORT CmResult SetCurrentThreadPolicy(KelThreadPolicy aPolicy);
CM_EXPORT CmResult GetCurrentThreadPolicy(KelThreadPolicy& aPolicy);
CM_EXPORT CmResult SetThreadPolicyByHandle(CM_THREAD_ID aThread, KelThreadPolicy aPolicy);
CM_EXPORT CmResult GetThreadPolicyByHandle(CM_THREAD_ID aThread, KelThreadPolicy& aPolicy);

/// Handles and ids are the same thread handle here.
CM_EXPORT CM_THREAD_ID OpenThreadHandleFromId(CM_THREAD_ID aId);
CM_EXPORT CM_THREAD_ID GetThreadIdFromHandle(CM_THREAD_ID aHandle);
CM_EXPORT CM_THREAD_ID GetCurrentThreadHandle();
CM_EXPORT CM_THREAD_ID GetCurrentThreadId();
CM_EXPORT void CloseThreadHandle(CM_THREAD_ID aHandle);
/// The kernel id of the calling thread.
CM_EXPORT CmResult GetCurrentThreadIdNative(unsigned long long& aId);
