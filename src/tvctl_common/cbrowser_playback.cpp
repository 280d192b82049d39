// Media players. The plugin keeps none: each request brings the player's handle.
#include <stdlib.h>

#include <optional>

#include "tvapi/playback.h"
#include "tvctl_common/cbrowser_rows.h"
#include "tvctl_common/record.h"

// --- Creating and destroying ---

// The player's callback, on the platform's thread.
static INT32 _tv_ctrl_player_nfy_fct(INT32 type, void* tag, void* data, UINT32 arg2, UINT32 arg3, UINT32 arg4) {
  T_CBROWSER_PB_NOTIFY notify = {.type = type,
                                 .tag = tvc_unsigned_of(tag),
                                 .arg1 = reinterpret_cast<intptr_t>(data),
                                 .arg2 = arg2,
                                 .arg3 = arg3,
                                 .arg4 = arg4};
  tvc_notify(TV_CTRL_RECID_WS_NFY_CBROWSER_PLAYBACK, &notify);
  return VEXTVCTRLR_OK;
}

// Returns null for an empty text.
static const char* text_or_null(const char* text) { return text[0] ? text : nullptr; }

// Returns the tag that the platform hands back with each event. Without a tag from the application it is the content
// record's address, which is never dereferenced.
static void* event_tag(T_CBROWSER_PB& playback) {
  T_CBROWSER_PB_INIT_INFO& init = playback.u.t_cbrowser_pb_init_info;
  if (init.pvTag == 0) {
    init.pvTag = tvc_number_of(&playback);
    if (init.pvTag != 0) return &playback;
    init.pvTag = 1;  // the lower 32 bits of a longer address may be 0
  }
  return reinterpret_cast<void*>(static_cast<intptr_t>(init.pvTag));
}

INT32 tvc_player_create(const RecordRequest& request) {
  T_CBROWSER_PB& playback = tvc_content<T_CBROWSER_PB>(request);
  T_CBROWSER_PB_INIT_INFO& init = playback.u.t_cbrowser_pb_init_info;
  tvc_end_text(init.sprofile);
  tvc_end_text(init.sprotocal);
  tvc_end_text(init.smediaPath);
  if (!init.smediaPath[0]) return VEXTVCTRLR_INV_ARG;
  playback.pb_handle = a_vextvapi_cb_pb_init(init.bMode, init.oMode, text_or_null(init.sprofile), init.sInfo,
                                             text_or_null(init.sprotocal), init.smediaPath);
  if (playback.pb_handle == 0) return VEX_ACTION_FAIL;
  INT32 ret = a_vextvapi_cb_pb_register_callback(playback.pb_handle, _tv_ctrl_player_nfy_fct, event_tag(playback));
  if (tvc_failed(ret, request.operation)) return VEX_ACTION_FAIL;
  ret = a_vextvapi_cb_pb_open(playback.pb_handle);
  return tvc_failed(ret, request.operation) ? VEX_ACTION_FAIL : VEX_OK;
}

INT32 tvc_player_destroy(const RecordRequest& request) {
  return tvc_checked(request, a_vextvapi_cb_pb_deinit(tvc_content<T_CBROWSER_PB>(request).pb_handle));
}

// --- Operators that a call of one function does not carry out ---

// Reads the picture into a block of its own, with one byte more than the platform may write. The block belongs to the
// record from then on, also after a failure.
static INT32 get_thumbnail(UINT32 player, T_CBROWSER_PB_OPER_INFO& info) {
  info.getthumbnailasyncbuffer = static_cast<char*>(calloc(1, PLAYER_THUMBNAIL_SIZE + 1));
  if (!info.getthumbnailasyncbuffer) return VEXTVCTRLR_OUT_OF_MEMORY;
  return a_vextvapi_cb_pb_get_thumbnail(player, info.getthumbnailasyncbuffer);
}

// The queries below fill a record of the platform, whose numbers are narrower. A query that fails leaves the result as
// it was.

static INT32 get_audio_info(UINT32 player, T_CBROWSER_PB_OPER_INFO& info) {
  IVEX_PB_AUD_INFO_T found = {};
  const INT32 ret = a_vextvapi_cb_pb_getAudInfo(player, info.getaudinfoidx, &found);
  if (ret < 0) return ret;
  T_CBROWSER_PB_AUD_INFO_T& result = info.getaudinfo;
  result = {};
  tvc_copy_text(result.encType, found.encType);
  tvc_copy_text(result.chNum, found.chNum);
  tvc_copy_text(result.sampleRate, found.sampleRate);
  result.u4BitRate = found.u4BitRate;
  tvc_copy_text(result.lang, found.lang);
  result.impairType = found.impairType;
  result.u4RefLang = found.u4RefLang;
  return ret;
}

static INT32 get_video_info(UINT32 player, T_CBROWSER_PB_OPER_INFO& info) {
  IVEX_PB_VID_INFO_T found = {};
  const INT32 ret = a_vextvapi_cb_pb_getVidInfo(player, &found);
  if (ret < 0) return ret;
  T_CBROWSER_PB_VID_INFO_T& result = info.getvidinfo;
  result = {};
  tvc_copy_text(result.encType, found.encType);
  result.u4Width = found.u4Width;
  result.u4Height = found.u4Height;
  result.u4InstBitRate = found.u4InstBitRate;
  return ret;
}

static INT32 get_subtitle_info(UINT32 player, T_CBROWSER_PB_OPER_INFO& info) {
  IVEX_PB_SUB_INFO_T found = {};
  const INT32 ret = a_vextvapi_cb_pb_getSubInfo(player, info.getsubinfoidx, &found);
  if (ret < 0) return ret;
  T_CBROWSER_PB_SUB_INFO_T& result = info.getsubinfo;
  result = {};
  result.pid = found.pid;
  tvc_copy_text(result.s_lang, found.s_lang);
  result.subType = found.subType;
  result.b_external = found.b_external;
  result.b_hearing_impair = found.b_hearing_impair;
  return ret;
}

static INT32 get_media_info(UINT32 player, T_CBROWSER_PB_OPER_INFO& info) {
  IVEX_PB_MEDIA_INFO_T found = {};
  const INT32 ret = a_vextvapi_cb_pb_getMediaInfo(player, &found);
  if (ret < 0) return ret;
  T_CBROWSER_PB_MEDIA_INFO_T& result = info.getmediainfo;
  result = {};
  tvc_copy_text(result.eMediaType, found.eMediaType);
  result.u4AvgBitrate = found.u4AvgBitrate;
  result.u4Duration = found.u4Duration;
  result.u8FileSize = found.u8FileSize;
  result.u2VidTrackNum = found.u2VidTrackNum;
  result.u2AudTrackNum = found.u2AudTrackNum;
  result.u2SubTrackNum = found.u2SubTrackNum;
  result.u1ProgramNum = found.u1ProgramNum;
  result.u1TitleNum = found.u1TitleNum;
  result.u1EditionNum = found.u1EditionNum;
  result.u1ChapterNum = found.u1ChapterNum;
  result.u2VidTrackIdx = found.u2VidTrackIdx;
  result.u2AudTrackIdx = found.u2AudTrackIdx;
  result.u2SubTrackIdx = found.u2SubTrackIdx;
  result.u2AudDmxIdx = found.u2AudDmxIdx;
  result.u1ProgramIdx = found.u1ProgramIdx;
  result.u1TitleIdx = found.u1TitleIdx;
  result.u1EditionIdx = found.u1EditionIdx;
  result.u1ChapterIdx = found.u1ChapterIdx;
  return ret;
}

static INT32 get_stop_info(UINT32 player, T_CBROWSER_PB_OPER_INFO& info) {
  UINT8 has_stop_info = 0;
  const INT32 ret = a_vextvapi_cb_pb_getStopInfo(player, &has_stop_info);
  if (ret >= 0) info.bgethasstopinfo = has_stop_info;
  return ret;
}

static INT32 get_rating_info(UINT32 player, T_CBROWSER_PB_OPER_INFO& info) {
  info.hasRating = a_vextvapi_cb_pb_hasRating(player, &info.ratingAge);
  return IVEX_PB_ERROR_CODE_OK;
}

// --- How subtitles look ---

// Sets one subtitle attribute. member: the one that carries the value for the type.
template <typename Value>
static INT32 set_subtitle(UINT32 player, IVEX_PB_CTRL_SBTL_ATTR_TYPE_T type, Value IVEX_PB_CTRL_SBTL_ATTR_T::*member,
                          const Value& value) {
  IVEX_PB_CTRL_SBTL_ATTR_T attribute = {};
  attribute.e_type = type;
  attribute.*member = value;
  return a_vextvapi_cb_pb_setSubtitleAttr(player, &attribute);
}

// Returns a number, or 0 if it is not from `first` to `last`.
static INT32 known_or_0(INT32 number, INT32 first, INT32 last) {
  return number >= first && number <= last ? number : 0;
}

static INT32 set_subtitle_encoding(UINT32 player, const T_CBROWSER_PB_OPER_INFO& info) {
  const INT32 encoding =
      known_or_0(info.setsubencinfo, IVEX_PB_CTRL_SBTL_FONT_ENC_UTF8, IVEX_PB_CTRL_SBTL_FONT_ENC_KOI8_R);
  return set_subtitle(player, IVEX_PB_CTRL_SBTL_ATTR_TYPE_FONT_ENC, &IVEX_PB_CTRL_SBTL_ATTR_T::e_font_enc, encoding);
}

static INT32 set_subtitle_rect(UINT32 player, const T_CBROWSER_PB_OPER_INFO& info) {
  const T_CBROWSER_PB_RECT_T& rect = info.setsubdisplayrect;
  return set_subtitle(player, IVEX_PB_CTRL_SBTL_ATTR_TYPE_DISP_RECT, &IVEX_PB_CTRL_SBTL_ATTR_T::t_rect,
                      {.x = rect.u4X, .y = rect.u4Y, .w = rect.u4W, .h = rect.u4H});
}

static INT32 set_subtitle_font(UINT32 player, const T_CBROWSER_PB_OPER_INFO& info) {
  static constexpr UINT32 kUnicodeMap = 0x756E6963;  // "unic"
  const T_CBROWSER_PB_FNT_SIZE_INFO& size = info.setsubfontsizeinfo;
  return set_subtitle(
      player, IVEX_PB_CTRL_SBTL_ATTR_TYPE_FNT_INFO, &IVEX_PB_CTRL_SBTL_ATTR_T::t_font,
      {.s_font_name = "fnt_Default",
       .ui4_cmap_tag = kUnicodeMap,
       .e_size_type = known_or_0(size.e_font_size_type, CBROWSER_PB_FNT_SIZE_MEDIUM, CBROWSER_PB_FNT_SIZE_CUSTOM),
       .ui1_custom_size = static_cast<UINT8>(size.u1CustomSize)});
}

static INT32 set_subtitle_color(UINT32 player, IVEX_PB_CTRL_SBTL_ATTR_TYPE_T type, const T_CBROWSER_PB_COLOR_T& color) {
  return set_subtitle(player, type, &IVEX_PB_CTRL_SBTL_ATTR_T::t_color,
                      {.ui1_alpha = static_cast<UINT8>(color.u1Alpha),
                       .ui1_r = static_cast<UINT8>(color.u1R),
                       .ui1_g = static_cast<UINT8>(color.u1G),
                       .ui1_b = static_cast<UINT8>(color.u1B)});
}

static INT32 set_subtitle_edge_width(UINT32 player, const T_CBROWSER_PB_OPER_INFO& info) {
  return set_subtitle(player, IVEX_PB_CTRL_SBTL_ATTR_TYPE_EDG_WIDTH, &IVEX_PB_CTRL_SBTL_ATTR_T::ui4_edge_width,
                      static_cast<UINT32>(info.setsubedgwidth));
}

static INT32 set_subtitle_time_offset(UINT32 player, const T_CBROWSER_PB_OPER_INFO& info) {
  const T_CBROWSER_PB_SBTL_TIME_OFST_T& offset = info.setsubtimeoffset;
  return set_subtitle(
      player, IVEX_PB_CTRL_SBTL_ATTR_TYPE_TIME_OFST, &IVEX_PB_CTRL_SBTL_ATTR_T::t_time_offset,
      {.e_type = known_or_0(offset.eTimeOfst, T_CBROWSER_PB_SBTL_TIME_OFST_AUTO, T_CBROWSER_PB_SBTL_TIME_OFST_USER_DEF),
       .ui4_value = offset.u4OfstValue});
}

// --- The operators ---

// Carries out an operator as its row in playback.def says. Returns the platform's result; none for a number without a
// row.
static std::optional<INT32> operate(UINT32 player, INT32 number, T_CBROWSER_PB_OPER_INFO& info) {
  switch (number) {
#define TVC_OPERATOR(symbol, number, word, call) \
  case CBROWSER_PB_OPERATOR_##symbol:            \
    return call;
#define TVC_OPERATOR_WITHOUT_WORD(symbol, number, call) TVC_OPERATOR(symbol, number, "", call)
#include "vex_tv_ctrl/playback.def"
    default:
      return std::nullopt;
  }
}

INT32 tvc_player_operate(const RecordRequest& request) {
  T_CBROWSER_PB& playback = tvc_content<T_CBROWSER_PB>(request);
  T_CBROWSER_PB_OPER_INFO& info = playback.u.t_cbrowser_pb_oper_info;
  const std::optional<INT32> ret = operate(playback.pb_handle, playback.pb_operator, info);
  if (!ret) return VEXTVCTRLR_NOT_IMPLEMENT;
  tvc_end_text(info.s_speed);
  tvc_end_text(info.getMetaData);
  tvc_end_text(info.s_zoomStatus);
  tvc_failed(*ret, request.operation);
  return *ret;
}
