// The players of files and network streams, for the other rooms. Applications create their players through the TV API.
// The viewer has one, which keys, commands and the renderer use. At most kMostMediaPlayers exist, the viewer's among
// them while it plays. Another one ends a player of an application: the oldest that plays nothing, else the oldest;
// for a page that is left or loaded again does not destroy its players. The screen shows the one that was opened last,
// in place of the main picture.
#pragma once

#include <boost/json/fwd.hpp>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "rooms/screen/drawn.h"

inline constexpr std::size_t kMostMediaPlayers = 2;

// Draws the picture of the player that is seen, in place of the main picture; null: no player is seen. The caller may
// hold the screen's lock.
const Drawer* media_player_drawer();

enum class MediaState { kOpening, kPlaying, kPaused, kEnded, kFailed };

struct MediaPlaying {
  std::string path = {};   // a file at a stick's mount point, or an http address
  std::string title = {};  // the title in the file's tags, else the file's name
  MediaState state = MediaState::kOpening;
  std::string reason = {};  // why playing failed
  double position = 0;      // s
  double duration = 0;      // s; 0: unknown
  double speed = 1;
  bool application = false;  // the player belongs to an application
};

// Opens a file that the set can play or show: a file of a stick, by its mount point; "recordings/NAME" or
// "downloads/NAME", which are the set's own files; or a download by its whole path. Returns a descriptor, or -1 with
// ret_why. The caller holds no lock.
int media_player_open_file(const std::string& path, std::string& ret_why);
bool media_player_is_own_file(std::string_view path);  // whether the path names a file of the set's own folders

// The player that is seen or heard, else the viewer's player, whose file has ended or failed; nothing: no player has a
// file.
std::optional<MediaPlaying> media_player_playing();

// The same, as the command "player" shows it.
boost::json::object media_player_describe();

// What a viewer does. Each returns why it failed; empty: done. The caller holds no lock. media_player_play opens the
// file in the viewer's player. The others act on the player that is seen, also if it is an application's.
std::string media_player_play(const std::string& path, std::optional<double> from);  // s; nothing: where it was left
std::string media_player_pause(bool paused);
std::string media_player_stop();
std::string media_player_seek(double position, bool from_here);  // s
std::string media_player_set_speed(double speed);                // 1: the usual speed; negative: backwards

// What keys do. False: no player is seen, or it cannot do this, so that the key has its other meaning.
bool media_player_press_stop();
bool media_player_press_pause();          // pauses or resumes
bool media_player_press_skip(double by);  // s
bool media_player_press_next(int step);   // 1: the next chapter, or else file; -1: the previous
// Chooses the next sound track or the next subtitles. ret_chosen: the track's language or name; empty: subtitles are
// off.
bool media_player_press_track(bool subtitles, std::string& ret_chosen);
bool media_player_press_repeat(std::string& ret_repeat);  // "off", "one" or "folder"
bool media_player_press_zoom();

// Called when a channel or a source was chosen, or the set goes to standby: every player stops. Only marks the players;
// their threads stop them. The caller may hold any lock that comes before the timers'.
void media_player_leave();

// Called when a stick was removed: players of its files fail. The same holds for the caller.
void media_player_sticks_changed();

// Forgets the positions at which files of this stick were left. False: that was not saved. The caller holds no lock.
bool media_player_forget_positions(std::string_view mount_point);

// Sets the function that is called when the viewer's player changes its state or its file, or has sought. There is one;
// null: none. It is called on any thread, with no lock held, and must not wait.
void media_player_on_change(void (*changed)());
