#include "log_relay.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <mutex>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <vector>

// A function of the sanitizers, null in a build without one: sets where their reports go.
extern "C" [[gnu::weak]] void __sanitizer_set_report_fd(void* fd);

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

// The lines of a stream that differ only in their digits.
struct LineKind {
  std::uint64_t hash = 0;
  Clock::time_point end{};     // of the window; afterwards the entry is free for another kind
  unsigned lines = 0;          // passed in the window
  std::uint64_t more = 0;      // left out and not yet reported
  std::string beginning = {};  // of the first line in the window
};

// What happens to the rest of a line whose beginning has been handled.
enum class Rest { kNoBeginningYet, kPasses, kDropped };

struct Stream {
  int number;
  const char* writer_name;
  int original = -1;   // a copy of the original fd `number`; never closed, written only by the stream's writer
  int write_end = -1;  // of the pipe, until it replaces fd `number`

  // Used only by the drain thread.
  int pipe = -1;           // the read end of the pipe; -1 once its write end is closed
  std::string piece = {};  // the beginning of a line that has not ended; passed on when it is due
  Clock::time_point piece_due{};
  Rest rest = Rest::kNoBeginningYet;
  std::vector<LineKind> kinds = {};
  LineKind other_kinds = {};

  std::mutex lock = {};  // guards the following members; never held during a system call that may block
  std::condition_variable filled = {};
  std::deque<std::string> blocks = {};  // whole lines, at most PIPE_BUF bytes each, or a piece of a long line
  std::atomic<std::size_t> held{0};     // bytes in blocks and in the writer; written under the lock, read without it
  std::uint64_t lost = 0;               // lines after the last block
  bool in_line = false;                 // whether the last block ends within a line
};

struct Relay {
  LogRelayOptions options;
  std::array<Stream, 2> streams{Stream{.number = STDOUT_FILENO, .writer_name = "dtv_log-stdout"},
                                Stream{.number = STDERR_FILENO, .writer_name = "dtv_log-stderr"}};
  char stdout_buffer[BUFSIZ];
  int wake = -1;                     // an eventfd that makes the drain thread look at flush_asked
  std::atomic<bool> started{false};  // fd 1 and 2 lead to the pipes
  // When flush_asked is ahead of flush_done, the drain thread empties the pipes completely and sets flush_done.
  std::atomic<std::uint32_t> flush_asked{0};
  std::atomic<std::uint32_t> flush_done{0};
};

// Lives until the process ends: its threads are never joined, because one may wait for a reader for ever.
Relay& relay = *new Relay;

// Queues bytes; the caller holds the stream's lock. A block is written with one system call, so that up to PIPE_BUF
// bytes are not mixed with the output of other processes in a pipe.
void append(Stream& stream, std::string_view bytes) {
  if (stream.blocks.empty() || stream.blocks.back().size() + bytes.size() > PIPE_BUF) stream.blocks.emplace_back();
  stream.blocks.back() += bytes;
  stream.held += bytes.size();
  stream.in_line = bytes.back() != '\n';
}

void append_notice(Stream& stream, const std::string& text) {
  append(stream, (stream.in_line ? "\n" : "") + ("dtv-host: " + text + "\n"));
}

// Queues a line or a notice, which counts as this many lines. Returns false when they are lost.
enum class Form { kLine, kNotice };
bool put(Stream& stream, Form form, const std::string& text, std::uint64_t lines) {
  const std::lock_guard guard(stream.lock);
  if (stream.lost > 0 || stream.held + text.size() > relay.options.queue_bytes) {
    stream.lost += lines;
    return false;
  }
  if (form == Form::kNotice)
    append_notice(stream, text);
  else
    append(stream, text);
  stream.filled.notify_one();
  return true;
}

// When a write fails, because of a closed reader or a full disk, the block is dropped; the next one is tried again.
void write_block(int fd, std::string_view block) {
  while (!block.empty()) {
    const ssize_t written = write(fd, block.data(), block.size());
    if (written >= 0) {
      block.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno == EAGAIN) {  // another process made the descriptor non-blocking
      pollfd writable = {.fd = fd, .events = POLLOUT, .revents = 0};
      poll(&writable, 1, -1);
    } else if (errno != EINTR) {
      return;
    }
  }
}

void run_writer(Stream& stream) {
  pthread_setname_np(pthread_self(), stream.writer_name);
  std::unique_lock guard(stream.lock);
  while (true) {
    stream.filled.wait(guard, [&] { return !stream.blocks.empty(); });
    const std::string block = std::move(stream.blocks.front());
    stream.blocks.pop_front();
    guard.unlock();
    write_block(stream.original, block);
    guard.lock();
    // Before the block is subtracted from `held`, since `held` == 0 means that nothing is left to report.
    if (stream.lost > 0 && stream.held - block.size() <= relay.options.queue_bytes / 2) {
      append_notice(stream, std::to_string(stream.lost) + " lines were lost, since nobody read them");
      stream.lost = 0;
    }
    stream.held -= block.size();
  }
}

// FNV-1a; each run of digits counts as one digit.
std::uint64_t hash_of(std::string_view line) {
  std::uint64_t hash = 0xcbf29ce484222325;
  bool in_digits = false;
  for (const char character : line) {
    const bool digit = character >= '0' && character <= '9';
    if (digit && in_digits) continue;
    in_digits = digit;
    hash = (hash ^ static_cast<unsigned char>(digit ? '0' : character)) * 0x100000001b3;
  }
  return hash;
}

std::string beginning_of(std::string_view line) {
  constexpr std::size_t kMost = 60;
  if (line.size() <= kMost) return std::string(line);
  std::size_t length = kMost;
  while (length > kMost - 3 && (line[length] & 0xc0) == 0x80) --length;  // does not cut a UTF-8 character
  return std::string(line.substr(0, length)) + "...";
}

// Whether a line with this beginning passes; counts it if not. Windows that have ended were reported before.
bool kind_passes(Stream& stream, std::string_view line, Clock::time_point now) {
  const LogRelayOptions& options = relay.options;
  while (line.ends_with('\n') || line.ends_with('\r')) line.remove_suffix(1);
  const std::uint64_t hash = hash_of(line);
  LineKind* place = nullptr;
  for (LineKind& kind : stream.kinds) {
    const bool over = now >= kind.end;
    if (!over && kind.hash == hash) {
      place = &kind;
      break;
    }
    if (over && place == nullptr) place = &kind;
  }
  if (place == nullptr)
    place = stream.kinds.size() < options.kinds ? &stream.kinds.emplace_back() : &stream.other_kinds;
  if (now >= place->end) *place = {.hash = hash, .end = now + options.window, .beginning = beginning_of(line)};
  if (place->lines < (place == &stream.other_kinds ? options.lines_of_other_kinds : options.lines_of_a_kind)) {
    ++place->lines;
    return true;
  }
  ++place->more;
  return false;
}

// Reports the lines that were left out in windows that have ended, or in all windows.
void tell_kinds(Stream& stream, Clock::time_point now, bool all) {
  const auto is_due = [&](const LineKind& kind) { return kind.more > 0 && (all || now >= kind.end); };
  for (LineKind& kind : stream.kinds) {
    if (!is_due(kind)) continue;
    put(stream, Form::kNotice, "the line \"" + kind.beginning + "\" came " + std::to_string(kind.more) + " times more",
        kind.more);
    kind.more = 0;
  }
  LineKind& others = stream.other_kinds;
  if (!is_due(others)) return;
  put(stream, Form::kNotice, std::to_string(others.more) + " lines of many other kinds are left out", others.more);
  others.more = 0;
}

void pass_piece(Stream& stream, Clock::time_point now) {
  if (stream.rest == Rest::kNoBeginningYet)
    stream.rest = kind_passes(stream, stream.piece, now) ? Rest::kPasses : Rest::kDropped;
  if (stream.rest == Rest::kPasses && !put(stream, Form::kLine, stream.piece, 1)) stream.rest = Rest::kDropped;
  if (stream.piece.ends_with('\n')) stream.rest = Rest::kNoBeginningYet;
  stream.piece.clear();
}

// Reads once from the stream's pipe. Returns false when it was empty.
bool take(Stream& stream, Clock::time_point now) {
  char buffer[64 * 1024];  // as much as a pipe holds
  const ssize_t got = stream.pipe < 0 ? -1 : read(stream.pipe, buffer, sizeof buffer);
  if (got == 0) {  // the relay has ended
    close(stream.pipe);
    stream.pipe = -1;
  }
  if (got <= 0) return false;
  for (std::string_view bytes(buffer, static_cast<std::size_t>(got)); !bytes.empty();) {
    if (stream.piece.empty()) stream.piece_due = now + relay.options.partial_line;
    const std::size_t to_line_end = std::min(bytes.find('\n'), bytes.size() - 1) + 1;
    const std::size_t length = std::min(to_line_end, relay.options.line_bytes - stream.piece.size());
    stream.piece += bytes.substr(0, length);
    bytes.remove_prefix(length);
    if (stream.piece.ends_with('\n') || stream.piece.size() >= relay.options.line_bytes) pass_piece(stream, now);
  }
  return true;
}

// Milliseconds until a piece or a report is due; -1: nothing is.
int time_to_wait(Clock::time_point now) {
  auto due = Clock::time_point::max();
  for (const Stream& stream : relay.streams) {
    if (!stream.piece.empty()) due = std::min(due, stream.piece_due);
    if (stream.other_kinds.more > 0) due = std::min(due, stream.other_kinds.end);
    for (const LineKind& kind : stream.kinds)
      if (kind.more > 0) due = std::min(due, kind.end);
  }
  if (due == Clock::time_point::max()) return -1;
  const auto wait = std::chrono::ceil<milliseconds>(due - now).count();
  return static_cast<int>(std::clamp<std::int64_t>(wait, 0, INT_MAX));
}

void run_drain() {
  pthread_setname_np(pthread_self(), "dtv_log-drain");
  while (true) {
    pollfd watched[] = {{.fd = relay.streams[0].pipe, .events = POLLIN, .revents = 0},
                        {.fd = relay.streams[1].pipe, .events = POLLIN, .revents = 0},
                        {.fd = relay.wake, .events = POLLIN, .revents = 0}};
    poll(watched, std::size(watched), time_to_wait(Clock::now()));
    // Lets further lines arrive: waking up for each line would make a request that prints four lines half as slow
    // again.
    constexpr timespec kGathering = {.tv_sec = 0, .tv_nsec = 1'000'000};
    if (watched[2].revents == 0) nanosleep(&kGathering, nullptr);
    std::uint64_t wakes = 0;
    if (watched[2].revents != 0 && read(relay.wake, &wakes, sizeof wakes) < 0) continue;
    const std::uint32_t asked = relay.flush_asked;
    const bool flush = asked != relay.flush_done;
    const Clock::time_point now = Clock::now();
    for (Stream& stream : relay.streams) {
      tell_kinds(stream, now, false);
      while (take(stream, now) && flush) {
      }
      if (!stream.piece.empty() && (flush || now >= stream.piece_due)) pass_piece(stream, now);
      if (flush) tell_kinds(stream, now, true);
    }
    relay.flush_done = asked;
  }
}

// Waits until everything printed before is written, for at most `patience`. A signal handler may call it.
void settle(milliseconds patience) {
  const auto limit = Clock::now() + patience;
  const std::uint32_t asked = ++relay.flush_asked;
  constexpr std::uint64_t kOne = 1;
  if (write(relay.wake, &kOne, sizeof kOne) < 0) return;
  const auto is_settled = [&] {
    return relay.flush_done >= asked && relay.streams[0].held == 0 && relay.streams[1].held == 0;
  };
  constexpr timespec kMoment = {.tv_sec = 0, .tv_nsec = 1'000'000};
  while (!is_settled() && Clock::now() < limit) nanosleep(&kMoment, nullptr);
}

void on_crash(int number) {
  settle(milliseconds(200));
  raise(number);  // the handler was reset
}

bool complain(int error) {
  fprintf(stderr, "dtv-host: the log relay does not start, so a stalled reader of the log would stop the set: %s\n",
          std::generic_category().message(error).c_str());
  return false;
}

// Returns errno of what failed, or 0.
int start_threads() {
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  int error = 0;
  try {
    for (Stream& stream : relay.streams) std::thread(run_writer, std::ref(stream)).detach();
    std::thread(run_drain).detach();
  } catch (const std::system_error& failure) {
    error = failure.code().value();
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return error;
}

}  // namespace

bool log_relay_start(const LogRelayOptions& options) {
  relay.options = options;
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd)
    if (fcntl(fd, F_GETFD) < 0 && open("/dev/null", O_RDWR) < 0) return complain(errno);  // takes the lowest free one
  relay.wake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (relay.wake < 0) return complain(errno);
  for (Stream& stream : relay.streams) {
    int ends[2] = {-1, -1};
    stream.original = fcntl(stream.number, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    if (stream.original < 0 || pipe2(ends, O_CLOEXEC) < 0) return complain(errno);
    fcntl(ends[0], F_SETFL, O_NONBLOCK);
    stream.pipe = ends[0];
    stream.write_end = ends[1];
  }
  if (const int error = start_threads(); error != 0) return complain(error);

  fflush(stdout);
  // With a buffer of our own: otherwise the C library ignores the new mode once something has been printed.
  setvbuf(stdout, relay.stdout_buffer, _IOLBF, sizeof relay.stdout_buffer);
  for (const Stream& stream : relay.streams) {
    dup2(stream.write_end, stream.number);
    close(stream.write_end);
  }
  // A sanitizer ends the process right after its report, before the relay could write it.
  const auto report_fd = static_cast<std::intptr_t>(relay.streams[1].original);
  if (__sanitizer_set_report_fd != nullptr) __sanitizer_set_report_fd(reinterpret_cast<void*>(report_fd));
  for (const int number : {SIGABRT, SIGSEGV, SIGBUS, SIGILL, SIGFPE}) {
    struct sigaction action {};
    sigaction(number, nullptr, &action);
    if (action.sa_handler != SIG_DFL) continue;
    action.sa_handler = on_crash;
    action.sa_flags = static_cast<int>(SA_RESETHAND | SA_NODEFER);
    sigaction(number, &action, nullptr);
  }
  relay.started = true;
  return true;
}

void log_relay_end(milliseconds patience) {
  if (!relay.started) return;
  if (ftrylockfile(stdout) == 0) {  // a stuck thread may hold the lock
    fflush_unlocked(stdout);
    funlockfile(stdout);
  }
  settle(patience);
  // A stream with a closed reader keeps the relay too, which takes the SIGPIPE.
  for (Stream& stream : relay.streams) {
    pollfd writable = {.fd = stream.original, .events = POLLOUT, .revents = 0};
    if (stream.held == 0 && poll(&writable, 1, 0) > 0 && writable.revents == POLLOUT)
      dup2(stream.original, stream.number);
  }
}
