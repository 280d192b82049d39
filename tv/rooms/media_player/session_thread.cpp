#include "rooms/media_player/session_thread.h"

#include <malloc.h>
#include <pthread.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <utility>

#include "core/events.h"
#include "rooms/config/config.h"
#include "rooms/library/library.h"
#include "rooms/screen/show.h"

using std::chrono::steady_clock;

namespace {

constexpr std::chrono::milliseconds kLookEvery{500};  // interval at which the thread checks what nothing reports to it
constexpr std::chrono::milliseconds kBackEvery{500};  // between two pictures backwards
constexpr std::chrono::seconds kBookmarkEvery{
    10};                                        // so that a killed process loses at most this of the viewer's position
constexpr std::chrono::seconds kUnseenTime{5};  // after which the memory for pictures is released
constexpr std::chrono::seconds kOpenWithin{
    20};                        // time limit for opening, also from a server that keeps sending a little
constexpr double kNearEnd = 5;  // s; a file that is left this close to its end counts as seen to the end

// State of the thread. No other thread uses it.
struct Engine {
  PlayerHandle player = {};
  Wanted told = {};
  std::uint64_t opened = 0;  // Session::opened of the opening that `player` belongs to
  std::string path = {};
  MediaSource source = {};
  bool ready = false;                   // the file is open
  steady_clock::time_point begun = {};  // when opening the file began
  // The latest values that were reported.
  bool playing = false;
  bool buffering = false;
  bool seeking = false;
  long second = -1;
  int chapter = 0;
  int speed = PLAYER_SPEED_USUAL;
  VideoShape video = {};
  std::array<int, 4> tracks = {0, 0, -1, -1};
  steady_clock::time_point back_due = {};  // when the next picture backwards is due
  double back_from = 0;                    // s, the position at which playing backwards began
  steady_clock::time_point back_since = {};
  bool back_waits = false;  // playing backwards is paused; the time of the pause does not count
  steady_clock::time_point bookmark_due = {};
  steady_clock::time_point unseen_since = {};
  std::unique_ptr<Canvas> canvas = {};
  bool drawn = false;   // the canvas has the present picture
  int drawn_width = 0;  // of the present picture
  int drawn_height = 0;
};

std::atomic<std::uint64_t> last_picture = 0;

double factor(int percent) { return std::abs(percent) / 100.0; }

// Saves the position at which a file is left. Only for the viewer's player: an application saves its positions itself.
void save_bookmark(const Session& session, const Engine& engine, double position, double duration) {
  if (session.handle != 0 || !engine.source.identity) return;
  const bool at_end = duration > 0 && position > duration - std::min(kNearEnd, duration / 10);
  bookmark_save(*engine.source.identity, at_end ? 0 : position);
}

void close_player(Engine& engine) {
  engine.player.reset();
  engine.ready = engine.playing = engine.drawn = false;
  engine.canvas.reset();
  malloc_trim(0);
}

// Saves the position when the thread opens another file, or ends.
void leave_file(const Session& session, Engine& engine) {
  if (!engine.ready || engine.player == nullptr) return;
  const PlayerFacts& facts = player_facts(*engine.player);
  save_bookmark(session, engine, facts.position, facts.duration);
  engine.ready = false;
}

// Closes the player, sets the session's stage and error, and reports why playing has ended. The caller holds no lock.
void finish(const SessionHandle& session, Engine& engine, Stage stage, INT32 error, const std::string& reason) {
  double position = 0, duration = 0;
  {
    const std::lock_guard guard(session->lock);
    if (session->opened != engine.opened) return;  // another file was opened meanwhile
    if (stage == Stage::kEnded && session->leaving) stage = Stage::kStopped;
    // A seek that was accepted meanwhile plays the file again.
    const bool sought = session->wanted.seeks != engine.told.seeks || session->wanted.chapters != engine.told.chapters;
    if (stage == Stage::kEnded && sought) return;
    position = session->facts.position;
    duration = session->facts.duration;
    session->stage = stage;
    session->error = error;
    session->reason = reason;
    session->leaving = false;
    session->picture = 0;
    session->shown.reset();
    const auto second = static_cast<std::int64_t>(position);
    if (stage == Stage::kStopped) session_post(session, PLAYER_EVENT_STOPPED, second);
    if (stage == Stage::kEnded) session_post(session, PLAYER_EVENT_END, 0);
    if (stage == Stage::kFailed) session_post(session, PLAYER_EVENT_ERROR, error);
  }
  const bool was_open = engine.ready;
  close_player(engine);
  if (was_open) save_bookmark(*session, engine, stage == Stage::kEnded ? 0 : position, duration);
  if (!reason.empty()) {
    std::fprintf(stderr, "dtv_tv: the player of \"%s\" has ended: %s\n", engine.source.name.c_str(), reason.c_str());
  }
  show_wake();
  if (session->handle == 0) viewer_changed();
}

// ---- Opening ----

void open_player(const SessionHandle& session, Engine& engine, const Wanted& wanted, bool uses_bookmark) {
  close_player(engine);
  PlayerFile file = engine.source.file;
  file.from = std::max(wanted.from, 0.0);
  if (wanted.from < 0 && uses_bookmark && engine.source.identity)
    file.from = bookmark_read(*engine.source.identity).value_or(0);
  file.paused = true;  // until the rating is known
  file.repeats = wanted.repeat == Repeat::kOne;
  file.subtitles = media_subtitles(engine.path);
  std::string why;
  // A player that was left behind may call `wake` when the session no longer exists, so it gets the serial number, not
  // a pointer.
  const PlayerWake wake{.wake = [](void* serial) { session_wake(reinterpret_cast<std::uintptr_t>(serial)); },
                        .context = reinterpret_cast<void*>(session->serial)};
  engine.player = player_start_file(file, wake, why);
  if (engine.player == nullptr) return finish(session, engine, Stage::kFailed, IVEX_PB_ERROR_CODE_FAILED, why);
  engine.told = wanted;
  engine.told.paused = true;
  engine.told.speed = PLAYER_SPEED_USUAL;
  engine.told.audio = engine.told.subtitle = 0;
  engine.second = -1;
  engine.chapter = 0;
  engine.video = {};
  engine.tracks = {0, 0, -1, -1};
  engine.speed = PLAYER_SPEED_USUAL;
  engine.bookmark_due = steady_clock::now() + kBookmarkEvery;
  if (!engine.source.network && engine.path.starts_with('/')) library_note_played(engine.path);
  if (session->handle == 0) viewer_changed();
}

// Whether the file may be shown only after the PIN was entered. The caller holds no lock.
bool is_rating_locked(const PlayerFacts& facts) {
  const std::optional<int> age = media_rating(facts);
  const std::int64_t limit = config_number("g_misc__parental_age");
  return age && limit > 0 && *age >= limit;
}

// Reports that the file is open, and blocks it if its age rating is locked. The caller holds the session's lock and has
// stored the facts: an application that has the event asks for them immediately.
void report_opened(const SessionHandle& session, Engine& engine, const PlayerFacts& facts, bool locked) {
  engine.ready = true;
  session->stage = Stage::kReady;
  session->blocked = locked && !session->unblocked;
  session_post(session, PLAYER_EVENT_OPENED, media_type(facts), std::llround(facts.duration),
               std::ssize(media_tracks(facts, TrackKind::kAudio)),
               std::ssize(media_tracks(facts, TrackKind::kSubtitle)));
  if (session->blocked) session_post(session, PLAYER_EVENT_RATING_BLOCKED, *media_rating(facts));
  session->woken = true;  // the player gets what was requested meanwhile
}

// ---- Setting what is wanted ----

void begin_backwards(Engine& engine, double position) {
  engine.back_from = position;
  engine.back_since = engine.back_due = steady_clock::now();
}

// Shows the next picture backwards. Returns whether the beginning was reached.
bool go_back(Engine& engine, int speed) {
  const auto now = steady_clock::now();
  if (now < engine.back_due) return false;
  engine.back_due = now + kBackEvery;
  const double passed = std::chrono::duration<double>(now - engine.back_since).count();
  const double target = engine.back_from - passed * factor(speed);
  player_seek_fast(*engine.player, std::max(target, 0.0));
  return target <= 0;
}

// Gives the player the settings that differ from its present ones. A blocked file stays paused, whatever wanted.paused
// says.
void tell(Engine& engine, const Wanted& wanted, bool blocked) {
  Player& player = *engine.player;
  Wanted& told = engine.told;
  player_set_look(player, wanted.look);
  if (!engine.ready) return;  // the player gets the rest when the file is open
  if (wanted.audio != told.audio) player_choose(player, TrackKind::kAudio, wanted.audio);
  if (wanted.subtitle != told.subtitle) player_choose(player, TrackKind::kSubtitle, wanted.subtitle);
  if ((wanted.repeat == Repeat::kOne) != (told.repeat == Repeat::kOne))
    player_repeat(player, wanted.repeat == Repeat::kOne);
  if (wanted.speed != told.speed) {
    if (wanted.speed > 0)
      player_set_speed(player, factor(wanted.speed));
    else
      begin_backwards(engine, player_facts(player).position);
  }
  if (wanted.seeks != told.seeks) {
    if (wanted.seek_percent)
      player_seek_percent(player, wanted.seek);
    else
      player_seek(player, wanted.seek);
    if (wanted.speed < 0) begin_backwards(engine, player_facts(player).position);
  }
  if (wanted.chapters != told.chapters) player_choose_chapter(player, wanted.chapter);
  const bool pauses = wanted.paused || blocked || wanted.speed < 0;
  if (pauses != engine.told.paused) player_pause(player, pauses);
  // Several steps between two turns of this thread become one.
  if (wanted.steps != told.steps) player_step_picture(player, wanted.step_back);
  told = wanted;
  told.paused = pauses;
}

// ---- Reporting ----

// Posts what has changed. The caller holds the session's lock.
void report(const SessionHandle& session, Engine& engine, const PlayerFacts& facts, bool& ret_changed) {
  const auto second = static_cast<long>(facts.position);
  const int speed = session->wanted.speed;
  const bool playing = !session->wanted.paused && !session->blocked;
  if (std::exchange(engine.playing, playing) != playing) {
    session_post(session, playing ? PLAYER_EVENT_PLAYING : PLAYER_EVENT_PAUSED, second);
    ret_changed = true;
  }
  if (std::exchange(engine.seeking, facts.seeking) && !facts.seeking && speed > 0) {
    session_post(session, PLAYER_EVENT_SOUGHT, second);
    engine.second = second;
    ret_changed = true;
  }
  if (playing && !facts.seeking && std::exchange(engine.second, second) != second)
    session_post(session, PLAYER_EVENT_POSITION, second, std::llround(facts.duration), std::llround(facts.percent));
  if (std::exchange(engine.speed, speed) != speed) {
    session_post(session, PLAYER_EVENT_SPEED, speed);
    ret_changed = true;
  }
  if (std::exchange(engine.buffering, facts.buffering) != facts.buffering)
    session_post(session, PLAYER_EVENT_BUFFERING, facts.buffering ? 1 : 0);
  if (std::exchange(engine.chapter, facts.chapter) != facts.chapter && facts.chapters > 0)
    session_post(session, PLAYER_EVENT_CHAPTER, facts.chapter, facts.chapters);
  if (facts.video.width != 0 && facts.video.height != 0 && facts.video.aspect > 0 &&
      (facts.video.width != engine.video.width || facts.video.height != engine.video.height)) {
    engine.video = facts.video;
    session_post(session, PLAYER_EVENT_VIDEO_SIZE, facts.video.width, facts.video.height,
                 std::llround(facts.video.aspect * 1000));
  }
  std::array<int, 4> tracks = {0, 0, -1, -1};
  for (const PlayerTrack& each : facts.tracks) {
    if (each.kind == TrackKind::kVideo) continue;
    const std::size_t kind = each.kind == TrackKind::kAudio ? 0 : 1;
    if (each.chosen) tracks[kind + 2] = tracks[kind];
    ++tracks[kind];
  }
  if (std::exchange(engine.tracks, tracks) != tracks)
    session_post(session, PLAYER_EVENT_TRACKS, tracks[0], tracks[1], tracks[2], tracks[3]);
}

// Hands the newest picture over to the screen.
void show_picture(Session& session, Engine& engine) {
  {
    const std::lock_guard guard(session.lock);
    if (session.opened != engine.opened || session.blocked) return;
    std::swap(session.shown, engine.canvas);
    session.picture = ++last_picture;
  }
  show_wake();
}

// Lets the player work, and renders its picture if somebody looks.
void step(Session& session, Engine& engine, bool seen, int width, int height) {
  Player& player = *engine.player;
  const auto now = steady_clock::now();
  if (!seen) {
    player_step_unseen(player);
    engine.drawn = false;
    if (engine.canvas != nullptr && now > engine.unseen_since + kUnseenTime) {
      engine.canvas.reset();
      const std::lock_guard guard(session.lock);
      session.shown.reset();
      session.picture = 0;
    }
    return;
  }
  engine.unseen_since = now;
  if (engine.canvas == nullptr) engine.canvas = std::make_unique<Canvas>();
  // The canvas was shown before the present picture, so its own size may be the wanted one already.
  const bool resized = engine.drawn_width != width || engine.drawn_height != height;
  engine.canvas->width = width;
  engine.canvas->height = height;
  bool fresh = player_step(player, *engine.canvas);
  const bool has_picture = player_facts(player).video.width != 0;
  if (!fresh && has_picture && (resized || !engine.drawn)) fresh = player_draw(player, *engine.canvas);
  if (!fresh) return;
  engine.drawn = true;
  engine.drawn_width = width;
  engine.drawn_height = height;
  show_picture(session, engine);
}

INT32 error_of(const Engine& engine, const std::string& reason) {
  if (engine.source.network && (reason.find("server") != std::string::npos)) return IVEX_PB_ERROR_CODE_NETWORK;
  return reason.starts_with("the file cannot be played") ? IVEX_PB_ERROR_CODE_FORMAT : IVEX_PB_ERROR_CODE_FILE;
}

// Plays what follows the viewer's file. False: nothing does. Until the next file is opened, the present one counts as
// playing, so that what a viewer chooses meanwhile comes first.
bool play_next(const SessionHandle& session, Engine& engine) {
  std::vector<std::string> list;
  bool around = false;
  {
    const std::lock_guard guard(session->lock);
    list = session->list;
    around = session->wanted.repeat == Repeat::kFolder;
  }
  if (list.empty() && !around) return false;
  const std::string next = viewer_following(engine.path, list, around);
  std::string why;
  INT32 code = 0;
  if (next.empty()) return false;
  if (!session_open(session, next, 0.0, false, why, code, engine.opened)) {
    if (!why.empty()) std::fprintf(stderr, "dtv_tv: the next file is not played: %s\n", why.c_str());
    return false;
  }
  save_bookmark(*session, engine, 0, 0);  // the file was seen to its end
  engine.ready = false;                   // leave_file is not to save its position
  return true;
}

// Handles the end of the file, or a failure to play it.
void take_end(const SessionHandle& session, Engine& engine, const PlayerFacts& facts) {
  if (facts.state == PlayerState::kFailed)
    return finish(session, engine, Stage::kFailed, error_of(engine, facts.reason), facts.reason);
  if (session->handle == 0 && play_next(session, engine)) return;
  finish(session, engine, Stage::kEnded, 0, "");
}

// One turn of the thread while a player exists. The caller holds no lock.
void work(const SessionHandle& session, Engine& engine, const Wanted& wanted, bool blocked, bool seen, int width,
          int height) {
  const bool repeats_back = engine.ready && wanted.speed < 0;
  tell(engine, wanted, blocked);
  // Before the rating is known, nothing is shown.
  step(*session, engine, seen && engine.ready, width, height);
  const PlayerFacts facts = player_facts(*engine.player);
  const bool opens = !engine.ready && facts.state == PlayerState::kPlaying;
  const bool locked = opens && is_rating_locked(facts);
  bool changed = opens;
  {
    const std::lock_guard guard(session->lock);
    if (session->opened != engine.opened) return;
    session->facts = facts;
    if (opens) report_opened(session, engine, facts, locked);
    if (engine.ready) report(session, engine, facts, changed);
  }
  if (opens) show_wake();
  if (facts.state == PlayerState::kEnded || facts.state == PlayerState::kFailed)
    return take_end(session, engine, facts);
  if (!engine.ready && steady_clock::now() > engine.begun + kOpenWithin)
    return finish(session, engine, Stage::kFailed,
                  engine.source.network ? IVEX_PB_ERROR_CODE_NETWORK : IVEX_PB_ERROR_CODE_FILE,
                  engine.source.network ? "the server sends the file too slowly" : "opening the file takes too long");
  const bool back_waits = repeats_back && (wanted.paused || blocked);
  if (std::exchange(engine.back_waits, back_waits) && !back_waits) begin_backwards(engine, facts.position);
  if (repeats_back && !back_waits && go_back(engine, wanted.speed)) {
    const std::lock_guard guard(session->lock);
    session->wanted.speed = PLAYER_SPEED_USUAL;  // at the beginning it turns and plays forwards
    session->woken = true;
  }
  if (engine.ready && (changed || (!wanted.paused && steady_clock::now() >= engine.bookmark_due))) {
    engine.bookmark_due = steady_clock::now() + kBookmarkEvery;
    save_bookmark(*session, engine, facts.position, facts.duration);
  }
  if (changed && session->handle == 0) viewer_changed();
}

}  // namespace

void session_post(const SessionHandle& session, INT32 type, std::int64_t data, std::int64_t arg2, std::int64_t arg3,
                  std::int64_t arg4) {
  if (session->handle == 0) return;
  events_post([=] {
    a_vextvapi_cb_pb_nfy_fct callback = nullptr;
    void* tag = nullptr;
    {
      const std::lock_guard guard(session->lock);
      callback = session->callback;
      tag = session->tag;
    }
    if (callback != nullptr)
      callback(type, tag, reinterpret_cast<void*>(static_cast<std::intptr_t>(data)), static_cast<UINT32>(arg2),
               static_cast<UINT32>(arg3), static_cast<UINT32>(arg4));
  });
}

void session_run(const SessionHandle& session) {
  pthread_setname_np(pthread_self(), "dtv_tv-media");
  Engine engine;
  std::unique_lock guard(session->lock);
  while (true) {
    const auto is_woken = [&] { return session->woken || session->ending; };
    if (engine.player == nullptr)
      session->wake.wait(guard, is_woken);
    else
      session->wake.wait_for(guard, kLookEvery, is_woken);
    if (session->ending) break;
    session->woken = false;
    const Wanted wanted = session->wanted;
    const bool opens = session->opened != engine.opened && session->stage == Stage::kOpening;
    const std::uint64_t opened = session->opened;
    const std::string path = opens ? session->path : "";
    MediaSource source = opens ? *session->source : MediaSource{};
    const bool leaves = session->leaving;
    const bool looks_for_stick = std::exchange(session->sticks_changed, false);
    const bool blocked = session->blocked;
    const bool seen = steady_clock::now() < session->looked_until && !blocked;
    const int width = session->width, height = session->height;
    const bool over = is_over(session->stage), uses_bookmark = session->uses_bookmark;
    guard.unlock();
    if (opens) {
      leave_file(*session, engine);
      engine.opened = opened;
      engine.begun = steady_clock::now();
      engine.path = path;
      engine.source = std::move(source);
    }
    if (leaves && !over) {
      finish(session, engine, Stage::kStopped, 0, "");
    } else {
      if (opens) open_player(session, engine, wanted, uses_bookmark);
      if (engine.player != nullptr && looks_for_stick && !media_source_is_there(engine.path, engine.source))
        finish(session, engine, Stage::kFailed, IVEX_PB_ERROR_CODE_REMOVED, "the stick was removed");
      if (engine.player != nullptr) work(session, engine, wanted, blocked, seen, width, height);
    }
    guard.lock();
  }
  guard.unlock();
  leave_file(*session, engine);
  close_player(engine);
  session->ended = true;
}
