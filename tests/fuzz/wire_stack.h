// The plugin and the television behind the server that fuzz_wire tests: both are quick and do what a request's
// parameter says. Every request has a mark of its own, which the answer repeats, and by which the test knows afterwards
// how often the request was carried out.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "stack.h"

inline constexpr const char* kWireUri = "/tv/made/value";         // can be read and set
inline constexpr const char* kWireNotifyUri = "/tv/made/notify";  // every set is notified there

// What the plugin does with a request.
enum class Act {
  kPlain,
  kFailed,   // returns a code
  kBroken,   // get: a text that is not JSON
  kLongest,  // get: a text of nearly the longest length
  kSlow,     // takes long enough for another thread to take the lead
  kUnkept,   // set: the change does not reach the disk
};

extern const Stack wire_stack;

// The plugin's description, long enough for several chunks.
const std::string& wire_description();

// A parameter, a JSON object.
std::string wire_parameter(std::string_view mark, Act act);

// A mark that no other request has, and that a damaged one does not become.
std::string wire_new_mark();

// How often a set with this mark was carried out since wire_forget_sets.
std::size_t wire_sets(const std::string& mark);
void wire_forget_sets();

// Whether the plugin is subscribed, or the tap watched.
bool wire_is_followed();
