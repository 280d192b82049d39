// The players of applications: the functions of the TV API.
#include "rooms/media_player/api.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "rooms/multiview/multiview.h"
#include "rooms/remote/remote.h"
#include "rooms/screen/show.h"
#include "vex_tv_ctrl/playback.h"

namespace {

constexpr UINT32 kPanel[] = {kPanelWidth, kPanelHeight};
constexpr double kMostZoom = 8;
constexpr INT32 kMostSubtitleDelay = 60'000;              // ms
constexpr double kLines = 720;                            // height of the picture, in the units of PlayerLook
constexpr double kSmall = 40, kMedium = 55, kLarge = 75;  // height of letters, in those units
constexpr UINT32 kWidestEdge = 20;
constexpr INT32 kFastSteps[] = {200, 400, 800};
constexpr INT32 kBackSteps[] = {-200, -400, -800};
constexpr INT32 kSlowSteps[] = {50, 25, 13};

bool has_picture(const Session& session) { return media_type(session.facts) == PLAYER_TYPE_VIDEO; }

INT32 set_speed(Session& session, INT32 percent, const char* function) {
  const bool right = (percent >= PLAYER_SPEED_SLOWEST && percent <= PLAYER_SPEED_FASTEST) ||
                     (percent <= -PLAYER_SPEED_USUAL && percent >= -PLAYER_SPEED_FASTEST);
  if (!right && percent < 0 && percent > -PLAYER_SPEED_USUAL)
    return refuse_player(IVEX_PB_ERROR_CODE_NOT_SUPPORTED, function, "slow backwards is not supported");
  if (!right)
    return refuse_player(IVEX_PB_ERROR_CODE_INV_ARG, function,
                         "a speed is 10 to 800 percent, or -100 to -800 backwards");
  if (percent < 0 && (!has_picture(session) || !session.facts.seekable))
    return refuse_player(IVEX_PB_ERROR_CODE_NOT_SUPPORTED, function, "the file cannot be shown backwards");
  session.wanted.speed = percent;
  session.wanted.paused = false;
  return IVEX_PB_ERROR_CODE_OK;
}

// Sets the speed to the step after the present one; after the last step, and from any other speed, to the first step.
INT32 step_speed(UINT32 handle, std::span<const INT32> steps, const char* function) {
  return with_player(handle, Needs::kPlaying, function, [&](Session& session) {
    const auto at = std::ranges::find(steps, session.wanted.speed);
    const bool is_last = at == steps.end() || at + 1 == steps.end();
    return set_speed(session, is_last ? steps.front() : *(at + 1), function);
  });
}

void seek(Session& session, double place, bool percent) {
  session.wanted.seek = place;
  session.wanted.seek_percent = percent;
  ++session.wanted.seeks;
}

INT32 check_seekable(const Session& session, const char* function) {
  return session.facts.seekable
             ? INT32{IVEX_PB_ERROR_CODE_OK}
             : refuse_player(IVEX_PB_ERROR_CODE_NOT_SUPPORTED, function, "the file cannot be sought in");
}

// Chooses a subtitle track by its index, among the closed captions or among all subtitles; -1: none.
INT32 choose_subtitle(UINT32 handle, INT32 idx, bool captions, const char* function) {
  return with_player(handle, Needs::kPlaying, function, [&](Session& session) -> INT32 {
    if (idx == -1) {
      session.wanted.subtitle = 0;
      return IVEX_PB_ERROR_CODE_OK;
    }
    std::vector<const PlayerTrack*> tracks = media_tracks(session.facts, TrackKind::kSubtitle);
    if (captions)
      std::erase_if(tracks, [](const auto* each) { return subtitle_type(each->codec) != T_CBROWSER_PB_SBTL_CC; });
    if (idx < 0 || static_cast<std::size_t>(idx) >= tracks.size())
      return refuse_player(IVEX_PB_ERROR_CODE_INV_ARG, function,
                           "the file has " + std::to_string(tracks.size()) +
                               (captions ? " closed captions" : " subtitle tracks") + "; there is no " +
                               std::to_string(idx));
    session.wanted.subtitle = tracks[static_cast<std::size_t>(idx)]->number;
    return IVEX_PB_ERROR_CODE_OK;
  });
}

// ---- How subtitles look ----

// iconv's names, by IVEX_PB_CTRL_SBTL_FONT_ENC_T.
constexpr const char* kEncodings[] = {"auto",      "UTF-8",     "UTF-16",     "BIG5",      "GB2312",    "GB18030",
                                      "CP1250",    "CP1251",    "CP1252",     "CP1253",    "CP1254",    "CP1255",
                                      "CP1256",    "CP1257",    "CP1258",     "ISO8859-2", "ISO8859-5", "ISO8859-7",
                                      "ISO8859-8", "ISO8859-9", "ISO8859-16", "KOI8-R"};
static_assert(std::size(kEncodings) == IVEX_PB_CTRL_SBTL_FONT_ENC_KOI8_R + 1);

std::string colour_text(const IVEX_PB_COLOR_T& colour) {
  constexpr const char* kDigits = "0123456789ABCDEF";
  std::string text = "#";
  for (const UINT8 part : {colour.ui1_alpha, colour.ui1_r, colour.ui1_g, colour.ui1_b}) {
    text += kDigits[part >> 4];
    text += kDigits[part & 15];
  }
  return text;
}

bool is_on_panel(const IVEX_PB_RECT_T& rect) {
  return rect.w != 0 && rect.h != 0 && rect.w <= kPanel[0] && rect.h <= kPanel[1] && rect.x <= kPanel[0] - rect.w &&
         rect.y <= kPanel[1] - rect.h;
}

const char* const kOnPanel = "the rectangle is not on the panel of 1920x1080";

INT32 set_font(PlayerLook& look, const IVEX_PB_FONT_T& font, const char* function) {
  constexpr double kSizes[] = {kSmall, kMedium, kLarge};
  if (font.e_size_type < 0 || font.e_size_type > 3 || (font.e_size_type == 3 && font.ui1_custom_size == 0))
    return refuse_player(IVEX_PB_ERROR_CODE_INV_ARG, function, "a size is 0 to 3, and a custom one 1 to 255");
  look.size = font.e_size_type == 3 ? font.ui1_custom_size : kSizes[font.e_size_type];
  return IVEX_PB_ERROR_CODE_OK;
}

INT32 set_attribute(PlayerLook& look, const IVEX_PB_CTRL_SBTL_ATTR_T& attribute, const char* function) {
  const auto delay = static_cast<INT32>(attribute.t_time_offset.ui4_value);
  switch (attribute.e_type) {
    case IVEX_PB_CTRL_SBTL_ATTR_TYPE_TIME_OFST:
      if (attribute.t_time_offset.e_type != 2)
        look.subtitle_delay = 0;
      else if (delay < -kMostSubtitleDelay || delay > kMostSubtitleDelay)
        return refuse_player(IVEX_PB_ERROR_CODE_INV_ARG, function, "a time offset is at most 60000 ms");
      else
        look.subtitle_delay = delay / 1000.0;
      break;
    case IVEX_PB_CTRL_SBTL_ATTR_TYPE_FONT_ENC:
      if (attribute.e_font_enc < 0 || attribute.e_font_enc > IVEX_PB_CTRL_SBTL_FONT_ENC_KOI8_R)
        return refuse_player(IVEX_PB_ERROR_CODE_INV_ARG, function, "an encoding is 0 to 21");
      look.encoding = kEncodings[attribute.e_font_enc];
      break;
    case IVEX_PB_CTRL_SBTL_ATTR_TYPE_FNT_INFO:
      return set_font(look, attribute.t_font, function);
    case IVEX_PB_CTRL_SBTL_ATTR_TYPE_BKG_CLR:
      look.back_colour = colour_text(attribute.t_color);
      break;
    case IVEX_PB_CTRL_SBTL_ATTR_TYPE_TXT_CLR:
      look.text_colour = colour_text(attribute.t_color);
      break;
    case IVEX_PB_CTRL_SBTL_ATTR_TYPE_EDG_CLR:
      look.edge_colour = colour_text(attribute.t_color);
      break;
    case IVEX_PB_CTRL_SBTL_ATTR_TYPE_EDG_WIDTH:
      if (attribute.ui4_edge_width > kWidestEdge)
        return refuse_player(IVEX_PB_ERROR_CODE_INV_ARG, function, "an edge's width is 0 to 20");
      look.edge_width = attribute.ui4_edge_width;
      break;
    case IVEX_PB_CTRL_SBTL_ATTR_TYPE_DISP_RECT:
      if (!is_on_panel(attribute.t_rect)) return refuse_player(IVEX_PB_ERROR_CODE_INV_ARG, function, kOnPanel);
      look.subtitle_line = 100.0 * (attribute.t_rect.y + attribute.t_rect.h) / kPanel[1];
      look.subtitle_margin = attribute.t_rect.x * kLines / kPanel[1];
      break;
    default:
      return refuse_player(IVEX_PB_ERROR_CODE_NOT_SUPPORTED, function,
                           "there is no subtitle attribute " + std::to_string(attribute.e_type));
  }
  return IVEX_PB_ERROR_CODE_OK;
}

}  // namespace

INT32 refuse_player(INT32 code, const char* function, const std::string& why) {
  refuse_call(function, why);
  return code;
}

INT32 check_stage(const Session& session, Needs needs, const char* function) {
  if (needs == Needs::kPlayer) return IVEX_PB_ERROR_CODE_OK;
  switch (session.leaving ? Stage::kStopped : session.stage) {
    case Stage::kNew:
      return refuse_player(IVEX_PB_ERROR_CODE_NOT_READY, function, "the player's file has not been opened");
    case Stage::kOpening:
      return refuse_player(IVEX_PB_ERROR_CODE_NOT_READY, function, "the player's file is still being opened");
    case Stage::kFailed:
      return refuse_player(IVEX_PB_ERROR_CODE_NOT_READY, function, "the player has failed: " + session.reason);
    case Stage::kStopped:
    case Stage::kEnded:
      if (needs == Needs::kPlaying)
        return refuse_player(IVEX_PB_ERROR_CODE_NOT_READY, function, "the player has stopped; play begins again");
      return IVEX_PB_ERROR_CODE_OK;
    case Stage::kReady:
      return IVEX_PB_ERROR_CODE_OK;
  }
  return IVEX_PB_ERROR_CODE_NOT_READY;
}

std::int64_t size_of_file(const Session& session) {
  return session.source && session.source->identity ? session.source->identity->size : session.facts.size;
}

// ---- A player's life ----

UINT32 a_vextvapi_cb_pb_init(INT32, INT32, const char*, INT32, const char*, const char* media_path) {
  if (media_path == nullptr || *media_path == '\0') {
    refuse_call(__func__, "the path is missing");
    return 0;
  }
  return session_create(media_path)->handle;
}

INT32 a_vextvapi_cb_pb_deinit(UINT32 player) {
  const SessionHandle session = session_find(player);
  if (session == nullptr) return refuse_player(IVEX_PB_ERROR_CODE_INV_HANDLE, __func__, kNoPlayer);
  session_end(session);
  return IVEX_PB_ERROR_CODE_OK;
}

INT32 a_vextvapi_cb_pb_register_callback(UINT32 player, a_vextvapi_cb_pb_nfy_fct callback, void* tag) {
  return with_player(player, Needs::kPlayer, __func__, [&](Session& session) -> INT32 {
    if (callback == nullptr)
      return refuse_player(IVEX_PB_ERROR_CODE_INV_ARG, "a_vextvapi_cb_pb_register_callback", "the callback is null");
    session.callback = callback;
    session.tag = tag;
    return IVEX_PB_ERROR_CODE_OK;
  });
}

INT32 a_vextvapi_cb_pb_open(UINT32 player) {
  const SessionHandle session = session_find(player);
  if (session == nullptr) return refuse_player(IVEX_PB_ERROR_CODE_INV_HANDLE, __func__, kNoPlayer);
  std::string path;
  {
    const std::lock_guard guard(session->lock);
    if (session->stage != Stage::kNew)
      return refuse_player(IVEX_PB_ERROR_CODE_FAILED, __func__, "the player's file was opened already");
    path = session->path;
  }
  if (!remote_is_on()) return refuse_player(IVEX_PB_ERROR_CODE_FAILED, __func__, "the set is in standby");
  std::string why;
  INT32 code = IVEX_PB_ERROR_CODE_FAILED;
  if (!session_open(session, path, std::nullopt, true, why, code)) return refuse_player(code, __func__, why);
  show_wake();
  return IVEX_PB_ERROR_CODE_OK;
}

// ---- Playing ----

INT32 a_vextvapi_cb_pb_play(UINT32 player) {
  const SessionHandle session = session_find(player);
  if (session == nullptr) return refuse_player(IVEX_PB_ERROR_CODE_INV_HANDLE, __func__, kNoPlayer);
  if (!remote_is_on()) return refuse_player(IVEX_PB_ERROR_CODE_FAILED, __func__, "the set is in standby");
  std::optional<FileIdentity> marked;
  {
    const std::lock_guard guard(session->lock);
    if (session->uses_bookmark && session->source && !session->played) marked = session->source->identity;
  }
  const std::optional<double> left = marked ? bookmark_read(*marked) : std::nullopt;
  const std::lock_guard guard(session->lock);
  if (session->stage == Stage::kNew || session->stage == Stage::kFailed)
    return check_stage(*session, Needs::kFile, __func__);
  const bool again = session->leaving || is_over(session->stage);
  if (session->blocked && !again)
    return refuse_player(IVEX_PB_ERROR_CODE_BLOCKED, __func__, "the file is locked by its age rating");
  session->wanted.paused = false;
  session->wanted.speed = PLAYER_SPEED_USUAL;
  if (again) {
    // The thread has not come to the stop yet, and will find another opening in its place.
    if (session->leaving)
      session_post(session, PLAYER_EVENT_STOPPED, static_cast<std::int64_t>(session->facts.position));
    session->wanted.from = kWhereLeft;
    session_restart(*session);
  } else if (left && !session->played) {
    seek(*session, *left, false);
  }
  session->played = true;
  session->woken = true;
  session->wake.notify_one();
  return IVEX_PB_ERROR_CODE_OK;
}

INT32 a_vextvapi_cb_pb_pause(UINT32 player) {
  const SessionHandle session = session_find(player);
  if (session == nullptr) return refuse_player(IVEX_PB_ERROR_CODE_INV_HANDLE, __func__, kNoPlayer);
  const std::lock_guard guard(session->lock);
  if (session->stage != Stage::kOpening || session->leaving) {
    const INT32 ready = check_stage(*session, Needs::kPlaying, __func__);
    if (ready != IVEX_PB_ERROR_CODE_OK) return ready;
  }
  session->wanted.paused = true;
  session->woken = true;
  session->wake.notify_one();
  return IVEX_PB_ERROR_CODE_OK;
}

INT32 a_vextvapi_cb_pb_stop(UINT32 player) {
  const SessionHandle session = session_find(player);
  if (session == nullptr) return refuse_player(IVEX_PB_ERROR_CODE_INV_HANDLE, __func__, kNoPlayer);
  const std::lock_guard guard(session->lock);
  if (session->stage == Stage::kNew || session->stage == Stage::kFailed)
    return check_stage(*session, Needs::kFile, __func__);
  session->leaving = !is_over(session->stage);
  session->woken = true;
  session->wake.notify_one();
  return IVEX_PB_ERROR_CODE_OK;
}

INT32 a_vextvapi_cb_pb_FF(UINT32 player) { return step_speed(player, kFastSteps, __func__); }
INT32 a_vextvapi_cb_pb_FR(UINT32 player) { return step_speed(player, kBackSteps, __func__); }
INT32 a_vextvapi_cb_pb_SF(UINT32 player) { return step_speed(player, kSlowSteps, __func__); }

INT32 a_vextvapi_cb_pb_SR(UINT32 player) {
  const char* const function = __func__;
  return with_player(player, Needs::kPlaying, function, [&](Session&) {
    return refuse_player(IVEX_PB_ERROR_CODE_NOT_SUPPORTED, function, "slow backwards is not supported");
  });
}

INT32 a_vextvapi_cb_pb_setSpeed(UINT32 player, INT32 speed) {
  const char* const function = __func__;
  return with_player(player, Needs::kPlaying, function,
                     [&](Session& session) { return set_speed(session, speed, function); });
}

INT32 a_vextvapi_cb_pb_step(UINT32 player) {
  const char* const function = __func__;
  return with_player(player, Needs::kPlaying, function, [&](Session& session) -> INT32 {
    if (!has_picture(session))
      return refuse_player(IVEX_PB_ERROR_CODE_NOT_SUPPORTED, function, "the file has no pictures");
    session.wanted.paused = true;
    session.wanted.step_back = false;
    ++session.wanted.steps;
    return IVEX_PB_ERROR_CODE_OK;
  });
}

INT32 a_vextvapi_cb_pb_timeSeek(UINT32 player, UINT32 time) {
  const char* const function = __func__;
  return with_player(player, Needs::kPlaying, function, [&](Session& session) -> INT32 {
    if (session.facts.duration > 0 && time > session.facts.duration)
      return refuse_player(IVEX_PB_ERROR_CODE_INV_ARG, function,
                           "the file has only " + std::to_string(std::lround(session.facts.duration)) + " s");
    const INT32 able = check_seekable(session, function);
    if (able == IVEX_PB_ERROR_CODE_OK) seek(session, time, false);
    return able;
  });
}

INT32 a_vextvapi_cb_pb_byteSeek(UINT32 player, double position) {
  const char* const function = __func__;
  return with_player(player, Needs::kPlaying, function, [&](Session& session) -> INT32 {
    const auto size = static_cast<double>(size_of_file(session));
    if (size <= 0) return refuse_player(IVEX_PB_ERROR_CODE_NOT_SUPPORTED, function, "the file's size is not known");
    if (!(position >= 0 && position <= size))
      return refuse_player(IVEX_PB_ERROR_CODE_INV_ARG, function,
                           "the file has only " + std::to_string(size_of_file(session)) + " bytes");
    const INT32 able = check_seekable(session, function);
    if (able == IVEX_PB_ERROR_CODE_OK) seek(session, position / size * 100, true);
    return able;
  });
}

INT32 a_vextvapi_cb_pb_setRepeat(UINT32 player, INT32 repeat) {
  const char* const function = __func__;
  return with_player(player, Needs::kPlayer, function, [&](Session& session) -> INT32 {
    if (repeat == PLAYER_REPEAT_FOLDER)
      return refuse_player(IVEX_PB_ERROR_CODE_NOT_SUPPORTED, function,
                           "an application's player can only repeat its file");
    if (repeat != PLAYER_REPEAT_OFF && repeat != PLAYER_REPEAT_ONE)
      return refuse_player(IVEX_PB_ERROR_CODE_INV_ARG, function, "a repeat is 0 or 1");
    session.wanted.repeat = repeat == PLAYER_REPEAT_ONE ? Repeat::kOne : Repeat::kOff;
    return IVEX_PB_ERROR_CODE_OK;
  });
}

INT32 a_vextvapi_cb_pb_selectAud(UINT32 player, INT32 idx, INT32) {
  const char* const function = __func__;
  return with_player(player, Needs::kPlaying, function, [&](Session& session) -> INT32 {
    const auto tracks = media_tracks(session.facts, TrackKind::kAudio);
    if (idx < 0 || static_cast<std::size_t>(idx) >= tracks.size())
      return refuse_player(
          IVEX_PB_ERROR_CODE_INV_ARG, function,
          "the file has " + std::to_string(tracks.size()) + " sound tracks; there is no " + std::to_string(idx));
    session.wanted.audio = tracks[static_cast<std::size_t>(idx)]->number;
    return IVEX_PB_ERROR_CODE_OK;
  });
}

INT32 a_vextvapi_cb_pb_selectSub(UINT32 player, INT32 idx) { return choose_subtitle(player, idx, false, __func__); }
INT32 a_vextvapi_cb_pb_selectCC(UINT32 player, INT32 idx) { return choose_subtitle(player, idx, true, __func__); }
INT32 a_vextvapi_cb_pb_stopSub(UINT32 player) { return choose_subtitle(player, -1, false, __func__); }

INT32 a_vextvapi_cb_pb_setSubtitleShowHide(UINT32 player, UINT8 show) {
  return with_player(player, Needs::kPlayer, __func__, [&](Session& session) -> INT32 {
    session.wanted.look.subtitles_shown = show != 0;
    return IVEX_PB_ERROR_CODE_OK;
  });
}

INT32 a_vextvapi_cb_pb_setSubtitleAttr(UINT32 player, const IVEX_PB_CTRL_SBTL_ATTR_T* attribute) {
  const char* const function = __func__;
  return with_player(player, Needs::kPlayer, function, [&](Session& session) -> INT32 {
    if (attribute == nullptr) return refuse_player(IVEX_PB_ERROR_CODE_INV_ARG, function, "the attribute is missing");
    return set_attribute(session.wanted.look, *attribute, function);
  });
}

INT32 a_vextvapi_cb_pb_display(UINT32 player, UINT32 x, UINT32 y, UINT32 w, UINT32 h) {
  const char* const function = __func__;
  const INT32 result = with_player(player, Needs::kPlayer, function, [&](Session& session) -> INT32 {
    const bool none = (x | y | w | h) == 0;
    if (!none && !is_on_panel({.x = x, .y = y, .w = w, .h = h}))
      return refuse_player(IVEX_PB_ERROR_CODE_INV_ARG, function, kOnPanel);
    session.region = {.x = x, .y = y, .width = w, .height = h};
    return IVEX_PB_ERROR_CODE_OK;
  });
  show_wake();
  return result;
}

INT32 a_vextvapi_cb_pb_zoom(UINT32 player, INT32 type, UINT32 x, UINT32 y, UINT32 w, UINT32 h) {
  const char* const function = __func__;
  return with_player(player, Needs::kPlayer, function, [&](Session& session) -> INT32 {
    const IVEX_PB_RECT_T rect{.x = x, .y = y, .w = w, .h = h};
    if (type < PLAYER_ZOOM_OFF || type > PLAYER_ZOOM_2X)
      return refuse_player(IVEX_PB_ERROR_CODE_INV_ARG, function, "a zoom is 0 to 3");
    if (type == PLAYER_ZOOM_RECT && (!is_on_panel(rect) || w * kMostZoom < kPanel[0] || h * kMostZoom < kPanel[1]))
      return refuse_player(IVEX_PB_ERROR_CODE_INV_ARG, function,
                           std::string(kOnPanel) + ", or smaller than an eighth of it");
    session.zoom = {.type = type, .rect = type == PLAYER_ZOOM_RECT ? rect : IVEX_PB_RECT_T{}};
    session.wanted.look = look_with_zoom(session.wanted.look, session.zoom);
    return IVEX_PB_ERROR_CODE_OK;
  });
}

INT32 a_vextvapi_cb_pb_unblockRating(UINT32 player) {
  return with_player(player, Needs::kPlaying, __func__, [&](Session& session) -> INT32 {
    session.unblocked = true;
    if (std::exchange(session.blocked, false)) session.wanted.paused = false;
    return IVEX_PB_ERROR_CODE_OK;
  });
}

INT32 a_vextvapi_cb_pb_setStopInfo(UINT32 player, UINT8 use) {
  return with_player(player, Needs::kPlayer, __func__, [&](Session& session) -> INT32 {
    session.uses_bookmark = use != 0;
    return IVEX_PB_ERROR_CODE_OK;
  });
}

INT32 a_vextvapi_cb_pb_saveStopInfo(UINT32 player) {
  const char* const function = __func__;
  std::optional<FileIdentity> file;
  double position = 0;
  const INT32 found = with_player(player, Needs::kFile, function, [&](const Session& session) -> INT32 {
    file = session.source->identity;
    position = session.stage == Stage::kEnded ? 0 : session_position(session);
    return IVEX_PB_ERROR_CODE_OK;
  });
  if (found != IVEX_PB_ERROR_CODE_OK) return found;
  if (!file)
    return refuse_player(IVEX_PB_ERROR_CODE_NOT_SUPPORTED, function, "positions in a server's file are not saved");
  return bookmark_save(*file, position) ? IVEX_PB_ERROR_CODE_OK : IVEX_PB_ERROR_CODE_FAILED;
}
