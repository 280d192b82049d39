// The player of a recording that a viewer watches: it does what the viewer wants, and reports its position.
#pragma once

#include <optional>
#include <string>

#include "rooms/playback/playback.h"
#include "rooms/screen/player/player.h"

inline std::uint32_t played_instance(const std::optional<PlaybackShown>& played) {
  return played ? played->instance : 0;
}

PlayerHandle played_start(const PlaybackShown& played, const PlayerWake& wake, std::string& ret_error);

// Gives the player what differs from `told`, and updates `told`.
void played_tell(Player& player, PlaybackShown& told, const PlaybackShown& wanted);

// Reports the player's position, or that it has ended. False: it has ended at what it took for the end of a recording
// that runs, so that another player is needed.
bool played_report(const Player& player, const PlaybackShown& told);
