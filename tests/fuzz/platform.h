// A platform whose answers, outputs and callbacks come from the fuzzer's input.
#pragma once

#include "bytes.h"

// What happens inside a platform call, besides its answer.
enum class MidCall { kNothing, kRaiseHere, kRaiseOnOtherThread };

// Everything that the platform answers from now on is read from these bytes, again from the start at their end.
void platform_answers(std::string bytes);

// From now on each platform call raises a registered callback, on the calling thread or on another, before it returns.
void platform_mid_call(MidCall action);

// Raises one of the registered callbacks, with arguments read from the answers, on the calling thread.
void platform_raise();
