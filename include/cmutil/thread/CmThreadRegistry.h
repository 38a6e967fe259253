#pragma once
/// The thread registry: a process-wide list of the ACmThread objects that asked to be
/// registered at Create, so that any code can find the thread of a type or the thread
/// object of the calling thread. Oldest registration wins a search. Every function is
/// safe from any thread (one registry mutex).

#include "cmutil/base/CmError.h"
#include "cmutil/base/CmExport.h"
#include "cmutil/thread/CmThread.h"

/// Appends the thread. CM_OK.
CM_EXPORT CmResult RegisterThread(ACmThread* aThread);
/// Removes this very object. CM_ERROR_NOT_FOUND when it is not registered.
CM_EXPORT CmResult UnRegisterThread(ACmThread* aThread);
/// First registered thread of aType; for type 4 the registered thread that is the
/// calling thread. Null (and a warning) when none.
CM_EXPORT ACmThread* GetThread(int aType);
/// The registered thread with this handle, or null.
CM_EXPORT ACmThread* GetThreadById(CM_THREAD_ID aThreadId);
/// The registered thread that is the calling thread, or null.
CM_EXPORT ACmThread* getCurrentThread();
/// Calls Stop(null) on every registered thread in list order and empties the list.
/// The threads are neither joined nor destroyed.
CM_EXPORT void TPCleanThreadList();
