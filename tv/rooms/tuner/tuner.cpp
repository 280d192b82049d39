// The tuner of the main picture: which channel it shows, and what became of the latest change. picture.cpp carries a
// change out, on the timer thread.
//
// The callback reports each change's result once. A newer choice replaces a change that is under way, so that only the
// latest one has a result. Afterwards the callback reports each change of the result: the signal is lost or comes back,
// an event begins that is blocked. The tuner receives while the set is on and shows a tuner's source, also without a
// player, because the guide comes with the broadcast.
#include "rooms/tuner/tuner.h"

#include <algorithm>
#include <array>
#include <boost/json.hpp>
#include <cstring>
#include <mutex>
#include <utility>

#include "base/text.h"
#include "core/contract.h"
#include "core/events.h"
#include "core/reply.h"
#include "core/room.h"
#include "core/store.h"
#include "rooms/antenna/antenna.h"
#include "rooms/config/config.h"
#include "rooms/guide/guide.h"
#include "rooms/media_player/media_player.h"
#include "rooms/multiview/multiview.h"
#include "rooms/photos/photos.h"
#include "rooms/playback/playback.h"
#include "rooms/remote/remote.h"
#include "rooms/sources/sources.h"
#include "rooms/tuner/picture.h"
#include "rooms/tuner/tracks.h"

namespace {

// A channel in one number: its service list and its key. -1: none has been chosen.
constexpr std::int64_t kNoChannel = -1;
constexpr std::int64_t kMostChannel = (std::int64_t{1} << 52) - 1;
constexpr Setting kCurrent{
    .key = "tuner_channel", .factory = kNoChannel, .minimum = kNoChannel, .maximum = kMostChannel};
constexpr Setting kPrevious{
    .key = "tuner_channel_previous", .factory = kNoChannel, .minimum = kNoChannel, .maximum = kMostChannel};
constexpr const char* kPin = "g_password__password";

struct State {
  std::mutex lock;  // guards all members below
  std::int64_t current = kCurrent.factory;
  std::int64_t previous = kPrevious.factory;  // that PRE-CH returns to
  bool stopped = false;                       // by tuner_stop
  TrackChoice tracks;                         // of the current channel
  a_vextvapi_broadcast_nfy_fct callback = nullptr;
  void* callback_tag = nullptr;
};

// Never destroyed, as the picture: other threads may still use them when the process exits.
State& state = *new State;

void* as_pointer(std::intptr_t number) { return reinterpret_cast<void*>(number); }

bool is_satellite(const Channel& channel) { return channel.medium == Medium::kSatellite; }

std::int64_t stored(const Channel& channel) { return std::int64_t{channel.list} << 48 | packed(channel.key); }

// The channel that was stored, if it still exists.
std::optional<Channel> channel_of(std::int64_t number) {
  if (number == kNoChannel) return std::nullopt;
  return channels_by_key(unpacked(number), static_cast<std::uint16_t>(number >> 48));
}

std::optional<Channel> wanted_channel() {
  if (!remote_is_on()) return std::nullopt;
  const int source = sources_current();
  if (!sources_is_tuner(source)) return std::nullopt;
  {
    const std::lock_guard guard(state.lock);
    if (state.stopped) return std::nullopt;
  }
  auto channel = tuner_channel();
  if (channel && is_satellite(*channel) != (source == kSourceSatellite)) return std::nullopt;
  return channel;
}

// Keeps the channel in the configuration as the latest one of its tuner. A value that stays the same is not written.
void note_latest(const Channel& channel) {
  constexpr std::array kLatest = {"g_misc__air_channel_id", "g_misc__cab_channel_id", "g_misc__sat_channel_id"};
  const auto tuner = static_cast<std::size_t>(channel.medium) - static_cast<std::size_t>(Medium::kAir);
  if (tuner >= kLatest.size()) return;
  const auto id = static_cast<INT32>(channel.id);  // the bits of an identifier beyond INT32_MAX
  config_set(kLatest[tuner], id);
  config_set("g_misc__misc_ocl_channel_id", id);
  config_set("g_misc__dtv_tuner_type", static_cast<INT32>(tuner));
}

void report_result(const Channel& channel, ChangeResult result) {
  note_latest(channel);
  const std::lock_guard guard(state.lock);
  if (state.callback == nullptr) return;
  events_post([callback = state.callback, tag = state.callback_tag, list = channel.list, id = channel.id, result] {
    callback(VEXTVAPI_BROADCAST_CHANNEL_CHANGED, tag, as_pointer(list), as_pointer(static_cast<std::intptr_t>(result)),
             as_pointer(id), nullptr);
  });
}

void work();

Picture& picture = *new Picture{.wanted = wanted_channel, .work = work, .ended = report_result};

void work() { picture_work(picture); }

// Stores the choice and begins the change. The source stays as it is.
bool choose(const Channel& channel) {
  const std::int64_t wanted = stored(channel);
  const auto before = tuner_channel();
  {
    const std::lock_guard guard(state.lock);
    const bool same = before && stored(*before) == wanted;
    const std::int64_t previous = same || !before ? state.previous : stored(*before);
    const SettingValue values[] = {{kCurrent.key, wanted}, {kPrevious.key, previous}};
    if (!store_write(values)) return false;
    state.current = wanted;
    state.previous = previous;
    state.stopped = false;
    if (!same) state.tracks = {};
  }
  playback_leave();
  media_player_leave();
  photos_leave();
  picture_update(picture, true);
  guide_look_again();
  return true;
}

// Shows the channel. Returns why not; empty: the change has begun. In standby it begins when the set is switched on.
std::string tune(const Channel& channel) {
  const int source = is_satellite(channel) ? kSourceSatellite : kSourceTv;
  if (source != sources_current() && sources_is_blocked(source)) return sources_name(source) + " is blocked";
  return sources_choose_tuner(is_satellite(channel)) && choose(channel) ? "" : kNotSaved;
}

std::string tune(const std::optional<Channel>& channel, const std::string& missing) {
  return channel ? tune(*channel) : missing;
}

// For keys, which do nothing where there is no channel, or its source is blocked. False: not saved.
bool tune_if_any(const std::optional<Channel>& channel) { return !channel || tune(*channel) != kNotSaved; }

std::uint32_t current_id() {
  const auto channel = tuner_channel();
  return channel ? channel->id : 0;
}

std::string no_channel(std::uint32_t id) { return "no channel has the identifier " + std::to_string(id); }

// By its record, which stays when the viewer gives the channel another number.
std::optional<Channel> channel_by_record(std::uint16_t list, std::uint16_t record) {
  for (Channel& each : channels_all())
    if (each.list == list && each.record == record) return std::move(each);
  return std::nullopt;
}

}  // namespace

INT32 a_vextvapi_broadcast_register_callback(a_vextvapi_broadcast_nfy_fct callback, void* tag) {
  if (callback == nullptr) return refuse_call(__func__, "the callback is null");
  const std::lock_guard guard(state.lock);
  state.callback = callback;
  state.callback_tag = tag;
  return 0;
}

INT32 a_vextvapi_broadcast_select_channel_by_chan_id(UINT32 channel_id, UINT32 flags) {
  if (flags != 0) return refuse_call(__func__, "flags are 0, not " + std::to_string(flags));
  const std::string why = tune(channels_by_id(channel_id), no_channel(channel_id));
  return why.empty() ? 0 : refuse_call(__func__, why);
}

// The identifier counts; where the list has no such channel, the record does. No broadcaster here sends another channel
// in a channel's place, so there is no barker channel to check for.
INT32 a_vextvapi_broadcast_select_channel(UINT16 svl_id, UINT16 svl_rec_id, UINT32 channel_id, UINT8) {
  auto channel = channels_by_id(channel_id);
  if (!channel || channel->list != svl_id) channel = channel_by_record(svl_id, svl_rec_id);
  const std::string why =
      tune(channel, "list " + std::to_string(svl_id) + " has neither the channel " + std::to_string(channel_id) +
                        " nor the record " + std::to_string(svl_rec_id));
  return why.empty() ? 0 : refuse_call(__func__, why);
}

std::optional<Channel> tuner_channel() {
  std::int64_t current = kNoChannel;
  {
    const std::lock_guard guard(state.lock);
    current = state.current;
  }
  auto channel = channel_of(current);
  return channel ? channel : channels_step(0, 1);  // the first one, of a new list
}

std::optional<Channel> tuner_previous_channel() {
  std::int64_t previous = kNoChannel;
  {
    const std::lock_guard guard(state.lock);
    previous = state.previous;
  }
  return channel_of(previous);
}

std::optional<ChangeResult> tuner_result() { return picture_facts(picture).result; }

std::vector<TunerTrack> tuner_tracks() {
  const PictureFacts facts = picture_facts(picture);
  if (!facts.facts.pmt) return {};
  TrackChoice choice;
  {
    const std::lock_guard guard(state.lock);
    choice = state.tracks;
  }
  return tracks_of(*facts.facts.pmt, choice);
}

bool tuner_choose(std::uint32_t channel_id) {
  const std::string why = tune(channels_by_id(channel_id), no_channel(channel_id));
  return why.empty() || refuse_call(__func__, why) == 0;
}

bool tuner_step(int by) { return tune_if_any(channels_step(current_id(), by)); }

bool tuner_step_favourite(int by) { return tune_if_any(channels_step_favourite(current_id(), by)); }

bool tuner_previous() { return tune_if_any(tuner_previous_channel()); }

bool tuner_number(std::uint32_t number) { return tune_if_any(channels_by_number(number)); }

bool tuner_has(bool satellite) {
  const std::vector<Channel> channels = channels_all();
  return std::ranges::any_of(channels, [&](const Channel& each) { return is_satellite(each) == satellite; });
}

bool tuner_enter(bool satellite) {
  const auto current = tuner_channel();
  if (current && is_satellite(*current) == satellite) return true;
  const auto previous = tuner_previous_channel();
  if (previous && is_satellite(*previous) == satellite) return choose(*previous);
  for (const Channel& each : channels_all())
    if (!each.hidden && is_satellite(each) == satellite) return choose(each);
  return true;
}

bool tuner_step_audio() {
  std::vector<TunerTrack> tracks = tuner_tracks();
  std::erase_if(tracks, [](const TunerTrack& each) { return each.kind != StreamKind::kAudio; });
  const auto chosen = std::ranges::find_if(tracks, &TunerTrack::chosen);
  if (chosen == tracks.end()) return true;
  const auto next = std::next(chosen) == tracks.end() ? tracks.begin() : std::next(chosen);
  const std::lock_guard guard(state.lock);
  state.tracks.audio = next->pid;
  return true;
}

void tuner_update() {
  {
    const std::lock_guard guard(state.lock);
    state.stopped = false;
  }
  picture_update(picture, false);
}

void tuner_look() {
  picture_update(picture, false);
  multiview_look();
}

void tuner_stop(bool wait) {
  {
    const std::lock_guard guard(state.lock);
    state.stopped = true;
  }
  if (wait) {
    picture_work(picture);
  } else {
    picture_update(picture, false);
  }
}

bool tuner_wants_pin() {
  const auto result = tuner_result();
  return result == ChangeResult::kBlockedChannel || result == ChangeResult::kBlockedEvent;
}

bool tuner_unblock(std::string_view pin) {
  if (pin != config_text(kPin) || !tuner_wants_pin()) return false;
  picture_unlock(picture);
  return true;
}

bool tuner_is_stopped() {
  const std::lock_guard guard(state.lock);
  return state.stopped;
}

void tuner_set_player(const TunerPlayer* player) { picture_set_player(picture, player); }

namespace {

void load() {
  picture_clear(picture);
  const std::lock_guard guard(state.lock);
  state.current = store_read(kCurrent);
  state.previous = store_read(kPrevious);
  state.stopped = false;
  state.tracks = {};
  state.callback = nullptr;
}

bool reset() {
  {
    const std::lock_guard guard(state.lock);
    const SettingValue values[] = {{kCurrent.key, kCurrent.factory}, {kPrevious.key, kPrevious.factory}};
    if (!store_write(values)) return false;
    state.current = kCurrent.factory;
    state.previous = kPrevious.factory;
    state.tracks = {};
  }
  tuner_update();
  return true;
}

void stop() { picture_clear(picture); }

boost::json::value shown_multiplex(const Channel& channel) {
  boost::json::object shown{{"network", channel.key.network},
                            {"stream", channel.key.stream},
                            {"service", channel.key.service},
                            {"mhz", megahertz(channel.medium, channel.frequency)}};
  for (const Multiplex& each : antenna_multiplexes()) {
    if (each.network != channel.key.network || each.stream != channel.key.stream) continue;
    shown["strength"] = each.strength;
    shown["quality"] = each.quality;
  }
  return shown;
}

boost::json::array shown_tracks(const std::vector<TunerTrack>& tracks, StreamKind kind) {
  boost::json::array shown;
  for (const TunerTrack& each : tracks) {
    if (each.kind != kind) continue;
    shown.push_back({{"number", shown.size() + 1},
                     {"language", each.language},
                     {"codec", each.codec},
                     {"impaired", each.impaired},
                     {"chosen", each.chosen}});
  }
  return shown;
}

boost::json::object describe() {
  const auto channel = tuner_channel();
  if (!channel) return {{"channel", nullptr}};
  const PictureFacts now = picture_facts(picture);
  const std::vector<TunerTrack> tracks = tuner_tracks();
  boost::json::object answer{{"channel", channel->number},
                             {"name", channel->name},
                             {"id", channel->id},
                             {"list", medium_name(channel->medium)},
                             {"changing", now.changing && remote_is_on()}};
  answer["result"] = now.result ? boost::json::value(result_word(*now.result)) : nullptr;
  if (!now.facts.lost.empty()) answer["lost"] = now.facts.lost;
  answer["multiplex"] = shown_multiplex(*channel);
  answer["audio"] = shown_tracks(tracks, StreamKind::kAudio);
  answer["subtitles"] = shown_tracks(tracks, StreamKind::kSubtitle);
  answer["teletext"] = now.facts.pmt && std::ranges::any_of(now.facts.pmt->streams, [](const Pmt::Stream& each) {
                         return each.kind == StreamKind::kTeletext;
                       });
  return answer;
}

boost::json::object pin_command(std::string_view pin) {
  if (pin != config_text(kPin)) return reply_error("the PIN is wrong");
  return tuner_unblock(pin) ? describe() : reply_error("the PIN is right, but nothing is blocked");
}

boost::json::object track_command(StreamKind kind, std::string_view word) {
  std::vector<TunerTrack> tracks = tuner_tracks();
  std::erase_if(tracks, [&](const TunerTrack& each) { return each.kind != kind; });
  const bool off = kind == StreamKind::kSubtitle && word == "off";
  const bool audio = kind == StreamKind::kAudio;
  if (!off && tracks.empty()) return reply_error(std::string("the channel has no ") + (audio ? "sound" : "subtitles"));
  const auto number = parse_number_within<std::size_t>(word, 1, tracks.size());
  if (!off && !number) {
    return reply_takes(audio ? "tuner audio" : "tuner subtitle", "a number from 1 to " + std::to_string(tracks.size()),
                       word);
  }
  {
    const std::lock_guard guard(state.lock);
    (audio ? state.tracks.audio : state.tracks.subtitle) = off ? TrackChoice::kOff : tracks[*number - 1].pid;
  }
  return describe();
}

boost::json::object tuner_command(Arguments arguments) {
  if (arguments.empty()) return describe();
  const std::string_view word = arguments[0];
  if (word != "pin" && word != "audio" && word != "subtitle") {
    return reply_takes("tuner", "pin PIN, audio NUMBER, subtitle NUMBER or subtitle off", word);
  }
  if (word == "pin") return pin_command(arguments[1]);
  return track_command(word == "audio" ? StreamKind::kAudio : StreamKind::kSubtitle, arguments[1]);
}

boost::json::object tune_command(Arguments arguments) {
  if (channels_count() == 0) return reply_error("the channel list is empty; scan or import channels first");
  const std::string_view word = arguments[0];
  std::optional<Channel> channel;
  std::string missing;
  if (word == "next" || word == "previous") {
    channel = channels_step(current_id(), word == "next" ? 1 : -1);
    missing = "every channel is skipped or hidden";
  } else if (word == "back") {
    channel = tuner_previous_channel();
    missing = "no other channel has been shown before";
  } else {
    channel = channels_named(word, missing);
  }
  const std::string why = tune(channel, missing);
  return why.empty() ? describe() : reply_error(why);
}

constexpr Command kCommands[] = {
    {"tune", "CHANNEL|next|previous|back", 1,
     "Changes the channel as the remote control does; back: to the channel shown before", tune_command},
    {"tuner", "[pin PIN | audio NUMBER | subtitle NUMBER|off]", 2,
     "Shows the channel, the result of its choice, its multiplex and its streams; pin: unblocks the channel or event; "
     "audio, subtitle: chooses a stream by its place in the list",
     tuner_command},
};

}  // namespace

const Room room_tuner = {.commands = kCommands, .load = load, .reset = reset, .start = tuner_update, .stop = stop};
