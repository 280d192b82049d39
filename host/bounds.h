// Every bound of the server in one place. docs/limits.md has the same table for readers, with the memory that the
// bounds add up to; tests/system/host_bounds.test.mjs tries them.
#pragma once

#include <chrono>
#include <cstddef>

inline constexpr std::size_t kKib = 1024;
inline constexpr std::size_t kMib = 1024 * kKib;

// What a start option can change.
struct Limits {
  std::size_t message_bytes = kMib;  // of one request message: a WebSocket message or an HTTP body
  std::size_t connections = 256;
  std::size_t subscriptions = 1000;               // of one client
  std::size_t requests = 16384;                   // waiting for the platform, of all clients together
  std::chrono::milliseconds header_time{10'000};  // a request's line and headers, from its first byte or the connection
  std::chrono::milliseconds body_time{20'000};    // a body, or a whole WebSocket message, from its first byte
  std::chrono::milliseconds reply_time{20'000};   // a chunk of replies, from the first attempt to send it
  std::chrono::milliseconds idle_time{30'000};    // a connection between two HTTP requests
};

// ---- connections ----

// Connections beyond the maximum, for who shows the token with the first request; others are told that there are too
// many. What comes beyond them is closed unheard.
inline constexpr std::size_t kLimitExcessConnections = 32;
// Connections of one address that is not a loopback one. On loopback everybody has the same address.
inline constexpr std::size_t kLimitConnectionsPerPeer = 64;
// What a connection that ends with an answer may still send before it is cut, and for how long.
inline constexpr std::chrono::milliseconds kLimitLingerTime{2'000};

// ---- requests being received ----

inline constexpr std::size_t kLimitHeaderBytes = 32 * kKib;  // request line and headers together
inline constexpr std::size_t kLimitHeaderFields = 100;
// Bytes of a connection that are read at once, and that may wait unread by the protocol while it is not listened to.
inline constexpr std::size_t kLimitReadBytes = 64 * kKib;
// A message of at most so many bytes is always received. Longer ones share a budget; beyond it they are refused.
inline constexpr std::size_t kLimitSmallMessageBytes = 16 * kKib;
inline constexpr std::size_t kLimitReceivingBytes = 64 * kMib;

// ---- requests waiting ----

inline constexpr std::size_t kLimitParameterValues = 10'000;  // JSON values in one parameter
inline constexpr unsigned kLimitNearestSearches = 8;          // for names like an unknown one, in one message
inline constexpr std::size_t kLimitWaitingBytes = 64 * kMib;
inline constexpr std::size_t kLimitControlRequests = 1024;          // control commands, of all clients together
inline constexpr std::size_t kLimitControlRequestsPerClient = 256;  // the page asks for 163 values at once
// Calls of one client that may wait before it is not read from for a while.
inline constexpr std::size_t kLimitClientRequests = 1024;
// Calls of one client that run in a row while others wait.
inline constexpr unsigned kLimitCallsInTurn = 4;

// ---- replies waiting ----

inline constexpr std::size_t kLimitBatchReplyBytes = 256 * kKib;
// Bytes of replies of one client that may wait before it is not read from; the second once all clients together have
// many. Beyond the last the client that adds to them is disconnected.
inline constexpr std::size_t kLimitClientReplyBytes = kMib;
inline constexpr std::size_t kLimitManyReplyBytes = 32 * kMib;
inline constexpr std::size_t kLimitClientReplyBytesOfMany = 64 * kKib;
inline constexpr std::size_t kLimitAllReplyBytes = 128 * kMib;
// Notifications of one client that wait; the oldest are dropped, and the client is told how many.
inline constexpr std::size_t kLimitClientNotices = 1024;
inline constexpr std::size_t kLimitClientNoticeBytes = 512 * kKib;
// Frames that leave in one write.
inline constexpr std::size_t kLimitChunkBytes = 64 * kKib;

// ---- the serving thread ----

// A call that takes longer costs its thread the lead; see "runner.h".
inline constexpr std::chrono::milliseconds kLimitCallTime{2};
// The serving thread, outside of calls, is taken for stuck after this.
inline constexpr std::chrono::milliseconds kLimitTurnTime{10'000};
