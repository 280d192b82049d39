#include "fake_platform.h"

#include <mutex>
#include <type_traits>

namespace {
std::mutex mutex;
std::map<std::string, std::int32_t> results;
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
  if constexpr (sizeof...(T) == 2) {
    if constexpr ((std::is_same_v<T, a_vextvapi_volctrl_nfy_fct> || ...)) {
      const auto keep = [](a_vextvapi_volctrl_nfy_fct callback, void* tag) {
        volume_callback = callback;
        volume_tag = tag;
      };
      keep(arguments...);
    }
  }
  const auto result = results.find(name);
  return result == results.end() ? 0 : result->second;
}
}  // namespace

void platform_reset() {
  const std::lock_guard guard(mutex);
  results.clear();
  calls.clear();
}

void platform_answer(const std::string& name, std::int32_t result) {
  const std::lock_guard guard(mutex);
  results[name] = result;
}

std::vector<PlatformCall> platform_calls() {
  const std::lock_guard guard(mutex);
  return calls;
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
#define TVAPI_FN(ret, name, ...)                                                               \
  ret name(TVAPI_EACH(TVAPI_DECLARE, __VA_ARGS__)) {                                           \
    return static_cast<ret>(called(#name __VA_OPT__(, ) TVAPI_EACH(TVAPI_NAME, __VA_ARGS__))); \
  }
#define TVAPI_CALLBACK(...)
#include "tvapi/all.h"
