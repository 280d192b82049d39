// Which clients are subscribed to which notification URI. The host is subscribed at the plugin while a URI has at least
// one client. Only the leader uses it.
#pragma once

#include <cstdint>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "stack.h"

struct Recorder;
struct Replayer;

struct Subscriptions {
  const Stack* stack;
  Recorder* recorder = nullptr;
  Replayer* replayer = nullptr;
  std::unordered_map<const char*, std::vector<std::uint64_t>> clients;  // by the catalogue's text
};

void subscriptions_add(Subscriptions& subscriptions, const char* uri, std::uint64_t client);
void subscriptions_remove(Subscriptions& subscriptions, const char* uri, std::uint64_t client);

// Fetches every subscribed listener buffer and calls deliver with each pending text, which is valid during the call.
using SubscriptionsDeliver = void (*)(void* context, const char* uri, const std::vector<std::uint64_t>& clients,
                                      std::string_view text);
void subscriptions_fetch(Subscriptions& subscriptions, SubscriptionsDeliver deliver, void* context);
