// The renderer's HTTP server, with a thread of its own. It serves the descriptions, carries out the actions, and sends
// the events. Each connection carries one request.
#pragma once

#include <functional>
#include <string>
#include <vector>

inline constexpr std::size_t kMostConnections = 64;        // further ones are closed at once
inline constexpr std::size_t kMostConnectionsOfPeer = 16;  // from one address
inline constexpr int kConnectionSeconds = 15;              // for a request and its answer together
inline constexpr unsigned kLongestHeader = 16 * 1024;      // bytes
inline constexpr unsigned kLongestBody = 64 * 1024;        // bytes

// Starts the thread. False with ret_error: it cannot start. Calls of server_start and server_stop must not overlap.
bool server_start(std::string& ret_error);

// Ends the thread, all connections and subscriptions.
void server_stop();

// Runs the action on the thread. Any thread; does nothing if the thread does not run.
void server_post(std::function<void()> action);

// Listens at each of the addresses, on a free port. Returns "address:port" for each one that can be used. On the
// thread.
std::vector<std::string> server_listen(const std::vector<std::string>& hosts);
