// Linux thread facilities: kernel thread ids, thread names, nice values, semaphores.

#include <errno.h>
#include <pthread.h>
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
