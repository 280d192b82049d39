#include "rpc.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <span>
#include <system_error>

#include "bounds.h"
#include "dtv_js_plugin.h"
#include "json_text.h"
#include "nearest.h"

namespace {

enum class ParamKind { kUri, kNotifyingUri, kObject, kObjectOrNull, kBoolean, kWords, kToken };

void plugin_text(std::string_view parameter, std::string& ret_text) {
  ret_text.reserve(parameter.size() + 14);
  ret_text.assign("{\"PARAMETER\":").append(parameter).append("}");
}

void take_object(std::string_view value, RpcRequest& request) {
  if (json_kind(value) == JsonKind::kObject) plugin_text(value, request.call.text);
}

void take_traced(std::string_view value, RpcRequest& request) { request.call.traced = value.front() == 't'; }
void take_strict(std::string_view value, RpcRequest& request) { request.call.strict = value.front() == 't'; }
void take_on(std::string_view value, RpcRequest& request) { request.on = value.front() == 't'; }
void take_words(std::string_view value, RpcRequest& request) { request.call.text = value; }
void take_token(std::string_view value, RpcRequest& request) { request.token = json_string(value); }

struct ParamRow {
  std::string_view name;
  ParamKind kind;
  bool required;
  // Stores a value of the right kind. Null: a URI, which take_uri looks up.
  void (*take)(std::string_view value, RpcRequest& request);
};

struct MethodRow {
  std::string_view name;
  RpcMethod method;
  std::span<const ParamRow> params;
  CallKind call = CallKind::kGet;
};

constexpr ParamRow kUriParam = {.name = "uri", .kind = ParamKind::kUri, .required = true, .take = nullptr};
constexpr ParamRow kTracedParam = {
    .name = "trace", .kind = ParamKind::kBoolean, .required = false, .take = take_traced};
constexpr ParamRow kStrictParam = {
    .name = "strict", .kind = ParamKind::kBoolean, .required = false, .take = take_strict};

constexpr ParamRow kGetParams[] = {
    kUriParam,
    {.name = "parameter", .kind = ParamKind::kObjectOrNull, .required = false, .take = take_object},
    kTracedParam,
    kStrictParam};
constexpr ParamRow kSetParams[] = {
    kUriParam,
    {.name = "parameter", .kind = ParamKind::kObject, .required = true, .take = take_object},
    kTracedParam,
    kStrictParam};
constexpr ParamRow kSubscribeParams[] = {
    {.name = "uri", .kind = ParamKind::kNotifyingUri, .required = true, .take = nullptr}};
constexpr ParamRow kUnsubscribeParams[] = {kUriParam};
constexpr ParamRow kTraceParams[] = {{.name = "on", .kind = ParamKind::kBoolean, .required = true, .take = take_on}};
constexpr ParamRow kTvParams[] = {{.name = "words", .kind = ParamKind::kWords, .required = true, .take = take_words}};
constexpr ParamRow kAuthorizeParams[] = {
    {.name = "token", .kind = ParamKind::kToken, .required = true, .take = take_token}};

constexpr MethodRow kMethods[] = {
    {.name = "get", .method = RpcMethod::kGet, .params = kGetParams},
    {.name = "set", .method = RpcMethod::kSet, .params = kSetParams, .call = CallKind::kSet},
    {.name = "subscribe", .method = RpcMethod::kSubscribe, .params = kSubscribeParams},
    {.name = "unsubscribe", .method = RpcMethod::kUnsubscribe, .params = kUnsubscribeParams},
    {.name = "list", .method = RpcMethod::kList, .params = {}},
    {.name = "trace", .method = RpcMethod::kTrace, .params = kTraceParams},
    {.name = "tv", .method = RpcMethod::kTv, .params = kTvParams, .call = CallKind::kControl},
    {.name = "ping", .method = RpcMethod::kPing, .params = {}},
    {.name = "authorize", .method = RpcMethod::kAuthorize, .params = kAuthorizeParams},
};

constexpr std::size_t kMostParams =
    std::ranges::max(kMethods, {}, [](const MethodRow& row) { return row.params.size(); }).params.size();

constexpr std::string_view wanted(ParamKind kind) {
  switch (kind) {
    case ParamKind::kUri:
    case ParamKind::kToken:
      return "a string";
    case ParamKind::kNotifyingUri:
      return "a URI that notifies, such as /tv/ws/notify/volume_ctrl";
    case ParamKind::kObject:
      return "an object";
    case ParamKind::kObjectOrNull:
      return "an object, or null";
    case ParamKind::kBoolean:
      return "true or false";
    case ParamKind::kWords:
      return "an array of strings";
  }
  return {};
}

bool is_wanted(ParamKind kind, std::string_view value) {
  const JsonKind given = json_kind(value);
  switch (kind) {
    case ParamKind::kUri:
    case ParamKind::kNotifyingUri:
    case ParamKind::kToken:
      return given == JsonKind::kString;
    case ParamKind::kObject:
      return given == JsonKind::kObject;
    case ParamKind::kObjectOrNull:
      return given == JsonKind::kObject || given == JsonKind::kNull;
    case ParamKind::kBoolean:
      return given == JsonKind::kBoolean;
    case ParamKind::kWords:
      if (given != JsonKind::kArray) return false;
      while (const auto word = json_next_element(value))
        if (json_kind(*word) != JsonKind::kString) return false;
      return true;
  }
  return false;
}

std::string method_names(std::string_view separator, bool quoted) {
  std::string names;
  for (const MethodRow& row : kMethods) {
    if (!names.empty()) names += separator;
    names += quoted ? json_quote(row.name) : std::string(row.name);
  }
  return names;
}

std::string refuse_params(std::string_view id, std::string_view member, std::string_view is_wanted_to_be,
                          std::string_view method) {
  std::string message = std::string(member) + " must be ";
  message.append(is_wanted_to_be).append(", in ").append(method);
  return rpc_error(id, RpcError::kInvalidParams, message,
                   "{\"member\":" + json_quote(member) + ",\"wanted\":" + json_quote(is_wanted_to_be) + "}");
}

// Whether a valid JSON text may be passed to the plugin; kNone: it may.
RpcError unfit(const JsonFacts& facts, std::string& ret_error) {
  if (facts.values > kLimitParameterValues) {
    ret_error = "a parameter may have " + std::to_string(kLimitParameterValues) + " values";
    return RpcError::kLimit;
  }
  if (!facts.has_nul) return RpcError::kNone;
  ret_error = "no text may contain the character U+0000, at which the set would end it";
  return RpcError::kInvalidParams;
}

// Shared by the requests of one message while they are read.
struct Reading {
  const Catalogue& catalogue;
  unsigned searches = kLimitNearestSearches;  // for the nearest URIs, which the message may still cause
};

// Finds the registered URI, or refuses the request.
void take_uri(const ParamRow& row, std::string_view method, std::string_view value, Reading& reading,
              RpcRequest& request) {
  std::string unescaped;
  std::string_view uri = value.substr(1, value.size() - 2);
  if (uri.find('\\') != std::string_view::npos) uri = unescaped = json_string(value);
  const CatalogueRow* const found = catalogue_find(reading.catalogue, uri);
  if (found == nullptr) {
    std::string message;
    const bool searches = reading.searches > 0;
    if (searches) --reading.searches;
    const std::string data =
        rpc_unknown_uri(searches ? std::span(reading.catalogue.uris) : std::span<const std::string>(), uri, message);
    request.error = rpc_error(request.id, RpcError::kUnknownUri, message, data);
  } else if (row.kind == ParamKind::kNotifyingUri && !found->check->notifies) {
    request.error = refuse_params(request.id, row.name, wanted(row.kind), method);
  } else {
    request.call.uri = found->uri;
    request.call.row = found->check;
  }
}

void read_params(const MethodRow& row, std::string_view params, Reading& reading, RpcRequest& request) {
  std::string_view values[kMostParams];
  if (!params.empty() && json_kind(params) != JsonKind::kObject) {
    request.error = refuse_params(request.id, "params", "an object", row.name);
    return;
  }
  while (const auto member = params.empty() ? std::nullopt : json_next_member(params)) {
    const auto param = std::ranges::find_if(
        row.params, [&](const ParamRow& known) { return json_string_is(member->key, known.name); });
    if (param != row.params.end()) {
      values[param - row.params.begin()] = member->value;
      continue;
    }
    std::string message = std::string(row.name) + " knows no member " + std::string(member->key.substr(0, 100)) + "; ";
    for (const ParamRow& known : row.params) message.append(&known == row.params.data() ? "" : ", ").append(known.name);
    message += row.params.empty() ? "it takes none" : " are its members";
    request.error = rpc_error(request.id, RpcError::kInvalidParams, message);
    return;
  }
  for (std::size_t i = 0; i < row.params.size(); ++i) {
    const ParamRow& param = row.params[i];
    if (values[i].empty() ? param.required : !is_wanted(param.kind, values[i])) {
      request.error = refuse_params(request.id, param.name, wanted(param.kind), row.name);
      return;
    }
  }
  for (std::size_t i = 0; i < row.params.size() && request.error.empty(); ++i) {
    const ParamRow& param = row.params[i];
    if (values[i].empty()) continue;
    if (param.take != nullptr)
      param.take(values[i], request);
    else
      take_uri(param, row.name, values[i], reading, request);
  }
}

RpcRequest read_request(std::string_view text, Reading& reading) {
  RpcRequest request;
  request.id = "null";
  const auto refuse = [&request](std::string_view message) {
    request.error = rpc_error(request.id, RpcError::kInvalidRequest, message);
    return std::move(request);
  };
  if (json_kind(text) != JsonKind::kObject) return refuse("a request is an object with jsonrpc, id, method and params");

  std::string_view version, id, method, params;
  while (const auto member = json_next_member(text)) {
    if (json_string_is(member->key, "jsonrpc")) version = member->value;
    if (json_string_is(member->key, "id")) id = member->value;
    if (json_string_is(member->key, "method")) method = member->value;
    if (json_string_is(member->key, "params")) params = member->value;
  }
  if (!id.empty()) {
    const JsonKind kind = json_kind(id);
    if (kind != JsonKind::kString && kind != JsonKind::kNumber && kind != JsonKind::kNull)
      return refuse("id must be a string or a number");
    request.id = id;
  }
  if (version.empty() || json_kind(version) != JsonKind::kString || !json_string_is(version, "2.0"))
    return refuse("jsonrpc must be \"2.0\"");
  if (method.empty() || json_kind(method) != JsonKind::kString) return refuse("method must be a string");

  // From here on the request is valid. Without an id it is a notification, which gets no reply, not even an error.
  if (id.empty()) request.id.clear();
  const auto row =
      std::ranges::find_if(kMethods, [&](const MethodRow& known) { return json_string_is(method, known.name); });
  if (row == std::end(kMethods)) {
    request.error = rpc_error(request.id, RpcError::kUnknownMethod,
                              "there is no such method; there are " + method_names(", ", false),
                              "{\"methods\":[" + method_names(",", true) + "]}");
    return request;
  }
  request.method = row->method;
  request.call.kind = row->call;
  read_params(*row, params, reading, request);
  return request;
}

// Refuses a request whose parameter or words must not be passed to the plugin.
void refuse_unfit(RpcRequest& request) {
  if (!request.error.empty() || request.call.text.empty()) return;
  JsonFacts facts;
  json_is_whole(request.call.text, nullptr, &facts);
  if (request.call.kind != CallKind::kControl) --facts.values;  // the object around the parameter
  std::string message;
  if (const RpcError refused = unfit(facts, message); refused != RpcError::kNone)
    request.error = rpc_error(request.id, refused, message);
}

void append_number(std::string& text, std::int64_t number) {
  char digits[24];
  const auto end = std::to_chars(digits, digits + sizeof digits, number);
  text.append(digits, static_cast<std::size_t>(end.ptr - digits));
}

// The member "error" of a reply or a notification. data is JSON text or empty.
void append_error(std::string& text, RpcError code, std::string_view message, std::string_view data) {
  text += "\"error\":{\"code\":";
  append_number(text, static_cast<std::int64_t>(code));
  text.append(",\"message\":").append(json_quote(message));
  if (!data.empty()) text.append(",\"data\":").append(data);
  text += '}';
}

// The member "log", an array of lines.
void append_log(std::string& text, std::string_view log) {
  text += ",\"log\":[";
  bool first = true;
  while (!log.empty()) {
    const std::size_t end = std::min(log.find('\n'), log.size());
    std::string_view line = log.substr(0, end);
    log.remove_prefix(std::min(end + 1, log.size()));
    while (line.ends_with('\r')) line.remove_suffix(1);
    if (line.empty()) continue;
    text.append(first ? "" : ",").append(json_quote(line));
    first = false;
  }
  text += ']';
}

// The data of an error about a text of the plugin.
std::string length_data(std::string_view text) { return "{\"length\":" + std::to_string(text.size()) + "}"; }

}  // namespace

void rpc_read(std::string_view text, const Catalogue& catalogue, RpcMessage& ret_message) {
  ret_message.batch = false;
  ret_message.requests.clear();
  const auto refuse = [&](RpcError code, std::string_view message) {
    ret_message.requests.clear();
    RpcRequest& request = ret_message.requests.emplace_back();
    request.id = "null";
    request.error = rpc_error("null", code, message);
  };
  JsonFacts facts;
  if (std::string wrong; !json_is_whole(text, &wrong, &facts)) return refuse(RpcError::kParse, "not JSON, " + wrong);
  const bool doubtful = facts.has_nul || facts.values > kLimitParameterValues;
  Reading reading{.catalogue = catalogue};
  const auto add = [&](std::string_view request) {
    ret_message.requests.push_back(read_request(request, reading));
    if (doubtful) refuse_unfit(ret_message.requests.back());
  };
  if (json_kind(text) != JsonKind::kArray) {
    text.remove_prefix(text.find_first_not_of(" \t\r\n"));
    return add(text);
  }
  text.remove_prefix(text.find('['));
  while (const auto element = json_next_element(text)) {
    if (ret_message.requests.size() == kRpcBatchMax)
      return refuse(RpcError::kLimit, "a batch holds at most " + std::to_string(kRpcBatchMax) + " requests");
    add(*element);
  }
  if (ret_message.requests.empty()) return refuse(RpcError::kInvalidRequest, "the batch is empty");
  ret_message.batch = true;
}

RpcError rpc_plugin_text(std::string_view parameter, std::string& ret_text, std::string& ret_error) {
  JsonFacts facts;
  if (std::string wrong; !json_is_whole(parameter, &wrong, &facts)) {
    ret_error = "not JSON, " + wrong;
    return RpcError::kParse;
  }
  if (json_kind(parameter) != JsonKind::kObject) {
    ret_error = "the parameter must be an object, such as {\"REQUEST\":\"MODIFY\",\"VALUE\":20}";
    return RpcError::kInvalidParams;
  }
  const RpcError refused = unfit(facts, ret_error);
  if (refused == RpcError::kNone) plugin_text(parameter, ret_text);
  return refused;
}

std::string rpc_error(std::string_view id, RpcError code, std::string_view message, std::string_view data) {
  std::string reply = "{\"jsonrpc\":\"2.0\",\"id\":";
  reply.append(id.empty() ? "null" : id).append(",");
  append_error(reply, code, message, data);
  reply += '}';
  return reply;
}

std::string rpc_result(std::string_view id, std::string_view result) {
  std::string reply;
  reply.reserve(id.size() + result.size() + 40);
  reply.append("{\"jsonrpc\":\"2.0\",\"id\":").append(id).append(",\"result\":").append(result);
  reply += '}';
  return reply;
}

void rpc_append_outcome(std::string& reply, std::string_view id, const Call& call, const Outcome& outcome) {
  if (outcome.not_kept != 0) {
    reply += rpc_error(id, RpcError::kPlatform, rpc_not_kept_message(outcome));
    return;
  }
  if (outcome.broken) {
    reply += rpc_error(id, RpcError::kBrokenText, rpc_broken_message(outcome), length_data(outcome.text));
    return;
  }
  if (outcome.departs) {
    reply += rpc_error(id, RpcError::kInvalidParams, outcome.warnings.front(), "{" + rpc_warnings(outcome) + "}");
    return;
  }
  if (call.kind == CallKind::kControl) {
    std::string_view rest = outcome.text;
    while (const auto member =
               json_kind(outcome.text) == JsonKind::kObject ? json_next_member(rest) : std::optional<JsonMember>())
      if (json_string_is(member->key, "error")) {
        reply += rpc_error(
            id, RpcError::kPlatform,
            json_kind(member->value) == JsonKind::kString ? json_string(member->value) : std::string(member->value));
        return;
      }
    reply += rpc_result(id, outcome.text);
    return;
  }

  reply.append("{\"jsonrpc\":\"2.0\",\"id\":").append(id).append(",\"result\":{\"ret\":");
  append_number(reply, outcome.ret);
  if (call.kind == CallKind::kGet)
    reply.append(",\"response\":").append(outcome.text.empty() ? "null" : std::string_view(outcome.text));
  if (call.traced) reply.append(",\"calls\":[").append(outcome.lines).append("]");
  if (outcome.ret != 0) reply.append(",\"reason\":").append(json_quote(outcome.reason));
  if (!outcome.warnings.empty()) reply.append(",").append(rpc_warnings(outcome));
  if (call.traced) append_log(reply, outcome.log);
  reply += "}}";
}

std::string rpc_warnings(const Outcome& outcome) {
  std::string text = "\"warnings\":[";
  for (const std::string& warning : outcome.warnings)
    text.append(&warning == outcome.warnings.data() ? "" : ",").append(json_quote(warning));
  return text + "]";
}

std::string rpc_unknown_uri(std::span<const std::string> among, std::string_view uri, std::string& ret_message) {
  std::string known;
  for (const std::string& near : nearest(uri, among, 5)) {
    if (!known.empty()) known += ',';
    known += json_quote(near);
  }
  const std::string_view shown = uri.substr(0, 256);
  ret_message = "\"" + std::string(shown) + "\" is not registered" +
                (known.empty() ? "; \"list\" returns all URIs" : "; did you mean " + known + "?");
  return "{\"uri\":" + json_quote(shown) + ",\"nearest\":[" + known + "]}";
}

std::string rpc_broken_message(const Outcome& outcome) {
  std::string wrong;
  json_is_whole(outcome.text, &wrong);
  return std::string("the plugin's text is ") +
         (outcome.text.size() >= DTV_JSP_RESPONSE_MAX ? "cut at its longest" : "not JSON") + ", " + wrong;
}

std::string rpc_not_kept_message(const Outcome& outcome) {
  return "the change is made, but not kept on the disk: " + std::generic_category().message(outcome.not_kept);
}

std::string rpc_notify(std::string_view uri, std::string_view text) {
  std::string notification;
  notification.reserve(uri.size() + text.size() + 80);
  notification.append("{\"jsonrpc\":\"2.0\",\"method\":\"notify\",\"params\":{\"uri\":\"").append(uri).append("\",");
  if (std::string wrong; json_is_whole(text, &wrong))
    notification.append("\"notification\":").append(text);
  else
    append_error(notification, RpcError::kBrokenText, "the plugin's text is not JSON, " + wrong, length_data(text));
  notification += "}}";
  return notification;
}

std::string rpc_trace(std::string_view line) {
  return std::string("{\"jsonrpc\":\"2.0\",\"method\":\"trace\",\"params\":").append(line).append("}");
}

std::string rpc_overflow(std::uint64_t dropped) {
  return "{\"jsonrpc\":\"2.0\",\"method\":\"overflow\",\"params\":{\"dropped\":" + std::to_string(dropped) + "}}";
}
