#include "runner/exports.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <type_traits>
#include <utility>

#include "runner/records.h"

namespace runner {
namespace {

// The bytes behind every untyped pointer to a record, since a function may fill a larger record than the case gives.
constexpr std::size_t kRecordRoom = 65536;

template <class T>
ArgumentKind kind_of() {
  if constexpr (!std::is_pointer_v<T>) {
    return {.form = ArgumentKind::kNumber, .type = &tap::type_of<T>};
  } else {
    using Target = std::remove_pointer_t<T>;
    using Plain = std::remove_cv_t<Target>;
    if constexpr (std::is_function_v<Target>) {
      return {.form = ArgumentKind::kFunction};
    } else if constexpr (std::is_void_v<Plain>) {
      return {.form = ArgumentKind::kUntyped};
    } else if constexpr (std::is_same_v<Plain, char>) {
      return {.form = std::is_const_v<Target> ? ArgumentKind::kText : ArgumentKind::kBytes};
    } else if constexpr (std::is_class_v<Plain>) {
      return {.form = ArgumentKind::kRecord, .type = &tap::type_of<Plain>};
    } else {
      return {.form = ArgumentKind::kVariable, .type = &tap::type_of<Plain>};
    }
  }
}

template <class T>
T passed(const Argument& argument) {
  if constexpr (std::is_pointer_v<T>) {
    return reinterpret_cast<T>(static_cast<std::uintptr_t>(argument.bits));
  } else {
    return static_cast<T>(argument.bits);
  }
}

template <class Fct>
struct Caller;
template <class Result, class... Args>
struct Caller<Result (*)(Args...)> {
  static std::vector<ArgumentKind> kinds() { return {kind_of<Args>()...}; }
  static constexpr bool has_result = !std::is_void_v<Result>;
  template <std::size_t... I>
  static std::int64_t run_with(void* fct, [[maybe_unused]] const Argument* arguments, std::index_sequence<I...>) {
    const auto typed = reinterpret_cast<Result (*)(Args...)>(fct);
    if constexpr (!has_result) {
      typed(passed<Args>(arguments[I])...);
      return 0;
    } else if constexpr (std::is_pointer_v<Result>) {
      const Result result = typed(passed<Args>(arguments[I])...);
      // A result that is not constant was allocated for the caller.
      if constexpr (!std::is_const_v<std::remove_pointer_t<Result>>) std::free(result);
      return result == nullptr ? 0 : 1;
    } else {
      return static_cast<std::int64_t>(typed(passed<Args>(arguments[I])...));
    }
  }
  static std::int64_t run(void* fct, const Argument* arguments) {
    return run_with(fct, arguments, std::index_sequence_for<Args...>{});
  }
};

// clang-format off
#define EXPORT(name) {#name, Caller<decltype(&::name)>::kinds(), Caller<decltype(&::name)>::has_result, \
                      &Caller<decltype(&::name)>::run},
// clang-format on

const std::vector<Export>& exports() {
  static const std::vector<Export> kList = {
#include "exports.def"
  };
  return kList;
}

std::uint64_t address_bits(const void* address) { return reinterpret_cast<std::uintptr_t>(address); }

void* room(Argument& argument, std::size_t bytes) {
  argument.backing.assign(std::max(bytes, kRecordRoom) / sizeof(std::uint64_t) + 1, std::uint64_t{0});
  argument.bits = address_bits(argument.backing.data());
  return argument.backing.data();
}

// An object without the member that names its record.
tap::Json fields_only(const cJSON* object) {
  tap::Json copy(cJSON_Duplicate(object, 1));
  cJSON_DeleteItemFromObjectCaseSensitive(copy.get(), "record");
  return copy;
}

// The record that an object names, or fallback when it names none.
bool record_of(const cJSON* object, const tap::Type* fallback, const tap::Type*& ret_type, std::string& ret_error) {
  const cJSON* name = cJSON_GetObjectItemCaseSensitive(object, "record");
  const tap::Type* type = cJSON_IsString(name) ? tap::find_record(name->valuestring) : fallback;
  if (type == nullptr) {
    ret_error = cJSON_IsString(name) ? "there is no record \"" + std::string(name->valuestring) + "\""
                                     : R"(an object here is {"record": name, field: value, ...} or {"buffer": size})";
    return false;
  }
  ret_type = type;
  return true;
}

bool make_record(const cJSON* json, const tap::Type* fallback, Argument& argument, std::string& ret_error) {
  if (!cJSON_IsObject(json)) {
    ret_error = tap::json_print(json) + " is not an object";
    return false;
  }
  if (!record_of(json, fallback, argument.type, ret_error)) return false;
  void* memory = room(argument, argument.type->size);
  return tap::value_from_json(*argument.type, fields_only(json).get(), memory, ret_error);
}

bool make_buffer(const cJSON* json, Argument& argument, std::string& ret_error) {
  const cJSON* size = cJSON_GetObjectItemCaseSensitive(json, "buffer");
  if (!cJSON_IsNumber(size) || size->valuedouble < 1 || size->valuedouble > 1e8 || json->child->next != nullptr) {
    ret_error = R"(a buffer is {"buffer": size}, with a size from 1 on)";
    return false;
  }
  // Exactly as large, so that an address sanitizer sees a write beyond the end.
  argument.buffer = std::vector<char>(static_cast<std::size_t>(size->valuedouble));
  argument.bits = address_bits(argument.buffer.data());
  return true;
}

bool make_argument(const ArgumentKind& kind, const cJSON* json, void* library, Argument& argument,
                   std::string& ret_error) {
  if (json == nullptr || cJSON_IsNull(json)) return true;
  const bool is_buffer = cJSON_GetObjectItemCaseSensitive(json, "buffer") != nullptr && cJSON_IsObject(json);
  if (kind.form == ArgumentKind::kNumber) return tap::value_from_json(*kind.type, json, &argument.bits, ret_error);
  // 0 is a null pointer; another number is an address that the function uses as a number only.
  if (cJSON_IsNumber(json) && kind.form != ArgumentKind::kVariable)
    return tap::value_from_json(tap::type_of<std::uintptr_t>, json, &argument.bits, ret_error);
  if (is_buffer && kind.form != ArgumentKind::kText && kind.form != ArgumentKind::kFunction) {
    return make_buffer(json, argument, ret_error);
  }
  switch (kind.form) {
    case ArgumentKind::kNumber:
      break;
    case ArgumentKind::kText:
    case ArgumentKind::kBytes:
    case ArgumentKind::kUntyped:
      if (kind.form == ArgumentKind::kUntyped && cJSON_IsObject(json))
        return make_record(json, nullptr, argument, ret_error);
      if (cJSON_IsString(json)) {
        argument.text = json->valuestring;
      } else if (!tap::json_to_bytes(json, argument.text)) {
        ret_error = tap::json_print(json) +
                    (kind.form == ArgumentKind::kUntyped ? " is neither a record nor a buffer" : " is not a text");
        return false;
      }
      if (kind.form == ArgumentKind::kText) {
        argument.bits = address_bits(argument.text.c_str());
      } else {
        std::memcpy(room(argument, argument.text.size() + 1), argument.text.c_str(), argument.text.size() + 1);
      }
      return true;
    case ArgumentKind::kVariable:
      argument.type = kind.type;
      return tap::value_from_json(*kind.type, json, room(argument, kind.type->size), ret_error);
    case ArgumentKind::kRecord:
      return make_record(json, kind.type, argument, ret_error);
    case ArgumentKind::kFunction: {
      void* fct = cJSON_IsString(json) ? dlsym(library, json->valuestring) : nullptr;
      if (fct == nullptr) ret_error = tap::json_print(json) + " is not the name of an exported function";
      argument.bits = address_bits(fct);
      return fct != nullptr;
    }
  }
  return true;
}

const char* memory_of(const Argument& argument) {
  return argument.bits == 0 ? nullptr : reinterpret_cast<const char*>(static_cast<std::uintptr_t>(argument.bits));
}

std::size_t memory_size(const Argument& argument) {
  if (!argument.buffer.empty()) return argument.buffer.size();
  if (!argument.backing.empty()) return argument.backing.size() * sizeof(std::uint64_t);
  return argument.text.size() + 1;
}

// Compares one argument after the call; empty when it is as expected.
std::string compare_argument(const ArgumentKind& kind, const Argument& argument, const cJSON* expected,
                             bool check_only) {
  if (kind.form == ArgumentKind::kNumber || kind.form == ArgumentKind::kFunction)
    return "is passed by value and cannot change";
  const char* memory = memory_of(argument);
  if (memory == nullptr) return "was null, so that nothing can be there afterwards";
  tap::Json came;
  tap::Json wanted(cJSON_Duplicate(expected, 1));
  std::string bytes;
  if (tap::json_to_bytes(expected, bytes)) {
    if (bytes.size() > memory_size(argument)) return "has only " + std::to_string(memory_size(argument)) + " bytes";
    came.reset(tap::json_bytes({memory, bytes.size()}));
  } else if (cJSON_IsString(expected) && (argument.type == nullptr || argument.type->shape != tap::Shape::kInteger)) {
    came.reset(tap::text_to_json(memory, memory_size(argument)));
  } else {
    const tap::Type* type = argument.type;
    std::string error;
    if (cJSON_IsObject(expected)) {
      if (!record_of(expected, type, type, error)) return error;
      wanted = fields_only(expected);
      if (memory_size(argument) < type->size) return "is too small for a " + std::string(type->name);
    }
    if (type == nullptr) return tap::json_print(expected) + " cannot be compared with a buffer";
    if (!tap::value_fits(*type, wanted.get(), error)) return error;
    came.reset(tap::value_to_json(*type, memory));
  }
  if (check_only || tap::json_matches(wanted.get(), came.get())) return {};
  // Only the fields that the case names.
  if (cJSON_IsObject(wanted.get()) && cJSON_IsObject(came.get())) {
    tap::Json shown(cJSON_CreateObject());
    const cJSON* member = nullptr;
    cJSON_ArrayForEach(member, wanted.get()) {
      const cJSON* field = cJSON_GetObjectItemCaseSensitive(came.get(), member->string);
      if (field != nullptr) cJSON_AddItemToObject(shown.get(), member->string, cJSON_Duplicate(field, 1));
    }
    came = std::move(shown);
  }
  return "expected " + tap::json_print(wanted.get()) + ", came " + tap::json_print(came.get());
}

}  // namespace

const Export* find_export(std::string_view name) {
  for (const Export& exported : exports()) {
    if (name == exported.name) return &exported;
  }
  return nullptr;
}

bool make_arguments(const Export& exported, const cJSON* in, void* library, std::vector<Argument>& ret_arguments,
                    std::string& ret_error) {
  if (in != nullptr && !cJSON_IsArray(in)) {
    ret_error = "\"in\" is an array of arguments";
    return false;
  }
  if (static_cast<std::size_t>(cJSON_GetArraySize(in)) > exported.arguments.size()) {
    ret_error = std::string(exported.name) + " takes " + std::to_string(exported.arguments.size()) + " arguments";
    return false;
  }
  // Arguments point into themselves: they must not move.
  std::vector<Argument> arguments(exported.arguments.size());
  const cJSON* value = in == nullptr ? nullptr : in->child;
  for (std::size_t i = 0; i < arguments.size() && value != nullptr; ++i, value = value->next) {
    if (!make_argument(exported.arguments[i], value, library, arguments[i], ret_error)) {
      ret_error = "argument " + std::to_string(i) + ": " + ret_error;
      return false;
    }
  }
  ret_arguments = std::move(arguments);
  return true;
}

std::string compare_after(const Export& exported, const std::vector<Argument>& arguments, const cJSON* after,
                          bool check_only) {
  if (!cJSON_IsArray(after)) return "\"after\" is an array of arguments";
  if (static_cast<std::size_t>(cJSON_GetArraySize(after)) > arguments.size()) {
    return std::string(exported.name) + " takes " + std::to_string(arguments.size()) + " arguments";
  }
  std::string differences;
  std::size_t i = 0;
  const cJSON* expected = nullptr;
  cJSON_ArrayForEach(expected, after) {
    if (!cJSON_IsNull(expected)) {
      const std::string difference = compare_argument(exported.arguments[i], arguments[i], expected, check_only);
      if (!difference.empty()) {
        differences += (differences.empty() ? "argument " : "; argument ") + std::to_string(i) + ": " + difference;
      }
    }
    ++i;
  }
  return differences;
}

}  // namespace runner
