// The sockets and timers of Boost.Asio that server.cpp and connection.cpp use. Only the leader uses them, except the
// waker.
#pragma once

#include <array>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <unordered_map>

#include "serving.h"

namespace asio = boost::asio;
using tcp = asio::ip::tcp;

using TimePoint = std::chrono::steady_clock::time_point;
inline constexpr TimePoint kNever = TimePoint::max();

// Avoids the type erasure of the default executor.
using Executor = asio::io_context::executor_type;
using Socket = asio::basic_stream_socket<tcp, Executor>;
using Acceptor = asio::basic_socket_acceptor<tcp, Executor>;
using Descriptor = asio::posix::basic_stream_descriptor<Executor>;
using Timer =
    asio::basic_waitable_timer<std::chrono::steady_clock, asio::wait_traits<std::chrono::steady_clock>, Executor>;

struct Network {
  // Only one thread at a time uses it, the leader, so it needs no locks.
  asio::io_context io{BOOST_ASIO_CONCURRENCY_HINT_UNSAFE};
  Acceptor acceptor{io};
  Descriptor waker{io};  // an eventfd, written to from any thread
  Timer accept_again{io};
  Timer sweep{io};  // looks for deadlines that have passed
  TimePoint sweep_at = kNever;
  Timer poll{io};  // runs without a tap, while a client is subscribed
  bool polling = false;
  std::unordered_map<std::string, std::size_t> peers;  // number of connections by address, without loopback addresses
  std::array<char, kLimitReadBytes> buffer;            // for one read
};

// connection.cpp

// Takes over an accepted connection, or closes it.
void connection_begin(Server& server, Socket socket);

// Handles the deadlines that have passed, and schedules the next sweep.
void connection_sweep(Server& server);

// Tells every WebSocket client that the server ends.
void connection_say_goodbye(Server& server);

// server.cpp: schedules connection_sweep for that time at the latest.
void server_sweep_at(Server& server, TimePoint due);
