#include "server.h"

#include <system_error>

namespace {

constexpr unsigned read_bytes = 64 * 1024;
constexpr std::size_t frame_bytes = 16 * 1024;  // handed over at once; longer messages come in pieces
constexpr std::size_t write_bytes = 256 * 1024;

void wake(void* context) {
  auto& server = *static_cast<Server*>(context);
  if (!server.woken.exchange(true)) lws_cancel_service(server.context);
}

// On the platform's thread that called back, or the leader's by its timer.
void on_event(void* context) {
  auto& server = *static_cast<Server*>(context);
  server.event.store(true);
  wake(context);
}

void deliver(void* context, Job& job, Outcome& outcome, bool more) {
  auto& server = *static_cast<Server*>(context);
  server_deliver(server, job, outcome);
  if (more) return;
  // Sent before the next client's call, which might take its time.
  if (const auto found = server.clients.find(job.client); found != server.clients.end())
    server_flush(server, *found->second);
}

void flush_dirty(Server& server) {
  std::vector<std::uint64_t> dirty;
  dirty.swap(server.dirty);
  for (const std::uint64_t id : dirty) {
    const auto found = server.clients.find(id);
    if (found == server.clients.end()) continue;
    found->second->dirty = false;
    server_flush(server, *found->second);
  }
  if (server.dirty.empty()) {
    dirty.clear();
    server.dirty.swap(dirty);  // keeps the memory
  }
}

void on_poll_timer(lws_sorted_usec_list_t* timer);

// Without a tap nobody tells of callbacks: the listener buffers are looked at again and again while anybody follows.
void keep_polling(Server& server) {
  constexpr lws_usec_t poll_us = 5000;
  if (server.stack->on_event != nullptr || server.polling || server.subscriptions.clients.empty()) return;
  server.polling = true;
  lws_sul_schedule(server.context, 0, &server.poll_timer, on_poll_timer, poll_us);
}

void on_poll_timer(lws_sorted_usec_list_t* timer) {
  Server& server = *lws_container_of(timer, Server, poll_timer);
  server.polling = false;
  on_event(&server);
}

// Leads until another thread has taken the lead over, or stop.
void lead(Server& server, unsigned self) {
  while (!server.stopping.load()) {
    server_serve_inboxes(server);
    flush_dirty(server);
    keep_polling(server);
    lws_service(server.context, runner_has_work(server.runner) ? -1 : 0);
    server_serve_inboxes(server);
    flush_dirty(server);
    if (!runner_run(server.runner, self, deliver)) return;
  }
}

void run_thread(Server& server, unsigned self, bool leads) {
  while (leads || runner_stand_by(server.runner)) {
    leads = false;
    lead(server, self);
  }
}

}  // namespace

bool server_start(Server& server, const ServerOptions& options, const Stack& stack, std::string& ret_error) {
  server.options = options;
  server.stack = &stack;
  server.tracer.stack = &stack;
  server.tracer.wake = wake;
  server.tracer.context = &server;
  server.runner.stack = &stack;
  server.runner.tracer = &server.tracer;
  server.runner.wake = wake;
  server.runner.context = &server;
  server.subscriptions.stack = &stack;

  char* description = stack.describe();
  std::string text = description != nullptr ? description : "";
  free(description);
  if (!catalogue_read(std::move(text), server.catalogue, ret_error)) return false;

  static lws_protocols protocols[2] = {};
  protocols[0] = {.name = "dtv",
                  .callback = server_callback,
                  .per_session_data_size = 0,
                  .rx_buffer_size = frame_bytes,
                  .id = 0,
                  .user = nullptr,
                  .tx_packet_size = write_bytes};

  Policy& policy = server.options.policy;
  lws_context_creation_info info{};
  info.port = policy.port;
  info.iface = policy.address.c_str();
  info.protocols = protocols;
  info.user = &server;
  info.server_string = "dtv-host";
  info.pt_serv_buf_size = read_bytes;
  info.max_http_header_data = server_header_bytes;
  info.keepalive_timeout = 30;
  info.timeout_secs = 20;
  info.timeout_secs_ah_idle = 3;  // for the headers, from their first byte on
  info.ka_time = 30;
  info.ka_probes = 3;
  info.ka_interval = 5;
  // What does not begin with a known method is handed over as it is.
  info.listen_accept_role = "raw-skt";
  info.listen_accept_protocol = protocols[0].name;
  info.options = LWS_SERVER_OPTION_FALLBACK_TO_APPLY_LISTEN_ACCEPT_CONFIG | LWS_SERVER_OPTION_FAIL_UPON_UNABLE_TO_BIND |
                 LWS_SERVER_OPTION_SKIP_SERVER_CANONICAL_NAME;
  if (policy.address.find(':') == std::string::npos) info.options |= LWS_SERVER_OPTION_DISABLE_IPV6;

  static int bind_errno;
  bind_errno = 0;
  lws_set_log_level(LLL_ERR, [](int, const char*) {
    if (bind_errno == 0) bind_errno = errno;
  });
  server.context = lws_create_context(&info);
  lws_set_log_level(LLL_ERR, [](int, const char* line) { fprintf(stderr, "dtv-host: %s", line); });
  if (server.context == nullptr) {
    ret_error = "cannot listen on " + policy_authority(policy) + ": " +
                (bind_errno != 0 ? std::generic_category().message(bind_errno)
                                 : "the address is not this machine's, or the port is taken");
    return false;
  }
  policy.port = lws_get_vhost_listen_port(lws_get_vhost_by_name(server.context, "default"));
  if (stack.on_event != nullptr) stack.on_event(on_event, &server);
  return true;
}

void server_run(Server& server) {
  for (unsigned number = 2; number <= runner_threads; ++number)
    server.threads.emplace_back(run_thread, std::ref(server), number, false);
  run_thread(server, 1, true);
  for (std::thread& thread : server.threads) thread.join();
}

void server_stop(Server& server) {
  server.stopping.store(true);
  runner_stop(server.runner);
  lws_cancel_service(server.context);
  server.stop_told.store(true);
  server.stop_told.notify_one();
}

void server_say_goodbye(Server& server) {
  for (auto& [id, client] : server.clients) {
    if (!client->websocket || lws_partial_buffered(client->wsi)) continue;
    unsigned char going_away[] = {0x88, 2, 0x03, 0xE9};
    lws_write(client->wsi, going_away, sizeof going_away, LWS_WRITE_RAW);
  }
}

void server_end(Server& server) {
  server.stop_told.wait(false);
  lws_context_destroy(server.context);
  server.context = nullptr;
}
