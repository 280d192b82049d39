// What a connection of fuzz_wire has received: read as it comes, and checked against the protocols' form.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "wire_script.h"

struct Answer {
  unsigned status = 0;
  std::string body = {};
};

struct Reply {
  bool failed = false;    // an error, not a result
  std::string text = {};  // its own, also where it came in a batch
};

struct Received {
  std::string rest = {};  // received and not yet read
  bool last = false;      // nothing may follow any more
  bool websocket = false;
  std::size_t bytes = 0;  // all that came
  std::vector<Answer> answers = {};
  std::size_t continues = 0;
  std::map<std::string, Reply> replies = {};  // by id, of those that a script knows
  std::size_t other_replies = 0;              // messages with other replies
  std::size_t notifications = 0;
  std::vector<std::string> pongs = {};
  std::vector<unsigned> closes = {};  // codes; 0: none
};

// Reads on. Anything that is not well-formed ends the process.
void receive(Received& received, const Script& script, std::string_view bytes);

// The connection has ended. cut_short: it may have ended within a frame, since nobody read.
void receive_end(const Received& received, bool cut_short);
