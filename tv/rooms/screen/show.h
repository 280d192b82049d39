// What moves on the screen: a thread that plays the packets of the main picture and of multi-view's second one,
// composes both into frames, and compresses them.
//
// The pictures cost nothing while nobody looks. Asking for a frame counts as looking. The thread then starts a player
// for each picture that there is, and ends them some seconds after the last viewer has left. Without a picture the
// newest frame is an empty one.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "core/contract.h"
#include "rooms/playback/playback.h"
#include "rooms/screen/drawn.h"
#include "rooms/screen/player/player.h"

inline constexpr std::size_t kPictures = 2;  // so at most two players
enum class PicturePlace : std::size_t { kMain, kSecond };

// What the thread is to show of a picture.
struct PicturePlan {
  std::optional<VEXTVAPI_REGION_T> region = {};  // of the panel (rooms/multiview/multiview.h); nothing: it is not shown
  bool plays = false;                            // else its region is black
  int audio = 0;                                 // PIDs of its streams; 0: none
  int subtitle = 0;
  std::optional<PlaybackShown> file = {};  // that is played in place of the channel
  const Drawer* drawer = nullptr;          // draws a picture in place of the channel and of `file`; may be null
};

using ShowPlan = std::array<PicturePlan, kPictures>;  // a later one is in front of the earlier

// A stream that a player plays.
struct PlayedStream {
  int pid = 0;
  std::string language = {};
};

struct PlayedPicture {
  bool shown = false;  // in the newest frame
  VideoShape video = {};
  std::optional<PlayedStream> audio = {};
  std::optional<PlayedStream> subtitle = {};
};

using Jpeg = std::shared_ptr<const std::vector<std::uint8_t>>;

struct ShowFrame {
  Jpeg jpeg;                 // null: the set has not been started
  std::uint64_t number = 0;  // grows from each frame to the next one
  std::array<PlayedPicture, kPictures> pictures;
  std::string problem;  // why this television can show no picture; empty: it can
};

// The newest frame. It counts the caller as a viewer.
ShowFrame show_look();

// Starts the thread, which asks for the plan without a lock, often. False: there can be no picture.
bool show_start(ShowPlan (*plan)());
void show_stop();
void show_clear();  // before a start

// Packets of a picture, on its reception's thread.
void show_packets(PicturePlace place, std::span<const std::uint8_t> packets);

// The picture's channel has changed, or whether it can be seen: the newest frame does not show it any more, and its
// packets so far are dropped. Any thread; the caller may hold any lock.
void show_changed(PicturePlace place);

void show_wake();  // the plan has changed; as above
