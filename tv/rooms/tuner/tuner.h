// What the main picture is tuned to, for the other rooms. The room's lock comes after the remote control's, before the
// antenna's, the guide's and the channels'.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "broadcast/tables.h"
#include "core/contract.h"
#include "rooms/channels/channels.h"

// Results of a channel change, as the callback reports them.
enum class ChangeResult : std::int32_t {
  kPicture = VEXTVAPI_BROADCAST_RESULT_PICTURE,
  kNoSignal = VEXTVAPI_BROADCAST_RESULT_NO_SIGNAL,
  kScrambled = VEXTVAPI_BROADCAST_RESULT_SCRAMBLED,
  kBlockedChannel = VEXTVAPI_BROADCAST_RESULT_BLOCKED_CHANNEL,
  kBlockedEvent = VEXTVAPI_BROADCAST_RESULT_BLOCKED_EVENT,
  kAudioOnly = VEXTVAPI_BROADCAST_RESULT_AUDIO_ONLY,
  kNoTuner = VEXTVAPI_BROADCAST_RESULT_NO_TUNER,
  kNotFound = VEXTVAPI_BROADCAST_RESULT_NOT_FOUND
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

// The result of the latest choice; nothing while the change is under way, and while the set is in standby or shows
// another source. After the change it follows the channel: its signal is lost, an event begins that is blocked.
std::optional<ChangeResult> tuner_result();

// A stream of the service, in the order of its PMT. Of each kind, at most one is chosen: by the viewer, else by the
// configuration's languages.
struct TunerTrack {
  StreamKind kind = StreamKind::kOther;  // kAudio or kSubtitle
  std::uint16_t pid = 0;
  std::string codec = {};
  std::string language = {};
  bool impaired = false;
  bool chosen = false;
};
std::vector<TunerTrack> tuner_tracks();

std::optional<Channel> tuner_previous_channel();  // that PRE-CH returns to; nothing: there is none

bool tuner_step_favourite(int by);  // as tuner_step, over the favourites
bool tuner_step_audio();            // the next sound track

// Chooses a channel of the satellite, or of the air and the cable, unless the current one is such a channel: the
// previous one, else the first of the list. True also if there is none. False: the choice was not saved.
bool tuner_enter(bool satellite);
bool tuner_has(bool satellite);  // whether there is such a channel

// The set's power or its source has changed: the tuner starts or stops receiving, on the timer thread. The caller may
// hold any lock that comes before the timers'.
void tuner_update();

// A channel, or what a viewer may see, has changed: both pictures are judged again, on the timer thread. The caller may
// hold any lock that comes before Picture::lock.
void tuner_look();

// Ends the main picture until a channel or a source is chosen, or the set is switched on again. wait: returns when the
// reception has ended. The caller holds no lock.
void tuner_stop(bool wait);

bool tuner_is_stopped();

// Whether the picture is blocked until the PIN is given; and gives it. False: it is another one, or nothing is blocked.
bool tuner_wants_pin();
bool tuner_unblock(std::string_view pin);

// Receives the service's packets (a transport stream with one program) while the main picture shows a channel: null
// ends it, and none of the player's functions runs any more when tuner_set_player returns. One player. packets runs on
// the reception's thread and must not block. changed runs, before the packets of a channel, when a result is known and
// when it changes; not when the player is set (tuner_result). Neither may call this room, except to read.
struct TunerPlayer {
  void (*packets)(void* context, std::span<const std::uint8_t> packets) = nullptr;
  void (*changed)(void* context, ChangeResult result) = nullptr;
  void* context = nullptr;
};
void tuner_set_player(const TunerPlayer* player);
