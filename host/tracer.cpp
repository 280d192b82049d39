#include "tracer.h"

#include <utility>

#include "recorder.h"

namespace {

constexpr std::size_t kMostWaiting = 65536;

thread_local std::string* captured = nullptr;

// Runs on the thread that made the call, which may be one of the platform's.
void on_line(void* context, const char* line) {
  auto& tracer = *static_cast<Tracer*>(context);
  recorder_line(tracer.recorder, line);
  if (captured != nullptr) {
    if (!captured->empty()) *captured += ',';
    *captured += line;
  }
  bool first = false;
  {
    const std::lock_guard lock(tracer.lines_mutex);
    if (!tracer.following) return;
    if (tracer.lines.size() >= kMostWaiting) {
      ++tracer.lost;
      return;
    }
    first = tracer.lines.empty();
    tracer.lines.emplace_back(line);
  }
  if (first) tracer.wake(tracer.context);
}

// Under watch_mutex.
void change_wanted(Tracer& tracer, int change) {
  if (tracer.stack->watch == nullptr) return;
  const bool watched = tracer.wanted > 0;
  tracer.wanted += change;
  if (tracer.wanted > 0 && !watched) tracer.stack->watch(on_line, &tracer);
  if (tracer.wanted == 0 && watched) tracer.stack->watch(nullptr, nullptr);
}

void want(Tracer& tracer, int change) {
  const std::lock_guard lock(tracer.watch_mutex);
  change_wanted(tracer, change);
}

}  // namespace

void tracer_capture(Tracer& tracer, std::string* lines) {
  captured = lines;
  want(tracer, lines != nullptr ? 1 : -1);
}

void tracer_follow(Tracer& tracer, bool on) {
  {
    const std::lock_guard lock(tracer.lines_mutex);
    if (tracer.following == on) return;
    tracer.following = on;
    tracer.lines.clear();
  }
  want(tracer, on ? 1 : -1);
}

void tracer_record(Tracer& tracer, bool on) {
  const std::lock_guard lock(tracer.watch_mutex);
  if (std::exchange(tracer.records, on) != on) change_wanted(tracer, on ? 1 : -1);
}

std::size_t tracer_take(Tracer& tracer, std::vector<std::string>& ret_lines) {
  ret_lines.clear();
  const std::lock_guard lock(tracer.lines_mutex);
  ret_lines.swap(tracer.lines);
  return std::exchange(tracer.lost, 0);
}
