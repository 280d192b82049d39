#include "generator/files.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <system_error>
#include <utility>

namespace {

constexpr int kLockPeriod = 100;  // ms between two looks at a lock that another program has

volatile std::sig_atomic_t latest_signal = 0;

std::string failed(const char* what, const std::string& path) {
  return std::string(what) + " " + path + ": " + std::system_category().message(errno);
}

}  // namespace

void watch_signals() {
  struct sigaction action = {};
  action.sa_handler = [](int number) { latest_signal = number; };
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) sigaction(number, &action, nullptr);
  std::signal(SIGPIPE, SIG_IGN);  // a reader of the progress that leaves must not end the program
  std::signal(SIGXFSZ, SIG_IGN);  // a file that may not grow any more is an error of write()
}

bool interrupted() { return latest_signal != 0; }

void end_by_signal() {
  std::signal(latest_signal, SIG_DFL);
  std::raise(latest_signal);
  std::abort();
}

NewFile::~NewFile() {
  if (descriptor >= 0) close(descriptor);
  if (!temporary.empty()) unlink(temporary.c_str());
}

bool file_begin(NewFile& file, const std::string& path, std::string& ret_error) {
  // A name of its own, since the antenna takes every file that ends with .ts.
  const std::string temporary = file_temporary(path);
  file.descriptor = open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0666);
  if (file.descriptor < 0) {
    ret_error = failed("cannot create", temporary);
    return false;
  }
  file.path = path;
  file.temporary = temporary;
  return true;
}

bool file_write(const NewFile& file, std::span<const std::uint8_t> bytes, std::string& ret_error) {
  while (!bytes.empty()) {
    const ssize_t written = write(file.descriptor, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) {
      ret_error = failed("cannot write", file.temporary);
      return false;
    }
    bytes = bytes.subspan(static_cast<std::size_t>(written));
  }
  return true;
}

bool file_commit(NewFile& file, bool durable, std::string& ret_error) {
  // A file system may report a full disk only now.
  const bool kept = (!durable || fdatasync(file.descriptor) == 0) && close(std::exchange(file.descriptor, -1)) == 0;
  if (!kept || rename(file.temporary.c_str(), file.path.c_str()) != 0) {
    ret_error = failed("cannot write", file.path);
    return false;
  }
  file.temporary.clear();
  return true;
}

std::string file_temporary(const std::string& path) { return path + ".part"; }

bool folder_lock(const std::string& folder, std::string& ret_error) {
  const std::string path = folder + "/lock";
  const int descriptor = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0666);
  if (descriptor < 0) {
    ret_error = failed("cannot create", path);
    return false;
  }
  for (bool told = false; flock(descriptor, LOCK_EX | LOCK_NB) != 0; told = true) {
    if (errno != EWOULDBLOCK && errno != EINTR) {
      ret_error = failed("cannot lock", path);
      return false;
    }
    if (!told) fprintf(stderr, "dtv-multiplexes: waiting for another one that fills %s\n", folder.c_str());
    poll(nullptr, 0, kLockPeriod);
    if (interrupted()) {
      ret_error = "interrupted";
      return false;
    }
  }
  return true;  // the descriptor stays open, and with it the lock
}
