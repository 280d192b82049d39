// GET /list.json: what the method "list" returns, with a tag and compressed, so that the page also loads over a slow
// line. The leader answers it without a call.
#pragma once

#include <string>
#include <string_view>

#include "http.h"

// The plugin's description of its URIs as it is sent. Does not change.
struct Listing {
  std::string text;
  std::string compressed;  // by gzip; empty: this failed, and the text is sent to every client
  std::string tag;         // follows from the text, so it stays the same when the host starts again; without quotes
};

// Compresses the description, which takes some milliseconds.
Listing listing_make(std::string_view description);

HttpAnswer listing_answer(const HttpRequest& request, const Listing& listing);
