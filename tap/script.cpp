// Answers calls from a list, which has the form of "platform" in a conformance case.
#include <chrono>
#include <cmath>
#include <cstring>
#include <memory>
#include <thread>
#include <vector>

#include "tap/modes.h"
#include "tap/state.h"

namespace tap {
namespace {

struct Answer {
  Function* function = nullptr;
  std::vector<const cJSON*> in;   // per argument; null matches anything
  std::vector<const cJSON*> out;  // per argument; null is cleared
  const cJSON* ret = nullptr;
  std::int64_t uses_left = -1;  // -1: unlimited; under the tap's lock
  std::int64_t delay_ms = 0;
  std::vector<Raise> raises;
};

struct Script {
  Json json;  // the answers point into it
  std::vector<Answer> answers;
};

// Under the tap's lock; a call in progress keeps the script that it took its answer from.
std::shared_ptr<Script>& current() {
  static auto& script = *new std::shared_ptr<Script>;
  return script;
}

bool read_raises(const cJSON* list, Answer& ret_answer, std::string& ret_error) {
  if (!cJSON_IsArray(list)) {
    ret_error = "\"raise\" is a list of {\"raise\": function, \"args\": [...]}";
    return false;
  }
  const cJSON* entry = nullptr;
  cJSON_ArrayForEach(entry, list) {
    const cJSON* name = cJSON_GetObjectItemCaseSensitive(entry, "raise");
    const cJSON* args = cJSON_GetObjectItemCaseSensitive(entry, "args");
    const cJSON* member = nullptr;
    cJSON_ArrayForEach(member, entry) {
      if (member != name && member != args) {
        ret_error = "\"raise\": unknown member \"" + std::string(member->string == nullptr ? "" : member->string) +
                    "\"; allowed are raise, args";
        return false;
      }
    }
    Raise raise;
    if (!cJSON_IsString(name)) {
      ret_error = "\"raise\": an entry without the name of a function under \"raise\"";
      return false;
    }
    if (!prepare_raise(name->valuestring, args, raise, ret_error)) {
      ret_error = "\"raise\": " + ret_error;
      return false;
    }
    ret_answer.raises.push_back(raise);
  }
  return true;
}

bool whole_number(const cJSON* json, std::int64_t& ret_number) {
  Integer number;
  if (!cJSON_IsNumber(json) || !json_to_integer(json, number) || number.negative) return false;
  ret_number = static_cast<std::int64_t>(number.bits);
  return true;
}

bool read_in(const cJSON* json, Answer& ret_answer, std::string& ret_error) {
  const Signature& signature = ret_answer.function->signature;
  if (!cJSON_IsArray(json) && !cJSON_IsObject(json)) {
    ret_error = "\"in\" is an array of arguments, or an object by the arguments' names";
    return false;
  }
  if (!by_position(signature, json, ret_answer.in, ret_error)) {
    ret_error = "\"in\": " + ret_error;
    return false;
  }
  for (std::size_t i = 0; i < signature.params.size(); ++i) {
    const Param& param = signature.params[i];
    const cJSON* value = ret_answer.in[i];
    if (value == nullptr || cJSON_IsNull(value)) continue;
    bool fits = true;
    if (!is_input(param)) {
      ret_error = "is only written, so that only null can be given";
      fits = false;
    } else if (is_pointer(param.form)) {
      fits = pointed_from_json(param.form, *param.type, value, nullptr, 0, ret_error);
    } else {
      fits = value_fits(*param.type, value, ret_error);
    }
    if (!fits) {
      ret_error = "\"in\": argument " + std::to_string(i) + " (" + param.name + "): " + ret_error;
      return false;
    }
  }
  return true;
}

bool read_out(const cJSON* json, Answer& ret_answer, std::string& ret_error) {
  const Signature& signature = ret_answer.function->signature;
  if (!cJSON_IsObject(json)) {
    ret_error = "\"out\" is an object by the arguments' positions or names";
    return false;
  }
  if (!by_position(signature, json, ret_answer.out, ret_error)) {
    ret_error = "\"out\": " + ret_error;
    return false;
  }
  for (std::size_t i = 0; i < signature.params.size(); ++i) {
    if (ret_answer.out[i] == nullptr) continue;
    const Param& param = signature.params[i];
    if (!is_output(param)) {
      ret_error = "is not written by the platform";
    } else if (output_fits(param, ret_answer.out[i], ret_error)) {
      continue;
    }
    ret_error = "\"out\": argument " + std::to_string(i) + " (" + param.name + "): " + ret_error;
    return false;
  }
  return true;
}

bool read_answer(const cJSON* json, Answer& ret_answer, std::string& ret_error) {
  const cJSON* name = cJSON_GetObjectItemCaseSensitive(json, "call");
  if (!cJSON_IsString(name)) {
    ret_error = "no platform function under \"call\"";
    return false;
  }
  ret_answer.function = find_function(name->valuestring);
  if (ret_answer.function == nullptr) {
    ret_error = "the contract has no function \"" + std::string(name->valuestring) + "\"";
    return false;
  }
  const Signature& signature = ret_answer.function->signature;
  ret_answer.in.assign(signature.params.size(), nullptr);
  ret_answer.out.assign(signature.params.size(), nullptr);
  const cJSON* member = nullptr;
  cJSON_ArrayForEach(member, json) {
    const std::string_view key = member->string;
    bool good = true;
    if (key == "call") {
    } else if (key == "in") {
      good = read_in(member, ret_answer, ret_error);
    } else if (key == "out") {
      good = read_out(member, ret_answer, ret_error);
    } else if (key == "ret") {
      ret_answer.ret = member;
      good = value_fits(*signature.result, member, ret_error);
      if (!good) ret_error = "\"ret\": " + ret_error;
    } else if (key == "times" || key == "delay_ms") {
      good = whole_number(member, key == "times" ? ret_answer.uses_left : ret_answer.delay_ms);
      if (!good) ret_error = "\"" + std::string(key) + "\" is a number from 0 on";
    } else if (key == "raise") {
      good = read_raises(member, ret_answer, ret_error);
    } else {
      good = false;
      ret_error = "unknown member \"" + std::string(key) + "\"; allowed are call, in, ret, out, times, delay_ms, raise";
    }
    if (!good) return false;
  }
  return true;
}

bool answer_fits(const Answer& answer, const cJSON* in) {
  for (std::size_t i = 0; i < answer.in.size(); ++i) {
    if (answer.in[i] == nullptr || cJSON_IsNull(answer.in[i])) continue;
    const Param& param = answer.function->signature.params[i];
    const cJSON* came = cJSON_GetObjectItemCaseSensitive(in, param.name);
    if (!argument_matches(param, answer.in[i], came)) return false;
  }
  return true;
}

}  // namespace

bool script_load(const char* text, std::string& ret_error) {
  std::shared_ptr<Script> script;
  if (text != nullptr) {
    script = std::make_shared<Script>();
    script->json = json_parse(text, ret_error);
    if (!script->json) return false;
    if (!cJSON_IsArray(script->json.get())) {
      ret_error = "a script is an array of answers";
      return false;
    }
    int number = 0;
    const cJSON* entry = nullptr;
    cJSON_ArrayForEach(entry, script->json.get()) {
      Answer answer;
      ++number;
      if (!read_answer(entry, answer, ret_error)) {
        const std::string name =
            answer.function == nullptr ? "" : std::string(" (") + answer.function->signature.name + ")";
        ret_error = "answer " + std::to_string(number) + name + ": " + ret_error;
        return false;
      }
      script->answers.push_back(std::move(answer));
    }
  }
  {
    const std::lock_guard guard(state_lock());
    current().swap(script);
    set_active(kScripted, current() != nullptr);
  }
  return true;
}

bool script_answer(Function& function, const cJSON* in, void* ret, void* const* args, const std::size_t* sizes) {
  std::shared_ptr<Script> script;
  const Answer* taken = nullptr;
  {
    const std::lock_guard guard(state_lock());
    script = current();
    if (!script) return false;
    for (Answer& answer : script->answers) {
      if (answer.function != &function || answer.uses_left == 0 || !answer_fits(answer, in)) continue;
      if (answer.uses_left > 0) --answer.uses_left;
      taken = &answer;
      break;
    }
  }
  clear_outputs(function.signature, args, sizes);
  if (taken == nullptr) return true;
  for (std::size_t i = 0; i < taken->out.size(); ++i) {
    if (taken->out[i] != nullptr) write_output(function.signature.params[i], taken->out[i], args[i], sizes[i]);
  }
  write_result(function.signature, taken->ret, ret);
  if (taken->delay_ms > 0) std::this_thread::sleep_for(std::chrono::milliseconds(taken->delay_ms));
  for (const Raise& raise : taken->raises) {
    std::int64_t result = 0;
    std::string error;
    if (!raise_and_wait(raise, result, error))
      report_error("an answer of " + std::string(function.signature.name) + ": " + error);
  }
  return true;
}

}  // namespace tap
