#include <dlfcn.h>

#include <cstring>
#include <vector>

#include "dtv_tap.h"
#include "tap/modes.h"
#include "tap/state.h"

namespace {

char* copy_text(const std::string& text) { return strdup(text.c_str()); }

std::int32_t failed(char** ret_error, const std::string& error) {
  if (ret_error != nullptr) *ret_error = copy_text(error);
  return -1;
}

cJSON* fault_to_json(const tap::Function& function) {
  if (!function.has_fault) return cJSON_CreateNull();
  cJSON* fault = cJSON_CreateObject();
  cJSON_AddNumberToObject(fault, "delay_ms", function.fault.delay_ms);
  cJSON_AddNumberToObject(fault, "fails", function.fault.fails);
  cJSON_AddNumberToObject(fault, "result", function.fault.result);
  cJSON_AddNumberToObject(fault, "drop_callback", function.fault.drop_callback);
  cJSON_AddNumberToObject(fault, "repeat_callback", function.fault.repeat_callback);
  return fault;
}

}  // namespace

std::int32_t dtv_tap_platform(void* library, char** ret_error) {
  std::vector<void*> found;
  std::string missing;
  for (tap::Function* function : tap::functions()) {
    void* next = dlsym(library != nullptr ? library : RTLD_NEXT, function->signature.name);
    if (next == function->own()) next = nullptr;
    if (next == nullptr) missing += std::string(missing.empty() ? "" : ", ") + function->signature.name;
    found.push_back(next);
  }
  if (!missing.empty()) return failed(ret_error, "the platform does not define " + missing);
  for (std::size_t i = 0; i < found.size(); ++i) {
    tap::functions()[i]->next.store(found[i], std::memory_order_release);
  }
  return 0;
}

void dtv_tap_watch(dtv_tap_line_fct fct, void* context) { tap::watch(fct, context); }

void dtv_tap_on_event(dtv_tap_event_fct fct, void* context) { tap::on_event(fct, context); }

void dtv_tap_stamp(dtv_tap_stamp_t* ret_stamp) {
  const tap::Start start = tap::start_now();
  *ret_stamp = {
      .seq = start.seq, .t = start.t, .thread = tap::thread_number(), .callbacks = tap::callbacks_under_way()};
}

void dtv_tap_hold_callbacks(std::int32_t hold) { tap::hold_callbacks(hold != 0); }

std::int32_t dtv_tap_fault(const char* name, const dtv_tap_fault_t* fault) {
  tap::Function* chosen = name == nullptr ? nullptr : tap::find_function(name);
  if (name != nullptr && chosen == nullptr) return -1;
  const std::lock_guard guard(tap::state_lock());
  bool any = false;
  for (tap::Function* function : tap::functions()) {
    if (chosen == nullptr || function == chosen) {
      function->has_fault = chosen != nullptr && fault != nullptr;
      if (function->has_fault) function->fault = *fault;
    }
    any = any || function->has_fault;
  }
  tap::set_active(tap::kFaulty, any);
  return 0;
}

char* dtv_tap_list(void) {
  const tap::Json list(cJSON_CreateArray());
  const std::lock_guard guard(tap::state_lock());
  for (const tap::Function* function : tap::functions()) {
    cJSON* entry = cJSON_CreateObject();
    cJSON_AddItemToArray(list.get(), entry);
    cJSON_AddStringToObject(entry, "name", function->signature.name);
    cJSON* params = cJSON_AddArrayToObject(entry, "params");
    cJSON* kinds = cJSON_AddArrayToObject(entry, "kinds");
    cJSON* types = cJSON_AddArrayToObject(entry, "types");
    cJSON* callback = nullptr;
    for (const tap::Param& param : function->signature.params) {
      cJSON_AddItemToArray(params, cJSON_CreateString(param.name));
      cJSON_AddItemToArray(kinds, cJSON_CreateString(tap::kind_name(param.form, param.direction).c_str()));
      cJSON_AddItemToArray(types, cJSON_CreateString(param.type_name));
      if (param.form != tap::Form::callback || callback != nullptr) continue;
      callback = cJSON_CreateArray();
      for (const tap::Param& argument : param.callback->params) {
        cJSON_AddItemToArray(callback, cJSON_CreateString(argument.name));
      }
    }
    cJSON_AddItemToObject(entry, "callback", callback != nullptr ? callback : cJSON_CreateNull());
    cJSON_AddItemToObject(entry, "fault", fault_to_json(*function));
  }
  return copy_text(tap::json_print(list.get()));
}

std::int32_t dtv_tap_take_failure(dtv_tap_failure_t* ret_failure) {
  dtv_tap_failure_t failure{};
  const bool failed = tap::take_failure(failure);
  if (failed && ret_failure != nullptr) *ret_failure = failure;
  return failed ? 1 : 0;
}

std::int32_t dtv_tap_script(const char* answers, char** ret_error) {
  std::string error;
  return tap::script_load(answers, error) ? 0 : failed(ret_error, error);
}

std::int32_t dtv_tap_replay(const char* lines, char** ret_error) {
  std::string error;
  return tap::replay_load(lines, error) ? 0 : failed(ret_error, error);
}

char* dtv_tap_replay_report(void) {
  const std::string differences = tap::replay_differences();
  return differences.empty() ? nullptr : copy_text(differences);
}

std::int32_t dtv_tap_raise(const char* function, const char* args, std::int64_t* ret_result, char** ret_error) {
  std::string error;
  if (function == nullptr) return failed(ret_error, "a null function");
  tap::Json json;
  if (args != nullptr) {
    json = tap::json_parse(args, error);
    if (!json) return failed(ret_error, "arguments: " + error);
  }
  tap::Raise raise;
  std::int64_t result = 0;
  if (!tap::prepare_raise(function, json.get(), raise, error) || !tap::raise_and_wait(raise, result, error)) {
    return failed(ret_error, error);
  }
  if (ret_result != nullptr) *ret_result = result;
  return 0;
}
