// Compares what a replay gave with the record.
#include <algorithm>

#include "base/text.h"
#include "record/record.h"

namespace json = boost::json;

namespace {

constexpr std::size_t kLongestShown = 300;  // bytes of a value in a message

std::string shown(const std::string& text) {
  if (text.size() <= kLongestShown) return text;
  return std::string(utf8_cut(text, kLongestShown)) + "... (" + std::to_string(text.size()) + " bytes)";
}

std::string difference(std::string_view place, const json::value& was, const json::value& is) {
  return std::string(place) + ": was " + shown(json::serialize(was)) + ", is " + shown(json::serialize(is));
}

// The first difference of two values, down to the member; an empty text where they are equal.
std::string compare_values(const std::string& place, const json::value& was, const json::value& is) {
  if (was.is_object() && is.is_object()) {
    for (const auto& [key, value] : was.get_object()) {
      const json::value* const other = is.get_object().if_contains(key);
      const std::string inner = place + "." + std::string(key);
      if (other == nullptr) return inner + ": was " + shown(json::serialize(value)) + ", is missing";
      if (std::string found = compare_values(inner, value, *other); !found.empty()) return found;
    }
    for (const auto& [key, value] : is.get_object())
      if (!was.get_object().contains(key))
        return place + "." + std::string(key) + ": was missing, is " + shown(json::serialize(value));
    return {};
  }
  if (was.is_array() && is.is_array()) {
    const json::array& left = was.get_array();
    const json::array& right = is.get_array();
    for (std::size_t i = 0; i < std::min(left.size(), right.size()); ++i) {
      const std::string inner = place + "[" + std::to_string(i) + "]";
      if (std::string found = compare_values(inner, left[i], right[i]); !found.empty()) return found;
    }
    if (left.size() == right.size()) return {};
    return place + ": was " + std::to_string(left.size()) + " elements, is " + std::to_string(right.size());
  }
  return was == is ? std::string() : difference(place, was, is);
}

// Two texts that should be the same byte for byte; the message names the member if both are JSON.
std::string compare_texts(const std::string& place, const std::string& was, const std::string& is) {
  if (was == is) return {};
  json::error_code wrong_was;
  json::error_code wrong_is;
  const json::value left = json::parse(was, wrong_was);
  const json::value right = json::parse(is, wrong_is);
  if (!wrong_was && !wrong_is)
    if (std::string found = compare_values(place, left, right); !found.empty()) return found;
  return difference(place, json::value(was), json::value(is));
}

void compare_text(const RecordStep& step, const char* member, const RecordOutcome& outcome,
                  std::vector<std::string>& differences) {
  if (const json::value* const bytes = step.line->if_contains("bytes"); bytes != nullptr) {
    if (*bytes != json::value(outcome.text.size()))
      differences.push_back(difference("bytes", *bytes, json::value(outcome.text.size())));
    return;
  }
  const json::value* const text = step.line->if_contains(member);
  const std::string was = text != nullptr && text->is_string() ? std::string(text->get_string()) : std::string();
  if (std::string found = compare_texts(member, was, outcome.text); !found.empty()) differences.push_back(found);
}

std::string call_text(const json::object& line) {
  return std::string(line.at("call").as_string()) + json::serialize(line.at("in"));
}

void compare_calls(const RecordStep& step, const RecordOutcome& outcome, std::vector<std::string>& differences) {
  std::vector<const json::object*> was;
  for (const RecordCall& call : step.calls)
    if (call.own) was.push_back(call.line);
  for (std::size_t i = 0; i < std::max(was.size(), outcome.calls.size()); ++i) {
    const std::string place = "call " + std::to_string(i + 1);
    if (i >= was.size())
      differences.push_back(place + ": was none, is " + shown(call_text(outcome.calls[i])));
    else if (i >= outcome.calls.size())
      differences.push_back(place + ": was " + shown(call_text(*was[i])) + ", is none");
    else if (was[i]->at("call") != outcome.calls[i].at("call"))
      differences.push_back(place + ": was " + shown(call_text(*was[i])) + ", is " +
                            shown(call_text(outcome.calls[i])));
    else if (std::string found = compare_values(place + ", " + std::string(was[i]->at("call").as_string()),
                                                was[i]->at("in"), outcome.calls[i].at("in"));
             !found.empty())
      differences.push_back(std::move(found));
    else
      continue;
    return;  // the calls after a different one would only repeat it
  }
}

}  // namespace

std::vector<std::string> record_compare(const RecordStep& step, const RecordOutcome& outcome) {
  std::vector<std::string> differences;
  const json::value* const ret = step.line->if_contains("ret");
  if (step.kind != StepKind::kRaise && ret != nullptr && *ret != json::value(outcome.ret))
    differences.push_back(difference("ret", *ret, json::value(outcome.ret)));
  if (step.kind == StepKind::kGet) compare_text(step, "response", outcome, differences);
  if (step.kind == StepKind::kFetch) compare_text(step, "notification", outcome, differences);
  compare_calls(step, outcome, differences);
  return differences;
}
