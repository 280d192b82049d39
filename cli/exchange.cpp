// "get" and "set": sends the request, prints the reply, and says on standard error what was wrong with it.
#include <boost/json.hpp>

#include "dtvctl.h"

namespace json = boost::json;

namespace {

bool take_result(const std::string& answer, std::int64_t& ret_result, Failure& ret_failure) {
  json::value value;
  const std::optional<std::string_view> text = json_member(answer, "ret");
  if (text && json_parse(*text, value) && value.is_int64()) {
    ret_result = value.get_int64();
    return true;
  }
  ret_failure = {kExitProtocol, "the answer has no \"ret\": " + answer.substr(0, 200)};
  return false;
}

// The elements of an array of a reply; none if it has no such array.
json::array elements(const std::string& answer, std::string_view key) {
  json::value value;
  const std::optional<std::string_view> text = json_member(answer, key);
  if (!text || !json_parse(*text, value) || !value.is_array()) return {};
  return std::move(value.get_array());
}

void say(const std::string& line) { std::fprintf(stderr, "%s\n", line.c_str()); }

// What a reply has besides its result: the calls and the log of --trace, and the warnings.
void say_more(const std::string& answer) {
  for (const json::value& call : elements(answer, "calls"))
    say(call.is_object() ? trace_line(call.get_object()) : printable(json::serialize(call)));
  for (const json::value& line : elements(answer, "log"))
    if (line.is_string()) say(printable(line.get_string()));
  for (const json::value& warning : elements(answer, "warnings"))
    if (warning.is_string())
      say(paint(Paint::kError, "dtvctl: warning:", stderr) + " " + printable(warning.get_string()));
}

// Reports a result other than 0: what was wrong and what would be right, as the host says it.
int refused(const std::string& answer, std::int64_t result, Failure& ret_failure) {
  json::value reason;
  const std::optional<std::string_view> text = json_member(answer, "reason");
  const std::string answered = "the set answered " + std::to_string(result);
  const bool told = text && json_parse(*text, reason) && reason.is_string() && !reason.get_string().empty();
  ret_failure = {kExitRefused, told ? printable(reason.get_string()) + " (" + answered + ")" : answered};
  return kExitRefused;
}

// Sends a get or a set. A refused one prints nothing but with --json.
int exchange(const Options& options, Session& session, std::string_view method, const std::string& uri,
             const std::string& parameter, const std::function<void(const std::string& answer)>& print,
             Failure& ret_failure) {
  std::string params = R"({"uri":)" + json_text(uri);
  if (!parameter.empty()) params += R"(,"parameter":)" + parameter;
  if (options.strict) params += R"(,"strict":true)";
  if (options.trace) params += R"(,"trace":true)";
  std::string answer;
  std::int64_t result = 0;
  if (!session.call(method, params + "}", answer, ret_failure) || !take_result(answer, result, ret_failure))
    return ret_failure.exit_code;
  if (options.json)
    print_line(answer);
  else if (result == 0)
    print(answer);
  say_more(answer);
  return result == 0 ? kExitOk : refused(answer, result, ret_failure);
}

Describe describer(Session& session) {
  return [&session](json::value& ret_description, Failure& ret_failure) {
    return describe(session, ret_description, ret_failure);
  };
}

}  // namespace

int run_get(const Options& options, Session& session, ShellWords words, Failure& ret_failure) {
  const auto first = std::ranges::find_if(words, [](const std::string& word) { return !word.starts_with('/'); });
  const ShellWords uris = words.first(static_cast<std::size_t>(first - words.begin()));
  const auto print = [](const std::string& answer) {
    json::value response;
    const std::optional<std::string_view> text = json_member(answer, "response");
    if (text && json_parse(*text, response) && response.is_object()) print_response(response.get_object());
  };
  bool any_refused = false;
  for (const std::string& uri : uris) {
    std::string parameter;
    Failure failure;
    if (build_get_parameter(uri, words.subspan(uris.size()), describer(session), parameter, failure))
      exchange(options, session, "get", uri, parameter, print, failure);
    if (failure.exit_code == kExitOk) continue;
    if (uris.size() > 1) failure.text = uri + ": " + failure.text;
    if (failure.exit_code != kExitRefused || uris.size() == 1) {
      ret_failure = failure;
      return failure.exit_code;
    }
    complain(failure);
    any_refused = true;
  }
  return any_refused ? kExitRefused : kExitOk;
}

int run_set(const Options& options, Session& session, ShellWords words, Failure& ret_failure) {
  const std::string& uri = words[0];
  std::string parameter;
  if (!build_set_parameter(uri, words.subspan(1), describer(session), parameter, ret_failure))
    return ret_failure.exit_code;
  const auto print = [](const std::string&) { print_line("ok"); };
  return exchange(options, session, "set", uri, parameter, print, ret_failure);
}
