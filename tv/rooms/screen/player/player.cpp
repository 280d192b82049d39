#include "rooms/screen/player/player.h"

#include <algorithm>
#include <cstdio>
#include <future>
#include <span>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "rooms/screen/player/parts.h"

using std::chrono::steady_clock;

namespace {

constexpr std::size_t kMostComplaints = 16;  // kinds of errors that a player prints
// A stream is joined in the middle, so that decoders first complain about what they have not got. Not printed.
constexpr std::chrono::milliseconds kJoinTime{1000};

struct Option {
  const char* name;
  const char* value;
};

// Streams are hostile: the library reads only the ring or the file, with bounded memory, and no scripts or other files.
constexpr Option kOptions[] = {
    {"config", "no"},
    {"terminal", "no"},
    {"load-scripts", "no"},
    {"load-auto-profiles", "no"},
    {"load-osd-console", "no"},
    {"load-stats-overlay", "no"},
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
    {"demuxer-max-bytes", "8MiB"},
    {"demuxer-max-back-bytes", "0"},
    {"cache", "no"},
    {"vd-lavc-threads", "2"},
    {"vd-lavc-o", "max_pixels=8912896"},  // 4096x2176
    {"sws-fast", "yes"},
    {"sws-scaler", "fast-bilinear"},
    {"zimg-fast", "yes"},
};

constexpr Option kBroadcastOptions[] = {
    {"demuxer-lavf-format", "mpegts"},
    {"demuxer-lavf-probesize", "200000"},
    {"demuxer-lavf-analyzeduration", "0.5"},
};

constexpr Option kAnyFileOptions[] = {
    {"demuxer-lavf-probesize", "2000000"},
    {"demuxer-lavf-analyzeduration", "2"},
    {"audio-display", "embedded-first"},  // the cover of an album
    {"embeddedfonts", "no"},
    {"image-display-duration", "inf"},  // a picture is played until somebody stops it
    {"sub-scale-with-window", "yes"},
};

// A server may be slower than the file plays; then playing waits while reading goes on.
constexpr Option kServerOptions[] = {
    {"cache", "yes"},
    {"cache-on-disk", "no"},
    {"cache-pause-wait", "1"},
    {"demuxer-readahead-secs", "20"},
};

// Else the library reads the file's end for its duration, and waits there for more.
constexpr Option kGrowingOption = {"demuxer-lavf-o", "skip_estimate_duration_from_pts=1"};

bool succeeded(int result, const char* what, std::string& ret_error) {
  if (result >= 0) return true;
  ret_error = std::string("the player refuses ") + what + ": " + mpv_library().mpv_error_string(result);
  return false;
}

// ---- The player ----

void open(Player& player) {
  const char* words[] = {"loadfile", kStreamAddress, "replace", nullptr};
  player.opened = steady_clock::now();
  player.reopen = player.begun = Player::kNever;
  player.facts.tracks.clear();
  player.facts.video = {};
  player.asked_audio = player.asked_subtitle = Player::kUnknown;
  mpv_library().mpv_command_async(player.handle, 0, words);
}

bool set_option(Player& player, const Option& option, std::string& ret_error) {
  return succeeded(mpv_library().mpv_set_option_string(player.handle, option.name, option.value), option.name,
                   ret_error);
}

bool set_options(Player& player, std::span<const Option> options, std::string& ret_error) {
  return std::ranges::all_of(options, [&](const Option& each) { return set_option(player, each, ret_error); });
}

bool set_file_options(Player& player, const PlayerFile& file, std::string& ret_error) {
  const std::string from = std::to_string(file.from), speed = std::to_string(file.speed);
  const std::string audio = file.audio == 0 ? "auto" : std::to_string(file.audio);
  const Option options[] = {{"speed", speed.c_str()},
                            {"pause", file.paused ? "yes" : "no"},
                            {"aid", audio.c_str()},
                            {"audio-pitch-correction", "no"},  // nobody hears it
                            // A transport stream has no index: the library finds a place that may be somewhat too late.
                            {"hr-seek-demuxer-offset", "1.5"}};
  const std::span<const Option> format = file.broadcast ? std::span<const Option>(kBroadcastOptions) : kAnyFileOptions;
  return set_options(player, format, ret_error) && set_options(player, options, ret_error) &&
         (!file.repeats || set_option(player, {"loop-file", "inf"}, ret_error)) &&
         (file.address.empty() || set_options(player, kServerOptions, ret_error)) &&
         (file.from <= 0 || set_option(player, {"start", from.c_str()}, ret_error)) &&
         (!file.grows || set_option(player, kGrowingOption, ret_error));
}

bool create(Player& player, std::string& ret_error) {
  if (std::string trouble = player_trouble(); !trouble.empty()) {
    ret_error = std::move(trouble);
    return false;
  }
  player.handle = mpv_library().mpv_create();
  if (player.handle == nullptr) ret_error = "the player cannot be created";
  return player.handle != nullptr && set_options(player, kOptions, ret_error);
}

bool set_up(Player& player, const PlayerWake& wake, std::string& ret_error) {
  const MpvLibrary& mpv = mpv_library();
  mpv.mpv_request_log_messages(player.handle, "error");
  if (!succeeded(mpv.mpv_initialize(player.handle), "to start", ret_error)) return false;
  if (!succeeded(streams_offer(player), "the stream", ret_error)) return false;
  if (!succeeded(facts_observe(player), "to report", ret_error)) return false;
  std::string type = MPV_RENDER_API_TYPE_SW;
  mpv_render_param parameters[] = {{MPV_RENDER_PARAM_API_TYPE, type.data()}, {MPV_RENDER_PARAM_INVALID, nullptr}};
  if (!succeeded(mpv.mpv_render_context_create(&player.renderer, player.handle, parameters), "to render", ret_error))
    return false;
  mpv.mpv_set_wakeup_callback(player.handle, wake.wake, wake.context);
  mpv.mpv_render_context_set_update_callback(player.renderer, wake.wake, wake.context);
  open(player);
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
    if (event->event_id == MPV_EVENT_NONE) return facts_settle(player);
    if (event->event_id == MPV_EVENT_LOG_MESSAGE)
      complain(player, *static_cast<const mpv_event_log_message*>(event->data));
    if (player.ring == nullptr || event->event_id == MPV_EVENT_PROPERTY_CHANGE) {
      facts_take(player, *event);
    } else if (event->event_id == MPV_EVENT_END_FILE &&
               static_cast<const mpv_event_end_file*>(event->data)->reason != MPV_END_FILE_REASON_STOP) {
      // A stop is ours: another stream follows.
      player.reopen = steady_clock::now() + kReopenTime;
    }
  }
}

// Takes the player's newest picture. skips: without rendering it; the canvas may then be null.
bool render(Player& player, bool skips, Canvas* ret_canvas) {
  int size[] = {kScreenWidth, kScreenHeight};
  if (ret_canvas != nullptr) {
    size[0] = ret_canvas->width;
    size[1] = ret_canvas->height;
  }
  std::string format = "bgr0";
  std::size_t stride = kScreenStride;
  int waits = 0;
  int skipping = skips ? 1 : 0;
  void* const pixels = ret_canvas != nullptr ? ret_canvas->pixels.data() : nullptr;
  mpv_render_param parameters[] = {{MPV_RENDER_PARAM_SW_SIZE, size},
                                   {MPV_RENDER_PARAM_SW_FORMAT, format.data()},
                                   {MPV_RENDER_PARAM_SW_STRIDE, &stride},
                                   {MPV_RENDER_PARAM_SW_POINTER, pixels},
                                   {MPV_RENDER_PARAM_BLOCK_FOR_TARGET_TIME, &waits},
                                   {MPV_RENDER_PARAM_SKIP_RENDERING, &skipping},
                                   {MPV_RENDER_PARAM_INVALID, nullptr}};
  return mpv_library().mpv_render_context_render(player.renderer, parameters) >= 0 && !skips;
}

}  // namespace

std::string player_trouble() { return mpv_library().trouble; }

void player_rest() { library_rest(); }

PlayerHandle player_start(std::shared_ptr<PacketRing> ring, const PlayerWake& wake, std::string& ret_error) {
  PlayerHandle player(new Player{.ring = std::move(ring)});
  const bool started = create(*player, ret_error) && set_options(*player, kBroadcastOptions, ret_error) &&
                       set_up(*player, wake, ret_error);
  return started ? std::move(player) : nullptr;
}

PlayerHandle player_start_file(const PlayerFile& file, const PlayerWake& wake, std::string& ret_error) {
  PlayerHandle player(new Player);
  player->media = !file.broadcast;
  if (!file.address.empty()) {
    player->http = std::make_shared<HttpSource>();
    player->http->address = file.address;
    player->http->is_near = file.is_near;
  } else {
    player->file = std::make_shared<FileSource>();
    player->file->path = file.path;
    player->file->open = file.open;
    player->file->grows = file.grows;
  }
  for (const PlayerSubtitle& each : file.subtitles) {
    if (player->subtitles.size() >= kMostSubtitleFiles) break;
    player->subtitles.push_back(std::make_shared<FileSource>());
    player->subtitles.back()->open = each.open;
    player->subtitle_files.push_back(each);
  }
  player->facts.position = file.from;
  player->facts.paused = file.paused;
  player->facts.speed = file.speed;
  const bool started =
      create(*player, ret_error) && set_file_options(*player, file, ret_error) && set_up(*player, wake, ret_error);
  return started ? std::move(player) : nullptr;
}

void PlayerEnd::operator()(Player* player) const {
  streams_end(*player);
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
  if (player.ring != nullptr) facts_follow_choice(player);
  const auto now = steady_clock::now();
  if (now >= player.reopen) open(player);
  const bool is_new = (mpv_library().mpv_render_context_update(player.renderer) & MPV_RENDER_UPDATE_FRAME) != 0;
  if (!is_new && !player.skipped) return false;
  if (now < player.next_frame) {
    if (is_new) player.skipped = true;
    return is_new && render(player, true, nullptr);
  }
  player.skipped = false;
  // A picture that comes late may be followed by one that comes half as long after it, so that the average is kept.
  player.next_frame = std::max(player.next_frame, now - kFrameTime / 2) + kFrameTime;
  return render(player, false, &ret_canvas);
}

void player_step_unseen(Player& player) {
  take_events(player);
  if (steady_clock::now() >= player.reopen) open(player);
  if ((mpv_library().mpv_render_context_update(player.renderer) & MPV_RENDER_UPDATE_FRAME) == 0) return;
  render(player, true, nullptr);
}

bool player_draw(Player& player, Canvas& ret_canvas) { return render(player, false, &ret_canvas); }
