// The runner: quick calls run on the leader, a slow call makes another thread the leader.
#include "runner.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <thread>

namespace {

using namespace std::chrono_literals;

// A plugin whose gets wait while the gate is closed.
std::mutex gate_mutex;
std::condition_variable gate_moved;
bool gate_closed = false;
int waiting_at_gate = 0;

void close_gate() {
  const std::lock_guard lock(gate_mutex);
  gate_closed = true;
}

void open_gate() {
  const std::lock_guard lock(gate_mutex);
  gate_closed = false;
  gate_moved.notify_all();
}

std::int32_t gated_get(const char* uri, const char*, void* content) {
  std::unique_lock lock(gate_mutex);
  ++waiting_at_gate;
  gate_moved.notify_all();
  gate_moved.wait(lock, [] { return !gate_closed; });
  --waiting_at_gate;
  memcpy(content, uri, strlen(uri));
  return 0;
}

char* quick_control(const char*) { return strdup("{\"done\":true}"); }

struct Bench {
  Stack stack{};
  Tracer tracer{};
  Runner runner{};
  std::vector<std::string> delivered;
  std::vector<std::thread::id> delivered_on;
  std::atomic<int> woken{0};

  Bench() {
    stack.get = gated_get;
    stack.tv_control = quick_control;
    tracer.stack = &stack;
    runner.stack = &stack;
    runner.tracer = &tracer;
    runner.context = this;
    runner.wake = [](void* context) { static_cast<Bench*>(context)->woken.fetch_add(1); };
  }
  static void deliver(void* context, Job& job, Outcome& outcome, bool) {
    static_cast<Bench*>(context)->delivered.push_back(job.id + " " + outcome.text);
    static_cast<Bench*>(context)->delivered_on.push_back(std::this_thread::get_id());
  }
};

Job get_job(const char* id, std::uint64_t client = 1) {
  return {.client = client, .id = id, .call = {.kind = CallKind::kGet, .uri = "/gate"}};
}

Job control_job(const char* id, std::uint64_t client = 2) {
  return {.client = client, .id = id, .call = {.kind = CallKind::kControl, .text = "[\"volume\"]"}};
}

RunnerAdd add(Runner& runner, Job job, std::size_t most = 100) { return runner_add(runner, job, most); }

// Runs every job that waits. A runner_run ends after its share of time, on a busy machine with jobs left; each runs at
// least one job.
void run_all(Bench& bench) {
  for (std::size_t runs = runner_waiting(bench.runner); runs > 0 && runner_has_work(bench.runner); --runs)
    EXPECT_TRUE(runner_run(bench.runner, 1, Bench::deliver));
  EXPECT_FALSE(runner_has_work(bench.runner));
}

// Runs the watching thread until it is destroyed.
struct Watch {
  Runner& runner;
  std::thread thread;
  explicit Watch(Runner& watched) : runner(watched), thread(runner_watch, std::ref(watched)) {}
  ~Watch() {
    runner_stop(runner);
    thread.join();
  }
};

TEST(Runner, QuickCallsRunWhereTheyWereRead) {
  Bench bench;
  for (const char* id : {"a", "b"}) add(bench.runner, get_job(id));
  add(bench.runner, control_job("c"));
  EXPECT_GT(bench.runner.jobs_bytes, 0u);
  EXPECT_EQ(runner_waiting(bench.runner), 3u);
  run_all(bench);
  EXPECT_EQ(bench.delivered, (std::vector<std::string>{"c {\"done\":true}", "a /gate", "b /gate"}));
  EXPECT_EQ(bench.delivered_on, std::vector<std::thread::id>(3, std::this_thread::get_id()));
  EXPECT_EQ(bench.runner.jobs_bytes, 0u);
}

TEST(Runner, ClientsTakeTurns) {
  Bench bench;
  for (int i = 0; i < 10; ++i) add(bench.runner, get_job("a", 1));
  for (int i = 0; i < 3; ++i) add(bench.runner, get_job("b", 2));
  add(bench.runner, get_job("c", 3));
  run_all(bench);
  std::string order;
  for (const std::string& one : bench.delivered) order += one[0];
  ASSERT_EQ(kLimitCallsInTurn, 4u);
  EXPECT_EQ(order, "aaaabbbcaaaaaa");
}

// Control commands that each use up the leader's share of time do not keep a request from its turn.
TEST(Runner, LanesTakeTurns) {
  Bench bench;
  bench.stack.tv_control = [](const char*) {
    std::this_thread::sleep_for(2ms);
    return strdup("{}");
  };
  add(bench.runner, get_job("g1"));
  add(bench.runner, get_job("g2"));
  for (const char* id : {"c1", "c2", "c3"}) add(bench.runner, control_job(id));
  run_all(bench);
  const std::vector<std::string> expected = {"c1 {}", "g1 /gate", "c2 {}", "g2 /gate", "c3 {}"};
  EXPECT_EQ(bench.delivered, expected);
}

TEST(Runner, LanesHaveLimitsOfTheirOwn) {
  Bench bench;
  for (int i = 0; i < 5; ++i) EXPECT_EQ(add(bench.runner, get_job("a"), 5), RunnerAdd::kAdded);
  EXPECT_EQ(add(bench.runner, get_job("a"), 5), RunnerAdd::kFull);
  // The plugin's lane is full; control commands are still accepted, and no client can fill their lane.
  std::uint64_t client = 10;
  for (std::size_t i = 0; i < kLimitControlRequestsPerClient; ++i)
    EXPECT_EQ(add(bench.runner, control_job("c", client), 5), RunnerAdd::kAdded);
  EXPECT_EQ(add(bench.runner, control_job("c", client), 5), RunnerAdd::kFullForClient);
  for (std::size_t i = kLimitControlRequestsPerClient; i < kLimitControlRequests; ++i)
    EXPECT_EQ(add(bench.runner, control_job("c", ++client), 5), RunnerAdd::kAdded);
  EXPECT_EQ(add(bench.runner, control_job("c", ++client), 5), RunnerAdd::kFull);
}

TEST(Runner, WaitingRequestsHaveAMemoryLimit) {
  Bench bench;
  Job large = get_job("large");
  large.call.text.assign(kLimitWaitingBytes, 'x');
  EXPECT_EQ(add(bench.runner, large), RunnerAdd::kAdded);
  EXPECT_EQ(add(bench.runner, get_job("small")), RunnerAdd::kFull);
  EXPECT_TRUE(runner_run(bench.runner, 1, Bench::deliver));
  EXPECT_EQ(add(bench.runner, get_job("small")), RunnerAdd::kAdded);
}

TEST(Runner, ASlowCallCostsTheLeadAndIsDeliveredLater) {
  Bench bench;
  const Watch watch(bench.runner);
  close_gate();
  add(bench.runner, get_job("slow"));
  add(bench.runner, get_job("behind"));

  bool kept = true;
  std::thread first([&] { kept = runner_run(bench.runner, 1, Bench::deliver); });
  // This thread stands by, and becomes the leader when the call turns out to be slow.
  ASSERT_TRUE(runner_stand_by(bench.runner));
  EXPECT_FALSE(runner_has_work(bench.runner)) << "the plugin serves one request at a time";

  add(bench.runner, control_job("beside"));
  EXPECT_TRUE(runner_has_work(bench.runner));
  EXPECT_TRUE(runner_run(bench.runner, 2, Bench::deliver));
  EXPECT_EQ(bench.delivered, std::vector<std::string>{"beside {\"done\":true}"});

  open_gate();
  first.join();
  EXPECT_FALSE(kept);
  EXPECT_EQ(bench.woken.load(), 1);
  std::vector<Finished> finished;
  runner_take_finished(bench.runner, finished);
  ASSERT_EQ(finished.size(), 1u);
  EXPECT_EQ(finished[0].job.id, "slow");
  EXPECT_EQ(finished[0].outcome.text, "/gate");

  EXPECT_TRUE(runner_has_work(bench.runner));
  EXPECT_TRUE(runner_run(bench.runner, 2, Bench::deliver));
  EXPECT_EQ(bench.delivered.back(), "behind /gate");
}

TEST(Runner, StandingByEndsWithStop) {
  Bench bench;
  std::atomic<int> ended{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 2; ++i)
    threads.emplace_back([&] {
      if (!runner_stand_by(bench.runner)) ended.fetch_add(1);
    });
  threads.emplace_back([&] {
    runner_watch(bench.runner);
    ended.fetch_add(1);
  });
  std::this_thread::sleep_for(20ms);
  runner_stop(bench.runner);
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(ended.load(), 3);
}

TEST(Runner, ATurnRousesTheDozingWatcher) {
  Bench bench;
  const Watch watch(bench.runner);
  runner_rest(bench.runner);
  while (!bench.runner.dozing.load()) std::this_thread::sleep_for(1ms);
  runner_begin_turn(bench.runner);
  close_gate();
  add(bench.runner, get_job("slow"));
  std::thread first([&] { EXPECT_FALSE(runner_run(bench.runner, 1, Bench::deliver)); });
  EXPECT_TRUE(runner_stand_by(bench.runner));
  open_gate();
  first.join();
}

std::atomic<int> alarms{0};

TEST(Runner, AStuckLeaderIsNoticed) {
  Bench bench;
  bench.runner.turn_time = 50ms;
  bench.runner.stuck = [](const char* text) {
    if (strstr(text, "stuck") != nullptr) alarms.fetch_add(1);
  };
  alarms = 0;
  const Watch watch(bench.runner);
  // A turn begins, and then nothing happens.
  runner_begin_turn(bench.runner);
  for (int i = 0; i < 10'000 && alarms.load() == 0; ++i) std::this_thread::sleep_for(1ms);
  EXPECT_EQ(alarms.load(), 1);
}

TEST(Runner, ALeaderThatRestsIsNotStuck) {
  Bench bench;
  bench.runner.turn_time = 50ms;
  bench.runner.stuck = [](const char*) { alarms.fetch_add(1); };
  alarms = 0;
  const Watch watch(bench.runner);
  runner_rest(bench.runner);
  std::this_thread::sleep_for(200ms);
  EXPECT_EQ(alarms.load(), 0);
}

TEST(Runner, ALeaderThatCallsIsNotStuck) {
  Bench bench;
  bench.runner.turn_time = 1s;  // a busy machine may stop the threads between the turn's begin and its call
  bench.runner.stuck = [](const char*) { alarms.fetch_add(1); };
  alarms = 0;
  const Watch watch(bench.runner);
  // A slow call makes another thread the leader, which rests.
  runner_begin_turn(bench.runner);
  close_gate();
  add(bench.runner, get_job("slow"));
  std::thread first([&] { runner_run(bench.runner, 1, Bench::deliver); });
  ASSERT_TRUE(runner_stand_by(bench.runner));
  runner_rest(bench.runner);
  std::this_thread::sleep_for(1500ms);
  open_gate();
  first.join();
  EXPECT_EQ(alarms.load(), 0);
}

}  // namespace
