// What the parts of the renderer share. One renderer exists per set. It plays by an application while one has an
// instance, else by the viewer's player.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "core/contract.h"
#include "core/timers.h"
#include "rooms/renderer/item.h"

inline constexpr std::size_t kMostInstances = 4;         // applications together; another one ends the oldest
inline constexpr int kAnswerSeconds = 10;                // how long an application may take to begin playing
inline constexpr double kLongestSeconds = 999 * 3600.0;  // of a position or a duration

enum class Transport : std::uint8_t { kNoMedia, kStopped, kOpening, kPlaying, kPaused };

enum class PlayMode : std::uint8_t { kNormal, kRepeatOne, kRepeatAll };

struct Instance {
  UINT32 handle;
  a_vextvapi_cb_dmr_nfy_fct callback = nullptr;
  void* tag = nullptr;
};

struct Model {
  Transport transport = Transport::kNoMedia;
  std::string reason = {};  // why playing failed; empty: it did not
  Item current = {};
  Item next = {};
  double position = 0;  // s
  double duration = 0;  // s, as whoever plays tells; 0: not known
  double begin_at = 0;  // s, where the next play begins
  PlayMode mode = PlayMode::kNormal;
  std::string controller = {};  // address of the last one
  std::vector<Instance> instances = {};
  bool on = false;         // a viewer lets the set play what a controller sends; stored
  std::string name = {};   // of the renderer, for people
  std::string udn = {};    // "uuid:...", stored
  std::string where = {};  // the address of its description; empty: it is not in the network
};

// Guards the model. It is not held while another room or a callback is called, except for the store and the timers.
extern std::mutex& model_lock;
extern Model& model;

// ---- Who plays (player.cpp). The caller holds no lock. Each returns why not; empty: done. ----

// What was played ends, and the item is the current one, without a next; an item without an address: none is. If an
// application refuses it, the model stays as it was.
std::string player_load(Item item);
std::string player_play();
std::string player_pause();
std::string player_stop();
std::string player_seek(double seconds);
std::string player_next();      // the next item becomes the current one, and plays
std::string player_previous();  // the item begins again
void player_next_changed();     // another next item, or none
void player_ended();            // the item was played to its end

// Compares the model with the viewer's player, unless an application plays. Any thread.
void player_follow();

// An application has told how it goes on, so that nobody waits for it any longer.
void player_answered();

// ---- Life (renderer.cpp) ----

// Begins or ends being in the network, as the model wants it. The caller holds no lock.
std::string renderer_update();  // returns why it could not; empty: done

// ---- Events (subscribers.cpp) ----

// A state variable that controllers receive may have changed. Any thread; the caller may hold the model's lock.
void subscribers_look();
