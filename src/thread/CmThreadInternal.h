#pragma once
// Internal bookkeeping shared by the thread sources.

#include "cmutil/base/CmThreadMisc.h"

// Kernel ids of the threads started by ACmThread, so that the nice fallback of the
// priority setters can reach a thread other than the caller.
void cm_thread_note_kernel_tid(CM_THREAD_ID aThread, long aKernelTid);
void cm_thread_forget_kernel_tid(CM_THREAD_ID aThread);
// The kernel id of aThread: the caller's own, or one noted above; 0 when unknown.
long cm_thread_lookup_kernel_tid(CM_THREAD_ID aThread);
