// The controllers that have subscribed to events. The functions are for the server's thread, unless they say otherwise.
#pragma once

#include <string>

inline constexpr std::size_t kMostSubscribers = 64;        // of all services together
inline constexpr std::size_t kMostSubscribersOfHost = 16;  // with events to one address
inline constexpr int kMostFailures = 3;     // events in a row that could not be delivered; then the subscription ends
inline constexpr int kDeliverySeconds = 3;  // time limit for delivering an event
inline constexpr int kLongestSubscription = 1800;  // s; the controller has to renew it before
inline constexpr int kShortestSubscription = 60;   // s
inline constexpr int kEventMillis = 200;           // least time between two events of a subscription

// Records the present values as already sent. Call it before controllers can subscribe.
void subscribers_begin();

// Sends each subscriber the changes that it has not been sent yet.
void subscribers_send();

void subscribers_forget();  // ends all subscriptions; call it while the thread does not run

std::size_t subscribers_count();  // any thread
