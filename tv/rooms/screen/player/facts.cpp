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

// Identify libmpv's replies to commands; a seek has its own number.
constexpr std::uint64_t kAddsSubtitles = UINT64_MAX, kReloadsSubtitles = UINT64_MAX - 1;

constexpr std::size_t kLongestText = 255;  // bytes of a track's texts; a longer one is left out
constexpr std::size_t kMostTexts = 64;     // tags of a file
constexpr double kLongestFile = 1e7;       // s; larger numbers are not believed

// For which kind of player a property is observed.
enum class Wanted { kAlways, kFile, kMedia };

struct Property {
  const char* name;
  mpv_format format;
  void (*take)(Player& player, const void* value);
  Wanted wanted = Wanted::kFile;
};

bool is_time(double seconds) { return std::isfinite(seconds) && seconds >= 0 && seconds < kLongestFile; }

void take_position(Player& player, const void* value) {
  const double position = *static_cast<const double*>(value);
  if (!std::isfinite(position) || position >= kLongestFile) return;
  if (player.facts.seeking) player.sought = std::max(position, 0.0);
  if (player.facts.state == PlayerState::kPlaying && !player.facts.seeking)
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
    const auto flag = [&](std::string_view key) {
      const mpv_node* const found = member(map, key, MPV_FORMAT_FLAG);
      return found != nullptr && found->u.flag != 0;
    };
    const auto count = [&](std::string_view key, std::int64_t most) {
      const mpv_node* const found = member(map, key, MPV_FORMAT_INT64);
      return found == nullptr ? 0 : std::clamp<std::int64_t>(found->u.int64, 0, most);
    };
    const mpv_node* const pid = member(map, "src-id", MPV_FORMAT_INT64);
    player.facts.tracks.push_back({.kind = kind->kind,
                                   .number = static_cast<int>(number->u.int64),
                                   .pid = pid == nullptr ? 0 : static_cast<int>(pid->u.int64),
                                   .codec = text_of(map, "codec"),
                                   .language = text_of(map, "lang"),
                                   .title = text_of(map, "title"),
                                   .chosen = flag("selected"),
                                   .external = flag("external"),
                                   .cover = flag("albumart") || flag("image"),
                                   .hearing_impaired = flag("hearing-impaired"),
                                   .visually_impaired = flag("visual-impaired"),
                                   .channels = static_cast<int>(count("demux-channel-count", 64)),
                                   .sample_rate = static_cast<int>(count("demux-samplerate", 10'000'000)),
                                   .bit_rate = count("demux-bitrate", INT32_MAX)});
  }
}

void take_chapter_list(Player& player, const void* value) {
  const mpv_node& node = *static_cast<const mpv_node*>(value);
  player.facts.chapter_list.clear();
  if (node.format != MPV_FORMAT_NODE_ARRAY) return;
  for (int i = 0; i < node.u.list->num && player.facts.chapter_list.size() < kMostChapters; ++i) {
    if (node.u.list->values[i].format != MPV_FORMAT_NODE_MAP) continue;
    const mpv_node_list& map = *node.u.list->values[i].u.list;
    const mpv_node* const time = member(map, "time", MPV_FORMAT_DOUBLE);
    player.facts.chapter_list.push_back(
        {.title = text_of(map, "title"), .start = time != nullptr && is_time(time->u.double_) ? time->u.double_ : 0});
  }
}

void take_texts(Player& player, const void* value) {
  const mpv_node& node = *static_cast<const mpv_node*>(value);
  player.facts.texts.clear();
  if (node.format != MPV_FORMAT_NODE_MAP) return;
  for (int i = 0; i < node.u.list->num && player.facts.texts.size() < kMostTexts; ++i) {
    const mpv_node& text = node.u.list->values[i];
    if (text.format != MPV_FORMAT_STRING) continue;
    const std::string_view name = node.u.list->keys[i], content = text.u.string;
    if (name.size() > kLongestText || content.size() > kLongestText || !is_utf8(name) || !is_utf8(content)) continue;
    std::string lower(name);
    for (char& each : lower)
      if (each >= 'A' && each <= 'Z') each = static_cast<char>(each - 'A' + 'a');
    player.facts.texts.emplace_back(std::move(lower), content);
  }
}

std::int64_t number(const void* value, std::int64_t most) {
  return std::clamp<std::int64_t>(*static_cast<const std::int64_t*>(value), 0, most);
}

bool flag(const void* value) { return *static_cast<const int*>(value) != 0; }

void take_format(Player& player, const void* value) {
  const std::string_view text = *static_cast<const char* const*>(value);
  player.facts.format = text.size() <= kLongestText && is_utf8(text) ? text : std::string_view();
}
void take_video_rate(Player& player, const void* value) { player.facts.video_rate = number(value, INT32_MAX); }
void take_audio_rate(Player& player, const void* value) { player.facts.audio_rate = number(value, INT32_MAX); }
void take_percent(Player& player, const void* value) {
  const double percent = *static_cast<const double*>(value);
  if (!player.facts.seeking && std::isfinite(percent)) player.facts.percent = std::clamp(percent, 0.0, 100.0);
}
void take_speed(Player& player, const void* value) {
  if (const double speed = *static_cast<const double*>(value); std::isfinite(speed)) player.facts.speed = speed;
}
void take_editions(Player& player, const void* value) { player.facts.editions = static_cast<int>(number(value, 9999)); }
void take_edition(Player& player, const void* value) {
  player.facts.edition =
      static_cast<int>(std::clamp<std::int64_t>(*static_cast<const std::int64_t*>(value), -1, 9998)) + 1;
}
void take_pause(Player& player, const void* value) { player.facts.paused = flag(value); }
void take_buffering(Player& player, const void* value) { player.facts.buffering = flag(value); }
void take_seekable(Player& player, const void* value) { player.facts.seekable = flag(value); }
void take_size(Player& player, const void* value) { player.facts.size = number(value, INT64_MAX); }

// The library sends a property's place in this table with each change of it.
constexpr Property kProperties[] = {{"time-pos", MPV_FORMAT_DOUBLE, take_position},
                                    {"duration", MPV_FORMAT_DOUBLE, take_duration},
                                    {"chapter", MPV_FORMAT_INT64, take_chapter},
                                    {"chapters", MPV_FORMAT_INT64, take_chapters},
                                    {"track-list", MPV_FORMAT_NODE, take_tracks, Wanted::kAlways},
                                    {"width", MPV_FORMAT_INT64, take_width, Wanted::kAlways},
                                    {"height", MPV_FORMAT_INT64, take_height, Wanted::kAlways},
                                    {"video-params/aspect", MPV_FORMAT_DOUBLE, take_aspect, Wanted::kAlways},
                                    {"chapter-list", MPV_FORMAT_NODE, take_chapter_list, Wanted::kMedia},
                                    {"metadata", MPV_FORMAT_NODE, take_texts, Wanted::kMedia},
                                    {"file-format", MPV_FORMAT_STRING, take_format, Wanted::kMedia},
                                    {"video-bitrate", MPV_FORMAT_INT64, take_video_rate, Wanted::kMedia},
                                    {"audio-bitrate", MPV_FORMAT_INT64, take_audio_rate, Wanted::kMedia},
                                    {"percent-pos", MPV_FORMAT_DOUBLE, take_percent, Wanted::kMedia},
                                    {"speed", MPV_FORMAT_DOUBLE, take_speed, Wanted::kMedia},
                                    {"editions", MPV_FORMAT_INT64, take_editions, Wanted::kMedia},
                                    {"current-edition", MPV_FORMAT_INT64, take_edition, Wanted::kMedia},
                                    {"pause", MPV_FORMAT_FLAG, take_pause, Wanted::kMedia},
                                    {"paused-for-cache", MPV_FORMAT_FLAG, take_buffering, Wanted::kMedia},
                                    {"seekable", MPV_FORMAT_FLAG, take_seekable, Wanted::kMedia},
                                    {"file-size", MPV_FORMAT_INT64, take_size, Wanted::kMedia}};

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
  if (player.ring == nullptr) mpv_library().mpv_set_property_async(player.handle, 0, name, format, value);
}

void set_text(Player& player, const char* name, const char* value) {
  set_property(player, name, MPV_FORMAT_STRING, &value);
}

// Plays the file again from the position of the latest seek. libmpv closes a file at its end, and refuses to seek then.
void play_again(Player& player) {
  const std::string start = std::to_string(player.facts.position);
  set_text(player, "start", start.c_str());
  const char* words[] = {"loadfile", kStreamAddress, "replace", nullptr};
  player.plays_again = player.seek_taken = player.facts.seeking = true;
  player.facts.state = PlayerState::kPlaying;
  player.sought.reset();
  player.seek_until = steady_clock::now() + kSeekTime;
  mpv_library().mpv_command_async(player.handle, ++player.seek, words);
}

// how: libmpv's flags; position: the target in s.
void seek(Player& player, double place, const char* how, double position) {
  player.facts.position = position;
  if (player.facts.state == PlayerState::kEnded || player.plays_again) return play_again(player);
  const std::string target = std::to_string(place);
  const char* words[] = {"seek", target.c_str(), how, nullptr};
  player.seek_taken = false;
  player.sought.reset();
  player.seek_until = steady_clock::now() + kSeekTime;
  player.facts.seeking = true;
  mpv_library().mpv_command_async(player.handle, ++player.seek, words);
}

void take_end(Player& player, const mpv_event_end_file& end) {
  PlayerFacts& facts = player.facts;
  if (end.reason == MPV_END_FILE_REASON_STOP) return;
  facts.reason = stream_trouble(player);
  if (facts.reason.empty() && end.reason == MPV_END_FILE_REASON_ERROR)
    facts.reason = std::string("the file cannot be played: ") + mpv_library().mpv_error_string(end.error);
  if (facts.reason.empty() && facts.seeking && !player.seek_taken) return play_again(player);
  facts.state = facts.reason.empty() ? PlayerState::kEnded : PlayerState::kFailed;
  facts.seeking = player.plays_again = false;
}

// Adds the subtitle files beside the opened file to libmpv's tracks, without choosing one.
void add_subtitles(Player& player) {
  player.subtitles_expected = player.subtitle_files.size();
  for (std::size_t i = 0; i < player.subtitle_files.size(); ++i) {
    const PlayerSubtitle& file = player.subtitle_files[i];
    const std::string address = kSubtitleAddress + std::to_string(i);
    const char* words[] = {"sub-add", address.c_str(), "auto", file.title.c_str(), file.language.c_str(), nullptr};
    mpv_library().mpv_command_async(player.handle, kAddsSubtitles, words);
  }
}

// While a film is paused, libmpv draws changed subtitles only with the next picture. So this seeks to the present
// position, which decodes the picture again; after a seek that is under way, since its picture may be decoded already.
void draw_again(Player& player) {
  player.draws_again = player.facts.seeking;
  if (!player.facts.paused || player.facts.seeking || player.facts.state != PlayerState::kPlaying) return;
  const char* words[] = {"seek", "0", "relative+exact", nullptr};
  player.seek_taken = false;
  mpv_library().mpv_command_async(player.handle, 0, words);
}

}  // namespace

int facts_observe(Player& player) {
  for (const Property& each : kProperties) {
    if (each.wanted == Wanted::kFile && player.ring != nullptr) continue;
    if (each.wanted == Wanted::kMedia && !player.media) continue;
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
      // Until the file is open again, its lists stay as they are.
      if (player.plays_again && changed.format == MPV_FORMAT_NODE) return;
      const Property& property = kProperties[event.reply_userdata];
      if (changed.format == property.format) property.take(player, changed.data);
      return;
    }
    case MPV_EVENT_COMMAND_REPLY:
      if (event.reply_userdata == kAddsSubtitles && event.error < 0 && player.subtitles_expected > 0)
        --player.subtitles_expected;
      if (event.reply_userdata == kReloadsSubtitles) draw_again(player);
      if (player.seek == 0 || event.reply_userdata != player.seek) return;
      player.seek_taken = event.error >= 0;
      // libmpv also refuses while it closes a file at its end; then take_end plays the file again.
      if (event.error < 0 && !facts.seekable) facts.seeking = false;
      return;
    case MPV_EVENT_FILE_LOADED:
      player.plays_again = false;
      return add_subtitles(player);
    case MPV_EVENT_PLAYBACK_RESTART:
      player.begun = std::min(player.begun, steady_clock::now());
      if (player.seek_taken) {
        facts.seeking = false;
        // While playing is paused, libmpv does not report the position again.
        if (player.sought) facts.position = *player.sought;
        if (player.draws_again) draw_again(player);
      }
      return;
    case MPV_EVENT_END_FILE:
      return take_end(player, *static_cast<const mpv_event_end_file*>(event.data));
    default:
      return;
  }
}

void facts_settle(Player& player) {
  if (player.facts.state != PlayerState::kOpening || player.begun == Player::kNever) return;
  const auto listed = std::ranges::count_if(player.facts.tracks, &PlayerTrack::external);
  if (static_cast<std::size_t>(listed) >= player.subtitles_expected ||
      steady_clock::now() >= player.begun + kSubtitlesTime)
    player.facts.state = PlayerState::kPlaying;
}

const PlayerFacts& player_facts(const Player& player) { return player.facts; }

void player_pause(Player& player, bool paused) {
  int flag = paused ? 1 : 0;
  set_property(player, "pause", MPV_FORMAT_FLAG, &flag);
}

void player_seek(Player& player, double position) {
  if (player.ring != nullptr || !is_time(position)) return;
  seek(player, position, "absolute+exact", position);
}

void player_seek_fast(Player& player, double position) {
  if (player.ring != nullptr || !is_time(position)) return;
  seek(player, position, "absolute+keyframes", position);
}

void player_seek_percent(Player& player, double percent) {
  if (player.ring != nullptr || !(percent >= 0 && percent <= 100)) return;
  const double duration = player.facts.duration;
  seek(player, percent, "absolute-percent+exact", duration > 0 ? duration * percent / 100 : player.facts.position);
}

void player_step_picture(Player& player, bool back) {
  if (player.ring != nullptr) return;
  const char* words[] = {back ? "frame-back-step" : "frame-step", nullptr};
  mpv_library().mpv_command_async(player.handle, 0, words);
}

void player_repeat(Player& player, bool repeats) { set_text(player, "loop-file", repeats ? "inf" : "no"); }

void player_set_speed(Player& player, double speed) {
  if (std::isfinite(speed)) set_property(player, "speed", MPV_FORMAT_DOUBLE, &speed);
}

void player_choose(Player& player, TrackKind kind, int number) {
  if (player.ring != nullptr) return;
  ask_for(player, kind, number);
  if (kind == TrackKind::kSubtitle) draw_again(player);
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
  // As a seek, since the library does not report the position after a change of the chapter while it is paused.
  const std::size_t place = static_cast<std::size_t>(chapter) - 1;
  if (place < player.facts.chapter_list.size()) player_seek(player, player.facts.chapter_list[place].start);
}

void player_set_growing(Player& player, bool grows) {
  if (player.file != nullptr) file_set_growing(*player.file, grows);
}

void player_set_look(Player& player, const PlayerLook& look) {
  if (player.ring != nullptr) return;
  const auto number = [](double value) { return std::to_string(value); };
  const auto set = [&](const char* name, std::string value) {
    std::string& known = player.look[name];
    if (known == value) return false;
    set_text(player, name, value.c_str());
    known = std::move(value);
    return true;
  };
  set("video-zoom", number(std::log2(std::clamp(look.zoom, 0.1, 16.0))));
  set("video-pan-x", number(look.pan_x));
  set("video-pan-y", number(look.pan_y));
  set("panscan", look.fills ? "1" : "0");
  bool subtitles = set("sub-visibility", look.subtitles_shown ? "yes" : "no");
  subtitles = set("sub-delay", number(look.subtitle_delay)) || subtitles;
  // A property that has its initial value is set only if it was set to another one before.
  const auto set_or = [&](const char* name, bool is_set, const std::string& value, const char* initial) {
    if (is_set || player.look.contains(name)) return set(name, is_set ? value : initial);
    return false;
  };
  subtitles = set_or("sub-color", !look.text_colour.empty(), look.text_colour, "#FFFFFFFF") || subtitles;
  subtitles = set_or("sub-border-color", !look.edge_colour.empty(), look.edge_colour, "#FF000000") || subtitles;
  subtitles = set_or("sub-back-color", !look.back_colour.empty(), look.back_colour, "#00000000") || subtitles;
  subtitles = set_or("sub-border-size", look.edge_width >= 0, number(look.edge_width), "3") || subtitles;
  subtitles = set_or("sub-font-size", look.size > 0, number(look.size), "55") || subtitles;
  subtitles =
      set_or("sub-pos", look.subtitle_line > 0, std::to_string(std::lround(look.subtitle_line)), "100") || subtitles;
  subtitles =
      set_or("sub-margin-x", look.subtitle_margin >= 0, std::to_string(std::lround(look.subtitle_margin)), "25") ||
      subtitles;
  if (set_or("sub-codepage", !look.encoding.empty(), look.encoding, "auto")) {
    const char* words[] = {"sub-reload", nullptr};
    mpv_library().mpv_command_async(player.handle, kReloadsSubtitles, words);
  }
  if (subtitles) draw_again(player);
}
