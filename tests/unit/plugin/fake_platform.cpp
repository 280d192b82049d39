#include "fake_platform.h"

#include <functional>
#include <mutex>
#include <string_view>
#include <type_traits>
#include <utility>

namespace {
alignas(16) char cleared[4096];

// A made-up argument of a callback. form: that of its statement. An untyped pointer is a number, unless it may be an
// address.
template <typename T>
T made_up([[maybe_unused]] std::string_view form, std::uint8_t number) {
  if constexpr (std::is_same_v<T, void*>)
    return form == "address" ? cleared : reinterpret_cast<void*>(std::uintptr_t{number});
  else if constexpr (std::is_pointer_v<T>)
    return reinterpret_cast<T>(cleared);
  else
    return T{number};
}

std::mutex mutex;
std::map<std::string, std::function<void(std::uint8_t)>> raise_event;  // by the function that registered the callback

// Keeps the callback that a function registers. raise: calls it with made-up arguments. Returns 0.
template <typename Callback>
int keep_callback(const char* name, Callback callback, void (*raise)(Callback callback, std::uint8_t number)) {
  const std::lock_guard guard(mutex);
  if (callback)
    raise_event[name] = [callback, raise](std::uint8_t number) { raise(callback, number); };
  else
    raise_event.erase(name);
  return 0;
}

std::map<std::string, std::int32_t> results;
std::map<std::string, std::function<void(const std::vector<std::int64_t>&)>> actions;
std::vector<PlatformCall> calls;
a_vextvapi_volctrl_nfy_fct volume_callback;
void* volume_tag;

template <typename T>
std::int64_t as_number(T argument) {
  if constexpr (std::is_pointer_v<T>)
    return static_cast<std::int64_t>(reinterpret_cast<std::intptr_t>(argument));
  else if constexpr (std::is_class_v<T>)
    return 0;  // a record by value is not looked into
  else
    return static_cast<std::int64_t>(argument);
}

template <typename... T>
std::int32_t called(const char* name, T... arguments) {
  const std::lock_guard guard(mutex);
  calls.push_back({name, {as_number(arguments)...}});
  // Other callbacks may have the same type.
  if constexpr (std::is_invocable_v<void (*)(a_vextvapi_volctrl_nfy_fct, void*), T...>) {
    const auto keep = [](a_vextvapi_volctrl_nfy_fct callback, void* tag) {
      volume_callback = callback;
      volume_tag = tag;
    };
    if (std::string_view(name) == "a_vextvapi_volctrl_reg_callback") keep(arguments...);
  }
  if (const auto action = actions.find(name); action != actions.end()) action->second(calls.back().arguments);
  const auto result = results.find(name);
  return result == results.end() ? 0 : result->second;
}
}  // namespace

void platform_reset() {
  const std::lock_guard guard(mutex);
  results.clear();
  actions.clear();
  calls.clear();
}

void platform_answer(const std::string& name, std::int32_t result) {
  const std::lock_guard guard(mutex);
  results[name] = result;
}

void platform_do(const std::string& name, std::function<void(const std::vector<std::int64_t>&)> action) {
  const std::lock_guard guard(mutex);
  actions[name] = std::move(action);
}

std::vector<PlatformCall> platform_calls() {
  const std::lock_guard guard(mutex);
  return calls;
}

void platform_raise_all() {
  std::vector<std::function<void(std::uint8_t)>> events;
  {
    const std::lock_guard guard(mutex);
    for (const auto& [name, raise] : raise_event) events.push_back(raise);
  }
  constexpr std::uint8_t kNumbers = 8;
  for (const auto& raise : events)
    for (std::uint8_t number = 0; number < kNumbers; ++number) raise(number);
}

a_vextvapi_volctrl_nfy_fct platform_volume_callback() {
  const std::lock_guard guard(mutex);
  return volume_callback;
}

void* platform_volume_tag() {
  const std::lock_guard guard(mutex);
  return volume_tag;
}

// One definition per statement of the contract.
#define MADE_UP(p) TVAPI_ROW(MADE_UP_ROW, p)
#define MADE_UP_ROW(form, direction, ctype, ...) made_up<ctype>(#form, number)
#define TVAPI_CALLBACK(ret, name, ...) \
  static void raise_##name(name callback, std::uint8_t number) { callback(TVAPI_EACH(MADE_UP, __VA_ARGS__)); }
#define KEPT(p) TVAPI_ROW(KEPT_ROW, p)
#define KEPT_ROW(form, direction, ctype, name, type, count, ...) \
  (0 __VA_OPT__(+keep_callback(__func__, name, raise_##__VA_ARGS__)))
#define TVAPI_FN(ret, name, ...)                                                               \
  ret name(TVAPI_EACH(TVAPI_DECLARE, __VA_ARGS__)) {                                           \
    [[maybe_unused]] const int kept[] = {0 __VA_OPT__(, ) TVAPI_EACH(KEPT, __VA_ARGS__)};      \
    return static_cast<ret>(called(#name __VA_OPT__(, ) TVAPI_EACH(TVAPI_NAME, __VA_ARGS__))); \
  }
#include "tvapi/all.h"
