#include "runner.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>

#include "base/exit_codes.h"
#include "log_relay.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::int64_t kSlowNs = std::chrono::nanoseconds(kLimitCallTime).count();
constexpr std::int64_t kBudgetNs = 1'000'000;  // after this time the leader serves sockets again
constexpr std::int64_t kBurstNs = 250'000;     // how long the replies of quick calls wait for each other
constexpr auto kTick = kLimitCallTime;
// A longer tick counts as only this much: the process was probably suspended.
constexpr std::chrono::milliseconds kLongestTick{100};
constexpr std::chrono::seconds kLongestDoze{1};  // while the leader polls

std::int64_t now_ns() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch()).count();
}

constexpr std::size_t kPluginLane = 0;
constexpr std::size_t kControlLane = 1;

std::size_t lane_of(const Job& job) { return job.call.kind == CallKind::kControl ? kControlLane : kPluginLane; }

// Bytes of a waiting job, which count against kLimitWaitingBytes.
std::size_t size_of(const Job& job) { return sizeof job + job.id.size() + job.call.text.size(); }

// The lanes take turns, so that neither keeps the other's calls from starting.
Lane* next_lane(Runner& runner) {
  const std::size_t first = runner.last_lane == kControlLane ? kPluginLane : kControlLane;
  for (const std::size_t lane : {first, kRunnerLanes - 1 - first})
    if (runner.lanes[lane].jobs > 0 && !runner.lanes[lane].busy) return &runner.lanes[lane];
  return nullptr;
}

// Ends the first client's turn: the next take_job takes from the next client.
void end_turn(Lane& lane) { lane.in_turn = kLimitCallsInTurn; }

Job take_job(Runner& runner, Lane& lane) {
  if (lane.in_turn >= kLimitCallsInTurn) {
    lane.turns.push_back(lane.turns.front());
    lane.turns.pop_front();
    lane.in_turn = 0;
  }
  const auto queue = lane.waiting.find(lane.turns.front());
  Job job = std::move(queue->second.front());
  queue->second.pop_front();
  --lane.jobs;
  runner.jobs_bytes -= size_of(job);
  ++lane.in_turn;
  if (queue->second.empty()) {
    lane.waiting.erase(queue);
    lane.turns.pop_front();
    lane.in_turn = 0;
  }
  return job;
}

void leave_process(const char* text) {
  constexpr std::chrono::milliseconds kLogPatience(1000);
  fputs(text, stderr);
  log_relay_end(kLogPatience);
  _exit(kExitStuck);
}

}  // namespace

RunnerAdd runner_add(Runner& runner, Job& job, std::size_t most) {
  const std::size_t number = lane_of(job);
  Lane& lane = runner.lanes[number];
  if (lane.jobs >= (number == kControlLane ? kLimitControlRequests : most) || runner.jobs_bytes >= kLimitWaitingBytes)
    return RunnerAdd::kFull;
  const auto queue = lane.waiting.find(job.client);
  if (number == kControlLane && queue != lane.waiting.end() && queue->second.size() >= kLimitControlRequestsPerClient)
    return RunnerAdd::kFullForClient;
  if (queue == lane.waiting.end()) lane.turns.push_back(job.client);
  runner.jobs_bytes += size_of(job);
  ++lane.jobs;
  lane.waiting[job.client].push_back(std::move(job));
  return RunnerAdd::kAdded;
}

bool runner_has_work(const Runner& runner) {
  return std::ranges::any_of(runner.lanes, [](const Lane& lane) { return lane.jobs > 0 && !lane.busy; });
}

std::size_t runner_waiting(const Runner& runner) {
  std::size_t jobs = 0;
  for (const Lane& lane : runner.lanes) jobs += lane.jobs;
  return jobs;
}

bool runner_run(Runner& runner, unsigned self, RunnerDeliver deliver) {
  static thread_local Outcome outcome;
  void* context = runner.context;
  std::int64_t now = now_ns();
  const std::int64_t end = now + kBudgetNs;
  std::int64_t burst_end = now + kBurstNs;
  while (now < end) {
    Lane* const lane = next_lane(runner);
    if (lane == nullptr) return true;
    Job job = take_job(runner, *lane);
    lane->busy = true;
    runner.last_lane = lane_of(job);

    runner.turns.fetch_add(1, std::memory_order_relaxed);
    runner.calling_since.store(now);
    runner.calling.store(self);
    call_run(*runner.stack, *runner.tracer, job.call, outcome);
    // When the lead was taken away, calling is no longer this thread's number.
    if (unsigned still = self; !runner.calling.compare_exchange_strong(still, 0)) {
      {
        const std::lock_guard lock(runner.mutex);
        runner.finished.push_back({std::move(job), std::move(outcome)});
      }
      runner.wake(context);
      return false;
    }
    lane->busy = false;
    now = now_ns();
    const bool more = next_lane(runner) != nullptr && now < std::min(burst_end, end);
    deliver(context, job, outcome, more);
    if (!more) burst_end = now + kBurstNs;
  }
  return true;
}

void runner_take_finished(Runner& runner, std::vector<Finished>& ret_finished) {
  ret_finished.clear();
  {
    const std::lock_guard lock(runner.mutex);
    ret_finished.swap(runner.finished);
  }
  for (const Finished& one : ret_finished) {
    Lane& lane = runner.lanes[lane_of(one.job)];
    lane.busy = false;
    if (!lane.turns.empty() && lane.turns.front() == one.job.client) end_turn(lane);
  }
}

void runner_begin_turn(Runner& runner, bool rouses) {
  runner.turns.fetch_add(1);
  if (!runner.resting.exchange(false)) return;
  if (!rouses || !runner.dozing.load()) return;
  const std::lock_guard lock(runner.mutex);
  runner.roused = true;
  runner.watcher.notify_one();
}

void runner_rest(Runner& runner) { runner.resting.store(true); }

bool runner_stand_by(Runner& runner) {
  std::unique_lock lock(runner.mutex);
  runner.standby.wait(lock, [&] { return runner.vacant || runner.stop; });
  if (runner.stop) return false;
  runner.vacant = false;
  return true;
}

void runner_watch(Runner& runner) {
  std::unique_lock lock(runner.mutex);
  std::uint64_t seen = 0;
  std::chrono::nanoseconds stuck{0};
  auto last = Clock::now();
  while (!runner.watcher.wait_for(lock, kTick, [&] { return runner.stop; })) {
    const auto now = Clock::now();
    const auto passed = std::min<std::chrono::nanoseconds>(now - last, kLongestTick);
    last = now;

    unsigned leader = runner.calling.load();
    const std::int64_t since = runner.calling_since.load();
    // If the slow call ends and a new one begins before the exchange, the new call loses the lead. That does no harm.
    if (leader != 0 && now_ns() - since > kSlowNs && runner.calling.compare_exchange_strong(leader, 0)) {
      runner.vacant = true;
      runner.standby.notify_one();
    }

    const std::uint64_t turns = runner.turns.load();
    const bool quiet = turns == seen;
    seen = turns;
    stuck =
        quiet && leader == 0 && !runner.resting.load() && !runner.vacant ? stuck + passed : std::chrono::nanoseconds(0);
    if (runner.watchdog && stuck > runner.turn_time)
      return (runner.stuck != nullptr ? runner.stuck : leave_process)(
          "dtv-host: the serving thread is stuck; ending, so that a supervisor can restart it (--no-watchdog prevents "
          "this)\n");

    if (leader != 0 || !runner.resting.load() || (!quiet && !runner.polls.load())) continue;
    runner.dozing.store(true);
    const auto is_roused = [&] { return runner.roused || runner.stop; };
    // The leader may have begun a turn before it could see `dozing`.
    if (runner.resting.load()) {
      if (runner.polls.load())
        runner.watcher.wait_for(lock, kLongestDoze, is_roused);
      else
        runner.watcher.wait(lock, is_roused);
    }
    runner.dozing.store(false);
    runner.roused = false;
    last = Clock::now();
  }
}

void runner_stop(Runner& runner) {
  const std::lock_guard lock(runner.mutex);
  runner.stop = true;
  runner.watcher.notify_all();
  runner.standby.notify_all();
}
