// Makes a conformance case of a record.
#include <map>

#include "record/record.h"

namespace json = boost::json;

namespace {

// The runner calls these itself before the first step.
constexpr std::string_view kStartedByRunner[] = {"a_dtv_jsp_init_res", "a_dtv_jsp_init"};

// Language libraries belong to the machine, not to the platform, and a case has none.
constexpr std::string_view kLanguageUri = "/tv/config/language_string";

struct Function {
  json::array params;
  json::array callback;
};
using Contract = std::map<std::string, Function, std::less<>>;

bool read_contract(std::string_view text, Contract& ret_contract) {
  json::error_code failure;
  const json::value list = json::parse(text, failure);
  if (failure || !list.is_array()) return false;
  for (const json::value& row : list.get_array()) {
    Function function{.params = row.at("params").as_array(), .callback = {}};
    if (const json::array* const callback = row.at("callback").if_array(); callback != nullptr)
      function.callback = *callback;
    ret_contract.emplace(row.at("name").as_string(), std::move(function));
  }
  return true;
}

// The values of named arguments in the order of the names; null for those that are left out.
void append_arguments(const json::array& names, const json::object& values, json::array& list) {
  for (const json::value& name : names) {
    const json::value* const value = values.if_contains(name.as_string());
    list.push_back(value == nullptr ? json::value() : *value);
  }
  while (!list.empty() && list.back().is_null()) list.pop_back();
}

// The first function of the step that the contract does not have; empty: it has all.
std::string unknown_function(const Contract& contract, const RecordStep& step) {
  const auto is_unknown = [&contract](const json::object* line, const char* key) {
    return !contract.contains(line->at(key).as_string());
  };
  if (step.kind == StepKind::kRaise && is_unknown(step.line, "event")) return step.name;
  for (const RecordCall& call : step.calls) {
    if (is_unknown(call.line, "call")) return std::string(call.line->at("call").as_string());
    for (const json::object* event : call.events)
      if (is_unknown(event, "event")) return std::string(event->at("event").as_string());
  }
  return {};
}

json::array call_check(const Contract& contract, const json::object& line) {
  json::array check{line.at("call")};
  append_arguments(contract.at(std::string(line.at("call").as_string())).params, line.at("in").as_object(), check);
  return check;
}

json::object raise_of(const Contract& contract, const json::object& event) {
  json::array arguments;
  append_arguments(contract.at(std::string(event.at("event").as_string())).callback, event.at("in").as_object(),
                   arguments);
  return {{"raise", event.at("event")}, {"args", std::move(arguments)}};
}

json::object answer_of(const Contract& contract, const RecordCall& call) {
  json::object answer{{"call", call.line->at("call")}, {"times", 1}};
  if (const json::object& in = call.line->at("in").as_object(); !in.empty()) answer["in"] = in;
  for (const char* const key : {"ret", "out"})
    if (const json::value* const value = call.line->if_contains(key); value != nullptr) answer[key] = *value;
  json::array raises;
  for (const json::object* event : call.events) raises.push_back(raise_of(contract, *event));
  if (!raises.empty()) answer["raise"] = std::move(raises);
  return answer;
}

void add_text_check(const json::object& line, const char* member, json::object& step) {
  const json::value* const text = line.if_contains(member);
  if (text != nullptr && text->is_string())
    step["text"] = *text;
  else if (const json::value* const bytes = line.if_contains("bytes"); bytes != nullptr)
    step["bytes"] = *bytes;
  else
    step["absent"] = true;
}

// The files of logos that a response names: the plugin has looked whether they exist, and read none.
void add_logos(const json::value& value, json::object& files) {
  constexpr std::string_view kLogos = "/3rd_rw/ChLogo/";
  if (const json::string* const text = value.if_string(); text != nullptr && text->starts_with(kLogos))
    files[*text] = "";
  else if (const json::array* const array = value.if_array(); array != nullptr)
    for (const json::value& each : *array) add_logos(each, files);
  else if (const json::object* const object = value.if_object(); object != nullptr)
    for (const auto& [key, each] : *object) add_logos(each, files);
}

void add_logos_of(const RecordStep& step, json::object& files) {
  const json::value* const response = step.kind == StepKind::kGet ? step.line->if_contains("response") : nullptr;
  json::error_code failure;
  const json::value parsed =
      response != nullptr && response->is_string() ? json::parse(response->get_string(), failure) : json::value();
  if (!failure) add_logos(parsed, files);
}

json::object step_of(const Contract& contract, const RecordStep& recorded) {
  const json::object& line = *recorded.line;
  json::object step;
  switch (recorded.kind) {
    case StepKind::kStart:
      step = {{"call", recorded.name}, {"in", json::array()}};
      break;
    case StepKind::kGet:
      step["get"] = recorded.name;
      break;
    case StepKind::kSet:
      step["set"] = recorded.name;
      break;
    case StepKind::kSubscribe:
      step["subscribe"] = recorded.name;
      break;
    case StepKind::kUnsubscribe:
      step["unsubscribe"] = recorded.name;
      break;
    case StepKind::kFetch:
      step = {{"fetch", recorded.name}, {"length", 262144}};
      break;
    case StepKind::kRaise:
      step = raise_of(contract, line);
      break;
  }
  if (const json::value* const param = line.if_contains("param"); param != nullptr) step["param"] = *param;
  if (const json::value* const ret = line.if_contains("ret"); ret != nullptr) step["ret"] = *ret;
  if (recorded.kind == StepKind::kGet) add_text_check(line, "response", step);
  if (recorded.kind == StepKind::kFetch) add_text_check(line, "notification", step);
  return step;
}

json::array checks_of(const Contract& contract, const RecordStep& step) {
  json::array checks;
  for (const RecordCall& call : step.calls) checks.push_back(call_check(contract, *call.line));
  return checks;
}

// Boost.JSON puts a text on one line; a case is read by people, so that each answer and each step gets a line. They are
// written at once: as JSON values, those of a long record would take many times its size.
struct Lines {
  std::string_view indent;
  std::string text = "[";
};

void add(Lines& lines, const json::value& value) {
  lines.text += lines.text.size() == 1 ? "\n" : ",\n";
  lines.text += lines.indent;
  lines.text += json::serialize(value);
}

}  // namespace

bool record_case(const Record& record, std::string_view contract_text, std::string_view name, std::string& ret_case,
                 std::vector<std::string>& ret_left_out, std::string& ret_error) {
  Contract contract;
  if (!read_contract(contract_text, contract)) {
    ret_error = "the tap's list of functions cannot be read";
    return false;
  }
  Lines start_calls{.indent = "   "};
  Lines answers{.indent = "   "};
  Lines steps{.indent = "   "};
  json::object files;
  std::size_t started = 0;
  std::size_t language = 0;
  for (const RecordStep& step : record.steps) {
    if (const std::string unknown = unknown_function(contract, step); !unknown.empty()) {
      ret_error = "the TV API has no function " + unknown;
      return false;
    }
    if (step.kind == StepKind::kGet && step.name == kLanguageUri) {
      ++language;
      continue;
    }
    for (const RecordCall& call : step.calls) add(answers, answer_of(contract, call));
    json::array checks = checks_of(contract, step);
    if (started < std::size(kStartedByRunner) && step.kind == StepKind::kStart &&
        step.name == kStartedByRunner[started]) {
      ++started;
      for (const json::value& check : checks) add(start_calls, check);
      continue;
    }
    add_logos_of(step, files);
    json::object shown = step_of(contract, step);
    shown["calls"] = std::move(checks);
    add(steps, shown);
  }
  if (started < std::size(kStartedByRunner)) {
    ret_error = "the record does not begin with the plugin's start";
    return false;
  }
  if (record.counts.requests + record.counts.notifications == 0) {
    ret_error = "the record has no request and no notification";
    return false;
  }
  if (language > 0)
    ret_left_out.push_back(std::to_string(language) +
                           " requests for language strings, since a case has no language library");
  Lines notes{.indent = "  "};
  for (const std::string& each : ret_left_out) add(notes, json::value(each));
  ret_case = "{";
  if (!ret_left_out.empty()) ret_case += "\"notes\":" + notes.text + "],\n ";
  ret_case += "\"cases\":[\n {\"name\":" + json::serialize(json::string(name)) + ",\n  \"device\":";
  ret_case += record.device ? "true" : "false";
  if (!files.empty()) ret_case += ",\n  \"files\":" + json::serialize(files);
  for (const auto& [member, lines] : {std::pair("calls", &start_calls), {"platform", &answers}, {"steps", &steps}}) {
    ret_case += std::string(",\n  \"") + member + "\":";
    ret_case += lines->text;
    ret_case += "]";
  }
  ret_case += "}]}\n";
  return true;
}
