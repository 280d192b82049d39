// Playing a recording: where it is, and what ends it.
//
// Two locks. `changing` serializes everything that starts, controls or ends a playback. It is held over calls to the
// recorder, which may write to its database. `lock` guards the data, and no other room's lock is taken under it. A
// thread that holds `changing` may read the data without `lock`, and changes them under both. What other rooms call
// takes `lock` only, and leaves the rest to the timer thread.
#include "rooms/playback/playback.h"

#include <sys/stat.h>

#include <algorithm>
#include <boost/json.hpp>
#include <cmath>
#include <cstdio>
#include <mutex>
#include <utility>

#include "core/timers.h"
#include "rooms/playback/parts.h"
#include "rooms/remote/remote.h"
#include "rooms/screen/show.h"
#include "tvapi/pvr.h"

namespace {

using Seconds = std::chrono::duration<double>;

constexpr std::chrono::seconds kCheckEvery{1};   // how often the file and the recording are examined
constexpr std::chrono::seconds kSaveEvery{10};   // what the end of the process may take of the position
constexpr std::chrono::seconds kEndPatience{1};  // for the screen's player, which may come to the end a little later
constexpr double kLiveDistance = 1;              // s between a seek's target and the end of a running recording
constexpr int kTrackLooks = 30;                  // attempts to find the sound tracks of a recording that has just begun

struct Session {
  std::uint32_t instance = 0;
  PlayableRecording recording;
  double position = 0;  // s, at that time
  TimerTime since{};
  std::uint64_t jumps = 0;
  bool paused = false;
  double speed = 1;
  std::vector<TunerTrack> tracks = {};
  int track_looks = 0;
  int audio = 0;                 // number of the sound track
  std::uint64_t size = 0;        // largest that the file has had
  TimerTime saved{};             // when the position was saved
  bool leaving = false;          // it is over, and the timer thread is to end it
  std::string leaving_why = {};  // for people; empty: a viewer's choice ended it
};

struct State {
  std::mutex changing;
  std::mutex lock;                 // guards all members below
  std::optional<Session> session;  // emptied and filled under both locks
  std::uint32_t latest = 0;        // number of the latest playback
  std::string last_end;
};

// Never destroyed: other threads may still use it when the process exits.
State& state = *new State;

Timer work_timer;

void work();

double length(const Session& session) { return std::max<double>(session.recording.duration, 1); }

double unbounded_position(const Session& session, TimerTime now) {
  return session.paused ? session.position : session.position + Seconds(now - session.since).count() * session.speed;
}

double position_at(const Session& session, TimerTime now) {
  return std::clamp(unbounded_position(session, now), 0.0, length(session));
}

// Counts from this position on. The caller holds both locks.
void move(Session& session, double position, TimerTime now) {
  session.position = position;
  session.since = now;
}

std::uint32_t whole(double seconds) { return static_cast<std::uint32_t>(std::clamp(seconds, 0.0, 1e9)); }

// Saves the position, and what the recorder shows of the recording. The caller holds `changing`.
void note(Session& session, INT32 status, double position) {
  recorder_note_playing(session.recording.id, status, whole(position));
  const std::lock_guard guard(state.lock);
  session.saved = timer_now();
}

INT32 status_of(const Session& session) { return session.paused ? PVR_FILE_PAUSED : PVR_FILE_PLAYING; }

void note_now(Session& session) { note(session, status_of(session), position_at(session, timer_now())); }

// Ends the playback. The caller holds `changing`.
void finish(const std::string& why) {
  if (!state.session) return;
  Session ended;
  {
    const std::lock_guard guard(state.lock);
    ended = std::move(*state.session);
    state.session.reset();
    state.last_end = why;
  }
  const double position = position_at(ended, timer_now());
  const bool at_end = !ended.recording.runs && position >= length(ended);
  recorder_note_playing(ended.recording.id, PVR_FILE_READY, at_end ? 0 : whole(position));
  service_send(ended.instance, TVAPI_PUS_PLAY_CMD_STOP, 0);
  show_wake();
  if (!why.empty()) {
    std::fprintf(stderr, "dtv_tv: the playback of \"%s\" has ended: %s\n", ended.recording.title.c_str(), why.c_str());
  }
}

// ---- What is due ----

// Why the file cannot be played any longer; empty: it can. ret_size: its size.
std::string file_problem(const std::string& path, std::uint64_t former_size, std::uint64_t& ret_size) {
  struct stat info {};
  if (lstat(path.c_str(), &info) != 0) return "the file was deleted or moved";
  const auto size = static_cast<std::uint64_t>(info.st_size);
  if (size < former_size) return "the file became shorter";
  ret_size = size;
  return {};
}

int chosen_number(const std::vector<TunerTrack>& tracks) {
  const auto chosen = std::ranges::find_if(tracks, &TunerTrack::chosen);
  return chosen == tracks.end() ? 0 : static_cast<int>(chosen - tracks.begin()) + 1;
}

// Looks for the sound tracks until the file has them. The caller holds `changing`.
void find_tracks(Session& session) {
  if (!session.tracks.empty() || session.track_looks >= kTrackLooks) return;
  std::vector<TunerTrack> tracks = file_sound_tracks(session.recording.path);
  const std::lock_guard guard(state.lock);
  ++session.track_looks;
  session.audio = chosen_number(tracks);
  session.tracks = std::move(tracks);
}

// Takes what has become of the recording. Returns why the playback ends; empty: it goes on. The caller holds
// `changing`.
std::string refresh(Session& session) {
  std::string why;
  auto recording = recorder_playable(session.recording.id, why);
  if (!recording) return why;
  std::uint64_t size = 0;
  if (why = file_problem(recording->path, session.size, size); !why.empty()) return why;
  find_tracks(session);
  const TimerTime now = timer_now();
  const std::lock_guard guard(state.lock);
  if (session.recording.runs) {
    // It must not jump ahead when a recording whose end it has reached becomes longer, and it cannot overtake it.
    move(session, position_at(session, now), now);
    if (session.position >= length(session)) session.speed = std::min(session.speed, 1.0);
  }
  session.recording = std::move(*recording);
  session.size = size;
  return {};
}

bool is_over(const Session& session, TimerTime now) {
  return !session.recording.runs && !session.paused &&
         unbounded_position(session, now) >= length(session) + Seconds(kEndPatience).count() * session.speed;
}

// On the timer thread.
void work() {
  const std::lock_guard guard(state.changing);
  if (!state.session) return;
  Session& session = *state.session;
  bool leaving = false;
  std::string why;
  {
    const std::lock_guard data_guard(state.lock);
    leaving = session.leaving;
    why = session.leaving_why;
  }
  if (!leaving) why = refresh(session);
  const TimerTime now = timer_now();
  if (leaving || !why.empty() || is_over(session, now)) return finish(why);
  if (!session.paused && now >= session.saved + kSaveEvery) note_now(session);
  timer_set(work_timer, now + kCheckEvery, work);
}

// Lets the timer thread end the playback. The caller holds `lock`.
void leave(const std::string& why) {
  state.session->leaving = true;
  state.session->leaving_why = why;
  timer_set(work_timer, timer_now(), work);
}

bool is_going_on() { return state.session && !state.session->leaving; }

const char* const kNothing = "nothing is played; \"recording ID play\" plays a recording";

// Carries out what a viewer wants of the playback. change: called under both locks; returns why not.
template <typename Change>
std::string control(Change change) {
  {
    const std::lock_guard guard(state.lock);
    if (!is_going_on()) return kNothing;
    Session& session = *state.session;
    const TimerTime now = timer_now();
    move(session, position_at(session, now), now);
    if (std::string why = change(session); !why.empty()) return why;
  }
  show_wake();
  return {};
}

}  // namespace

std::optional<PlaybackShown> playback_shown() {
  const std::lock_guard guard(state.lock);
  if (!is_going_on()) return std::nullopt;
  const Session& session = *state.session;
  const PlayableRecording& recording = session.recording;
  return PlaybackShown{.instance = session.instance,
                       .recording = recording.id,
                       .title = recording.title,
                       .path = recording.path,
                       .grows = recording.runs,
                       .position = position_at(session, timer_now()),
                       .duration = length(session),
                       .jumps = session.jumps,
                       .paused = session.paused,
                       .speed = session.speed,
                       .audio = session.audio};
}

std::string playback_start(int recording, std::optional<double> from) {
  if (!remote_is_on()) return "the set is in standby";
  const std::lock_guard guard(state.changing);
  Session session;
  std::string why;
  auto found = recorder_playable(recording, why);
  if (!found) return why;
  if (why = file_problem(found->path, 0, session.size); !why.empty()) return why;
  finish("");  // of what was played before; its position may be this one's beginning
  found = recorder_playable(recording, why);
  if (!found) return why;
  session.recording = std::move(*found);
  const double left = session.recording.resume;
  const double wanted = from ? *from : left;
  if (wanted > length(session)) {
    if (from) return "the recording has only " + std::to_string(session.recording.duration) + " s";
  } else {
    session.position = wanted;
  }
  session.since = session.saved = timer_now();
  const std::string url = session.recording.url;
  std::uint32_t instance = 0;
  {
    const std::lock_guard data_guard(state.lock);
    session.instance = instance = ++state.latest;
    state.session = std::move(session);
    state.last_end.clear();
  }
  find_tracks(*state.session);
  note_now(*state.session);
  service_send(instance, TVAPI_PUS_PLAY_CMD_PREPARE, 0);
  service_send_start(instance, url);
  timer_set(work_timer, timer_now() + kCheckEvery, work);
  if (!remote_is_on()) playback_leave();  // the set went to standby meanwhile
  show_wake();
  return {};
}

std::string playback_stop() {
  const std::lock_guard guard(state.changing);
  if (!state.session) return kNothing;
  finish("");
  return {};
}

std::string playback_pause(bool paused) {
  const std::lock_guard guard(state.changing);
  bool changes = false;
  std::string why = control([&](Session& session) {
    changes = std::exchange(session.paused, paused) != paused;
    return std::string();
  });
  if (!why.empty() || !changes) return why;
  note_now(*state.session);
  service_send(state.session->instance, paused ? TVAPI_PUS_PLAY_CMD_PAUSE : TVAPI_PUS_PLAY_CMD_RESUME, 0);
  return {};
}

std::string playback_seek(double position, bool from_here) {
  const std::lock_guard guard(state.changing);
  std::string why = control([&](Session& session) {
    const double last = session.recording.runs ? std::max(length(session) - kLiveDistance, 0.0) : length(session);
    session.position = std::clamp(from_here ? session.position + position : position, 0.0, last);
    ++session.jumps;
    return std::string();
  });
  if (!why.empty()) return why;
  const double target = state.session->position;
  note(*state.session, status_of(*state.session), target);
  service_send(state.session->instance, TVAPI_PUS_PLAY_CMD_SEEK, static_cast<INT32>(target));
  return {};
}

std::string playback_set_speed(double speed) {
  const std::lock_guard guard(state.changing);
  return control([speed](Session& session) {
    if (!(speed >= kSlowest && speed <= kFastest)) return std::string("a speed is 0.25 to 8");
    session.speed = speed;
    return std::string();
  });
}

std::string playback_choose_audio(std::size_t number) {
  const std::lock_guard guard(state.changing);
  return control([number](Session& session) {
    if (session.tracks.empty()) return std::string("the recording has no sound");
    if (number < 1 || number > session.tracks.size())
      return "a sound track is 1 to " + std::to_string(session.tracks.size());
    session.audio = static_cast<int>(number);
    return std::string();
  });
}

bool playback_press_stop() { return playback_stop().empty(); }

bool playback_press_pause() {
  const auto shown = playback_shown();
  return shown && playback_pause(!shown->paused).empty();
}

bool playback_press_skip(double by) { return playback_seek(by, true).empty(); }

void playback_leave() {
  const std::lock_guard guard(state.lock);
  if (is_going_on()) leave("");
}

void playback_leave_recording(int recording) {
  const std::lock_guard guard(state.lock);
  if (is_going_on() && state.session->recording.id == recording) leave("the recording was deleted");
}

void playback_end() {
  const std::lock_guard guard(state.changing);
  finish("");
}

void playback_follow(std::uint32_t instance, std::uint64_t jumps, double position) {
  const std::lock_guard guard(state.lock);
  if (!is_going_on() || state.session->instance != instance || state.session->jumps != jumps) return;
  state.session->position = position;
  state.session->since = timer_now();
}

void playback_player_ended(std::uint32_t instance, std::uint64_t jumps, const std::string& why) {
  const std::lock_guard guard(state.lock);
  if (!is_going_on() || state.session->instance != instance) return;
  if (why.empty() && state.session->jumps != jumps) return;
  if (why.empty()) state.session->position = length(*state.session);
  leave(why);
}

std::string playback_last_end() {
  const std::lock_guard guard(state.lock);
  return state.last_end;
}

std::optional<PlayableRecording> playback_recording(std::uint32_t instance) {
  const std::lock_guard guard(state.lock);
  if (!is_going_on() || state.session->instance != instance) return std::nullopt;
  return state.session->recording;
}

std::uint32_t playback_latest_instance() {
  const std::lock_guard guard(state.lock);
  return state.latest;
}

boost::json::object playback_describe() {
  const std::lock_guard guard(state.lock);
  if (!is_going_on()) return {};
  const Session& session = *state.session;
  boost::json::array tracks;
  for (const TunerTrack& each : session.tracks) {
    tracks.push_back({{"number", tracks.size() + 1},
                      {"language", each.language},
                      {"codec", each.codec},
                      {"impaired", each.impaired},
                      {"chosen", session.audio == static_cast<int>(tracks.size()) + 1}});
  }
  return {{"instance", session.instance},
          {"recording", session.recording.id},
          {"title", session.recording.title},
          {"channel", session.recording.channel},
          {"position_seconds", whole(position_at(session, timer_now()))},
          {"seconds", whole(length(session))},
          {"running", session.recording.runs},
          {"paused", session.paused},
          {"speed", session.speed},
          {"audio", std::move(tracks)}};
}

// ---- The room ----

// The media player's library starts with the plugin; it has nothing to do here.
INT32 IVexPb_Ctrl_Init() { return 0; }

namespace {

void load() {
  service_load();
  const std::scoped_lock guard(state.changing, state.lock);
  state.session.reset();
  state.latest = 0;
  state.last_end.clear();
}

bool reset() {
  playback_end();
  return true;
}

void report(boost::json::object& answer) {
  if (boost::json::object shown = playback_describe(); !shown.empty()) answer["playback"] = std::move(shown);
  service_report(answer);
}

}  // namespace

const Room room_playback = {
    .commands = kPlaybackCommands, .load = load, .reset = reset, .report = report, .stop = playback_end};
