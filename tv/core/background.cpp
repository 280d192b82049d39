#include "core/background.h"

#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdlib>

void background_begin(const char* name) {
  pthread_setname_np(pthread_self(), name);
  if (const char* how = getenv("DTV_BG")) {
    int n = atoi(how);
    if (n >= 0 && n < 20) setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), n);
    sched_param p{};
    if (n == 100) sched_setscheduler(0, SCHED_IDLE, &p);
    if (n == 101) sched_setscheduler(0, SCHED_BATCH, &p);
    if (n == 102) {
      setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), 10);
      sched_setscheduler(0, SCHED_BATCH, &p);
    }
    if (n == 103) {
      setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), 19);
      sched_setscheduler(0, SCHED_BATCH, &p);
    }
    return;
  }
}
