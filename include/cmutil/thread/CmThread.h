#pragma once
/// ACmThread: the library's thread object.
///
/// It owns (or, for type 0, adopts) one operating-system thread, names it, runs its body
/// through OnThreadInit()/OnThreadRun() and agrees with its owner on who deletes it.
///
/// Life cycle for an owner: Create() (returns once the new thread has finished
/// OnThreadInit, so its queues exist), later Stop(), Join(), Destory(). Never delete a
/// thread object directly: Destory() decides. For a joinable thread Destory deletes at
/// once (call it after Join); for a detached thread, or with m_bLateDelete set, the later
/// of the ending thread and Destory deletes the object.
///
/// Create, Join, Destory and Terminate are called by the owner (any thread except,
/// for Join, the thread itself). Stop may be called from any thread.

#include <atomic>
#include <cstdint>
#include <string>

#include "cmutil/base/CmError.h"
#include "cmutil/base/CmExport.h"
#include "cmutil/base/CmMutex.h"
#include "cmutil/base/CmThreadMisc.h"
#include "cmutil/base/CmTimeValue.h"
#include "cmutil/thread/CmConditionVariable.h"

class ICmEventQueue;
class ICmTimerQueue;

/// Thread type. -1 until Create; 0 adopts the calling thread; 4 is the registry's
/// "calling thread" query; other values are chosen by the users of the registry.
typedef int TType;
constexpr TType TT_UNKNOWN = -1;
constexpr TType TT_CURRENT = 0;
constexpr TType TT_CURRENT_THREAD_QUERY = 4;

/// Thread flags: bit 0 joinable, bit 1 detached. A thread is detached only when the two
/// low bits are exactly TF_DETACHED; 0 is stored as TF_JOINABLE, and 3 (both bits) is
/// joinable, for Create, the ending thread, Join, Destory and IsDetached alike.
typedef int TFlag;
constexpr TFlag TF_NONE = 0;
constexpr TFlag TF_JOINABLE = 1;
constexpr TFlag TF_DETACHED = 2;

class CM_EXPORT ACmThread {
 public:
  ACmThread();

  ACmThread(const ACmThread&) = delete;
  ACmThread& operator=(const ACmThread&) = delete;

  /// Starts the thread (type 0: adopts the calling thread) and waits until it has run
  /// OnThreadInit(). A null name becomes "ACmThread"; flag 0 becomes joinable.
  /// CM_ERROR_ALREADY_CREATED on a second call, CM_ERROR_THREAD_CREATE when the thread
  /// cannot be started; with aRegister the thread enters the thread registry.
  virtual CmResult Create(const char* aName, int aType, TFlag aFlag = TF_JOINABLE, bool aRegister = false);
  /// Asks the thread to end. The base has no loop: CM_ERROR_NOT_IMPLEMENTED.
  virtual CmResult Stop(CCmTimeValue* aTimeout = nullptr);
  /// Runs first on the new thread, while Create still waits.
  virtual void OnThreadInit();
  /// The thread's body.
  virtual void OnThreadRun() = 0;
  virtual void* GetReactor();
  virtual ICmEventQueue* GetEventQueue();
  virtual ICmTimerQueue* GetTimerQueue();
  virtual void SetStop();
  virtual bool GetStopFlag();
  virtual bool IsDetached();
  /// Stores the portable priority (KelThreadPriority, 0..5) and applies it to the
  /// running thread.
  virtual CmResult SetPriority(const int& aPriority);
  virtual CmResult GetPriority(int& aPriority);

  const char* GetName() const;
  CM_THREAD_ID GetThreadId() const { return m_Tid.load(std::memory_order_acquire); }
  TType GetThreadType() const { return m_Type; }
  CM_THREAD_ID GetThreadHandle() const { return m_Tid2.load(std::memory_order_acquire); }
  /// Kernel id of the running thread (0 before it started).
  long GetKernelThreadId() const { return m_lKernelTid.load(std::memory_order_acquire); }

  /// Waits for a joinable thread to end. CM_ERROR_FAILURE when called on the thread
  /// itself; CM_OK at once for a detached thread, one without a handle, or an adopted
  /// (type 0) thread.
  CmResult Join();
  /// Leaves the registry and deletes the object now or lets the ending thread do it
  /// (see above). aReason is only traced. Do not touch the object afterwards.
  CmResult Destory(int aReason);
  /// Last resort: cancels the thread. Does not delete the object.
  CmResult Terminate();

  /// Makes the later of the ending thread and Destory() delete the object, also for a
  /// joinable thread. Set it before Create.
  void SetLateDelete(bool aLateDelete) { m_bLateDelete = aLateDelete; }

 protected:
  /// Deleted only through Destory() or by the ending thread.
  virtual ~ACmThread();

  static void* ThreadProc(void* aParam);
  void threadProc();

  std::atomic<CM_THREAD_ID> m_Tid;
  std::atomic<CM_THREAD_ID> m_Tid2;
  TType m_Type;
  TFlag m_Flag;
  std::atomic<bool> m_bStopFlag;
  std::string* m_pName;
  CCmEventThread* m_pEvent;
  CCmMutexThread m_Mutex;
  bool m_bRegistered;
  std::atomic<int> m_nPriority;
  CCmMutexThread m_StateMutex;
  int m_nRunState CM_GUARDED_BY(m_StateMutex);
  uint32_t m_dwDeleteCount CM_GUARDED_BY(m_StateMutex);
  bool m_bLateDelete;
  std::atomic<long> m_lKernelTid;
};
