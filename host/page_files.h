// The page's files: selects the file for a path and its encoding, and checks whether the client has it already. Opens
// the file, but does not read it.
#pragma once

#include <string>
#include <string_view>

#include "http.h"

// Answers a GET or a HEAD of a path that is not a URI, from the folder of the built page. A FILE.gz beside FILE is the
// compressed form of FILE and is not served by its own name.
HttpAnswer page_answer(const HttpRequest& request, const std::string& folder);

// Whether Accept-Encoding allows gzip, by its name or else by "*", with a weight other than 0. A malformed entry allows
// nothing: every client can read the uncompressed form.
bool page_takes_gzip(std::string_view accepted);

// Whether If-None-Match names the tag, which is in quotes. A weak tag counts like a strong one.
bool page_names_tag(std::string_view tags, std::string_view tag);
