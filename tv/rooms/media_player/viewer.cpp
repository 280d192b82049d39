// The viewer's player, and what a viewer does with the player that is seen.
#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

#include "core/reply.h"
#include "rooms/config/config.h"
#include "rooms/library/library.h"
#include "rooms/media_player/session_thread.h"
#include "rooms/remote/remote.h"
#include "rooms/screen/show.h"

namespace {

const char* const kNothing = "nothing is played; \"player play PATH\" plays a file";
constexpr double kBackToStart = 3;  // s; later than this in a chapter, "previous" goes back to its beginning
constexpr std::string_view kPlaylistEnds[] = {".m3u", ".m3u8", ".pls"};
constexpr std::size_t kMostOfList = 1000;  // entries of a playlist that are played

std::mutex changing;  // serializes what a viewer does; taken before the other locks of parts.h

std::atomic<void (*)()> on_change = nullptr;

// Calls `change` on the player that is seen, under its session's lock. change: returns why it failed; empty: done.
template <typename Change>
std::string control(Change change) {
  const std::lock_guard guard(changing);
  const SessionHandle session = session_seen();
  if (session == nullptr) return kNothing;
  std::string why;
  session_change(*session, [&](Session& found) {
    if (is_over(found.stage) || found.leaving)
      why = kNothing;
    else
      why = change(found);
  });
  return why;
}

const char* const kOpening = "the file is still being opened";

// The same, if the player's file is open.
template <typename Change>
std::string control_open(Change change) {
  return control([&](Session& session) { return session.stage == Stage::kReady ? change(session) : kOpening; });
}

std::string seek_in(Session& session, double place, bool percent) {
  if (!session.facts.seekable) return "the file cannot be sought in";
  session.wanted.seek = place;
  session.wanted.seek_percent = percent;
  ++session.wanted.seeks;
  if (!percent) session.facts.position = place;  // so that a further relative seek counts from there
  return {};
}

bool is_playlist(const std::string& path) {
  std::string end = path.substr(std::min(path.find_last_of('.'), path.size()));
  std::ranges::transform(end, end.begin(), [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
  return std::ranges::find(kPlaylistEnds, end) != std::end(kPlaylistEnds);
}

// Plays the path with the viewer's player. The caller holds `changing`.
std::string play(const std::string& path, std::vector<std::string> list, std::optional<double> from) {
  SessionHandle session = session_of_viewer();
  std::string why;
  INT32 code = 0;
  const bool is_new = session == nullptr;
  if (is_new) session = session_create_viewer();
  if (!session_open(session, path, from, false, why, code)) {
    if (is_new) session_end(session);
    return why;
  }
  session_change(*session, [&](Session& opened) { opened.list = std::move(list); });
  sessions_make_room_for_viewer();
  if (!remote_is_on()) media_player_leave();  // the set went to standby meanwhile
  show_wake();
  viewer_changed();
  return {};
}

std::string first_of_folder(const std::string& path) {
  const auto entry = library_entry(path);
  const std::size_t slash = path.find_last_of('/');
  if (!entry || slash == std::string::npos) return {};
  for (const LibraryEntry& each : library_folder(path.substr(0, slash), entry->kind, 0, kMostOfList))
    if (each.kind == entry->kind) return each.path;
  return {};
}

std::string neighbour(const std::string& path, const std::vector<std::string>& list, int step) {
  if (list.empty()) {
    const auto entry = library_neighbour(path, step);
    return entry ? entry->path : "";
  }
  const auto at = std::ranges::find(list, path);
  if (at == list.end() || (step < 0 && at == list.begin()) || (step > 0 && at + 1 == list.end())) return {};
  return step < 0 ? *(at - 1) : *(at + 1);
}

}  // namespace

void viewer_changed() {
  if (void (*const changed)() = on_change) changed();
}

std::string viewer_following(const std::string& path, const std::vector<std::string>& list, bool around) {
  std::string next = neighbour(path, list, 1);
  if (next.empty() && around) next = list.empty() ? first_of_folder(path) : list.front();
  return next;
}

std::string media_player_play(const std::string& path, std::optional<double> from) {
  if (!remote_is_on()) return "the set is in standby";
  if (from && !(*from >= 0 && std::isfinite(*from))) return "a file is played from 0 s or later";
  const std::lock_guard guard(changing);
  if (!is_playlist(path)) return play(path, {}, from);
  std::vector<std::string> list;
  for (const LibraryEntry& each : library_playlist(path))
    if (list.size() < kMostOfList) list.push_back(each.path);
  if (list.empty()) return quoted(path) + " names no file that the set can play";
  const std::string first = list.front();
  return play(first, std::move(list), from);
}

std::string media_player_pause(bool paused) {
  return control([&](Session& session) {
    if (session.blocked) return std::string("the file is locked by its age rating; \"player unlock PIN\" plays it");
    session.wanted.paused = paused;
    if (!paused) session.wanted.speed = PLAYER_SPEED_USUAL;
    return std::string();
  });
}

std::string media_player_stop() {
  if (media_player_press_stop()) return {};
  // The viewer's player is not seen any more, but it is still reported as ended or failed.
  const std::lock_guard guard(changing);
  const SessionHandle session = session_of_viewer();
  if (session == nullptr) return kNothing;
  {
    const std::lock_guard locked(session->lock);
    if (session->stage != Stage::kEnded && session->stage != Stage::kFailed) return kNothing;
  }
  session_end(session);
  return {};
}

std::string media_player_seek(double position, bool from_here) {
  return control_open([&](Session& session) {
    const double target = from_here ? session_position(session) + position : position;
    const double last = session.facts.duration > 0 ? session.facts.duration : target;
    return std::isfinite(target) ? seek_in(session, std::clamp(target, 0.0, std::max(last, 0.0)), false)
                                 : std::string("a position is a number of seconds");
  });
}

std::string viewer_seek_percent(double percent) {
  return control_open([&](Session& session) {
    return percent >= 0 && percent <= 100 ? seek_in(session, percent, true)
                                          : std::string("a place is 0 to 100 percent");
  });
}

std::string media_player_set_speed(double speed) {
  return control_open([&](Session& session) {
    const long percent = std::isfinite(speed) ? std::lround(std::clamp(speed, -100.0, 100.0) * 100) : 0;
    const bool forward = percent >= PLAYER_SPEED_SLOWEST && percent <= PLAYER_SPEED_FASTEST;
    const bool back = percent <= -PLAYER_SPEED_USUAL && percent >= -PLAYER_SPEED_FASTEST;
    if (!forward && !back) return std::string("a speed is 0.1 to 8, or -1 to -8 backwards");
    if (back && (media_type(session.facts) != PLAYER_TYPE_VIDEO || !session.facts.seekable))
      return std::string("the file cannot be shown backwards");
    session.wanted.speed = static_cast<int>(percent);
    session.wanted.paused = false;
    return std::string();
  });
}

std::string viewer_step_picture(bool back) {
  return control_open([&](Session& session) {
    if (media_type(session.facts) != PLAYER_TYPE_VIDEO) return std::string("the file has no pictures");
    session.wanted.paused = true;
    session.wanted.step_back = back;
    ++session.wanted.steps;
    return std::string();
  });
}

std::string viewer_step_chapter(int chapter) {
  return control_open([&](Session& session) {
    if (session.facts.chapters == 0) return std::string("the file has no chapters");
    if (chapter < 1 || chapter > session.facts.chapters)
      return "a chapter is 1 to " + std::to_string(session.facts.chapters);
    session.wanted.chapter = chapter;
    ++session.wanted.chapters;
    return std::string();
  });
}

std::string viewer_choose(TrackKind kind, std::size_t number) {
  return control_open([&](Session& session) {
    const auto tracks = media_tracks(session.facts, kind);
    const char* const what = kind == TrackKind::kAudio ? "sound track" : "subtitle track";
    if (number == 0 && kind == TrackKind::kSubtitle) {
      session.wanted.subtitle = 0;
      return std::string();
    }
    if (tracks.empty()) return std::string("the file has no ") + what;
    if (number < 1 || number > tracks.size())
      return std::string("a ") + what + " is 1 to " + std::to_string(tracks.size());
    (kind == TrackKind::kAudio ? session.wanted.audio : session.wanted.subtitle) = tracks[number - 1]->number;
    return std::string();
  });
}

std::string viewer_repeat(Repeat repeat) {
  return control([&](Session& session) {
    if (session.handle != 0 && repeat == Repeat::kFolder)
      return std::string("an application's player can only repeat its file");
    session.wanted.repeat = repeat;
    return std::string();
  });
}

std::string viewer_zoom(int percent) {
  return control([&](Session& session) {
    if (percent < 100 || percent > 800) return std::string("a zoom is 100 to 800 percent");
    session.zoom = {};
    if (percent > 100) {
      const auto part = [&](std::uint32_t panel) { return panel * 100 / static_cast<std::uint32_t>(percent); };
      const std::uint32_t w = part(1920), h = part(1080);
      session.zoom = {.type = PLAYER_ZOOM_RECT, .rect = {.x = (1920 - w) / 2, .y = (1080 - h) / 2, .w = w, .h = h}};
    }
    session.wanted.look = look_with_zoom(session.wanted.look, session.zoom);
    return std::string();
  });
}

std::string viewer_unlock(std::string_view pin) {
  const bool right = pin == config_text("g_password__password");
  return control([&](Session& session) {
    if (!session.blocked) return std::string("the file is not locked");
    if (!right) return std::string("the PIN is wrong");
    session.blocked = false;
    session.unblocked = true;
    session.wanted.paused = false;
    return std::string();
  });
}

std::string viewer_next(int step) {
  const std::lock_guard guard(changing);
  const SessionHandle session = session_seen();
  if (session == nullptr) return kNothing;
  std::string path;
  std::vector<std::string> list;
  bool done = false;
  session_change(*session, [&](Session& found) {
    path = found.path;
    list = found.list;
    const PlayerFacts& facts = found.facts;
    int chapter = facts.chapter + step;
    if (step < 0 && facts.chapter >= 1 && static_cast<std::size_t>(facts.chapter) <= facts.chapter_list.size() &&
        facts.position > facts.chapter_list[static_cast<std::size_t>(facts.chapter) - 1].start + kBackToStart)
      ++chapter;
    done = found.stage == Stage::kReady && facts.chapters > 1 && chapter >= 1 && chapter <= facts.chapters;
    if (!done) return;
    found.wanted.chapter = chapter;
    ++found.wanted.chapters;
  });
  if (done) return {};
  if (session->handle != 0) return "the application's player has no other file";
  const std::string next = neighbour(path, list, step);
  if (next.empty()) return step > 0 ? "it is the last file" : "it is the first file";
  return play(next, std::move(list), 0.0);
}

bool media_player_press_stop() {
  const std::string why = control([](Session& session) {
    session.leaving = true;
    return std::string();
  });
  show_wake();
  return why.empty();
}

bool media_player_press_pause() {
  const auto playing = media_player_playing();
  return session_seen() != nullptr && playing && media_player_pause(playing->state != MediaState::kPaused).empty();
}

bool media_player_press_skip(double by) { return media_player_seek(by, true).empty(); }

bool media_player_press_next(int step) { return viewer_next(step).empty(); }

bool media_player_press_track(bool subtitles, std::string& ret_chosen) {
  return control_open([&](Session& session) {
           const auto tracks = media_tracks(session.facts, subtitles ? TrackKind::kSubtitle : TrackKind::kAudio);
           if (tracks.empty()) return std::string("there is none");
           int& wanted = subtitles ? session.wanted.subtitle : session.wanted.audio;
           auto at = std::ranges::find(tracks, wanted, &PlayerTrack::number);
           if (wanted == 0) {
             at = std::ranges::find_if(tracks, [](const auto* each) { return each->chosen; });
             if (subtitles) at = tracks.end();
           }
           // After the last subtitles they are off; after the last sound track comes the first.
           if (at == tracks.end())
             at = tracks.begin();
           else if (++at == tracks.end() && !subtitles)
             at = tracks.begin();
           wanted = at == tracks.end() ? 0 : (*at)->number;
           ret_chosen.clear();
           if (at != tracks.end()) {
             const PlayerTrack& track = **at;
             ret_chosen = !track.language.empty() ? track.language : !track.title.empty() ? track.title : track.codec;
           }
           return std::string();
         })
      .empty();
}

bool media_player_press_repeat(std::string& ret_repeat) {
  return control([&](Session& session) {
           const bool has_folder = session.handle == 0;
           Repeat& repeat = session.wanted.repeat;
           repeat = repeat == Repeat::kOff   ? Repeat::kOne
                    : repeat == Repeat::kOne ? (has_folder ? Repeat::kFolder : Repeat::kOff)
                                             : Repeat::kOff;
           ret_repeat = repeat == Repeat::kOff ? "off" : repeat == Repeat::kOne ? "one" : "folder";
           return std::string();
         })
      .empty();
}

bool media_player_press_zoom() {
  return control([](Session& session) {
           constexpr std::array<INT32, 3> kSteps = {PLAYER_ZOOM_OFF, PLAYER_ZOOM_FILL, PLAYER_ZOOM_2X};
           const auto* const at = std::ranges::find(kSteps, session.zoom.type);
           session.zoom = {.type = at == kSteps.end() || at + 1 == kSteps.end() ? kSteps.front() : *(at + 1)};
           session.wanted.look = look_with_zoom(session.wanted.look, session.zoom);
           return std::string();
         })
      .empty();
}

void media_player_on_change(void (*changed)()) { on_change = changed; }
