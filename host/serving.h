// What the pieces of the server share. All of it is the leader's, unless a comment says otherwise.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "catalogue.h"
#include "http.h"
#include "outbox.h"
#include "rpc.h"
#include "runner.h"
#include "server.h"
#include "subscriptions.h"
#include "tracer.h"

// Replies of a batch, until all are there.
struct Batch {
  std::vector<std::string> replies;  // empty: a notification's place
  std::size_t waiting;
  std::size_t bytes = 0;  // of all replies so far
};

// connection.cpp: the socket and what its protocol is in the middle of.
struct Line;
struct LineEnd {
  void operator()(Line* line) const;
};

// One connection, HTTP at first and perhaps WebSocket from its upgrade on. Lives as long as the socket.
struct Client {
  std::uint64_t id = 0;
  std::unique_ptr<Line, LineEnd> line;
  bool websocket = false;
  bool authorized = false;      // has shown the token
  bool dirty = false;           // stands in Server::dirty
  std::size_t outstanding = 0;  // calls that wait or run
  std::uint64_t next_batch = 1;
  std::unordered_map<std::uint64_t, Batch> batches;
  std::size_t batch_bytes = 0;    // of their replies, and of the places for them
  Outbox outbox;                  // WebSocket
  std::vector<const char*> uris;  // subscribed
  bool tracing = false;
  HttpRequest request;  // HTTP: the one that is being read or answered
};

// What the television reports of the disk, see dtv_tv_on_kept: all changes up to this one are kept, or are not.
struct KeptReport {
  std::uint64_t change;
  std::int32_t failure;  // errno; 0: they are kept
};

struct Network;  // network.h: sockets and timers

struct Server {
  ServerOptions options;
  const Stack* stack;
  Catalogue catalogue;
  Tracer tracer;
  Runner runner;
  std::unique_ptr<Network, void (*)(Network*)> network{nullptr, nullptr};

  Subscriptions subscriptions;
  std::unordered_map<std::uint64_t, std::unique_ptr<Client>> clients;
  std::vector<std::uint64_t> dirty;  // clients with something to send
  std::vector<Finished> unkept;      // outcomes that are delivered when their change is on the disk
  std::uint64_t kept_change = 0;     // changes up to this one have been reported
  KeptReport unkept_report{};        // the latest failure: it holds from unkept_from + 1 on
  std::uint64_t unkept_from = 0;
  std::size_t peak_bytes = 0;  // of what clients made the server hold, since memory was last given back
  std::size_t tracing = 0;
  std::uint64_t next_client = 1;
  std::size_t receiving_bytes = 0;  // of all clients' long unfinished messages
  std::size_t reply_bytes = 0;      // of all clients' replies that wait
  RpcMessage message;               // the one being handled; kept for its memory

  // From any thread.
  std::atomic<bool> woken{false};  // the leader has been told to look at its inboxes
  std::atomic<bool> event{false};  // a platform callback has returned: listener buffers may be filled
  std::mutex kept_mutex;           // guards kept_reports
  std::vector<KeptReport> kept_reports;
  std::atomic<bool> stopping{false};
  std::vector<std::thread> threads;  // those that stand by, and the one that watches
};

// Makes the leader look at its inboxes; from any thread.
void server_wake(Server& server);

// messages.cpp: messages in, replies and notifications out.
void server_handle_message(Server& server, Client& client, std::string_view text);
void server_add_call(Server& server, Client& client, Call call);  // an HTTP request's only one
void server_deliver(Server& server, Job& job, Outcome& outcome);
void server_serve_inboxes(Server& server);

// connection.cpp: what sockets bring, and sending.
void server_mark(Server& server, Client& client);  // has something to send
void server_flush(Server& server, Client& client);
void server_answer(Server& server, Client& client, HttpAnswer answer);  // HTTP
