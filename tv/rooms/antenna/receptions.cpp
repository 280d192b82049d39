#include "rooms/antenna/receptions.h"

#include <pthread.h>

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <utility>
#include <variant>
#include <vector>

#include "broadcast/sections.h"
#include "rooms/antenna/worker.h"

using std::chrono::steady_clock;

// The lock of the tuners guards tuner, which is null when the reception has ended.
struct Tuner;
struct Reception {
  ReceptionUser user;
  Tuner* tuner = nullptr;
};

struct Tuner {
  ReceptionSource source;         // valid while there are users
  std::vector<Reception*> users;  // empty: the tuner is free, and its thread is about to end
  std::uint64_t job = 0;          // incremented when another multiplex is to be received, or none
  std::string dropped;            // the reason reported to the users as lost; empty: none
  Worker worker;
};

namespace {

struct Tuners {
  std::mutex lock;                   // guards all members
  std::condition_variable changed;   // a tuner's thread has something else to do
  std::condition_variable returned;  // from a user's function
  bool open = false;
  EventTaker taker = nullptr;
  EventRound round = nullptr;
  std::array<Tuner, kTuners> tuners;
  const Tuner* visited = nullptr;  // the tuner of a visit; null: there is none
  std::string visit;               // the path that it reads
  // The reception whose user's function a tuner runs, and the thread that runs it; null: none.
  std::array<std::pair<Reception*, std::thread::id>, kTuners> calling;
};

// Never destroyed: the process may exit without switching the set off, while the threads still use it.
Tuners& state = *new Tuners;

using Guard = std::unique_lock<std::mutex>;

std::size_t index_of(const Tuner& tuner) { return static_cast<std::size_t>(&tuner - state.tuners.data()); }

// What a tuner's thread needs for one multiplex; only that thread uses it.
struct Play {
  std::uint64_t job;
  ReceptionSource source;
  EventTaker taker;
  EventRound round;
  std::uint64_t known_round = 0;  // what round returned last
  PlayoutHandle playout = nullptr;
  Sections sections = {};
  std::deque<std::vector<std::uint8_t>> waiting = {};  // event sections that the guide has not taken
  steady_clock::time_point begin = {};                 // when the packets with due 0 were due
};

// Whether the tuner still receives the multiplex. The caller of this function, call_each and wait_until holds the lock.
bool goes_on(const Tuner& tuner, const Play& play) { return state.open && tuner.job == play.job; }

// Calls a function of each user with the lock released. A user that comes meanwhile is not called, nor one that has
// gone.
template <typename Call>
void call_each(Tuner& tuner, const Play& play, Guard& guard, Call call) {
  const std::vector<Reception*> users = tuner.users;
  for (Reception* const each : users) {
    if (!goes_on(tuner, play)) return;
    if (std::ranges::find(tuner.users, each) == tuner.users.end()) continue;
    const ReceptionUser user = each->user;
    auto& calling = state.calling[index_of(tuner)];
    calling = {each, std::this_thread::get_id()};
    guard.unlock();
    call(user);
    guard.lock();
    calling = {};
    state.returned.notify_all();
  }
}

// False if the tuner does not receive the multiplex any more.
bool wait_until(Tuner& tuner, const Play& play, steady_clock::time_point due, Guard& guard) {
  return !state.changed.wait_until(guard, due, [&] { return !goes_on(tuner, play); });
}

// ---- The guide's events; the caller holds no lock ----

void collect_events(Play& play, std::span<const std::uint8_t> packets) {
  const std::uint64_t round = play.round();
  if (std::exchange(play.known_round, round) != round) {
    play.sections.seen.clear();
    // Else a section in a single packet would be taken for a duplicate of the latest packet.
    for (auto& [pid, unfinished] : play.sections.pids) unfinished = {};
  }
  bool full = false;
  sections_take(play.sections, packets, [&](std::uint16_t, std::span<const std::uint8_t> section) {
    if (play.waiting.size() < kMostWaitingSections)
      play.waiting.emplace_back(section.begin(), section.end());
    else
      full = true;
  });
  if (full) play.sections.seen.clear();  // what did not fit comes again with the next repetition
}

// Hands events to the guide while the next packets are not due.
void give_events(Play& play, steady_clock::time_point due) {
  while (!play.waiting.empty() && steady_clock::now() < due) {
    const std::optional<Table> table = table_read(play.waiting.front());
    play.waiting.pop_front();
    if (table && std::holds_alternative<Eit>(*table)) play.taker(std::get<Eit>(*table), play.source.shift);
  }
}

// ---- The thread of a tuner ----

// Reads the next packets. Drops packets while the tuner is too late.
std::optional<PlayoutChunk> next_chunk(Play& play, std::string& ret_error) {
  std::optional<PlayoutChunk> chunk = playout_next(*play.playout, true, ret_error);
  const steady_clock::time_point now = steady_clock::now();
  if (!chunk || now - (play.begin + chunk->due) <= kMostLate) return chunk;
  if (now - (play.begin + chunk->due) > kMostDropped) play.begin = now - kMostDropped - chunk->due;
  while (chunk && play.begin + chunk->due < now) {
    collect_events(play, chunk->packets);
    chunk = playout_next(*play.playout, true, ret_error);
  }
  return chunk;
}

// Receives until the job ends or the stream is lost. Returns why it is lost; empty: it is not.
std::string receive(Tuner& tuner, Play& play, Guard& guard) {
  std::string why;
  guard.unlock();
  play.playout = playout_open(play.source.path, why);
  guard.lock();
  sections_want(play.sections, kPidEit);
  play.begin = steady_clock::now();
  while (goes_on(tuner, play) && play.playout) {
    guard.unlock();
    const std::optional<PlayoutChunk> chunk = next_chunk(play, why);
    if (!chunk) {
      guard.lock();
      return why.empty() ? "the stream has ended" : why;
    }
    const steady_clock::time_point due = play.begin + chunk->due;
    give_events(play, due);
    guard.lock();
    if (!wait_until(tuner, play, due, guard)) break;
    call_each(tuner, play, guard, [&chunk](const ReceptionUser& user) {
      if (user.packets != nullptr) user.packets(user.context, *chunk);
    });
    guard.unlock();
    collect_events(play, chunk->packets);
    guard.lock();
  }
  return why;
}

// Frees the tuner.
void release(Tuner& tuner) {
  for (Reception* const each : tuner.users) each->tuner = nullptr;
  tuner.users.clear();
  ++tuner.job;
}

void run_tuner(Tuner& tuner) {
  const std::string name = "dtv_tv-tuner" + std::to_string(index_of(tuner) + 1);
  pthread_setname_np(pthread_self(), name.c_str());
  Guard guard(state.lock);
  while (state.open && !tuner.users.empty()) {
    Play play{.job = tuner.job, .source = tuner.source, .taker = state.taker, .round = state.round};
    std::string why = tuner.dropped;
    if (why.empty()) why = receive(tuner, play, guard);
    if (goes_on(tuner, play) && !why.empty()) {
      tuner.dropped = why;  // from now on nobody joins the users
      call_each(tuner, play, guard, [&why](const ReceptionUser& user) {
        if (user.lost != nullptr) user.lost(user.context, why);
      });
      if (goes_on(tuner, play)) release(tuner);
    }
    guard.unlock();
    play = {};  // closes the file
    guard.lock();
  }
  tuner.worker.runs = false;
}

}  // namespace

void receptions_open(EventTaker taker, EventRound round) {
  const std::lock_guard guard(state.lock);
  state.open = true;
  state.taker = taker;
  state.round = round;
}

void receptions_close() {
  {
    const std::lock_guard guard(state.lock);
    state.open = false;
  }
  state.changed.notify_all();
  for (Tuner& tuner : state.tuners) {
    worker_join(tuner.worker);
    const std::lock_guard guard(state.lock);
    release(tuner);
  }
}

ReceptionHandle receptions_add(const ReceptionSource& source, const ReceptionUser& user,
                               ReceptionRefusal& ret_refusal) {
  const std::lock_guard guard(state.lock);
  const auto refuse = [&ret_refusal](ReceptionRefusal refusal) {
    ret_refusal = refusal;
    return nullptr;
  };
  if (!state.open) return refuse(ReceptionRefusal::kNoSignal);
  const auto receives = [&source](const Tuner& tuner) {
    return !tuner.users.empty() && tuner.dropped.empty() && tuner.source.path == source.path;
  };
  auto tuner = std::ranges::find_if(state.tuners, receives);
  const auto is_idle = [](const Tuner& each) { return each.users.empty(); };
  if (tuner == state.tuners.end())
    tuner =
        std::ranges::find_if(state.tuners, [&](const Tuner& each) { return is_idle(each) && &each != state.visited; });
  if (tuner == state.tuners.end()) tuner = std::ranges::find_if(state.tuners, is_idle);
  if (tuner == state.tuners.end() || tuner->users.size() >= kMostUsers) return refuse(ReceptionRefusal::kNoTuner);
  if (tuner->users.empty()) {
    if (!worker_start(tuner->worker, [tuner] { run_tuner(*tuner); })) return refuse(ReceptionRefusal::kNoTuner);
    tuner->source = source;
    tuner->dropped.clear();
    ++tuner->job;
  }
  ReceptionHandle reception(new Reception{.user = user, .tuner = tuner});
  tuner->users.push_back(reception.get());
  return reception;
}

void ReceptionEnd::operator()(Reception* reception) const {
  Guard guard(state.lock);
  if (Tuner* const tuner = reception->tuner; tuner != nullptr) {
    std::erase(tuner->users, reception);
    if (tuner->users.empty()) ++tuner->job;
    state.changed.notify_all();
  }
  // A function of the user that ends its own reception is not waited for.
  state.returned.wait(guard, [reception] {
    return std::ranges::none_of(state.calling, [reception](const auto& each) {
      return each.first == reception && each.second != std::this_thread::get_id();
    });
  });
  delete reception;
}

void receptions_drop(const std::function<bool(const std::string& path)>& drops, const std::string& why) {
  const std::lock_guard guard(state.lock);
  for (Tuner& tuner : state.tuners) {
    if (tuner.users.empty() || !tuner.dropped.empty() || !drops(tuner.source.path)) continue;
    tuner.dropped = why;
    ++tuner.job;
  }
  state.changed.notify_all();
}

bool receptions_visit_begin(const std::string& path) {
  const std::lock_guard guard(state.lock);
  const auto receives = [&path](const Tuner& tuner) { return !tuner.users.empty() && tuner.source.path == path; };
  auto tuner = std::ranges::find_if(state.tuners, receives);
  if (tuner == state.tuners.end())
    tuner = std::ranges::find_if(state.tuners, [](const Tuner& each) { return each.users.empty(); });
  if (!state.open || tuner == state.tuners.end()) return false;
  state.visited = &*tuner;
  state.visit = path;
  return true;
}

bool receptions_visit_goes_on() {
  const std::lock_guard guard(state.lock);
  return state.open && state.visited != nullptr &&
         (state.visited->users.empty() || state.visited->source.path == state.visit);
}

void receptions_visit_end() {
  const std::lock_guard guard(state.lock);
  state.visited = nullptr;
  state.visit.clear();
}

std::array<TunerUse, kTuners> receptions_use() {
  std::array<TunerUse, kTuners> use;
  const std::lock_guard guard(state.lock);
  for (std::size_t i = 0; i < use.size(); ++i) {
    const Tuner& tuner = state.tuners[i];
    if (!tuner.users.empty()) use[i] = {.path = tuner.source.path, .users = tuner.users.size(), .visited = {}};
    if (&tuner == state.visited) use[i].visited = state.visit;
  }
  return use;
}
