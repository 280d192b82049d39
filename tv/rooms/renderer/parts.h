// What the files of the renderer share. A set has one renderer. While an application has an instance, that application
// plays; otherwise the viewer's player does.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "core/contract.h"
#include "core/timers.h"
#include "rooms/renderer/item.h"

inline constexpr std::size_t kMostInstances = 4;         // of all applications; one more ends the oldest
inline constexpr int kAnswerSeconds = 10;                // within which an application must report that it plays
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
  double duration = 0;  // s, as the player or the application reports; 0: not known
  double begin_at = 0;  // s, where playing begins the next time
  PlayMode mode = PlayMode::kNormal;
  std::string controller = {};  // address of the one that sent the latest action
  std::vector<Instance> instances = {};
  bool on = false;         // a viewer has switched the renderer on; stored
  std::string name = {};   // the renderer's name, for people
  std::string udn = {};    // "uuid:...", stored
  std::string where = {};  // address of its description; empty: the renderer is not announced
};

// Guards the model. No other room and no callback is called under it, except the store, the timers and the event queue.
extern std::mutex& model_lock;
extern Model& model;

// ---- Playing (player.cpp). The caller holds no lock. Each returns why it failed; empty: done. ----

// Ends what is played, and makes the item the current one, with no next one. An item without an address: there is no
// media any more. If an application does not take the item, the model stays as it was.
std::string player_load(Item item);
std::string player_play();
std::string player_pause();
std::string player_stop();
std::string player_seek(double seconds);
std::string player_next();      // the next item becomes the current one and is played
std::string player_previous();  // plays the item again from its beginning
void player_next_changed();     // call it when the next item was set or removed
void player_ended();            // call it when the item was played to its end

// Copies the state of the viewer's player into the model, while that player plays for the renderer. Any thread.
void player_follow();

// Ends the wait of kAnswerSeconds, since an application has reported its state. The caller holds the model's lock.
void player_answered();

// ---- Announcing (renderer.cpp) ----

// Starts or ends the server and the announcements, if the model says so: `on`, or an application has an instance. The
// caller holds no lock.
std::string renderer_update();  // returns why it could not; empty: done

// ---- Events (subscribers.cpp) ----

// Call it when a state variable that controllers receive may have changed. Any thread; the caller may hold the model's
// lock.
void subscribers_look();
