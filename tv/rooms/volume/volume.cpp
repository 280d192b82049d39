// Volume and mute. The scale is 0 to 100, a step is 1. A call of the TV API changes either the volume or mute; the
// remote control also unmutes when it raises the volume.
#include "rooms/volume/volume.h"

#include <algorithm>
#include <atomic>
#include <boost/json.hpp>
#include <mutex>

#include "base/text.h"
#include "core/contract.h"
#include "core/events.h"
#include "core/reply.h"
#include "core/room.h"
#include "core/store.h"

namespace {

constexpr Setting kLevel{.key = "volume", .factory = 20, .minimum = 0, .maximum = 100};
constexpr Setting kMute{.key = "mute", .factory = 0, .minimum = 0, .maximum = 1};

struct alignas(8) Volume {  // read and written atomically
  INT32 level;
  INT32 mute;  // 0 not muted, 1 muted
  bool operator==(const Volume&) const = default;
};

constexpr Volume kFactory{.level = kLevel.factory, .mute = kMute.factory};

std::atomic<Volume> volume =
    kFactory;  // changed only under the lock; read without it, so that no read waits for the disk

std::atomic<TimerTime> changed = kTimerNever;

std::mutex lock;  // serializes changes; guards the variables below
void (*listener)() = nullptr;
a_vextvapi_volctrl_nfy_fct callback = nullptr;
void* callback_tag = nullptr;

std::string limits() { return std::to_string(kLevel.minimum) + " to " + std::to_string(kLevel.maximum); }

void* as_pointer(INT32 number) { return reinterpret_cast<void*>(static_cast<std::intptr_t>(number)); }

// Stores the wanted state and posts the callback for it. Does nothing if it is the current state. The caller holds the
// lock.
INT32 change(const Volume& wanted) {
  if (wanted == volume.load()) return 0;
  const SettingValue values[] = {{kLevel.key, wanted.level}, {kMute.key, wanted.mute}};
  if (!store_write(values)) return -1;
  volume = wanted;
  changed = timer_now();
  if (listener != nullptr) listener();
  if (callback != nullptr) {
    events_post([fct = callback, tag = callback_tag, wanted] {
      fct(0, tag, as_pointer(wanted.level), as_pointer(wanted.mute), nullptr, nullptr);
    });
  }
  return 0;
}

// The level after a step. The caller of this function, turn_to and switch_mute holds the lock.
INT32 level_by(INT32 by) { return std::clamp<INT32>(volume.load().level + by, kLevel.minimum, kLevel.maximum); }

INT32 step(INT32 by) {
  const std::lock_guard guard(lock);
  return change({.level = level_by(by), .mute = volume.load().mute});
}

// Turns the volume as the keys do.
INT32 turn_to(INT32 level, bool raises) { return change({.level = level, .mute = raises ? 0 : volume.load().mute}); }

INT32 switch_mute(bool mute) { return change({.level = volume.load().level, .mute = mute ? 1 : 0}); }

}  // namespace

INT32 a_vextvapi_volctrl_getVolume() { return volume.load().level; }

INT32 a_vextvapi_volctrl_getMute() { return volume.load().mute; }

INT32 a_vextvapi_volctrl_setVolume(INT16 wanted) {
  if (wanted < kLevel.minimum || wanted > kLevel.maximum) {
    return refuse_call(__func__, std::to_string(wanted) + " is not within " + limits());
  }
  const std::lock_guard guard(lock);
  return change({.level = wanted, .mute = volume.load().mute});
}

INT32 a_vextvapi_volctrl_incrVolume() { return step(1); }

INT32 a_vextvapi_volctrl_decrVolume() { return step(-1); }

INT32 a_vextvapi_volctrl_setMute(UINT8 wanted) {
  if (wanted > kMute.maximum) {
    return refuse_call(__func__, std::to_string(wanted) + " is neither 0 nor 1");
  }
  const std::lock_guard guard(lock);
  return change({.level = volume.load().level, .mute = wanted});
}

INT32 a_vextvapi_volctrl_reg_callback(a_vextvapi_volctrl_nfy_fct fct, void* tag) {
  const std::lock_guard guard(lock);
  callback = fct;
  callback_tag = tag;
  return 0;
}

bool volume_press(int by) {
  const std::lock_guard guard(lock);
  return turn_to(level_by(by), by > 0) == 0;
}

bool mute_press() {
  const std::lock_guard guard(lock);
  return switch_mute(volume.load().mute == 0) == 0;
}

int volume_level() { return volume.load().level; }

bool volume_is_muted() { return volume.load().mute != 0; }

bool volume_set(int level) {
  if (level < kLevel.minimum || level > kLevel.maximum) return false;
  const std::lock_guard guard(lock);
  return turn_to(level, false) == 0;
}

bool mute_set(bool mute) {
  const std::lock_guard guard(lock);
  return switch_mute(mute) == 0;
}

void volume_on_change(void (*fct)()) {
  const std::lock_guard guard(lock);
  listener = fct;
}

TimerTime volume_changed() { return changed; }

namespace {

void load() {
  const std::lock_guard guard(lock);
  volume = Volume{.level = static_cast<INT32>(store_read(kLevel)), .mute = static_cast<INT32>(store_read(kMute))};
  changed = kTimerNever;
}

bool reset() {
  const std::lock_guard guard(lock);
  return change(kFactory) == 0;
}

void report(boost::json::object& answer) {
  const auto [level, mute] = volume.load();
  answer["volume"] = level;
  answer["mute"] = mute != 0;
}

boost::json::object answer(INT32 result) {
  if (result != 0) return reply_not_kept();
  boost::json::object answer;
  report(answer);
  return answer;
}

boost::json::object volume_command(Arguments arguments) {
  if (arguments.empty()) return answer(0);
  const std::string_view wanted = arguments[0];
  INT32 level = 0;
  std::unique_lock guard(lock);
  if (wanted == "up" || wanted == "down") {
    level = level_by(wanted == "up" ? 1 : -1);
  } else {
    const auto number = parse_number_within<INT32>(wanted, kLevel.minimum, kLevel.maximum);
    if (!number) return reply_takes("volume", "up, down or a number from " + limits(), wanted);
    level = *number;
  }
  const INT32 result = turn_to(level, wanted == "up" || level > volume.load().level);
  guard.unlock();
  return answer(result);
}

boost::json::object mute_command(Arguments arguments) {
  if (arguments.empty()) return answer(0);
  const std::string_view wanted = arguments[0];
  if (wanted != "on" && wanted != "off" && wanted != "toggle") {
    return reply_takes("mute", "on, off or toggle", wanted);
  }
  std::unique_lock guard(lock);
  const INT32 result = switch_mute(wanted == "toggle" ? volume.load().mute == 0 : wanted == "on");
  guard.unlock();
  return answer(result);
}

constexpr Command kCommands[] = {
    {"volume", "[N|up|down]", 1, "Sets the volume (0 to 100) as the remote control does: raising it also unmutes",
     volume_command},
    {"mute", "[on|off|toggle]", 1, "Presses the mute key", mute_command},
};

}  // namespace

const Room room_volume = {.commands = kCommands, .load = load, .reset = reset, .report = report};
