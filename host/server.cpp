#include "server.h"

#include <malloc.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include "network.h"

namespace {

using std::chrono::steady_clock;

// Runs on the platform's thread that made the callback.
void on_event(void* context) {
  auto& server = *static_cast<Server*>(context);
  server.event.store(true);
  server_wake(server);
}

// Runs on the television's thread that writes changes to the disk.
void on_kept(void* context, std::uint64_t change, std::int32_t failure) {
  auto& server = *static_cast<Server*>(context);
  {
    const std::lock_guard lock(server.kept_mutex);
    server.kept_reports.push_back({.change = change, .failure = failure});
  }
  server_wake(server);
}

// Sends waiting output, and goes on with clients whose input was interrupted. Stops after about a millisecond, since
// other clients wait to be read.
void flush_dirty(Server& server) {
  constexpr std::chrono::milliseconds kBudget(1);
  const std::size_t count = server.dirty.size();  // clients that are marked in the meantime are served later
  if (count == 0) return;
  const auto end = steady_clock::now() + kBudget;
  std::size_t done = 0;
  while (done < count && (done == 0 || steady_clock::now() < end)) {
    const auto found = server.clients.find(server.dirty[done++]);
    if (found == server.clients.end()) continue;
    found->second->dirty = false;
    server_flush(server, *found->second);
  }
  server.dirty.erase(server.dirty.begin(), server.dirty.begin() + static_cast<std::ptrdiff_t>(done));
}

// Replies of a burst of calls are sent together: a client that wakes up for the first is still awake when the others
// arrive, which saves both sides most of the cost of waking up.
void deliver(void* context, Job& job, Outcome& outcome, bool more) {
  auto& server = *static_cast<Server*>(context);
  const std::uint64_t id = job.client;
  server_deliver(server, job, outcome);
  if (const auto found = server.clients.find(id); found != server.clients.end()) server_mark(server, *found->second);
  if (!more) flush_dirty(server);
}

// Every handler of the network begins a turn.
template <typename Action>
auto in_turn(Server& server, Action action) {
  return [&server, action](const boost::system::error_code& failure, auto&&...) {
    runner_begin_turn(server.runner);
    if (failure != asio::error::operation_aborted) action(server);
  };
}

void await_wake(Server& server) {
  Descriptor& waker = server.network->waker;
  waker.async_wait(Descriptor::wait_read, in_turn(server, [](Server& woken) {
                     std::uint64_t times = 0;
                     [[maybe_unused]] const ssize_t bytes =
                         read(woken.network->waker.native_handle(), &times, sizeof times);
                     await_wake(woken);
                   }));
}

void await_connections(Server& server) {
  Network& network = *server.network;
  network.acceptor.async_wait(Acceptor::wait_read, in_turn(server, [](Server& called) {
                                constexpr int kMostAtOnce = 64;
                                Network& net = *called.network;
                                for (int i = 0; i < kMostAtOnce; ++i) {
                                  boost::system::error_code failure;
                                  Socket socket(net.io);
                                  net.acceptor.accept(socket, failure);
                                  if (failure == asio::error::would_block) break;
                                  if (failure == asio::error::no_descriptors) {
                                    // The connection stays in the system's queue; trying again at once would spin.
                                    constexpr auto kPause = std::chrono::milliseconds(100);
                                    net.accept_again.expires_after(kPause);
                                    return net.accept_again.async_wait(in_turn(called, await_connections));
                                  }
                                  if (!failure) connection_begin(called, std::move(socket));
                                }
                                await_connections(called);
                              }));
}

// Without a tap nothing reports callbacks, so the listener buffers are polled while a client is subscribed.
void keep_polling(Server& server) {
  constexpr auto kPollTime = std::chrono::microseconds(1800);
  Network& network = *server.network;
  const bool polls = server.stack->on_event == nullptr && !server.subscriptions.clients.empty();
  server.runner.polls.store(polls);
  if (!polls || network.polling) return;
  network.polling = true;
  network.poll.expires_after(kPollTime);
  network.poll.async_wait([&server](const boost::system::error_code&) {
    runner_begin_turn(server.runner, false);
    server.network->polling = false;
    server.event.store(true);
    server.woken.store(true);  // this is the leader's thread, which reads its inboxes next
  });
}

// Returns the memory of a burst of long messages or replies to the system.
void give_memory_back(Server& server) {
  constexpr std::size_t kBurstBytes = 8 * kMib;
  const std::size_t bytes = server.receiving_bytes + server.reply_bytes + server.runner.jobs_bytes;
  server.peak_bytes = std::max(server.peak_bytes, bytes);
  if (server.peak_bytes < kBurstBytes || bytes > kBurstBytes / 8) return;
  server.peak_bytes = 0;
  server.message = {};
  malloc_trim(0);
}

// Leads until another thread is the leader, or the server stops.
void lead(Server& server, unsigned self) {
  constexpr int kMostHandlers = 64;  // at most, before calls run again; fewer if long messages take the time
  constexpr std::chrono::milliseconds kHandlersBudget(1);
  asio::io_context& io = server.network->io;
  for (;;) {
    server_serve_inboxes(server);
    flush_dirty(server);
    if (server.stopping.load()) break;
    keep_polling(server);
    const auto is_busy = [&server] { return runner_has_work(server.runner) || !server.dirty.empty(); };
    if (!is_busy()) {
      runner_rest(server.runner);
      io.run_one();
    }
    const auto end = steady_clock::now() + kHandlersBudget;
    for (int i = 0; i < kMostHandlers && is_busy() && steady_clock::now() < end && io.poll_one() > 0;) ++i;
    server_serve_inboxes(server);
    flush_dirty(server);
    if (!runner_run(server.runner, self, deliver)) return;
    give_memory_back(server);
  }
  connection_say_goodbye(server);
  runner_stop(server.runner);
}

void run_thread(Server& server, unsigned self, bool leads) {
  while (leads || runner_stand_by(server.runner)) {
    leads = false;
    lead(server, self);
  }
}

bool listen_on(Network& network, Policy& policy, std::string& ret_error) {
  boost::system::error_code failure;
  const asio::ip::address address = asio::ip::make_address(policy.address, failure);
  const tcp::endpoint endpoint(address, static_cast<unsigned short>(policy.port));
  if (!failure) network.acceptor.open(endpoint.protocol(), failure);
  if (!failure) network.acceptor.set_option(asio::socket_base::reuse_address(true), failure);
  if (!failure) network.acceptor.non_blocking(true, failure);
  if (!failure) network.acceptor.bind(endpoint, failure);
  if (!failure) network.acceptor.listen(asio::socket_base::max_listen_connections, failure);
  if (failure) {
    ret_error = "cannot listen on " + policy_authority(policy) + ": " + failure.message();
    return false;
  }
  policy.port = network.acceptor.local_endpoint(failure).port();
  return true;
}

}  // namespace

void server_wake(Server& server) {
  if (server.woken.exchange(true)) return;
  const std::uint64_t once = 1;
  [[maybe_unused]] const ssize_t bytes = write(server.network->waker.native_handle(), &once, sizeof once);
}

void server_sweep_at(Server& server, TimePoint due) {
  Network& network = *server.network;
  if (due >= network.sweep_at) return;
  network.sweep_at = due;
  network.sweep.expires_at(due);
  network.sweep.async_wait(in_turn(server, [](Server& swept) {
    swept.network->sweep_at = kNever;
    connection_sweep(swept);
  }));
}

Server* server_start(const ServerOptions& options, const Stack& stack, Replayer* replayer, std::string& ret_error) {
  auto server = std::make_unique<Server>();
  server->options = options;
  server->stack = &stack;
  server->tracer.stack = &stack;
  server->tracer.wake = [](void* context) { server_wake(*static_cast<Server*>(context)); };
  server->tracer.context = server.get();
  server->runner.stack = &stack;
  server->runner.tracer = &server->tracer;
  server->runner.wake = server->tracer.wake;
  server->runner.context = server.get();
  server->runner.watchdog = options.watchdog;
  server->subscriptions.stack = &stack;
  server->recorder.stack = &stack;
  server->recorder.folder = options.record_folder;
  server->recorder.ended = [](void* context) {
    auto& recording = *static_cast<Server*>(context);
    recording.record_ended.store(true);
    server_wake(recording);
  };
  server->recorder.context = server.get();
  server->tracer.recorder = &server->recorder;
  server->tracer.replayer = replayer;
  server->subscriptions.replayer = replayer;
  server->subscriptions.recorder = &server->recorder;

  char* description = stack.describe();
  std::string text = description != nullptr ? description : "";
  free(description);
  if (!catalogue_read(std::move(text), server->catalogue, ret_error)) return nullptr;
  server->listing = listing_make(server->catalogue.description);

  server->network = {new Network, [](Network* network) { delete network; }};
  if (!listen_on(*server->network, server->options.policy, ret_error)) return nullptr;
  const int events = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (events < 0) {
    ret_error = "cannot make an event descriptor: " + std::generic_category().message(errno);
    return nullptr;
  }
  server->network->waker.assign(events);
  await_wake(*server);
  await_connections(*server);
  if (stack.on_event != nullptr) stack.on_event(on_event, server.get());
  if (stack.on_kept != nullptr) stack.on_kept(on_kept, server.get());
  if (options.record) {
    tracer_record(server->tracer, true);
    if (!recorder_start(server->recorder, ret_error)) {
      // None of these may call into a server that is gone.
      tracer_record(server->tracer, false);
      if (stack.on_event != nullptr) stack.on_event(nullptr, nullptr);
      if (stack.on_kept != nullptr) stack.on_kept(nullptr, nullptr);
      return nullptr;
    }
  }
  return server.release();
}

const Policy& server_policy(const Server& server) { return server.options.policy; }

void server_run(Server& server) {
  for (unsigned number = 2; number <= kRunnerThreads; ++number)
    server.threads.emplace_back(run_thread, std::ref(server), number, false);
  server.threads.emplace_back(runner_watch, std::ref(server.runner));
  run_thread(server, 1, true);
  for (std::thread& thread : server.threads) thread.join();
}

void server_stop(Server& server) {
  server.stopping.store(true);
  server_wake(server);
}

void server_end(Server* server) {
  server->clients.clear();
  delete server;
}
