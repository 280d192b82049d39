// What the main picture is tuned to, for the other rooms. The room's lock comes after the remote control's, before the
// antenna's, the guide's and the channels'.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "broadcast/tables.h"
#include "rooms/channels/channels.h"

// Results of a channel change, as the callback reports them (pv_arg2).
enum class ChangeResult : std::int32_t {
  kPicture = 0,
  kNoSignal = 1,
  kScrambled = 2,
  kBlockedChannel = 3,  // until the PIN is given
  kBlockedEvent = 4,    // by its age rating, until the PIN is given
  kAudioOnly = 5,
  kNoTuner = 6,  // recordings use all tuners
  kNotFound = 7  // no such channel
};

// The channel that was chosen last, whether or not it has a picture; nothing while the list is empty.
std::optional<Channel> tuner_channel();

// Chooses the channel. Returns at once: the result comes as a callback after the time that a set takes. False: there is
// no such channel, or the choice was not saved.
bool tuner_choose(std::uint32_t channel_id);

// What CH+, CH-, PRE-CH and a number do. True also when there is nothing to change; false if the choice was not saved.
bool tuner_step(int by);
bool tuner_previous();
bool tuner_number(std::uint32_t number);

// Receives the service's packets (a transport stream with one program) while the main picture shows a channel: null
// ends it. One player. Runs on the reception's thread and must not block; discontinuity: a new channel begins.
struct TunerPlayer {
  void (*packets)(void* context, std::span<const std::uint8_t> packets) = nullptr;
  void (*changed)(void* context, ChangeResult result) = nullptr;
  void* context = nullptr;
};
void tuner_set_player(const TunerPlayer* player);
