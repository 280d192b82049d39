#include "tap/state.h"

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <system_error>

namespace tap {
namespace {

using Clock = std::chrono::steady_clock;

const Clock::time_point kLoadedAt = Clock::now();
std::atomic<std::uint64_t> next_seq{1};
std::atomic<int> next_thread{1};
std::atomic<int> record_file{-1};

Hook& watcher() {
  static auto& hook = *new Hook;
  return hook;
}
Hook& event_hook() {
  static auto& hook = *new Hook;
  return hook;
}
std::atomic<bool> has_event_hook{false};
thread_local int watcher_depth = 0;
thread_local int event_depth = 0;

// A recording that the environment asks for begins when the library is loaded.
[[maybe_unused]] const bool kRecordingStarted = [] {
  const char* path = std::getenv("DTV_TAP_RECORD");
  if (path != nullptr && *path != '\0') record_to(path);
  return true;
}();

}  // namespace

std::atomic<unsigned> g_active{0};

void set_active(Active reason, bool on) {
  if (on) {
    g_active.fetch_or(reason, std::memory_order_acq_rel);
  } else {
    g_active.fetch_and(~static_cast<unsigned>(reason), std::memory_order_acq_rel);
  }
}

std::mutex& state_lock() {
  static auto& lock = *new std::mutex;
  return lock;
}

std::int64_t now_us() {
  return std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - kLoadedAt).count();
}

Start start_now() { return {.seq = next_seq.fetch_add(1, std::memory_order_relaxed), .t = now_us()}; }

int thread_number() {
  thread_local const int kNumber = next_thread.fetch_add(1, std::memory_order_relaxed);
  return kNumber;
}

Json new_line(const Start& start) {
  Json line(cJSON_CreateObject());
  cJSON_AddItemToObjectCS(line.get(), "t", json_integer(start.t));
  cJSON_AddItemToObjectCS(line.get(), "seq", json_unsigned(start.seq));
  cJSON_AddItemToObjectCS(line.get(), "thread", json_integer(thread_number()));
  return line;
}

void emit(const cJSON* line) {
  std::string text = json_print(line);
  hook_run(watcher(), watcher_depth,
           [&](void (*fct)(), void* context) { reinterpret_cast<dtv_tap_line_fct>(fct)(context, text.c_str()); });
  if (const int file = record_file.load(std::memory_order_acquire); file >= 0) {
    text.push_back('\n');
    // One write per line: with O_APPEND, lines of different threads and processes do not mix.
    if (write(file, text.data(), text.size()) < 0) record_file.store(-1, std::memory_order_release);
  }
}

void hook_set(Hook& hook, int& depth, void (*fct)(), void* context) {
  std::unique_lock guard(hook.lock);
  hook.fct = fct;
  hook.context = context;
  if (depth == 0) hook.idle.wait(guard, [&] { return hook.running == 0; });
}

void watch(dtv_tap_line_fct fct, void* context) {
  hook_set(watcher(), watcher_depth, reinterpret_cast<void (*)()>(fct), context);
  // Looks again at the hook's function, since another thread may have replaced it meanwhile.
  const std::lock_guard guard(watcher().lock);
  set_active(kWatched, watcher().fct != nullptr);
}

void on_event(dtv_tap_event_fct fct, void* context) {
  hook_set(event_hook(), event_depth, reinterpret_cast<void (*)()>(fct), context);
  const std::lock_guard guard(event_hook().lock);
  has_event_hook.store(event_hook().fct != nullptr, std::memory_order_release);
}

void run_event_hook() {
  if (!has_event_hook.load(std::memory_order_acquire)) return;
  hook_run(event_hook(), event_depth,
           [](void (*fct)(), void* context) { reinterpret_cast<dtv_tap_event_fct>(fct)(context); });
}

void record_to(const char* path) {
  const int file = open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  if (file < 0) {
    std::fprintf(stderr, "tap: cannot record to %s: %s\n", path, std::generic_category().message(errno).c_str());
    return;
  }
  record_file.store(file, std::memory_order_release);
  set_active(kRecorded, true);
}

void report_error(const std::string& text) {
  if ((g_active.load(std::memory_order_acquire) & (kWatched | kRecorded)) == 0) {
    std::fprintf(stderr, "tap: %s\n", text.c_str());
    return;
  }
  const Json line = new_line(start_now());
  cJSON_AddStringToObject(line.get(), "error", text.c_str());
  emit(line.get());
}

}  // namespace tap
