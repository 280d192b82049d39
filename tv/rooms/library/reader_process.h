// The process dtv-media-reader, as seen by its client: starting, ending, and one message to it and back. It is not
// trusted: a file may have taken it over, so whatever comes from it is checked by who uses it.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>

#include "media_reader/wire.h"

struct ReaderProcess {
  pid_t id = -1;
  int handle = -1;  // a pidfd: the process has ended when it can be read
  int socket = -1;
  int memory = -1;  // the pictures' bytes, of kWireMemorySize for ever
  bool running() const { return socket >= 0; }
};

// Starts the program, and waits until it has confined itself. False with ret_why, also while three processes that were
// killed have not ended. Any thread.
bool process_start(const std::string& program, ReaderProcess& ret_process, std::string& ret_why);

// Kills it. Waits until it is gone, for at most a second: a read from a broken stick cannot be interrupted.
void process_end(ReaderProcess& process);

// Whether it has ended, or has sent what nobody asked for.
bool process_is_useless(const ReaderProcess& process);

enum class Exchange { kAnswered, kDied, kNonsense, kLate, kCancelled };

// Sends the request with the file, and waits for the reply, or until `cancel`, an eventfd, can be read.
Exchange process_ask(const ReaderProcess& process, const WireRequest& request, int file, int cancel,
                     std::chrono::milliseconds time, WireReply& ret_reply);

// "signal 9 ended it" or "it ended with code 1", of one that has died.
std::string process_end_of(const ReaderProcess& process);
