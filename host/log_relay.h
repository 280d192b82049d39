// A relay between this process's stdout and stderr and their readers. When a reader stalls, or every request prints a
// line, lines are left out and requests go on. The plugin and the virtual television print with stdio on any thread;
// without the relay, such a thread would wait in write() for ever once a pipe without a reader is full.
//
// One thread ("dtv_log-drain") empties two pipes that replace fd 1 and 2, and never waits for a reader. It puts whole
// lines into a bounded queue per stream. One thread per stream ("dtv_log-stdout", "dtv_log-stderr") writes them to the
// original descriptor; only this thread waits for the reader. All three block every signal, and none of them wakes up
// while nothing is printed or counted.
#pragma once

#include <chrono>
#include <cstddef>

struct LogRelayOptions {
  // Bytes per stream that may wait for its reader. A line that does not fit is lost, like all further lines until half
  // of the queue is free; then a line in the stream reports how many were lost.
  std::size_t queue_bytes = 256 * 1024;
  // A longer line is passed on in pieces. At most half of queue_bytes.
  std::size_t line_bytes = 64 * 1024;
  // How long the beginning of a line waits for its end before it is passed on.
  std::chrono::milliseconds partial_line{50};
  // Lines of a stream that differ only in their digits are of one kind. This many lines of a kind pass within a window,
  // which begins with the first of them; the others are counted, and a line reports their number after the window.
  unsigned lines_of_a_kind = 20;
  std::chrono::milliseconds window{10'000};
  // Kinds per stream that have a window of their own; all further kinds share one window and its limit.
  std::size_t kinds = 256;
  unsigned lines_of_other_kinds = 200;
};

// Puts the relay in front of fd 1 and 2 and makes stdout line-buffered. The original descriptors keep their flags,
// which they share with other processes. A closed standard descriptor is first opened as /dev/null. Returns false, with
// a message on stderr, when that fails; fd 1 and 2 are then unchanged.
//
// Call it once, before other threads print. The relay lives as long as the process. SIGABRT, SIGSEGV, SIGBUS, SIGILL
// and SIGFPE get a handler if they have none; it allows 200 ms for the lines printed before a crash to be written.
bool log_relay_start(const LogRelayOptions& options);

// Writes the lines printed so far and reports the counted ones; waits for the readers for at most `patience`. A stream
// whose reader took everything gets its original descriptor back, so the last lines of the process are written without
// the relay. A stream whose reader stalls keeps the relay, so that printing never blocks. May be called on any thread
// and repeatedly; does nothing without a relay.
void log_relay_end(std::chrono::milliseconds patience);
