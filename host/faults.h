// The control commands that set faults on functions of the TV API, through the tap:
//   fault FUNCTION [--delay MS] [--fail [RESULT]] [--drop-callback] [--repeat-callback TIMES]
//                                         sets a fault; {"replaced": FAULT} if the function had one
//   fault FUNCTION --clear | fault --clear    clears one, or all
//   faults                                {"faults": {FUNCTION: FAULT}}, those that are set
//   faults functions [TEXT...]            lists the functions
#pragma once

#include <span>
#include <string>

#include "stack.h"

// The words behind "fault" and "faults". They return a JSON object, and throw what Boost.JSON throws if the tap's list
// of functions cannot be read.
std::string fault_command(const Stack& stack, std::span<const std::string> words);
std::string faults_command(const Stack& stack, std::span<const std::string> words);
