// Why a get or set was refused, in a sentence for the application's developer.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "checks.h"
#include "dtv_tap.h"

// What is known after a call.
struct Evidence {
  std::int32_t ret = 0;                        // not 0
  bool tapped = true;                          // the tap would know of a failed call
  const dtv_tap_failure_t* failure = nullptr;  // the platform's last failed call; null: none, or no tap
  std::string_view log = {};                   // what the plugin and the platform printed during the call
  std::span<const Finding> findings = {};      // how the request departs from the description
  std::string_view example = {};               // of a parameter, for a request without one; may be empty
};

std::string reason_of(const Evidence& evidence);

// What a function of the platform reported although the call succeeded.
std::string swallowed_failure(const Evidence& evidence);
