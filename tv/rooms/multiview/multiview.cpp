// Two pictures at once. The main one is the tuner's or another source's (rooms/tuner, rooms/sources); this room has the
// regions of both on the screen, which one is heard, and the sub picture with a tuner of its own. Nothing of it is
// stored: the set starts with one picture.
#include "rooms/multiview/multiview.h"

#include <algorithm>
#include <array>
#include <boost/json.hpp>
#include <mutex>
#include <utility>

#include "base/text.h"
#include "core/reply.h"
#include "core/room.h"
#include "rooms/remote/remote.h"
#include "rooms/sources/sources.h"
#include "rooms/tuner/picture.h"
#include "rooms/tuner/tracks.h"

namespace {

using Region = VEXTVAPI_REGION_T;

constexpr const char* kModeWords[] = {"normal", "pip", "pop"};
constexpr int kModes = std::size(kModeWords);
constexpr std::uint32_t kLeast = 16;  // pixels of a picture's width and height

constexpr Region kFull{.x = 0, .y = 0, .width = kPanelWidth, .height = kPanelHeight};
constexpr Region kLeft{.x = 0, .y = kPanelHeight / 4, .width = kPanelWidth / 2, .height = kPanelHeight / 2};
constexpr Region kRight{
    .x = kPanelWidth / 2, .y = kPanelHeight / 4, .width = kPanelWidth / 2, .height = kPanelHeight / 2};

// The small picture: its size, and its corner clockwise from the upper right one.
constexpr std::array<std::uint32_t, 3> kWidths = {480, 640, 800};
constexpr int kCorners = 4;
constexpr std::uint32_t kMargin = 60;

struct State {
  std::mutex lock;  // guards all members below
  int mode = VEXTVAPI_MULTIVIEW_NORMAL;
  Region main = kFull;
  bool sub_shown = false;
  Region sub = kFull;
  int sub_source = kSourceTv;
  std::optional<Channel> sub_channel;  // of a tuner's source
  bool gave_up = false;                // a recording has the sub picture's tuner
  bool sub_heard = false;
  int corner = 0;
  std::size_t size = 0;
};

// Never destroyed, as the picture: other threads may still use them when the process exits.
State& state = *new State;

// The channel as it is now: the viewer may have given it another number.
std::optional<Channel> channel_now(const std::optional<Channel>& chosen) {
  return chosen ? channels_by_key(chosen->key, chosen->list) : std::nullopt;
}

std::optional<Channel> wanted_channel() {
  if (!remote_is_on()) return std::nullopt;
  std::optional<Channel> channel;
  {
    const std::lock_guard guard(state.lock);
    if (!state.sub_shown || state.gave_up || !sources_is_tuner(state.sub_source)) return std::nullopt;
    channel = state.sub_channel;
  }
  return channel_now(channel);
}

void work();

Picture& picture = *new Picture{.wanted = wanted_channel, .work = work, .ended = nullptr};

void work() { picture_work(picture); }

Region small_region() {
  const std::uint32_t width = kWidths[state.size];
  const std::uint32_t height = width * kPanelHeight / kPanelWidth;
  const bool right = state.corner == 0 || state.corner == 1;
  const bool low = state.corner == 1 || state.corner == 2;
  return {.x = right ? kPanelWidth - kMargin - width : kMargin,
          .y = low ? kPanelHeight - kMargin - height : kMargin,
          .width = width,
          .height = height};
}

// Why the region does not fit the screen; empty: it does.
std::string misfit(const Region& region) {
  if (region.width >= kLeast && region.height >= kLeast && region.x < kPanelWidth && region.y < kPanelHeight &&
      region.width <= kPanelWidth - region.x && region.height <= kPanelHeight - region.y) {
    return "";
  }
  return "the region " + std::to_string(region.width) + "x" + std::to_string(region.height) + " at " +
         std::to_string(region.x) + "," + std::to_string(region.y) + " is not within the screen of " +
         std::to_string(kPanelWidth) + "x" + std::to_string(kPanelHeight) + ", or smaller than " +
         std::to_string(kLeast) + " pixels";
}

// The caller of the functions below holds the lock.

void lay_out(int mode) {
  state.mode = mode;
  state.main = mode == VEXTVAPI_MULTIVIEW_POP ? kLeft : kFull;
  state.sub = mode == VEXTVAPI_MULTIVIEW_POP ? kRight : small_region();
}

void hide_sub() {
  if (!std::exchange(state.sub_shown, false)) return;
  state.sub_heard = false;
  state.gave_up = false;
  lay_out(VEXTVAPI_MULTIVIEW_NORMAL);
}

// The functions below take the lock.

// What a viewer sees first in the sub picture: the channel seen before, else the next favourite, else the next one,
// else the first one of that tuner.
std::optional<Channel> first_sub_channel(bool satellite) {
  auto current = tuner_channel();
  const std::uint32_t id = current ? current->id : 0;
  for (const auto& channel : {tuner_previous_channel(), channels_step_favourite(id, 1), channels_step(id, 1)})
    if (channel && channel->id != id && (channel->medium == Medium::kSatellite) == satellite) return channel;
  if (current && (current->medium == Medium::kSatellite) == satellite) return current;
  for (Channel& each : channels_all())
    if (!each.hidden && (each.medium == Medium::kSatellite) == satellite) return std::move(each);
  return std::nullopt;
}

void show_sub(int source, const std::optional<Channel>& channel) {
  {
    const std::lock_guard guard(state.lock);
    state.sub_shown = true;
    state.sub_source = source;
    state.sub_channel = channel;
    state.gave_up = false;
    if (state.mode == VEXTVAPI_MULTIVIEW_NORMAL) {
      state.mode = VEXTVAPI_MULTIVIEW_PIP;
      state.sub = small_region();
    }
  }
  picture_update(picture, true);
}

void start_sub() {
  const auto current = tuner_channel();
  auto channel = first_sub_channel(current && current->medium == Medium::kSatellite);
  const int source = channel && channel->medium == Medium::kSatellite ? kSourceSatellite : kSourceTv;
  show_sub(source, channel);
}

void set_mode(int mode) {
  bool starts = false;
  {
    const std::lock_guard guard(state.lock);
    if (mode == VEXTVAPI_MULTIVIEW_NORMAL) hide_sub();
    starts = mode != VEXTVAPI_MULTIVIEW_NORMAL && !state.sub_shown;
    lay_out(mode);
  }
  if (starts) start_sub();
  picture_update(picture, false);
}

INT32 refuse_region(const char* function, const Region* region) {
  return refuse_call(function, region == nullptr ? "the region is null" : misfit(*region));
}

bool fits(const Region* region) { return region != nullptr && misfit(*region).empty(); }

}  // namespace

INT32 a_vextvapi_multiview_setAudioFocus(const char* focus) {
  const bool sub = focus != nullptr && equal_ignoring_case(focus, "sub");
  if (!sub && (focus == nullptr || !equal_ignoring_case(focus, "main"))) {
    return refuse_call(__func__, "the picture that is heard is \"main\" or \"sub\", not " +
                                     (focus == nullptr ? "null" : quoted(std::string_view(focus).substr(0, 16))));
  }
  const std::lock_guard guard(state.lock);
  if (sub && !state.sub_shown) return refuse_call(__func__, "there is no sub picture");
  state.sub_heard = sub;
  return 0;
}

INT32 a_vextvapi_multiview_setNewTvMode(UINT8 mode) {
  if (mode >= kModes) {
    return refuse_call(__func__, "the mode is 0 to " + std::to_string(kModes - 1) + ", not " + std::to_string(mode));
  }
  set_mode(mode);
  return 0;
}

INT32 a_vextvapi_multiview_setChgSource(UINT8 source) {
  bool sub = false;
  {
    const std::lock_guard guard(state.lock);
    sub = state.sub_heard;
  }
  if (!sub) return sources_choose(source) ? 0 : -1;
  const std::string why = multiview_show_sub(source);
  return why.empty() ? 0 : refuse_call(__func__, why);
}

INT32 a_vextvapi_multiview_startMainVideo(UINT8 source, const Region* region) {
  if (!fits(region)) return refuse_region(__func__, region);
  if (!sources_choose(source)) return -1;
  const std::lock_guard guard(state.lock);
  state.main = *region;
  return 0;
}

INT32 a_vextvapi_multiview_startSubVideo(UINT8 source, const Region* region) {
  if (!fits(region)) return refuse_region(__func__, region);
  const std::string why = multiview_show_sub(source);
  if (!why.empty()) return refuse_call(__func__, why);
  const std::lock_guard guard(state.lock);
  state.sub = *region;
  return 0;
}

INT32 a_vextvapi_multiview_stopMainVideo() {
  tuner_stop(false);
  return 0;
}

INT32 a_vextvapi_multiview_stopSubVideo() {
  multiview_stop_sub(false);
  return 0;
}

INT32 a_vextvapi_highlevel_set_displayregion(INT32 which, UINT32 x, UINT32 y, UINT32 width, UINT32 height) {
  const Region region{.x = x, .y = y, .width = width, .height = height};
  if (which != VEXTVAPI_MULTIVIEW_MAIN && which != VEXTVAPI_MULTIVIEW_SUB) {
    return refuse_call(__func__, "a picture is 0 (main) or 1 (sub), not " + std::to_string(which));
  }
  if (!fits(&region)) return refuse_region(__func__, &region);
  const std::lock_guard guard(state.lock);
  if (which == VEXTVAPI_MULTIVIEW_SUB && !state.sub_shown) return refuse_call(__func__, "there is no sub picture");
  (which == VEXTVAPI_MULTIVIEW_MAIN ? state.main : state.sub) = region;
  return 0;
}

Multiview multiview_state() {
  const PictureFacts sub = picture_facts(picture);
  const int source = sources_current();
  Multiview answer;
  answer.main.shown = !tuner_is_stopped();
  answer.main.source = source;
  answer.main.channel = sources_is_tuner(source) ? tuner_channel() : std::nullopt;
  answer.main.result = tuner_result();
  const std::lock_guard guard(state.lock);
  answer.mode = state.mode;
  answer.main.region = state.main;
  answer.main.heard = !state.sub_heard;
  answer.sub = {.shown = state.sub_shown,
                .source = state.sub_source,
                .channel = sources_is_tuner(state.sub_source) ? channel_now(state.sub_channel) : std::nullopt,
                .result = sub.result,
                .region = state.sub,
                .heard = state.sub_heard};
  if (state.gave_up) answer.sub.result = ChangeResult::kNoTuner;
  return answer;
}

std::vector<TunerTrack> multiview_tracks() {
  const PictureFacts sub = picture_facts(picture);
  return sub.facts.pmt ? tracks_of(*sub.facts.pmt, {}) : std::vector<TunerTrack>{};
}

void multiview_look() { picture_update(picture, false); }

void multiview_set_player(const TunerPlayer* player) { picture_set_player(picture, player); }

bool multiview_give_up_tuner() {
  {
    const std::lock_guard guard(state.lock);
    if (!state.sub_shown || state.gave_up || !sources_is_tuner(state.sub_source)) return false;
    state.gave_up = true;
  }
  picture_work(picture);
  return true;
}

bool multiview_step_mode() {
  set_mode((multiview_state().mode + 1) % kModes);
  return true;
}

bool multiview_swap() {
  const Multiview before = multiview_state();
  if (!before.sub.shown) return true;
  const bool changed = before.sub.channel ? tuner_choose(before.sub.channel->id) : sources_choose(before.sub.source);
  if (changed) show_sub(before.main.source, before.main.channel);
  return changed;
}

bool multiview_step_place() {
  const std::lock_guard guard(state.lock);
  if (state.mode != VEXTVAPI_MULTIVIEW_PIP) return false;
  state.corner = (state.corner + 1) % kCorners;
  state.sub = small_region();
  return true;
}

bool multiview_step_size() {
  const std::lock_guard guard(state.lock);
  if (state.mode != VEXTVAPI_MULTIVIEW_PIP) return false;
  state.size = (state.size + 1) % kWidths.size();
  state.sub = small_region();
  return true;
}

void multiview_end() { set_mode(VEXTVAPI_MULTIVIEW_NORMAL); }

int multiview_sub_source() {
  const std::lock_guard guard(state.lock);
  return state.sub_shown ? state.sub_source : -1;
}

std::string multiview_show_sub(int source) {
  if (source < 0 || source >= kSources) return "there is no source " + std::to_string(source);
  if (sources_is_blocked(source)) return sources_name(source) + " is blocked";
  std::optional<Channel> channel;
  {
    const std::lock_guard guard(state.lock);
    if (state.sub_shown && state.sub_source == source) channel = state.sub_channel;
  }
  channel = channel_now(channel);
  if (!channel && sources_is_tuner(source)) channel = first_sub_channel(source == kSourceSatellite);
  show_sub(source, channel);
  return "";
}

void multiview_stop_sub(bool wait) {
  {
    const std::lock_guard guard(state.lock);
    hide_sub();
  }
  if (wait) {
    picture_work(picture);
  } else {
    picture_update(picture, false);
  }
}

namespace {

void forget() {
  const std::lock_guard guard(state.lock);
  state.corner = 0;
  state.size = 0;
  state.sub_shown = false;
  state.sub_heard = false;
  state.gave_up = false;
  state.sub_channel.reset();
  state.sub_source = kSourceTv;
  lay_out(VEXTVAPI_MULTIVIEW_NORMAL);
}

void load() {
  picture_clear(picture);
  forget();
}

bool reset() {
  forget();
  picture_update(picture, false);
  return true;
}

void stop() { picture_clear(picture); }

boost::json::object describe(const ScreenPicture& each) {
  boost::json::object shown{{"shown", each.shown}, {"source", sources_name(each.source)}};
  if (each.channel) shown["channel"] = each.channel->number;
  if (each.result) shown["result"] = result_word(*each.result);
  shown["region"] = {
      {"x", each.region.x}, {"y", each.region.y}, {"width", each.region.width}, {"height", each.region.height}};
  return shown;
}

boost::json::object describe() {
  const Multiview now = multiview_state();
  boost::json::object answer{{"mode", kModeWords[now.mode]}, {"main", describe(now.main)}};
  if (now.sub.shown) answer["sub"] = describe(now.sub);
  answer["focus"] = now.sub.heard ? "sub" : "main";
  return answer;
}

// What a viewer sees at once: the second picture, if there is one.
void report(boost::json::object& answer) {
  if (multiview_state().sub.shown) answer["multiview"] = describe();
}

boost::json::object channel_command(std::string_view word) {
  std::string error;
  const auto channel = channels_named(word, error);
  if (!channel) return reply_error(std::move(error));
  show_sub(channel->medium == Medium::kSatellite ? kSourceSatellite : kSourceTv, channel);
  return describe();
}

boost::json::object focus_command(std::string_view word) {
  if (word != "main" && word != "sub") return reply_takes("multiview focus", "main or sub", word);
  std::unique_lock guard(state.lock);
  if (word == "sub" && !state.sub_shown) return reply_error("there is no sub picture; multiview pip shows one");
  state.sub_heard = word == "sub";
  guard.unlock();
  return describe();
}

boost::json::object multiview_command(Arguments arguments) {
  if (arguments.empty()) return describe();
  const std::string_view word = arguments[0];
  if (word == "channel" || word == "focus") {
    return word == "channel" ? channel_command(arguments[1]) : focus_command(arguments[1]);
  }
  if (arguments.size() > 1) return reply_error("multiview " + std::string(word) + " takes no further word");
  if (word == "swap") {
    if (multiview_sub_source() < 0) return reply_error("there is no sub picture; multiview pip shows one");
    return multiview_swap() ? describe() : reply_see_log("the pictures could not be swapped");
  }
  if (word == "stop") {
    multiview_stop_sub(false);
    return describe();
  }
  const auto* const mode = std::ranges::find(kModeWords, word);
  if (mode == std::end(kModeWords)) {
    return reply_takes("multiview", "normal, pip, pop, swap, stop, focus main|sub or channel CHANNEL", word);
  }
  set_mode(static_cast<int>(mode - kModeWords));
  return describe();
}

constexpr Command kCommands[] = {
    {"multiview", "[normal|pip|pop|swap|stop | focus main|sub | channel CHANNEL]", 2,
     "Shows both pictures; pip, pop: a second one in a corner or beside the main one; normal, stop: ends it; focus: "
     "chooses which one is heard; channel: the second one's",
     multiview_command},
};

}  // namespace

const Room room_multiview = {.commands = kCommands, .load = load, .reset = reset, .report = report, .stop = stop};
