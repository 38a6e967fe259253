// Linux thread facilities: kernel thread ids, thread names, nice values, semaphores.

#include <errno.h>
#include <pthread.h>
#include <sched.h>
#include <semaphore.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstring>
#include <new>

#include "platform/CmPlatform.h"

long cm_platform_gettid() { return static_cast<long>(syscall(SYS_gettid)); }

void cm_platform_get_thread_name(char* out, size_t cap) {
  if (!out || cap == 0) return;
  out[0] = '\0';
  char name[64] = {0};
  if (pthread_getname_np(pthread_self(), name, sizeof(name)) == 0) {
    strncpy(out, name, cap - 1);
    out[cap - 1] = '\0';
  }
}

int cm_platform_set_thread_name(const char* name) {
  if (!name) return EINVAL;
  char cut[16];
  strncpy(cut, name, 15);
  cut[15] = '\0';
  return pthread_setname_np(pthread_self(), cut);
}

int cm_platform_set_thread_nice(long tid, int nice) {
  errno = 0;
  if (setpriority(PRIO_PROCESS, static_cast<id_t>(tid), nice) != 0) return errno ? errno : EPERM;
  return 0;
}

int cm_platform_get_thread_nice(long tid, int* nice) {
  errno = 0;
  int v = getpriority(PRIO_PROCESS, static_cast<id_t>(tid));
  if (v == -1 && errno != 0) return errno;
  if (nice) *nice = v;
  return 0;
}

void* cm_platform_sem_create(unsigned int initial) {
  sem_t* sem = new (std::nothrow) sem_t;
  if (!sem) return nullptr;
  if (sem_init(sem, 0, initial) != 0) {
    delete sem;
    return nullptr;
  }
  return sem;
}

void cm_platform_sem_destroy(void* sem) {
  if (!sem) return;
  sem_destroy(static_cast<sem_t*>(sem));
  delete static_cast<sem_t*>(sem);
}

int cm_platform_sem_wait(void* sem) {
  while (sem_wait(static_cast<sem_t*>(sem)) != 0) {
    if (errno != EINTR) return errno;
  }
  return 0;
}

int cm_platform_sem_post(void* sem) { return sem_post(static_cast<sem_t*>(sem)) == 0 ? 0 : errno; }

static_assert(sizeof(pthread_t) == sizeof(unsigned long), "a thread id travels as unsigned long");

int cm_platform_thread_create(unsigned long* tid, bool detached, void* (*proc)(void*), void* arg,
                              const char** failedCall) {
  pthread_attr_t attr;
  int err = pthread_attr_init(&attr);
  if (err != 0) {
    *failedCall = "pthread_attr_init()";
    return err;
  }
  err = pthread_attr_setdetachstate(&attr, detached ? PTHREAD_CREATE_DETACHED : PTHREAD_CREATE_JOINABLE);
  if (err != 0) {
    *failedCall = "pthread_attr_setdetachstate()";
    pthread_attr_destroy(&attr);
    return err;
  }
  pthread_t created = 0;
  err = pthread_create(&created, &attr, proc, arg);
  pthread_attr_destroy(&attr);
  if (err != 0) {
    *failedCall = "pthread_create()";
    return err;
  }
  *tid = created;
  return 0;
}

int cm_platform_thread_join(unsigned long tid) { return pthread_join(tid, nullptr); }

void cm_platform_thread_detach(unsigned long tid) { pthread_detach(tid); }

int cm_platform_get_sched(unsigned long tid, int* policy, int* priority) {
  sched_param param;
  const int err = pthread_getschedparam(tid, policy, &param);
  if (err == 0) *priority = param.sched_priority;
  return err;
}

int cm_platform_set_sched_priority(unsigned long tid, int policy, int priority) {
  sched_param param;
  param.sched_priority = priority;
  return pthread_setschedparam(tid, policy, &param);
}

void cm_platform_priority_range(int policy, int* min, int* max) {
  *min = sched_get_priority_min(policy);
  *max = sched_get_priority_max(policy);
}
