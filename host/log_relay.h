// A relay between this process's stdout and stderr and whoever reads them, so that a reader that stalls, or a request
// that prints a line each time, costs lines and not requests. The plugin and the virtual television print with stdio on
// whatever thread runs; once a pipe that nobody reads is full, that thread would wait in write() for ever.
//
// One thread ("dtv_log-drain") empties two pipes that stand in the place of fd 1 and 2, and never waits for a reader.
// It puts whole lines into a bounded queue per stream. One thread per stream ("dtv_log-stdout", "dtv_log-stderr")
// writes them to where the stream led before; it alone waits for the reader. All three block every signal, and none of
// them wakes up while nothing is printed or counted.
#pragma once

#include <chrono>
#include <cstddef>

struct LogRelayOptions {
  // Bytes per stream that wait for its reader. A line that finds no room is lost, and so is every further one until
  // half of the queue is free; then one line in the stream says how many were lost.
  std::size_t queue_bytes = 256 * 1024;
  // A longer line is passed on in pieces. At most half of queue_bytes.
  std::size_t line_bytes = 64 * 1024;
  // How long the beginning of a line waits for its end before it is passed on.
  std::chrono::milliseconds partial_line{50};
  // Lines of a stream that differ in nothing but their digits are of one kind. Of one kind so many lines pass in a
  // window, which begins with the first of them; the others are counted, and one line tells of them after the window.
  unsigned lines_of_a_kind = 20;
  std::chrono::milliseconds window{10'000};
  // Kinds per stream with a window of their own; all further kinds share one in which so many lines pass.
  std::size_t kinds = 256;
  unsigned lines_of_other_kinds = 200;
};

// Puts the relay in front of fd 1 and 2 and makes stdout line-buffered. The descriptors that stood there keep their
// flags, which they share with other processes. A standard descriptor that is closed first becomes /dev/null. Returns
// false, with a message on stderr, when that fails; fd 1 and 2 then are what they were.
//
// Call it once, before other threads print. The relay lives as long as the process. Where SIGABRT, SIGSEGV, SIGBUS,
// SIGILL and SIGFPE have no handler they get one, which gives what was printed before a crash 200 ms to be passed on.
bool log_relay_start(const LogRelayOptions& options);

// Passes on what was printed so far, and tells what was counted; waits for the readers for at most `patience`. A stream
// whose reader took everything gets its old descriptor back, so that what is printed from here on (a few lines, until
// the process ends) arrives without the relay's help. A stream whose reader stalls keeps the relay, so that nothing
// printed from here on blocks. May be called on any thread and repeatedly; does nothing without a relay.
void log_relay_end(std::chrono::milliseconds patience);
