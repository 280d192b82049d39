// A stand-in for the television's platform: it answers what a test tells it and remembers what it was asked.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "tvapi/all.h"

struct PlatformCall {
  std::string name;
  std::vector<std::int64_t> arguments;  // integers as they are, addresses as numbers
  bool operator==(const PlatformCall&) const = default;
};

// Forgets everything: results are 0 again, no calls, and the callback registered stays known.
void platform_reset();

// What a function returns from now on.
void platform_answer(const std::string& name, std::int32_t result);

// What a function does, from now on until the reset, with its arguments as a call remembers them.
void platform_do(const std::string& name, std::function<void(const std::vector<std::int64_t>& arguments)> action);

// The calls since the last reset.
std::vector<PlatformCall> platform_calls();

// Raises every event: each callback that the plugin has registered is called with each number from 0 to 7, for all of
// its numbers, since one of them may tell the kind of event; and with cleared memory for its texts and records.
void platform_raise_all();

// The volume callback that the plugin registered last, and its tag; null when it has not.
a_vextvapi_volctrl_nfy_fct platform_volume_callback();
void* platform_volume_tag();
