// The client's side of the process dtv-media-reader: starts it, ends it, and exchanges one message with it. The process
// is not trusted, since a file may have taken control of it: the caller checks every reply.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>

#include "media_reader/wire.h"

struct ReaderProcess {
  pid_t id = -1;
  int handle = -1;  // a pidfd, which becomes readable when the process ends
  int socket = -1;
  int memory = -1;  // the shared memory for pictures; its size is sealed at kWireMemorySize bytes
  bool running() const { return socket >= 0; }
};

// Starts the program, and waits until it has confined itself (media_reader/confine.h). False with ret_why.
bool process_start(const std::string& program, ReaderProcess& ret_process, std::string& ret_why);

// Kills the process, and waits for at most a second until it is gone: a process that reads from a broken stick cannot
// be interrupted.
void process_end(ReaderProcess& process);

// Whether the process has ended, or has sent a message that nobody requested.
bool process_is_useless(const ReaderProcess& process);

enum class Exchange { kAnswered, kDied, kNonsense, kLate, kCancelled };

// Sends the request with the file, and waits for the reply for at most `time`, or until `cancel`, an eventfd, becomes
// readable.
Exchange process_ask(const ReaderProcess& process, const WireRequest& request, int file, int cancel,
                     std::chrono::milliseconds time, WireReply& ret_reply);

// How a dead process ended: "signal 9 ended it" or "it ended with code 1".
std::string process_end_of(const ReaderProcess& process);
