// HTTP requests to servers of the home network, each with a limit of bytes and of time. GUPnP's own proxies would read
// an answer of any length into memory. On the thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

inline constexpr int kMostFetches = 32;            // at a time; another one fails at once
inline constexpr int kFetchSilence = 10;           // s without a byte from the server, after which it fails
inline constexpr std::size_t kFetchChunk = 65536;  // bytes at a time

struct FetchHead {
  std::string type;        // its content type without parameters, in lower case; empty: none
  std::int64_t size = -1;  // -1: not stated
};

struct Fetch {
  std::string address = {};
  std::string action = {};                                // a SOAP action; empty: a GET
  std::string body = {};                                  // of a SOAP action
  std::size_t most = 0;                                   // bytes; a longer answer fails
  std::uint32_t millis = 0;                               // in which the whole answer must have come; 0: any time
  bool faults = false;                                    // an answer with status 500 is one as well
  std::function<bool(const FetchHead&)> head = {};        // false ends the fetch; null: any will do
  std::function<bool(std::string_view)> chunk = {};       // the same for each part of the body
  std::function<void(const std::string& why)> done = {};  // once, at the end; why is empty if all came
};

// Starts the request. `call` names it for fetch_cancel, and no other that runs. done is called later, not by
// fetch_start itself. It connects only to hosts that are near, without a proxy and without following redirections.
void fetch_start(std::uint64_t call, Fetch fetch);
// Calls done with a reason, or lets it be called soon. Does nothing if the request is over.
void fetch_cancel(std::uint64_t call);
