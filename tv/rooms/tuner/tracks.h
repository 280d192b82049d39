// Which of a service's sound and subtitle streams a viewer gets.
#pragma once

#include <optional>
#include <vector>

#include "rooms/tuner/tuner.h"

// What the viewer chose for the channel, as PIDs; nothing: the configuration decides.
struct TrackChoice {
  static constexpr std::uint16_t kOff = 0;  // no subtitles; no stream has this PID
  std::optional<std::uint16_t> audio;
  std::optional<std::uint16_t> subtitle;
};

// The service's sound and subtitle streams, in the order of its PMT.
std::vector<TunerTrack> tracks_of(const Pmt& pmt, const TrackChoice& choice);
