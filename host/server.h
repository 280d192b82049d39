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
  std::string token;           // what control commands need; empty: nobody may
  bool require_token = false;  // gets, sets and notifications need it as well
  bool watchdog = true;
  Limits limits;
};

struct Server;

// Listens. Returns null with a message; the port that was taken stands in server_policy afterwards.
Server* server_start(const ServerOptions& options, const Stack& stack, std::string& ret_error);
const Policy& server_policy(const Server& server);

// Serves on this thread and its stand-ins until server_stop, which any thread may call. Clients have been told goodbye
// when it returns, which a platform call that does not return can put off.
void server_run(Server& server);
void server_stop(Server& server);

// The platform must have been stopped before, since its threads wake the server.
void server_end(Server* server);
