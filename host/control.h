// Control commands: those of records, which are the host's own; all others are the tap's and the television's.
#pragma once

#include <string>

#include "stack.h"
#include "tracer.h"

// Carries out a command as stack_control does, with these in addition:
//   capture start | capture stop | capture status   a record of what happens, see "recorder.h"
//   capture case                                    the latest record as a conformance case
std::string control_run(const Stack& stack, Tracer& tracer, const std::string& command);
