// The room's parts: a player's session, and what its files call of each other.
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
  std::string stick_folder = {};              // of the machine, for a file of a stick
  bool network = false;
};

// Nothing with ret_why and ret_code (an IVEX_PB_ERROR_CODE_T). The caller holds no lock.
std::optional<MediaSource> media_source(const std::string& path, std::string& ret_why, INT32& ret_code);

// The files beside a film with its name and the end of a subtitle file's. Reads the folder.
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

// Begins a file where it was left, if the player uses that, else at its beginning.
inline constexpr double kWhereLeft = -1;

// What is wanted of a player. Its thread compares it with what it has done.
struct Wanted {
  std::uint64_t starts = 0;  // incremented to open the path, again or for the first time
  double from = 0;           // s, where that begins; or kWhereLeft
  bool paused = false;
  int speed = PLAYER_SPEED_USUAL;
  Repeat repeat = Repeat::kOff;
  std::uint64_t seeks = 0;
  double seek = 0;  // s, or percent
  bool seek_percent = false;
  std::uint64_t steps = 0;
  bool step_back = false;
  std::uint64_t chapters = 0;
  int chapter = 0;   // from 1
  int audio = 0;     // number of the track; 0: the file's choice
  int subtitle = 0;  // as above; 0: none
  PlayerLook look = {};
};

struct Zoom {
  INT32 type = PLAYER_ZOOM_OFF;
  IVEX_PB_RECT_T rect = {};
};

struct Session {
  std::uint32_t handle = 0;   // 0: the viewer's
  std::uintptr_t serial = 0;  // another one for each session
  std::thread thread = {};    // this and the next one belong to who ends the session
  std::thread thumbnailer = {};
  std::atomic<bool> ended = false;  // the thread has nothing more to do

  std::mutex lock = {};  // guards all members below
  std::condition_variable wake = {};
  bool woken = false;
  bool ending = false;
  bool leaving = false;         // it is to stop
  bool sticks_changed = false;  // the thread looks whether its file's stick is still there

  std::string path = {};
  std::vector<std::string> list = {};  // of a playlist; the path is one of them
  std::optional<MediaSource> source = {};
  Wanted wanted = {};
  Zoom zoom = {};
  VEXTVAPI_REGION_T region = {};  // on the panel; without a width, in the main picture's place
  std::uint64_t opened = 0;       // grows from one opening to the next, of all players
  bool uses_bookmark = false;
  bool blocked = false;    // by its rating
  bool unblocked = false;  // the PIN was given
  bool played = false;     // since the file was opened

  Stage stage = Stage::kNew;
  INT32 error = 0;  // why it has failed: an IVEX_PB_ERROR_CODE_T
  std::string reason = {};
  PlayerFacts facts = {};

  std::chrono::steady_clock::time_point looked_until = {};
  int width = 0;  // of the pictures that are looked for
  int height = 0;
  std::uint64_t picture = 0;  // number of the shown one; 0: none
  std::unique_ptr<Canvas> shown = {};

  a_vextvapi_cb_pb_nfy_fct callback = nullptr;
  void* tag = nullptr;

  bool thumbnailing = false;
  std::string thumbnail = {};  // path of the latest
};
using SessionHandle = std::shared_ptr<Session>;

// The application's player; null: there is none with this handle.
SessionHandle session_find(std::uint32_t handle);

// The newest player that is seen or heard; null: none is.
SessionHandle session_seen();
SessionHandle session_of_viewer();  // also one that has ended; null: there is none

// An application's player, for one file. If there are kMostMediaPlayers, one of an application ends first.
SessionHandle session_create(const std::string& path);
SessionHandle session_create_viewer();           // the caller sees to it that there is none
void sessions_make_room_for_viewer();            // once the viewer's player plays
void session_end(const SessionHandle& session);  // returns soon; its thread may take longer

// Opens the path in place of what the player had. False with ret_why and ret_code. from: nothing: where it was left, if
// the player uses that.
//
// after: only in place of the opening of this number. If something else was chosen meanwhile, or the player is to stop,
// the result is false without ret_why. 0: in place of any.
bool session_open(const SessionHandle& session, const std::string& path, std::optional<double> from, bool paused,
                  std::string& ret_why, INT32& ret_code, std::uint64_t after = 0);

// Changes what is wanted under the session's lock, and wakes its thread.
template <typename Change>
void session_change(Session& session, Change change) {
  const std::lock_guard guard(session.lock);
  change(session);
  session.woken = true;
  session.wake.notify_one();
}

void session_restart(Session& session);           // opens the source again; the caller holds the session's lock
bool is_over(Stage stage);                        // nothing is seen or heard
double session_position(const Session& session);  // s; the caller holds the session's lock

// Posts an event to the application that has the player. The caller may hold the session's lock.
void session_post(const SessionHandle& session, INT32 type, std::int64_t data, std::int64_t arg2 = 0,
                  std::int64_t arg3 = 0, std::int64_t arg4 = 0);

// ---- texts.cpp: what a file's tags say. The caller holds the session's lock ----

std::string media_text(const Session& session, INT32 type);  // a PLAYER_METADATA_*
std::string media_title(const Session& session);
std::optional<int> media_rating(const PlayerFacts& facts);  // an age
INT32 media_type(const PlayerFacts& facts);                 // a PLAYER_TYPE_*
std::vector<const PlayerTrack*> media_tracks(const PlayerFacts& facts, TrackKind kind);
INT32 subtitle_type(std::string_view codec);  // a T_CBROWSER_PB_SBTL_TYPE_T
PlayerLook look_with_zoom(const PlayerLook& look, const Zoom& zoom);

// ---- thumbnails.cpp ----

INT32 thumbnail_make(const SessionHandle& session, INT32 width, INT32 height);  // an IVEX_PB_ERROR_CODE_T
std::string thumbnail_text(const std::string& path);  // base64; empty: it cannot be read, or is too large

// ---- viewer.cpp ----

// The file after the present one, when that has ended; empty: none. On the session's thread, without a lock.
std::string viewer_following(const std::string& path, const std::vector<std::string>& list, bool around);
void viewer_changed();  // calls the function of media_player_on_change

std::string viewer_step_chapter(int chapter);
std::string viewer_choose(TrackKind kind, std::size_t number);  // 0: no subtitles
std::string viewer_seek_percent(double percent);
std::string viewer_step_picture(bool back);
std::string viewer_repeat(Repeat repeat);
std::string viewer_zoom(int percent);
std::string viewer_next(int step);
std::string viewer_unlock(std::string_view pin);

extern const std::span<const Command> kPlayerCommands;  // commands.cpp
