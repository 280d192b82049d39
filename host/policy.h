// Which requests this host accepts: those of programs that name this host, and of pages that it serves or that were
// allowed. A page of another site can make a browser connect to a loopback address, but it cannot choose the Origin
// that the browser sends; and a foreign name that resolves to this machine appears in Host.
#pragma once

#include <string>
#include <string_view>
#include <vector>

struct Policy {
  std::string address;  // listening address, without brackets
  int port;
  std::vector<std::string> allowed_origins;  // as browsers write them: "http://localhost:5173"
};

// Reads "ADDR:PORT", "[ADDR6]:PORT", ":PORT" or "PORT". Port 0 takes any free one.
bool policy_read_listen(std::string_view text, Policy& ret_policy, std::string& ret_error);

// Adds an origin, such as "http://localhost:5173", in the form that browsers send.
bool policy_allow_origin(std::string_view text, Policy& ret_policy, std::string& ret_error);

// The listening address as it is written in a URL.
std::string policy_authority(const Policy& policy);

// Why a request with these headers is refused; empty when it is allowed. Missing headers are empty texts.
std::string policy_refuses(const Policy& policy, std::string_view host, std::string_view origin);

// Whether a browser sends the request for a page of another site that was not allowed. Browsers report this in
// Sec-Fetch-Site even when they send no Origin: for images, scripts, forms and links. They send it only to loopback
// addresses and by https. top_level: the user follows a link to a page of this server.
bool policy_is_cross_site(std::string_view origin, std::string_view fetch_site, bool top_level);

// Whether an Authorization header contains the token. The comparison takes equally long for every wrong token.
bool policy_shows_token(std::string_view authorization, std::string_view token);
bool policy_is_token(std::string_view shown, std::string_view token);

// Whether only programs on this machine can connect.
bool policy_is_local(const Policy& policy);

// Whether the origin is an allowed one of another site, whose answers need cross-origin headers.
bool policy_is_foreign(const Policy& policy, std::string_view origin);
