// Plays the packets of a ring, or a file, without a window and without sound, and renders the picture into memory. The
// player has threads of its own; its owner calls the functions below from one thread. None of them waits for the
// stream.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "rooms/screen/player/jpeg.h"
#include "rooms/screen/player/ring.h"

inline constexpr std::chrono::milliseconds kFrameTime{100};        // pictures are at least so far apart, on average
inline constexpr std::chrono::milliseconds kPlayerStopTime{5000};  // then a player that does not end is left behind
inline constexpr std::chrono::milliseconds kReopenTime{1000};      // between two attempts to play a broken stream
inline constexpr std::chrono::milliseconds kSubtitlesTime{
    2000};  // within which subtitle files are read; then the film counts as open without them
inline constexpr std::chrono::milliseconds kSeekTime{5000};  // then the position counts again after a seek
inline constexpr std::size_t kMostTracks = 64;               // of a file; the others are not listed
inline constexpr std::size_t kMostChapters = 256;            // as above
inline constexpr std::size_t kMostSubtitleFiles = 16;        // beside the file; the others are not offered

// Called on any thread when player_step has something to do. Must not wait, nor call the player.
struct PlayerWake {
  void (*wake)(void* context) = nullptr;
  void* context = nullptr;
};

struct Player;

// Destroying it returns within kPlayerStopTime, whatever the stream is; wake may still be called after that.
struct PlayerEnd {
  void operator()(Player* player) const;
};
using PlayerHandle = std::unique_ptr<Player, PlayerEnd>;

// Why there can be no picture in this process; empty: there can. The first call loads the player's library, and takes
// about a tenth of a second.
std::string player_trouble();

// No player is there, and none is needed for a while: less memory is used until then.
void player_rest();

// Plays the ring's newest packets; for another stream of the ring, start another player. Null with ret_error if there
// can be none.
PlayerHandle player_start(std::shared_ptr<PacketRing> ring, const PlayerWake& wake, std::string& ret_error);

// A subtitle file. open: called on libmpv's threads; returns a descriptor, which the caller closes, or -1 with ret_why.
struct PlayerSubtitle {
  std::function<int(std::string& ret_why)> open = {};
  std::string title = {};
  std::string language = {};
};

struct PlayerFile {
  std::string path = {};  // on this machine; empty: `open` or `address` below says what to play
  bool broadcast = true;  // a transport stream; false: the format is found out from the contents
  bool grows = false;     // playing waits for more at its end, until player_set_growing says otherwise
  double from = 0;        // s from its beginning
  bool paused = false;
  double speed = 1;
  int audio = 0;                                          // number of the sound track; 0: the file's first choice
  bool repeats = false;                                   // the file begins again at its end
  std::vector<PlayerSubtitle> subtitles = {};             // beside the file; for a media file only
  std::function<int(std::string& ret_why)> open = {};     // as in PlayerSubtitle
  std::string address = {};                               // of a file on a server, as in http.h
  bool (*is_near)(const std::string& address) = nullptr;  // whether the address may be connected to
};

// Plays the file. That it cannot be opened is reported by player_facts. Null with ret_error as above.
PlayerHandle player_start_file(const PlayerFile& file, const PlayerWake& wake, std::string& ret_error);

// Does what is due. Returns whether the canvas has a new picture, in the canvas's size, with bars where its shape is
// another one. A player that waits to play a broken stream again does so here, so call it at least every kReopenTime.
bool player_step(Player& player, Canvas& ret_canvas);

// The same while nobody looks at the screen: pictures are decoded but not rendered.
void player_step_unseen(Player& player);

// Draws the present picture again, after the canvas's size has changed. False: it cannot be drawn.
bool player_draw(Player& player, Canvas& ret_canvas);

// Plays these streams of the ring's program, by their PIDs, as soon as the program has them; 0: none. Until then, and
// without a choice, it plays the first sound and no subtitles. Does nothing for a file.
void player_choose_streams(Player& player, int audio, int subtitle);

// ---- Of a file. For a ring, only the tracks and the video's shape are known, and the functions do nothing ----

enum class PlayerState { kOpening, kPlaying, kEnded, kFailed };
enum class TrackKind { kVideo, kAudio, kSubtitle };

struct PlayerTrack {
  TrackKind kind = TrackKind::kVideo;
  int number = 0;  // within its kind, from 1
  int pid = 0;     // of a transport stream
  std::string codec = {};
  std::string language = {};
  std::string title = {};
  bool chosen = false;
  bool external = false;  // from a file of its own
  bool cover = false;     // a picture that belongs to music
  bool hearing_impaired = false;
  bool visually_impaired = false;
  int channels = 0;
  int sample_rate = 0;        // Hz
  std::int64_t bit_rate = 0;  // bits/s; 0: unknown
};

struct PlayerChapter {
  std::string title = {};
  double start = 0;  // s
};

struct VideoShape {
  int width = 0;  // pixels; 0: no picture is known yet
  int height = 0;
  double aspect = 0;  // of the picture as it is to be shown: 1.78 is 16:9
};

// As of the latest player_step. Texts come from the file; they are valid UTF-8.
struct PlayerFacts {
  PlayerState state = PlayerState::kOpening;
  std::string reason = {};  // why playing failed
  double position = 0;      // s
  double duration = 0;      // s; 0: unknown. Of a file that grows: when it was opened
  bool seeking = false;     // the position is where it seeks to
  VideoShape video = {};
  std::vector<PlayerTrack> tracks = {};
  int chapters = 0;
  int chapter = 0;  // from 1; 0: none
  // For a media file only.
  std::vector<PlayerChapter> chapter_list = {};
  std::vector<std::pair<std::string, std::string>> texts = {};  // the file's tags: name in lower case, value
  std::string format = {};                                      // names of the container, separated by commas
  std::int64_t video_rate = 0;                                  // bits/s at present; 0: unknown
  std::int64_t audio_rate = 0;
  double percent = 0;  // position in percent of the file
  double speed = 1;
  int editions = 0;
  int edition = 0;  // from 1; 0: none
  bool paused = false;
  bool buffering = false;  // playing waits for the server
  bool seekable = true;
  std::int64_t size = 0;  // bytes; 0: unknown
};
const PlayerFacts& player_facts(const Player& player);

void player_pause(Player& player, bool paused);
// A seek in a file that has ended, or ends before the seek begins, plays the file again.
void player_seek(Player& player, double position);       // s from the beginning
void player_seek_fast(Player& player, double position);  // to a key frame near the position, which is faster
void player_seek_percent(Player& player, double percent);
void player_step_picture(Player& player, bool back);  // to the next or previous picture, and pauses
void player_repeat(Player& player, bool repeats);
void player_set_speed(Player& player, double speed);
void player_choose(Player& player, TrackKind kind, int number);  // 0: none
void player_choose_chapter(Player& player, int chapter);         // from 1
void player_set_growing(Player& player, bool grows);

// How the picture and the subtitles of a file look. Empty and negative values, where they are allowed, mean libmpv's
// defaults. Sizes of subtitles are in units of 1/720 of the picture's height.
struct PlayerLook {
  double zoom = 1;     // factor
  double pan_x = 0;    // how far the picture is moved, as a part of its width
  double pan_y = 0;    // as a part of its height
  bool fills = false;  // the picture covers its whole place and is cut off beyond it
  bool subtitles_shown = true;
  double subtitle_delay = 0;     // s
  std::string encoding = {};     // iconv's name for the encoding of subtitle files
  std::string text_colour = {};  // #AARRGGBB
  std::string edge_colour = {};
  std::string back_colour = {};
  double edge_width = -1;       // units; negative: the default
  double size = 0;              // height of letters in units; 0: the default
  double subtitle_line = 0;     // lower edge of the lowest line, in percent of the height; 0: the default
  double subtitle_margin = -1;  // left and right, in units; negative: the default
};
void player_set_look(Player& player, const PlayerLook& look);
