// The page's files: which file a path names, in which encoding it is sent, and whether the client has it already. Opens
// a file, but reads none.
#pragma once

#include <string>

#include "http.h"

// Answers a GET or a HEAD of a path that is no URI from the folder of the built page. A FILE.gz beside FILE is FILE
// compressed, and no page of its own.
HttpAnswer page_answer(const HttpRequest& request, const std::string& folder);
