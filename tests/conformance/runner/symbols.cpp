#include "runner/symbols.h"

#include <algorithm>
#include <iterator>
#include <utility>
#include <vector>

#include "runner/exports.h"
#include "runner/raw_json.h"
#include "vex_tv_ctrl.h"

namespace runner {
namespace {

struct Symbol {
  std::string_view name;
  int value;
};

// No name occurs twice: each is an enumerator, and no row's name begins with "TYPE_".
constexpr Symbol kSymbols[] = {
#define TVC_URI(group, record, name, uri, type) {#name, tvc_id(TV_CTRL_GRPID_##group, TV_CTRL_RECID_##name)},
#define TVC_NAME(group, record, name) {#name, tvc_id(TV_CTRL_GRPID_##group, TV_CTRL_RECID_##name)},
#include "vex_tv_ctrl/uris.def"
#define TVC_ITEM_TYPE(name, number) {"TYPE_" #name, TYPE_##name},
#include "vex_tv_ctrl/uris.def"
};

// How many characters must be added, removed or replaced to make one of the other.
std::size_t distance(std::string_view left, std::string_view right) {
  std::vector<std::size_t> row(right.size() + 1);
  for (std::size_t j = 0; j <= right.size(); ++j) row[j] = j;
  for (std::size_t i = 1; i <= left.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i;
    for (std::size_t j = 1; j <= right.size(); ++j) {
      const std::size_t replaced = diagonal + (left[i - 1] == right[j - 1] ? 0 : 1);
      diagonal = row[j];
      row[j] = std::min({replaced, row[j] + 1, row[j - 1] + 1});
    }
  }
  return row.back();
}

bool is_decimal(std::string_view digits) {
  if (digits.starts_with('-')) digits.remove_prefix(1);
  return !digits.empty() && digits.find_first_not_of("0123456789") == std::string_view::npos;
}

// Appends a number, or the number of a name.
bool append_number(std::string_view value, std::string& json, std::string& ret_error) {
  if (!raw_is_text(value) || is_decimal(raw_content(value))) {
    json.append(value);
    return true;
  }
  const std::string_view name = raw_content(value);
  const auto found =
      std::find_if(std::begin(kSymbols), std::end(kSymbols), [&](const Symbol& symbol) { return symbol.name == name; });
  if (found == std::end(kSymbols)) {
    std::vector<std::string_view> names;
    for (const Symbol& symbol : kSymbols) names.push_back(symbol.name);
    ret_error = "there is no name " + in_quotes(name) + "; the nearest is " + in_quotes(nearest_name(name, names));
    return false;
  }
  json.append(std::to_string(found->value));
  return true;
}

// Whether an argument is an identifier or an item type. A wider integer can carry the address of a text.
bool takes_symbol(const ArgumentKind& kind) {
  return kind.type != nullptr && kind.type->shape == tap::Shape::kInteger && kind.type->size <= 2;
}

// The record that an argument names; fallback when it names none.
const tap::Type* record_of(std::string_view argument, const tap::Type* fallback) {
  const std::string_view name = raw_is_object(argument) ? raw_member(argument, "record") : std::string_view();
  return raw_is_text(name) ? tap::find_record(raw_content(name)) : fallback;
}

bool has_identifier(const tap::Type* record) {
  return record != nullptr && std::any_of(record->fields.begin(), record->fields.end(), [](const tap::Field& field) {
           return std::string_view(field.name) == "id" && field.type->shape == tap::Shape::kInteger;
         });
}

// Appends a record, whose "id" can be a name.
bool append_record(std::string_view object, std::string& json, std::string& ret_error) {
  json.push_back('{');
  const char* separator = "";
  for (const auto& [key, value] : raw_children(object)) {
    json.append(std::exchange(separator, ",")).append(in_quotes(key)).append(":");
    if (key != "id") {
      json.append(value);
    } else if (!append_number(value, json, ret_error)) {
      return false;
    }
  }
  json.push_back('}');
  return true;
}

// Appends "in" or "after". in: the arguments of the call, which name the records that "after" compares.
bool append_arguments(const Export& exported, std::string_view array, std::string_view in, std::string& json,
                      std::string& ret_error) {
  const auto arguments = raw_children(array);
  const auto before = raw_children(in);
  json.push_back('[');
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string_view value = arguments[i].second;
    const tap::Type* record = record_of(value, i < before.size() ? record_of(before[i].second, nullptr) : nullptr);
    if (i > 0) json.push_back(',');
    bool good = true;
    if (i < exported.arguments.size() && takes_symbol(exported.arguments[i])) {
      good = append_number(value, json, ret_error);
    } else if (raw_is_object(value) && has_identifier(record)) {
      good = append_record(value, json, ret_error);
    } else {
      json.append(value);
    }
    if (!good) {
      ret_error = "argument " + std::to_string(i) + ": " + ret_error;
      return false;
    }
  }
  json.push_back(']');
  return true;
}

}  // namespace

std::string_view nearest_name(std::string_view name, std::span<const std::string_view> names) {
  return *std::min_element(names.begin(), names.end(), [&](std::string_view one, std::string_view other) {
    return distance(one, name) < distance(other, name);
  });
}

bool append_without_symbols(std::string_view step, std::string& json, std::string& ret_error) {
  const std::string_view function = raw_is_object(step) ? raw_member(step, "call") : std::string_view();
  const Export* exported = raw_is_text(function) ? find_export(raw_content(function)) : nullptr;
  if (exported == nullptr) {
    json.append(step);
    return true;
  }
  json.push_back('{');
  const char* separator = "";
  for (const auto& [key, value] : raw_children(step)) {
    json.append(std::exchange(separator, ",")).append(in_quotes(key)).append(":");
    bool good = true;
    if ((key == "in" || key == "after") && raw_is_array(value)) {
      good = append_arguments(*exported, value, raw_member(step, "in"), json, ret_error);
    } else if (key == "ret") {
      good = append_number(value, json, ret_error);
    } else {
      json.append(value);
    }
    if (!good) {
      ret_error = in_quotes(key) + ": " + ret_error;
      return false;
    }
  }
  json.push_back('}');
  return true;
}

}  // namespace runner
