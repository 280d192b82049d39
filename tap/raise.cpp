// Callbacks that a script, a recording or dtv_tap_raise calls in place of the platform.
#include <cstring>
#include <deque>
#include <thread>
#include <vector>

#include "tap/state.h"

namespace tap {
namespace {

// Bytes that a callback may write through a pointer argument.
constexpr std::size_t kOutputRoom = 65536;

// The arguments of a callback, with the memory that they point at; a deque, since addresses must not change.
struct Arguments {
  std::deque<std::vector<std::uint64_t>> memory;
  std::vector<std::uint64_t> values;  // one per argument, as wide as the widest
  std::vector<void*> addresses;
  std::vector<std::size_t> sizes;
};

void* room(Arguments& arguments, std::size_t bytes) {
  arguments.memory.emplace_back(bytes / sizeof(std::uint64_t) + 1);
  return arguments.memory.back().data();
}

// Makes an argument point at count elements with the content of json; without json they are cleared.
bool make_pointed(Form form, const Type& type, std::size_t count, const cJSON* json, std::size_t i,
                  Arguments& arguments, std::string& ret_error) {
  void* const memory = room(arguments, count * type.size);
  if (json != nullptr && !pointed_from_json(form, type, json, memory, count, ret_error)) return false;
  std::memcpy(&arguments.values[i], &memory, sizeof memory);
  arguments.sizes[i] = count;
  return true;
}

// Makes an argument of the form address. JSON of a text or a record is passed by its address, even where the decider
// says that a number comes. A text of digits is a text where an address comes, else a number.
bool make_address(const Param& param, bool addressed, const cJSON* json, std::size_t i, Arguments& arguments,
                  std::string& ret_error) {
  Integer number;
  if (addressed && cJSON_IsNumber(json)) return true;  // an address in the recorded process: null here
  if (!addressed && json_to_integer(json, number)) {
    return value_from_json(*param.type, json, &arguments.values[i], ret_error);
  }
  const Form form = pointed_form(param);
  return make_pointed(form, *param.pointed, pointed_count(form, json), json, i, arguments, ret_error);
}

bool make_argument(const Signature& callback, const cJSON* json, std::size_t i, Arguments& arguments,
                   std::string& ret_error) {
  const Param& param = callback.params[i];
  const bool given = json != nullptr && !cJSON_IsNull(json);
  if (is_output(param)) {
    return make_pointed(param.form, *param.type, kOutputRoom / param.type->size,
                        given && is_input(param) ? json : nullptr, i, arguments, ret_error);
  }
  if (!given) return true;
  if (param.form == Form::address) {
    const bool addressed = is_addressed(callback, param, arguments.addresses.data());
    return make_address(param, addressed, json, i, arguments, ret_error);
  }
  if (!is_pointer(param.form)) return value_from_json(*param.type, json, &arguments.values[i], ret_error);
  return make_pointed(param.form, *param.type, pointed_count(param.form, json), json, i, arguments, ret_error);
}

bool make_arguments(const Signature& callback, const cJSON* json, const Integer* tag, Arguments& ret_arguments,
                    std::string& ret_error) {
  const std::size_t count = callback.params.size();
  std::vector<const cJSON*> given(count, nullptr);
  if (!by_position(callback, json, given, ret_error)) return false;
  ret_arguments.values.assign(count, 0);
  ret_arguments.sizes.assign(count, 0);
  for (std::uint64_t& value : ret_arguments.values) ret_arguments.addresses.push_back(&value);
  // Addresses come last, since other arguments decide what they are.
  for (const bool addresses : {false, true}) {
    for (std::size_t i = 0; i < count; ++i) {
      const Param& param = callback.params[i];
      if ((param.form == Form::address) != addresses) continue;
      if (!make_argument(callback, given[i], i, ret_arguments, ret_error)) {
        ret_error = "argument " + std::to_string(i) + " (" + param.name + "): " + ret_error;
        return false;
      }
      const bool wants_tag = param.form == Form::tag && (given[i] == nullptr || cJSON_IsNull(given[i]));
      if (wants_tag && tag != nullptr) integer_store(*param.type, *tag, &ret_arguments.values[i]);
    }
  }
  return true;
}

}  // namespace

bool prepare_raise(const char* name, const cJSON* args, Raise& ret_raise, std::string& ret_error) {
  Function* function = find_function(name);
  if (function == nullptr) {
    ret_error = "the contract has no function \"" + std::string(name) + "\"";
    return false;
  }
  for (const Param& param : function->signature.params) {
    if (param.form != Form::callback) continue;
    if (args != nullptr && !cJSON_IsNull(args) && !cJSON_IsArray(args) && !cJSON_IsObject(args)) {
      ret_error = "the arguments of a callback are an array, or an object by their names";
      return false;
    }
    const Raise raise{
        .function = function, .registration = param.registration, .callback = param.callback, .args = args};
    Arguments checked;
    if (!make_arguments(*raise.callback, args, nullptr, checked, ret_error)) return false;
    ret_raise = raise;
    return true;
  }
  ret_error = std::string(name) + " registers no callback";
  return false;
}

bool raise_here(const Raise& raise, std::int64_t& ret_result, std::string& ret_error) {
  Integer tag;
  std::size_t slot = kSlots;
  {
    const std::lock_guard guard(state_lock());
    slot = raise.registration->slot;
    tag = raise.registration->tag;
  }
  if (slot == kSlots) {
    ret_error = "no callback is registered through " + std::string(raise.function->signature.name);
    return false;
  }
  Arguments arguments;
  if (!make_arguments(*raise.callback, raise.args, &tag, arguments, ret_error)) return false;
  std::uint64_t result = 0;
  deliver(*raise.registration, slot, &result, arguments.addresses.data(), arguments.sizes.data());
  const Type& type = *raise.callback->result;
  ret_result = 0;
  if (type.shape == Shape::kInteger || type.shape == Shape::kWord) {
    ret_result = static_cast<std::int64_t>(integer_load(type, &result).bits);
  }
  return true;
}

bool raise_and_wait(const Raise& raise, std::int64_t& ret_result, std::string& ret_error) {
  bool done = false;
  std::thread([&] { done = raise_here(raise, ret_result, ret_error); }).join();
  return done;
}

}  // namespace tap
