#include "core/background.h"

#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

// On Linux a nice value is a thread's own, and anybody may raise it. A thread of this value gets a tenth of what a
// usual one gets when both want the same processor, and is interrupted at once when a usual one wakes up. Not
// SCHED_IDLE: on a busy machine a thread of that class may hardly run, also while it holds a lock for which a request
// waits.
constexpr int kNice = 10;

}  // namespace

void background_begin(const char* name) {
  pthread_setname_np(pthread_self(), name);
  setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), kNice);  // where it fails, the thread is a usual one
}
