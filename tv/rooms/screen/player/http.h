// Reads a file of a server of the home network for the player, by HTTP. The server is hostile: its answer may hang, lie
// about its length or never end. Every wait has a limit, and another thread can end it. Only hosts that is_near accepts
// are connected to; an answer that leads to another host is refused.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <string>

inline constexpr std::chrono::seconds kHttpConnectTime{3};
inline constexpr std::chrono::seconds kHttpHeadTime{5};  // for the whole head of an answer
inline constexpr std::chrono::seconds kHttpReadTime{5};  // without a byte
inline constexpr std::uint32_t kHttpLongestHead = 16 << 10;
inline constexpr int kHttpMostRedirects = 3;          // to the same host and port
inline constexpr std::int64_t kHttpSkip = 256 << 10;  // a shorter way ahead is read; a longer one asks again
inline constexpr std::size_t kHttpLongestAddress = 2048;

// What the player and its readers share.
struct HttpSource {
  std::string address;  // http://HOST[:PORT]/...; the host is a number
  bool (*is_near)(const std::string& address) = nullptr;
  std::mutex lock;         // guards the members below
  std::int64_t size = -1;  // as the server said; -1: unknown
  bool seekable = false;   // the server sends parts
  std::string trouble;     // why the latest reader ended before the end; empty: it did not
};

struct HttpReader;
struct HttpEnd {
  void operator()(HttpReader* reader) const;
};
using HttpReaderHandle = std::unique_ptr<HttpReader, HttpEnd>;

HttpReaderHandle http_create(const std::shared_ptr<HttpSource>& source);

// Asks the server for the beginning. False: the source's trouble says why. Used by one thread, as all functions below
// but http_cancel.
bool http_begin(HttpReader& reader);

// Copies bytes, at most the room's. 0 at the end, once cancelled, and in trouble.
std::size_t http_read(HttpReader& reader, std::span<char> room);

// The next bytes are those at this position. False: the server sends no parts.
bool http_seek(HttpReader& reader, std::int64_t position);

std::int64_t http_size(HttpReader& reader);  // as the server said; -1: unknown
bool http_is_seekable(HttpReader& reader);

// Ends all reading by this reader, also a call that waits. Any thread.
void http_cancel(HttpReader& reader);

std::string http_trouble(HttpSource& source);
