#pragma once
// Internal interface to the operating system. Every OS query of the library lives in
// src/platform/linux/ behind these small functions, so the portable logic around them
// can be tested on its own. Append new declarations; keep each one small.

#include <cstddef>

#include "cmutil/base/CmExport.h"

// Host name into out (cap bytes, always terminated). Returns 0, or the errno of the
// failed call.
int cm_platform_host_name(char* out, size_t cap);

// The process name: the base name of /proc/self/exe, or the short invocation name when
// that link cannot be read. Always terminated; may be empty.
void cm_platform_process_name(char* out, size_t cap);

// ---- threads (src/platform/linux/CmThreadPlatform.cpp) ----
// Kernel id of the calling thread (gettid).
long cm_platform_gettid();
// Name of the calling thread into out (cap bytes, always terminated); empty on failure.
void cm_platform_get_thread_name(char* out, size_t cap);
// Sets the calling thread's system name; Linux keeps the first 15 bytes. Returns 0 or
// the error number.
int cm_platform_set_thread_name(const char* name);
// Per-thread nice value of the kernel thread tid: set (0 or errno) and read.
int cm_platform_set_thread_nice(long tid, int nice);
int cm_platform_get_thread_nice(long tid, int* nice);
// Counting semaphore (POSIX unnamed semaphore). Create returns null on failure.
void* cm_platform_sem_create(unsigned int initial);
void cm_platform_sem_destroy(void* sem);
// Waits until the count is positive and takes one; retried on EINTR. 0 or errno.
int cm_platform_sem_wait(void* sem);
// Adds one to the count. 0 or errno.
int cm_platform_sem_post(void* sem);
