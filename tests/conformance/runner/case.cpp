#include "runner/case.h"

#include <algorithm>
#include <fstream>
#include <set>
#include <span>
#include <sstream>

#include "runner/expand.h"
#include "runner/exports.h"
#include "runner/language.h"
#include "runner/raw_json.h"
#include "sandbox/device.h"

namespace runner {
namespace {

enum class Value { kAny, kText, kTextOrNull, kInteger, kNatural, kFlag, kObject, kArray, kTexts, kNothing, kWordBits };

struct Member {
  std::string_view name;
  Value value;
};

const char* value_name(Value value) {
  switch (value) {
    case Value::kAny:
      return "any value";
    case Value::kText:
      return "a text";
    case Value::kTextOrNull:
      return "a text or null";
    case Value::kInteger:
      return "a whole number";
    case Value::kNatural:
      return "a whole number, 0 or more";
    case Value::kFlag:
      return "true or false";
    case Value::kObject:
      return "an object";
    case Value::kArray:
      return "an array";
    case Value::kTexts:
      return "an array of texts";
    case Value::kNothing:
      return "null";
    case Value::kWordBits:
      return "32 or 64";
  }
  return "";
}

bool is_value(const cJSON* json, Value value) {
  tap::Integer number;
  switch (value) {
    case Value::kAny:
      return true;
    case Value::kText:
      return cJSON_IsString(json);
    case Value::kTextOrNull:
      return cJSON_IsString(json) || cJSON_IsNull(json);
    case Value::kInteger:
      return !cJSON_IsBool(json) && tap::json_to_integer(json, number);
    case Value::kNatural:
      return cJSON_IsNumber(json) && tap::json_to_integer(json, number) && !number.negative;
    case Value::kFlag:
      return cJSON_IsBool(json);
    case Value::kObject:
      return cJSON_IsObject(json);
    case Value::kArray:
      return cJSON_IsArray(json);
    case Value::kNothing:
      return cJSON_IsNull(json);
    case Value::kWordBits:
      return is_word_bits(json);
    case Value::kTexts: {
      const cJSON* element = nullptr;
      cJSON_ArrayForEach(element, json) {
        if (!cJSON_IsString(element)) return false;
      }
      return cJSON_IsArray(json);
    }
  }
  return false;
}

constexpr Member kCaseMembers[] = {
    {"name", Value::kText},        {"files", Value::kObject}, {"device", Value::kFlag},
    {"libraries", Value::kObject}, {"start", Value::kFlag},   {"platform", Value::kArray},
    {"steps", Value::kArray},      {"calls", Value::kArray},  {"word_bits", Value::kWordBits}};

// The checks that every step may have.
constexpr Member kGeneralChecks[] = {{"calls", Value::kArray}, {"log", Value::kTexts},     {"log_has", Value::kTexts},
                                     {"err", Value::kTexts},   {"err_has", Value::kTexts}, {"device", Value::kText}};

constexpr Member kBufferChecks[] = {{"ret", Value::kInteger},
                                    {"text", Value::kText},
                                    {"json", Value::kAny},
                                    {"absent", Value::kFlag},
                                    {"bytes", Value::kNatural}};
constexpr Member kRetCheck[] = {{"ret", Value::kInteger}};
constexpr Member kCallChecks[] = {{"ret", Value::kInteger}, {"after", Value::kArray}};

constexpr Member kGetMembers[] = {{"param", Value::kAny}, {"buffer", Value::kNothing}};
constexpr Member kSetMembers[] = {{"param", Value::kAny}};
constexpr Member kFetchMembers[] = {{"length", Value::kInteger}, {"buffer", Value::kNothing}};
constexpr Member kRaiseMembers[] = {{"args", Value::kArray}};
constexpr Member kCallMembers[] = {{"in", Value::kArray}};

struct StepKind {
  std::string_view name;
  Value value;
  std::span<const Member> members;
  std::span<const Member> checks;
};

constexpr StepKind kStepKinds[] = {
    {"get", Value::kTextOrNull, kGetMembers, kBufferChecks},
    {"set", Value::kTextOrNull, kSetMembers, kRetCheck},
    {"subscribe", Value::kTextOrNull, {}, kRetCheck},
    {"unsubscribe", Value::kTextOrNull, {}, kRetCheck},
    {"fetch", Value::kTextOrNull, kFetchMembers, kBufferChecks},
    {"raise", Value::kText, kRaiseMembers, kRetCheck},
    {"call", Value::kText, kCallMembers, kCallChecks},
};

const StepKind* kind_named(std::string_view name) {
  const auto found =
      std::find_if(std::begin(kStepKinds), std::end(kStepKinds), [&](const StepKind& k) { return k.name == name; });
  return found == std::end(kStepKinds) ? nullptr : found;
}

const Member* member_named(std::span<const Member> members, std::string_view name) {
  const auto found = std::find_if(members.begin(), members.end(), [&](const Member& m) { return m.name == name; });
  return found == members.end() ? nullptr : &*found;
}

std::string names(std::span<const Member> members) {
  std::string text;
  for (const Member& member : members) text += (text.empty() ? "" : ", ") + std::string(member.name);
  return text;
}

std::string wrong_value(std::string_view name, Value value) {
  return "\"" + std::string(name) + "\" must be " + value_name(value);
}

std::string duplicate_member(const cJSON* object) {
  std::set<std::string_view> seen;
  const cJSON* member = nullptr;
  cJSON_ArrayForEach(member, object) {
    if (!seen.insert(member->string).second) return "\"" + std::string(member->string) + "\" stands twice";
  }
  return {};
}

std::string check_calls(const cJSON* calls, const Contract& contract) {
  const cJSON* call = nullptr;
  cJSON_ArrayForEach(call, calls) {
    if (!cJSON_IsArray(call) || !cJSON_IsString(call->child)) {
      return "\"calls\": each entry must be an array: a platform function's name, then its arguments";
    }
    const auto function = contract.find(std::string_view(call->child->valuestring));
    if (function == contract.end()) {
      return "\"calls\": the contract has no function \"" + std::string(call->child->valuestring) + "\"";
    }
    if (static_cast<std::size_t>(cJSON_GetArraySize(call)) > function->second.params.size() + 1) {
      return "\"calls\": " + function->first + " has only " + std::to_string(function->second.params.size()) +
             " arguments";
    }
  }
  return {};
}

std::string check_call_step(const cJSON* step, const cJSON* action) {
  const Export* exported = find_export(action->valuestring);
  if (exported == nullptr) return "there is no exported function \"" + std::string(action->valuestring) + "\"";
  if (!exported->has_result && cJSON_GetObjectItemCaseSensitive(step, "ret") != nullptr) {
    return std::string(exported->name) + " returns nothing, so that \"ret\" cannot be checked";
  }
  return {};
}

std::string check_step(const cJSON* step, const Contract& contract, int& checks) {
  if (!cJSON_IsObject(step)) return "is not an object";
  if (std::string twice = duplicate_member(step); !twice.empty()) return twice;
  const cJSON* action = step_action(step);
  if (action == nullptr) return "does nothing: it needs one of get, set, subscribe, unsubscribe, fetch, raise, call";
  const StepKind& kind = *kind_named(action->string);
  if (!is_value(action, kind.value)) return wrong_value(kind.name, kind.value);
  const cJSON* member = nullptr;
  cJSON_ArrayForEach(member, step) {
    if (member == action) continue;
    const Member* allowed = member_named(kind.members, member->string);
    if (allowed == nullptr) {
      allowed = member_named(kind.checks, member->string);
      if (allowed == nullptr) allowed = member_named(kGeneralChecks, member->string);
      ++checks;
    }
    if (allowed == nullptr) {
      return "unknown member \"" + std::string(member->string) + "\"; a " + std::string(kind.name) + " step can have " +
             names(kind.members) + (kind.members.empty() ? "" : "; ") + names(kind.checks) + ", " +
             names(kGeneralChecks) + "; each, times, values, repeat";
    }
    if (!is_value(member, allowed->value)) return wrong_value(allowed->name, allowed->value);
  }
  if (kind.name == "raise") {
    const auto function = contract.find(std::string_view(action->valuestring));
    if (function == contract.end()) return "the contract has no function \"" + std::string(action->valuestring) + "\"";
    if (!function->second.has_callback) return function->first + " registers no callback";
  }
  if (kind.name == "call") {
    if (std::string problem = check_call_step(step, action); !problem.empty()) return problem;
  }
  const bool null_buffer = cJSON_GetObjectItemCaseSensitive(step, "buffer") != nullptr;
  for (const char* check : {"text", "json", "bytes"}) {
    if (null_buffer && cJSON_GetObjectItemCaseSensitive(step, check) != nullptr) {
      return std::string("\"") + check + "\" cannot be checked without a buffer";
    }
  }
  return check_calls(cJSON_GetObjectItemCaseSensitive(step, "calls"), contract);
}

std::string check_paths(const cJSON* json) {
  const cJSON* file = nullptr;
  cJSON_ArrayForEach(file, cJSON_GetObjectItemCaseSensitive(json, "files")) {
    const std::string_view path = file->string;
    if (!path.starts_with("/")) return "\"files\": \"" + std::string(path) + "\" is not an absolute path";
    if (!is_value(file, Value::kTextOrNull))
      return "\"files\": the content of " + std::string(path) + " is a text or null";
    if (path.ends_with("/") && cJSON_IsString(file) && *file->valuestring != '\0') {
      return "\"files\": " + std::string(path) + " is a folder, which has no content";
    }
  }
  const cJSON* library = nullptr;
  cJSON_ArrayForEach(library, cJSON_GetObjectItemCaseSensitive(json, "libraries")) {
    if (!cJSON_IsObject(library) && !cJSON_IsNull(library))
      return "\"libraries\": " + std::string(library->string) + " must be null or an object {string id: text}";
    if (*library->string != '/')
      return "\"libraries\": \"" + std::string(library->string) + "\" is not an absolute path";
    const cJSON* text = nullptr;
    cJSON_ArrayForEach(text, library) {
      if (!cJSON_IsString(text))
        return "\"libraries\": each string id of " + std::string(library->string) + " must have a text";
    }
  }
  return {};
}

std::string language_library(std::string_view language_template, const cJSON* texts) {
  std::string bytes(language_template);
  const std::size_t begin = bytes.size();
  const cJSON* text = nullptr;
  cJSON_ArrayForEach(text, texts) {
    bytes.append(text->string).push_back('\0');
    bytes.append(text->valuestring).push_back('\0');
  }
  std::uint64_t length = bytes.size() - begin;
  for (int i = 0; i < 8; ++i, length >>= 8) bytes.push_back(static_cast<char>(length & 0xFF));
  return bytes.append(kLanguageMark);
}

std::string clean_path(std::string_view path) {
  std::string clean;
  for (const char c : path) {
    if (c != '/' || clean.empty() || clean.back() != '/') clean.push_back(c);
  }
  while (clean.size() > 1 && clean.back() == '/') clean.pop_back();
  return clean;
}

bool is_notes(std::string_view value) {
  const auto is_text = [](const auto& child) { return child.second.starts_with('"'); };
  return raw_is_array(value) && std::ranges::all_of(raw_children(value), is_text);
}

// {"notes": [...], "tables": {...}, "values": {...}, "repeat": {...}, "cases": [...]}, where all but the cases can be
// left out.
bool is_case_file(std::string_view json) {
  std::set<std::string_view> keys;
  for (const auto& [key, value] : raw_children(json)) {
    const bool good = key == "cases" ? raw_is_array(value) && !raw_children(value).empty()
                      : key == "notes"
                          ? is_notes(value)
                          : (key == "tables" || key == "values" || key == "repeat") && raw_is_object(value);
    if (!good || !keys.insert(key).second) return false;
  }
  return keys.contains("cases");
}

Case read_case(PlainCase plain) {
  Case test;
  test.text = std::move(plain.json);
  test.step_rows = std::move(plain.step_rows);
  test.refusal = std::move(plain.refusal);
  std::string error;
  test.json = tap::json_parse(test.text, error);
  if (!test.json) test.refusal = error;
  const cJSON* name = cJSON_GetObjectItemCaseSensitive(test.json.get(), "name");
  if (cJSON_IsString(name)) test.name = name->valuestring;
  const cJSON* steps = cJSON_GetObjectItemCaseSensitive(test.json.get(), "steps");
  const bool good = !cJSON_IsArray(steps) || cJSON_GetArraySize(steps) == static_cast<int>(test.step_rows.size());
  if (test.refusal.empty() && !good) test.refusal = "the key \"steps\" must be written without escapes";
  for (const auto& [key, step] : raw_children(raw_member(test.text, "steps"))) {
    test.step_params.push_back(raw_minified(raw_member(step, "param")));
  }
  return test;
}

}  // namespace

const cJSON* step_action(const cJSON* step) {
  for (const StepKind& kind : kStepKinds) {
    const cJSON* action = cJSON_GetObjectItemCaseSensitive(step, std::string(kind.name).c_str());
    if (action != nullptr) return action;
  }
  return nullptr;
}

CaseFile read_case_file(const std::string& path) {
  CaseFile file;
  file.path = path;
  std::ifstream stream(path, std::ios::binary);
  std::ostringstream content;
  content << stream.rdbuf();
  if (!stream) {
    file.refusal = "cannot be read";
    return file;
  }
  const std::string text = content.str();
  const tap::Json json = tap::json_parse(text, file.refusal);
  if (!json) return file;
  if (!is_case_file(text)) {
    file.refusal =
        R"(a file is {"cases": [case, ...]}, perhaps with "notes", "tables", "values" and "repeat", and nothing else in it)";
    return file;
  }
  std::vector<PlainCase> cases;
  if (!expand_file(text, cases, file.refusal)) return file;
  std::set<std::string> seen;
  for (PlainCase& plain : cases) {
    Case& test = file.cases.emplace_back(read_case(std::move(plain)));
    test.file = path;
    if (test.name.empty()) {
      if (test.refusal.empty()) test.refusal = "it has no \"name\"";
      test.name = "number " + std::to_string(file.cases.size());
    }
    if (!seen.insert(test.name).second) test.refusal = "another case of this file has the same name";
  }
  return file;
}

Contract read_contract(const cJSON* list) {
  Contract contract;
  const auto texts = [](const cJSON* entry, const char* key) {
    std::vector<std::string> result;
    const cJSON* text = nullptr;
    cJSON_ArrayForEach(text, cJSON_GetObjectItemCaseSensitive(entry, key)) {
      result.emplace_back(cJSON_IsString(text) ? text->valuestring : "");
    }
    return result;
  };
  const cJSON* entry = nullptr;
  cJSON_ArrayForEach(entry, list) {
    const cJSON* name = cJSON_GetObjectItemCaseSensitive(entry, "name");
    if (!cJSON_IsString(name)) continue;
    contract[name->valuestring] = {
        .params = texts(entry, "params"),
        .kinds = texts(entry, "kinds"),
        .types = texts(entry, "types"),
        .has_callback = cJSON_IsArray(cJSON_GetObjectItemCaseSensitive(entry, "callback")) != 0};
  }
  return contract;
}

bool is_word_bits(const cJSON* json) {
  return cJSON_IsNumber(json) && (json->valuedouble == 32 || json->valuedouble == 64);
}

std::string check_case(const Case& test, const Contract& contract) {
  if (!test.refusal.empty()) return test.refusal;
  if (!cJSON_IsObject(test.json.get())) return "it is not an object";
  if (std::string twice = duplicate_member(test.json.get()); !twice.empty()) return twice;
  const cJSON* member = nullptr;
  cJSON_ArrayForEach(member, test.json.get()) {
    const Member* allowed = member_named(kCaseMembers, member->string);
    if (allowed == nullptr) {
      return "unknown member \"" + std::string(member->string) + "\"; a case can have " + names(kCaseMembers) +
             "; each, values, repeat";
    }
    if (!is_value(member, allowed->value)) return wrong_value(allowed->name, allowed->value);
  }
  if (std::string problem = check_paths(test.json.get()); !problem.empty()) return problem;
  const cJSON* startup_calls = cJSON_GetObjectItemCaseSensitive(test.json.get(), "calls");
  if (std::string problem = check_calls(startup_calls, contract); !problem.empty()) return problem;
  int checks = startup_calls != nullptr ? 1 : 0;
  const cJSON* steps = cJSON_GetObjectItemCaseSensitive(test.json.get(), "steps");
  if (steps == nullptr) return "it has no \"steps\"";
  int number = 0;
  const cJSON* step = nullptr;
  cJSON_ArrayForEach(step, steps) {
    ++number;
    if (std::string problem = check_step(step, contract, checks); !problem.empty()) {
      return "step " + std::to_string(number) + ": " + problem;
    }
  }
  return checks == 0 ? "it checks nothing" : "";
}

WantedPaths wanted_paths(const Case& test, std::string_view language_template, std::string_view other_library) {
  WantedPaths wanted;
  const cJSON* file = nullptr;
  cJSON_ArrayForEach(file, cJSON_GetObjectItemCaseSensitive(test.json.get(), "files")) {
    const std::string_view path = file->string;
    WantedPath& entry = wanted[clean_path(path)];
    if (cJSON_IsNull(file)) {
      entry.what = WantedPath::kAbsent;
    } else if (path.ends_with("/")) {
      entry.what = WantedPath::kFolder;
    } else {
      entry = {.what = WantedPath::kFile, .content = file->valuestring};
    }
  }
  const cJSON* library = nullptr;
  cJSON_ArrayForEach(library, cJSON_GetObjectItemCaseSensitive(test.json.get(), "libraries")) {
    wanted[clean_path(library->string)] = {
        .what = WantedPath::kFile,
        .content = cJSON_IsNull(library) ? std::string(other_library) : language_library(language_template, library)};
  }
  if (cJSON_IsTrue(cJSON_GetObjectItemCaseSensitive(test.json.get(), "device"))) {
    wanted[kDevicePath] = {.what = WantedPath::kDevice, .content = ""};
  }
  return wanted;
}

}  // namespace runner
