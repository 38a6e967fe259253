#pragma once
/// Task-thread factory and shared (named, reference-counted) task threads.
///
/// CreateUserTaskThread creates a started task thread through a replaceable factory
/// (setCreateUserTaskThread), so that a host can supply its own. ACmThreadSingletonFactory
/// hands out one shared thread per name: the first GetSingletonThread creates it, each
/// call counts a user, and the last ResleseSingletonThread stops, joins and destroys it
/// (that release therefore waits for the thread to finish). Safe from any thread except
/// that a release must not come from the shared thread itself.

#include <atomic>

#include "cmutil/base/CmError.h"
#include "cmutil/base/CmExport.h"
#include "cmutil/thread/CmThread.h"

typedef CmResult (*PFN_CreateUserTaskThread)(const char* aName, ACmThread*& aThread, TFlag aFlag, bool aWithTimerQueue,
                                             TType aType);

/// Creates a CCmThreadTask (aWithTimerQueue) or a CCmThreadTaskWithEventQueueOnly,
/// registered, and stores it in aThread on success. On failure the object is destroyed
/// and the Create result returned.
CM_EXPORT CmResult do_CreateUserTaskThread(const char* aName, ACmThread*& aThread, TFlag aFlag, bool aWithTimerQueue,
                                           TType aType);
/// Calls the current factory.
CM_EXPORT CmResult CreateUserTaskThread(const char* aName, ACmThread*& aThread, TFlag aFlag = TF_JOINABLE,
                                        bool aWithTimerQueue = true, TType aType = TT_UNKNOWN);
/// Replaces the factory; returns the previous one. A null factory restores the library's.
CM_EXPORT PFN_CreateUserTaskThread setCreateUserTaskThread(PFN_CreateUserTaskThread aFunc);

/// The current factory, initially do_CreateUserTaskThread.
CM_EXPORT extern std::atomic<PFN_CreateUserTaskThread> p_CreateUserTaskThread;

class CM_EXPORT ACmThreadSingletonFactory {
 public:
  static ACmThreadSingletonFactory* Instance();

  ACmThreadSingletonFactory();
  ~ACmThreadSingletonFactory();

  ACmThreadSingletonFactory(const ACmThreadSingletonFactory&) = delete;
  ACmThreadSingletonFactory& operator=(const ACmThreadSingletonFactory&) = delete;

  /// The shared thread of aName, created (joinable, with timers, type -1) on first use.
  /// CM_ERROR_INVALID_ARG for a null name.
  CmResult GetSingletonThread(const char* aName, ACmThread*& aThread);
  /// Drops one use; the last one stops, joins and destroys the thread. A wrong thread
  /// or unknown name changes nothing.
  void ResleseSingletonThread(const char* aName, ACmThread* aThread);

 private:
  struct Impl;
  Impl* m_pImpl;
};
