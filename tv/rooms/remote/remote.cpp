// The remote control and what it controls: power, channel, source. Keys come from the command device, as commands of
// the infrared receiver, and from the command "key"; both call press().
//
// In standby the volume keys do nothing, and any other key only wakes the set. The channels are 1 to 99; choosing one
// sets the source to TV. A single digit becomes a channel number after a moment, or with ENTER.
#include "rooms/remote/remote.h"

#include <algorithm>
#include <boost/json.hpp>
#include <cctype>
#include <cstdio>
#include <mutex>
#include <utility>

#include "core/contract.h"
#include "core/reply.h"
#include "core/room.h"
#include "core/store.h"
#include "core/timers.h"
#include "dtv_tv.h"
#include "rooms/apps/apps.h"
#include "rooms/cec/cec.h"
#include "rooms/clock/clock.h"
#include "rooms/config/config.h"
#include "rooms/volume/volume.h"

namespace {

constexpr Setting kChannel{.key = "channel", .factory = 1, .minimum = 1, .maximum = 99};
constexpr Setting kPrevious{.key = "channel_previous", .factory = 1, .minimum = 1, .maximum = 99};
constexpr const char* kSources[] = {"TV", "HDMI 1", "HDMI 2", "HDMI 3", "USB"};  // an HDMI input's index is its number
constexpr int kHdmiInputs = 3;
constexpr Setting kSource{.key = "source", .factory = 0, .minimum = 0, .maximum = std::size(kSources) - 1};
constexpr const char* kSubtitleKey = "g_misc__dvb_subtitle_enabled";

constexpr std::chrono::milliseconds kNextDigit(1500);  // within which a second digit completes the number

struct Place {
  INT64 channel;
  INT64 previous;  // the channel that PRE-CH returns to
  INT64 source;    // index in kSources
  bool operator==(const Place&) const = default;
};

constexpr Place kFactory{.channel = kChannel.factory, .previous = kPrevious.factory, .source = kSource.factory};

struct State {
  std::mutex lock;  // guards all members below
  bool on = true;
  Place place = kFactory;
  int number = -1;       // the first digit of a channel number; -1: none
  TimerTime number_due;  // when it becomes the channel, if no second digit comes
  const char* last_key = "";
};

Timer number_timer;

// Never destroyed: other threads may still use it when the process exits.
State& state = *new State;

// ---- What keys do ----

// The functions below return false if the change was not saved, or the set is off. A pending digit may be gone then.

// Changes the channel and the source, and stores them. The caller of go and tune holds the lock.
bool go(const Place& wanted) {
  if (wanted == state.place) return true;
  const SettingValue values[] = {
      {kChannel.key, wanted.channel}, {kPrevious.key, wanted.previous}, {kSource.key, wanted.source}};
  const bool kept = store_write(values);
  if (kept) state.place = wanted;
  return kept;
}

bool tune(INT64 channel) {
  state.number = -1;
  if (channel < kChannel.minimum || channel > kChannel.maximum) return true;
  const bool same = channel == state.place.channel;
  return go({.channel = channel, .previous = same ? state.place.previous : state.place.channel, .source = 0});
}

bool press_channel(int by) {
  const std::lock_guard guard(state.lock);
  const INT64 count = kChannel.maximum;
  return tune((state.place.channel - 1 + by + count) % count + 1);
}

bool press_previous(int) {
  const std::lock_guard guard(state.lock);
  return tune(state.place.previous);
}

void number_is_over() {
  const std::lock_guard guard(state.lock);
  if (state.number >= 0 && timer_now() >= state.number_due) tune(state.number);
}

bool press_digit(int digit) {
  const std::lock_guard guard(state.lock);
  if (state.number >= 0) return tune(state.number * 10 + digit);
  state.number = digit;
  state.number_due = timer_now() + kNextDigit;
  return timer_set(number_timer, state.number_due, number_is_over);
}

bool press_enter(int) {
  const std::lock_guard guard(state.lock);
  return state.number < 0 || tune(state.number);
}

bool press_source(int) {
  const std::lock_guard guard(state.lock);
  Place wanted = state.place;
  wanted.source = (wanted.source + 1) % static_cast<INT64>(std::size(kSources));
  return go(wanted);
}

bool press_volume(int by) { return volume_press(by); }

bool press_mute(int) { return mute_press(); }

bool press_subtitle(int) { return config_set(kSubtitleKey, config_number(kSubtitleKey) == 0 ? 1 : 0) == 0; }

bool press_sleep(int) { return clock_step_sleep(); }

bool press_exit(int) {
  apps_leave_menu();
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
    {"ENTER", "completes a channel number", press_enter},
    {"CH+", "next channel", press_channel, 1},
    {"CH-", "previous channel number", press_channel, -1},
    {"PRE-CH", "back to the channel seen before", press_previous},
    {"VOL+", "louder", press_volume, 1, false},
    {"VOL-", "softer", press_volume, -1, false},
    {"MUTE", "mute", press_mute, 0, false},
    {"EXIT", "leaves the set's own applications", press_exit},
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
      press(*key);  // the store has reported a failure
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
  state.on = true;
}

void remote_standby() {
  bool was_on = false;
  {
    const std::lock_guard guard(state.lock);
    was_on = std::exchange(state.on, false);
    state.number = -1;
  }
  clock_stop_sleep();
  apps_end();
  if (was_on) cec_standby();
}

void remote_show_hdmi(int input) {
  const std::lock_guard guard(state.lock);
  if (!state.on || input < 1 || input > kHdmiInputs) return;
  Place wanted = state.place;
  wanted.source = input;
  go(wanted);
}

namespace {

void load() {
  const std::lock_guard guard(state.lock);
  state.on = true;
  state.place = {.channel = store_read(kChannel), .previous = store_read(kPrevious), .source = store_read(kSource)};
  state.number = -1;
  state.last_key = "";
}

bool reset() {
  const std::lock_guard guard(state.lock);
  if (!go(kFactory)) return false;
  state.on = true;
  state.number = -1;
  state.last_key = "";
  return true;
}

void report(boost::json::object& answer) {
  const std::lock_guard guard(state.lock);
  answer["power"] = state.on ? "on" : "standby";
  answer["channel"] = state.place.channel;
  answer["source"] = kSources[state.place.source];
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
