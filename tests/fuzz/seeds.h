// Inputs to begin with, made and not kept: a target says what is to be reached, and random inputs are run until one
// input is known for each goal, beside the kept ones. What the tables do not name yet needs no seed; what they name
// gets one.
#pragma once

#include <set>
#include <string>
#include <string_view>

// The goals of this target; each target defines its own.
std::set<std::string> seed_goals();

// A goal has been reached by the input that is being run. Does nothing unless seeds are looked for.
void seed_reached(std::string_view goal);
