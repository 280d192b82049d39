// Controllers that want events. On the server's thread.
#pragma once

#include <string>

inline constexpr std::size_t kMostSubscribers = 64;        // of all services together
inline constexpr std::size_t kMostSubscribersOfHost = 16;  // whose events go to one address
inline constexpr int kMostFailures = 3;     // events in a row that could not be delivered; then the subscription ends
inline constexpr int kDeliverySeconds = 3;  // until an event is taken
inline constexpr int kLongestSubscription = 1800;  // s; it is renewed before
inline constexpr int kShortestSubscription = 60;   // s
inline constexpr int kEventMillis = 200;           // between two events of a subscription at least

// Takes the present values as told. Before anybody can subscribe.
void subscribers_begin();

// Sends what subscribers have not been sent yet.
void subscribers_send();

void subscribers_forget();  // while the thread does not run

std::size_t subscribers_count();  // any thread
