#include "policy.h"

#include <algorithm>
#include <optional>

#include "base/text.h"

namespace {

bool is_loopback(std::string_view address) {
  return address.starts_with("127.") || address == "::1" || address == "localhost";
}

bool is_any(std::string_view address) { return address == "0.0.0.0" || address == "::"; }

// Whether the text is an address, not a name: the name of a foreign site could resolve to this machine.
bool is_address(std::string_view name) {
  const bool v4 = !name.empty() && name.find_first_not_of("0123456789.") == std::string_view::npos;
  const bool v6 = name.find(':') != std::string_view::npos &&
                  name.find_first_not_of("0123456789abcdefABCDEF:.") == std::string_view::npos;
  return v4 || v6;
}

std::string lower(std::string_view text) {
  std::string lowered(text);
  std::ranges::transform(lowered, lowered.begin(), ascii_lower);
  return lowered;
}

bool read_port(std::string_view text, int& ret_port) {
  const std::optional<int> port = parse_number_within(text, 0, 65535);
  if (port) ret_port = *port;
  return port.has_value();
}

// Splits "name:port", "[v6]:port" or a name alone. Without a port, ret_port is unchanged.
bool split_authority(std::string_view text, std::string_view& ret_name, int& ret_port) {
  std::string_view name = text;
  std::string_view port;
  if (text.starts_with('[')) {
    const std::size_t end = text.find(']');
    if (end == std::string_view::npos) return false;
    name = text.substr(1, end - 1);
    port = text.substr(end + 1);
  } else if (const std::size_t colon = text.find(':'); colon != std::string_view::npos) {
    name = text.substr(0, colon);
    port = text.substr(colon);
  }
  if (!port.empty() && (port.front() != ':' || !read_port(port.substr(1), ret_port))) return false;
  ret_name = name;
  return true;
}

bool is_scheme(std::string_view text) {
  return !text.empty() && text.front() >= 'a' && text.front() <= 'z' &&
         text.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789+-.") == std::string_view::npos;
}

// The port that browsers leave out in an origin; -1: none.
int default_port(std::string_view scheme) { return scheme == "http" ? 80 : scheme == "https" ? 443 : -1; }

bool names_this_host(const Policy& policy, std::string_view host) {
  std::string_view name;
  int port = 80;
  const std::string lowered = lower(host);
  if (!split_authority(lowered, name, port) || port != policy.port || name.empty()) return false;
  if (name == lower(policy.address)) return true;
  if (is_any(policy.address)) return name == "localhost" || is_address(name);
  return is_loopback(policy.address) && (name == "localhost" || name == "127.0.0.1" || name == "::1");
}

}  // namespace

bool policy_read_listen(std::string_view text, Policy& ret_policy, std::string& ret_error) {
  const bool only_port = !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
  std::string_view name;
  int port = -1;
  const bool read = only_port ? read_port(text, port) : split_authority(text, name, port);
  if (!read || port < 0) {
    ret_error = "\"" + std::string(text) + "\" is not ADDR:PORT, such as 127.0.0.1:8080";
    return false;
  }
  if (name.empty()) name = "127.0.0.1";
  if (name == "localhost") name = "127.0.0.1";
  if (!is_address(name)) {
    ret_error = "\"" + std::string(name) + "\" is not an address; give one of this machine, such as 127.0.0.1";
    return false;
  }
  ret_policy.address = name;
  ret_policy.port = port;
  return true;
}

bool policy_allow_origin(std::string_view text, Policy& ret_policy, std::string& ret_error) {
  std::string origin = lower(text.ends_with('/') ? text.substr(0, text.size() - 1) : text);
  const std::size_t scheme_end = origin.find("://");
  const std::string_view scheme = std::string_view(origin).substr(0, scheme_end);
  std::string_view name;
  std::string_view authority;
  int port = default_port(scheme);
  if (scheme_end != std::string::npos) authority = std::string_view(origin).substr(scheme_end + 3);
  const bool read = is_scheme(scheme) && authority.find_first_of("/?#@*\\ \t") == std::string_view::npos &&
                    !authority.ends_with(':') && split_authority(authority, name, port) && !name.empty();
  if (!read) {
    ret_error = "\"" + std::string(text) +
                "\" is not an origin; give scheme, name and port of the page's address, such as "
                "http://localhost:5173";
    return false;
  }
  // Browsers leave out the default port of the scheme.
  if (port == default_port(scheme) && !authority.ends_with(']'))
    if (const std::size_t colon = origin.rfind(':'); colon > scheme_end) origin.resize(colon);
  ret_policy.allowed_origins.push_back(std::move(origin));
  return true;
}

std::string policy_authority(const Policy& policy) {
  const bool v6 = policy.address.find(':') != std::string::npos;
  return (v6 ? "[" + policy.address + "]" : policy.address) + ":" + std::to_string(policy.port);
}

std::string policy_refuses(const Policy& policy, std::string_view host, std::string_view origin) {
  if (!names_this_host(policy, host))
    return "Host \"" + std::string(host) + "\" is not this server; use http://" + policy_authority(policy) + "/";
  if (origin.empty() || policy_is_foreign(policy, origin)) return {};
  if (equal_ignoring_case(origin, "http://" + std::string(host))) return {};
  return "pages from \"" + std::string(origin) + "\" may not use this server; start dtv-host with --allow-origin " +
         std::string(origin) + " to let them";
}

bool policy_is_cross_site(std::string_view origin, std::string_view fetch_site, bool top_level) {
  return origin.empty() && (fetch_site == "cross-site" || fetch_site == "same-site") && !top_level;
}

bool policy_is_token(std::string_view shown, std::string_view token) {
  if (token.empty() || shown.size() != token.size()) return false;
  unsigned difference = 0;
  for (std::size_t i = 0; i < token.size(); ++i) difference |= static_cast<unsigned char>(shown[i] ^ token[i]);
  return difference == 0;
}

bool policy_shows_token(std::string_view authorization, std::string_view token) {
  constexpr std::string_view kScheme = "bearer ";
  return equal_ignoring_case(authorization.substr(0, kScheme.size()), kScheme) &&
         policy_is_token(authorization.substr(kScheme.size()), token);
}

bool policy_is_local(const Policy& policy) { return is_loopback(policy.address); }

bool policy_is_foreign(const Policy& policy, std::string_view origin) {
  return std::ranges::find(policy.allowed_origins, origin) != policy.allowed_origins.end();
}
