#include "recording_platform.h"

#include <map>
#include <mutex>
#include <string_view>
#include <type_traits>
#include <utility>

namespace {

struct Registration {
  std::vector<std::int64_t> arguments;
  std::function<void(std::uint8_t)> raise;
};

std::mutex mutex;  // guards what follows
std::map<std::string, std::int32_t> results;
std::map<std::string, std::function<void(const std::vector<std::int64_t>&)>> actions;
std::vector<PlatformCall> calls;
std::map<std::string, Registration> registrations;  // by the function that registers

alignas(16) char cleared[4096];

// A made-up argument of a callback. form: that of the parameter in the contract. An untyped pointer is a number, unless
// it may be an address.
template <typename T>
T made_up([[maybe_unused]] std::string_view form, std::uint8_t number) {
  if constexpr (std::is_same_v<T, void*>)
    return form == "address" ? cleared : reinterpret_cast<void*>(std::uintptr_t{number});
  else if constexpr (std::is_pointer_v<T>)
    return reinterpret_cast<T>(cleared);
  else
    return T{number};
}

template <typename T>
std::int64_t as_number(T argument) {
  if constexpr (std::is_pointer_v<T>)
    return static_cast<std::int64_t>(reinterpret_cast<std::intptr_t>(argument));
  else if constexpr (std::is_class_v<T>)
    return 0;
  else
    return static_cast<std::int64_t>(argument);
}

// What every function of the platform does: records the call and returns the result that the test has set.
std::int32_t called(const char* name, const std::vector<std::int64_t>& arguments) {
  const std::lock_guard guard(mutex);
  calls.push_back({name, arguments});
  if (const auto action = actions.find(name); action != actions.end()) action->second(arguments);
  const auto result = results.find(name);
  return result == results.end() ? 0 : result->second;
}

// Keeps a callback that a function registers; a null callback ends the registration. raise: calls the callback with
// made-up arguments. Returns 0.
template <typename Callback>
int registered(const char* name, const std::vector<std::int64_t>& arguments, Callback callback,
               void (*raise)(Callback callback, std::uint8_t number)) {
  const std::lock_guard guard(mutex);
  if (callback)
    registrations[name] = {arguments, [callback, raise](std::uint8_t number) { raise(callback, number); }};
  else
    registrations.erase(name);
  return 0;
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

std::vector<std::int64_t> platform_registration(const std::string& name) {
  const std::lock_guard guard(mutex);
  const auto registration = registrations.find(name);
  return registration == registrations.end() ? std::vector<std::int64_t>{} : registration->second.arguments;
}

void platform_raise_all() {
  std::vector<std::function<void(std::uint8_t)>> events;
  {
    const std::lock_guard guard(mutex);
    for (const auto& [name, registration] : registrations) events.push_back(registration.raise);
  }
  constexpr std::uint8_t kNumbers = 8;
  for (const auto& raise : events)
    for (std::uint8_t number = 0; number < kNumbers; ++number) raise(number);
}

// One definition per statement of the contract.
#define MADE_UP(p) TVAPI_ROW(MADE_UP_ROW, p)
#define MADE_UP_ROW(form, direction, ctype, ...) made_up<ctype>(#form, number)
#define TVAPI_CALLBACK(ret, name, ...) \
  static void raise_##name(name callback, std::uint8_t number) { callback(TVAPI_EACH(MADE_UP, __VA_ARGS__)); }
#define REGISTERED(p) TVAPI_ROW(REGISTERED_ROW, p)
#define REGISTERED_ROW(form, direction, ctype, name, type, count, ...) \
  (0 __VA_OPT__(+registered(__func__, arguments, name, raise_##__VA_ARGS__)))
#define AS_NUMBER(p) as_number(TVAPI_NAME(p))
#define TVAPI_FN(ret, name, ...)                                                                \
  ret name(TVAPI_EACH(TVAPI_DECLARE, __VA_ARGS__)) {                                            \
    const std::vector<std::int64_t> arguments = {TVAPI_EACH(AS_NUMBER, __VA_ARGS__)};           \
    [[maybe_unused]] const int kept[] = {0 __VA_OPT__(, ) TVAPI_EACH(REGISTERED, __VA_ARGS__)}; \
    return static_cast<ret>(called(#name, arguments));                                          \
  }
#include "tvapi/all.h"
