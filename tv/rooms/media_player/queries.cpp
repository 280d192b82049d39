// The functions of the TV API by which applications query their players.
#include <algorithm>
#include <cmath>
#include <limits>

#include "core/text.h"
#include "rooms/media_player/api.h"

namespace {

constexpr const char* kNoRoom = "there is no room for the answer";

// The container's name. If libmpv gives several names, the one that is the file's extension, or else the first.
std::string format_of(const Session& session) {
  const std::string& names = session.facts.format;
  const std::string name = session.source ? session.source->name : "";
  const std::string extension = name.substr(name.find_last_of('.') + 1);
  const bool has = !extension.empty() && ("," + names + ",").find("," + extension + ",") != std::string::npos;
  return has ? extension : names.substr(0, names.find(','));
}

INT32 place_of_chosen(const std::vector<const PlayerTrack*>& tracks) {
  const auto chosen = std::ranges::find_if(tracks, [](const auto* each) { return each->chosen; });
  return chosen == tracks.end() ? -1 : static_cast<INT32>(chosen - tracks.begin());
}

UINT32 bounded(double number) { return static_cast<UINT32>(std::clamp(number, 0.0, 4294967295.0)); }

template <typename Number>
Number narrow(std::int64_t number) {
  return static_cast<Number>(std::clamp<std::int64_t>(number, 0, std::numeric_limits<Number>::max()));
}

}  // namespace

INT32 a_vextvapi_cb_pb_getCurPos(UINT32 player, UINT32* ret_time, UINT64* ret_byte) {
  const char* const function = __func__;
  return with_player(player, Needs::kFile, function, [&](Session& session) -> INT32 {
    if (ret_time == nullptr || ret_byte == nullptr) return refuse_player(IVEX_PB_ERROR_CODE_INV_ARG, function, kNoRoom);
    const double position = session_position(session), duration = session.facts.duration;
    *ret_time = bounded(position);
    const double part = duration > 0 ? std::min(position / duration, 1.0) : session.facts.percent / 100;
    *ret_byte = static_cast<UINT64>(part * static_cast<double>(size_of_file(session)));
    return IVEX_PB_ERROR_CODE_OK;
  });
}

INT32 a_vextvapi_cb_pb_getSpeed(UINT32 player, char* ret_speed) {
  const char* const function = __func__;
  return with_player(player, Needs::kFile, function, [&](Session& session) -> INT32 {
    if (ret_speed == nullptr) return refuse_player(IVEX_PB_ERROR_CODE_INV_ARG, function, kNoRoom);
    fill_text(ret_speed, 128, std::to_string(session.wanted.speed));
    return IVEX_PB_ERROR_CODE_OK;
  });
}

INT32 a_vextvapi_cb_pb_getMetaData(UINT32 player, INT32 type, char* ret_data) {
  const char* const function = __func__;
  return with_player(player, Needs::kFile, function, [&](Session& session) -> INT32 {
    if (ret_data == nullptr) return refuse_player(IVEX_PB_ERROR_CODE_INV_ARG, function, kNoRoom);
    if (type < PLAYER_METADATA_TITLE || type > PLAYER_METADATA_PATH)
      return refuse_player(IVEX_PB_ERROR_CODE_INV_ARG, function, "a type of metadata is 1 to 12");
    fill_text(ret_data, 128, cut_text(media_text(session, type), 127));
    return IVEX_PB_ERROR_CODE_OK;
  });
}

INT32 a_vextvapi_cb_pb_getZoomStatus(UINT32 player, char* ret_zoom) {
  const char* const function = __func__;
  return with_player(player, Needs::kPlayer, function, [&](Session& session) -> INT32 {
    if (ret_zoom == nullptr) return refuse_player(IVEX_PB_ERROR_CODE_INV_ARG, function, kNoRoom);
    std::string text = std::to_string(session.zoom.type);
    const IVEX_PB_RECT_T& rect = session.zoom.rect;
    for (const UINT32 each : {rect.x, rect.y, rect.w, rect.h}) text += " " + std::to_string(each);
    fill_text(ret_zoom, 128, text);
    return IVEX_PB_ERROR_CODE_OK;
  });
}

INT32 a_vextvapi_cb_pb_getPlayerType(UINT32 player, INT32* ret_type) {
  const char* const function = __func__;
  return with_player(player, Needs::kFile, function, [&](Session& session) -> INT32 {
    if (ret_type == nullptr) return refuse_player(IVEX_PB_ERROR_CODE_INV_ARG, function, kNoRoom);
    *ret_type = media_type(session.facts);
    return IVEX_PB_ERROR_CODE_OK;
  });
}

INT32 a_vextvapi_cb_pb_getAudInfo(UINT32 player, INT32 idx, IVEX_PB_AUD_INFO_T* ret_info) {
  const char* const function = __func__;
  return with_player(player, Needs::kFile, function, [&](Session& session) -> INT32 {
    const auto tracks = media_tracks(session.facts, TrackKind::kAudio);
    if (ret_info == nullptr || idx < 0 || static_cast<std::size_t>(idx) >= tracks.size())
      return refuse_player(IVEX_PB_ERROR_CODE_INV_ARG, function, "there is no such sound track");
    const PlayerTrack& track = *tracks[static_cast<std::size_t>(idx)];
    IVEX_PB_AUD_INFO_T info{};
    put_text(info.encType, track.codec);
    if (track.channels != 0) put_text(info.chNum, std::to_string(track.channels));
    if (track.sample_rate != 0) put_text(info.sampleRate, std::to_string(track.sample_rate));
    info.u4BitRate = narrow<UINT32>(track.bit_rate != 0 || !track.chosen ? track.bit_rate : session.facts.audio_rate);
    put_text(info.lang, track.language);
    info.impairType = track.visually_impaired  ? PLAYER_IMPAIR_VISUAL
                      : track.hearing_impaired ? PLAYER_IMPAIR_HEARING
                                               : PLAYER_IMPAIR_NONE;
    *ret_info = info;
    return IVEX_PB_ERROR_CODE_OK;
  });
}

INT32 a_vextvapi_cb_pb_getVidInfo(UINT32 player, IVEX_PB_VID_INFO_T* ret_info) {
  const char* const function = __func__;
  return with_player(player, Needs::kFile, function, [&](Session& session) -> INT32 {
    const auto tracks = media_tracks(session.facts, TrackKind::kVideo);
    if (ret_info == nullptr) return refuse_player(IVEX_PB_ERROR_CODE_INV_ARG, function, kNoRoom);
    if (tracks.empty()) return refuse_player(IVEX_PB_ERROR_CODE_NOT_SUPPORTED, function, "the file has no pictures");
    IVEX_PB_VID_INFO_T info{};
    put_text(info.encType, tracks.front()->codec);
    info.u4Width = narrow<UINT32>(session.facts.video.width);
    info.u4Height = narrow<UINT32>(session.facts.video.height);
    info.u4InstBitRate = narrow<UINT32>(session.facts.video_rate);
    *ret_info = info;
    return IVEX_PB_ERROR_CODE_OK;
  });
}

INT32 a_vextvapi_cb_pb_getSubInfo(UINT32 player, INT32 idx, IVEX_PB_SUB_INFO_T* ret_info) {
  const char* const function = __func__;
  return with_player(player, Needs::kFile, function, [&](Session& session) -> INT32 {
    const auto tracks = media_tracks(session.facts, TrackKind::kSubtitle);
    if (ret_info == nullptr || idx < 0 || static_cast<std::size_t>(idx) >= tracks.size())
      return refuse_player(IVEX_PB_ERROR_CODE_INV_ARG, function, "there is no such subtitle track");
    const PlayerTrack& track = *tracks[static_cast<std::size_t>(idx)];
    IVEX_PB_SUB_INFO_T info{};
    info.pid = narrow<UINT32>(track.pid);
    put_text(info.s_lang, track.language);
    info.subType = subtitle_type(track.codec);
    info.b_external = track.external ? 1 : 0;
    info.b_hearing_impair = track.hearing_impaired ? 1 : 0;
    *ret_info = info;
    return IVEX_PB_ERROR_CODE_OK;
  });
}

INT32 a_vextvapi_cb_pb_getMediaInfo(UINT32 player, IVEX_PB_MEDIA_INFO_T* ret_info) {
  const char* const function = __func__;
  return with_player(player, Needs::kFile, function, [&](Session& session) -> INT32 {
    if (ret_info == nullptr) return refuse_player(IVEX_PB_ERROR_CODE_INV_ARG, function, kNoRoom);
    const PlayerFacts& facts = session.facts;
    const auto video = media_tracks(facts, TrackKind::kVideo), audio = media_tracks(facts, TrackKind::kAudio);
    const auto subtitles = media_tracks(facts, TrackKind::kSubtitle);
    IVEX_PB_MEDIA_INFO_T info{};
    put_text(info.eMediaType, format_of(session));
    info.u4Duration = bounded(facts.duration);
    info.u8FileSize = static_cast<UINT64>(std::max<std::int64_t>(size_of_file(session), 0));
    if (facts.duration > 0) info.u4AvgBitrate = bounded(static_cast<double>(info.u8FileSize) * 8 / facts.duration);
    info.u2VidTrackNum = narrow<UINT16>(std::ssize(video));
    info.u2AudTrackNum = narrow<UINT16>(std::ssize(audio));
    info.u2SubTrackNum = narrow<UINT16>(std::ssize(subtitles));
    info.u1ProgramNum = info.u1TitleNum = 1;
    info.u1EditionNum = narrow<UINT8>(std::max(facts.editions, 1));
    info.u1ChapterNum = narrow<UINT8>(facts.chapters);
    // Without a chosen track the index is the number of tracks.
    const auto index = [](const auto& tracks) {
      const INT32 chosen = place_of_chosen(tracks);
      return narrow<UINT16>(chosen < 0 ? std::ssize(tracks) : chosen);
    };
    info.u2VidTrackIdx = index(video);
    info.u2AudTrackIdx = index(audio);
    info.u2SubTrackIdx = index(subtitles);
    info.u1EditionIdx = narrow<UINT8>(std::max(facts.edition - 1, 0));
    info.u1ChapterIdx = narrow<UINT8>(std::max(facts.chapter - 1, 0));
    *ret_info = info;
    return IVEX_PB_ERROR_CODE_OK;
  });
}

INT32 a_vextvapi_cb_pb_getStopInfo(UINT32 player, UINT8* ret_has_stop_info) {
  const char* const function = __func__;
  std::optional<FileIdentity> file;
  const INT32 found = with_player(player, Needs::kFile, function, [&](const Session& session) -> INT32 {
    if (ret_has_stop_info == nullptr) return refuse_player(IVEX_PB_ERROR_CODE_INV_ARG, function, kNoRoom);
    file = session.source->identity;
    return IVEX_PB_ERROR_CODE_OK;
  });
  if (found != IVEX_PB_ERROR_CODE_OK) return found;
  *ret_has_stop_info = file && bookmark_read(*file) ? 1 : 0;
  return IVEX_PB_ERROR_CODE_OK;
}

// The result is whether there is a rating, so a call that cannot be answered gives 0 too.
INT32 a_vextvapi_cb_pb_hasRating(UINT32 player, INT32* ret_age) {
  const SessionHandle session = session_find(player);
  if (session == nullptr || ret_age == nullptr) {
    refuse_call(__func__, session == nullptr ? kNoPlayer : kNoRoom);
    return 0;
  }
  const std::lock_guard guard(session->lock);
  const auto age = session->stage == Stage::kNew ? std::nullopt : media_rating(session->facts);
  if (!age) return 0;
  *ret_age = *age;
  return 1;
}

namespace {

INT32 make_thumbnail(UINT32 player, INT32 width, INT32 height, bool of_music, const char* function) {
  const SessionHandle session = session_find(player);
  const INT32 ready = with_player(player, Needs::kFile, function, [&](Session& found) -> INT32 {
    if (of_music && media_type(found.facts) != PLAYER_TYPE_MUSIC)
      return refuse_player(IVEX_PB_ERROR_CODE_NOT_SUPPORTED, function, "the file is no music");
    return IVEX_PB_ERROR_CODE_OK;
  });
  if (ready != IVEX_PB_ERROR_CODE_OK || session == nullptr) return ready;
  const INT32 result = thumbnail_make(session, width, height);
  if (result == IVEX_PB_ERROR_CODE_OK) return result;
  return refuse_player(result, function,
                       result == IVEX_PB_ERROR_CODE_NOT_READY ? "a picture is being made already"
                       : result == IVEX_PB_ERROR_CODE_INV_ARG ? "a picture has 1 to 1920 pixels each way"
                                                              : "there is no picture of this file");
}

}  // namespace

INT32 a_vextvapi_cb_pb_thumbnailAsync(UINT32 player, INT32 width, INT32 height) {
  return make_thumbnail(player, width, height, false, __func__);
}

INT32 a_vextvapi_cb_pb_mp3CoverAsync(UINT32 player, INT32 width, INT32 height) {
  return make_thumbnail(player, width, height, true, __func__);
}

INT32 a_vextvapi_cb_pb_get_thumbnail(UINT32 player, char* ret_thumbnail) {
  const char* const function = __func__;
  std::string path;
  const INT32 found = with_player(player, Needs::kFile, function, [&](Session& session) -> INT32 {
    if (ret_thumbnail == nullptr) return refuse_player(IVEX_PB_ERROR_CODE_INV_ARG, function, kNoRoom);
    path = session.thumbnail;
    return path.empty() ? refuse_player(IVEX_PB_ERROR_CODE_NOT_READY, function, "no picture has been made") : 0;
  });
  if (found != IVEX_PB_ERROR_CODE_OK) return found;
  const std::string text = thumbnail_text(path);
  if (text.empty())
    return refuse_player(IVEX_PB_ERROR_CODE_FAILED, function, "the picture is gone, or longer than 96 KiB");
  fill_text(ret_thumbnail, PLAYER_THUMBNAIL_SIZE, text);
  return IVEX_PB_ERROR_CODE_OK;
}
