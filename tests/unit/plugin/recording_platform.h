// The platform of the plugin's unit tests. It records every call, returns what the test has set, and can raise every
// event that the plugin has registered for. Any thread may use it.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "tvapi/all.h"

struct PlatformCall {
  std::string name;
  std::vector<std::int64_t> arguments;  // integers as they are, addresses as numbers, records by value as 0
  bool operator==(const PlatformCall&) const = default;
};

// The address that an argument holds, as a callback or a pointer.
template <typename Pointer>
Pointer address_in(std::int64_t argument) {
  return reinterpret_cast<Pointer>(static_cast<std::intptr_t>(argument));
}

// Back to the beginning: no calls are recorded, every function returns 0 and does nothing else. Registered callbacks
// stay registered.
void platform_reset();

// Sets the result of a function until the reset.
void platform_answer(const std::string& name, std::int32_t result);

// Sets what a function does until the reset; the action gets the arguments as they are recorded.
void platform_do(const std::string& name, std::function<void(const std::vector<std::int64_t>& arguments)> action);

// The calls since the last reset.
std::vector<PlatformCall> platform_calls();

// The arguments of the last call that registered a callback through this function, resets or not; empty when there was
// none.
std::vector<std::int64_t> platform_registration(const std::string& name);

// Raises every event: calls each registered callback with each of the numbers 0 to 7 in the place of all its numbers,
// since one of them may be the kind of event, and with cleared memory in the place of its texts and records.
void platform_raise_all();
