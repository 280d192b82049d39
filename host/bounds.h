// All limits of the server. docs/limits.md explains them and the memory that they add up to;
// tests/system/host_bounds.test.mjs tests them.
#pragma once

#include <chrono>
#include <cstddef>

inline constexpr std::size_t kKib = 1024;
inline constexpr std::size_t kMib = 1024 * kKib;

// The limits that a command-line option can change.
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

// Connections beyond the maximum. They serve only clients whose first request shows the token; other clients get an
// answer that there are too many. Connections beyond these are closed without an answer.
inline constexpr std::size_t kLimitExcessConnections = 32;
// Connections from one address, unless it is a loopback address, which all local clients share.
inline constexpr std::size_t kLimitConnectionsPerPeer = 64;
// An idle connection is probed after the first time, and closed when this many probes, each after the second time, get
// no answer: its machine or its network is gone.
inline constexpr std::chrono::seconds kLimitProbeAfter{30};
inline constexpr std::chrono::seconds kLimitProbeEvery{10};
inline constexpr int kLimitProbes = 3;
// How long a connection whose last answer is sent may still send before it is closed.
inline constexpr std::chrono::milliseconds kLimitLingerTime{2'000};

// ---- requests being received ----

inline constexpr std::size_t kLimitHeaderBytes = 32 * kKib;  // request line and headers together
inline constexpr std::size_t kLimitHeaderFields = 100;
// Bytes that are read from a connection at once, and that may wait while the server takes no requests from it.
inline constexpr std::size_t kLimitReadBytes = 64 * kKib;
// A message of at most this size is always received. Longer ones share a budget and are refused when it is used up.
inline constexpr std::size_t kLimitSmallMessageBytes = 16 * kKib;
inline constexpr std::size_t kLimitReceivingBytes = 64 * kMib;

// ---- requests waiting ----

inline constexpr std::size_t kLimitParameterValues = 10'000;  // JSON values in one parameter
inline constexpr unsigned kLimitNearestSearches = 8;          // for the nearest known URIs, in one message
inline constexpr std::size_t kLimitWaitingBytes = 64 * kMib;
inline constexpr std::size_t kLimitControlRequests = 1024;          // control commands, of all clients together
inline constexpr std::size_t kLimitControlRequestsPerClient = 256;  // the page requests 163 values at once
// Waiting calls of one client at which the server stops reading from it.
inline constexpr std::size_t kLimitClientRequests = 1024;
// Calls of one client that run in a row while other clients wait.
inline constexpr unsigned kLimitCallsInTurn = 4;

// ---- replies waiting ----

inline constexpr std::size_t kLimitBatchReplyBytes = 256 * kKib;
// Waiting bytes of replies of one client at which the server stops reading from it; the lower limit applies when all
// clients together have many. Beyond the limit of all clients, the client that adds to them is disconnected.
inline constexpr std::size_t kLimitClientReplyBytes = kMib;
inline constexpr std::size_t kLimitManyReplyBytes = 32 * kMib;
inline constexpr std::size_t kLimitClientReplyBytesOfMany = 64 * kKib;
inline constexpr std::size_t kLimitAllReplyBytes = 128 * kMib;
// Waiting notifications of one client. Beyond these the oldest are dropped, and the client gets their number.
inline constexpr std::size_t kLimitClientNotices = 1024;
inline constexpr std::size_t kLimitClientNoticeBytes = 512 * kKib;
// One frame of the screen; see "screen.h".
inline constexpr std::size_t kLimitScreenBytes = 2 * kMib;
// One record, and the record of which the host makes a conformance case; see "recorder.h".
inline constexpr std::size_t kLimitRecordBytes = 64 * kMib;
inline constexpr std::size_t kLimitCaseBytes = 8 * kMib;
// The memory that making a case takes at most; a test measures it.
inline constexpr std::size_t kLimitCaseMemory = 200 * kMib;
// How long a fetch or a subscription waits, while a record is made, for callbacks that are under way.
inline constexpr std::chrono::milliseconds kLimitCallbackWait{50};
// What a replay keeps: differences, and subscriptions that came while a request ran; see "replayer.h".
inline constexpr std::size_t kLimitReplayDifferences = 100;
inline constexpr std::size_t kLimitReplayLate = 1000;
// Frames that leave in one write.
inline constexpr std::size_t kLimitChunkBytes = 64 * kKib;

// ---- the leader ----

// When a call takes longer, its thread loses the lead; see "runner.h".
inline constexpr std::chrono::milliseconds kLimitCallTime{2};
// Outside of calls, the leader counts as stuck after this time.
inline constexpr std::chrono::milliseconds kLimitTurnTime{10'000};
