#include "tap/engine.h"

#include <dlfcn.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <thread>
#include <vector>

#include "tap/state.h"

namespace tap {
namespace {

std::vector<Function*>& function_list() {
  static auto& list = *new std::vector<Function*>;
  return list;
}

// Reads a pointer argument; arg is the address of the pointer.
template <class T>
T* pointer_argument(void* arg) {
  void* pointer = nullptr;
  std::memcpy(&pointer, arg, sizeof pointer);
  return static_cast<T*>(pointer);
}

// How many elements a parameter's array holds after the call. The count may be an in/out parameter that the platform
// has changed; room is the count before.
std::size_t count_now(const Signature& signature, const Param& param, void* const* args, std::size_t room) {
  std::size_t position = 0;
  const Param* counter = find_param(signature, param.count, position);
  const bool counts = counter != nullptr && counter->form == Form::one && counter->direction == Direction::inout &&
                      counter->type->shape == Shape::kInteger;
  if (!counts) return room;
  const void* value = pointer_argument<void>(args[position]);
  if (value == nullptr) return room;
  const Integer count = integer_load(*counter->type, value);
  return count.negative ? 0 : static_cast<std::size_t>(std::min<std::uint64_t>(room, count.bits));
}

// The argument as JSON before the call; a null pointer, not JSON null, for one that is only written.
cJSON* argument_in(const Signature& signature, std::size_t i, void* const* args, std::size_t size) {
  const Param& param = signature.params[i];
  void* const arg = args[i];
  if (!is_input(param)) return nullptr;
  // A reader learns nothing from a callback's address, only whether there is one.
  if (param.form == Form::callback) return json_integer(pointer_argument<void>(arg) == nullptr ? 0 : 1);
  if (is_addressed(signature, param, args)) {
    return pointed_to_json(pointed_form(param), *param.pointed, pointer_argument<void>(arg), 1);
  }
  if (!is_pointer(param.form)) return value_to_json(*param.type, arg);
  return pointed_to_json(param.form, *param.type, pointer_argument<void>(arg), size);
}

Json arguments_in(const Signature& signature, void* const* args, const std::size_t* sizes) {
  Json in(cJSON_CreateObject());
  for (std::size_t i = 0; i < signature.params.size(); ++i) {
    cJSON* value = argument_in(signature, i, args, sizes[i]);
    if (value != nullptr) cJSON_AddItemToObjectCS(in.get(), signature.params[i].name, value);
  }
  return in;
}

cJSON* argument_out(const Signature& signature, std::size_t i, void* const* args, std::size_t size) {
  const Param& param = signature.params[i];
  const std::size_t count = param.form == Form::array ? count_now(signature, param, args, size) : size;
  return pointed_to_json(param.form, *param.type, pointer_argument<void>(args[i]), count);
}

void add_result(cJSON* line, const Signature& signature, const void* ret) {
  if (signature.result->shape != Shape::kNone) {
    cJSON_AddItemToObjectCS(line, "ret", value_to_json(*signature.result, ret));
  }
}

void add_outputs(cJSON* line, const Signature& signature, void* const* args, const std::size_t* sizes) {
  cJSON* out = nullptr;
  for (std::size_t i = 0; i < signature.params.size(); ++i) {
    if (!is_output(signature.params[i])) continue;
    if (out == nullptr) out = cJSON_AddObjectToObject(line, "out");
    cJSON_AddItemToObjectCS(out, signature.params[i].name, argument_out(signature, i, args, sizes[i]));
  }
}

// Keeps the callbacks and tags among the arguments, and puts trampolines in the callbacks' places for the platform.
void keep_callbacks(Function& function, void* const* args) {
  for (std::size_t i = 0; i < function.signature.params.size(); ++i) {
    const Param& param = function.signature.params[i];
    if (param.form != Form::callback) continue;
    Registration& registration = *param.registration;
    void* fct = pointer_argument<void>(args[i]);
    Integer tag;
    for (std::size_t k = 0; k < function.signature.params.size(); ++k) {
      // A callback's tag is the next one after it; without one, the last before it.
      if (function.signature.params[k].form != Form::tag) continue;
      tag = integer_load(*function.signature.params[k].type, args[k]);
      if (k > i) break;
    }
    registration.function.store(&function, std::memory_order_release);
    registration.param.store(&param, std::memory_order_release);
    std::size_t slot = 0;
    {
      const std::lock_guard guard(state_lock());
      registration.tag = tag;
      if (fct == nullptr) {
        registration.slot = kSlots;
        continue;
      }
      while (slot + 1 < kSlots) {
        void* kept = registration.fct[slot].load(std::memory_order_acquire);
        if (kept == nullptr || kept == fct) break;
        ++slot;
      }
      registration.fct[slot].store(fct, std::memory_order_release);
      registration.slot = slot;
    }
    void* const trampoline = param.trampoline(slot);
    std::memcpy(args[i], &trampoline, sizeof trampoline);
  }
}

// Callbacks whose line is still to be written.
std::atomic<int> unwritten_callbacks{0};

constexpr std::chrono::milliseconds kLongestHold{100};  // then a held callback begins all the same

// Threads that hold callbacks; see dtv_tap_hold_callbacks.
struct Gate {
  std::atomic<int> holders{0};
  std::mutex lock;  // taken to wait, and to wake those that wait
  std::condition_variable opened;
};
Gate& gate() {
  static auto& only = *new Gate;
  return only;
}
thread_local int holds_of_this_thread = 0;

// Counts a callback as under way once no thread holds it. The callback is counted before it looks for a holder, and a
// holder makes itself known before it looks at the count, so that one of the two always sees the other.
void begin_callback() {
  const auto end = std::chrono::steady_clock::now() + kLongestHold;
  while (true) {
    unwritten_callbacks.fetch_add(1);
    if (gate().holders.load() == 0 || holds_of_this_thread > 0) return;
    unwritten_callbacks.fetch_sub(1);
    std::unique_lock guard(gate().lock);
    if (gate().opened.wait_until(guard, end, [] { return gate().holders.load() == 0; })) continue;
    unwritten_callbacks.fetch_add(1);
    return;
  }
}

bool fault_of(Function& function, dtv_tap_fault_t& ret_fault) {
  if ((g_active.load(std::memory_order_acquire) & kFaulty) == 0) return false;
  const std::lock_guard guard(state_lock());
  if (function.has_fault) ret_fault = function.fault;
  return function.has_fault;
}

void store_result(const Signature& signature, std::int64_t number, void* ret) {
  if (signature.result->shape != Shape::kInteger && signature.result->shape != Shape::kWord) return;
  integer_store(*signature.result, {.negative = number < 0, .bits = static_cast<std::uint64_t>(number)}, ret);
}

// The platform's definition of the function, the next after the tap's; looked up once.
void* next_definition(Function& function) {
  void* next = function.next.load(std::memory_order_acquire);
  if (next == nullptr) {
    next = dlsym(RTLD_NEXT, function.signature.name);
    if (next == function.own()) next = nullptr;
    if (next != nullptr) function.next.store(next, std::memory_order_release);
  }
  return next;
}

void forward(Function& function, void* ret, void* const* args, const std::size_t* sizes) {
  if (void* next = next_definition(function); next != nullptr) {
    function.signature.invoke(next, ret, args);
    return;
  }
  if (!function.missing_said.exchange(true)) {
    std::fprintf(stderr, "tap: no platform defines %s; it fails with -1\n", function.signature.name);
  }
  clear_outputs(function.signature, args, sizes);
  if (function.signature.result->is_signed) store_result(function.signature, -1, ret);
}

}  // namespace

// In this thread's own storage, so that a request sees only the calls that it made.
static thread_local dtv_tap_failure_t last_failure{};

void note_failure(const Function& function, std::int64_t result, bool by_fault) {
  last_failure = {.function = function.signature.name, .result = result, .by_fault = by_fault ? 1 : 0};
}

bool take_failure(dtv_tap_failure_t& ret_failure) {
  ret_failure = std::exchange(last_failure, {});
  return ret_failure.function != nullptr;
}

int know_function(Function& function) {
  function_list().push_back(&function);
  return 0;
}

std::span<Function* const> functions() { return function_list(); }

Function* find_function(std::string_view name) {
  for (Function* function : function_list()) {
    if (name == function->signature.name) return function;
  }
  return nullptr;
}

void call(Function& function, void* ret, void* const* args, const std::size_t* sizes) {
  const Signature& signature = function.signature;
  const unsigned active = g_active.load(std::memory_order_acquire);
  const Start start = start_now();
  Json in;
  if ((active & (kWatched | kRecorded | kScripted | kReplayed)) != 0) in = arguments_in(signature, args, sizes);
  keep_callbacks(function, args);

  dtv_tap_fault_t fault{};
  const bool faulty = fault_of(function, fault);
  const bool fails = faulty && fault.fails != 0;
  if (faulty && fault.delay_ms > 0) std::this_thread::sleep_for(std::chrono::milliseconds(fault.delay_ms));
  if (fails) {
    clear_outputs(signature, args, sizes);
    store_result(signature, fault.result, ret);
  } else if (!((active & kScripted) != 0 && script_answer(function, in.get(), ret, args, sizes)) &&
             !((active & kReplayed) != 0 && replay_answer(function, in.get(), ret, args, sizes))) {
    forward(function, ret, args, sizes);
  }
  if (signature.result->is_signed && signature.result->shape == Shape::kInteger) {
    if (const Integer result = integer_load(*signature.result, ret); result.negative || fails)
      note_failure(function, static_cast<std::int64_t>(result.bits), fails);
  }

  if ((active & (kWatched | kRecorded)) == 0) return;
  const std::int64_t duration = now_us() - start.t;
  const Json line = new_line(start);
  cJSON_AddItemToObjectCS(line.get(), "call", cJSON_CreateStringReference(signature.name));
  cJSON_AddItemToObjectCS(line.get(), "in", in.release());
  add_result(line.get(), signature, ret);
  add_outputs(line.get(), signature, args, sizes);
  if (duration >= 1000) cJSON_AddItemToObjectCS(line.get(), "duration", json_integer(duration));
  emit(line.get());
}

namespace {

// Passes a callback to the plugin once, or not at all if it is dropped.
void deliver_once(Registration& registration, std::size_t slot, void* ret, void* const* args, const std::size_t* sizes,
                  bool dropped) {
  Function& function = *registration.function.load(std::memory_order_acquire);
  const Signature& callback = *registration.param.load(std::memory_order_acquire)->callback;
  const bool lines = (g_active.load(std::memory_order_acquire) & (kWatched | kRecorded)) != 0;
  // Before the callback gets its "seq", so that nobody who sees the number misses the callback.
  if (lines) begin_callback();
  const Start start = start_now();
  // Taken before the plugin runs, since the plugin may change what the arguments point at.
  Json in;
  if (lines) in = arguments_in(callback, args, sizes);

  if (!dropped) callback.invoke(registration.fct[slot].load(std::memory_order_acquire), ret, args);

  if (lines) {
    const Json line = new_line(start);
    cJSON_AddItemToObjectCS(line.get(), "event", cJSON_CreateStringReference(function.signature.name));
    cJSON_AddItemToObjectCS(line.get(), "in", in.release());
    if (dropped) {
      cJSON_AddTrueToObject(line.get(), "dropped");
    } else {
      add_result(line.get(), callback, ret);
    }
    emit(line.get());
    unwritten_callbacks.fetch_sub(1, std::memory_order_acq_rel);
  }
  if (!dropped) run_event_hook();
}

}  // namespace

int callbacks_under_way() { return unwritten_callbacks.load(); }

void hold_callbacks(bool hold) {
  holds_of_this_thread += hold ? 1 : -1;
  const std::lock_guard guard(gate().lock);
  if (gate().holders.fetch_add(hold ? 1 : -1) == 1 && !hold) gate().opened.notify_all();
}

void deliver(Registration& registration, std::size_t slot, void* ret, void* const* args, const std::size_t* sizes) {
  dtv_tap_fault_t fault{};
  const bool faulty = fault_of(*registration.function.load(std::memory_order_acquire), fault);
  const int times = faulty ? std::max(fault.repeat_callback, 1) : 1;
  for (int i = 0; i < times; ++i)
    deliver_once(registration, slot, ret, args, sizes, faulty && fault.drop_callback != 0);
}

bool is_output(const Param& param) { return param.direction != Direction::in; }

bool is_input(const Param& param) { return param.direction != Direction::out; }

void clear_outputs(const Signature& signature, void* const* args, const std::size_t* sizes) {
  for (std::size_t i = 0; i < signature.params.size(); ++i) {
    const Param& param = signature.params[i];
    if (!is_output(param)) continue;
    void* value = pointer_argument<void>(args[i]);
    if (value != nullptr) std::memset(value, 0, pointed_size(param.form, *param.type, sizes[i]));
  }
}

void write_output(const Param& param, const cJSON* json, void* arg, std::size_t size) {
  void* value = pointer_argument<void>(arg);
  if (value == nullptr || cJSON_IsNull(json)) return;
  std::string error;
  pointed_from_json(param.form, *param.type, json, value, size, error);
}

bool output_fits(const Param& param, const cJSON* json, std::string& ret_error) {
  return cJSON_IsNull(json) || pointed_from_json(param.form, *param.type, json, nullptr, 0, ret_error);
}

void write_result(const Signature& signature, const cJSON* json, void* ret) {
  std::string error;
  if (json != nullptr && ret != nullptr) value_from_json(*signature.result, json, ret, error);
}

bool is_addressed(const Signature& signature, const Param& param, void* const* args) {
  if (param.form != Form::address) return false;
  std::size_t position = 0;
  const Param* decider = find_param(signature, param.count, position);
  const Integer wanted = {.negative = param.number < 0, .bits = static_cast<std::uint64_t>(param.number)};
  return decider != nullptr && integer_load(*decider->type, args[position]) == wanted;
}

Form pointed_form(const Param& param) { return param.pointed->shape == Shape::kRecord ? Form::one : Form::string; }

const Param* find_param(const Signature& signature, std::string_view name, std::size_t& ret_position) {
  for (std::size_t i = 0; i < signature.params.size(); ++i) {
    if (name != signature.params[i].name) continue;
    ret_position = i;
    return &signature.params[i];
  }
  return nullptr;
}

bool by_position(const Signature& signature, const cJSON* json, std::span<const cJSON*> ret_values,
                 std::string& ret_error) {
  std::size_t position = 0;
  const cJSON* item = nullptr;
  cJSON_ArrayForEach(item, json) {
    std::size_t at = position++;
    if (cJSON_IsObject(json)) {
      const std::string_view key = item->string;
      Integer number;
      const Json digits(cJSON_CreateString(item->string));
      if (find_param(signature, key, at) != nullptr) {
      } else if (json_to_integer(digits.get(), number) && !number.negative && number.bits < signature.params.size()) {
        at = static_cast<std::size_t>(number.bits);
      } else {
        at = signature.params.size();
      }
    }
    if (at >= signature.params.size()) {
      ret_error = cJSON_IsObject(json) ? "no argument \"" + std::string(item->string) + "\"" : "too many arguments";
      ret_error += "; the arguments are";
      for (const Param& param : signature.params) ret_error += std::string(" ") + param.name;
      if (signature.params.empty()) ret_error += " none";
      return false;
    }
    ret_values[at] = item;
  }
  return true;
}

bool argument_matches(const Param& param, const cJSON* expected, const cJSON* came) {
  if (json_matches(expected, came)) return true;
  if (param.type->shape != Shape::kWord) return false;
  Integer left;
  Integer right;
  if (!json_to_integer(expected, left) || !json_to_integer(came, right)) return false;
  return static_cast<std::uintptr_t>(left.bits) == static_cast<std::uintptr_t>(right.bits);
}

std::string describe_call(const Signature& signature, const cJSON* in) { return signature.name + json_print(in); }

}  // namespace tap
