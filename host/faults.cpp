#include "faults.h"

#include <stdlib.h>

#include <algorithm>
#include <boost/json.hpp>
#include <limits>
#include <string_view>

#include "base/text.h"
#include "nearest.h"

namespace json = boost::json;

namespace {

json::array contract_list(const Stack& stack) {
  char* const text = stack.contract();
  const std::string list = text != nullptr ? text : "";
  free(text);
  return json::parse(list).as_array();
}

std::string no_tap() { return stack_error("faults need the tap, and this process runs without it"); }

constexpr const char* kFaultUsage =
    "usage: fault FUNCTION [--delay MS] [--fail [RESULT]] [--drop-callback] [--repeat-callback TIMES] | "
    "fault FUNCTION --clear | fault --clear";

// A callback that is repeated without end would keep the platform's thread for ever.
constexpr std::int32_t kMostRepeats = 1000;

std::string quoted(std::string_view word) { return "\"" + std::string(word) + "\""; }

// An option, what it wants, and an example of it.
std::string wants(const std::string& option, const std::string& what, std::string_view example,
                  std::string_view value) {
  return option + " wants " + what + ", such as " + option + " " + std::string(example) +
         (value.empty() ? "; nothing follows it" : ", not " + quoted(value));
}

std::string no_option(const std::string& word) {
  const std::vector<std::string> options{"--delay", "--fail", "--drop-callback", "--repeat-callback"};
  const std::vector<std::string> near = word.starts_with("--") ? nearest(word, options, 1) : std::vector<std::string>();
  if (!near.empty()) return "a fault has no option " + quoted(word) + "; did you mean " + near[0] + "?";
  return quoted(word) + " is not a fault; " + kFaultUsage;
}

// Reads the words after "fault FUNCTION". Returns what is wrong with them, or an empty text.
std::string read_fault(std::span<const std::string> words, dtv_tap_fault_t& ret_fault) {
  dtv_tap_fault_t fault{};
  for (std::size_t i = 0; i < words.size(); ++i) {
    const std::string& option = words[i];
    const bool has_value = i + 1 < words.size() && !words[i + 1].starts_with("--");
    const std::string_view value = has_value ? words[i + 1] : std::string_view();
    if (option == "--delay") {
      const auto delay = parse_number_within(value, 0, std::numeric_limits<std::int32_t>::max());
      if (!delay) return wants(option, "milliseconds, 0 or more", "500", value);
      fault.delay_ms = *delay;
    } else if (option == "--fail") {
      const auto result = parse_number<std::int32_t>(value);
      if (has_value && !result) return wants(option, "the result as a number, or nothing for -1", "-3", value);
      fault.fails = 1;
      fault.result = result.value_or(-1);
    } else if (option == "--drop-callback") {
      if (has_value) return option + " takes no value, and drops all callbacks; --repeat-callback takes a number";
      fault.drop_callback = 1;
    } else if (option == "--repeat-callback") {
      const auto times = parse_number_within(value, 2, kMostRepeats);
      if (!times)
        return wants(option, "how often a callback arrives, from 2 to " + std::to_string(kMostRepeats), "3", value);
      fault.repeat_callback = *times;
    } else if (option == "--clear") {
      return "--clear stands alone behind the function; without --clear, the fault replaces the function's earlier one";
    } else {
      return no_option(option);
    }
    i += has_value ? 1 : 0;
  }
  if (words.empty()) return std::string("no fault given; ") + kFaultUsage;
  if (fault.drop_callback != 0 && fault.repeat_callback != 0)
    return "a callback that is dropped cannot be repeated; give --drop-callback or --repeat-callback, not both";
  ret_fault = fault;
  return {};
}

std::string unknown_function(const json::array& contract, const std::string& name) {
  std::vector<std::string> functions;
  for (const json::value& function : contract) functions.emplace_back(function.at("name").as_string());
  std::string text = "the TV API has no function " + quoted(name);
  const std::vector<std::string> names = nearest(name, functions, 3);
  if (!names.empty()) text += "; nearest:";
  for (const std::string& near : names) text += " " + near;
  return stack_error(text);
}

// "a_vextvapi_AREA_": functions of an area share it.
std::string_view area_of(std::string_view function) {
  std::size_t end = 0;
  for (int words = 0; words < 3 && end != std::string_view::npos; ++words) end = function.find('_', end) + 1;
  return function.substr(0, end);
}

// Names the functions of the same area that do register a callback.
std::string no_callback(const json::array& contract, const std::string& name) {
  constexpr std::size_t kMostNamed = 3;
  std::vector<std::string> others;
  for (const json::value& function : contract)
    if (!function.at("callback").is_null() && area_of(function.at("name").as_string()) == area_of(name))
      others.emplace_back(function.at("name").as_string());
  std::string text = name + " registers no callback, so that only --delay and --fail are possible; ";
  if (others.empty() || others.size() > kMostNamed)
    return stack_error(text + "\"faults functions\" shows which functions register one");
  for (const std::string& other : others) text += (&other == &others.front() ? "" : ", ") + other;
  return stack_error(text + (others.size() == 1 ? " registers one" : " register one"));
}

}  // namespace

std::string fault_command(const Stack& stack, std::span<const std::string> words) {
  if (stack.fault == nullptr) return no_tap();
  if (words.size() == 1 && words[0] == "--clear") {
    stack.fault(nullptr, nullptr);
    return "{}";
  }
  if (words.empty()) return stack_error(kFaultUsage);
  if (words[0].starts_with("--")) return stack_error(std::string("the function comes first; ") + kFaultUsage);

  const std::string& function = words[0];
  const bool clears = words.size() == 2 && words[1] == "--clear";
  dtv_tap_fault_t fault{};
  if (!clears)
    if (std::string wrong = read_fault(words.subspan(1), fault); !wrong.empty()) return stack_error(wrong);
  const json::array contract = contract_list(stack);
  const auto row =
      std::ranges::find_if(contract, [&](const json::value& each) { return each.at("name").as_string() == function; });
  if (row == contract.end()) return unknown_function(contract, function);
  if ((fault.drop_callback != 0 || fault.repeat_callback != 0) && row->at("callback").is_null())
    return no_callback(contract, function);
  stack.fault(function.c_str(), clears ? nullptr : &fault);
  const json::value& before = row->at("fault");
  return clears || before.is_null() ? "{}" : json::serialize(json::object{{"replaced", before}});
}

namespace {

std::string list_faults(const Stack& stack) {
  json::object faults;
  for (const json::value& function : contract_list(stack))
    if (const json::value& fault = function.at("fault"); !fault.is_null())
      faults.emplace(function.at("name").as_string(), fault);
  return json::serialize(json::object{{"faults", std::move(faults)}});
}

// The functions whose names contain every word, with their parameters and those of their callbacks.
std::string list_functions(const Stack& stack, std::span<const std::string> words) {
  json::array functions;
  const json::array contract = contract_list(stack);
  for (const json::value& function : contract) {
    const std::string_view name = function.at("name").as_string();
    if (!std::ranges::all_of(words, [&](const std::string& word) { return contains_ignoring_case(name, word); }))
      continue;
    functions.push_back(
        json::object{{"name", name}, {"params", function.at("params")}, {"callback", function.at("callback")}});
  }
  if (functions.empty()) return unknown_function(contract, words[0]);
  return json::serialize(json::object{{"functions", std::move(functions)}});
}

}  // namespace

std::string faults_command(const Stack& stack, std::span<const std::string> words) {
  if (stack.contract == nullptr) return no_tap();
  if (words.empty()) return list_faults(stack);
  if (words[0] == "functions") return list_functions(stack, words.subspan(1));
  return stack_error("usage: faults | faults functions [TEXT...]");
}
