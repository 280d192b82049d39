#include "generator/pictures.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <system_error>
#include <utility>

#include "broadcast/playout.h"
#include "generator/files.h"
#include "generator/label.h"

namespace {

constexpr int kPollPeriod = 500;                 // ms between two looks at the signals
constexpr int kPatience = 120 * 1000;            // ms without a byte from any ffmpeg: it hangs
constexpr std::size_t kLongestComplaint = 2000;  // bytes that are kept of what an ffmpeg says
constexpr std::size_t kReadSize = 65536;

struct Job {
  const MultiplexRow* multiplex = nullptr;
  NewFile file;
  std::vector<std::unique_ptr<NewFile>> helpers;  // what ffmpeg reads; never committed
  pid_t child = -1;
  int output = -1;  // pipes from the child
  int errors = -1;
  std::string complaint;
  std::size_t received = 0;
  std::size_t expected = 0;
  Job() = default;
  Job(const Job&) = delete;
  Job& operator=(const Job&) = delete;
  ~Job() {
    for (const int pipe : {output, errors})
      if (pipe >= 0) close(pipe);
    if (child > 0) {
      kill(child, SIGKILL);
      while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) continue;
    }
  }
};

// A stream of constant rate has a known length.
std::size_t expected_length(const MultiplexRow& multiplex, int seconds) {
  return static_cast<std::size_t>(pictures_rate(multiplex, seconds)) * 1000 / 8 * static_cast<std::size_t>(seconds);
}

// ffmpeg ends a little before or behind the expected length.
bool is_too_long(std::size_t length, std::size_t expected) { return length > expected / 10 * 11; }
bool has_length(std::size_t length, std::size_t expected) {
  return length % kPacketSize == 0 && length > expected / 10 * 9 && !is_too_long(length, expected);
}

// Writes what the command line refers to. The paths are in the order of the multiplex's services.
bool write_helpers(Job& job, const std::string& folder, int seconds, std::vector<std::string>& ret_strips,
                   std::vector<std::string>& ret_subtitles, std::string& ret_error) {
  const auto write = [&](const std::string& name, const std::vector<std::uint8_t>& bytes) {
    job.helpers.push_back(std::make_unique<NewFile>());
    NewFile& file = *job.helpers.back();
    return file_begin(file, folder + "/" + name, ret_error) && file_write(file, bytes, ret_error);
  };
  for (const ServiceRow& service : kServices) {
    if (service.stream != job.multiplex->stream) continue;
    ret_strips.emplace_back();
    ret_subtitles.emplace_back();
    const std::string name = std::to_string(service.id);
    if (service.codec != Codec::kNone) {
      if (!write(name + ".gray", strip_frames(service.label, seconds))) return false;
      ret_strips.back() = job.helpers.back()->temporary;
    }
    if (service.subtitles) {
      if (!write(name + ".sup", subtitle_stream(service.width, service.height, seconds))) return false;
      ret_subtitles.back() = job.helpers.back()->temporary;
    }
  }
  return true;
}

// Starts ffmpeg with its streams connected to the job. Returns an error number.
int spawn(Job& job, const std::vector<std::string>& words) {
  std::array<int, 2> output = {};
  std::array<int, 2> errors = {};
  if (pipe2(output.data(), O_CLOEXEC) != 0) return errno;
  job.output = output[0];
  if (pipe2(errors.data(), O_CLOEXEC) != 0) {
    close(output[1]);
    return errno;
  }
  job.errors = errors[0];
  std::vector<char*> arguments;
  for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&files, output[1], STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&files, errors[1], STDERR_FILENO);
  // The child dies of a write to this program's pipe when this program is no longer there.
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t reset;
  sigemptyset(&reset);
  sigaddset(&reset, SIGPIPE);
  posix_spawnattr_setsigdefault(&attributes, &reset);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
  pid_t child = -1;
  const int failure = posix_spawnp(&child, words[0].c_str(), &files, &attributes, arguments.data(), environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&files);
  close(output[1]);
  close(errors[1]);
  if (failure == 0) job.child = child;
  return failure;
}

ExitCode start(Job& job, const std::string& folder, int seconds, std::string& ret_error) {
  std::vector<std::string> strips;
  std::vector<std::string> subtitles;
  if (!write_helpers(job, folder, seconds, strips, subtitles, ret_error) ||
      !file_begin(job.file, pictures_path(folder, *job.multiplex, seconds), ret_error))
    return kExitOutput;
  job.expected = expected_length(*job.multiplex, seconds);
  const int failure = spawn(job, pictures_command(*job.multiplex, seconds, strips, subtitles));
  if (failure == 0) return kExitOk;
  ret_error = failure == ENOENT ? "there is no ffmpeg in PATH; install the package ffmpeg"
                                : "ffmpeg cannot be started: " + std::system_category().message(failure);
  return kExitRefused;
}

// Takes what has arrived on the pipe, and closes the pipe at its end. False with ret_error if it cannot be written.
bool take(Job& job, int& pipe, std::string& ret_error) {
  std::array<std::uint8_t, kReadSize> bytes;
  const ssize_t got = read(pipe, bytes.data(), bytes.size());
  if (got < 0 && (errno == EINTR || errno == EAGAIN)) return true;
  if (got <= 0) {
    close(std::exchange(pipe, -1));
    return true;
  }
  const auto size = static_cast<std::size_t>(got);
  if (&pipe == &job.errors) {
    job.complaint.append(reinterpret_cast<const char*>(bytes.data()), size);
    if (job.complaint.size() > kLongestComplaint) job.complaint.erase(0, job.complaint.size() - kLongestComplaint);
    return true;
  }
  job.received += size;
  return file_write(job.file, {bytes.data(), size}, ret_error);
}

// A line on standard error whenever another tenth is done.
void report(std::span<const std::unique_ptr<Job>> jobs, int& tenths) {
  std::size_t received = 0;
  std::size_t expected = 0;
  for (const auto& job : jobs) {
    received += job->received;
    expected += job->expected;
  }
  const int now = static_cast<int>(received * 10 / std::max<std::size_t>(expected, 1));
  if (now <= tenths || now > 10) return;
  tenths = now;
  fprintf(stderr, "dtv-multiplexes: pictures and sound: %d %%\n", now * 10);
}

// Moves bytes until every child has closed its pipes.
ExitCode receive(std::span<const std::unique_ptr<Job>> jobs, std::string& ret_error) {
  int silent = 0;
  int tenths = 0;
  for (;;) {
    std::vector<pollfd> polled;
    std::vector<std::pair<Job*, int*>> owners;
    for (const auto& job : jobs)
      for (int* pipe : {&job->output, &job->errors})
        if (*pipe >= 0) {
          polled.push_back({.fd = *pipe, .events = POLLIN, .revents = 0});
          owners.emplace_back(job.get(), pipe);
        }
    if (polled.empty()) return kExitOk;
    const int ready = poll(polled.data(), polled.size(), kPollPeriod);
    if (interrupted()) return kExitRefused;
    silent = ready > 0 ? 0 : silent + kPollPeriod;
    if (silent >= kPatience) {
      ret_error = "ffmpeg hangs: it has written nothing for " + std::to_string(kPatience / 1000) + " s";
      return kExitRefused;
    }
    for (std::size_t index = 0; index < polled.size() && ready > 0; ++index)
      if (polled[index].revents != 0 && !take(*owners[index].first, *owners[index].second, ret_error))
        return kExitOutput;
    for (const auto& job : jobs) {
      if (!is_too_long(job->received, job->expected)) continue;
      ret_error = "ffmpeg writes more than the expected " + std::to_string(job->expected) + " bytes";
      return kExitRefused;
    }
    report(jobs, tenths);
  }
}

ExitCode finish(Job& job, std::string& ret_error) {
  int status = 0;
  while (waitpid(job.child, &status, 0) < 0)
    if (errno != EINTR) break;
  job.child = -1;
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0 || !has_length(job.received, job.expected)) {
    ret_error = "ffmpeg has failed for " + std::string(job.multiplex->name) +
                (WIFSIGNALED(status) ? ", by signal " + std::to_string(WTERMSIG(status))
                                     : ", with exit code " + std::to_string(WEXITSTATUS(status))) +
                " after " + std::to_string(job.received) + " of " + std::to_string(job.expected) + " bytes" +
                (job.complaint.empty() ? "" : ":\n" + job.complaint);
    return kExitRefused;
  }
  return file_commit(job.file, true, ret_error) ? kExitOk : kExitOutput;
}

}  // namespace

bool pictures_there(const MultiplexRow& multiplex, const std::string& folder, int seconds) {
  std::error_code failed;
  const std::uintmax_t length = std::filesystem::file_size(pictures_path(folder, multiplex, seconds), failed);
  return !failed && has_length(length, expected_length(multiplex, seconds));
}

ExitCode pictures_make(std::span<const MultiplexRow* const> multiplexes, const std::string& folder, int seconds,
                       std::string& ret_error) {
  std::vector<std::unique_ptr<Job>> jobs;
  for (const MultiplexRow* multiplex : multiplexes) {
    jobs.push_back(std::make_unique<Job>());
    jobs.back()->multiplex = multiplex;
    if (const ExitCode code = start(*jobs.back(), folder, seconds, ret_error); code != kExitOk) return code;
  }
  if (const ExitCode code = receive(jobs, ret_error); code != kExitOk) return code;
  for (const auto& job : jobs)
    if (const ExitCode code = finish(*job, ret_error); code != kExitOk) return code;
  return kExitOk;
}
