#include "rooms/antenna/visits.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "broadcast/sections.h"
#include "core/background.h"
#include "core/timers.h"
#include "rooms/antenna/folder.h"
#include "rooms/antenna/worker.h"
#include "rooms/channels/channels.h"
#include "rooms/guide/guide.h"
#include "rooms/remote/remote.h"

namespace {

using std::chrono::steady_clock;

using StreamId = std::pair<std::uint16_t, std::uint16_t>;  // network and stream

struct State {
  std::mutex lock;  // guards all members but the flag and the timer
  std::condition_variable cancelling;
  bool open = false;
  EventTaker taker = nullptr;
  std::map<StreamId, TimerTime> visited;  // when, to the end
  std::vector<Multiplex> wanted;          // of the round; empty: all
  VisitsReport report;
  steady_clock::time_point begin;
  Worker worker;
  Timer look;
  std::atomic<bool> cancelled = false;
};

// Never destroyed: other threads may still use it when the process exits.
State& state = *new State;

// ---- The thread; the caller of these functions does not hold the lock ----

bool goes_on(steady_clock::time_point end) {
  return !state.cancelled && receptions_visit_goes_on() && steady_clock::now() < end;
}

// Waits until the guide's queue has room. False: the visit ends.
bool wait_for_guide(std::size_t most_waiting, steady_clock::time_point end) {
  constexpr std::chrono::milliseconds kLook{10};  // at the queue
  while (goes_on(end)) {
    if (guide_waiting() <= most_waiting) return true;
    std::unique_lock guard(state.lock);
    state.cancelling.wait_for(guard, kLook, [] { return state.cancelled.load(); });
  }
  return false;
}

// Reads the multiplex until it has no more news, or to one of the bounds. False: the visit was cut short.
bool read_events(const std::string& path, std::int64_t shift, EventTaker taker) {
  constexpr std::size_t kMostWaiting = 512;  // sections in the guide's queue: tuners add theirs meanwhile
  std::string error;                         // a file that cannot be read is the index's to report
  const PlayoutHandle playout = playout_open(path, error);
  if (!playout) return true;
  const steady_clock::time_point end = steady_clock::now() + kVisitTime;
  Sections sections;
  sections_want(sections, kPidEit);
  std::vector<Eit> found;
  std::uint64_t bytes = 0;
  std::chrono::microseconds news{0};
  while (bytes < kVisitBytes) {
    if (!goes_on(end)) return steady_clock::now() >= end;
    const std::optional<PlayoutChunk> chunk = playout_next(*playout, true, error);
    if (!chunk || chunk->round > 0 || chunk->due - news > kVisitNews) return true;
    bytes += chunk->packets.size();
    sections_take(sections, chunk->packets, [&](std::uint16_t, std::span<const std::uint8_t> section) {
      std::optional<Table> table = table_read(section);
      if (table && std::holds_alternative<Eit>(*table)) found.push_back(std::move(std::get<Eit>(*table)));
    });
    if (found.empty()) continue;
    news = chunk->due;
    if (!wait_for_guide(kMostWaiting, end)) return steady_clock::now() >= end;
    std::size_t events = 0;
    for (const Eit& eit : found) {
      taker(eit, shift);
      events += eit.events.size();
    }
    found.clear();
    const std::lock_guard guard(state.lock);
    state.report.events += events;
  }
  return true;
}

void visit(const Multiplex& multiplex, EventTaker taker) {
  const bool read = receptions_visit_begin(multiplex.path) &&
                    read_events(multiplex.path, antenna_time_shift(multiplex.network, multiplex.stream), taker);
  receptions_visit_end();
  const std::lock_guard guard(state.lock);
  ++state.report.multiplex;
  if (read) {
    state.visited[{multiplex.network, multiplex.stream}] = timer_now();
  } else if (!state.cancelled) {
    ++state.report.skipped;
  }
}

// Waits until the guide has written what it was given, so that a round that is done is in the guide.
void settle() {
  constexpr std::chrono::milliseconds kLook{10};  // at the queue
  const steady_clock::time_point end = steady_clock::now() + kVisitTime;
  std::unique_lock guard(state.lock);
  while (!state.cancelled && steady_clock::now() < end) {
    guard.unlock();
    const std::size_t waiting = guide_waiting();
    guard.lock();
    if (waiting == 0) return;
    state.cancelling.wait_for(guard, kLook, [] { return state.cancelled.load(); });
  }
}

std::int64_t seconds_since(steady_clock::time_point begin) {
  return std::chrono::duration_cast<std::chrono::seconds>(steady_clock::now() - begin).count();
}

void run_round() {
  background_begin("dtv_tv-visits");
  std::unique_lock guard(state.lock);
  std::vector<Multiplex> wanted = std::exchange(state.wanted, {});
  const EventTaker taker = state.taker;
  guard.unlock();
  if (wanted.empty() && folder_settle(state.cancelled)) wanted = antenna_multiplexes();
  guard.lock();
  state.report.multiplexes = wanted.size();
  guard.unlock();
  for (const Multiplex& each : wanted) {
    if (state.cancelled) break;
    visit(each, taker);
  }
  settle();
  guard.lock();
  state.report.state = state.cancelled ? "cancelled" : wanted.empty() ? "failed" : "done";
  if (wanted.empty() && !state.cancelled) state.report.error = "the antenna receives no multiplex; antenna shows why";
  state.report.seconds = seconds_since(state.begin);
  state.worker.runs = false;
}

// Starts a round of these multiplexes, or of all. Returns why it did not start; empty: it did.
std::string start_round(std::vector<Multiplex> wanted) {
  const std::lock_guard guard(state.lock);
  if (!state.open) return "the set is off";
  if (state.worker.runs) return "the guide is being updated; guide update cancel ends it";
  state.cancelled = false;
  state.wanted = std::move(wanted);
  state.report = {.state = "running"};
  state.begin = steady_clock::now();
  if (worker_start(state.worker, run_round)) return {};
  state.report = {};
  return "the machine has no thread left to update the guide";
}

// ---- The timer's action ----

// The multiplexes that nobody receives and that were not visited for some time.
std::vector<Multiplex> due_multiplexes() {
  std::vector<Multiplex> due = antenna_multiplexes();
  const std::array<TunerUse, kTuners> use = receptions_use();
  const TimerTime now = timer_now();
  const std::chrono::hours pause = remote_is_on() ? kVisitPause : kVisitPauseInStandby;
  const std::lock_guard guard(state.lock);
  std::erase_if(state.visited, [&](const auto& visited) {
    return std::ranges::none_of(
        due, [&](const Multiplex& each) { return StreamId(each.network, each.stream) == visited.first; });
  });
  std::erase_if(due, [&](const Multiplex& each) {
    const auto visited = state.visited.find({each.network, each.stream});
    return (visited != state.visited.end() && now < visited->second + pause) ||
           std::ranges::count(use, each.path, &TunerUse::path) > 0;
  });
  return due;
}

// Starts a round for the multiplexes that are due, if a tuner is idle and there are channels to show events of.
void look() {
  timer_set(state.look, timer_now() + kVisitLook, look);
  const std::array<TunerUse, kTuners> use = receptions_use();
  if (std::ranges::count(use, "", &TunerUse::path) == 0 || channels_count() == 0) return;
  std::vector<Multiplex> due = due_multiplexes();
  if (!due.empty()) start_round(std::move(due));  // refused while a viewer's round runs
}

}  // namespace

void visits_open(EventTaker taker) {
  const std::lock_guard guard(state.lock);
  state.open = true;
  state.taker = taker;
  state.visited.clear();
  state.report = {};
  timer_set(state.look, timer_now() + kVisitLook, look);
}

void visits_close() {
  {
    const std::lock_guard guard(state.lock);
    state.open = false;
    state.cancelled = true;
  }
  state.cancelling.notify_all();
  worker_join(state.worker);
}

std::string visits_start() {
  if (!folder_is_chosen()) return "the antenna is not connected; antenna DIR connects it to a folder";
  return start_round({});
}

bool visits_cancel() {
  const std::lock_guard guard(state.lock);
  state.cancelled = true;
  state.cancelling.notify_all();
  return state.worker.runs;
}

VisitsReport visits_report() {
  const std::lock_guard guard(state.lock);
  VisitsReport report = state.report;
  if (report.state == "running") report.seconds = seconds_since(state.begin);
  return report;
}
