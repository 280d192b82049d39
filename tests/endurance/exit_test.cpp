// A process that exits while its threads go on calling the library: it ends with 0, and the calls return right answers
// to the end.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <thread>

#include "platform.h"
#include "plugin.h"

// The thread sanitizer would wait a second for threads that still run.
extern "C" const char* __tsan_default_options();
extern "C" const char* __tsan_default_options() { return "atexit_sleep_ms=20"; }

namespace {

constexpr int kChildren = 200;
constexpr int kEnough = 20;  // calls of a thread, before and after
constexpr auto kPatience = std::chrono::seconds(60);

enum ExitCode { kWell = 0, kWrongAnswer = 3, kStuck = 4 };

// A request that the platform holds up, with the request lock held, when the process exits.
enum class Held { kNobody, kUntilLate, kForGood };

struct Caller {
  const char* name;
  bool requests = false;       // waits while another request is held up
  std::function<bool()> call;  // false: a wrong answer
  std::atomic<int> calls = 0;
};

// What the threads of a child use. Never destroyed, since they run until the process ends.
struct Child {
  Plugin plugin;
  Held held;
  std::array<Caller, 6> callers;
};
Child* child;

[[noreturn]] void give_up(const char* what, ExitCode code) {
  dprintf(STDERR_FILENO, "%s\n", what);
  _exit(code);
}

void short_pause() { std::this_thread::sleep_for(std::chrono::microseconds(50)); }

// Waits until every caller has made some more calls; those that must wait for the held request do not count.
void wait_for_calls(bool request_is_held) {
  std::array<int, std::tuple_size_v<decltype(Child::callers)>> begun = {};
  for (std::size_t i = 0; i < begun.size(); ++i) begun[i] = child->callers[i].calls;
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  for (std::size_t i = 0; i < begun.size(); ++i) {
    const Caller& caller = child->callers[i];
    while (!(caller.requests && request_is_held) && caller.calls < begun[i] + kEnough) {
      if (std::chrono::steady_clock::now() > deadline) give_up(caller.name, kStuck);
      short_pause();
    }
  }
}

// Runs on the thread that exits, as the C library writes out its streams: after the library's own clean-up.
ssize_t call_on(void*, const char*, std::size_t size) {
  if (child->held == Held::kUntilLate) platform.holds_mute = false;
  wait_for_calls(child->held == Held::kForGood);
  return static_cast<ssize_t>(size);
}

void run_late(cookie_write_function_t* function) {
  FILE* const stream =
      fopencookie(nullptr, "w", {.read = nullptr, .write = function, .seek = nullptr, .close = nullptr});
  std::fputc('\n', stream);  // stays in its buffer until the process exits
}

bool answered(const std::optional<std::string>& text, const std::string& expected) {
  return !text || text->empty() || *text == expected;
}

[[noreturn]] void exit_while_threads_call(Held held) {
  child =
      new Child{.plugin = start_plugin(),
                .held = held,
                .callers = {
                    Caller{.name = "get mute",
                           .requests = true,
                           .call = [] { return get_text(child->plugin, kMuteUri) == kMuteResponse; }},
                    Caller{.name = "set and get volume",
                           .requests = true,
                           .call =
                               [] {
                                 return set_volume(child->plugin, 7) == 0 &&
                                        get_text(child->plugin, kVolumeUri) == volume_response(7);
                               }},
                    Caller{.name = "single notification", .call = [] { return raise_volume(7) == 0; }},
                    Caller{.name = "queued notification", .call = [] { return raise_usb(child->plugin, "A", 1) == 0; }},
                    Caller{.name = "subscribe",
                           .call =
                               [] {
                                 child->plugin.subscribe(kVolumeNotify);
                                 child->plugin.subscribe(kUsbNotify);
                                 short_pause();
                                 return child->plugin.unsubscribe(kVolumeNotify) == 0;
                               }},
                    Caller{.name = "fetch",
                           .call =
                               [] {
                                 short_pause();
                                 fetch_text(child->plugin, kUsbNotify);
                                 return answered(fetch_text(child->plugin, kVolumeNotify), volume_notification(7));
                               }},
                }};
  for (const Caller& caller : child->callers)
    if (!caller.call()) give_up(caller.name, kWrongAnswer);
  platform.holds_mute = held != Held::kNobody;
  for (Caller& caller : child->callers)
    std::thread([&caller] {
      while (true) {
        if (!caller.call()) give_up(caller.name, kWrongAnswer);
        ++caller.calls;
      }
    }).detach();
  while (platform.holds_mute && !platform.mute_is_held) short_pause();
  wait_for_calls(platform.holds_mute);
  run_late(call_on);
  std::exit(kWell);
}

// No other thread calls, so that every lock is free: nobody is subscribed any more, and requests still work.
ssize_t call_once_more(void*, const char*, std::size_t size) {
  if (fetch_text(child->plugin, kUsbNotify)) give_up("still subscribed", kWrongAnswer);
  if (get_text(child->plugin, kMuteUri) != kMuteResponse) give_up("get", kWrongAnswer);
  if (set_volume(child->plugin, 9) != 0 || platform.volume != 9) give_up("set", kWrongAnswer);
  if (raise_usb(child->plugin, "A", 1) != 0) give_up("notification", kWrongAnswer);
  return static_cast<ssize_t>(size);
}

[[noreturn]] void exit_alone() {
  child = new Child{.plugin = start_plugin(), .held = Held::kNobody, .callers = {}};
  child->plugin.subscribe(kUsbNotify);
  get_text(child->plugin, kMuteUri);
  run_late(call_once_more);
  std::exit(kWell);
}

// Forks a child for `body`, and waits for its end. The wait status; a child that hangs is killed.
int status_of(const std::function<void()>& body) {
  std::fflush(nullptr);
  const pid_t process = fork();
  if (process == 0) body();
  const auto deadline = std::chrono::steady_clock::now() + 2 * kPatience;
  int status = 0;
  while (waitpid(process, &status, WNOHANG) == 0) {
    if (std::chrono::steady_clock::now() > deadline) {
      ADD_FAILURE() << "the process hangs";
      kill(process, SIGKILL);
    }
    short_pause();
  }
  return status;
}

TEST(Exit, WhileThreadsCall) {
  for (int i = 0; i < kChildren && !HasFailure(); ++i) {
    const Held held[] = {Held::kNobody, Held::kUntilLate, Held::kForGood};
    const int status = status_of([&] { exit_while_threads_call(held[i % 3]); });
    EXPECT_TRUE(WIFEXITED(status)) << "child " << i << " died of signal " << WTERMSIG(status);
    EXPECT_EQ(WEXITSTATUS(status), kWell) << "child " << i;
  }
}

TEST(Exit, LeavesNobodySubscribed) {
  const int status = status_of([] { exit_alone(); });
  EXPECT_TRUE(WIFEXITED(status)) << "died of signal " << WTERMSIG(status);
  EXPECT_EQ(WEXITSTATUS(status), kWell);
}

}  // namespace
