#include "rooms/screen/player/player.h"

#include <algorithm>
#include <cstdio>
#include <deque>
#include <future>
#include <mutex>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "rooms/screen/player/library.h"

using std::chrono::steady_clock;

struct Player {
  std::shared_ptr<PacketRing> ring;
  std::mutex readers_lock = {};                          // guards the readers
  std::deque<std::unique_ptr<RingReader>> readers = {};  // the newest is last
  mpv_handle* handle = nullptr;
  mpv_render_context* renderer = nullptr;
  steady_clock::time_point next_frame = {};  // earlier pictures are skipped
  steady_clock::time_point opened = {};      // when it began to play the stream
  steady_clock::time_point reopen = kNever;  // when the broken stream is played again
  std::vector<std::string> complained = {};  // the player's modules that have reported an error
  static constexpr steady_clock::time_point kNever = steady_clock::time_point::max();
};

namespace {

constexpr const char* kScheme = "dtv";
constexpr const char* kAddress = "dtv://";
constexpr std::size_t kMostReaders = 8;      // of one player; it reads one stream at a time
constexpr std::size_t kMostComplaints = 16;  // kinds of errors that a player prints
// A stream is joined in the middle, so that decoders first complain about what they have not got. Not printed.
constexpr std::chrono::milliseconds kJoinTime{1000};

struct Option {
  const char* name;
  const char* value;
};

// A broadcast is hostile: only this ring, as a transport stream, with bounded memory, and no scripts or other files.
constexpr Option kOptions[] = {
    {"config", "no"},
    {"terminal", "no"},
    {"load-scripts", "no"},
    {"ytdl", "no"},
    {"osc", "no"},
    {"input-default-bindings", "no"},
    {"access-references", "no"},
    {"sub-auto", "no"},
    {"audio-file-auto", "no"},
    {"idle", "yes"},
    {"vo", "libmpv"},
    {"ao", "null"},
    {"hwdec", "no"},
    {"osd-level", "0"},
    {"sid", "no"},
    {"audio-display", "no"},
    {"demuxer", "lavf"},
    {"demuxer-lavf-format", "mpegts"},
    {"demuxer-lavf-probesize", "200000"},
    {"demuxer-lavf-analyzeduration", "0.5"},
    {"demuxer-max-bytes", "8MiB"},
    {"demuxer-max-back-bytes", "0"},
    {"cache", "no"},
    {"vd-lavc-threads", "2"},
    {"vd-lavc-o", "max_pixels=8912896"},  // 4096x2176
    {"sws-fast", "yes"},
    {"sws-scaler", "fast-bilinear"},
    {"zimg-fast", "yes"},
};

bool succeeded(int result, const char* what, std::string& ret_error) {
  if (result >= 0) return true;
  ret_error = std::string("the player refuses ") + what + ": " + mpv_library().mpv_error_string(result);
  return false;
}

// ---- The stream: called on the player's threads ----

std::int64_t read_stream(void* cookie, char* bytes, std::uint64_t room) {
  return static_cast<std::int64_t>(ring_read(*static_cast<RingReader*>(cookie), {bytes, room}));
}

void cancel_stream(void* cookie) { ring_cancel(*static_cast<RingReader*>(cookie)); }

// libmpv may cancel a stream that it has closed already, so a reader outlives its stream.
void close_stream(void*) {}

int open_stream(void* context, char*, mpv_stream_cb_info* ret_info) {
  Player& player = *static_cast<Player*>(context);
  const std::lock_guard guard(player.readers_lock);
  player.readers.push_back(ring_read_from_lead(player.ring));
  if (player.readers.size() > kMostReaders) player.readers.pop_front();
  ret_info->cookie = player.readers.back().get();
  ret_info->read_fn = read_stream;
  ret_info->cancel_fn = cancel_stream;
  ret_info->close_fn = close_stream;
  return 0;
}

// ---- The player ----

void open(Player& player) {
  const char* words[] = {"loadfile", kAddress, "replace", nullptr};
  player.opened = steady_clock::now();
  player.reopen = Player::kNever;
  mpv_library().mpv_command_async(player.handle, 0, words);
}

bool set_up(Player& player, const PlayerWake& wake, std::string& ret_error) {
  const MpvLibrary& mpv = mpv_library();
  player.handle = mpv.mpv_create();
  if (player.handle == nullptr) {
    ret_error = "the player cannot be created";
    return false;
  }
  for (const Option& option : kOptions)
    if (!succeeded(mpv.mpv_set_option_string(player.handle, option.name, option.value), option.name, ret_error))
      return false;
  mpv.mpv_request_log_messages(player.handle, "error");
  if (!succeeded(mpv.mpv_initialize(player.handle), "to start", ret_error)) return false;
  if (!succeeded(mpv.mpv_stream_cb_add_ro(player.handle, kScheme, &player, open_stream), "the stream", ret_error))
    return false;
  std::string type = MPV_RENDER_API_TYPE_SW;
  mpv_render_param parameters[] = {{MPV_RENDER_PARAM_API_TYPE, type.data()}, {MPV_RENDER_PARAM_INVALID, nullptr}};
  if (!succeeded(mpv.mpv_render_context_create(&player.renderer, player.handle, parameters), "to render", ret_error))
    return false;
  mpv.mpv_set_wakeup_callback(player.handle, wake.wake, wake.context);
  mpv.mpv_render_context_set_update_callback(player.renderer, wake.wake, wake.context);
  return true;
}

void destroy(Player* player) {
  const MpvLibrary& mpv = mpv_library();
  if (player->renderer != nullptr) mpv.mpv_render_context_free(player->renderer);
  if (player->handle != nullptr) mpv.mpv_terminate_destroy(player->handle);
  delete player;
}

// Prints the first error of each module: a broken broadcast causes hundreds a second.
void complain(Player& player, const mpv_event_log_message& message) {
  const std::string module = message.prefix;
  if (steady_clock::now() - player.opened < kJoinTime) return;
  if (player.complained.size() >= kMostComplaints ||
      std::ranges::find(player.complained, module) != player.complained.end())
    return;
  player.complained.push_back(module);
  std::string_view text = message.text;
  while (text.ends_with('\n')) text.remove_suffix(1);
  std::fprintf(stderr, "dtv_tv: the picture's player: %s: %.*s\n", module.c_str(),
               static_cast<int>(std::min<std::size_t>(text.size(), 200)), text.data());
}

void take_events(Player& player) {
  while (true) {
    const mpv_event* const event = mpv_library().mpv_wait_event(player.handle, 0);
    if (event->event_id == MPV_EVENT_NONE) return;
    if (event->event_id == MPV_EVENT_LOG_MESSAGE)
      complain(player, *static_cast<const mpv_event_log_message*>(event->data));
    // A stop is ours: another stream follows.
    if (event->event_id == MPV_EVENT_END_FILE &&
        static_cast<const mpv_event_end_file*>(event->data)->reason != MPV_END_FILE_REASON_STOP)
      player.reopen = steady_clock::now() + kReopenTime;
  }
}

// Takes the player's picture; skips: without rendering it.
bool render(Player& player, bool skips, Canvas& ret_canvas) {
  int size[] = {kScreenWidth, kScreenHeight};
  std::string format = "bgr0";
  std::size_t stride = kScreenStride;
  int waits = 0;
  int skipping = skips ? 1 : 0;
  mpv_render_param parameters[] = {{MPV_RENDER_PARAM_SW_SIZE, size},
                                   {MPV_RENDER_PARAM_SW_FORMAT, format.data()},
                                   {MPV_RENDER_PARAM_SW_STRIDE, &stride},
                                   {MPV_RENDER_PARAM_SW_POINTER, ret_canvas.pixels.data()},
                                   {MPV_RENDER_PARAM_BLOCK_FOR_TARGET_TIME, &waits},
                                   {MPV_RENDER_PARAM_SKIP_RENDERING, &skipping},
                                   {MPV_RENDER_PARAM_INVALID, nullptr}};
  return mpv_library().mpv_render_context_render(player.renderer, parameters) >= 0 && !skips;
}

}  // namespace

std::string player_trouble() { return mpv_library().trouble; }

PlayerHandle player_start(std::shared_ptr<PacketRing> ring, const PlayerWake& wake, std::string& ret_error) {
  if (std::string trouble = player_trouble(); !trouble.empty()) {
    ret_error = std::move(trouble);
    return nullptr;
  }
  PlayerHandle player(new Player{.ring = std::move(ring)});
  if (!set_up(*player, wake, ret_error)) return nullptr;
  open(*player);
  return player;
}

void PlayerEnd::operator()(Player* player) const {
  std::promise<void> ended;
  const std::future<void> end = ended.get_future();
  std::thread closer;
  try {
    closer = std::thread([player, told = std::move(ended)]() mutable {
      destroy(player);
      told.set_value();
    });
  } catch (const std::system_error&) {  // no thread is left: it ends without a limit
    return destroy(player);
  }
  if (end.wait_for(kPlayerStopTime) == std::future_status::ready) return closer.join();
  std::fprintf(stderr, "dtv_tv: the picture's player does not end; it is left behind\n");
  closer.detach();
}

bool player_step(Player& player, Canvas& ret_canvas) {
  take_events(player);
  const auto now = steady_clock::now();
  if (now >= player.reopen) open(player);
  if ((mpv_library().mpv_render_context_update(player.renderer) & MPV_RENDER_UPDATE_FRAME) == 0) return false;
  if (now < player.next_frame) return render(player, true, ret_canvas);
  // A picture that comes late may be followed by one that comes half as long after it, so that the average is kept.
  player.next_frame = std::max(player.next_frame, now - kFrameTime / 2) + kFrameTime;
  return render(player, false, ret_canvas);
}
