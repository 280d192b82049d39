// Hands the tap's lines to those who want them: the request that caused them, and clients that follow everything.
// The tap knows one watcher and costs time while it has one, so it is watched only while somebody wants lines.
#pragma once

#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

#include "stack.h"

struct Tracer {
  const Stack* stack;
  void (*wake)(void* context);  // called when the first line waits to be taken
  void* context;

  std::mutex watch_mutex;  // guards wanted; held while the tap's watcher changes, never by the watcher itself
  int wanted = 0;

  std::mutex lines_mutex;  // guards what follows
  bool following = false;
  std::vector<std::string> lines;
  std::size_t lost = 0;
};

// Collects this thread's platform calls into lines, separated by commas; null ends it. lines must live until then.
void tracer_capture(Tracer& tracer, std::string* lines);

// Whether every line is kept for tracer_take.
void tracer_follow(Tracer& tracer, bool on);

// Takes the lines that came since the last time; returns how many were lost because too many waited.
std::size_t tracer_take(Tracer& tracer, std::vector<std::string>& ret_lines);
