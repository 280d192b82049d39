// Request texts made of the fuzzer's input: mostly well-formed for the URI's type, damaged in one place or another.
#pragma once

#include "plugin.h"

// A parameter text for this URI; `row` is null for an unknown one.
std::string take_parameter(Bytes& bytes, const Tables& tables, const UriInfo* row);
