#include "core/events.h"

#include <pthread.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>

namespace {

struct EventQueue {
  std::mutex lock;  // guards all except the thread, which only start and stop use
  std::condition_variable changed;
  std::condition_variable settled;
  std::deque<std::function<void()>> pending;
  bool calling = false;
  bool open = false;
  std::thread thread;
};

// Never destroyed: the process may exit without switching the set off, while the thread still waits here.
EventQueue& queue = *new EventQueue;

void run_events() {
  pthread_setname_np(pthread_self(), "dtv_tv-events");
  std::unique_lock guard(queue.lock);
  while (true) {
    queue.changed.wait(guard, [] { return !queue.pending.empty() || !queue.open; });
    if (queue.pending.empty()) return;
    const std::function<void()> event = std::move(queue.pending.front());
    queue.pending.pop_front();
    queue.calling = true;
    guard.unlock();
    event();
    guard.lock();
    queue.calling = false;
    if (queue.pending.empty()) queue.settled.notify_all();
  }
}

}  // namespace

void events_start() {
  {
    const std::lock_guard guard(queue.lock);
    queue.open = true;
  }
  queue.thread = std::thread(run_events);
}

void events_stop() {
  {
    const std::lock_guard guard(queue.lock);
    queue.open = false;
  }
  queue.changed.notify_one();
  if (queue.thread.joinable()) queue.thread.join();
}

void events_post(std::function<void()> event) {
  {
    const std::lock_guard guard(queue.lock);
    if (!queue.open) return;
    queue.pending.push_back(std::move(event));
  }
  queue.changed.notify_one();
}

void events_settle() {
  std::unique_lock guard(queue.lock);
  queue.settled.wait(guard, [] { return queue.pending.empty() && !queue.calling; });
}
