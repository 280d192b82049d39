// The sync thread. With dtv_tv_on_kept a change returns when it is written to the log; this thread syncs the log and
// tells up to which change all are on the disk. What is written while a sync runs shares the next one.
//
// It also brings the log into the database, so that no change has to wait for that: when the log is long and nothing
// has been changed for a moment, or when it is very long.
//
// After a failed sync it is unknown what is on the disk, and a second sync may succeed without having written it. So
// the store refuses every change until the set is started again.
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <tuple>

#include "core/store_parts.h"
#include "core/timers.h"
#include "dtv_tv.h"

namespace {

constexpr int kLongLog = 1000;      // pages of 4 KiB
constexpr int kLongestLog = 10000;  // likewise
constexpr std::chrono::milliseconds kQuiet(100);

std::atomic<std::uint64_t> last_change = 0;  // counted under the lock

struct Sync {
  std::mutex lock;  // guards all that follows, except what only start and stop touch; taken after the store's
  std::condition_variable changed;
  std::condition_variable returned;  // the function has
  dtv_tv_kept_fct fct = nullptr;     // null: nothing is reported
  void* context = nullptr;
  bool calling = false;       // the function runs
  std::uint64_t settled = 0;  // all changes up to this one are on the disk, or have failed
  std::uint64_t told = 0;     // the function knows up to this change
  int outcome = 0;            // of the latest sync, an errno
  int failure = 0;            // of a sync after which there is no other; 0: none
  int log_pages = 0;          // how long the log is; 0 while that does not matter
  TimerTime quiet_at;         // when nothing will have been changed for a moment, unless another change comes
  bool quiet = false;         // nothing has
  bool open = false;
  const StoreFiles* files = nullptr;  // changed by start only
  std::thread thread;                 // touched by start and stop only
};

// Lives until the process ends: a host may leave without switching the set off while the thread still waits here.
Sync& state = *new Sync;

Timer quiet_timer;

// An errno: also where the files are no longer in their places, since the next start would not find the changes.
int sync_log() {
  if (fdatasync(state.files->log_fd) != 0) return errno;
  return files_problem(*state.files).empty() ? 0 : ENOENT;
}

// All that follow: the caller holds the lock; it is released while the disk or the function works.

void note_settled(std::uint64_t change, int outcome) {
  state.settled = std::max(state.settled, change);
  state.outcome = outcome;
  if (outcome != 0 && outcome != ENOENT) state.failure = outcome;
}

void sync(std::unique_lock<std::mutex>& guard) {
  const std::uint64_t change = last_change;
  int outcome = state.failure;
  if (outcome == 0) {
    guard.unlock();
    outcome = sync_log();
    guard.lock();
  }
  note_settled(change, outcome);
}

void tell(std::unique_lock<std::mutex>& guard) {
  const auto [fct, context, change, outcome] = std::tuple(state.fct, state.context, state.settled, state.outcome);
  state.told = change;
  state.calling = true;
  guard.unlock();
  fct(context, change, outcome);
  guard.lock();
  state.calling = false;
  state.returned.notify_all();
}

void checkpoint(std::unique_lock<std::mutex>& guard) {
  state.log_pages = 0;  // the next change says how long the log is then
  guard.unlock();
  store_checkpoint();
  guard.lock();
}

bool has_to_sync() { return last_change > state.settled; }

bool has_to_tell() { return state.fct != nullptr && state.settled > state.told; }

bool has_to_checkpoint() { return state.quiet && state.log_pages >= kLongLog; }

bool is_called() { return has_to_sync() || has_to_tell() || has_to_checkpoint() || !state.open; }

void note_quiet() {
  const std::lock_guard guard(state.lock);
  if (timer_now() < state.quiet_at) return;  // another change has come
  state.quiet = true;
  state.changed.notify_one();
}

void run_sync() {
  pthread_setname_np(pthread_self(), "dtv_tv-sync");
  std::unique_lock guard(state.lock);
  while (true) {
    if (has_to_tell()) {
      tell(guard);
    } else if (state.log_pages >= kLongestLog) {
      checkpoint(guard);
    } else if (has_to_sync()) {
      sync(guard);
    } else if (!state.open) {
      return;
    } else if (has_to_checkpoint()) {
      checkpoint(guard);
    } else {
      state.changed.wait(guard, is_called);
    }
  }
}

}  // namespace

void sync_start(const StoreFiles& files) {
  state.files = &files;
  {
    const std::lock_guard guard(state.lock);
    state.open = true;
    state.outcome = state.failure = 0;
    state.log_pages = 0;
    state.quiet = false;
  }
  state.thread = std::thread(run_sync);
}

void sync_stop() {
  {
    const std::lock_guard guard(state.lock);
    state.open = false;
  }
  state.changed.notify_one();
  if (state.thread.joinable()) state.thread.join();
}

bool sync_is_deferred() {
  const std::lock_guard guard(state.lock);
  return state.fct != nullptr;
}

int sync_failure() {
  const std::lock_guard guard(state.lock);
  return state.failure;
}

int sync_written(bool durable, int log_pages) {
  const std::lock_guard guard(state.lock);
  const std::uint64_t change = ++last_change;
  if (state.fct != nullptr) {
    state.log_pages = log_pages;
    state.quiet = false;
    state.quiet_at = timer_now() + kQuiet;
    if (log_pages >= kLongLog) timer_set(quiet_timer, state.quiet_at, note_quiet);
    state.changed.notify_one();
    return 0;
  }
  note_settled(change, durable ? 0 : sync_log());
  return state.outcome;
}

void dtv_tv_on_kept(dtv_tv_kept_fct fct, void* context) {
  std::unique_lock guard(state.lock);
  state.fct = fct;
  state.context = context;
  state.told = 0;
  state.changed.notify_one();
  state.returned.wait(guard, [] { return !state.calling; });
}

std::uint64_t dtv_tv_last_change() { return last_change; }
