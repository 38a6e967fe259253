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

// ---- configuration and trace files (src/platform/linux/CmConfigPlatform.cpp) ----
// Per-user configuration folder: $XDG_CONFIG_HOME when set and absolute, else
// $HOME/.config. Returns 0, or -1 when there is no home folder at all.
int cm_platform_user_config_dir(char* out, size_t cap);
// Per-user state folder for logs: $XDG_STATE_HOME when set and absolute, else
// $HOME/.local/state. Returns 0, or -1 when there is no home folder at all.
int cm_platform_user_state_dir(char* out, size_t cap);
// Creates a folder and its parents with mode 0777 (before umask). 0 or errno.
int cm_platform_make_dirs(const char* path);
// Waits for the whole-file write lock of fd (retrying on EINTR/EAGAIN); 0 or errno.
int cm_platform_lock_file(int fd);
// Releases the whole-file lock of fd; 0 or errno.
int cm_platform_unlock_file(int fd);
// Path of the shared object that holds this library's code (dladdr); empty on failure.
void cm_platform_library_path(char* out, size_t cap);
// Loads a shared object (RTLD_NOW | RTLD_LOCAL); null on failure.
void* cm_platform_load_library(const char* path);
// Resolves a symbol of a loaded object; null when missing.
void* cm_platform_library_symbol(void* handle, const char* name);
// Releases a loaded object.
void cm_platform_free_library(void* handle);

// ---- clocks, futex words and scheduling (src/platform/linux/CmClockPlatform.cpp) ----
// Wall-clock microseconds since the epoch (CLOCK_REALTIME).
long long cm_platform_realtime_us();
// The same clock at tick resolution, much cheaper (CLOCK_REALTIME_COARSE).
long long cm_platform_realtime_coarse_us();
// Monotonic nanoseconds (CLOCK_MONOTONIC).
long long cm_platform_monotonic_ns();
// Clock ticks since an arbitrary point (times()) and the ticks per second (sysconf,
// 100 when it cannot be read).
long long cm_platform_clock_ticks();
long cm_platform_ticks_per_second();
// Process id (getpid).
int cm_platform_getpid();
// Sleeps while the 32-bit word holds expected, at most relativeNs (negative: no limit).
// May return early (signal, spurious wake-up): the caller looks again.
void cm_platform_futex_wait(void* word, unsigned int expected, long long relativeNs);
// Wakes one sleeper of the word.
void cm_platform_futex_wake_one(void* word);
// Gives the processor to another ready thread.
void cm_platform_yield();
// Sleeps for the given milliseconds.
void cm_platform_sleep_ms(unsigned int ms);

// ---- thread creation and scheduling (src/platform/linux/CmThreadPlatform.cpp) ----
// Starts proc(arg) on a new thread, joinable or detached; its id into *tid. 0 or the
// error number, with *failedCall naming the call that failed ("pthread_create()").
int cm_platform_thread_create(unsigned long* tid, bool detached, void* (*proc)(void*), void* arg,
                              const char** failedCall);
// Waits for a joinable thread to end; 0 or the error number.
int cm_platform_thread_join(unsigned long tid);
// Lets a thread's resources go when it ends, without a join.
void cm_platform_thread_detach(unsigned long tid);
// Scheduling policy and priority of a thread; 0 or the error number.
int cm_platform_get_sched(unsigned long tid, int* policy, int* priority);
// Sets the priority of a thread under its policy; 0 or the error number.
int cm_platform_set_sched_priority(unsigned long tid, int policy, int priority);
// The priority range of a policy.
void cm_platform_priority_range(int policy, int* min, int* max);
