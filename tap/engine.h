// What happens to every callback, and to every call that does not go straight to the platform. For each function of the
// contract the macros of "tap/expand.h" make a few lines that decide which it is, collect the addresses of its
// arguments, and call the functions here, which know no function by name.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "dtv_tap.h"
#include "tap/json.h"
#include "tap/value.h"

namespace tap {

struct Param;
struct Function;

// A function or a callback type. invoke calls fct with the arguments that args points at, one address per argument.
struct Signature {
  const char* name;
  const Type* result;
  std::span<const Param> params;
  void (*invoke)(void* fct, void* ret, void* const* args);
};

// The callbacks that the plugin registered through one parameter of one function. A platform may keep several at once,
// so each gets a slot with a trampoline of its own. Once all slots are taken, a further one replaces that of the last.
constexpr std::size_t kSlots = 4;
struct Registration {
  std::atomic<Function*> function{nullptr};
  std::atomic<const Param*> param{nullptr};
  std::atomic<void*> fct[kSlots]{};
  // The latest registration, which is the one that dtv_tap_raise calls. The tap's lock guards slot and tag, and is
  // released before the callback runs. slot is kSlots while there is none.
  std::size_t slot = kSlots;
  Integer tag;
};

struct Param {
  Form form = Form::value;
  Direction direction = Direction::in;
  const char* name = "";
  const char* type_name = "";
  const Type* type = nullptr;  // of the value: the record, the array's element, the character
  const char* count = "";  // what the contract gives as its size: a number or a parameter; of an address the decider
  const Type* pointed = nullptr;  // of an address: of what it points at
  std::int64_t number = 0;        // of an address: the decider's value that makes it one
  const Signature* callback = nullptr;
  Registration* registration = nullptr;
  void* (*trampoline)(std::size_t slot) = nullptr;
};

struct Function {
  Signature signature;
  void* (*own)();                    // the tap's definition of it
  std::atomic<void*> next{nullptr};  // the platform's definition, once looked up
  std::atomic<bool> missing_said{false};
  bool has_fault = false;  // under the tap's lock, as is fault
  dtv_tap_fault_t fault{};
};

// The functions of the contract, in its order. Each registers itself before main or while the library is loaded.
int know_function(Function& function);
std::span<Function* const> functions();
Function* find_function(std::string_view name);

// Why a call cannot go straight to the platform.
enum Active : unsigned { kWatched = 1, kRecorded = 2, kFaulty = 4, kScripted = 8, kReplayed = 16 };
extern std::atomic<unsigned> g_active;
inline bool passive() { return g_active.load(std::memory_order_acquire) == 0; }
void set_active(Active reason, bool on);

void call(Function& function, void* ret, void* const* args, const std::size_t* sizes);
void deliver(Registration& registration, std::size_t slot, void* ret, void* const* args, const std::size_t* sizes);

// Remembers, for dtv_tap_take_failure, that a call on this thread returned a negative result.
void note_failure(const Function& function, std::int64_t result, bool by_fault);
bool take_failure(dtv_tap_failure_t& ret_failure);

// Passes a call straight to the platform.
template <class Result, class... Params>
Result pass(const Function& function, Result (*next)(Params...), std::type_identity_t<Params>... args) {
  if constexpr (std::is_integral_v<Result> && std::is_signed_v<Result>) {
    const Result result = next(args...);
    if (result < 0) note_failure(function, result, false);
    return result;
  } else {
    return next(args...);
  }
}

template <class Result>
Result call(Function& function, void* const* args, const std::size_t* sizes) {
  if constexpr (std::is_void_v<Result>) {
    call(function, nullptr, args, sizes);
  } else {
    Result result{};
    call(function, &result, args, sizes);
    return result;
  }
}

template <class Result>
Result deliver(Registration& registration, std::size_t slot, void* const* args, const std::size_t* sizes) {
  if constexpr (std::is_void_v<Result>) {
    deliver(registration, slot, nullptr, args, sizes);
  } else {
    Result result{};
    deliver(registration, slot, &result, args, sizes);
    return result;
  }
}

template <class Result, class... Args, std::size_t... I>
void invoke_with(Result (*fct)(Args...), void* ret, [[maybe_unused]] void* const* args, std::index_sequence<I...>) {
  if constexpr (std::is_void_v<Result>) {
    fct(*static_cast<std::remove_cv_t<Args>*>(args[I])...);
  } else {
    *static_cast<Result*>(ret) = fct(*static_cast<std::remove_cv_t<Args>*>(args[I])...);
  }
}
template <class Result, class... Args>
void invoke_as(Result (*fct)(Args...), void* ret, void* const* args) {
  invoke_with(fct, ret, args, std::index_sequence_for<Args...>{});
}
template <class Fct>
void invoke(void* fct, void* ret, void* const* args) {
  invoke_as(reinterpret_cast<Fct>(fct), ret, args);
}

// How many elements the parameter that names a size gives room for.
template <class T>
std::size_t count_of(T value) {
  if constexpr (std::is_pointer_v<T>) {
    return value == nullptr ? 0 : count_of(*value);
  } else {
    return std::cmp_greater(value, 0) ? static_cast<std::size_t>(value) : 0;
  }
}

// --- For the other files of the tap ---

int callbacks_under_way();       // that began with a watcher, and whose line is not yet written
void hold_callbacks(bool hold);  // see dtv_tap_hold_callbacks

// Whether two JSON values are the same argument, as json_matches compares them; words are cut to the width of a
// pointer.
bool argument_matches(const Param& param, const cJSON* expected, const cJSON* came);
// Whether an argument of the form address is an address this time, and not a number.
bool is_addressed(const Signature& signature, const Param& param, void* const* args);
Form pointed_form(const Param& param);  // of what an address points at
const Param* find_param(const Signature& signature, std::string_view name, std::size_t& ret_position);
// Turns {"2": value, "name": value} or [value, ...] into values by position, owned by json. ret_values has a place for
// each parameter; the place of one that json leaves out is not written.
bool by_position(const Signature& signature, const cJSON* json, std::span<const cJSON*> ret_values,
                 std::string& ret_error);
bool is_output(const Param& param);  // written by what is called: the platform, or the plugin's callback
bool is_input(const Param& param);   // read by it
void clear_outputs(const Signature& signature, void* const* args, const std::size_t* sizes);
void write_output(const Param& param, const cJSON* json, void* arg, std::size_t size);
void write_result(const Signature& signature, const cJSON* json, void* ret);
bool output_fits(const Param& param, const cJSON* json, std::string& ret_error);
std::string describe_call(const Signature& signature, const cJSON* in);

// A callback to raise, with its arguments checked.
struct Raise {
  Function* function = nullptr;
  Registration* registration = nullptr;
  const Signature* callback = nullptr;
  const cJSON* args = nullptr;  // borrowed; an array by position, or an object by name
};
bool prepare_raise(const char* name, const cJSON* args, Raise& ret_raise, std::string& ret_error);
// Raises it on another thread and waits. False when nothing is registered.
bool raise_and_wait(const Raise& raise, std::int64_t& ret_result, std::string& ret_error);
// Raises it on this thread.
bool raise_here(const Raise& raise, std::int64_t& ret_result, std::string& ret_error);

// Answer a call in place of the platform, also one that they have no answer for: its outputs are cleared and its result
// is 0. False only if the script or the recording was ended meanwhile. in: the arguments by name.
bool script_answer(Function& function, const cJSON* in, void* ret, void* const* args, const std::size_t* sizes);
bool replay_answer(Function& function, const cJSON* in, void* ret, void* const* args, const std::size_t* sizes);

// Reports what went wrong inside the tap as a line {"t", "seq", "thread", "error"}, or on stderr while there is neither
// a watcher nor a recording.
void report_error(const std::string& text);

}  // namespace tap
