// Plays what a controller sends: by an application, which gets requests and reports its state, or by the viewer's
// player.
#include <algorithm>
#include <atomic>
#include <memory>

#include "core/events.h"
#include "rooms/media_player/media_player.h"
#include "rooms/renderer/parts.h"

namespace {

using namespace std::chrono_literals;

constexpr int kMostWaitingRequests = 32;  // that have been posted to applications and not been delivered
// An item that ends sooner, in s, is not repeated, so that a broken one does not loop.
constexpr double kShortestRepeatSeconds = 1;

std::atomic<int> waiting_requests = 0;

// What the renderer has given to the viewer's player. Guarded by the model's lock.
struct Sounding {
  std::string address = {};  // empty: nothing
  bool starting = false;     // the player is still being given it, and reports the file that it had before
  std::uint64_t begun = 0;   // incremented with each item
};
Sounding sounding;

// Both are guarded by the model's lock.
TimerTime answer_due = kTimerNever;  // by when the application must report that it plays
Timer answer_timer;

// Sends a request to the applications. The caller holds the model's lock.
std::string ask(INT32 type, const Item& item, double seconds = 0, INT32 number = 0) {
  if (waiting_requests >= kMostWaitingRequests) return "the application has not taken the earlier requests";
  bool heard = false;
  for (const Instance& instance : model.instances) {
    if (instance.callback == nullptr) continue;
    heard = true;
    ++waiting_requests;
    // The request waits until its last copy is destroyed, also when no events are accepted any more.
    const std::shared_ptr<void> waits(nullptr, [](void*) { --waiting_requests; });
    events_post([callback = instance.callback, tag = instance.tag, type, address = item.address,
                 protocol_info = item.protocol_info, seconds, number, waits] {
      callback(type, tag, address.c_str(), protocol_info.c_str(), static_cast<UINT32>(seconds), number);
    });
  }
  return heard ? "" : "the application does not listen to requests";
}

void stop_waiting() {
  const std::lock_guard guard(model_lock);
  if (timer_now() < answer_due) return;
  answer_due = kTimerNever;
  if (model.transport != Transport::kOpening) return;
  model.transport = Transport::kStopped;
  model.reason = "the application has not begun to play";
  subscribers_look();
}

// The caller holds the model's lock.
std::string ask_to_play() {
  std::string why = ask(DMR_REQUEST_PLAY, model.current, model.begin_at);
  if (!why.empty()) return why;
  model.begin_at = 0;
  if (model.transport == Transport::kPlaying) return "";
  if (model.transport != Transport::kPaused) model.transport = Transport::kOpening;
  model.reason.clear();
  answer_due = timer_now() + std::chrono::seconds(kAnswerSeconds);
  timer_set(answer_timer, answer_due, stop_waiting);
  return "";
}

bool application_plays() { return !model.instances.empty(); }

// Whether the viewer's player still has the address that the renderer gave it.
bool is_ours(const std::optional<MediaPlaying>& playing, const std::string& address) {
  return !address.empty() && playing && !playing->application && playing->path == address;
}

Sounding our_sound() {
  const std::lock_guard guard(model_lock);
  return sounding;
}

void end_ours() {
  const Sounding ours = our_sound();
  if (is_ours(media_player_playing(), ours.address)) media_player_stop();
  const std::lock_guard guard(model_lock);
  if (sounding.begun == ours.begun) sounding.address.clear();
}

std::string begin_ours() {
  std::string address;
  double from = 0;
  std::uint64_t begun = 0;
  {
    const std::lock_guard guard(model_lock);
    address = model.current.address;
    from = model.begin_at;
    model.begin_at = 0;
    begun = sounding.begun + 1;
    sounding = {.address = address, .starting = true, .begun = begun};
    model.transport = Transport::kOpening;
    model.reason.clear();
  }
  std::string why = media_player_play(address, from);
  bool was_ended = false;
  {
    const std::lock_guard guard(model_lock);
    if (sounding.begun != begun) return why;  // another item was begun in its place
    was_ended = sounding.address.empty();
    sounding.starting = false;
    if (!why.empty()) {
      sounding.address.clear();
      model.transport = Transport::kStopped;
      model.reason = why;
    }
  }
  if (why.empty() && was_ended)
    media_player_stop();
  else
    player_follow();
  return why;
}

// The next item becomes the current one. The caller holds the model's lock.
void take_next() {
  model.current = std::move(model.next);
  model.next = {};
  model.position = model.duration = model.begin_at = 0;
  model.transport = Transport::kStopped;
}

}  // namespace

void player_answered() { answer_due = kTimerNever; }

std::string player_load(Item item) {
  end_ours();
  const std::lock_guard guard(model_lock);
  if (application_plays()) {
    std::string why = ask(DMR_REQUEST_LOAD, item, item.kind, static_cast<INT32>(item.duration));
    if (!why.empty()) return why;
    answer_due = kTimerNever;
  }
  model.transport = item.address.empty() ? Transport::kNoMedia : Transport::kStopped;
  model.current = std::move(item);
  model.next = {};
  model.position = model.duration = model.begin_at = 0;
  model.reason.clear();
  return "";
}

std::string player_play() {
  Transport now{};
  {
    const std::lock_guard guard(model_lock);
    if (application_plays()) return ask_to_play();
    now = model.transport;
  }
  if (now == Transport::kPlaying || now == Transport::kOpening) return "";
  if (now == Transport::kPaused) return media_player_pause(false);
  return begin_ours();
}

std::string player_pause() {
  {
    const std::lock_guard guard(model_lock);
    if (application_plays()) return ask(DMR_REQUEST_PAUSE, model.current);
  }
  return media_player_pause(true);
}

std::string player_stop() {
  {
    const std::lock_guard guard(model_lock);
    if (model.transport == Transport::kNoMedia) return "";
    if (application_plays()) return ask(DMR_REQUEST_STOP, model.current);
  }
  end_ours();
  const std::lock_guard guard(model_lock);
  model.transport = Transport::kStopped;
  model.position = model.begin_at = 0;
  model.reason.clear();
  return "";
}

std::string player_seek(double seconds) {
  {
    const std::lock_guard guard(model_lock);
    if (application_plays()) return ask(DMR_REQUEST_SEEK, model.current, seconds);
    if (sounding.address.empty()) {
      model.begin_at = model.position = seconds;
      return "";
    }
  }
  return media_player_seek(seconds, false);
}

std::string player_next() {
  end_ours();
  {
    const std::lock_guard guard(model_lock);
    take_next();
    if (application_plays()) {
      std::string why =
          ask(DMR_REQUEST_LOAD, model.current, model.current.kind, static_cast<INT32>(model.current.duration));
      return why.empty() ? ask_to_play() : why;
    }
  }
  return begin_ours();
}

std::string player_previous() { return player_seek(0); }

void player_next_changed() {
  const std::lock_guard guard(model_lock);
  if (application_plays()) ask(DMR_REQUEST_LOAD_NEXT, model.next, model.next.kind);
}

void player_ended() {
  bool again = false, next = false;
  {
    const std::lock_guard guard(model_lock);
    next = !model.next.address.empty() && model.mode != PlayMode::kRepeatOne;
    again = !next && model.mode != PlayMode::kNormal && model.position >= kShortestRepeatSeconds;
    model.transport = Transport::kStopped;
    model.position = 0;
  }
  if (next) player_next();
  if (again) player_play();
  subscribers_look();
}

void player_follow() {
  const Sounding ours = our_sound();
  if (ours.address.empty() || ours.starting) return;
  const std::optional<MediaPlaying> playing = media_player_playing();
  bool ended = false;
  {
    const std::lock_guard guard(model_lock);
    if (sounding.begun != ours.begun || sounding.address.empty()) return;
    const Transport before = model.transport;
    const double duration_before = model.duration;
    if (!is_ours(playing, ours.address)) {
      sounding.address.clear();
      model.transport = Transport::kStopped;
      model.position = 0;
    } else {
      model.duration = playing->duration;
      model.position = playing->state == MediaState::kEnded ? playing->duration : playing->position;
      switch (playing->state) {
        case MediaState::kOpening:
          model.transport = Transport::kOpening;
          break;
        case MediaState::kPlaying:
          model.transport = Transport::kPlaying;
          break;
        case MediaState::kPaused:
          model.transport = Transport::kPaused;
          break;
        case MediaState::kEnded:
          ended = true;
          sounding.address.clear();
          break;
        case MediaState::kFailed:
          sounding.address.clear();
          model.transport = Transport::kStopped;
          model.reason = playing->reason.empty() ? "the file cannot be played" : playing->reason;
          break;
      }
    }
    if (model.transport != before || model.duration != duration_before) subscribers_look();
  }
  if (ended) player_ended();
}
