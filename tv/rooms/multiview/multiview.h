// Two pictures at once, for the other rooms. No other room's lock is taken under the room's lock.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/contract.h"
#include "rooms/tuner/tuner.h"

// The set's panel, in pixels. Regions are places on it.
inline constexpr std::uint32_t kPanelWidth = 1920;
inline constexpr std::uint32_t kPanelHeight = 1080;

struct ScreenPicture {
  bool shown = false;
  int source = 0;                       // by its number (rooms/sources/sources.h)
  std::optional<Channel> channel = {};  // of a tuner's source
  std::optional<ChangeResult> result = {};
  VEXTVAPI_REGION_T region = {};
  bool heard = false;
};

struct Multiview {
  int mode = 0;  // VEXTVAPI_MULTIVIEW_*
  ScreenPicture main;
  ScreenPicture sub;  // in front of the main picture where they overlap
};

Multiview multiview_state();

void multiview_look();  // as tuner_look, the sub picture's part of it

std::vector<TunerTrack> multiview_tracks();  // as tuner_tracks, of the sub picture

// As tuner_set_player, for the sub picture.
void multiview_set_player(const TunerPlayer* player);

// Ends the sub picture's reception for a recording, until a viewer shows it again. Returns whether it was receiving.
// The caller holds no lock.
bool multiview_give_up_tuner();

// The keys PIP/POP (one picture, a small second one, side by side) and SWAP. False: not saved.
bool multiview_step_mode();
bool multiview_swap();

// The keys PIPPOS and PIPSIZE. False: there is no small picture.
bool multiview_step_place();
bool multiview_step_size();

// The set goes to standby: one picture is left.
void multiview_end();

// For the input sources; the caller holds no lock.
int multiview_sub_source();                  // -1: there is no sub picture
std::string multiview_show_sub(int source);  // returns why not; empty: it is shown
void multiview_stop_sub(bool wait);
