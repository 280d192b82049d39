// Texts and types from a file's tags and tracks.
#include <algorithm>
#include <charconv>
#include <cmath>

#include "base/text.h"
#include "core/text.h"
#include "rooms/media_player/parts.h"
#include "rooms/multiview/multiview.h"
#include "vex_tv_ctrl/playback.h"

namespace {

struct TagRow {
  INT32 type;
  std::string_view tag;
};

// The names of tags by type. The first one that the file has is used.
constexpr TagRow kTags[] = {
    {PLAYER_METADATA_TITLE, "title"},         {PLAYER_METADATA_ARTIST, "artist"},
    {PLAYER_METADATA_ARTIST, "album_artist"}, {PLAYER_METADATA_ALBUM, "album"},
    {PLAYER_METADATA_GENRE, "genre"},         {PLAYER_METADATA_YEAR, "date"},
    {PLAYER_METADATA_YEAR, "year"},           {PLAYER_METADATA_YEAR, "creation_time"},
    {PLAYER_METADATA_TRACK, "track"},         {PLAYER_METADATA_COMPOSER, "composer"},
    {PLAYER_METADATA_COMMENT, "comment"},     {PLAYER_METADATA_COMMENT, "description"},
    {PLAYER_METADATA_DIRECTOR, "director"},   {PLAYER_METADATA_COPYRIGHT, "copyright"},
};

std::string_view tag(const PlayerFacts& facts, std::string_view name) {
  const auto found = std::ranges::find_if(facts.texts, [&](const auto& each) { return each.first == name; });
  return found == facts.texts.end() ? std::string_view() : std::string_view(found->second);
}

struct CodecRow {
  std::string_view codec;
  INT32 type;
};

constexpr CodecRow kSubtitleCodecs[] = {
    {"ttml", T_CBROWSER_PB_SBTL_TTML},
    {"xsub", T_CBROWSER_PB_SBTL_DIVX},
    {"ass", T_CBROWSER_PB_SBTL_ASS},
    {"ssa", T_CBROWSER_PB_SBTL_SSA},
    {"subrip", T_CBROWSER_PB_SBTL_SRT},
    {"srt", T_CBROWSER_PB_SBTL_SRT},
    {"eia_608", T_CBROWSER_PB_SBTL_CC},
    {"dvb_subtitle", T_CBROWSER_PB_SBTL_DVB},
    {"dvb_teletext", T_CBROWSER_PB_SBTL_TTX},
    {"arib_caption", T_CBROWSER_PB_SBTL_ISDB_CC},
    {"sami", T_CBROWSER_PB_SBTL_SAMI},
    {"text", T_CBROWSER_PB_SBTL_TEXT},
    {"mov_text", T_CBROWSER_PB_SBTL_TEXT},
    {"webvtt", T_CBROWSER_PB_SBTL_TEXT},
    {"dvd_subtitle", T_CBROWSER_PB_SBTL_VOBSUB},
    {"hdmv_pgs_subtitle", T_CBROWSER_PB_SBTL_PGS},
};

// The tags of a file that may contain an age rating, and the ages that the ratings' names mean.
constexpr std::string_view kRatingTags[] = {"law_rating", "itunextc", "content_rating", "rating_age"};
struct RatingRow {
  std::string_view word;
  int age;
};
constexpr RatingRow kRatings[] = {{"NC-17", 18}, {"TV-MA", 17}, {"TV-14", 14}, {"TV-PG", 10}, {"TV-Y7", 7}, {"TV-Y", 0},
                                  {"TV-G", 0},   {"PG-13", 13}, {"PG", 10},    {"R", 17},     {"G", 0}};
constexpr int kOldest = 21;

}  // namespace

std::string media_text(const Session& session, INT32 type) {
  if (type == PLAYER_METADATA_PATH) return session.path;
  if (type == PLAYER_METADATA_CHAPTER) {
    const auto chapter = static_cast<std::size_t>(session.facts.chapter);
    const auto& list = session.facts.chapter_list;
    return chapter >= 1 && chapter <= list.size() ? clean_text(list[chapter - 1].title, 127) : "";
  }
  for (const TagRow& each : kTags) {
    if (each.type != type) continue;
    const std::string_view text = tag(session.facts, each.tag);
    if (text.empty()) continue;
    // A date begins with its year.
    return clean_text(type == PLAYER_METADATA_YEAR ? text.substr(0, 4) : text, 127);
  }
  return type == PLAYER_METADATA_TITLE && session.source ? std::string(cut_text(session.source->name, 127)) : "";
}

std::string media_title(const Session& session) {
  return session.source ? media_text(session, PLAYER_METADATA_TITLE) : session.path;
}

std::optional<int> media_rating(const PlayerFacts& facts) {
  for (const std::string_view name : kRatingTags) {
    std::string_view text = tag(facts, name);
    if (text.empty()) continue;
    // In "mpaa|PG-13|300|" the rating is in the middle.
    if (const std::size_t bar = text.find('|'); bar != std::string_view::npos) {
      text = text.substr(bar + 1);
      text = text.substr(0, text.find('|'));
    }
    const auto* const row = std::ranges::find(kRatings, text, &RatingRow::word);
    if (row != std::end(kRatings)) return row->age;
    int age = 0;
    const auto [end, failed] = std::from_chars(text.data(), text.data() + text.size(), age);
    if (failed == std::errc() && age >= 0 && age <= kOldest) return age;
  }
  return std::nullopt;
}

INT32 media_type(const PlayerFacts& facts) {
  bool sound = false;
  for (const PlayerTrack& each : facts.tracks) {
    if (each.kind == TrackKind::kVideo && !each.cover) return PLAYER_TYPE_VIDEO;
    sound = sound || each.kind == TrackKind::kAudio;
  }
  return sound ? PLAYER_TYPE_MUSIC : PLAYER_TYPE_UNKNOWN;
}

std::vector<const PlayerTrack*> media_tracks(const PlayerFacts& facts, TrackKind kind) {
  std::vector<const PlayerTrack*> tracks;
  for (const PlayerTrack& each : facts.tracks)
    if (each.kind == kind) tracks.push_back(&each);
  return tracks;
}

INT32 subtitle_type(std::string_view codec) {
  const auto* const row = std::ranges::find(kSubtitleCodecs, codec, &CodecRow::codec);
  return row == std::end(kSubtitleCodecs) ? INT32{T_CBROWSER_PB_SBTL_UNKNOWN} : row->type;
}

PlayerLook look_with_zoom(const PlayerLook& look, const Zoom& zoom) {
  PlayerLook result = look;
  result.zoom = 1;
  result.pan_x = result.pan_y = 0;
  result.fills = zoom.type == PLAYER_ZOOM_FILL;
  if (zoom.type == PLAYER_ZOOM_2X) result.zoom = 2;
  if (zoom.type == PLAYER_ZOOM_RECT) {
    const auto middle = [](std::uint32_t from, std::uint32_t size, std::uint32_t panel) {
      return 0.5 - (from + size / 2.0) / panel;
    };
    result.zoom = std::min(double{kPanelWidth} / zoom.rect.w, double{kPanelHeight} / zoom.rect.h);
    result.pan_x = middle(zoom.rect.x, zoom.rect.w, kPanelWidth);
    result.pan_y = middle(zoom.rect.y, zoom.rect.h, kPanelHeight);
  }
  return result;
}
