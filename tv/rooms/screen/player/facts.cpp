// The library's reports about the file that it plays, and the functions that control it. Of a ring, it reports the
// streams and the video's shape.
#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <string_view>
#include <utility>

#include "base/text.h"
#include "rooms/screen/player/parts.h"

using std::chrono::steady_clock;

namespace {

constexpr std::size_t kLongestText = 255;  // bytes of a track's texts; a longer one is left out
constexpr double kLongestFile = 1e7;       // s; larger numbers are not believed

struct Property {
  const char* name;
  mpv_format format;
  void (*take)(Player& player, const void* value);
  bool of_ring = false;  // also of a ring
};

bool is_time(double seconds) { return std::isfinite(seconds) && seconds >= 0 && seconds < kLongestFile; }

void take_position(Player& player, const void* value) {
  const double position = *static_cast<const double*>(value);
  if (player.facts.state == PlayerState::kPlaying && !player.facts.seeking && std::isfinite(position) &&
      position < kLongestFile)
    player.facts.position = std::max(position, 0.0);
}

void take_duration(Player& player, const void* value) {
  if (const double duration = *static_cast<const double*>(value); is_time(duration)) player.facts.duration = duration;
}

void take_chapter(Player& player, const void* value) {
  player.facts.chapter =
      static_cast<int>(std::clamp<std::int64_t>(*static_cast<const std::int64_t*>(value), -1, 9999)) + 1;
}

void take_chapters(Player& player, const void* value) {
  player.facts.chapters =
      static_cast<int>(std::clamp<std::int64_t>(*static_cast<const std::int64_t*>(value), 0, 10000));
}

int pixels(const void* value) {
  return static_cast<int>(std::clamp<std::int64_t>(*static_cast<const std::int64_t*>(value), 0, 65535));
}

void take_width(Player& player, const void* value) { player.facts.video.width = pixels(value); }

void take_height(Player& player, const void* value) { player.facts.video.height = pixels(value); }

void take_aspect(Player& player, const void* value) {
  const double aspect = *static_cast<const double*>(value);
  if (std::isfinite(aspect) && aspect > 0 && aspect < 100) player.facts.video.aspect = aspect;
}

const mpv_node* member(const mpv_node_list& map, std::string_view key, mpv_format format) {
  for (int i = 0; i < map.num; ++i)
    if (key == map.keys[i] && map.values[i].format == format) return &map.values[i];
  return nullptr;
}

std::string text_of(const mpv_node_list& map, std::string_view key) {
  const mpv_node* const found = member(map, key, MPV_FORMAT_STRING);
  if (found == nullptr) return {};
  const std::string_view text = found->u.string;
  return text.size() <= kLongestText && is_utf8(text) ? std::string(text) : std::string();
}

struct KindRow {
  TrackKind kind;
  const char* type;
  const char* property;  // which chooses a track
};
constexpr KindRow kKinds[] = {
    {TrackKind::kVideo, "video", "vid"}, {TrackKind::kAudio, "audio", "aid"}, {TrackKind::kSubtitle, "sub", "sid"}};

void take_tracks(Player& player, const void* value) {
  const mpv_node& node = *static_cast<const mpv_node*>(value);
  player.facts.tracks.clear();
  if (node.format != MPV_FORMAT_NODE_ARRAY) return;
  for (int i = 0; i < node.u.list->num && player.facts.tracks.size() < kMostTracks; ++i) {
    if (node.u.list->values[i].format != MPV_FORMAT_NODE_MAP) continue;
    const mpv_node_list& map = *node.u.list->values[i].u.list;
    const auto* const kind = std::ranges::find(kKinds, text_of(map, "type"), &KindRow::type);
    const mpv_node* const number = member(map, "id", MPV_FORMAT_INT64);
    if (kind == std::end(kKinds) || number == nullptr) continue;
    const mpv_node* const chosen = member(map, "selected", MPV_FORMAT_FLAG);
    const mpv_node* const pid = member(map, "src-id", MPV_FORMAT_INT64);
    player.facts.tracks.push_back({.kind = kind->kind,
                                   .number = static_cast<int>(number->u.int64),
                                   .pid = pid == nullptr ? 0 : static_cast<int>(pid->u.int64),
                                   .codec = text_of(map, "codec"),
                                   .language = text_of(map, "lang"),
                                   .title = text_of(map, "title"),
                                   .chosen = chosen != nullptr && chosen->u.flag != 0});
  }
}

// The library sends a property's place in this table with each change of it.
constexpr Property kProperties[] = {
    {"time-pos", MPV_FORMAT_DOUBLE, take_position},     {"duration", MPV_FORMAT_DOUBLE, take_duration},
    {"chapter", MPV_FORMAT_INT64, take_chapter},        {"chapters", MPV_FORMAT_INT64, take_chapters},
    {"track-list", MPV_FORMAT_NODE, take_tracks, true}, {"width", MPV_FORMAT_INT64, take_width, true},
    {"height", MPV_FORMAT_INT64, take_height, true},    {"video-params/aspect", MPV_FORMAT_DOUBLE, take_aspect, true}};

void take_end(Player& player, const mpv_event_end_file& end) {
  PlayerFacts& facts = player.facts;
  if (end.reason == MPV_END_FILE_REASON_STOP) return;
  facts.state = PlayerState::kEnded;
  facts.seeking = false;
  facts.reason = file_trouble(*player.file);
  if (facts.reason.empty() && end.reason == MPV_END_FILE_REASON_ERROR)
    facts.reason = std::string("the file cannot be played: ") + mpv_library().mpv_error_string(end.error);
  if (!facts.reason.empty()) facts.state = PlayerState::kFailed;
}

// Has the library play a track; 0: none of the kind.
void ask_for(Player& player, TrackKind kind, int number) {
  const auto* const row = std::ranges::find(kKinds, kind, &KindRow::kind);
  std::string text = number == 0 ? "no" : std::to_string(number);
  char* value = text.data();
  mpv_library().mpv_set_property_async(player.handle, 0, row->property, MPV_FORMAT_STRING, &value);
}

void follow(Player& player, TrackKind kind, int pid, int& asked) {
  if (pid == Player::kUnknown) return;
  const auto track = std::ranges::find_if(
      player.facts.tracks, [&](const PlayerTrack& each) { return each.kind == kind && each.pid == pid; });
  if (pid != 0 && track == player.facts.tracks.end()) return;
  const int number = pid == 0 ? 0 : track->number;
  if (std::exchange(asked, number) != number) ask_for(player, kind, number);
}

void set_property(Player& player, const char* name, mpv_format format, void* value) {
  if (player.file != nullptr) mpv_library().mpv_set_property_async(player.handle, 0, name, format, value);
}

}  // namespace

int facts_observe(Player& player) {
  for (const Property& each : kProperties) {
    if (player.ring != nullptr && !each.of_ring) continue;
    const auto number = static_cast<std::uint64_t>(&each - std::begin(kProperties));
    const int result = mpv_library().mpv_observe_property(player.handle, number, each.name, each.format);
    if (result < 0) return result;
  }
  return 0;
}

void facts_take(Player& player, const mpv_event& event) {
  PlayerFacts& facts = player.facts;
  if (facts.seeking && steady_clock::now() >= player.seek_until) facts.seeking = false;
  switch (event.event_id) {
    case MPV_EVENT_PROPERTY_CHANGE: {
      const auto& changed = *static_cast<const mpv_event_property*>(event.data);
      if (event.reply_userdata >= std::size(kProperties)) return;
      const Property& property = kProperties[event.reply_userdata];
      if (changed.format == property.format) property.take(player, changed.data);
      return;
    }
    case MPV_EVENT_COMMAND_REPLY:
      if (player.seek == 0 || event.reply_userdata != player.seek) return;
      player.seek_taken = true;
      if (event.error < 0) facts.seeking = false;  // the file cannot be sought
      return;
    case MPV_EVENT_PLAYBACK_RESTART:
      if (facts.state == PlayerState::kOpening) facts.state = PlayerState::kPlaying;
      if (player.seek_taken) facts.seeking = false;
      return;
    case MPV_EVENT_END_FILE:
      return take_end(player, *static_cast<const mpv_event_end_file*>(event.data));
    default:
      return;
  }
}

const PlayerFacts& player_facts(const Player& player) { return player.facts; }

void player_pause(Player& player, bool paused) {
  int flag = paused ? 1 : 0;
  set_property(player, "pause", MPV_FORMAT_FLAG, &flag);
}

void player_seek(Player& player, double position) {
  if (player.file == nullptr || !is_time(position)) return;
  const std::string target = std::to_string(position);
  const char* words[] = {"seek", target.c_str(), "absolute+exact", nullptr};
  player.seek_taken = false;
  player.seek_until = steady_clock::now() + kSeekTime;
  player.facts.seeking = true;
  player.facts.position = position;
  mpv_library().mpv_command_async(player.handle, ++player.seek, words);
}

void player_set_speed(Player& player, double speed) {
  if (std::isfinite(speed)) set_property(player, "speed", MPV_FORMAT_DOUBLE, &speed);
}

void player_choose(Player& player, TrackKind kind, int number) {
  if (player.file != nullptr) ask_for(player, kind, number);
}

void facts_follow_choice(Player& player) {
  follow(player, TrackKind::kAudio, player.audio, player.asked_audio);
  follow(player, TrackKind::kSubtitle, player.subtitle, player.asked_subtitle);
}

void player_choose_streams(Player& player, int audio, int subtitle) {
  if (player.ring == nullptr) return;
  player.audio = audio;
  player.subtitle = subtitle;
  facts_follow_choice(player);
}

void player_choose_chapter(Player& player, int chapter) {
  auto place = static_cast<std::int64_t>(chapter) - 1;
  set_property(player, "chapter", MPV_FORMAT_INT64, &place);
}

void player_set_growing(Player& player, bool grows) {
  if (player.file != nullptr) file_set_growing(*player.file, grows);
}
