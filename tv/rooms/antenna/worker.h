// A thread that exists only while it has something to do.
#pragma once

#include <system_error>
#include <thread>
#include <utility>

// The owner's lock guards it.
struct Worker {
  std::thread thread;
  bool runs = false;  // the thread clears it as the last thing under the owner's lock, and then ends
};

// Starts the thread unless it runs. The caller holds the owner's lock. False: the system has no thread left.
template <typename Run>
bool worker_start(Worker& worker, Run run) {
  if (worker.runs) return true;
  if (worker.thread.joinable()) worker.thread.join();  // it has given up the lock, and takes it no more
  try {
    worker.thread = std::thread(std::move(run));
  } catch (const std::system_error&) {
    return false;
  }
  return worker.runs = true;
}

// Waits until the thread has ended. The caller holds no lock, has told the thread to end, and starts no other.
inline void worker_join(Worker& worker) {
  if (worker.thread.joinable()) worker.thread.join();
}
