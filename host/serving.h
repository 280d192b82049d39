// Shared by the server's files. Only the leader uses it, unless a comment says otherwise.
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
#include "listing.h"
#include "outbox.h"
#include "recorder.h"
#include "replayer.h"
#include "rpc.h"
#include "runner.h"
#include "server.h"
#include "subscriptions.h"
#include "tracer.h"

// The replies of a batch until it is complete.
struct Batch {
  std::vector<std::string> replies;  // empty: no reply yet, or a notification's place
  std::size_t waiting;
  std::size_t bytes = 0;  // of all replies so far
};

// line.h: the socket and the state of its protocol.
struct Line;
struct LineEnd {
  void operator()(Line* line) const;
};

// One connection, HTTP at first and perhaps WebSocket after an upgrade. Lives as long as the socket.
struct Client {
  std::uint64_t id = 0;
  std::unique_ptr<Line, LineEnd> line;
  bool websocket = false;
  bool authorized = false;      // has shown the token
  bool dirty = false;           // is listed in Server::dirty
  std::size_t outstanding = 0;  // waiting and running calls
  std::uint64_t next_batch = 1;
  std::unordered_map<std::uint64_t, Batch> batches;
  std::size_t batch_bytes = 0;    // of their replies, including the array of replies
  Outbox outbox;                  // WebSocket
  std::vector<const char*> uris;  // subscribed
  bool tracing = false;
  HttpRequest request;  // HTTP: being read or answered
};

// A report of the television, see dtv_tv_on_kept: all changes up to this one are on the disk, or could not be written.
struct KeptReport {
  std::uint64_t change;
  std::int32_t failure;  // errno; 0: they are on the disk
};

struct Network;  // network.h: sockets and timers

struct Server {
  ServerOptions options;
  const Stack* stack;
  Catalogue catalogue;
  Listing listing;
  Tracer tracer;
  Recorder recorder;
  Runner runner;
  std::unique_ptr<Network, void (*)(Network*)> network{nullptr, nullptr};

  Subscriptions subscriptions;
  std::unordered_map<std::uint64_t, std::unique_ptr<Client>> clients;
  std::vector<std::uint64_t> dirty;  // clients with output to send or input to read
  std::vector<Finished> unkept;      // outcomes that wait until their change is on the disk
  std::uint64_t kept_change = 0;     // changes up to this one have been reported
  KeptReport unkept_report{};        // the latest failure: of the changes after unkept_from, up to its own number
  std::uint64_t unkept_from = 0;
  std::size_t peak_bytes = 0;  // highest number of bytes held for clients since give_memory_back
  std::size_t tracing = 0;
  std::uint64_t next_client = 1;
  std::size_t receiving_bytes = 0;  // of all clients' long unfinished messages
  std::size_t reply_bytes = 0;      // of the waiting replies of all clients
  RpcMessage message;               // being handled; kept to reuse its memory

  // Used by any thread.
  std::atomic<bool> woken{false};  // the leader has been woken to read its inboxes
  std::atomic<bool> event{false};  // a platform callback has returned: listener buffers may have texts
  std::mutex kept_mutex;           // guards kept_reports
  std::vector<KeptReport> kept_reports;
  std::atomic<bool> record_ended{false};  // by itself: the tap's lines are no longer wanted
  std::atomic<bool> stopping{false};
  std::vector<std::thread> threads;  // the standby threads and the watching thread
};

// Makes the leader read its inboxes. Any thread may call it.
void server_wake(Server& server);

// messages.cpp: messages in, replies and notifications out.
void server_handle_message(Server& server, Client& client, std::string_view text);
void server_add_call(Server& server, Client& client, Call call);  // the only call of an HTTP request
void server_deliver(Server& server, Job& job, Outcome& outcome);
void server_serve_inboxes(Server& server);

// connection.cpp: receiving and sending.
void server_mark(Server& server, Client& client);  // the client has output to send or input to read
void server_flush(Server& server, Client& client);
void server_answer(Server& server, Client& client, HttpAnswer answer);  // HTTP
