#include "platform.h"

#include <chrono>
#include <string_view>
#include <thread>

Platform platform;

INT32 raise_volume(INT32 level) {
  void* const word = reinterpret_cast<void*>(static_cast<intptr_t>(level));
  return platform.callback.load()(0, platform.tag, word, nullptr, nullptr, nullptr);
}

static INT32 answer(std::string_view name) {
  if (name == "IVexPb_Ctrl_Init") ++platform.starts;
  if (name == "a_vextvapi_volctrl_getVolume") return platform.volume;
  if (name == "a_vextvapi_volctrl_getMute") {
    while (platform.holds_mute) {
      platform.mute_is_held = true;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    platform.mute_is_held = false;
  }
  return 0;
}

static INT32 answer(std::string_view name, INT16 level) {
  if (name == "a_vextvapi_volctrl_setVolume") platform.volume = level;
  return 0;
}

static INT32 answer(std::string_view name, a_vextvapi_volctrl_nfy_fct callback, void* tag) {
  if (name == "a_vextvapi_volctrl_reg_callback") {
    platform.tag = tag;
    platform.callback = callback;
  }
  return 0;
}

// Of a function that these tests do not look into.
template <typename... T>
static INT32 answer(std::string_view, T...) {
  return 0;
}

// Two calls at once can only come from two requests at once: handlers call nothing from a callback.
template <typename... T>
static INT32 called(std::string_view name, T... arguments) {
  if (platform.inside++ > 0) ++platform.overlaps;
  const INT32 ret = answer(name, arguments...);
  --platform.inside;
  return ret;
}

// One definition per statement of the contract.
#define TVAPI_FN(ret, name, ...)                                                               \
  ret name(TVAPI_EACH(TVAPI_DECLARE, __VA_ARGS__)) {                                           \
    return static_cast<ret>(called(#name __VA_OPT__(, ) TVAPI_EACH(TVAPI_NAME, __VA_ARGS__))); \
  }
#define TVAPI_CALLBACK(...)
#include "tvapi/all.h"
