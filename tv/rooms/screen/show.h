// What moves on the screen: a thread that plays the main picture's packets while somebody looks, and the newest frame.
//
// The picture costs nothing while nobody looks. Asking for a frame counts as looking. The thread then starts a player,
// and ends it some seconds after the last viewer has left. Without a picture the newest frame is an empty one.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

using Jpeg = std::shared_ptr<const std::vector<std::uint8_t>>;

struct ShowFrame {
  Jpeg jpeg;                 // null: the set has not been started
  std::uint64_t number = 0;  // grows from each frame to the next one
  bool shown = false;        // the frame is the channel's
  std::string problem;       // why this television can show no picture; empty: it can
};

// The newest frame. It counts the caller as a viewer.
ShowFrame show_look();

// Starts the thread. shows_channel says whether the screen shows the channel; the thread calls it without a lock.
// False: there can be no picture.
bool show_start(bool (*shows_channel)());
void show_stop();
void show_clear();  // before a start

// Packets of the channel, on the reception's thread.
void show_packets(std::span<const std::uint8_t> packets);

// The newest frame is not the channel's any more: what the screen shows has changed. Any thread; the caller may hold
// any lock.
void show_changed();

// What is played has changed. Any thread; the caller may hold any lock.
void show_wake();
