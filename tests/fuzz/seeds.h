// Makes inputs for the fuzzer to begin with. A target defines its goals from the plugin's tables; random inputs are run
// until one input is known for each goal that the kept inputs do not reach.
#pragma once

#include <set>
#include <string>
#include <string_view>

// The goals of this target; each target defines its own.
std::set<std::string> seed_goals();

// A goal has been reached by the input that is being run. Does nothing unless seeds are looked for.
void seed_reached(std::string_view goal);
