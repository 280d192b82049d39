// HTTP requests to servers of the home network, each with a limit of bytes and of time. GUPnP's own proxies would read
// an answer of any length into memory. All functions are for the home network's thread.
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
  std::string type;        // the answer's content type, in lower case and without parameters; empty: not stated
  std::int64_t size = -1;  // bytes of the body; -1: not stated
};

struct Fetch {
  std::string address = {};
  std::string action = {};   // the SOAP action to post; empty: the request is a GET
  std::string body = {};     // of the SOAP action
  std::size_t most = 0;      // bytes of the body; a longer one fails
  std::uint32_t millis = 0;  // time limit for the whole answer; 0: none
  bool faults = false;       // accept an answer with status 500, which carries a SOAP fault
  // Called once before the body. False ends the fetch. Null: any head is accepted.
  std::function<bool(const FetchHead&)> head = {};
  // Called for each part of the body. False ends the fetch.
  std::function<bool(std::string_view)> chunk = {};
  // Called once, at the end. why is empty if the whole body came.
  std::function<void(const std::string& why)> done = {};
};

// Starts the request. `call` is its number for fetch_cancel; no other running request may have it. done is called
// later, never by fetch_start itself. The request goes only to hosts that are near (upnp_is_near), uses no proxy and
// follows no redirection.
void fetch_start(std::uint64_t call, Fetch fetch);
// Ends the request: calls done with a reason, or lets it be called soon. Does nothing if the request has ended.
void fetch_cancel(std::uint64_t call);
