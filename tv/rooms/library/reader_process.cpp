#include "rooms/library/reader_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <system_error>
#include <utility>
#include <vector>

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds kStartTime{10'000};  // until the process says hello; takes some 0.1 s on an idle machine
constexpr milliseconds kEndTime{1000};
constexpr std::size_t kMostLeftBehind = 3;

void close_one(int& file) {
  if (file >= 0) close(std::exchange(file, -1));
}

int time_left(steady_clock::time_point deadline) {
  const auto left = std::chrono::ceil<milliseconds>(deadline - steady_clock::now());
  return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

// Waits for a message and reads it. A message of the wrong length is refused; file descriptors sent with it are closed.
Exchange receive(const ReaderProcess& process, int cancel, milliseconds time, WireReply& ret_reply) {
  const auto deadline = steady_clock::now() + time;
  for (;;) {
    std::array<pollfd, 2> polled = {
        {{.fd = process.socket, .events = POLLIN, .revents = 0}, {.fd = cancel, .events = POLLIN, .revents = 0}}};
    const int ready = poll(polled.data(), polled.size(), time_left(deadline));
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) return Exchange::kLate;
    if ((polled[1].revents & POLLIN) != 0) return Exchange::kCancelled;
    WireReply reply;
    const ssize_t got = recv(process.socket, &reply, sizeof reply, MSG_DONTWAIT | MSG_TRUNC);
    if (got < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (got <= 0) return Exchange::kDied;
    if (got != sizeof reply || reply.magic != kWireMagic) return Exchange::kNonsense;
    ret_reply = reply;
    return Exchange::kAnswered;
  }
}

bool make_memory(int& ret_memory) {
  int memory = memfd_create("dtv_tv-picture", MFD_CLOEXEC | MFD_ALLOW_SEALING);
  // The size is sealed: if one process shortened the memory, the other would be killed when it touches the missing
  // part.
  if (memory >= 0 && ftruncate(memory, static_cast<off_t>(kWireMemorySize)) == 0 &&
      fcntl(memory, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) == 0) {
    ret_memory = memory;
    return true;
  }
  close_one(memory);
  return false;
}

// Starts the program with an empty environment and only the two descriptors. Returns 0, or an error number.
int spawn(const std::string& program, int socket, int memory, pid_t& ret_id) {
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
    posix_spawn_file_actions_addopen(&files, standard, "/dev/null", O_RDWR, 0);
  posix_spawn_file_actions_adddup2(&files, socket, kWireSocket);
  posix_spawn_file_actions_adddup2(&files, memory, kWireMemory);
  posix_spawn_file_actions_addclosefrom_np(&files, kWireMemory + 1);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t signals;
  sigfillset(&signals);
  posix_spawnattr_setsigdefault(&attributes, &signals);
  sigemptyset(&signals);
  posix_spawnattr_setsigmask(&attributes, &signals);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
  std::string name = "dtv-media-reader";
  std::array<char*, 2> arguments = {name.data(), nullptr};
  std::array<char*, 1> no_environment = {nullptr};
  const int failure =
      posix_spawn(&ret_id, program.c_str(), &files, &attributes, arguments.data(), no_environment.data());
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&files);
  return failure;
}

// Moves the descriptors above the numbers that the child gets them as, so that none is overwritten before it is copied.
bool lift(int& file) {
  const int lifted = fcntl(file, F_DUPFD_CLOEXEC, kWireMemory + 1);
  if (lifted < 0) return false;
  close(std::exchange(file, lifted));
  return true;
}

// Processes that could not die within kEndTime: a read from a broken stick cannot be interrupted.
struct LeftBehind {
  pid_t id;
  int handle;
};
std::mutex left_lock;
std::vector<LeftBehind>& left = *new std::vector<LeftBehind>;  // guarded by left_lock

// Reaps those that have died meanwhile. Returns how many have not.
std::size_t reap_left() {
  const std::lock_guard guard(left_lock);
  std::erase_if(left, [](LeftBehind& each) {
    pollfd ended{.fd = each.handle, .events = POLLIN, .revents = 0};
    if (poll(&ended, 1, 0) <= 0) return false;
    waitpid(each.id, nullptr, 0);
    close_one(each.handle);
    return true;
  });
  return left.size();
}

}  // namespace

bool process_start(const std::string& program, ReaderProcess& ret_process, std::string& ret_why) {
  if (const std::size_t stuck = reap_left(); stuck >= kMostLeftBehind) {
    ret_why = std::to_string(stuck) + " readers of media files cannot end; a stick is probably broken";
    return false;
  }
  ReaderProcess process;
  std::array<int, 2> sockets = {-1, -1};
  int failure = 0;
  if (!make_memory(process.memory) || socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, sockets.data()) != 0 ||
      !lift(sockets[1]) || !lift(process.memory))
    failure = errno;
  else
    failure = spawn(program, sockets[1], process.memory, process.id);
  close_one(sockets[1]);
  process.socket = sockets[0];
  if (failure != 0) {
    ret_why =
        "the reader of media files, " + program + ", cannot be started: " + std::generic_category().message(failure);
    close_one(process.socket);
    close_one(process.memory);
    return false;
  }
  process.handle = static_cast<int>(syscall(SYS_pidfd_open, process.id, 0));
  WireReply hello;
  const Exchange said = receive(process, -1, kStartTime, hello);
  if (said == Exchange::kAnswered && hello.serial == 0 && hello.end == WireEnd::kDone) {
    ret_process = process;
    return true;
  }
  hello.why[sizeof hello.why - 1] = '\0';
  ret_why = "the reader of media files, " + program + ", does not start: ";
  if (said == Exchange::kAnswered)
    ret_why += hello.why;
  else
    ret_why += said == Exchange::kDied ? process_end_of(process) : "it does not say hello";
  process_end(process);
  return false;
}

void process_end(ReaderProcess& process) {
  close_one(process.socket);
  close_one(process.memory);
  if (process.id > 0) {
    kill(process.id, SIGKILL);  // it has not been waited for, so its number is not reused
    pollfd ended{.fd = process.handle, .events = POLLIN, .revents = 0};
    if (process.handle < 0 || poll(&ended, 1, static_cast<int>(kEndTime.count())) > 0) {
      waitpid(process.id, nullptr, 0);
    } else {
      const std::lock_guard guard(left_lock);
      left.push_back({.id = process.id, .handle = std::exchange(process.handle, -1)});
    }
  }
  close_one(process.handle);
  process = {};
}

bool process_is_useless(const ReaderProcess& process) {
  pollfd polled{.fd = process.socket, .events = POLLIN, .revents = 0};
  return poll(&polled, 1, 0) != 0;
}

Exchange process_ask(const ReaderProcess& process, const WireRequest& request, int file, int cancel, milliseconds time,
                     WireReply& ret_reply) {
  iovec data{.iov_base = const_cast<WireRequest*>(&request), .iov_len = sizeof request};
  alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof file)> control{};
  msghdr message{};
  message.msg_iov = &data;
  message.msg_iovlen = 1;
  message.msg_control = control.data();
  message.msg_controllen = control.size();
  cmsghdr* const header = CMSG_FIRSTHDR(&message);
  header->cmsg_level = SOL_SOCKET;
  header->cmsg_type = SCM_RIGHTS;
  header->cmsg_len = CMSG_LEN(sizeof file);
  std::memcpy(CMSG_DATA(header), &file, sizeof file);
  if (sendmsg(process.socket, &message, MSG_NOSIGNAL | MSG_DONTWAIT) != sizeof request) return Exchange::kDied;
  const Exchange result = receive(process, cancel, time, ret_reply);
  return result == Exchange::kAnswered && ret_reply.serial != request.serial ? Exchange::kNonsense : result;
}

std::string process_end_of(const ReaderProcess& process) {
  siginfo_t info{};
  pollfd ended{.fd = process.handle, .events = POLLIN, .revents = 0};
  if (poll(&ended, 1, static_cast<int>(kEndTime.count())) > 0 &&
      waitid(P_PID, static_cast<id_t>(process.id), &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid != 0)
    return info.si_code == CLD_EXITED ? "it ended with code " + std::to_string(info.si_status)
                                      : "signal " + std::to_string(info.si_status) + " ended it";
  return "it closed its connection";
}
