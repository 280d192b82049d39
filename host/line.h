// The socket of a client and the state of its protocol. For connection.cpp, which owns the sockets, and reading.cpp,
// which reads requests from the received bytes.
#pragma once

#include <unistd.h>

#include <string>
#include <string_view>
#include <utility>

#include "http_wire.h"
#include "network.h"
#include "ws_wire.h"

// What the client has to send next. A phase sets a deadline when it begins; received bytes do not extend it.
enum class Phase { kNothing, kFirstRequest, kNextRequest, kHead, kBody, kMessage, kFarewell };

enum class State {
  kReading,    // an HTTP request, or WebSocket messages
  kWaiting,    // for the outcome of an HTTP request's call
  kAnswering,  // sends the answer to an HTTP request
  kLeaving,    // sends the remaining bytes, then closes the sending side
  kLingering,  // waits until the client has closed its side too; received bytes are discarded
  kDead,       // will be closed as soon as no function uses it
};

struct Line {
  Socket socket;
  std::string peer;     // the address; empty for a loopback address
  bool excess = false;  // beyond the maximum: its requests are refused unless they show the token
  State state = State::kReading;
  HttpReaderPtr reader;
  WsStreamPtr stream;
  std::string input;  // received and not yet taken by the protocol

  std::string unsent;           // whole frames, or an HTTP answer
  std::size_t sent = 0;         // bytes of unsent that are sent
  bool unsent_replies = false;  // unsent has replies, not only notifications
  OpenFile file;                // the rest of an answer
  bool keeps_alive = false;     // the connection stays open after the answer

  bool yielded = false;  // interrupted, although the input has more to read
  bool read_awaited = false;
  bool write_awaited = false;
  Phase phase = Phase::kNothing;
  TimePoint since;  // when the phase began
  TimePoint read_due = kNever;
  TimePoint write_due = kNever;
  std::size_t receiving_bytes = 0;  // included in Server::receiving_bytes
  std::size_t reply_bytes = 0;      // included in Server::reply_bytes

  explicit Line(Socket from) : socket(std::move(from)) {}
  Line(const Line&) = delete;
  Line& operator=(const Line&) = delete;
  ~Line() {
    if (file.descriptor >= 0) close(file.descriptor);
  }
};

// reading.cpp

// Sets the deadline of a phase. Entering the current phase again does not extend its deadline.
void enter_phase(Server& server, Line& line, Phase phase);

// Each reads one step, and returns false when more bytes are needed. read_http is for State::kReading without a stream,
// read_websocket with one.
bool read_http(Server& server, Client& client, std::string_view& window);
bool read_websocket(Server& server, Client& client, std::string_view& window);

// Answers and ends the connection: the beginning of its next request is unknown, or not worth reading up to.
void refuse_http(Server& server, Client& client, HttpAnswer answer);
