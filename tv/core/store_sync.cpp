// The sync thread. With dtv_tv_on_kept, a call that changes something returns when the change is written to the log;
// this thread syncs the log and reports the number of the latest change that is on the disk. Changes written during a
// sync are synced together by the next one.
//
// The thread also makes checkpoints, which write the log into the database, so that changes seldom wait for
// one: when the log is long and nothing has changed for a moment, or when it is very long. A change made during a
// checkpoint waits for its end.
//
// After a failed sync of this thread it is unknown what is on the disk, and a second sync may succeed without writing
// it. So the store refuses every change until the set is started again.
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

std::atomic<std::uint64_t> last_change = 0;  // incremented under the lock

struct Sync {
  std::mutex lock;  // guards the members below, except files and thread; taken after the store's
  std::condition_variable changed;
  std::condition_variable returned;  // fct has returned
  dtv_tv_kept_fct fct = nullptr;     // null: nothing is reported
  void* context = nullptr;
  bool calling = false;        // fct is running
  std::uint64_t settled = 0;   // all changes up to this one are on the disk, or have failed
  std::uint64_t notified = 0;  // the latest change that fct was called for
  int outcome = 0;     // errno of the latest sync; ENOENT: files were not in their places, which can be put right
  int failure = 0;     // errno of the failed sync, after which no sync is tried; 0: none has failed
  int log_pages = 0;   // length of the log; 0 after a checkpoint until the next change
  TimerTime quiet_at;  // kQuiet after the latest change
  bool quiet = false;  // that time has passed
  bool open = false;
  const StoreFiles* files = nullptr;  // set by start before the thread exists, then only read
  std::thread thread;                 // used only by start and stop
};

// Never destroyed: the process may exit without switching the set off, while the thread still waits here.
Sync& state = *new Sync;

Timer quiet_timer;

// Returns an errno; also if the files are no longer in their places, since the next start would not find the changes.
int sync_log() {
  if (fdatasync(state.files->log_fd) != 0) return errno;
  return files_problem(*state.files).empty() ? 0 : ENOENT;
}

// The caller of note_settled, sync, notify, checkpoint and the has_... functions holds the lock. sync, notify and
// checkpoint release it while they work.

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

void notify(std::unique_lock<std::mutex>& guard) {
  const auto [fct, context, change, outcome] = std::tuple(state.fct, state.context, state.settled, state.outcome);
  state.notified = change;
  state.calling = true;
  guard.unlock();
  fct(context, change, outcome);
  guard.lock();
  state.calling = false;
  state.returned.notify_all();
}

void checkpoint(std::unique_lock<std::mutex>& guard) {
  state.log_pages = 0;  // the next change sets the length again
  guard.unlock();
  store_checkpoint();
  guard.lock();
}

bool has_to_sync() { return last_change > state.settled; }

bool has_to_notify() { return state.fct != nullptr && state.settled > state.notified; }

// A long log goes into the database when nothing has changed for a moment.
bool has_to_checkpoint() { return state.quiet && state.log_pages >= kLongLog; }

bool has_work() { return has_to_sync() || has_to_notify() || has_to_checkpoint() || !state.open; }

void note_quiet() {
  const std::lock_guard guard(state.lock);
  if (timer_now() < state.quiet_at) return;  // there was another change
  state.quiet = true;
  state.changed.notify_one();
}

void run_sync() {
  pthread_setname_np(pthread_self(), "dtv_tv-sync");
  std::unique_lock guard(state.lock);
  while (true) {
    if (has_to_notify()) {
      notify(guard);
    } else if (state.log_pages >= kLongestLog) {
      checkpoint(guard);
    } else if (has_to_sync()) {
      sync(guard);
    } else if (!state.open) {
      return;
    } else if (has_to_checkpoint()) {
      checkpoint(guard);
    } else {
      state.changed.wait(guard, has_work);
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
  state.notified = 0;  // so that the new function is called for earlier changes
  state.changed.notify_one();
  state.returned.wait(guard, [] { return !state.calling; });
}

std::uint64_t dtv_tv_last_change() { return last_change; }
