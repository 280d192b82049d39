// Which clients follow which notification URI. The plugin is subscribed with a URI's first client and no longer than
// its last. Leader's own.
#pragma once

#include <cstdint>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "stack.h"

struct Subscriptions {
  const Stack* stack;
  std::unordered_map<const char*, std::vector<std::uint64_t>> clients;  // by the catalogue's text
};

void subscriptions_add(Subscriptions& subscriptions, const char* uri, std::uint64_t client);
void subscriptions_remove(Subscriptions& subscriptions, const char* uri, std::uint64_t client);

// Fetches every subscribed listener buffer and hands over what was pending. The text lives for the call.
using SubscriptionsDeliver = void (*)(void* context, const char* uri, const std::vector<std::uint64_t>& clients,
                                      std::string_view text);
void subscriptions_fetch(Subscriptions& subscriptions, SubscriptionsDeliver deliver, void* context);
