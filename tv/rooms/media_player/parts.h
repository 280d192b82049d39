// What the files of this room share: a player's session, and the functions that they call of each other.
//
// Locks: `changing` (sessions.cpp) serializes what a viewer does, and is held over the store and the library. Then the
// table's, then a session's. No other room's lock is taken under the last two, except for the event queue's and the
// screen's, which are taken last anyway.
#pragma once

#include <atomic>
#include <boost/json/fwd.hpp>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "core/contract.h"
#include "core/room.h"
#include "rooms/media_player/bookmarks.h"
#include "rooms/media_player/media_player.h"
#include "rooms/screen/player/player.h"
#include "tvapi/playback.h"

// ---- media_player.cpp ----

std::string media_state_folder();

// ---- source.cpp: what a path means ----

struct MediaSource {
  PlayerFile file = {};                       // without its subtitles
  std::string name = {};                      // of the file, without its folder
  std::optional<FileIdentity> identity = {};  // of a file; nothing: of a server
  std::string stick_folder = {};              // the stick's folder on this machine; empty: the file is on no stick
  bool network = false;
};

// Finds what the path means (see a_vextvapi_cb_pb_init). Nothing with ret_why and ret_code, an IVEX_PB_ERROR_CODE_T: it
// cannot be played. The caller holds no lock.
std::optional<MediaSource> media_source(const std::string& path, std::string& ret_why, INT32& ret_code);

// The subtitle files of a film: files in its folder that begin with its name and end as subtitle files do. Reads the
// folder.
std::vector<PlayerSubtitle> media_subtitles(const std::string& path);

// Whether the stick of the file is still the one that it was opened on.
bool media_source_is_there(const std::string& path, const MediaSource& source);

// ---- sessions.cpp: the players and their threads ----

enum class Stage {
  kNew,  // not opened
  kOpening,
  kReady,  // it plays, or is paused
  kStopped,
  kEnded,
  kFailed,
};

enum class Repeat { kOff, kOne, kFolder };

// As Wanted::from: the file begins where it was left, if the player uses that position, else at its beginning.
inline constexpr double kWhereLeft = -1;

// The state that the viewer or the application wants of a player. The player's thread compares it with the state that
// it has set. A request is a counter that is incremented, so that the thread sees two equal ones as two.
struct Wanted {
  double from = 0;  // s, where playing begins when the path is opened; or kWhereLeft
  bool paused = false;
  int speed = PLAYER_SPEED_USUAL;  // percent; negative: backwards
  Repeat repeat = Repeat::kOff;
  std::uint64_t seeks = 0;
  double seek = 0;  // target in s, or in percent of the file if seek_percent
  bool seek_percent = false;
  std::uint64_t steps = 0;  // by one picture
  bool step_back = false;
  std::uint64_t chapters = 0;
  int chapter = 0;   // from 1
  int audio = 0;     // number of the track (PlayerTrack::number); 0: the file's first choice
  int subtitle = 0;  // as above; 0: none
  PlayerLook look = {};
};

struct Zoom {
  INT32 type = PLAYER_ZOOM_OFF;
  IVEX_PB_RECT_T rect = {};
};

struct Session {
  std::uint32_t handle = 0;   // of an application's player; 0: the viewer's player
  std::uintptr_t serial = 0;  // unique among all sessions
  std::thread thread = {};    // joined, as the next one, by whoever ends the session
  std::thread thumbnailer = {};
  std::atomic<bool> ended = false;  // the thread is about to return

  std::mutex lock = {};  // guards all members below
  std::condition_variable wake = {};
  bool woken = false;
  bool ending = false;          // the thread is to return
  bool leaving = false;         // playing is to stop
  bool sticks_changed = false;  // the thread is to check that its file's stick is still there

  std::string path = {};
  std::vector<std::string> list = {};  // files of the playlist, of which `path` is one; empty: none is played
  std::optional<MediaSource> source = {};
  Wanted wanted = {};
  Zoom zoom = {};
  VEXTVAPI_REGION_T region = {};  // on the panel; width 0: in the main picture's place
  std::uint64_t opened = 0;       // number of the opening, which grows over all players; the greatest one is seen
  bool uses_bookmark = false;
  bool blocked = false;    // by its age rating, until the PIN is given
  bool unblocked = false;  // the PIN was given for this file
  bool played = false;     // play was called since the file was opened

  Stage stage = Stage::kNew;
  INT32 error = 0;  // why it has failed; an IVEX_PB_ERROR_CODE_T
  std::string reason = {};
  PlayerFacts facts = {};

  std::chrono::steady_clock::time_point looked_until = {};  // the screen wants pictures until then
  int width = 0;                                            // size of the pictures that the screen wants
  int height = 0;
  std::uint64_t picture = 0;  // number of the picture in `shown`; 0: none
  std::unique_ptr<Canvas> shown = {};

  a_vextvapi_cb_pb_nfy_fct callback = nullptr;
  void* tag = nullptr;

  bool thumbnailing = false;   // `thumbnailer` is at work
  std::string thumbnail = {};  // path of the latest one
};
using SessionHandle = std::shared_ptr<Session>;

// The application's player; null: there is none with this handle.
SessionHandle session_find(std::uint32_t handle);

// The newest player that is seen or heard; null: none is.
SessionHandle session_seen();
SessionHandle session_of_viewer();  // also if its file has ended; null: there is none

// An application's player, for one file. If there are kMostMediaPlayers already, one of an application ends first.
SessionHandle session_create(const std::string& path);
SessionHandle session_create_viewer();           // there must be none
void sessions_make_room_for_viewer();            // ends players of applications, once the viewer's player plays
void session_end(const SessionHandle& session);  // does not wait for its thread, unless many threads are ending

// Opens the path in the player, in place of its present file. from: s; nothing: where the file was left, if the player
// uses that position, else its beginning. False with ret_why and ret_code, an IVEX_PB_ERROR_CODE_T.
//
// after: the opening that this one may replace. If another file was opened meanwhile, or the player is to stop, the
// result is false without ret_why. 0: it may replace any.
bool session_open(const SessionHandle& session, const std::string& path, std::optional<double> from, bool paused,
                  std::string& ret_why, INT32& ret_code, std::uint64_t after = 0);

// Calls `change` with the session under its lock, and wakes its thread.
template <typename Change>
void session_change(Session& session, Change change) {
  const std::lock_guard guard(session.lock);
  change(session);
  session.woken = true;
  session.wake.notify_one();
}

void session_restart(Session& session);           // opens the source again; the caller holds the session's lock
bool is_over(Stage stage);                        // nothing is seen or heard of a player in this stage
double session_position(const Session& session);  // s; the caller holds the session's lock

// Posts an event (PLAYER_EVENT_...) to the application that has the player; does nothing for the viewer's player. The
// caller may hold the session's lock.
void session_post(const SessionHandle& session, INT32 type, std::int64_t data, std::int64_t arg2 = 0,
                  std::int64_t arg3 = 0, std::int64_t arg4 = 0);

// ---- texts.cpp: what a file's tags say. The caller holds the session's lock ----

std::string media_text(const Session& session, INT32 type);  // a PLAYER_METADATA_*
std::string media_title(const Session& session);
std::optional<int> media_rating(const PlayerFacts& facts);  // an age in years; nothing: unrated
INT32 media_type(const PlayerFacts& facts);                 // a PLAYER_TYPE_*
std::vector<const PlayerTrack*> media_tracks(const PlayerFacts& facts, TrackKind kind);
INT32 subtitle_type(std::string_view codec);  // a T_CBROWSER_PB_SBTL_TYPE_T
PlayerLook look_with_zoom(const PlayerLook& look, const Zoom& zoom);

// ---- thumbnails.cpp ----

// Starts to make the player's thumbnail, of at most this size in pixels; an event reports the end. Returns an
// IVEX_PB_ERROR_CODE_T.
INT32 thumbnail_make(const SessionHandle& session, INT32 width, INT32 height);
std::string thumbnail_text(const std::string& path);  // the file in base64; empty: unreadable or too large

// ---- viewer.cpp ----

// The path of the file to play after this one has ended; empty: none. list: as Session::list; empty: the files of its
// folder. around: after the last file comes the first one. On the session's thread, with no lock held.
std::string viewer_following(const std::string& path, const std::vector<std::string>& list, bool around);
void viewer_changed();  // calls the function that media_player_on_change has set

// What a viewer does, as in media_player.h.

std::string viewer_step_chapter(int chapter);
std::string viewer_choose(TrackKind kind, std::size_t number);  // 0: no subtitles
std::string viewer_seek_percent(double percent);
std::string viewer_step_picture(bool back);
std::string viewer_repeat(Repeat repeat);
std::string viewer_zoom(int percent);
std::string viewer_next(int step);
std::string viewer_unlock(std::string_view pin);

extern const std::span<const Command> kPlayerCommands;  // commands.cpp
