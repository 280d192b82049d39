// The host's floor: a WebSocket server on libwebsockets that answers every message with a text of a given length and
// does nothing else. What a connection received in a turn is answered in the same turn, with one write per reply;
// "joined": with one write for all of them. The frames are made here.
#include <libwebsockets.h>
#include <signal.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

static lws_context* context;
static std::string frame;        // one reply
static std::string room;         // LWS_PRE bytes, then the frames of one write
static bool joined;              // all replies of a turn go into one write
static std::vector<lws*> heard;  // connections with messages that are not answered yet

struct Session {
  std::size_t unanswered;
};

static int on_event(lws* wsi, lws_callback_reasons reason, void* user, void*, std::size_t) {
  switch (reason) {
    case LWS_CALLBACK_RECEIVE:
      if (lws_is_final_fragment(wsi) && static_cast<Session*>(user)->unanswered++ == 0) heard.push_back(wsi);
      return 0;
    case LWS_CALLBACK_CLOSED:
      std::erase(heard, wsi);
      return 0;
    default:
      return 0;
  }
}

// On failure the connection is on its way out, which the library finds by itself.
static void answer(lws* wsi) {
  Session& session = *static_cast<Session*>(lws_wsi_user(wsi));
  while (session.unanswered > 0) {
    room.resize(LWS_PRE);
    do {
      room += frame;
    } while (--session.unanswered > 0 && joined);
    auto* const frames = reinterpret_cast<unsigned char*>(room.data()) + LWS_PRE;
    if (lws_write(wsi, frames, room.size() - LWS_PRE, LWS_WRITE_RAW) < 0) return;
  }
}

static std::string make_frame(std::size_t length) {
  std::string made(1, static_cast<char>(0x81));
  if (length < 126) return made + static_cast<char>(length) + std::string(length, 'x');
  made += static_cast<char>(126);
  made += static_cast<char>(length >> 8);
  made += static_cast<char>(length & 0xFF);
  return made + std::string(length, 'x');
}

int main(int argc, char** argv) {
  const int length = argc >= 2 ? std::atoi(argv[1]) : 0;
  if (length < 1 || length > 0xFFFF) {
    std::fprintf(stderr, "usage: bench_echo_lws LENGTH-OF-REPLY [joined]\n");
    return 2;
  }
  joined = argc == 3 && std::string_view(argv[2]) == "joined";
  frame = make_frame(static_cast<std::size_t>(length));
  lws_set_log_level(LLL_ERR, nullptr);

  static const lws_protocols kProtocols[] = {{.name = "dtv",
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
  info.protocols = kProtocols;
  info.pt_serv_buf_size = 64 * 1024;
  info.options = LWS_SERVER_OPTION_FAIL_UPON_UNABLE_TO_BIND | LWS_SERVER_OPTION_SKIP_SERVER_CANONICAL_NAME |
                 LWS_SERVER_OPTION_DISABLE_IPV6;
  context = lws_create_context(&info);
  if (!context) return 1;
  static bool stopped;
  signal(SIGTERM, [](int) {
    stopped = true;
    lws_cancel_service(context);
  });
  std::printf("bench_echo_lws: http://127.0.0.1:%d/\n",
              lws_get_vhost_listen_port(lws_get_vhost_by_name(context, "default")));
  std::fflush(stdout);
  while (!stopped && lws_service(context, 0) >= 0) {
    for (lws* const wsi : heard) answer(wsi);
    heard.clear();
  }
  lws_context_destroy(context);
}
