// Input sources: two tuners, four HDMI inputs, the composite input and the set's media player. Their numbers and names
// are fixed; a viewer can give each a name of its own, say what is connected to it, and block it. Blocking a source
// does not end it while it is shown; it cannot be chosen again. Blocks count only while the configuration has the lock
// of inputs on.
#include "rooms/sources/sources.h"

#include <algorithm>
#include <array>
#include <boost/json.hpp>
#include <mutex>

#include "base/text.h"
#include "core/contract.h"
#include "core/reply.h"
#include "core/room.h"
#include "core/store.h"
#include "core/text.h"
#include "rooms/cec/cec.h"
#include "rooms/config/config.h"
#include "rooms/media_player/media_player.h"
#include "rooms/multiview/multiview.h"
#include "rooms/photos/photos.h"
#include "rooms/playback/playback.h"
#include "rooms/tuner/tuner.h"

namespace {

// The plugin lists the names as "1:TV,2:Satellite", so they contain neither a comma nor a colon.
constexpr std::array<const char*, kSources> kNames = {"TV",     "Satellite", "HDMI 1",    "HDMI 2",
                                                      "HDMI 3", "HDMI 4",    "Composite", "Media"};
constexpr int kSourceMedia = 7;

// What a viewer says is connected to a source, by its index.
constexpr const char* kLabels[] = {"none",      "disc player", "set-top box", "games console", "computer",
                                   "amplifier", "recorder",    "camera",      "phone"};

constexpr std::size_t kLongestName = 16;  // bytes of a viewer's name: the plugin's record has room for 16 and a NUL

constexpr Setting kCurrent{.key = "input_source", .factory = kSourceTv, .minimum = 0, .maximum = kSources - 1};
constexpr Setting kBlocked{.key = "input_blocked", .factory = 0, .minimum = 0, .maximum = (1 << kSources) - 1};

constexpr std::array<TextSetting, kSources> kUserNames = {{{"input_name_0", "", kLongestName},
                                                           {"input_name_1", "", kLongestName},
                                                           {"input_name_2", "", kLongestName},
                                                           {"input_name_3", "", kLongestName},
                                                           {"input_name_4", "", kLongestName},
                                                           {"input_name_5", "", kLongestName},
                                                           {"input_name_6", "", kLongestName},
                                                           {"input_name_7", "", kLongestName}}};

constexpr std::int64_t kMostLabel = std::size(kLabels) - 1;
constexpr std::array<Setting, kSources> kUserLabels = {{{"input_label_0", 0, 0, kMostLabel},
                                                        {"input_label_1", 0, 0, kMostLabel},
                                                        {"input_label_2", 0, 0, kMostLabel},
                                                        {"input_label_3", 0, 0, kMostLabel},
                                                        {"input_label_4", 0, 0, kMostLabel},
                                                        {"input_label_5", 0, 0, kMostLabel},
                                                        {"input_label_6", 0, 0, kMostLabel},
                                                        {"input_label_7", 0, 0, kMostLabel}}};

struct State {
  std::mutex lock;  // guards all members below
  int current = kCurrent.factory;
  std::int64_t blocked = kBlocked.factory;  // bit n: source n
  std::array<std::string, kSources> names;  // the viewer's; empty: none
  std::array<int, kSources> labels{};
};

// Never destroyed: other threads may still use it when the process exits.
State& state = *new State;

bool locks_count() { return config_number("g_rating__input_lock") != 0; }

bool exists(int source) { return source >= 0 && source < kSources; }

std::size_t at(int source) { return static_cast<std::size_t>(source); }

std::string no_source(int source) {
  return "there is no source " + std::to_string(source) + "; they are 0 to " + std::to_string(kSources - 1);
}

// The caller of the functions below holds the lock.

bool is_blocked(int source) { return (state.blocked >> source & 1) != 0; }

// Returns why the source was not chosen; empty: it was.
std::string show(int source, bool with_locks) {
  if (source != state.current && with_locks && is_blocked(source))
    return std::string(kNames[at(source)]) + " is blocked";
  const SettingValue value[] = {{kCurrent.key, std::int64_t{source}}};
  if (source != state.current && !store_write(value)) return kNotSaved;
  state.current = source;
  playback_leave();
  media_player_leave();
  photos_leave();
  tuner_update();  // also for the same source: the picture may have been stopped
  return "";
}

bool block(int source, bool blocked) {
  const std::int64_t bit = std::int64_t{1} << source;
  const std::int64_t wanted = blocked ? state.blocked | bit : state.blocked & ~bit;
  const SettingValue value[] = {{kBlocked.key, wanted}};
  if (!store_write(value)) return false;
  state.blocked = wanted;
  return true;
}

bool label(int source, int wanted) {
  const SettingValue value[] = {{kUserLabels[at(source)].key, std::int64_t{wanted}}};
  if (!store_write(value)) return false;
  state.labels[at(source)] = wanted;
  return true;
}

// Returns why the name was not taken; empty: it was.
std::string name(int source, std::string_view wanted) {
  const bool control =
      std::ranges::any_of(wanted, [](char c) { return static_cast<unsigned char>(c) < ' ' || c == 127; });
  if (wanted.size() > kLongestName || !store_is_text(wanted) || control) {
    return "a source's name is at most " + std::to_string(kLongestName) + " bytes of UTF-8 without control characters";
  }
  const SettingValue value[] = {{kUserNames[at(source)].key, wanted}};
  if (!store_write(value)) return kNotSaved;
  state.names[at(source)] = wanted;
  return "";
}

// The functions below take the lock.

std::string choose_tuner(bool satellite) {
  const bool with_locks = locks_count();
  const std::lock_guard guard(state.lock);
  return show(satellite ? kSourceSatellite : kSourceTv, with_locks);
}

std::string choose(int source) {
  if (!exists(source)) return no_source(source);
  const bool with_locks = locks_count();
  std::string why;
  {
    const std::lock_guard guard(state.lock);
    why = show(source, with_locks);
  }
  if (why.empty() && sources_is_tuner(source) && !tuner_enter(source == kSourceSatellite)) why = kNotSaved;
  return why;
}

// What is behind a source that is not a part of the set. Not under the lock: the CEC bus's comes before it.
CecInput input_of(int source) {
  const int input = source - kSourceHdmi1 + 1;
  return input >= 1 && input <= kHdmiInputs ? cec_input(input) : CecInput{};
}

// Whether there is something to see. A device in standby sends nothing.
bool has_signal(int source) {
  if (source == kSourceMedia) return true;
  if (!sources_is_tuner(source)) return input_of(source).on;
  const auto result = tuner_result();
  return source == sources_current() && (result == ChangeResult::kPicture || result == ChangeResult::kAudioOnly);
}

enum class Path { kMain, kSub, kNone };

Path path_of(const char* path) {
  if (path != nullptr && equal_ignoring_case(path, "main")) return Path::kMain;
  if (path != nullptr && equal_ignoring_case(path, "sub")) return Path::kSub;
  return Path::kNone;
}

std::string no_path(const char* path) {
  return "a picture is \"main\" or \"sub\", not " +
         (path == nullptr ? "null" : quoted(std::string_view(path).substr(0, 16)));
}

INT32 give_name(const char* function, std::string_view text, char* ret_name, INT32 size) {
  if (ret_name == nullptr || size <= 0) return refuse_call(function, "there is no room for the name");
  fill_text(ret_name, static_cast<std::size_t>(size), text);
  return 0;
}

INT32 answer_call(const char* function, const std::string& why) { return why.empty() ? 0 : refuse_call(function, why); }

bool answer_room(const char* function, const std::string& why) { return answer_call(function, why) == 0; }

}  // namespace

INT32 a_vextvapi_inputsource_get_sourcetotalnum() { return kSources; }

INT32 a_vextvapi_inputsource_get_currentsourcename_bypath(char* ret_name, INT32 size, const char* path) {
  const Path picture = path_of(path);
  if (picture == Path::kNone) return refuse_call(__func__, no_path(path));
  const int source = picture == Path::kMain ? sources_current() : multiview_sub_source();
  if (source < 0) return refuse_call(__func__, "there is no sub picture");
  return give_name(__func__, kNames[at(source)], ret_name, size);
}

INT32 a_vextvapi_inputsource_get_sourcename_bysourceid(INT32 source, char* ret_name, INT32 size) {
  if (!exists(source)) return refuse_call(__func__, no_source(source));
  return give_name(__func__, kNames[at(source)], ret_name, size);
}

INT32 a_vextvapi_inputsource_set_source_blockstatus_bysourceid(INT32 source, UINT8 blocked) {
  if (!exists(source)) return refuse_call(__func__, no_source(source));
  if (blocked > 1) return refuse_call(__func__, std::to_string(blocked) + " is neither 0 nor 1");
  const std::lock_guard guard(state.lock);
  return block(source, blocked != 0) ? 0 : -1;
}

INT32 a_vextvapi_inputsource_is_block_bysourceid(INT32 source, UINT8* ret_blocked) {
  if (!exists(source)) return refuse_call(__func__, no_source(source));
  if (ret_blocked == nullptr) return refuse_call(__func__, "there is no room for the answer");
  const std::lock_guard guard(state.lock);
  *ret_blocked = is_blocked(source) ? 1 : 0;
  return 0;
}

INT32 a_vextvapi_inputsource_changesource_bysourceid(INT32 source) { return answer_call(__func__, choose(source)); }

INT32 a_vextvapi_inputsource_changesource_bysourceidandpath(INT32 source, const char* path) {
  switch (path_of(path)) {
    case Path::kMain:
      return answer_call(__func__, choose(source));
    case Path::kSub:
      return answer_call(__func__, exists(source) ? multiview_show_sub(source) : no_source(source));
    case Path::kNone:
      break;
  }
  return refuse_call(__func__, no_path(path));
}

INT32 a_vextvapi_inputsource_sync_stop(const char* path, UINT8 wait) {
  if (wait > 1) return refuse_call(__func__, std::to_string(wait) + " is neither 0 nor 1");
  switch (path_of(path)) {
    case Path::kMain:
      tuner_stop(wait != 0);
      return 0;
    case Path::kSub:
      multiview_stop_sub(wait != 0);
      return 0;
    case Path::kNone:
      break;
  }
  return refuse_call(__func__, no_path(path));
}

INT32 a_vextvapi_inputsource_get_userdefname_bysourceid(INT32 source, char* ret_name, INT32 size) {
  if (!exists(source)) return refuse_call(__func__, no_source(source));
  const std::lock_guard guard(state.lock);
  return give_name(__func__, state.names[at(source)], ret_name, size);
}

INT32 a_vextvapi_inputsource_set_userdefname_bysourceid(INT32 source, const char* wanted) {
  if (!exists(source)) return refuse_call(__func__, no_source(source));
  if (wanted == nullptr) return refuse_call(__func__, "the name is null");
  const std::lock_guard guard(state.lock);
  return answer_call(__func__, name(source, wanted));
}

INT32 a_vextvapi_inputsource_get_source_inputlabelidx_bysourceid(INT32 source, INT32* ret_label) {
  if (!exists(source)) return refuse_call(__func__, no_source(source));
  if (ret_label == nullptr) return refuse_call(__func__, "there is no room for the answer");
  const std::lock_guard guard(state.lock);
  *ret_label = state.labels[at(source)];
  return 0;
}

INT32 a_vextvapi_inputsource_set_source_inputlabelidx_bysourceid(INT32 source, UINT8 wanted) {
  if (!exists(source)) return refuse_call(__func__, no_source(source));
  if (wanted > kMostLabel) {
    return refuse_call(__func__, "a label is 0 to " + std::to_string(kMostLabel) + ", not " + std::to_string(wanted));
  }
  const std::lock_guard guard(state.lock);
  return label(source, wanted) ? 0 : -1;
}

bool sources_choose(int source) { return answer_room(__func__, choose(source)); }

bool sources_choose_tuner(bool satellite) { return answer_room(__func__, choose_tuner(satellite)); }

bool sources_choose_tv() {
  const auto channel = tuner_channel();
  return sources_choose_tuner(channel && channel->medium == Medium::kSatellite);
}

bool sources_choose_hdmi(int input) {
  if (input < 1 || input > kHdmiInputs) return false;
  const bool with_locks = locks_count();
  const std::lock_guard guard(state.lock);
  return answer_room(__func__, show(kSourceHdmi1 + input - 1, with_locks));
}

bool sources_step() {
  const int now = sources_current();
  for (int by = 1; by < kSources; ++by) {
    const int next = (now + by) % kSources;
    if (sources_is_connected(next) && !sources_is_blocked(next)) return sources_choose(next);
  }
  return true;
}

int sources_current() {
  const std::lock_guard guard(state.lock);
  return state.current;
}

std::string sources_name(int source) {
  if (!exists(source)) return "";
  const std::lock_guard guard(state.lock);
  return state.names[at(source)].empty() ? kNames[at(source)] : state.names[at(source)];
}

bool sources_is_blocked(int source) {
  if (!exists(source) || !locks_count()) return false;
  const std::lock_guard guard(state.lock);
  return is_blocked(source);
}

// Whether there is something to see. Not under the lock: the CEC bus's comes before it.
bool sources_is_connected(int source) {
  if (source == kSourceTv || source == kSourceMedia) return true;  // parts of the set
  if (source == kSourceSatellite) return tuner_has(true);
  return !input_of(source).device.empty();
}

bool sources_is_tv() { return sources_is_tuner(sources_current()); }

namespace {

void load() {
  const std::lock_guard guard(state.lock);
  state.current = static_cast<int>(store_read(kCurrent));
  state.blocked = store_read(kBlocked);
  for (std::size_t i = 0; i < kSources; ++i) {
    state.names[i] = store_read(kUserNames[i]);
    state.labels[i] = static_cast<int>(store_read(kUserLabels[i]));
  }
}

bool reset() {
  const std::lock_guard guard(state.lock);
  bool reset = true;
  for (int source = 0; source < kSources; ++source) {
    if (!state.names[at(source)].empty()) reset = name(source, "").empty() && reset;
    if (state.labels[at(source)] != 0) reset = label(source, 0) && reset;
    if (is_blocked(source)) reset = block(source, false) && reset;
  }
  return show(kSourceTv, false).empty() && reset;
}

boost::json::object describe(int source) {
  boost::json::object shown{{"number", source}, {"name", kNames[at(source)]}};
  const bool connected = sources_is_connected(source);
  const bool signal = has_signal(source);
  const std::string_view device = input_of(source).device;
  const std::lock_guard guard(state.lock);
  if (!state.names[at(source)].empty()) shown["viewers_name"] = state.names[at(source)];
  shown["label"] = kLabels[state.labels[at(source)]];
  shown["blocked"] = is_blocked(source);
  shown["connected"] = connected;
  shown["signal"] = signal;
  if (!device.empty()) shown["device"] = device;
  return shown;
}

boost::json::object describe_all() {
  boost::json::array all;
  for (int source = 0; source < kSources; ++source) all.push_back(describe(source));
  return {{"current", sources_current()}, {"sources", std::move(all)}};
}

// The source with this number, own name or viewer's name; -1: there is none.
int named(std::string_view word) {
  if (const auto number = parse_number_within<int>(word, 0, kSources - 1)) return *number;
  for (int source = 0; source < kSources; ++source)
    if (equal_ignoring_case(word, kNames[at(source)]) || equal_ignoring_case(word, sources_name(source))) return source;
  return -1;
}

std::string list_of(std::span<const char* const> words) {
  std::string all;
  for (const char* const word : words) all += (all.empty() ? "" : ", ") + std::string(word);
  return all;
}

boost::json::object answer_command(int source, const std::string& why) {
  return why.empty() ? describe(source) : reply_error(why);
}

boost::json::object label_command(int source, std::string_view word) {
  const auto* const found =
      std::ranges::find_if(kLabels, [&](const char* each) { return equal_ignoring_case(each, word); });
  const auto number = found != std::end(kLabels) ? static_cast<int>(found - kLabels)
                                                 : parse_number_within<int>(word, 0, kMostLabel).value_or(-1);
  if (number < 0) {
    return reply_takes("source NUMBER label",
                       "a number from 0 to " + std::to_string(kMostLabel) + " or one of: " + list_of(kLabels), word);
  }
  const std::lock_guard guard(state.lock);
  return label(source, number) ? boost::json::object{{"label", kLabels[number]}} : reply_not_kept();
}

boost::json::object source_command(Arguments arguments) {
  if (arguments.empty()) return describe_all();
  const int source = named(arguments[0]);
  if (source < 0) return reply_error("there is no source " + quoted(arguments[0]) + "; they are: " + list_of(kNames));
  if (arguments.size() == 1) return answer_command(source, choose(source));
  const std::string_view action = arguments[1];
  if (action == "block" || action == "unblock") {
    if (arguments.size() > 2) return reply_error("source NUMBER " + std::string(action) + " takes no further word");
    std::unique_lock guard(state.lock);
    const bool kept = block(source, action == "block");
    guard.unlock();
    return kept ? describe(source) : reply_not_kept();
  }
  if (action == "name") {
    std::unique_lock guard(state.lock);
    const std::string why = name(source, arguments.size() > 2 ? arguments[2] : "");
    guard.unlock();
    return answer_command(source, why);
  }
  if (action == "label" && arguments.size() > 2) return label_command(source, arguments[2]);
  return reply_takes("source NUMBER", "name [TEXT], label LABEL, block or unblock", action);
}

constexpr Command kCommands[] = {
    {"source", "[NAME|NUMBER] | NAME|NUMBER block|unblock | NAME|NUMBER name [TEXT] | NAME|NUMBER label LABEL", 3,
     "Lists the input sources; chooses one; block, unblock: whether it can be chosen; name: gives it one, or without "
     "TEXT its own back; label: says what is connected to it",
     source_command},
};

}  // namespace

const Room room_sources = {.commands = kCommands, .load = load, .reset = reset};
