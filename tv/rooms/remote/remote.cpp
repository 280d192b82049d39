// The remote control: power, and the keys, most of which act on another room. Keys come from the command device, as
// commands of the infrared receiver, and from the command "key"; both call press().
//
// In standby the volume keys do nothing, and any other key only wakes the set. Else the open menu gets the key first. A
// key without effect says so on the screen, unless an application is running that has the key.
//
// Up to four digits become a channel number: the fourth at once, fewer after a moment or with ENTER. While the picture
// is blocked, digits are the PIN.
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
#include "rooms/home_network/home_network.h"
#include "rooms/media_player/media_player.h"
#include "rooms/menus/menus.h"
#include "rooms/multiview/multiview.h"
#include "rooms/photos/photos.h"
#include "rooms/playback/playback.h"
#include "rooms/recorder/recorder.h"
#include "rooms/remote/settings.h"
#include "rooms/sources/sources.h"
#include "rooms/tuner/tuner.h"
#include "rooms/volume/volume.h"

namespace {

constexpr std::chrono::milliseconds kNextDigit(1500);  // within which another digit continues the number
constexpr int kMostDigits = 4;
constexpr std::chrono::seconds kNextPinDigit(10);  // within which another digit continues the PIN

struct State {
  std::mutex lock;  // guards all members below
  bool on = true;
  std::uint32_t number = 0;      // the digits of a channel number so far
  int digits = 0;                // how many they are; 0: no number has been begun
  std::string pin;               // its digits so far
  TimerTime number_due;          // when the number becomes the channel, or the PIN is forgotten, without another digit
  TimerTime info = kTimerNever;  // when INFO was pressed last
  TimerTime volume = kTimerNever;  // when VOL_UI was
  const char* last_key = "";
};

Timer number_timer;

// Never destroyed: other threads may still use it when the process exits.
State& state = *new State;

// ---- What keys do ----

// The functions below return false if the change was not saved, or the set is off. They hold no lock when they call
// another room. A number that has been begun may be gone then.

// Ends the number or the PIN that has been begun. Returns the number; nothing: there is none.
std::optional<std::uint32_t> take_number() {
  const std::lock_guard guard(state.lock);
  state.pin.clear();
  if (std::exchange(state.digits, 0) == 0) return std::nullopt;
  return std::exchange(state.number, 0);
}

bool tune_to_number() {
  const auto number = take_number();
  if (!number) return true;
  if (!channels_by_number(*number)) menus_say("no_channel", std::to_string(*number));
  return tuner_number(*number);
}

bool not_available(std::string_view key) {
  if (!apps_have_keys()) menus_say("not_available", key);
  return true;
}

// Whether there is a channel; tells the viewer if not.
bool has_channel() {
  const bool has = tuner_channel().has_value();
  if (!has) menus_say("no_channels", "");
  return has;
}

bool press_channel(int by) {
  take_number();
  return !has_channel() || tuner_step(by);
}

bool press_favourite_channel(int) {
  take_number();
  if (!channels_step_favourite(0, 1)) return not_available("FAVCH+/-");
  return tuner_step_favourite(1);
}

bool press_previous(int) {
  take_number();
  if (!tuner_previous_channel()) return not_available("PRE-CH");
  return tuner_previous();
}

void number_is_over() {
  {
    const std::lock_guard guard(state.lock);
    if ((state.digits == 0 && state.pin.empty()) || timer_now() < state.number_due) return;
  }
  tune_to_number();
}

bool press_pin_digit(int digit) {
  const std::size_t length = config_text("g_password__password").size();
  std::string pin;
  {
    const std::lock_guard guard(state.lock);
    state.pin += static_cast<char>('0' + digit);
    if (state.pin.size() < length) {
      state.number_due = timer_now() + kNextPinDigit;
      return timer_set(number_timer, state.number_due, number_is_over);
    }
    pin = std::exchange(state.pin, {});
  }
  if (!tuner_unblock(pin)) menus_say("wrong_pin", "");
  return true;
}

bool press_digit(int digit) {
  if (tuner_wants_pin()) return press_pin_digit(digit);
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
  bool is_number = false;
  {
    const std::lock_guard guard(state.lock);
    is_number = state.digits != 0;
  }
  if (is_number) return tune_to_number();
  if (photos_press_pause() || media_player_press_pause()) return true;
  if (apps_have_keys() || playback_press_pause()) return true;
  if (!sources_is_tv()) return not_available("ENTER");
  menus_open_with("ENTER");
  return true;
}

bool press_on(int by) { return media_player_press_skip(by) || playback_press_skip(by) || not_available("FF"); }

bool press_back(int by) { return media_player_press_skip(-by) || playback_press_skip(-by) || not_available("FR"); }

bool press_next(int) { return photos_press_next(1) || media_player_press_next(1) || not_available("NEXT"); }

bool press_beginning(int) {
  return photos_press_next(-1) || media_player_press_next(-1) || playback_press_skip(-INT_MAX) || not_available("PREV");
}

bool press_side(int step) { return photos_press_next(step) || not_available(step < 0 ? "LEFT" : "RIGHT"); }

bool press_turn(int) { return photos_press_turn() || not_available("GREEN"); }

bool press_freeze(int) { return media_player_press_pause() || playback_press_pause() || not_available("FREEZE"); }

bool press_repeat(int) {
  std::string repeat;
  if (!media_player_press_repeat(repeat)) return not_available("REPEAT");
  menus_say("repeat", repeat);
  return true;
}

bool press_zoom(int which) { return photos_press_zoom() || media_player_press_zoom() || setting_step(which); }

bool press_aspect(int which) { return photos_press_turn() || setting_step(which); }

bool press_subtitles(int which) {
  std::string chosen;
  if (!media_player_press_track(true, chosen)) return setting_step(which);
  menus_say(chosen.empty() ? "subtitles_off" : "subtitles", chosen);
  return true;
}

bool press_favourite(int) {
  const auto channel = tuner_channel();
  if (!channel) return has_channel();
  const auto is_one = channels_toggle_favourite(channel->id);
  if (!is_one) return false;
  menus_say(*is_one ? "favourite" : "no_favourite", channel->name);
  return true;
}

bool press_record(int) {
  if (apps_have_keys()) return true;
  if (!sources_is_tv()) return not_available("RED");
  std::string title;
  const std::string why = recorder_record(title);
  menus_say(why.empty() ? "records" : "refused", why.empty() ? title : why);
  return true;
}

bool press_info(int) {
  if (const auto playing = media_player_playing(); playing && media_player_drawer() != nullptr) {
    const auto minutes = [](double seconds) {
      const auto whole = static_cast<long>(seconds);
      const std::string rest = std::to_string(whole % 60);
      return std::to_string(whole / 60) + ":" + (rest.size() < 2 ? "0" : "") + rest;
    };
    menus_say("playing", playing->title + ", " + minutes(playing->position) + " / " + minutes(playing->duration));
  }
  const std::lock_guard guard(state.lock);
  state.info = timer_now();
  return true;
}

bool press_volume_bar(int) {
  const std::lock_guard guard(state.lock);
  state.volume = timer_now();
  return true;
}

bool press_source(int) {
  take_number();
  if (!sources_step()) return false;
  menus_open_with("SOURCE");
  return true;
}

bool press_audio(int) {
  if (std::string chosen; media_player_press_track(false, chosen)) {
    menus_say("sound", chosen);
    return true;
  }
  if (!tuner_step_audio()) return false;
  const std::vector<TunerTrack> tracks = tuner_tracks();
  const auto chosen = std::ranges::find_if(
      tracks, [](const TunerTrack& track) { return track.kind == StreamKind::kAudio && track.chosen; });
  if (chosen == tracks.end()) return not_available("MTS/AUDIO");
  menus_say("sound", chosen->language.empty() ? chosen->codec : chosen->language);
  return true;
}

bool press_pip(int) { return multiview_step_mode(); }

bool press_pip_place(int) { return multiview_step_place() || not_available("PIPPOS"); }

bool press_pip_size(int) { return multiview_step_size() || not_available("PIPSIZE"); }

bool press_swap(int) { return multiview_sub_source() < 0 ? not_available("SWAP") : multiview_swap(); }

bool press_volume(int by) { return volume_press(by); }

bool press_mute(int) { return mute_press(); }

bool press_setting(int which) { return setting_step(which); }

bool press_sleep(int) {
  if (!clock_step_sleep()) return false;
  const std::int32_t left = clock_sleep_left();
  menus_say(left == 0 ? "sleep_off" : "sleep", left == 0 ? "" : std::to_string((left + 59) / 60) + " min");
  return true;
}

bool press_exit(int) {
  const bool was_number = take_number().has_value();
  return was_number || photos_press_stop() || media_player_press_stop() || playback_press_stop() || apps_leave_menu() ||
         not_available("EXIT");
}

bool press_power(int) {
  remote_standby();
  return true;
}

struct Action {
  std::string_view key;
  const char* help;
  bool (*press)(int argument) = nullptr;  // null: only menus use the key
  int argument = 0;
  bool wakes = true;         // the set from standby
  bool closes_menu = false;  // which has no use for the key
};

constexpr bool kWakes = true, kClosesMenu = true;

// Keys that open a menu are in the menus' table instead.
constexpr Action kActions[] = {
    {"POWER", "to standby and back", press_power},
    {"SOURCE", "next source; shows the list of sources", press_source},
    {"SLEEP", "next step of the sleep timer", press_sleep},
    {"ZOOM", "next zoom of the picture, of a photo or of a film", press_zoom, kSettingZoom},
    {"P.EFFECT", "next picture mode", press_setting, kSettingPicture},
    {"S.EFFECT", "next sound mode", press_setting, kSettingSound},
    {"ASPECT", "next picture format; turns a photo", press_aspect, kSettingAspect},
    {"CC", "subtitles on and off; of a film: the next subtitles", press_subtitles, kSettingSubtitles},
    {"SUBTITLE", "subtitles on and off; of a film: the next subtitles", press_subtitles, kSettingSubtitles},
    {"0", "channel number; the PIN of a blocked channel", press_digit, 0, kWakes, kClosesMenu},
    {"1", "channel number; the PIN of a blocked channel", press_digit, 1, kWakes, kClosesMenu},
    {"2", "channel number; the PIN of a blocked channel", press_digit, 2, kWakes, kClosesMenu},
    {"3", "channel number; the PIN of a blocked channel", press_digit, 3, kWakes, kClosesMenu},
    {"4", "channel number; the PIN of a blocked channel", press_digit, 4, kWakes, kClosesMenu},
    {"5", "channel number; the PIN of a blocked channel", press_digit, 5, kWakes, kClosesMenu},
    {"6", "channel number; the PIN of a blocked channel", press_digit, 6, kWakes, kClosesMenu},
    {"7", "channel number; the PIN of a blocked channel", press_digit, 7, kWakes, kClosesMenu},
    {"8", "channel number; the PIN of a blocked channel", press_digit, 8, kWakes, kClosesMenu},
    {"9", "channel number; the PIN of a blocked channel", press_digit, 9, kWakes, kClosesMenu},
    {"ENTER",
     "completes a channel number; pauses and resumes what is played, or a slide show; else opens the channel list; "
     "in a menu: chooses",
     press_enter},
    {"CH+", "next channel; in a menu: a page up", press_channel, 1, kWakes, kClosesMenu},
    {"CH-", "previous channel number; in a menu: a page down", press_channel, -1, kWakes, kClosesMenu},
    {"PRE-CH", "back to the channel seen before", press_previous, 0, kWakes, kClosesMenu},
    {"FAVCH+/-", "next favourite channel", press_favourite_channel, 0, kWakes, kClosesMenu},
    {"ADD/ERASE", "makes the channel a favourite, or no longer one", press_favourite},
    {"INFO",
     "shows the channel and the programme, or title and position of what is played; in the guide: the event's details",
     press_info},
    {"UP", "in a menu: a row up"},
    {"DOWN", "in a menu: a row down"},
    {"LEFT", "previous photo; in the guide: previous event", press_side, -1},
    {"RIGHT", "next photo; in the guide: next event", press_side, 1},
    {"MTS/AUDIO", "next sound track", press_audio},
    {"PIP/POP", "second picture: small, beside, none", press_pip},
    {"PIPPOS", "next corner for the small picture", press_pip_place},
    {"PIPSIZE", "next size of the small picture", press_pip_size},
    {"SWAP", "swaps the two pictures", press_swap},
    {"VOL+", "louder", press_volume, 1, false},
    {"VOL-", "softer", press_volume, -1, false},
    {"MUTE", "mute", press_mute, 0, false},
    {"VOL_UI", "shows the volume", press_volume_bar},
    {"FF", "30 seconds forward in what is played", press_on, 30},
    {"FR", "10 seconds back in what is played", press_back, 10},
    {"NEXT", "next chapter, file or photo", press_next},
    {"PREV", "previous chapter, file or photo; back to the beginning of a recording that is played", press_beginning},
    {"REPEAT", "next repetition: the file that is played, its folder, or none", press_repeat},
    {"FREEZE", "pauses and resumes what is played", press_freeze},
    {"EXIT", "closes the menu, ends the number, the photo, what is played, or the set's own application", press_exit},
    {"RED", "records the programme; in a menu: what the menu says", press_record},
    {"GREEN", "turns a photo; in a menu: what the menu says", press_turn},
    {"YELLOW", "in a menu: what the menu says"},
    {"BLUE", "in a menu: what the menu says"},
};

// ---- The keys ----

struct Key {
  const char* name;
  std::string_view code;
  const Action* action;  // null: the key opens a menu, or does nothing but wake the set
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
  bool ignored = false;
  {
    const std::lock_guard guard(state.lock);
    was_on = state.on;
    ignored = !was_on && key.action != nullptr && !key.action->wakes;
    if (!ignored) {
      state.on = true;
      state.last_key = key.name;
    }
  }
  if (ignored) {
    menus_say("standby", key.name);
    return true;
  }
  menus_forget_message();
  if (was_on) home_network_key(key.code, key.name == std::string_view("EXIT"));
  if (!was_on) {
    tuner_update();
    return true;
  }
  const MenuAnswer answer = menus_press(key.name);
  if (answer != MenuAnswer::kNotTaken) return answer == MenuAnswer::kDone;
  if (key.action != nullptr && key.action->press != nullptr) {
    if (key.action->closes_menu) menus_close();
    return key.action->press(key.action->argument);
  }
  if (!menus_open_with(key.name)) return not_available(key.name);
  take_number();
  return true;
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

TimerTime remote_volume_pressed() {
  const std::lock_guard guard(state.lock);
  return state.volume;
}

std::string remote_typed() {
  const std::lock_guard guard(state.lock);
  std::string hidden;
  for (std::size_t i = 0; i < state.pin.size(); ++i) hidden += "\u2022";
  if (state.digits == 0) return hidden;
  const std::string number = std::to_string(state.number);
  const auto digits = static_cast<std::size_t>(state.digits);
  return std::string(digits - std::min(number.size(), digits), '0') + number;
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
  media_player_leave();
  photos_leave();
  if (was_on) tuner_update();
  menus_close();
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
  state.volume = kTimerNever;
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
    const char* const help = key.action == nullptr ? menus_help(key.name) : key.action->help;
    keys.push_back({{"name", key.name}, {"code", key.code}, {"does", help}});
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
  if (!press(*key)) return reply_not_kept();
  boost::json::object answer = reported();
  room_menus.report(answer);
  return answer;
}

std::vector<std::string> key_names(Arguments given) {
  std::vector<std::string> names;
  if (given.empty())
    for (const Key& key : kKeys) names.emplace_back(key.name);
  return names;
}

constexpr Command kCommands[] = {
    {"key", "[NAME]", 1, "Presses a key of the remote control, or lists the keys", key_command, key_names},
    {"power", "[on|standby|toggle]", 1, "Wakes the set or puts it in standby", power_command},
};

}  // namespace

const Room room_remote = {.commands = kCommands, .load = load, .reset = reset, .report = report};
