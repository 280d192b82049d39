// Who runs calls. A handful of threads of which one leads: only the leader touches sockets and the server's state. It
// runs calls itself, where they were read, since handing a call of a few microseconds to another thread costs more
// than the call. When a call takes long, the next thread takes the lead over and serves everybody else; the thread in
// the slow call delivers its outcome through a queue when the platform returns, and stands by again.
//
// The plugin serves one request at a time, the virtual television's control is a second lane beside it. A lane with a
// slow call waits for it; the other lane, and everything that calls nothing, go on.
#pragma once

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "calls.h"

struct Job {
  std::uint64_t client = 0;  // whom the outcome is for
  std::uint64_t batch = 0;   // and in which of its batches, 0: none,
  std::size_t slot = 0;      // at which place
  std::string id = {};       // JSON-RPC id, see RpcRequest
  Call call = {};
};

struct Finished {
  Job job;
  Outcome outcome;
};

// One lane for the plugin's requests, one for the television's control; the leader is a third.
inline constexpr std::size_t runner_lanes = 2;
inline constexpr unsigned runner_threads = runner_lanes + 1;

struct Runner {
  const Stack* stack;
  Tracer* tracer;
  void (*wake)(void* context);  // makes the leader return from its wait; called from any thread
  void* context;

  // The leader's own. A thread that takes the lead sees what the last leader left.
  std::deque<Job> jobs;
  std::array<bool, runner_lanes> busy{};  // a thread that lost the lead is in a call of this lane
  std::size_t jobs_bytes = 0;

  std::atomic<unsigned> calling{0};            // the leading thread's number while it is in a call, else 0
  std::atomic<std::int64_t> calling_since{0};  // steady clock, ns; changes with each call
  std::atomic<bool> dozing{false};             // the watching thread sleeps until a call is made

  std::mutex mutex;                // guards what follows
  std::condition_variable roused;  // a call was made while the watching thread dozed, or stop
  std::vector<Finished> finished;  // of threads that had lost the lead
  bool stop = false;

  std::mutex watch_mutex;  // held by the one standing-by thread that watches; the others wait for it here
};

void runner_add(Runner& runner, Job job);

// Whether a job could run now.
bool runner_has_work(const Runner& runner);

// Leader: runs waiting jobs for about a millisecond. deliver is called on the leader for each, with more telling
// whether the next one is for the same client. Returns false when this thread, number self (from 1), has lost the
// lead meanwhile; it must then touch nothing of the leader's and call runner_stand_by.
using RunnerDeliver = void (*)(void* context, Job& job, Outcome& outcome, bool more);
bool runner_run(Runner& runner, unsigned self, RunnerDeliver deliver);

// Leader: takes what the slow calls have brought.
void runner_take_finished(Runner& runner, std::vector<Finished>& ret_finished);

// Waits until this thread leads; false: it is time to stop.
bool runner_stand_by(Runner& runner);

// Lets all threads return. A slow call is waited for by joining its thread.
void runner_stop(Runner& runner);
