// Request texts made from the fuzzer's input: mostly well-formed for the URI's type, damaged in one place or another.
#pragma once

#include "plugin.h"

// A parameter text for a get or a set of this URI; `row` is null for an unknown one. ret_word becomes the request word
// where the text is as the URI's type takes it.
std::string take_parameter(Bytes& bytes, const Tables& tables, const UriInfo* row, bool sets, std::string& ret_word);
