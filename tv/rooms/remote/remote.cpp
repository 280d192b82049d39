// The remote control: power, and the keys, most of which act on another room. Keys come from the command device, as
// commands of the infrared receiver, and from the command "key"; both call press().
//
// In standby the volume keys do nothing, and any other key only wakes the set. Up to four digits become a channel
// number: the fourth at once, fewer after a moment or with ENTER. A number without a channel does nothing.
#include "rooms/remote/remote.h"

#include <algorithm>
#include <boost/json.hpp>
#include <cctype>
#include <climits>
#include <cstdio>
#include <mutex>
#include <optional>
#include <utility>

#include "core/reply.h"
#include "core/room.h"
#include "core/store.h"
#include "core/timers.h"
#include "dtv_tv.h"
#include "rooms/apps/apps.h"
#include "rooms/cec/cec.h"
#include "rooms/channels/channels.h"
#include "rooms/clock/clock.h"
#include "rooms/config/config.h"
#include "rooms/multiview/multiview.h"
#include "rooms/playback/playback.h"
#include "rooms/sources/sources.h"
#include "rooms/tuner/tuner.h"
#include "rooms/volume/volume.h"

namespace {

constexpr const char* kSubtitleKey = "g_misc__dvb_subtitle_enabled";

constexpr std::chrono::milliseconds kNextDigit(1500);  // within which another digit continues the number
constexpr int kMostDigits = 4;

struct State {
  std::mutex lock;  // guards all members below
  bool on = true;
  std::uint32_t number = 0;      // the digits of a channel number so far
  int digits = 0;                // how many they are; 0: no number has been begun
  TimerTime number_due;          // when it becomes the channel, if no other digit comes
  TimerTime info = kTimerNever;  // when INFO was pressed last
  const char* last_key = "";
};

Timer number_timer;

// Never destroyed: other threads may still use it when the process exits.
State& state = *new State;

// ---- What keys do ----

// The functions below return false if the change was not saved, or the set is off. They hold no lock when they call
// another room. A number that has been begun may be gone then.

// Ends the number that has been begun, and returns it; nothing: there is none.
std::optional<std::uint32_t> take_number() {
  const std::lock_guard guard(state.lock);
  if (std::exchange(state.digits, 0) == 0) return std::nullopt;
  return std::exchange(state.number, 0);
}

bool tune_to_number() {
  const auto number = take_number();
  return !number || tuner_number(*number);
}

bool press_channel(int by) {
  take_number();
  return tuner_step(by);
}

bool press_favourite_channel(int) {
  take_number();
  return tuner_step_favourite(1);
}

bool press_previous(int) {
  take_number();
  return tuner_previous();
}

void number_is_over() {
  {
    const std::lock_guard guard(state.lock);
    if (state.digits == 0 || timer_now() < state.number_due) return;
  }
  tune_to_number();
}

bool press_digit(int digit) {
  {
    const std::lock_guard guard(state.lock);
    state.number = state.number * 10 + static_cast<std::uint32_t>(digit);
    if (++state.digits < kMostDigits) {
      state.number_due = timer_now() + kNextDigit;
      return timer_set(number_timer, state.number_due, number_is_over);
    }
  }
  return tune_to_number();
}

bool press_enter(int) {
  const auto number = take_number();
  if (number) return tuner_number(*number);
  playback_press_pause();
  return true;
}

bool press_skip(int by) {
  playback_press_skip(by);
  return true;
}

bool press_beginning(int) { return press_skip(-INT_MAX); }

bool press_favourite(int) {
  const auto channel = tuner_channel();
  return !channel || channels_toggle_favourite(channel->id).has_value();
}

bool press_info(int) {
  const std::lock_guard guard(state.lock);
  state.info = timer_now();
  return true;
}

bool press_source(int) { return sources_step(); }

bool press_audio(int) { return tuner_step_audio(); }

bool press_pip(int) { return multiview_step_mode(); }

bool press_pip_place(int) { return multiview_step_place(); }

bool press_pip_size(int) { return multiview_step_size(); }

bool press_swap(int) { return multiview_swap(); }

bool press_volume(int by) { return volume_press(by); }

bool press_mute(int) { return mute_press(); }

bool press_subtitle(int) { return config_set(kSubtitleKey, config_number(kSubtitleKey) == 0 ? 1 : 0) == 0; }

bool press_sleep(int) { return clock_step_sleep(); }

bool press_exit(int) {
  if (!playback_press_stop()) apps_leave_menu();
  return true;
}

bool press_power(int) {
  remote_standby();
  return true;
}

struct Action {
  std::string_view key;
  const char* help;
  bool (*press)(int argument);
  int argument = 0;
  bool wakes = true;  // the set from standby
};

constexpr Action kActions[] = {
    {"POWER", "to standby and back", press_power},
    {"SOURCE", "next source", press_source},
    {"SLEEP", "next step of the sleep timer", press_sleep},
    {"CC", "subtitles on and off", press_subtitle},
    {"SUBTITLE", "subtitles on and off", press_subtitle},
    {"0", "channel number", press_digit, 0},
    {"1", "channel number", press_digit, 1},
    {"2", "channel number", press_digit, 2},
    {"3", "channel number", press_digit, 3},
    {"4", "channel number", press_digit, 4},
    {"5", "channel number", press_digit, 5},
    {"6", "channel number", press_digit, 6},
    {"7", "channel number", press_digit, 7},
    {"8", "channel number", press_digit, 8},
    {"9", "channel number", press_digit, 9},
    {"ENTER", "completes a channel number; pauses and resumes a recording that is played", press_enter},
    {"CH+", "next channel", press_channel, 1},
    {"CH-", "previous channel number", press_channel, -1},
    {"PRE-CH", "back to the channel seen before", press_previous},
    {"FAVCH+/-", "next favourite channel", press_favourite_channel},
    {"FAVORITE", "makes the channel a favourite, or no longer one", press_favourite},
    {"INFO", "shows the channel and the programme", press_info},
    {"MTS/AUDIO", "next sound track", press_audio},
    {"PIP/POP", "second picture: small, beside, none", press_pip},
    {"PIPPOS", "next corner for the small picture", press_pip_place},
    {"PIPSIZE", "next size of the small picture", press_pip_size},
    {"SWAP", "swaps the two pictures", press_swap},
    {"VOL+", "louder", press_volume, 1, false},
    {"VOL-", "softer", press_volume, -1, false},
    {"MUTE", "mute", press_mute, 0, false},
    {"FF", "30 seconds on in a recording", press_skip, 30},
    {"FR", "10 seconds back in a recording", press_skip, -10},
    {"PREV", "back to the beginning of a recording", press_beginning},
    {"EXIT", "ends a recording that is played, else the set's own applications", press_exit},
};

// ---- The keys ----

struct Key {
  const char* name;
  std::string_view code;
  const Action* action;  // null: the key does nothing but wake the set
};

constexpr const Action* action_of(std::string_view name) {
  const auto* const found = std::ranges::find(kActions, name, &Action::key);
  return found == std::end(kActions) ? nullptr : found;
}

constexpr Key kKeys[] = {
#define TVC_KEY(name, code) {name, code, action_of(name)},
#include "vex_tv_ctrl/keys.def"
};

static_assert(std::ranges::count_if(kKeys, [](const Key& key) { return key.action != nullptr; }) ==
                  std::ranges::ssize(kActions),
              "every action belongs to a key");

bool press(const Key& key) {
  bool was_on = false;
  {
    const std::lock_guard guard(state.lock);
    was_on = state.on;
    if (!was_on && key.action != nullptr && !key.action->wakes) return true;
    state.on = true;
    state.last_key = key.name;
  }
  if (!was_on) tuner_update();
  return !was_on || key.action == nullptr || key.action->press(key.action->argument);
}

// ---- The command device ----

constexpr std::string_view kReceive = "ir.rx.send ";
constexpr std::size_t kLongestLine = 64;

std::mutex device_lock;  // guards the line
std::string line;        // characters since the last line feed; at most one more than a line may have

void carry_out(std::string_view command) {
  if (command.ends_with('\r')) command.remove_suffix(1);
  if (command.starts_with(kReceive) && command.size() <= kLongestLine) {
    const auto* const key = std::ranges::find(kKeys, command.substr(kReceive.size()), &Key::code);
    if (key != std::end(kKeys)) {
      press(*key);  // a failure is on stderr already
      return;
    }
  }
  std::string shown(command.substr(0, kLongestLine));
  std::ranges::replace_if(
      shown, [](unsigned char c) { return std::isprint(c) == 0; }, '?');
  std::fprintf(stderr, "dtv_tv: the command device does not know \"%s\"\n", shown.c_str());
}

}  // namespace

void dtv_tv_command(char character) {
  std::string command;
  {
    const std::lock_guard guard(device_lock);
    if (!store_is_open()) {
      line.clear();
      return;
    }
    if (character != '\n') {
      if (line.size() <= kLongestLine) line += character;
      return;
    }
    command.swap(line);
  }
  carry_out(command);
}

bool remote_is_on() {
  const std::lock_guard guard(state.lock);
  return state.on;
}

void remote_wake() {
  const std::lock_guard guard(state.lock);
  if (!std::exchange(state.on, true)) tuner_update();
}

TimerTime remote_info_pressed() {
  const std::lock_guard guard(state.lock);
  return state.info;
}

void remote_standby() {
  bool was_on = false;
  {
    const std::lock_guard guard(state.lock);
    was_on = std::exchange(state.on, false);
    state.number = 0;
    state.digits = 0;
  }
  playback_leave();
  if (was_on) tuner_update();
  multiview_end();
  clock_stop_sleep();
  apps_end();
  if (was_on) cec_standby();
}

void remote_show_hdmi(int input) {
  if (remote_is_on()) sources_choose_hdmi(input);
}

namespace {

void load() {
  {
    const std::lock_guard guard(device_lock);
    line.clear();  // what was typed before the set was switched off
  }
  const std::lock_guard guard(state.lock);
  state.on = true;
  state.number = 0;
  state.digits = 0;
  state.info = kTimerNever;
  state.last_key = "";
}

bool reset() {
  load();
  return true;
}

void report(boost::json::object& answer) {
  const auto channel = tuner_channel();
  const std::string source = sources_name(sources_current());
  const std::lock_guard guard(state.lock);
  answer["power"] = state.on ? "on" : "standby";
  answer["channel"] = channel ? boost::json::value(channel->number) : nullptr;
  if (channel) answer["channel_name"] = channel->name;
  answer["source"] = source;
  answer["key"] = state.last_key;
}

boost::json::object reported() {
  boost::json::object answer;
  report(answer);
  return answer;
}

boost::json::object list_keys() {
  boost::json::array keys;
  for (const Key& key : kKeys) {
    keys.push_back({{"name", key.name}, {"code", key.code}, {"does", key.action == nullptr ? "" : key.action->help}});
  }
  return {{"keys", std::move(keys)}};
}

boost::json::object power_command(Arguments arguments) {
  if (arguments.empty()) return reported();
  const std::string_view wanted = arguments[0];
  if (wanted != "on" && wanted != "standby" && wanted != "toggle") {
    return reply_takes("power", "on, standby or toggle", wanted);
  }
  if (wanted == "standby" || (wanted == "toggle" && remote_is_on())) {
    remote_standby();
  } else {
    remote_wake();
  }
  return reported();
}

boost::json::object key_command(Arguments arguments) {
  if (arguments.empty()) return list_keys();
  const auto* const key = std::ranges::find(kKeys, arguments[0], &Key::name);
  if (key == std::end(kKeys)) {
    return reply_error("there is no key " + quoted(arguments[0]) + "; key without a name lists them");
  }
  return press(*key) ? reported() : reply_not_kept();
}

constexpr Command kCommands[] = {
    {"key", "[NAME]", 1, "Presses a key of the remote control, or lists the keys", key_command},
    {"power", "[on|standby|toggle]", 1, "Wakes the set or puts it in standby", power_command},
};

}  // namespace

const Room room_remote = {.commands = kCommands, .load = load, .reset = reset, .report = report};
