// The players of files and network streams, for the other rooms. Applications create players of their own through the
// TV API; a viewer has one, which keys, commands and the renderer use. The newest one that has been opened is seen on
// the screen in place of the main picture. At most kMostMediaPlayers exist: another one ends an application's, the
// oldest that plays nothing, else the oldest. A page that is left or loaded again does not destroy its players.
#pragma once

#include <boost/json/fwd.hpp>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "rooms/screen/drawn.h"

inline constexpr std::size_t kMostMediaPlayers = 2;

// What the screen draws in place of the main picture; null: no player is seen. The caller may hold the screen's lock.
const Drawer* media_player_drawer();

enum class MediaState { kOpening, kPlaying, kPaused, kEnded, kFailed };

struct MediaPlaying {
  std::string path = {};   // a file at a stick's mount point, or an http address
  std::string title = {};  // the file's own, else its name
  MediaState state = MediaState::kOpening;
  std::string reason = {};  // why playing failed
  double position = 0;      // s
  double duration = 0;      // s; 0: unknown
  double speed = 1;
  bool application = false;  // the player belongs to an application
};

// Opens a file that the set can play or show: one of a stick, by its mount point; "recordings/NAME" or
// "downloads/NAME", a file of the set's own; or a download by its whole path, as it is reported. Returns a descriptor,
// or -1 with ret_why.
int media_player_open_file(const std::string& path, std::string& ret_why);
bool media_player_is_own_file(std::string_view path);  // by its path: no stick has it

// What is seen, or heard; nothing: no player has a file.
std::optional<MediaPlaying> media_player_playing();

// The same, as the command "player" shows it.
boost::json::object media_player_describe();

// What a viewer does. Each returns why not; empty: done. The caller holds no lock. They act on the player that is seen,
// also if it is an application's, except for media_player_play, which gives the viewer's player another file.
std::string media_player_play(const std::string& path, std::optional<double> from);  // nothing: where it was left
std::string media_player_pause(bool paused);
std::string media_player_stop();
std::string media_player_seek(double position, bool from_here);  // s
std::string media_player_set_speed(double speed);

// What keys do. False: no player is seen, so that the key has another meaning.
bool media_player_press_stop();
bool media_player_press_pause();          // and resumes
bool media_player_press_skip(double by);  // s
bool media_player_press_next(int step);   // the next chapter, or file of the folder; or the previous one
// The next sound track or subtitles. ret_chosen: what to call it; empty: no subtitles.
bool media_player_press_track(bool subtitles, std::string& ret_chosen);
bool media_player_press_repeat(std::string& ret_repeat);  // "off", "one" or "folder"
bool media_player_press_zoom();

// A channel or a source was chosen, or the set goes to standby: what is seen ends. The timer thread or the players'
// does the rest. The caller may hold any lock that comes before the timers'.
void media_player_leave();

// A stick was removed: what was played from it fails. As above.
void media_player_sticks_changed();

// Forgets where the playing of this stick's files was left. False: that was not saved. The caller holds no lock.
bool media_player_forget_positions(std::string_view mount_point);

// Called when the viewer's player changes its state, its file or its position by a seek, on any thread, without a lock;
// it must not wait. Null: nobody is called. One function at a time.
void media_player_on_change(void (*changed)());
