// The host as a server: HTTP and WebSocket connections on one thread at a time, the leader (see "runner.h").
#pragma once

#include <libwebsockets.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "catalogue.h"
#include "http.h"
#include "outbox.h"
#include "policy.h"
#include "rpc.h"
#include "runner.h"
#include "stack.h"
#include "subscriptions.h"
#include "tracer.h"

// Bytes of a request line with its query, and all headers.
inline constexpr unsigned short server_header_bytes = 32 * 1024;

struct ServerOptions {
  Policy policy;
  std::string web_folder;
  std::size_t max_message = std::size_t{16} << 20;  // bytes of one request message
  std::size_t max_connections = 256;
  std::size_t max_subscriptions = 1000;  // per client
  std::size_t max_requests = 16384;      // waiting for the platform, all clients together
  std::size_t max_requests_bytes = std::size_t{256} << 20;
  OutboxLimits outbox;
};

// Replies of a batch, until all are there.
struct Batch {
  std::vector<std::string> replies;  // empty: a notification's place
  std::size_t waiting;
  std::size_t bytes = 0;  // of all replies so far
};

// One connection, HTTP at first and perhaps WebSocket from its upgrade on. Lives as long as the socket.
struct Client {
  std::uint64_t id;
  lws* wsi;
  bool websocket = false;
  bool dirty = false;           // stands in Server::dirty
  bool paused = false;          // is not read from until its replies have left
  std::size_t outstanding = 0;  // calls that wait or run
  std::uint64_t next_batch = 1;
  std::unordered_map<std::uint64_t, Batch> batches;
  std::string message;    // WebSocket: the message so far
  bool too_long = false;  // which is beyond max_message and skipped

  Outbox outbox;
  std::vector<const char*> uris;  // subscribed
  bool tracing = false;

  HttpRequest request;
  std::string origin;
  HttpAnswer answer;        // status 0: not yet
  bool reading = false;     // the body is still to come
  std::uint64_t heard = 0;  // bytes of the connection until the last whole headers or body
};

struct Server {
  ServerOptions options;
  const Stack* stack;
  Catalogue catalogue;
  Tracer tracer;
  Runner runner;
  lws_context* context = nullptr;

  // The leader's own.
  Subscriptions subscriptions;
  std::unordered_map<std::uint64_t, std::unique_ptr<Client>> clients;
  std::vector<std::uint64_t> dirty;  // clients with something to send
  std::size_t connections = 0;
  std::size_t tracing = 0;
  std::uint64_t next_client = 1;
  RpcMessage message;  // the one being handled; kept for its memory
  lws_sorted_usec_list_t poll_timer{};
  bool polling = false;  // the timer runs: no tap, somebody subscribed

  // From any thread.
  std::atomic<bool> woken{false};  // the leader has been told to look at its inboxes
  std::atomic<bool> event{false};  // a platform callback has returned: listener buffers may be filled
  std::atomic<bool> stopping{false};
  std::atomic<bool> stop_told{false};  // server_stop is through with the context
  std::vector<std::thread> threads;    // those that stand by
};

// Listens. Returns false with a message; the port that was taken stands in options.policy afterwards.
bool server_start(Server& server, const ServerOptions& options, const Stack& stack, std::string& ret_error);

// Serves on this thread and its stand-ins until server_stop, which any thread may call.
void server_run(Server& server);
void server_stop(Server& server);

// Says goodbye to the clients; the platform must have been stopped before the second, since its threads wake the
// server.
void server_say_goodbye(Server& server);
void server_end(Server& server);

// The pieces of the server, each in its own file; all of them the leader's.

// dispatch.cpp: messages in, replies out.
void server_handle_message(Server& server, Client& client, std::string_view text);
void server_add_call(Server& server, Client& client, Call call);  // an HTTP request's only one
void server_deliver(Server& server, Job& job, Outcome& outcome);
void server_serve_inboxes(Server& server);

// connection.cpp: the socket library's callbacks, and sending.
int server_callback(lws* wsi, lws_callback_reasons reason, void* user, void* in, std::size_t length);
void server_mark(Server& server, Client& client);  // has something to send
void server_flush(Server& server, Client& client);
void server_pace(Client& client);  // stops or resumes reading
void server_answer(Server& server, Client& client, HttpAnswer answer);

// last_word.cpp: answers past the socket library, on a connection that ends with them.
std::uint64_t server_received(int socket);  // bytes so far
void server_last_word(int socket, const HttpAnswer& answer);
