// dtv-host: offers the plugin, on a set or on a virtual television, to JavaScript applications.
#include <getopt.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <latch>
#include <optional>
#include <thread>

#include "log_relay.h"
#include "private_paths.h"
#include "server.h"
#include "token.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* help_text =
    R"(usage: dtv-host [OPTION...]

Serves the TV-control plugin: JSON-RPC 2.0 by WebSocket and POST at /jsonrpc, GET and PUT on every URI, and the page at /.

  --listen ADDR:PORT      where to listen (default 127.0.0.1:8080; port 0 takes a free one; a port alone is on 127.0.0.1)
  --allow-origin ORIGIN   let pages from ORIGIN, such as http://localhost:5173, use this server; repeatable
  --web FOLDER            the built page
  --state FOLDER          where the virtual television keeps its state
  --stick-root FOLDER     the folders in it can become USB sticks of the virtual television (default: your home)
  --plugin FILE           the plugin's library
  --platform FILE         the platform's library, instead of the virtual television
  --tap FILE              the tap's library
  --no-tap                nothing between plugin and platform: no traces, no faults; notifications are polled for
  --no-private-paths      the machine's own /3rd/i18n and /dev/cli, as on a set; else this process alone is given some,
                          where the machine has none
  --no-cec                do not start HDMI-CEC
  --no-broadcast-init     do not subscribe to the results of channel changes
  --require-token         gets, sets and notifications need the token as well, which control commands always need
  --max-message BYTES     longest request message (default 1048576)
  --max-connections N     connections at a time (default 256)
  --max-subscriptions N   notification URIs per client (default 1000)
  --max-requests N        requests waiting for the platform, of all clients (default 16384)
  --header-time SECONDS   time for a request's line and headers (default 10)
  --body-time SECONDS     time for a body, or a whole WebSocket message (default 20)
  --reply-time SECONDS    time in which a client must read what it asked for (default 20)
  --no-watchdog           do not end the process when its serving thread is stuck
  --quiet                 do not print the address
  --help, --version

Try:  curl http://127.0.0.1:8080/tv/cast/volume/volume
      curl -X PUT -d '{"REQUEST":"MODIFY","VALUE":20}' http://127.0.0.1:8080/tv/cast/volume/volume
)";

struct Options {
  ServerOptions server;
  StackOptions stack;
  bool private_paths = true;
  bool cec = true;
  bool broadcast = true;
  bool quiet = false;
};

bool read_count(const char* text, std::size_t& ret_count) {
  std::size_t count = 0;
  const char* end = text + strlen(text);
  const auto [stopped, failure] = std::from_chars(text, end, count);
  if (failure != std::errc() || stopped != end || count == 0) return false;
  ret_count = count;
  return true;
}

enum Option {
  option_listen = 1,
  option_allow_origin,
  option_web,
  option_state,
  option_stick_root,
  option_plugin,
  option_platform,
  option_tap,
  option_no_tap,
  option_no_private_paths,
  option_no_cec,
  option_no_broadcast_init,
  option_max_message,
  option_max_connections,
  option_max_subscriptions,
  option_max_requests,
  option_header_time,
  option_body_time,
  option_reply_time,
  option_require_token,
  option_no_watchdog,
  option_quiet,
  option_help,
  option_version,
};

constexpr option long_options[] = {{"listen", required_argument, nullptr, option_listen},
                                   {"allow-origin", required_argument, nullptr, option_allow_origin},
                                   {"web", required_argument, nullptr, option_web},
                                   {"state", required_argument, nullptr, option_state},
                                   {"stick-root", required_argument, nullptr, option_stick_root},
                                   {"plugin", required_argument, nullptr, option_plugin},
                                   {"platform", required_argument, nullptr, option_platform},
                                   {"tap", required_argument, nullptr, option_tap},
                                   {"no-tap", no_argument, nullptr, option_no_tap},
                                   {"no-private-paths", no_argument, nullptr, option_no_private_paths},
                                   {"no-cec", no_argument, nullptr, option_no_cec},
                                   {"no-broadcast-init", no_argument, nullptr, option_no_broadcast_init},
                                   {"max-message", required_argument, nullptr, option_max_message},
                                   {"max-connections", required_argument, nullptr, option_max_connections},
                                   {"max-subscriptions", required_argument, nullptr, option_max_subscriptions},
                                   {"max-requests", required_argument, nullptr, option_max_requests},
                                   {"header-time", required_argument, nullptr, option_header_time},
                                   {"body-time", required_argument, nullptr, option_body_time},
                                   {"reply-time", required_argument, nullptr, option_reply_time},
                                   {"require-token", no_argument, nullptr, option_require_token},
                                   {"no-watchdog", no_argument, nullptr, option_no_watchdog},
                                   {"quiet", no_argument, nullptr, option_quiet},
                                   {"help", no_argument, nullptr, option_help},
                                   {"version", no_argument, nullptr, option_version},
                                   {}};

// Carries out one option; returns what is wrong with it, or an empty text.
std::string take_option(int number, const char* value, Options& options) {
  std::string wrong;
  const auto count = [&](std::size_t& ret_count) {
    return read_count(value, ret_count) ? std::string() : "\"" + std::string(value) + "\" is no number above 0";
  };
  const auto seconds = [&](std::chrono::milliseconds& ret_time) {
    std::size_t number_of = 0;
    std::string refused = count(number_of);
    if (refused.empty()) ret_time = std::chrono::seconds(std::min<std::size_t>(number_of, 86400));
    return refused;
  };
  Limits& limits = options.server.limits;
  switch (number) {
    case option_listen:
      policy_read_listen(value, options.server.policy, wrong);
      return wrong;
    case option_allow_origin:
      policy_allow_origin(value, options.server.policy, wrong);
      return wrong;
    case option_web:
      options.server.web_folder = value;
      return {};
    case option_state:
      options.stack.state_folder = value;
      return {};
    case option_stick_root:
      options.stack.stick_root = value;
      return {};
    case option_plugin:
      options.stack.plugin = value;
      return {};
    case option_platform:
      options.stack.platform = value;
      return {};
    case option_tap:
      options.stack.tap = value;
      return {};
    case option_no_tap:
      options.stack.tap.clear();
      return {};
    case option_no_private_paths:
      options.private_paths = false;
      return {};
    case option_no_broadcast_init:
      options.broadcast = false;
      return {};
    case option_no_cec:
      options.cec = false;
      return {};
    case option_max_message:
      return count(limits.message_bytes);
    case option_max_connections:
      return count(limits.connections);
    case option_max_subscriptions:
      return count(limits.subscriptions);
    case option_max_requests:
      return count(limits.requests);
    case option_header_time:
      return seconds(limits.header_time);
    case option_body_time:
      return seconds(limits.body_time);
    case option_reply_time:
      return seconds(limits.reply_time);
    case option_require_token:
      options.server.require_token = true;
      return {};
    case option_no_watchdog:
      options.server.watchdog = false;
      return {};
    case option_quiet:
      options.quiet = true;
      return {};
    default:
      return "see dtv-host --help";
  }
}

// Returns the exit code where the program is done with its options.
std::optional<int> read_options(int argc, char** argv, Options& options) {
  int number = 0;
  // NOLINTNEXTLINE(concurrency-mt-unsafe): no other thread runs yet
  while ((number = getopt_long(argc, argv, "", long_options, nullptr)) != -1) {
    if (number == option_help) {
      fputs(help_text, stdout);
      return 0;
    }
    if (number == option_version) {
      puts("dtv-host " DTV_VERSION);
      return 0;
    }
    if (const std::string wrong = take_option(number, optarg, options); !wrong.empty()) {
      fprintf(stderr, "dtv-host: %s\n", wrong.c_str());
      return 2;
    }
  }
  if (optind == argc) return std::nullopt;
  fprintf(stderr, "dtv-host: \"%s\" is no option; see dtv-host --help\n", argv[optind]);
  return 2;
}

// For how long the end waits for a reader of stdout or stderr that stalls.
constexpr std::chrono::milliseconds log_patience{1000};

struct LogEnd {
  ~LogEnd() { log_relay_end(log_patience); }
};

// Counted down once the signal's thread no longer uses the server. Lives as long as that thread, which nobody joins.
std::latch& stop_told = *new std::latch(1);

// On a thread of its own: stops the server with the first signal. Where a platform call keeps it from stopping, the
// process ends without it; nothing is lost, since the television's state is on disk. Signals come in bursts where a
// wrapper passes on what the whole process group got: only one that comes later on is a wish to leave at once.
void wait_for_signal(Server& server, const sigset_t& signals) {
  using namespace std::chrono;
  constexpr milliseconds patience = 5s;
  constexpr milliseconds burst = 1s;
  int number = 0;
  sigwait(&signals, &number);
  const auto begin = steady_clock::now();
  server_stop(server);
  stop_told.count_down();
  const char* reason = "a platform call does not return; leaving without it";
  for (auto left = patience; left > 0ms; left = patience - duration_cast<milliseconds>(steady_clock::now() - begin)) {
    const timespec wait = {.tv_sec = left.count() / 1000, .tv_nsec = left.count() % 1000 * 1'000'000};
    if (sigtimedwait(&signals, nullptr, &wait) < 0) continue;  // time is up, or a debugger's doing
    if (steady_clock::now() - begin < burst) continue;
    reason = "told again to stop; leaving without waiting for a platform call";
    break;
  }
  fprintf(stderr, "dtv-host: %s\n", reason);
  log_relay_end(log_patience);
  _exit(0);
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  options.stack = stack_defaults();
  options.server.policy = {.address = "127.0.0.1", .port = 8080, .allowed_origins = {}};
  options.server.web_folder = stack_beside_program("../share/dtv_js_plugin/web", "../../web/dist");
  if (const std::optional<int> code = read_options(argc, argv, options)) return *code;

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
    return 1;
  }
  // The virtual television has made the folder; another platform has not.
  const std::string& folder = options.stack.state_folder;
  if (!stack_make_state_folder(folder, error) || !token_read(folder, options.server.token, error)) {
    stack_stop(stack);
    fprintf(stderr, "dtv-host: %s\n", error.c_str());
    return 1;
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
    return 1;
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
  return 0;
}
