// Reads a file from a server of the home network by HTTP, for the player. The server may be hostile: its answer may
// hang, lie about its length or never end. Every wait has a time limit, and another thread can end it. The reader
// connects only to hosts that is_near accepts, and refuses redirections to other hosts.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <string>

inline constexpr std::chrono::seconds kHttpConnectTime{3};
inline constexpr std::chrono::seconds kHttpHeadTime{5};  // for the request, and for the answer's headers
inline constexpr std::chrono::seconds kHttpReadTime{5};  // until the next byte
inline constexpr std::uint32_t kHttpLongestHead = 16 << 10;
inline constexpr int kHttpMostRedirects = 3;  // all to the same host and port
// In bytes. A seek forward by at most this much reads on; a longer one sends another request.
inline constexpr std::int64_t kHttpSkip = 256 << 10;
inline constexpr std::size_t kHttpLongestAddress = 2048;

// What the player and its readers share.
struct HttpSource {
  std::string address;                                    // http://HOST[:PORT]/..., with a number as the host
  bool (*is_near)(const std::string& address) = nullptr;  // whether the address may be connected to
  std::mutex lock;                                        // guards the members below
  std::int64_t size = -1;                                 // bytes, as the server said; -1: unknown
  bool seekable = false;                                  // the server accepts ranges
  std::string trouble;  // why the latest reader ended before the end; empty: it did not
};

struct HttpReader;
struct HttpEnd {
  void operator()(HttpReader* reader) const;
};
using HttpReaderHandle = std::unique_ptr<HttpReader, HttpEnd>;

HttpReaderHandle http_create(const std::shared_ptr<HttpSource>& source);

// Requests the file from its beginning. False: HttpSource::trouble says why. This and the functions below, except
// http_cancel and http_trouble, are for one thread.
bool http_begin(HttpReader& reader);

// Reads the next bytes, at most as many as `room` holds, and returns their number. 0: the end, an error
// (HttpSource::trouble), or cancelled.
std::size_t http_read(HttpReader& reader, std::span<char> room);

// Makes http_read continue at this position, in bytes. False: the server does not accept ranges.
bool http_seek(HttpReader& reader, std::int64_t position);

std::int64_t http_size(HttpReader& reader);  // bytes, as the server said; -1: unknown
bool http_is_seekable(HttpReader& reader);

// Ends all reading by this reader, including a call that waits now. Any thread.
void http_cancel(HttpReader& reader);

std::string http_trouble(HttpSource& source);  // HttpSource::trouble; any thread
