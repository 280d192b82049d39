// Who may talk to this host: the program on this machine that names it, and pages that it serves or that were allowed.
// A page of another site can make a browser connect to a loopback address, but cannot choose the Origin that the
// browser sends; a name that was pointed at this machine shows in Host.
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

// Adds an origin, such as "http://localhost:5173", in the form in which browsers write it.
bool policy_allow_origin(std::string_view text, Policy& ret_policy, std::string& ret_error);

// How the listening address is written in a URL.
std::string policy_authority(const Policy& policy);

// Why a request with these headers is refused; empty: it is not. Absent headers are empty texts.
std::string policy_refuses(const Policy& policy, std::string_view host, std::string_view origin);

// Whether a browser sends the request for a page of another site, one that was not allowed. Browsers say so with
// Sec-Fetch-Site, also where they send no Origin: images, scripts, forms, links. top_level: the user follows a link to
// a page of this server. Browsers send Sec-Fetch-Site to loopback addresses and by https only.
bool policy_is_cross_site(std::string_view origin, std::string_view fetch_site, bool top_level);

// Whether an Authorization header shows the token. Takes the same time for every wrong one.
bool policy_shows_token(std::string_view authorization, std::string_view token);
bool policy_is_token(std::string_view shown, std::string_view token);

// Whether everybody who is let in is on this machine.
bool policy_is_local(const Policy& policy);

// Whether the origin is one of another site that was allowed, which then needs cross-origin headers.
bool policy_is_foreign(const Policy& policy, std::string_view origin);
