/* The media player. A player is a handle. */
#ifndef TVAPI_PLAYBACK_TYPES_H
#define TVAPI_PLAYBACK_TYPES_H

#include "tvapi/types.h"

/* Results, of those that somebody here needs by name; others are the platform's. */
typedef enum {
  IVEX_PB_ERROR_CODE_OK = 0,
  IVEX_PB_ERROR_CODE_INV_HANDLE = -2,
  IVEX_PB_ERROR_CODE_NOT_READY = -9
} IVEX_PB_ERROR_CODE_T;

/* The player's event that a thumbnail has been made: the only one whose data is an address. */
enum { PLAYER_EVENT_THUMBNAIL = 19 };

/* Room for a thumbnail, in characters. */
#define PLAYER_THUMBNAIL_SIZE 131072

/* --- What a file contains --- */

typedef struct {
  char encType[32];
  char chNum[32];
  char sampleRate[16];
  UINT32 u4BitRate;
  char lang[4];
  UINT32 impairType;
  UINT32 u4RefLang;
} IVEX_PB_AUD_INFO_T;

typedef struct {
  char encType[16];
  UINT32 u4Width;  /* pixels */
  UINT32 u4Height; /* pixels */
  UINT32 u4InstBitRate;
} IVEX_PB_VID_INFO_T;

typedef struct {
  UINT32 pid;
  char s_lang[16];
  INT32 subType; /* a T_CBROWSER_PB_SBTL_TYPE_T */
  UINT8 b_external;
  UINT8 b_hearing_impair;
} IVEX_PB_SUB_INFO_T;

typedef struct {
  char eMediaType[16];
  UINT32 u4AvgBitrate;
  UINT32 u4Duration;
  UINT64 u8FileSize; /* bytes */
  UINT16 u2VidTrackNum;
  UINT16 u2AudTrackNum;
  UINT16 u2SubTrackNum;
  UINT8 u1ProgramNum;
  UINT8 u1TitleNum;
  UINT8 u1EditionNum;
  UINT8 u1ChapterNum;
  UINT16 u2VidTrackIdx;
  UINT16 u2AudTrackIdx;
  UINT16 u2SubTrackIdx;
  UINT16 u2AudDmxIdx;
  UINT8 u1ProgramIdx;
  UINT8 u1TitleIdx;
  UINT8 u1EditionIdx;
  UINT8 u1ChapterIdx;
} IVEX_PB_MEDIA_INFO_T;

/* --- How subtitles look --- */

typedef enum {
  IVEX_PB_CTRL_SBTL_ATTR_TYPE_TIME_OFST = 4,
  IVEX_PB_CTRL_SBTL_ATTR_TYPE_FONT_ENC = 5,
  IVEX_PB_CTRL_SBTL_ATTR_TYPE_FNT_INFO = 8,
  IVEX_PB_CTRL_SBTL_ATTR_TYPE_BKG_CLR = 9,
  IVEX_PB_CTRL_SBTL_ATTR_TYPE_TXT_CLR = 10,
  IVEX_PB_CTRL_SBTL_ATTR_TYPE_EDG_CLR = 11,
  IVEX_PB_CTRL_SBTL_ATTR_TYPE_EDG_WIDTH = 12,
  IVEX_PB_CTRL_SBTL_ATTR_TYPE_DISP_RECT = 16
} IVEX_PB_CTRL_SBTL_ATTR_TYPE_T;

/* Character encodings of subtitles, from the first to the last. */
typedef enum {
  IVEX_PB_CTRL_SBTL_FONT_ENC_AUTO = 0,
  IVEX_PB_CTRL_SBTL_FONT_ENC_UTF8 = 1,
  IVEX_PB_CTRL_SBTL_FONT_ENC_KOI8_R = 21
} IVEX_PB_CTRL_SBTL_FONT_ENC_T;

typedef struct {
  UINT32 x;
  UINT32 y;
  UINT32 w;
  UINT32 h;
} IVEX_PB_RECT_T;

typedef struct {
  char s_font_name[32];
  UINT32 ui4_cmap_tag; /* four letters, the first in the highest byte */
  INT32 e_size_type;   /* 0: small, 1: medium, 2: large, 3: the custom size */
  UINT8 ui1_custom_size;
} IVEX_PB_FONT_T;

typedef struct {
  UINT8 ui1_alpha;
  UINT8 ui1_r;
  UINT8 ui1_g;
  UINT8 ui1_b;
} IVEX_PB_COLOR_T;

typedef struct {
  INT32 e_type; /* 0: off, 1: automatic, 2: the value */
  UINT32 ui4_value;
} IVEX_PB_TIME_OFFSET_T;

/* One attribute: its type, and the member that belongs to it. The others are 0. */
typedef struct {
  INT32 e_type;     /* an IVEX_PB_CTRL_SBTL_ATTR_TYPE_T */
  INT32 e_font_enc; /* an IVEX_PB_CTRL_SBTL_FONT_ENC_T */
  IVEX_PB_RECT_T t_rect;
  IVEX_PB_FONT_T t_font;
  IVEX_PB_COLOR_T t_color;
  UINT32 ui4_edge_width;
  IVEX_PB_TIME_OFFSET_T t_time_offset;
} IVEX_PB_CTRL_SBTL_ATTR_T;

#endif

#include "tvapi/begin.h"

TVAPI_RECORD(IVEX_PB_AUD_INFO_T, encType, chNum, sampleRate, u4BitRate, lang, impairType, u4RefLang)
TVAPI_RECORD(IVEX_PB_VID_INFO_T, encType, u4Width, u4Height, u4InstBitRate)
TVAPI_RECORD(IVEX_PB_SUB_INFO_T, pid, s_lang, subType, b_external, b_hearing_impair)
TVAPI_RECORD(IVEX_PB_MEDIA_INFO_T, eMediaType, u4AvgBitrate, u4Duration, u8FileSize, u2VidTrackNum, u2AudTrackNum,
             u2SubTrackNum, u1ProgramNum, u1TitleNum, u1EditionNum, u1ChapterNum, u2VidTrackIdx, u2AudTrackIdx,
             u2SubTrackIdx, u2AudDmxIdx, u1ProgramIdx, u1TitleIdx, u1EditionIdx, u1ChapterIdx)
TVAPI_RECORD(IVEX_PB_RECT_T, x, y, w, h)
TVAPI_RECORD(IVEX_PB_FONT_T, s_font_name, ui4_cmap_tag, e_size_type, ui1_custom_size)
TVAPI_RECORD(IVEX_PB_COLOR_T, ui1_alpha, ui1_r, ui1_g, ui1_b)
TVAPI_RECORD(IVEX_PB_TIME_OFFSET_T, e_type, ui4_value)
TVAPI_RECORD(IVEX_PB_CTRL_SBTL_ATTR_T, e_type, e_font_enc, t_rect, t_font, t_color, ui4_edge_width, t_time_offset)

/* Initialises the playback control library. The plugin calls it first at start-up. Returns 0; anything else makes the
 * start-up fail, and the plugin may call it again. */
TVAPI_FN(INT32, IVexPb_Ctrl_Init)

/* All others return an IVEX_PB_ERROR_CODE_T: 0, negative on failure. */

/* --- A player's life --- */

/* Creates a player for a file or a stream. mode_1, mode_2 and info are the application's numbers; profile and protocol
 * may be null. Returns a handle, 0 on failure. */
TVAPI_FN(UINT32, a_vextvapi_cb_pb_init, IN(INT32, mode_1), IN(INT32, mode_2), IN_TEXT(profile), IN(INT32, info),
         IN_TEXT(protocol), IN_TEXT(media_path))
TVAPI_FN(INT32, a_vextvapi_cb_pb_deinit, IN(UINT32, player))

/* Called by the platform, on a thread of its own, when something happens to a player. type is in the platform's
 * numbers; data is a number, or with PLAYER_EVENT_THUMBNAIL the address of the picture's path, which lasts for the
 * call. */
TVAPI_CALLBACK(INT32, a_vextvapi_cb_pb_nfy_fct, IN(INT32, type), TAG(void*, tag),
               IN_ADDRESS(char, data, type == PLAYER_EVENT_THUMBNAIL), IN(UINT32, arg2), IN(UINT32, arg3),
               IN(UINT32, arg4))

/* Registers the callback of a player, until the player is destroyed. */
TVAPI_FN(INT32, a_vextvapi_cb_pb_register_callback, IN(UINT32, player), CALLBACK(a_vextvapi_cb_pb_nfy_fct, callback),
         TAG(void*, tag))

/* Opens the player's file. */
TVAPI_FN(INT32, a_vextvapi_cb_pb_open, IN(UINT32, player))

/* --- Playing --- */

TVAPI_FN(INT32, a_vextvapi_cb_pb_play, IN(UINT32, player))
TVAPI_FN(INT32, a_vextvapi_cb_pb_pause, IN(UINT32, player))
TVAPI_FN(INT32, a_vextvapi_cb_pb_stop, IN(UINT32, player))
TVAPI_FN(INT32, a_vextvapi_cb_pb_FF, IN(UINT32, player))   /* fast forward */
TVAPI_FN(INT32, a_vextvapi_cb_pb_FR, IN(UINT32, player))   /* fast, backwards */
TVAPI_FN(INT32, a_vextvapi_cb_pb_SF, IN(UINT32, player))   /* slow forward */
TVAPI_FN(INT32, a_vextvapi_cb_pb_SR, IN(UINT32, player))   /* slow, backwards */
TVAPI_FN(INT32, a_vextvapi_cb_pb_step, IN(UINT32, player)) /* the next picture */
TVAPI_FN(INT32, a_vextvapi_cb_pb_setSpeed, IN(UINT32, player), IN(INT32, speed))
TVAPI_FN(INT32, a_vextvapi_cb_pb_timeSeek, IN(UINT32, player), IN(UINT32, time))
TVAPI_FN(INT32, a_vextvapi_cb_pb_byteSeek, IN(UINT32, player), IN(double, position))
TVAPI_FN(INT32, a_vextvapi_cb_pb_setRepeat, IN(UINT32, player), IN(INT32, repeat))

/* Choose a track by its index. dmx_idx: of the sound inside its stream. */
TVAPI_FN(INT32, a_vextvapi_cb_pb_selectAud, IN(UINT32, player), IN(INT32, idx), IN(INT32, dmx_idx))
TVAPI_FN(INT32, a_vextvapi_cb_pb_selectSub, IN(UINT32, player), IN(INT32, idx))
TVAPI_FN(INT32, a_vextvapi_cb_pb_selectCC, IN(UINT32, player), IN(INT32, idx))

/* Subtitles: stop them, show or hide them, change how they look. */
TVAPI_FN(INT32, a_vextvapi_cb_pb_stopSub, IN(UINT32, player))
TVAPI_FN(INT32, a_vextvapi_cb_pb_setSubtitleShowHide, IN(UINT32, player), IN(UINT8, show))
TVAPI_FN(INT32, a_vextvapi_cb_pb_setSubtitleAttr, IN(UINT32, player), IN_RECORD(IVEX_PB_CTRL_SBTL_ATTR_T, attribute))

/* The picture: where it stands on the screen, and which part of it is enlarged. */
TVAPI_FN(INT32, a_vextvapi_cb_pb_display, IN(UINT32, player), IN(UINT32, x), IN(UINT32, y), IN(UINT32, w),
         IN(UINT32, h))
TVAPI_FN(INT32, a_vextvapi_cb_pb_zoom, IN(UINT32, player), IN(INT32, type), IN(UINT32, x), IN(UINT32, y), IN(UINT32, w),
         IN(UINT32, h))

/* Plays on, after the viewer has entered the password for a rated file. */
TVAPI_FN(INT32, a_vextvapi_cb_pb_unblockRating, IN(UINT32, player))

/* The position at which the playing of the file stopped, with which it can go on later: use it or not, save it. */
TVAPI_FN(INT32, a_vextvapi_cb_pb_setStopInfo, IN(UINT32, player), IN(UINT8, use))
TVAPI_FN(INT32, a_vextvapi_cb_pb_saveStopInfo, IN(UINT32, player))

/* --- Queries --- */

TVAPI_FN(INT32, a_vextvapi_cb_pb_getCurPos, IN(UINT32, player), OUT(UINT32, time), OUT(UINT64, byte))
TVAPI_FN(INT32, a_vextvapi_cb_pb_getSpeed, IN(UINT32, player), OUT_TEXT(speed, 128))
TVAPI_FN(INT32, a_vextvapi_cb_pb_getMetaData, IN(UINT32, player), IN(INT32, type), OUT_TEXT(data, 128))
TVAPI_FN(INT32, a_vextvapi_cb_pb_getZoomStatus, IN(UINT32, player), OUT_TEXT(zoom, 128))
TVAPI_FN(INT32, a_vextvapi_cb_pb_getPlayerType, IN(UINT32, player), OUT(INT32, type))
TVAPI_FN(INT32, a_vextvapi_cb_pb_getAudInfo, IN(UINT32, player), IN(INT32, idx), OUT(IVEX_PB_AUD_INFO_T, info))
TVAPI_FN(INT32, a_vextvapi_cb_pb_getVidInfo, IN(UINT32, player), OUT(IVEX_PB_VID_INFO_T, info))
TVAPI_FN(INT32, a_vextvapi_cb_pb_getSubInfo, IN(UINT32, player), IN(INT32, idx), OUT(IVEX_PB_SUB_INFO_T, info))
TVAPI_FN(INT32, a_vextvapi_cb_pb_getMediaInfo, IN(UINT32, player), OUT(IVEX_PB_MEDIA_INFO_T, info))
TVAPI_FN(INT32, a_vextvapi_cb_pb_getStopInfo, IN(UINT32, player), OUT(UINT8, has_stop_info))

/* Returns whether the file has a rating, and tells its age. */
TVAPI_FN(INT32, a_vextvapi_cb_pb_hasRating, IN(UINT32, player), OUT(INT32, age))

/* Start to make a picture of the file, at most so many pixels wide and high; an event tells the end. */
TVAPI_FN(INT32, a_vextvapi_cb_pb_thumbnailAsync, IN(UINT32, player), IN(INT32, width), IN(INT32, height))
TVAPI_FN(INT32, a_vextvapi_cb_pb_mp3CoverAsync, IN(UINT32, player), IN(INT32, width), IN(INT32, height))

/* Reads the picture that was made, as a text. */
TVAPI_FN(INT32, a_vextvapi_cb_pb_get_thumbnail, IN(UINT32, player), OUT_TEXT(thumbnail, PLAYER_THUMBNAIL_SIZE))

#include "tvapi/end.h"
