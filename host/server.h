// The host as a server: HTTP and WebSocket connections on one thread at a time, the leader (see "runner.h").
#pragma once

#include <cstddef>
#include <string>

#include "bounds.h"
#include "policy.h"
#include "stack.h"

struct ServerOptions {
  Policy policy;
  std::string web_folder;
  std::string token;           // required for control commands; empty: they are always refused
  bool require_token = false;  // all requests require it; only the page's files do not
  bool strict = false;         // refuse requests that the set would accept with warnings
  bool watchdog = true;
  Limits limits;
};

struct Server;

// Starts to listen. Returns null with a message on failure. server_policy then has the actual port.
Server* server_start(const ServerOptions& options, const Stack& stack, std::string& ret_error);
const Policy& server_policy(const Server& server);

// Serves on this thread and further ones until server_stop, which any thread may call. WebSocket clients get a close
// frame before it returns. It returns only after running platform calls have returned.
void server_run(Server& server);
void server_stop(Server& server);

// Call it after the platform is stopped, since the platform's threads wake the server.
void server_end(Server* server);
