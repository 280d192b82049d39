#include "runner.h"

#include <algorithm>
#include <chrono>

namespace {

constexpr std::int64_t slow_ns = 2'000'000;    // a call that takes longer costs the thread the lead
constexpr std::int64_t budget_ns = 1'000'000;  // then sockets are looked at again
constexpr auto tick = std::chrono::milliseconds(1);
constexpr int ticks_until_doze = 50;  // without any call

std::int64_t now_ns() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

std::size_t lane_of(const Job& job) { return job.call.kind == CallKind::control ? 1 : 0; }

// What a waiting job holds of the memory that all of them may take.
std::size_t size_of(const Job& job) { return sizeof job + job.id.size() + job.call.text.size(); }

auto next_job(Runner& runner) {
  return std::ranges::find_if(runner.jobs, [&](const Job& job) { return !runner.busy[lane_of(job)]; });
}

// Ends a nap early where a call comes, or stop; one such wait per burst of calls.
void doze(Runner& runner, std::int64_t seen) {
  std::unique_lock lock(runner.mutex);
  runner.dozing.store(true);
  if (runner.calling_since.load() == seen && !runner.stop)
    runner.roused.wait(lock, [&] { return runner.calling_since.load() != seen || runner.stop; });
  runner.dozing.store(false);
}

}  // namespace

void runner_add(Runner& runner, Job job) {
  runner.jobs_bytes += size_of(job);
  runner.jobs.push_back(std::move(job));
}

bool runner_has_work(const Runner& runner) {
  return std::ranges::any_of(runner.jobs, [&](const Job& job) { return !runner.busy[lane_of(job)]; });
}

bool runner_run(Runner& runner, unsigned self, RunnerDeliver deliver) {
  static thread_local Outcome outcome;
  void* context = runner.context;
  std::int64_t now = now_ns();
  const std::int64_t end = now + budget_ns;
  while (now < end) {
    const auto next = next_job(runner);
    if (next == runner.jobs.end()) return true;
    Job job = std::move(*next);
    runner.jobs.erase(next);
    runner.jobs_bytes -= size_of(job);
    const std::size_t lane = lane_of(job);
    runner.busy[lane] = true;

    runner.calling_since.store(now);
    runner.calling.store(self);
    if (runner.dozing.load()) {
      const std::lock_guard lock(runner.mutex);
      runner.roused.notify_one();
    }
    call_run(*runner.stack, *runner.tracer, job.call, outcome);
    // Where another thread has taken the lead, calling is no longer this thread's number.
    if (unsigned still = self; !runner.calling.compare_exchange_strong(still, 0)) {
      {
        const std::lock_guard lock(runner.mutex);
        runner.finished.push_back({std::move(job), std::move(outcome)});
      }
      runner.wake(context);
      return false;
    }
    runner.busy[lane] = false;
    const auto after = next_job(runner);
    deliver(context, job, outcome, after != runner.jobs.end() && after->client == job.client);
    now = now_ns();
  }
  return true;
}

void runner_take_finished(Runner& runner, std::vector<Finished>& ret_finished) {
  ret_finished.clear();
  {
    const std::lock_guard lock(runner.mutex);
    ret_finished.swap(runner.finished);
  }
  for (const Finished& one : ret_finished) runner.busy[lane_of(one.job)] = false;
}

bool runner_stand_by(Runner& runner) {
  const std::lock_guard watching(runner.watch_mutex);
  std::int64_t seen = runner.calling_since.load();
  int idle = 0;
  for (;;) {
    {
      std::unique_lock lock(runner.mutex);
      if (runner.roused.wait_for(lock, tick, [&] { return runner.stop; })) return false;
    }
    unsigned leader = runner.calling.load();
    const std::int64_t since = runner.calling_since.load();
    // A call that began after these two loads may be taken for the slow one: it then merely changes threads.
    if (leader != 0 && now_ns() - since > slow_ns && runner.calling.compare_exchange_strong(leader, 0)) return true;
    idle = leader != 0 || since != seen ? 0 : idle + 1;
    seen = since;
    if (idle < ticks_until_doze) continue;
    doze(runner, seen);
    idle = 0;
  }
}

void runner_stop(Runner& runner) {
  const std::lock_guard lock(runner.mutex);
  runner.stop = true;
  runner.roused.notify_all();
}
