// The client's half of the WebSocket protocol, without a library, whose time the load generator would measure as well.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

struct Connection {
  int socket = -1;
  std::vector<char> received;  // bytes read; the next read removes those already taken
  std::size_t taken = 0;       // how many bytes at the front of received are already taken
};

// Connects to 127.0.0.1 and upgrades at /jsonrpc. The socket blocks. Ends the process with a message on failure, as do
// all functions here: a benchmark with a lost connection has no result.
Connection websocket_connect(int port);

// The frame of one text message, as a client sends it.
std::string websocket_frame(std::string_view text);

// Sends all bytes.
void websocket_send(Connection& connection, std::string_view frames);

// Reads once; waits at most 10 s for something to read.
void websocket_read(Connection& connection);

// Takes the next whole text message that was read; it lives until the next read. False when there is none.
bool websocket_next(Connection& connection, std::string_view& ret_text);

// Ends the process with a message.
[[noreturn]] void fail(const std::string& what);
