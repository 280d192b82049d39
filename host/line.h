// The socket of a client, and what its protocol is in the middle of. For connection.cpp, which owns the sockets, and
// reading.cpp, which reads requests out of what they bring.
#pragma once

#include <unistd.h>

#include <string>
#include <string_view>
#include <utility>

#include "http_wire.h"
#include "network.h"
#include "ws_wire.h"

// What the client is due to send, and since when; a deadline is set where a phase begins, and bytes do not renew it.
enum class Phase { kNothing, kFirstRequest, kNextRequest, kHead, kBody, kMessage, kFarewell };

enum class State {
  kReading,    // of an HTTP request, or of WebSocket messages
  kWaiting,    // for the outcome of an HTTP request's call
  kAnswering,  // until the answer to an HTTP request has left
  kLeaving,    // what is still to be sent leaves, then the sending side is shut
  kLingering,  // until the client has shut its side as well: what it sends is forgotten
  kDead,       // to be closed as soon as nobody uses it
};

struct Line {
  Socket socket;
  std::string peer;     // address, of one that is not loopback
  bool excess = false;  // beyond the maximum: its request is refused unless it shows the token
  State state = State::kReading;
  HttpReaderPtr reader;
  WsStreamPtr stream;
  std::string input;  // received and not yet taken by the protocol

  std::string unsent;           // whole frames, or an HTTP answer
  std::size_t sent = 0;         // of it
  bool unsent_replies = false;  // it has more than notifications
  OpenFile file;                // the rest of an answer
  bool keeps_alive = false;     // after the answer

  bool yielded = false;  // the input has more that can be read now
  bool read_awaited = false;
  bool write_awaited = false;
  Phase phase = Phase::kNothing;
  TimePoint since;  // the phase began
  TimePoint read_due = kNever;
  TimePoint write_due = kNever;
  std::size_t receiving_bytes = 0;  // its part of Server::receiving_bytes
  std::size_t reply_bytes = 0;      // and of Server::reply_bytes

  explicit Line(Socket from) : socket(std::move(from)) {}
  Line(const Line&) = delete;
  Line& operator=(const Line&) = delete;
  ~Line() {
    if (file.descriptor >= 0) close(file.descriptor);
  }
};

// reading.cpp

// Sets the time that a phase may take; entering the phase that lasts does not renew it.
void enter_phase(Server& server, Line& line, Phase phase);

// Reads one step on; false: no further step can be read now. The first for State::reading without a stream, the second
// with one.
bool read_http(Server& server, Client& client, std::string_view& window);
bool read_websocket(Server& server, Client& client, std::string_view& window);

// Answers, and ends the connection: where its next request would begin is not known, or not worth reading up to.
void refuse_http(Server& server, Client& client, HttpAnswer answer);
