#include <boost/json.hpp>

#include "dtvctl.h"
#include "json_text.h"

std::optional<std::string_view> json_member(std::string_view object, std::string_view key) {
  if (json_kind(object) != JsonKind::kObject) return std::nullopt;
  while (const std::optional<JsonMember> member = json_next_member(object)) {
    if (json_string_is(member->key, key)) return member->value;
  }
  return std::nullopt;
}

bool json_parse(std::string_view text, boost::json::value& ret_value) {
  boost::json::parse_options options;
  options.max_depth = kJsonMaxDepth;
  boost::json::error_code failed;
  boost::json::value value = boost::json::parse(text, failed, {}, options);
  if (failed) return false;
  ret_value = std::move(value);
  return true;
}

const boost::json::value* member(const boost::json::object& object, std::string_view key) {
  const boost::json::value* const value = object.if_contains(key);
  return value == nullptr || value->is_null() ? nullptr : value;
}

const boost::json::value* member(const boost::json::value* value, std::string_view key) {
  return value != nullptr && value->is_object() ? member(value->get_object(), key) : nullptr;
}

std::string json_text(std::string_view text) { return boost::json::serialize(boost::json::string(text)); }
