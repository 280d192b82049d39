// Who runs calls: inline while they are quick, on another thread's back when they are slow.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <thread>

#include "runner.h"

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

Job get_job(const char* id) { return {.client = 1, .id = id, .call = {.kind = CallKind::get, .uri = "/gate"}}; }

Job control_job(const char* id) {
  return {.client = 2, .id = id, .call = {.kind = CallKind::control, .text = "[\"volume\"]"}};
}

TEST(Runner, QuickCallsRunWhereTheyWereRead) {
  Bench bench;
  for (const char* id : {"a", "b"}) runner_add(bench.runner, get_job(id));
  runner_add(bench.runner, control_job("c"));
  EXPECT_GT(bench.runner.jobs_bytes, 0u);
  EXPECT_TRUE(runner_run(bench.runner, 1, Bench::deliver));
  EXPECT_EQ(bench.delivered, (std::vector<std::string>{"a /gate", "b /gate", "c {\"done\":true}"}));
  EXPECT_EQ(bench.delivered_on, std::vector<std::thread::id>(3, std::this_thread::get_id()));
  EXPECT_EQ(bench.runner.jobs_bytes, 0u);
  EXPECT_FALSE(runner_has_work(bench.runner));
}

TEST(Runner, ASlowCallCostsTheLeadAndIsDeliveredLater) {
  Bench bench;
  close_gate();
  runner_add(bench.runner, get_job("slow"));
  runner_add(bench.runner, get_job("behind"));

  bool kept = true;
  std::thread first([&] { kept = runner_run(bench.runner, 1, Bench::deliver); });
  // This thread stands by, and leads as soon as the call has turned out to be slow.
  ASSERT_TRUE(runner_stand_by(bench.runner));
  EXPECT_FALSE(runner_has_work(bench.runner)) << "the plugin serves one request at a time";

  runner_add(bench.runner, control_job("beside"));
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
  std::this_thread::sleep_for(120ms);  // one of them dozes by now
  runner_stop(bench.runner);
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(ended.load(), 2);
}

TEST(Runner, ACallRousesTheDozingThread) {
  Bench bench;
  std::atomic<bool> leads{false};
  std::thread other([&] { leads.store(runner_stand_by(bench.runner)); });
  while (!bench.runner.dozing.load()) std::this_thread::sleep_for(1ms);
  close_gate();
  runner_add(bench.runner, get_job("slow"));
  std::thread first([&] { EXPECT_FALSE(runner_run(bench.runner, 1, Bench::deliver)); });
  other.join();
  EXPECT_TRUE(leads.load());
  open_gate();
  first.join();
}

}  // namespace
