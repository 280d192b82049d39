// The room's parts: what its files call of each other.
#pragma once

#include <boost/json/fwd.hpp>
#include <span>
#include <string>
#include <vector>

#include "core/contract.h"
#include "core/room.h"
#include "rooms/recorder/recorder.h"
#include "rooms/tuner/tuner.h"

// ---- playback.cpp: what a viewer does. Each returns why not; empty: done. The caller holds no lock. ----

inline constexpr double kSlowest = 0.25, kFastest = 8;  // speeds

std::string playback_stop();
std::string playback_pause(bool paused);
std::string playback_seek(double position, bool from_here);  // s; it is moved into the recording
std::string playback_set_speed(double speed);
std::string playback_choose_audio(std::size_t number);  // from 1

// What is played, as the commands "playback" and "state" show it; empty: nothing is.
boost::json::object playback_describe();

// Why the latest playback has ended, for people; empty: there was none, or the viewer ended it.
std::string playback_last_end();

// The recording of the playback with this number, if it is going on.
std::optional<PlayableRecording> playback_recording(std::uint32_t instance);
std::uint32_t playback_latest_instance();  // 0: there was none

extern const std::span<const Command> kPlaybackCommands;  // commands.cpp

// ---- tracks.cpp ----

// The sound tracks of a recording's file, in the order of its program map; the chosen one is as the configuration wants
// it. Empty: the file has no program map yet. The caller holds no lock.
std::vector<TunerTrack> file_sound_tracks(const std::string& path);

// ---- service.cpp: the playback service's callback ----

// Posts a command to the application, if it has registered a callback. The caller may hold the room's lock.
void service_send(std::uint32_t instance, INT32 command, INT32 value);
void service_send_start(std::uint32_t instance, std::string path);

void service_load();
void service_report(boost::json::object& answer);  // what the application has submitted about the latest playback
