// dtv-host: offers the plugin, on a set or on a virtual television, to JavaScript applications.
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <functional>
#include <latch>
#include <thread>

#include "base/exit_codes.h"
#include "log_relay.h"
#include "options.h"
#include "private_paths.h"
#include "server.h"
#include "token.h"

namespace {

// For how long the end waits for a reader of stdout or stderr that stalls.
constexpr std::chrono::milliseconds kLogPatience{1000};

struct LogEnd {
  ~LogEnd() { log_relay_end(kLogPatience); }
};

// Counted down once the signal's thread no longer uses the server. Lives as long as that thread, which nobody joins.
std::latch& stop_told = *new std::latch(1);

// On a thread of its own: stops the server with the first signal. Where a platform call keeps it from stopping, the
// process ends without it; nothing is lost, since the television's state is on disk. Signals come in bursts where a
// wrapper passes on what the whole process group got: only one that comes later on is a wish to leave at once.
void wait_for_signal(Server& server, const sigset_t& signals) {
  using namespace std::chrono;
  constexpr milliseconds kPatience = 5s;
  constexpr milliseconds kBurst = 1s;
  int number = 0;
  sigwait(&signals, &number);
  const auto begin = steady_clock::now();
  server_stop(server);
  stop_told.count_down();
  const char* reason = "a platform call does not return; leaving without it";
  for (auto left = kPatience; left > 0ms; left = kPatience - duration_cast<milliseconds>(steady_clock::now() - begin)) {
    const timespec wait = {.tv_sec = left.count() / 1000, .tv_nsec = left.count() % 1000 * 1'000'000};
    if (sigtimedwait(&signals, nullptr, &wait) < 0) continue;  // time is up, or a debugger's doing
    if (steady_clock::now() - begin < kBurst) continue;
    reason = "told again to stop; leaving without waiting for a platform call";
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

  // Before any other thread is made: all of them leave the signals to the one that waits for them.
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  for (const int number : {SIGPIPE, SIGHUP, SIGUSR1, SIGUSR2}) signal(number, SIG_IGN);

  log_relay_start({});  // starts threads, so after private_paths_enter
  const LogEnd log_end;

  Stack stack;
  std::string error;
  if (!stack_start(options.stack, stack, error)) {
    fprintf(stderr, "dtv-host: %s\n", error.c_str());
    return kExitRefused;
  }
  // The virtual television has made the folder; another platform has not.
  const std::string& folder = options.stack.state_folder;
  if (!stack_make_state_folder(folder, error) || !token_read(folder, options.server.token, error)) {
    stack_stop(stack);
    fprintf(stderr, "dtv-host: %s\n", error.c_str());
    return kExitRefused;
  }
  private_paths_connect(paths, stack.tv_command);
  if (options.cec && stack.start_cec != nullptr && stack.start_cec() < 0)
    fputs("dtv-host: HDMI-CEC does not start; going on without it\n", stderr);
  if (options.broadcast && stack.start_broadcast != nullptr && stack.start_broadcast() < 0)
    fputs("dtv-host: the platform does not report the results of channel changes; going on without them\n", stderr);

  Server* server = server_start(options.server, stack, error);
  if (server == nullptr) {
    stack_stop(stack);
    fprintf(stderr, "dtv-host: %s\n", error.c_str());
    return kExitRefused;
  }
  if (!policy_is_local(server_policy(*server)))
    fputs("dtv-host: listening beyond this machine, without encryption: whoever reaches it can use the set\n", stderr);
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
