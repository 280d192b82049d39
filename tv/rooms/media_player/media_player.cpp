// The room's row, what it gives to the screen, to other rooms and in replies, and what ends its players.
#include "rooms/media_player/media_player.h"

#include <algorithm>
#include <boost/json.hpp>
#include <cstring>
#include <mutex>

#include "core/set.h"
#include "rooms/media_player/session_thread.h"
#include "rooms/screen/show.h"

namespace {

constexpr std::chrono::seconds kLookTime{
    2};  // after a request for a picture, the screen counts as looked at for this long

// The state folder's path, guarded by the lock.
struct Folder {
  std::mutex lock;
  std::string path;
};
Folder& folder = *new Folder;

// ---- The picture ----

std::uint64_t newest_picture(int width, int height) {
  const SessionHandle session = session_seen();
  if (session == nullptr) return 0;
  const auto now = std::chrono::steady_clock::now();
  const std::lock_guard guard(session->lock);
  const bool was_looked_at = now < session->looked_until;
  const bool resized = session->width != width || session->height != height;
  session->looked_until = now + kLookTime;
  session->width = width;
  session->height = height;
  if (!was_looked_at || resized) {
    session->woken = true;
    session->wake.notify_one();
  }
  return session->picture;
}

bool draw_picture(Canvas& ret_canvas) {
  const SessionHandle session = session_seen();
  if (session == nullptr) return false;
  const std::lock_guard guard(session->lock);
  const Canvas* const shown = session->shown.get();
  if (shown == nullptr || shown->width != ret_canvas.width || shown->height != ret_canvas.height) return false;
  const std::size_t bytes = kScreenStride * static_cast<std::size_t>(shown->height);
  std::memcpy(ret_canvas.pixels.data(), shown->pixels.data(), std::min(bytes, shown->pixels.size()));
  return true;
}

bool place_of_picture(VEXTVAPI_REGION_T& ret_region) {
  const SessionHandle session = session_seen();
  if (session == nullptr) return false;
  const std::lock_guard guard(session->lock);
  if (session->region.width == 0) return false;
  ret_region = session->region;
  return true;
}

constexpr Drawer kDrawer{.newest = newest_picture, .draw = draw_picture, .place = place_of_picture};

// The player that is seen, else the viewer's player, whose file has ended; null: neither.
SessionHandle reported() {
  SessionHandle session = session_seen();
  return session != nullptr ? session : session_of_viewer();
}

// The caller of the functions below holds the session's lock.

MediaState state_of(const Session& session) {
  switch (session.stage) {
    case Stage::kEnded:
      return MediaState::kEnded;
    case Stage::kFailed:
      return MediaState::kFailed;
    case Stage::kReady:
      return session.wanted.paused || session.blocked ? MediaState::kPaused : MediaState::kPlaying;
    default:
      return MediaState::kOpening;
  }
}

bool has_file(const Session& session) {
  return session.stage != Stage::kNew && session.stage != Stage::kStopped && !session.leaving;
}

constexpr const char* kStates[] = {"opening", "playing", "paused", "ended", "failed"};
constexpr const char* kRepeats[] = {"off", "one", "folder"};

boost::json::array tracks_of(const PlayerFacts& facts) {
  boost::json::array shown;
  for (const TrackKind kind : {TrackKind::kAudio, TrackKind::kSubtitle}) {
    int number = 0;
    for (const PlayerTrack* const track : media_tracks(facts, kind)) {
      shown.push_back({{"kind", kind == TrackKind::kAudio ? "audio" : "subtitle"},
                       {"number", ++number},
                       {"language", track->language},
                       {"title", track->title},
                       {"codec", track->codec},
                       {"chosen", track->chosen}});
    }
  }
  return shown;
}

boost::json::object described(const Session& session) {
  const PlayerFacts& facts = session.facts;
  boost::json::object reply{{"state", kStates[static_cast<std::size_t>(state_of(session))]},
                            {"path", session.path},
                            {"title", media_title(session)},
                            {"position", session_position(session)},
                            {"duration", facts.duration},
                            {"speed", session.wanted.speed / 100.0},
                            {"repeat", kRepeats[static_cast<std::size_t>(session.wanted.repeat)]},
                            {"application", session.handle != 0},
                            {"buffering", facts.buffering},
                            {"locked", session.blocked}};
  if (!session.reason.empty()) reply["reason"] = session.reason;
  if (const std::string artist = media_text(session, PLAYER_METADATA_ARTIST); !artist.empty()) reply["artist"] = artist;
  if (const std::string album = media_text(session, PLAYER_METADATA_ALBUM); !album.empty()) reply["album"] = album;
  const auto videos = media_tracks(facts, TrackKind::kVideo);
  if (!videos.empty() && !videos.front()->cover && facts.video.width != 0) {
    reply["video"] = {{"width", facts.video.width},
                      {"height", facts.video.height},
                      {"aspect", facts.video.aspect},
                      {"codec", videos.front()->codec}};
  }
  reply["tracks"] = tracks_of(facts);
  boost::json::array chapters;
  for (const PlayerChapter& each : facts.chapter_list)
    chapters.push_back({{"number", chapters.size() + 1}, {"title", each.title}, {"start", each.start}});
  reply["chapters"] = std::move(chapters);
  reply["chapter"] = facts.chapter;
  return reply;
}

}  // namespace

std::string media_state_folder() {
  const std::lock_guard guard(folder.lock);
  return folder.path;
}

const Drawer* media_player_drawer() { return session_seen() == nullptr ? nullptr : &kDrawer; }

std::optional<MediaPlaying> media_player_playing() {
  const SessionHandle session = reported();
  if (session == nullptr) return std::nullopt;
  const std::lock_guard guard(session->lock);
  if (!has_file(*session)) return std::nullopt;
  return MediaPlaying{.path = session->path,
                      .title = media_title(*session),
                      .state = state_of(*session),
                      .reason = session->reason,
                      .position = session_position(*session),
                      .duration = session->facts.duration,
                      .speed = session->wanted.speed / 100.0,
                      .application = session->handle != 0};
}

boost::json::object media_player_describe() {
  const SessionHandle session = reported();
  if (session == nullptr) return {{"state", "none"}};
  const std::lock_guard guard(session->lock);
  return has_file(*session) ? described(*session) : boost::json::object{{"state", "none"}};
}

void media_player_leave() {
  for (const SessionHandle& each : sessions_all())
    session_change(*each, [](Session& session) { session.leaving = !is_over(session.stage); });
}

void media_player_sticks_changed() {
  for (const SessionHandle& each : sessions_all())
    session_change(*each, [](Session& session) { session.sticks_changed = true; });
}

bool media_player_forget_positions(std::string_view mount_point) { return bookmarks_forget(mount_point); }

namespace {

void load() {
  {
    const std::lock_guard guard(folder.lock);
    folder.path = set_folder();
  }
  bookmarks_load();
}

bool reset() {
  sessions_end_all();  // so that none saves a position after that
  return bookmarks_reset();
}

void report(boost::json::object& answer) {
  if (boost::json::object shown = media_player_describe(); shown["state"] != "none")
    answer["player"] = std::move(shown);
}

void stop() {
  sessions_end_all();
  bookmarks_close();
}

}  // namespace

const Room room_media_player = {
    .commands = kPlayerCommands, .load = load, .reset = reset, .report = report, .stop = stop};
