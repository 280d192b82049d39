// The tap's state, for the life of the process. One lock guards whatever is not atomic; a hook and the kept
// texts have locks of their own. No lock is held while the platform, the plugin or a hook runs. Nothing is freed at
// exit, since threads of the platform may still call.
#pragma once

#include <condition_variable>
#include <mutex>
#include <vector>

#include "tap/engine.h"

namespace tap {

std::mutex& state_lock();

struct Start {
  std::uint64_t seq = 0;  // order in which calls and events started, process-wide
  std::int64_t t = 0;     // microseconds since the tap was loaded
};
Start start_now();
std::int64_t now_us();  // as Start::t
int thread_number();

// Adds "t", "seq" and "thread" to a new line.
Json new_line(const Start& start);
// Hands a finished line to the recording file and to the watcher, on this thread.
void emit(const cJSON* line);

// A function of the host that is called on any thread, and that the host can replace or remove.
struct Hook {
  std::mutex lock;
  std::condition_variable idle;
  void (*fct)() = nullptr;  // as a generic function pointer; null: none
  void* context = nullptr;
  int running = 0;  // on all threads
};
// Replaces the hook's function and waits until the earlier one has returned on every thread. Called from inside that
// function it does not wait, since it would wait for itself. The caller must hold no lock that the function takes.
void hook_set(Hook& hook, int& depth, void (*fct)(), void* context);
// Calls run(fct, context) outside of the lock when there is a function.
template <class Run>
void hook_run(Hook& hook, int& depth, Run run) {
  std::unique_lock guard(hook.lock);
  if (hook.fct == nullptr) return;
  void (*const fct)() = hook.fct;
  void* const context = hook.context;
  ++hook.running;
  guard.unlock();
  ++depth;
  run(fct, context);
  --depth;
  guard.lock();
  if (--hook.running == 0) hook.idle.notify_all();
}

void watch(dtv_tap_line_fct fct, void* context);
void on_event(dtv_tap_event_fct fct, void* context);
void record_to(const char* path);
void run_event_hook();

}  // namespace tap
