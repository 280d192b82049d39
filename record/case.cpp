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

// Boost.JSON puts a text on one line; a case is read by people, so that each answer and each step gets a line.
std::string lines_of(std::string_view indent, const json::array& list) {
  std::string text = "[";
  for (const json::value& value : list) {
    text += &value == list.begin() ? "\n" : ",\n";
    text += indent;
    text += json::serialize(value);
  }
  return text + "]";
}

}  // namespace

bool record_case(const Record& record, std::string_view contract_text, std::string_view name, std::string& ret_case,
                 std::vector<std::string>& ret_left_out, std::string& ret_error) {
  Contract contract;
  if (!read_contract(contract_text, contract)) {
    ret_error = "the tap's list of functions cannot be read";
    return false;
  }
  json::array start_calls;
  json::array answers;
  json::array steps;
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
    for (const RecordCall& call : step.calls) answers.push_back(answer_of(contract, call));
    json::array checks = checks_of(contract, step);
    if (started < std::size(kStartedByRunner) && step.kind == StepKind::kStart &&
        step.name == kStartedByRunner[started]) {
      ++started;
      start_calls.insert(start_calls.end(), checks.begin(), checks.end());
      continue;
    }
    json::object shown = step_of(contract, step);
    shown["calls"] = std::move(checks);
    steps.push_back(std::move(shown));
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
  ret_case = "{\"cases\":[\n {\"name\":" + json::serialize(json::string(name)) +
             ",\n  \"device\":" + (record.device ? "true" : "false") +
             ",\n  \"calls\":" + lines_of("   ", start_calls) + ",\n  \"platform\":" + lines_of("   ", answers) +
             ",\n  \"steps\":" + lines_of("   ", steps) + "}]}\n";
  return true;
}
