// Measured beside the floor, with the host's own libraries: a WebSocket server on Asio's reactor and Beast's stream
// over memory. It answers every message with a text of a given length and does nothing else; one recv and one send per
// turn.
#include <poll.h>
#include <signal.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/websocket.hpp>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <string>
#include <string_view>

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace websocket = boost::beast::websocket;
using boost::system::error_code;
using Executor = asio::io_context::executor_type;
using Acceptor = asio::basic_socket_acceptor<asio::ip::tcp, Executor>;
using Socket = asio::basic_stream_socket<asio::ip::tcp, Executor>;

static std::string reply;

struct Dry {};  // thrown when the stream wants more bytes than one frame has

// The stream's socket: reads come from one whole frame, writes are gathered until the end of the turn.
struct Pipe {
  using executor_type = Executor;
  executor_type executor;
  std::string_view input;
  std::string output;

  executor_type get_executor() const { return executor; }

  template <typename Buffers>
  std::size_t read_some(const Buffers& buffers) {
    if (input.empty()) throw Dry();
    const std::size_t count = asio::buffer_copy(buffers, asio::buffer(input));
    input.remove_prefix(count);
    return count;
  }
  template <typename Buffers>
  std::size_t read_some(const Buffers& buffers, error_code& ret_failure) {
    ret_failure = {};
    return read_some(buffers);
  }
  template <typename Buffers>
  std::size_t write_some(const Buffers& buffers) {
    const std::size_t before = output.size();
    for (auto each = asio::buffer_sequence_begin(buffers); each != asio::buffer_sequence_end(buffers); ++each) {
      const asio::const_buffer piece(*each);
      output.append(static_cast<const char*>(piece.data()), piece.size());
    }
    return output.size() - before;
  }
  template <typename Buffers>
  std::size_t write_some(const Buffers& buffers, error_code& ret_failure) {
    ret_failure = {};
    return write_some(buffers);
  }
};

static void teardown(beast::role_type, Pipe&, error_code& ret_failure) { ret_failure = {}; }

struct Session {
  Socket socket;
  websocket::stream<Pipe, false> stream{Pipe{socket.get_executor(), {}, {}}};
  std::string received{};  // and not taken
  beast::flat_buffer message{};
  bool open = false;
};

// The length of the frame that begins here, its header included; 0 while the header is not whole.
static std::size_t frame_length(std::string_view bytes) {
  const auto byte = [&](std::size_t i) { return static_cast<std::size_t>(static_cast<unsigned char>(bytes[i])); };
  if (bytes.size() < 2) return 0;
  const std::size_t code = byte(1) & 0x7F, extra = code == 126 ? 2 : code == 127 ? 8 : 0;
  const std::size_t header = 2 + extra + (byte(1) & 0x80 ? 4 : 0);
  if (bytes.size() < header) return 0;
  std::size_t length = extra == 0 ? code : 0;
  for (std::size_t i = 0; i < extra; ++i) length = length << 8 | byte(2 + i);
  return header + length;
}

// Takes one whole frame and answers the message that it ends. False when the connection is over.
static bool take_frame(Session& session, std::string_view frame) {
  Pipe& pipe = session.stream.next_layer();
  pipe.input = frame;
  error_code failure;
  try {
    do {
      session.stream.read_some(session.message, 0, failure);
      if (failure) return false;
    } while (!session.stream.is_message_done() || !pipe.input.empty());
  } catch (const Dry&) {
    return true;  // a control frame, or a message that goes on
  }
  session.message.clear();
  session.stream.write(asio::buffer(reply), failure);
  return !failure;
}

// Takes every whole frame of what was received.
static bool take_frames(Session& session) {
  const std::string_view bytes = session.received;
  std::size_t taken = 0;
  bool more = true;
  if (!session.open) {
    const std::size_t end = bytes.find("\r\n\r\n");
    if (end == std::string_view::npos) return true;
    taken = end + 4;
    error_code failure;
    session.stream.accept(asio::buffer(bytes.substr(0, taken)), failure);
    session.open = more = !failure;
  }
  while (more) {
    const std::size_t length = frame_length(bytes.substr(taken));
    if (length == 0 || bytes.size() - taken < length) break;
    more = take_frame(session, bytes.substr(taken, length));
    taken += length;
  }
  session.received.erase(0, taken);
  return more;
}

// A client that does not read stops the server: it is no client of a benchmark.
static bool send_all(Session& session) {
  std::string& output = session.stream.next_layer().output;
  for (std::size_t sent = 0; sent < output.size();) {
    error_code failure;
    sent += session.socket.write_some(asio::buffer(output) + sent, failure);
    if (failure == asio::error::would_block) {
      pollfd writable = {.fd = session.socket.native_handle(), .events = POLLOUT, .revents = 0};
      poll(&writable, 1, -1);
    } else if (failure) {
      return false;
    }
  }
  output.clear();
  return true;
}

static void serve(std::shared_ptr<Session> session) {
  Session& self = *session;
  self.socket.async_wait(Socket::wait_read, [session = std::move(session)](const error_code& failed) mutable {
    static char room[64 * 1024];
    error_code failure = failed;
    const std::size_t count = failure ? 0 : session->socket.read_some(asio::buffer(room), failure);
    if (failure) return;
    session->received.append(room, count);
    const bool more = take_frames(*session);
    if (send_all(*session) && more) serve(std::move(session));
  });
}

static void accept_next(Acceptor& acceptor) {
  acceptor.async_accept([&acceptor](const error_code& failure, Socket socket) {
    if (!failure) {
      socket.non_blocking(true);
      socket.set_option(asio::ip::tcp::no_delay(true));
      const std::shared_ptr<Session> session(new Session{.socket = std::move(socket)});
      session->stream.auto_fragment(false);
      session->stream.text(true);
      serve(session);
    }
    accept_next(acceptor);
  });
}

int main(int argc, char** argv) try {
  const int length = argc == 2 ? std::atoi(argv[1]) : 0;
  if (length < 1 || length > 0xFFFF) {
    std::fprintf(stderr, "usage: bench_echo_beast LENGTH-OF-REPLY\n");
    return 2;
  }
  reply = std::string(static_cast<std::size_t>(length), 'x');
  asio::io_context context(BOOST_ASIO_CONCURRENCY_HINT_UNSAFE);
  Acceptor acceptor(context, {asio::ip::address_v4::loopback(), 0});
  asio::signal_set end(context, SIGTERM);
  end.async_wait([&context](const error_code&, int) { context.stop(); });
  accept_next(acceptor);
  std::printf("bench_echo_beast: http://127.0.0.1:%d/\n", acceptor.local_endpoint().port());
  std::fflush(stdout);
  context.run();
} catch (const std::exception& failure) {
  std::fprintf(stderr, "bench_echo_beast: %s\n", failure.what());
  return 1;
}
