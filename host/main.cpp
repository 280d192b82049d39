// dtv-host: offers the plugin, on a set or on a virtual television, to JavaScript applications.
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <functional>
#include <latch>
#include <thread>

#include "base/exit_codes.h"
#include "log_capture.h"
#include "log_relay.h"
#include "options.h"
#include "private_paths.h"
#include "server.h"
#include "token.h"

namespace {

// How long the end of the program waits for a stalled reader of stdout or stderr.
constexpr std::chrono::milliseconds kLogPatience{1000};

struct LogEnd {
  ~LogEnd() { log_relay_end(kLogPatience); }
};

// Counted down when the signal's thread no longer uses the server. Never freed, since that thread is never joined.
std::latch& stop_told = *new std::latch(1);

// Runs on a thread of its own: stops the server at the first signal. If a platform call keeps the server from stopping,
// the process ends without it; nothing is lost, since the television's state is on disk. Signals may come in bursts,
// when a wrapper repeats a signal that the whole process group received: only a later signal is a request to end at
// once.
void wait_for_signal(Server& server, const sigset_t& signals) {
  using namespace std::chrono;
  constexpr milliseconds kPatience = 5s;
  constexpr milliseconds kBurst = 1s;
  int number = 0;
  sigwait(&signals, &number);
  const auto begin = steady_clock::now();
  server_stop(server);
  stop_told.count_down();
  const char* reason = "a platform call does not return; ending without it";
  for (auto left = kPatience; left > 0ms; left = kPatience - duration_cast<milliseconds>(steady_clock::now() - begin)) {
    const timespec wait = {.tv_sec = left.count() / 1000, .tv_nsec = left.count() % 1000 * 1'000'000};
    if (sigtimedwait(&signals, nullptr, &wait) < 0) continue;  // the time is over, or a debugger interrupted the wait
    if (steady_clock::now() - begin < kBurst) continue;
    reason = "another signal; ending without waiting for a platform call";
    break;
  }
  fprintf(stderr, "dtv-host: %s\n", reason);
  log_relay_end(kLogPatience);
  _exit(kExitOk);
}

}  // namespace

int main(int argc, char** argv) {
  Options options = options_defaults();
  if (const std::optional<int> code = options_read(argc, argv, options)) return *code;

  PrivatePaths paths;
  if (options.private_paths) paths = private_paths_enter(options.stack.state_folder);

  // Before any other thread starts: all inherit the mask, and only one thread waits for these signals.
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  for (const int number : {SIGPIPE, SIGHUP, SIGUSR1, SIGUSR2}) signal(number, SIG_IGN);

  log_relay_start({});  // starts threads, so after private_paths_enter
  const LogEnd log_end;
  log_capture_start();

  Stack stack;
  std::string error;
  const auto fail = [&error] {
    fprintf(stderr, "dtv-host: %s\n", error.c_str());
    return kExitRefused;
  };
  if (!stack_start(options.stack, stack, error)) return fail();
  // The virtual television creates the folder; another platform does not.
  const std::string& folder = options.stack.state_folder;
  if (!stack_make_state_folder(folder, error) || !token_read(folder, options.server.token, error)) {
    stack_stop(stack);
    return fail();
  }
  private_paths_connect(paths, stack.tv_command);
  if (options.cec && stack.start_cec != nullptr && stack.start_cec() < 0)
    fputs("dtv-host: HDMI-CEC does not start; going on without it\n", stderr);
  if (options.broadcast && stack.start_broadcast != nullptr && stack.start_broadcast() < 0)
    fputs("dtv-host: the platform does not report the results of channel changes; going on without them\n", stderr);

  Server* server = server_start(options.server, stack, error);
  if (server == nullptr) {
    stack_stop(stack);
    return fail();
  }
  if (!policy_is_local(server_policy(*server)))
    fputs("dtv-host: listening beyond this machine, without encryption: everyone who can connect can use the set\n",
          stderr);
  if (!options.quiet) {
    printf("dtv-host: http://%s/#token=%s\n", policy_authority(server_policy(*server)).c_str(),
           options.server.token.c_str());
    fflush(stdout);
  }
  std::thread(wait_for_signal, std::ref(*server), signals).detach();
  server_run(*server);
  stop_told.wait();
  stack_stop(stack);
  server_end(server);
  return kExitOk;
}
