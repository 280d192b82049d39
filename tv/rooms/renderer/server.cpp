#include "rooms/renderer/server.h"

#include <pthread.h>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <cstdio>
#include <map>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>

#include "rooms/home_network/loop.h"
#include "rooms/renderer/http.h"
#include "rooms/renderer/subscribers.h"

namespace {

constexpr auto kAcceptPause = std::chrono::seconds(1);  // after a connection that could not be accepted

struct Listener {
  tcp::acceptor acceptor;
  asio::steady_timer pause;
};

struct Server {
  // Connections use these when they end, also while the context is destroyed, so these are declared before it.
  std::size_t connections = 0;
  std::map<std::string, std::size_t> by_peer;
  asio::io_context context;
  asio::executor_work_guard<asio::io_context::executor_type> work{context.get_executor()};
  std::vector<std::unique_ptr<Listener>> listeners;
  std::thread thread;
};

struct Connection {
  beast::tcp_stream stream;
  std::string peer;
  std::string own;  // "address:port"
  beast::flat_buffer buffer{kLongestHeader + kLongestBody};
  http::request_parser<http::string_body> parser = {};
  HttpResponse response = {};
};

using ConnectionShare = std::shared_ptr<Connection>;

std::mutex& lock = *new std::mutex;  // guards the pointer, which changes only while the server's thread does not run
std::unique_ptr<Server>& server = *new std::unique_ptr<Server>;

void write(const ConnectionShare& connection) {
  connection->response.keep_alive(false);
  connection->response.prepare_payload();
  http::async_write(connection->stream, connection->response, [connection](error_code, std::size_t) {
    error_code ignored;
    connection->stream.socket().shutdown(tcp::socket::shutdown_both, ignored);
    subscribers_send();  // a new subscriber gets its first event after the answer
  });
}

void read(const ConnectionShare& connection) {
  connection->stream.expires_after(std::chrono::seconds(kConnectionSeconds));
  connection->parser.header_limit(kLongestHeader);
  connection->parser.body_limit(kLongestBody);
  http::async_read(connection->stream, connection->buffer, connection->parser,
                   [connection](error_code failure, std::size_t) {
                     if (failure == http::error::body_limit) {
                       connection->response = answer(http::status::payload_too_large);
                     } else if (failure == http::error::header_limit) {
                       connection->response = answer(http::status::request_header_fields_too_large);
                     } else if (failure == http::error::end_of_stream) {
                       return;
                     } else if (failure.category() == http::make_error_code(http::error::bad_method).category()) {
                       connection->response = answer(http::status::bad_request);
                     } else if (failure) {
                       return;  // closed, or too slow
                     } else {
                       connection->response = route(connection->parser.get(), connection->peer, connection->own);
                     }
                     write(connection);
                   });
}

void begin(Server& of, tcp::socket socket) {
  error_code failure;
  const tcp::endpoint peer = socket.remote_endpoint(failure);
  const tcp::endpoint own = failure ? tcp::endpoint() : socket.local_endpoint(failure);
  if (failure) return;
  const std::string host = peer.address().to_string();
  const auto found = of.by_peer.find(host);
  if (of.connections >= kMostConnections) return;
  if (found != of.by_peer.end() && found->second >= kMostConnectionsOfPeer) return;
  if (!home_is_near("http://" + host)) return;
  ++of.connections;
  ++of.by_peer[host];
  const ConnectionShare connection(new Connection{.stream = beast::tcp_stream(std::move(socket)),
                                                  .peer = host,
                                                  .own = own.address().to_string() + ":" + std::to_string(own.port())},
                                   [&of](const Connection* ended) {
                                     --of.connections;
                                     const auto each = of.by_peer.find(ended->peer);
                                     if (--each->second == 0) of.by_peer.erase(each);
                                     delete ended;
                                   });
  read(connection);
}

void accept(Server& of, Listener& listener) {
  listener.acceptor.async_accept([&of, &listener](error_code failure, tcp::socket socket) {
    if (failure == asio::error::operation_aborted) return;
    if (!failure) {
      begin(of, std::move(socket));
      return accept(of, listener);
    }
    // For example, the process has no descriptor left. Waiting connections are accepted later.
    listener.pause.expires_after(kAcceptPause);
    listener.pause.async_wait([&of, &listener](error_code stopped) {
      if (!stopped) accept(of, listener);
    });
  });
}

void run(Server& of) {
  pthread_setname_np(pthread_self(), "dtv_tv-renderer");
  of.context.run();
}

bool listen_at(const std::string& host, tcp::acceptor& acceptor) {
  error_code failure;
  const auto address = asio::ip::make_address(host, failure);
  if (!failure) acceptor.open(tcp::endpoint(address, 0).protocol(), failure);
  if (!failure) acceptor.bind(tcp::endpoint(address, 0), failure);
  if (!failure) acceptor.listen(asio::socket_base::max_listen_connections, failure);
  if (failure) {
    std::fprintf(stderr, "dtv_tv: the renderer cannot listen at %s: %s\n", host.c_str(), failure.message().c_str());
  }
  return !failure;
}

}  // namespace

asio::io_context& server_context() { return server->context; }

bool server_start(std::string& ret_error) {
  auto created = std::make_unique<Server>();
  subscribers_forget();
  try {
    created->thread = std::thread(run, std::ref(*created));
  } catch (const std::system_error&) {
    ret_error = "the system has no thread left for the renderer";
    return false;
  }
  const std::lock_guard guard(lock);
  server = std::move(created);
  return true;
}

void server_stop() {
  {
    const std::lock_guard guard(lock);
    if (server == nullptr) return;
    server->context.stop();
  }
  server->thread.join();
  subscribers_forget();
  const std::lock_guard guard(lock);
  server.reset();
}

void server_post(std::function<void()> action) {
  const std::lock_guard guard(lock);
  if (server != nullptr) asio::post(server->context, std::move(action));
}

std::vector<std::string> server_listen(const std::vector<std::string>& hosts) {
  std::vector<std::string> places;
  for (const std::string& host : hosts) {
    std::unique_ptr<Listener> listener(
        new Listener{tcp::acceptor(server->context), asio::steady_timer(server->context)});
    if (!listen_at(host, listener->acceptor)) continue;
    places.push_back(host + ":" + std::to_string(listener->acceptor.local_endpoint().port()));
    accept(*server, *listener);
    server->listeners.push_back(std::move(listener));
  }
  return places;
}
