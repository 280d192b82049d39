// Fuzzes what comes to the host from its clients, without sockets: JSON-RPC messages, HTTP requests, Host and Origin
// headers, the plugin's texts on their way out, and the frames that carry them.
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <boost/json.hpp>
#include <deque>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>

#include "bounds.h"
#include "dtv_js_plugin.h"
#include "host_texts.h"
#include "http.h"
#include "json_text.h"
#include "json_values.h"
#include "listing.h"
#include "outbox.h"
#include "policy.h"
#include "require.h"
#include "rpc.h"
#include "screen.h"
#include "seeds.h"
#include "subscriptions.h"

namespace fs = std::filesystem;
namespace json = boost::json;

// --- What stands behind the host: a plugin and a television that answer from the input ---

static Bytes* input;
static std::map<std::string, int> listeners;  // as the plugin counts them

static std::string take_plugin_text(Bytes& bytes) {
  std::string text;
  switch (take_below(bytes, 6)) {
    case 0:
      return {};
    case 1:
      return take_text(bytes);
    case 2:  // about as long as a response may be
      text = "{\"a\":\"" + std::string(DTV_JSP_RESPONSE_MAX - 10 + take_below(bytes, 4), 'x') + "\"}";
      return text.substr(0, DTV_JSP_RESPONSE_MAX);
    default:
      text = "{\"ITEMS\":[";
      add_any_value(bytes, text);
      text += "]}";
      damage(bytes, text);
      return text.substr(0, DTV_JSP_RESPONSE_MAX);
  }
}

// Counts the values at all depths, and finds out whether one of them, or a key, has U+0000. Of members with equal keys
// the library has kept one, so that the count is at most the host's.
static std::size_t count_values(const json::value& value, bool& ret_has_nul) {
  std::size_t count = 1;
  if (const json::string* const text = value.if_string(); text && text->find('\0') != json::string::npos)
    ret_has_nul = true;
  if (const json::array* const array = value.if_array())
    for (const json::value& element : *array) count += count_values(element, ret_has_nul);
  if (const json::object* const object = value.if_object())
    for (const auto& [key, member] : *object) {
      if (key.find('\0') != json::string_view::npos) ret_has_nul = true;
      count += count_values(member, ret_has_nul);
    }
  return count;
}

static json::value parse(std::string_view text, json::error_code& ret_failure) {
  json::parse_options options;
  options.max_depth = kJsonMaxDepth;
  return json::parse(json::string_view(text.data(), text.size()), ret_failure, {}, options);
}

// The texts that the host hands to the plugin and to the television.
static void check_handed(const char* text, const char* what) {
  json::error_code failure;
  bool has_nul = false;
  const std::size_t values = count_values(parse(text, failure), has_nul);
  require(!failure, what, text);
  require(!has_nul, "the set is handed no text with U+0000", text);
  require(values <= kLimitParameterValues + 1, "the set is handed no more values than the limit", text);
}

static std::int32_t plugin_get(const char* uri, const char* param, void* pv_content) {
  require(uri != nullptr, "a get has a URI");
  if (param) check_handed(param, "a parameter is whole");
  const std::string text = take_plugin_text(*input);
  memcpy(pv_content, text.data(), text.size());
  return take_integer<std::int32_t>(*input);
}

static std::int32_t plugin_set(const char* uri, const char* param) {
  require(uri != nullptr, "a set has a URI");
  check_handed(param, "a set has a whole parameter");
  return take_integer<std::int32_t>(*input);
}

static std::int32_t plugin_add_listener(const char* uri) {
  require(++listeners[uri] == 1, "the plugin is subscribed once to a URI", uri);
  return 0;
}

static std::int32_t plugin_remove_listener(const char* uri) {
  require(listeners.erase(uri) == 1, "what is taken back was subscribed", uri);
  return 0;
}

static std::int32_t plugin_fetch(const char* uri, void* buffer, std::int32_t length) {
  require(listeners.contains(uri), "only what is subscribed is fetched", uri);
  std::string text = take_plugin_text(*input);
  text = text.c_str();
  require(static_cast<std::size_t>(length) > text.size(), "there is room for every text");
  memcpy(buffer, text.data(), text.size());
  return 0;
}

static std::int32_t tap_fault(const char* function, const dtv_tap_fault_t*) {
  return !function || strcmp(function, "f") == 0 ? 0 : -1;
}

static char* tap_contract() {
  return strdup(
      take_chance(*input, 8)
          ? take_text(*input).c_str()
          : R"([{"name":"f","params":[],"callback":["a"],"fault":null},{"name":"g","params":[],"callback":null,"fault":{"delay_ms":1}}])");
}

static char* tv_control(const char* command) {
  check_handed(command, "a command is whole");
  if (take_chance(*input, 8)) return strdup(take_text(*input).c_str());
  if (take_chance(*input, 8)) return nullptr;
  return strdup(take_chance(*input, 4) ? R"({"error":"no"})" : R"({"commands":[]})");
}

static const Stack kStack = {.get = plugin_get,
                             .set = plugin_set,
                             .add_listener = plugin_add_listener,
                             .remove_listener = plugin_remove_listener,
                             .fetch = plugin_fetch,
                             .describe = nullptr,
                             .watch = nullptr,
                             .on_event = nullptr,
                             .fault = tap_fault,
                             .contract = tap_contract,
                             .tv_control = tv_control};

static const Catalogue& catalogue() {
  static Catalogue known;
  static const bool read = [] {
    char* const text = a_dtv_jsp_describe();
    std::string error;
    const bool done = catalogue_read(text, known, error);
    free(text);
    return done;
  }();
  require(read, "the host reads the plugin's description");
  return known;
}

static const std::vector<Method>& methods() {
  static const std::vector<Method> known = host_methods(catalogue());
  return known;
}

// --- JSON-RPC ---

// A reply must be one whole JSON-RPC reply.
static void check_reply(std::string_view reply, std::string_view id) {
  std::string wrong;
  require(json_is_whole(reply, &wrong), "a reply is whole JSON", reply);
  std::size_t members = 0;
  bool id_came = false;
  std::string_view rest = reply;
  while (const auto member = json_next_member(rest)) {
    ++members;
    if (json_string_is(member->key, "id"))
      id_came = member->value == (id.empty() ? "null" : id);
    else
      require(json_string_is(member->key, "jsonrpc") || json_string_is(member->key, "result") ||
                  json_string_is(member->key, "error"),
              "a reply has known members", reply);
  }
  require(members == 3 && id_came, "a reply has jsonrpc, the request's id, and result or error", reply);
}

// The largest message that is parsed a second time, by the JSON library, for comparison.
static void check_against_library(std::string_view text) {
  json::error_code failure;
  const json::value parsed = parse(text, failure);
  std::string wrong;
  const bool whole = json_is_whole(text, &wrong);
  require(whole == !failure, "a text is whole where the library reads it", text);
  require(whole == wrong.empty(), "a text that is not whole comes with a reason", text);
  if (!whole) return;
  std::string_view rest = text;
  std::size_t count = 0;
  if (parsed.is_object()) {
    std::map<std::string, std::string> last;  // the last of equal keys counts
    while (const auto member = json_next_member(rest)) last[json_string(member->key)] = std::string(member->value);
    require(last.size() == parsed.get_object().size(), "as many members as the library finds", text);
    for (const auto& [key, value] : last)
      require(parse(value, failure) == parsed.get_object().at(key), "the members that the library finds", text);
  } else if (parsed.is_array()) {
    while (const auto element = json_next_element(rest)) {
      require(count < parsed.get_array().size() && parse(*element, failure) == parsed.get_array()[count],
              "the elements that the library finds", text);
      ++count;
    }
    require(count == parsed.get_array().size(), "as many elements as the library finds", text);
  }
}

static void message(Bytes& bytes) {
  const std::string text = take_message(bytes, catalogue(), methods());
  check_against_library(text);
  RpcMessage read;
  rpc_read(text, catalogue(), read);
  require(!read.requests.empty() && read.requests.size() <= kRpcBatchMax, "a message has requests", text);
  for (const RpcRequest& request : read.requests) {
    if (!request.error.empty()) {
      check_reply(request.error, request.id);
      continue;
    }
    require(request.id.empty() || json_is_whole(request.id), "an id is JSON", request.id);
    require(!request.call.uri || catalogue_find(catalogue(), request.call.uri)->uri == request.call.uri,
            "a URI is the catalogue's");
    const auto number = static_cast<std::size_t>(request.method);
    seed_reached(methods().at(number).name);
    if (request.method == RpcMethod::kGet || request.method == RpcMethod::kSet || request.method == RpcMethod::kTv) {
      Tracer tracer{};
      tracer.stack = &kStack;
      Outcome outcome;
      call_run(kStack, tracer, request.call, outcome);
      std::string reply = "before";
      rpc_append_outcome(reply, request.id.empty() ? "null" : request.id, request.call, outcome);
      require(reply.starts_with("before"), "a reply stands behind what was there", reply);
      check_reply(std::string_view(reply).substr(6), request.id);
    }
  }
}

// --- HTTP ---

static constexpr std::string_view kSecret = "not to be served";

// A folder of pages, with things beside it that are not to be served. Removed at the end.
static const fs::path& web_folder() {
  static const fs::path top = [] {
    std::string name = (fs::temp_directory_path() / "fuzz_host.XXXXXX").string();
    require(mkdtemp(name.data()) != nullptr, "there is room for a folder");
    const fs::path folder = name;
    fs::create_directories(folder / "web" / "assets");
    std::ofstream(folder / "web" / "index.html") << "page";
    std::ofstream(folder / "web" / "assets" / "a.js") << "script";
    std::ofstream(folder / "web" / "assets" / "a.js.gz") << "compressed";
    std::ofstream(folder / "secret.txt") << kSecret;
    fs::create_directories(folder / "web-other");
    std::ofstream(folder / "web-other" / "index.html") << kSecret;
    fs::create_symlink(folder / "secret.txt", folder / "web" / "out");
    fs::create_symlink("loop", folder / "web" / "loop");
    static const fs::path kept = folder;
    atexit([] { fs::remove_all(kept); });
    return folder;
  }();
  static const fs::path folder = top / "web";
  return folder;
}

static std::string take_path(Bytes& bytes) {
  static constexpr const char* kParts[] = {"..",   ".",          "assets",    "a.js", "index.html", "out",
                                           "loop", "secret.txt", "web-other", "web",  "",           "/etc/passwd"};
  switch (take_below(bytes, 4)) {
    case 0:
      return take_host_uri(bytes, catalogue());
    case 1:
      return take_chance(bytes, 2) ? "/jsonrpc" : take_text(bytes);
    default: {
      std::string path;
      for (std::size_t parts = 1 + take_below(bytes, 5); parts > 0; --parts)
        path.append("/").append(take_chance(bytes, 16) ? take_text(bytes)
                                                       : kParts[take_below(bytes, std::size(kParts))]);
      return path;
    }
  }
}

static void check_answer(const HttpAnswer& answer) {
  static constexpr unsigned kStatus[] = {200, 304, 400, 404, 405, 413, 422, 500, 502};
  require(std::ranges::find(kStatus, answer.status) != std::end(kStatus), "the status is one of those documented");
  if (answer.file.descriptor >= 0) {
    std::string content(answer.file.bytes, '\0');
    const ssize_t got = read(answer.file.descriptor, content.data(), content.size());
    require(got == static_cast<ssize_t>(content.size()), "the file is at its beginning, and whole");
    close(answer.file.descriptor);
    require(answer.status == 200 && answer.body.empty(), "a file is the whole answer", answer.body);
    require(content != kSecret, "only files of the web folder are served", content);
  }
  for (std::string_view lines = answer.more; !lines.empty();) {
    const std::size_t end = lines.find("\r\n");
    require(end != std::string_view::npos, "a header line ends", answer.more);
    const std::string_view line = lines.substr(0, end);
    require(line.find(": ") != std::string_view::npos &&
                std::ranges::none_of(line, [](unsigned char c) { return c < 0x20 || c == 0x7F; }),
            "a header line has a name and no control characters", line);
    lines.remove_prefix(end + 2);
  }
  for (const std::string& header : {answer.type, answer.allow, answer.policy})
    require(std::ranges::none_of(header, [](unsigned char c) { return c < 0x20 || c == 0x7F; }),
            "headers have no control characters", header);
  if (answer.type == "application/json") require(json_is_whole(answer.body), "an answer is whole JSON", answer.body);
}

static void http(Bytes& bytes) {
  static constexpr const char* kMethods[] = {"GET", "PUT", "POST", "HEAD", "DELETE", "PATCH", "the method"};
  HttpRequest request{.method = kMethods[take_below(bytes, std::size(kMethods))], .path = take_path(bytes)};
  request.host = "localhost:8080";
  request.has_parameter = take_chance(bytes, 2);
  for (std::string* text : {&request.parameter, &request.body}) {
    if (take_chance(bytes, 2)) *text = "{\"REQUEST\":\"QUERY\"}";
    if (take_chance(bytes, 4)) add_any_value(bytes, *text);
    if (take_chance(bytes, 16)) *text = take_many_values(bytes);
    damage(bytes, *text);
  }
  if (take_chance(bytes, 2)) request.accept_encoding = take_chance(bytes, 2) ? "gzip" : take_text(bytes);
  if (take_chance(bytes, 2)) request.if_none_match = take_chance(bytes, 4) ? "*" : take_text(bytes);
  HttpAnswer answer;
  Call call;
  switch (http_route(request, catalogue(), web_folder().string(), answer, call)) {
    case HttpRoute::kAnswer:
      seed_reached("HTTP " + std::to_string(answer.status));
      return check_answer(answer);
    case HttpRoute::kRpc:
      return seed_reached("HTTP JSON-RPC");
    case HttpRoute::kList: {
      static const Listing listing = listing_make(catalogue().description);
      return check_answer(listing_answer(request, listing));
    }
    case HttpRoute::kScreen:
      return check_answer(screen_answer(request, kStack));
    case HttpRoute::kRecord:
      return;  // the answer is a file of the recorder's
    case HttpRoute::kCall: {
      require(call.uri && request.path == call.uri, "the path is the URI", request.path);
      require(call.text.empty() || json_is_whole(call.text), "a call's text is whole", call.text);
      Tracer tracer{};
      tracer.stack = &kStack;
      Outcome outcome;
      call_run(kStack, tracer, call, outcome);
      seed_reached(call.kind == CallKind::kSet ? "HTTP set" : "HTTP get");
      return check_answer(http_outcome(call, outcome));
    }
  }
}

// --- Host and Origin ---

// Names of hosts, right and almost right.
static std::string take_host(Bytes& bytes) {
  static constexpr const char* kNames[] = {
      "localhost", "127.0.0.1", "[::1]", "::1", "LocalHost",      "evil.example",           "192.168.1.5",
      "0.0.0.0",   "[::]",      "127.1", "",    "user@localhost", "localhost.evil.example", "127.0.0.1.evil.example"};
  static constexpr const char* kPorts[] = {":8080", ":80", "", ":", ":08080", ":8081", ":-1", ":65536", ":8080:8080"};
  if (take_chance(bytes, 8)) return take_text(bytes);
  std::string host = kNames[take_below(bytes, std::size(kNames))];
  host += kPorts[take_below(bytes, std::size(kPorts))];
  damage(bytes, host);
  return host;
}

static std::string lower(std::string text) {
  for (char& c : text)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c | 0x20);
  return text;
}

// Whether a Host names a loopback address and this port; computed in another way than in the host.
static bool is_this_host(const std::string& host, int port) {
  for (const std::string name : {"localhost", "127.0.0.1", "[::1]", "[127.0.0.1]", "[localhost]"}) {
    if (!lower(host).starts_with(name)) continue;
    std::string rest = host.substr(name.size());
    if (rest.empty()) return port == 80;
    if (rest[0] != ':' || rest.size() == 1 || rest.find_first_not_of("0123456789", 1) != std::string::npos)
      return false;
    return rest.size() < 20 && std::stoll(rest.substr(1)) == port;
  }
  return false;
}

static void policy(Bytes& bytes) {
  Policy policy{.address = "127.0.0.1", .port = take_chance(bytes, 4) ? 80 : 8080, .allowed_origins = {}};
  const std::string host = take_host(bytes);
  std::string origin = take_chance(bytes, 4) ? "" : "http://" + (take_chance(bytes, 2) ? host : take_host(bytes));
  damage(bytes, origin);
  require(policy_refuses(policy, host, "").empty() == is_this_host(host, policy.port), "only this host is let in",
          host);
  if (policy_refuses(policy, host, origin).empty()) {
    require(is_this_host(host, policy.port), "an origin opens no other host", host);
    require(origin.empty() || lower(origin) == "http://" + lower(host), "without a wish only the same origin", origin);
  }
  std::string error;
  const std::string wished = take_chance(bytes, 2) ? "http://" + take_host(bytes) : take_text(bytes);
  const bool taken = policy_allow_origin(wished, policy, error);
  require(taken == error.empty() && taken == (policy.allowed_origins.size() == 1), "a wish is taken or told why",
          wished);
  if (taken) {
    const std::string& allowed = policy.allowed_origins[0];
    require(policy_is_foreign(policy, allowed) && allowed == lower(allowed), "an allowed origin is let in", allowed);
    require(policy_refuses(policy, host, allowed).empty() == is_this_host(host, policy.port),
            "an allowed origin may use this host and no other", allowed);
    seed_reached("origin");
  }
  Policy listening{};
  error.clear();
  const std::string address = take_host(bytes);
  const bool read = policy_read_listen(address, listening, error);
  require(read == error.empty(), "an address is read or told why", address);
  if (!read) return;
  require(listening.port >= 0 && listening.port <= 65535 && !listening.address.empty(), "an address is one", address);
  Policy again{};
  require(policy_read_listen(policy_authority(listening), again, error) && again.address == listening.address &&
              again.port == listening.port,
          "an address is written as it is read", address);
  seed_reached("listen");
}

static void token(Bytes& bytes) {
  static constexpr const char* kSchemes[] = {"Bearer ", "bearer ", "BEARER ", "Bearer", "Basic ", "Bearer  ", ""};
  const std::string token = take_chance(bytes, 8) ? "" : std::string(64, "0123456789abcdef"[take_below(bytes, 16)]);
  std::string shown = take_chance(bytes, 4) ? take_text(bytes) : token;
  damage(bytes, shown);
  const std::string scheme = kSchemes[take_below(bytes, std::size(kSchemes))];
  const bool right = !token.empty() && shown == token;
  require(policy_is_token(shown, token) == right, "the token is the token", shown);
  require(policy_shows_token(scheme + shown, token) == (lower(scheme) == "bearer " && right),
          "a header shows the token as Bearer", scheme + shown);
  if (right) seed_reached("token");
}

// --- What goes out ---

// Takes the text of the first frame from a chunk.
static std::string take_frame(std::string_view& chunk) {
  require(chunk.size() >= 2 && chunk[0] == '\x81', "a frame is a whole text");
  std::size_t length = static_cast<unsigned char>(chunk[1]);
  const std::size_t bytes = length == 126 ? 2 : length == 127 ? 8 : 0;
  require(length <= 127 && chunk.size() >= 2 + bytes, "a server's frame is not masked");
  if (bytes > 0) length = 0;
  for (std::size_t i = 0; i < bytes; ++i) length = length * 256 + static_cast<unsigned char>(chunk[2 + i]);
  require(bytes == 0 || length > (bytes == 2 ? 125 : 65535), "a length takes as few bytes as it can");
  require(chunk.size() >= 2 + bytes + length, "a chunk holds whole frames");
  const std::string text(chunk.substr(2 + bytes, length));
  chunk.remove_prefix(2 + bytes + length);
  return text;
}

static void deliver(void* context, const char* uri, const std::vector<std::uint64_t>& clients, std::string_view text) {
  require(!clients.empty(), "somebody follows what is fetched", uri);
  const std::string notification = rpc_notify(uri, text);
  require(json_is_whole(notification), "a notification is whole", notification);
  outbox_notice(*static_cast<Outbox*>(context),
                {.frame = std::make_shared<const std::string>(ws_frame(notification)), .uri = uri});
}

static void clients(Bytes& bytes) {
  Subscriptions subscriptions{.stack = &kStack, .clients = {}};
  Outbox outbox;
  std::deque<std::string> replies;
  std::set<std::pair<std::string, std::uint64_t>> followed;
  for (std::size_t i = 0; i < 32 && bytes.left > 0; ++i) {
    const char* const uri = catalogue().uris[take_below(bytes, catalogue().uris.size())].c_str();
    const std::uint64_t client = take_below(bytes, 3);
    switch (take_below(bytes, 7)) {
      case 0:
        if (followed.emplace(uri, client).second) subscriptions_add(subscriptions, uri, client);
        break;
      case 1:
        subscriptions_remove(subscriptions, uri, client);
        followed.erase({uri, client});
        outbox_forget(outbox, uri);
        break;
      case 2: {
        static constexpr std::size_t kLengths[] = {0, 1, 125, 126, 127, 65535, 65536, 70000};
        replies.emplace_back(kLengths[take_below(bytes, std::size(kLengths))], 'r');
        outbox_reply(outbox, replies.back());
        break;
      }
      case 3:
        subscriptions_fetch(subscriptions, deliver, &outbox);
        break;
      case 4: {  // many at once, about as many as may wait
        const Notice notice{.frame = std::make_shared<const std::string>(
                                ws_frame(rpc_notify(uri, json_quote(std::string(take_below(bytes, 4000), 'n'))))),
                            .uri = uri};
        for (std::size_t times = take_below(bytes, 2 * kLimitClientNotices); times > 0; --times)
          outbox_notice(outbox, notice);
        if (outbox.dropped > 0) seed_reached("overflow");
        break;
      }
      default: {
        const bool replies_wait = !replies.empty();
        bool has_replies = !replies_wait;
        const std::string chunk = outbox_take(outbox, has_replies);
        require(has_replies == replies_wait, "a chunk says whether it has replies");
        std::string_view frames = chunk;
        while (!frames.empty()) {
          const std::string text = take_frame(frames);
          if (!replies.empty()) {
            require(text == replies.front(), "replies leave in their order");
            replies.pop_front();
          } else {
            require(json_is_whole(text), "what leaves is whole", text);
            seed_reached("client");
          }
        }
      }
    }
    std::size_t expected = 0;
    for (auto last = followed.begin(); last != followed.end(); ++expected)
      last = followed.upper_bound({last->first, UINT64_MAX});
    require(listeners.size() == expected, "the plugin is subscribed while somebody follows");
    require(outbox.notices.size() <= kLimitClientNotices && outbox.notices_bytes <= kLimitClientNoticeBytes,
            "waiting notifications keep to their limits");
    std::size_t notices_bytes = 0;
    std::size_t replies_bytes = 0;
    for (const Notice& notice : outbox.notices) notices_bytes += notice.frame->size();
    for (const std::string& chunk : outbox.replies) replies_bytes += chunk.size();
    require(outbox.notices_bytes == notices_bytes && outbox.replies_bytes == replies_bytes,
            "what waits is as long as is counted");
  }
  for (const auto& [uri, client] : followed)
    subscriptions_remove(subscriptions, catalogue_find(catalogue(), uri)->uri, client);
  require(listeners.empty() && subscriptions.clients.empty(), "nothing stays subscribed");
}

static void texts(Bytes& bytes) {
  const std::string text = take_text(bytes);
  const std::string quoted = json_quote(text);
  require(json_is_whole(quoted), "any text can be quoted", text);
  if (quoted.find("\xEF\xBF\xBD") == std::string::npos)
    require(json_string(quoted) == text && json_string_is(quoted, text), "a quoted text reads as it was", text);
  Catalogue other;
  std::string error;
  std::string description = "{\"uris\":[{\"uri\":";
  add_any_value(bytes, description);
  description += ",\"notify\":";
  add_any_value(bytes, description);
  description += "}]}";
  damage(bytes, description);
  require(catalogue_read(description, other, error) == error.empty(), "a description is read or told why", description);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Bytes bytes = {.next = data, .left = size};
  input = &bytes;
  listeners.clear();
  switch (take_below(bytes, 8)) {
    case 0:
      clients(bytes);
      break;
    case 1:
      take_chance(bytes, 4) ? token(bytes) : policy(bytes);
      break;
    case 2:
      texts(bytes);
      break;
    case 3:
    case 4:
      http(bytes);
      break;
    default:
      message(bytes);
  }
  return 0;
}

// The seeds call every method, and every kind of HTTP request gets an answer.
std::set<std::string> seed_goals() {
  std::set<std::string> goals = {"HTTP 200",      "HTTP 400", "HTTP 404", "HTTP 405", "HTTP 413",
                                 "HTTP JSON-RPC", "HTTP get", "HTTP set", "origin",   "listen",
                                 "token",         "client",   "overflow"};
  for (const Method& method : methods()) goals.insert(method.name);
  return goals;
}
