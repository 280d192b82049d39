// Input sources, for the other rooms. The room's lock comes after the remote control's and before the tuner's.
#pragma once

#include <string>

// The sources' numbers. A channel of the air or the cable belongs to the first, one of a satellite to the second.
inline constexpr int kSourceTv = 0;
inline constexpr int kSourceSatellite = 1;
inline constexpr int kSourceHdmi1 = 2;  // the other inputs follow
inline constexpr int kHdmiInputs = 4;
inline constexpr int kSources = 8;

// Switches the main picture's source, by its number from 0. False: there is none, it is blocked, or it was not saved.
// Choosing a tuner's source also chooses a channel of it, if it has one.
bool sources_choose(int source);

// What the SOURCE key does: the next source that is not blocked and has something behind it. The caller holds no lock.
bool sources_step();

bool sources_choose_tv();                   // to the tuner of the current channel's list
bool sources_choose_tuner(bool satellite);  // the same, of a channel that is about to be chosen; keeps the channel
bool sources_choose_hdmi(int input);        // by input number from 1

int sources_current();
std::string sources_name(int source);   // the viewer's name, else the source's own
bool sources_is_blocked(int source);    // and the lock of inputs is on
bool sources_is_connected(int source);  // there is something to see. The caller holds no lock.
bool sources_is_tv();                   // the main picture shows a tuner
constexpr bool sources_is_tuner(int source) { return source == kSourceTv || source == kSourceSatellite; }
