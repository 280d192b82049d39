// What a connection of fuzz_wire sends, made from the fuzzer's input, and what is known in advance of the answers.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "bytes.h"
#include "catalogue.h"
#include "host_texts.h"

// The server that the scripts are for.
struct WireTarget {
  std::string authority;  // as Host has it
  std::string token;
  std::string origin;  // of a page that the server admits
  std::size_t message_bytes = 0;
  const Catalogue* catalogue = nullptr;
  std::vector<Method> methods;
};

// What a request's answer says about a mark.
struct Marked {
  std::string mark;   // empty: the request carries none
  bool sets = false;  // the mark of a set; that of a get is repeated by a successful answer
};

struct WantedAnswer {
  std::vector<unsigned> statuses;  // one of them
  bool to_head = false;            // the answer has no body
  Marked marked = {};
};

struct Script {
  std::string bytes;
  bool doubtful = false;   // damaged somewhere: what comes back is well-formed, and no more is known
  bool ended = false;      // the bytes so far end the connection: any further ones must have no effect
  bool cut = false;        // nothing follows
  bool websocket = false;  // has been upgraded
  bool follows = false;    // notifications may come
  bool slow = false;       // reads nothing until everything is sent
  bool waits = false;      // leaves the end to the server's deadlines
  std::vector<WantedAnswer> answers;
  std::size_t continues = 0;              // interim answers at most
  std::map<std::string, Marked> replies;  // by id, as a text
  std::size_t other_replies = 0;          // to messages whose ids are not known
  std::vector<std::string> pings;
  std::vector<unsigned> close_codes;   // the server's close frame has one of them; empty: it sends none. 0: no code
  std::vector<std::string> forbidden;  // marks of sets that must not be carried out
};

Script take_wire_script(Bytes& bytes, const WireTarget& target);

// For wire_script.cpp and its two halves.
struct Maker {
  Bytes& bytes;
  const WireTarget& target;
  Script& script;
};

// wire_http.cpp: one request; upgrades the script, or ends it, perhaps.
void add_http_request(Maker& maker);

// wire_frames.cpp: one message or control frame; ends the script, perhaps.
void add_frames(Maker& maker);

// The same for whoever drives a WebSocket connection by hand.
std::string wire_upgrade(const WireTarget& target);
std::string wire_text_frame(std::string_view text);
inline constexpr std::string_view kWireAcceptKey = "s3pPLMBiTxaQ9kYGzzhZRbK+xOo=";

// A mark for a set. The set must not be carried out when the script has already ended, or when it is not allowed.
std::string new_set_mark(Maker& maker, bool allowed = true);

// A JSON-RPC message by whose ids, or whose number, its replies are known. ret_replies: whether there is a reply.
std::string take_wire_message(Maker& maker, bool& ret_replies);
