// Runs the calls. Of a few threads one is the leader: only the leader uses sockets and the server's state. It runs
// calls itself, since passing a call of a few microseconds to another thread costs more than the call. When a call
// takes long, another thread becomes the leader and serves all other requests. The thread in the slow call puts the
// outcome into a queue when the platform returns, and becomes a standby thread again.
//
// The plugin serves one request at a time; the virtual television's control commands are a second lane. A slow call
// blocks its own lane; the other lane, and requests without a call, go on. In a lane the clients take turns.
//
// One more thread watches the leader: it lets another thread take the lead when a call is slow, and ends the process
// when the leader is stuck outside a call. It sleeps while the leader waits.
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
  std::uint64_t client = 0;  // the client that gets the outcome
  std::uint64_t batch = 0;   // of this client; 0: not in a batch
  std::size_t slot = 0;      // the place in the batch
  std::string id = {};       // JSON-RPC id, see RpcRequest
  Call call = {};
};

struct Finished {
  Job job;
  Outcome outcome;
};

// One lane for the plugin's requests, one for control commands; each can occupy a thread, and one more leads.
inline constexpr std::size_t kRunnerLanes = 2;
inline constexpr unsigned kRunnerThreads = kRunnerLanes + 1;

struct Lane {
  std::unordered_map<std::uint64_t, std::deque<Job>> waiting;  // by client; no queue is empty
  std::deque<std::uint64_t> turns;  // the clients with waiting jobs; it is the turn of the first
  unsigned in_turn = 0;             // jobs of the first client in this turn
  std::size_t jobs = 0;             // of all clients
  bool busy = false;                // a call of this lane is running
};

struct Runner {
  const Stack* stack;
  Tracer* tracer;
  void (*wake)(void* context);  // makes the leader return from its wait; called from any thread
  void* context;
  bool watchdog = true;
  std::chrono::milliseconds turn_time = kLimitTurnTime;
  void (*stuck)(const char* text) =
      nullptr;  // called on the watching thread when the leader is stuck; null: the process ends

  // Used only by the leader. Taking the lead synchronizes with the previous leader.
  std::array<Lane, kRunnerLanes> lanes;
  std::size_t last_lane = 0;  // the lane of the newest call
  std::size_t jobs_bytes = 0;

  std::atomic<unsigned> calling{
      0};  // the leader's number during its call; the watching thread sets 0 to take the lead away
  std::atomic<std::int64_t> calling_since{0};  // steady clock, ns: when the call began, or the call before it returned
  std::atomic<bool> resting{false};            // the leader waits for events
  std::atomic<std::uint64_t> turns{0};         // incremented with each turn and each call of the leader
  std::atomic<bool> dozing{false};             // the watching thread sleeps until the leader stops resting
  std::atomic<bool> polls{
      false};  // the leader has periodic turns that make no calls and do not wake the watching thread

  std::mutex mutex;  // guards the following members
  std::condition_variable
      watcher;  // signalled when the leader stops resting while the watching thread dozes, and on stop
  std::condition_variable standby;  // signalled when the lead is vacant, and on stop
  bool roused = false;
  bool vacant = false;
  std::vector<Finished> finished;  // outcomes of threads that lost the lead during the call
  bool stop = false;
};

enum class RunnerAdd { kAdded, kFull, kFullForClient };

// Leader: queues a job, unless its lane or this client's share of the control lane is full. most: the limit of the
// plugin's lane.
RunnerAdd runner_add(Runner& runner, Job& job, std::size_t most);

// Leader: whether a job could run now.
bool runner_has_work(const Runner& runner);

std::size_t runner_waiting(const Runner& runner);

// Leader: runs waiting jobs for about a millisecond and calls deliver for each; more is true when another job follows
// so soon that replies may wait for it. self is this thread's number, from 1. Returns false when this thread has lost
// the lead; it must then use nothing that belongs to the leader and call runner_stand_by.
using RunnerDeliver = void (*)(void* context, Job& job, Outcome& outcome, bool more);
bool runner_run(Runner& runner, unsigned self, RunnerDeliver deliver);

// Leader: takes the outcomes of slow calls.
void runner_take_finished(Runner& runner, std::vector<Finished>& ret_finished);

// Leader: called when a turn begins, and when the leader rests until the next one. A turn that makes no calls need not
// wake the watching thread (rouses). With runner.polls set, that thread looks again within a second, so a stuck leader
// is noticed up to a second later than usual.
void runner_begin_turn(Runner& runner, bool rouses = true);
void runner_rest(Runner& runner);

// Waits until this thread is the leader. Returns false when the runner stops.
bool runner_stand_by(Runner& runner);

// The watching thread's function; returns after runner_stop.
void runner_watch(Runner& runner);

// Makes all threads return. Joining the thread of a slow call waits for the call.
void runner_stop(Runner& runner);
