// The floor of the host: a WebSocket server made of the same library with the same options, which answers every message
// with a text of a given length and does nothing else.
#include <libwebsockets.h>
#include <signal.h>

#include <cstdio>
#include <cstdlib>
#include <string>

static lws_context* context;
static std::string reply;  // LWS_PRE bytes of room, then the text

struct Session {
  std::size_t unanswered;  // messages received and not yet answered
};

static int on_event(lws* wsi, lws_callback_reasons reason, void* user, void*, std::size_t) {
  auto* const session = static_cast<Session*>(user);
  switch (reason) {
    case LWS_CALLBACK_RECEIVE:
      if (!lws_is_final_fragment(wsi)) return 0;
      if (session->unanswered++ == 0) lws_callback_on_writable(wsi);
      return 0;
    case LWS_CALLBACK_SERVER_WRITEABLE: {
      if (session->unanswered == 0) return 0;
      auto* const text = reinterpret_cast<unsigned char*>(reply.data()) + LWS_PRE;
      if (lws_write(wsi, text, reply.size() - LWS_PRE, LWS_WRITE_TEXT) < 0) return -1;
      if (--session->unanswered > 0) lws_callback_on_writable(wsi);
      return 0;
    }
    default:
      return 0;
  }
}

static void stop(int) { lws_cancel_service(context); }

int main(int argc, char** argv) {
  const int length = argc == 2 ? std::atoi(argv[1]) : 0;
  if (length < 1 || length > 100'000) {
    std::fprintf(stderr, "usage: bench_echo LENGTH-OF-REPLY\n");
    return 2;
  }
  reply = std::string(LWS_PRE, '\0') + std::string(static_cast<std::size_t>(length), 'x');
  lws_set_log_level(LLL_ERR, nullptr);

  static const lws_protocols protocols[] = {{.name = "dtv",
                                             .callback = on_event,
                                             .per_session_data_size = sizeof(Session),
                                             .rx_buffer_size = 16 * 1024,
                                             .id = 0,
                                             .user = nullptr,
                                             .tx_packet_size = 256 * 1024},
                                            {}};
  lws_context_creation_info info{};
  info.port = 0;
  info.iface = "127.0.0.1";
  info.protocols = protocols;
  info.pt_serv_buf_size = 64 * 1024;
  info.options = LWS_SERVER_OPTION_FAIL_UPON_UNABLE_TO_BIND | LWS_SERVER_OPTION_SKIP_SERVER_CANONICAL_NAME |
                 LWS_SERVER_OPTION_DISABLE_IPV6;
  context = lws_create_context(&info);
  if (!context) return 1;
  static bool stopped;
  signal(SIGTERM, [](int number) {
    stopped = true;
    stop(number);
  });
  std::printf("bench_echo: http://127.0.0.1:%d/\n",
              lws_get_vhost_listen_port(lws_get_vhost_by_name(context, "default")));
  std::fflush(stdout);
  while (!stopped && lws_service(context, 0) >= 0) continue;
  lws_context_destroy(context);
}
