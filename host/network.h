// Sockets and timers: what server.cpp and connection.cpp have of Boost.Asio. All of it is the leader's.
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

// Without the type erasure that the default executor costs.
using Executor = asio::io_context::executor_type;
using Socket = asio::basic_stream_socket<tcp, Executor>;
using Acceptor = asio::basic_socket_acceptor<tcp, Executor>;
using Descriptor = asio::posix::basic_stream_descriptor<Executor>;
using Timer =
    asio::basic_waitable_timer<std::chrono::steady_clock, asio::wait_traits<std::chrono::steady_clock>, Executor>;

struct Network {
  // One thread at a time uses it, and passes it on together with the lead: no locks inside.
  asio::io_context io{BOOST_ASIO_CONCURRENCY_HINT_UNSAFE};
  Acceptor acceptor{io};
  Descriptor waker{io};  // an eventfd, written to from any thread
  Timer accept_again{io};
  Timer sweep{io};  // looks for deadlines that have passed
  TimePoint sweep_at = kNever;
  Timer poll{io};  // without a tap, while somebody is subscribed
  bool polling = false;
  std::unordered_map<std::string, std::size_t> peers;  // connections by address, of those that are not loopback
  std::array<char, kLimitReadBytes> buffer;            // what one read brings
};

// connection.cpp

// Takes over a connection that was accepted, or turns it away.
void connection_begin(Server& server, Socket socket);

// Ends what has taken too long, and lets the sweep come again when the next deadline is due.
void connection_sweep(Server& server);

// Tells every client that the server leaves.
void connection_say_goodbye(Server& server);

// server.cpp: has connection_sweep called at that time at the latest.
void server_sweep_at(Server& server, TimePoint due);
