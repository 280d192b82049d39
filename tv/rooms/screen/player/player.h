// Plays the packets of a ring without a window and without sound, and renders the picture into memory. The player has
// threads of its own; its owner calls the functions below from one thread.
#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "rooms/screen/player/jpeg.h"
#include "rooms/screen/player/ring.h"

inline constexpr std::chrono::milliseconds kFrameTime{100};        // pictures are at least so far apart, on average
inline constexpr std::chrono::milliseconds kPlayerStopTime{5000};  // then a player that does not end is left behind
inline constexpr std::chrono::milliseconds kReopenTime{1000};      // between two attempts to play a broken stream

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

// Plays the ring's newest packets; for another stream of the ring, start another player. Null with ret_error if there
// can be none.
PlayerHandle player_start(std::shared_ptr<PacketRing> ring, const PlayerWake& wake, std::string& ret_error);

// Does what is due. Returns whether the canvas has a new picture, with bars where it is not 16:9. A player that waits
// to play a broken stream again does so here, so call it at least every kReopenTime.
bool player_step(Player& player, Canvas& ret_canvas);
