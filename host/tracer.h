// Passes the tap's lines to the request that caused them, to clients that trace all calls, and to the recorder. The tap
// takes one watcher and is slower while it has one, so the tracer watches only while lines are wanted.
#pragma once

#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

#include "stack.h"

struct Recorder;
struct Replayer;

struct Tracer {
  const Stack* stack;
  Recorder* recorder = nullptr;  // gets every line while it is on; null: nothing can be recorded
  Replayer* replayer = nullptr;  // answers in place of a platform; null: there is one
  void (*wake)(void* context);   // called when the first line is waiting
  void* context;

  std::mutex watch_mutex;  // guards wanted; held while the tap's watcher is changed, never by the watcher
  int wanted = 0;
  bool records = false;

  std::mutex lines_mutex;  // guards the following members
  bool following = false;
  std::vector<std::string> lines;
  std::size_t lost = 0;
};

// Appends this thread's platform calls to lines, separated by commas, until it is called with null.
void tracer_capture(Tracer& tracer, std::string* lines);

// Whether every line is kept for tracer_take.
void tracer_follow(Tracer& tracer, bool on);

// Whether the recorder gets the lines.
void tracer_record(Tracer& tracer, bool on);

// Takes the lines since the last call; returns how many were lost because too many were waiting.
std::size_t tracer_take(Tracer& tracer, std::vector<std::string>& ret_lines);
