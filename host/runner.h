// Who runs calls. A handful of threads of which one leads: only the leader touches sockets and the server's state. It
// runs calls itself, where they were read, since handing a call of a few microseconds to another thread costs more
// than the call. When a call takes long, the next thread takes the lead over and serves everybody else; the thread in
// the slow call delivers its outcome through a queue when the platform returns, and stands by again.
//
// The plugin serves one request at a time, the virtual television's control is a second lane beside it. A lane with a
// slow call waits for it; the other lane, and everything that calls nothing, go on. In a lane the clients take turns.
//
// One more thread watches the leader: it hands the lead over when a call is slow, and ends the process when the leader
// is stuck outside of a call. It sleeps while the leader does.
#pragma once

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "bounds.h"
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
inline constexpr std::size_t kRunnerLanes = 2;
inline constexpr unsigned kRunnerThreads = kRunnerLanes + 1;

struct Lane {
  std::unordered_map<std::uint64_t, std::deque<Job>> waiting;  // by client; no queue is empty
  std::deque<std::uint64_t> turns;                             // the clients with waiting jobs; the first has its turn
  unsigned in_turn = 0;                                        // jobs that it has had in this turn
  std::size_t jobs = 0;                                        // of all clients
  bool busy = false;                                           // a thread that lost the lead is in a call of this lane
};

struct Runner {
  const Stack* stack;
  Tracer* tracer;
  void (*wake)(void* context);  // makes the leader return from its wait; called from any thread
  void* context;
  bool watchdog = true;
  std::chrono::milliseconds turn_time = kLimitTurnTime;
  void (*stuck)(const char* text) =
      nullptr;  // called on the watching thread when the leader is stuck; null: ends the process

  // The leader's own. A thread that takes the lead sees what the last leader left.
  std::array<Lane, kRunnerLanes> lanes;
  std::size_t jobs_bytes = 0;

  std::atomic<unsigned> calling{0};            // the leading thread's number while it is in a call, else 0
  std::atomic<std::int64_t> calling_since{0};  // steady clock, ns; changes with each call
  std::atomic<bool> resting{false};            // the leader waits for something to happen
  std::atomic<std::uint64_t> turns{0};         // how often it has stopped resting, and how many calls it has made
  std::atomic<bool> dozing{false};             // the watching thread sleeps until the leader stops resting
  std::atomic<bool> polls{false};              // the leader has turns of its own that make no calls and rouse nobody

  std::mutex mutex;                 // guards what follows
  std::condition_variable watcher;  // the leader has stopped resting while the watching thread dozed; or stop
  std::condition_variable standby;  // the lead is vacant; or stop
  bool roused = false;
  bool vacant = false;
  std::vector<Finished> finished;  // of threads that had lost the lead
  bool stop = false;
};

enum class RunnerAdd { kAdded, kFull, kFullForClient };

// Leader: queues a job, unless its lane, or this client's share of the control lane, is full. most: the plugin's lane.
RunnerAdd runner_add(Runner& runner, Job& job, std::size_t most);

// Leader: whether a job could run now.
bool runner_has_work(const Runner& runner);

std::size_t runner_waiting(const Runner& runner);

// Leader: runs waiting jobs for about a millisecond. deliver is called on the leader for each, with more telling
// whether another job follows so soon that replies may wait for its own. Returns false when this thread, number self
// (from 1), has lost the lead meanwhile; it must then touch nothing of the leader's and call runner_stand_by.
using RunnerDeliver = void (*)(void* context, Job& job, Outcome& outcome, bool more);
bool runner_run(Runner& runner, unsigned self, RunnerDeliver deliver);

// Leader: takes what the slow calls have brought.
void runner_take_finished(Runner& runner, std::vector<Finished>& ret_finished);

// Leader: tells the watching thread that a turn begins, and that it rests until the next one. A turn that makes no
// calls need not rouse it; it then sees only after a second that the leader is stuck, where runner.polls is set.
void runner_begin_turn(Runner& runner, bool rouses = true);
void runner_rest(Runner& runner);

// Waits until this thread leads; false: it is time to stop.
bool runner_stand_by(Runner& runner);

// What the watching thread does, until runner_stop.
void runner_watch(Runner& runner);

// Lets all threads return. A slow call is waited for by joining its thread.
void runner_stop(Runner& runner);
