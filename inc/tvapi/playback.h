/* The media player. A player is a handle. */
#ifndef TVAPI_PLAYBACK_TYPES_H
#define TVAPI_PLAYBACK_TYPES_H

#include "tvapi/types.h"

/* Results. All but OK, INV_HANDLE and NOT_READY are numbers that the virtual television chose. */
typedef enum {
  IVEX_PB_ERROR_CODE_OK = 0,
  IVEX_PB_ERROR_CODE_FAILED = -1,         /* any other failure */
  IVEX_PB_ERROR_CODE_INV_HANDLE = -2,     /* there is no such player */
  IVEX_PB_ERROR_CODE_NOT_READY = -9,      /* not opened, still being opened, stopped or failed */
  IVEX_PB_ERROR_CODE_INV_ARG = -10,       /* a number is out of its range, or there is no such track */
  IVEX_PB_ERROR_CODE_NOT_SUPPORTED = -11, /* not possible on this set or with this file */
  IVEX_PB_ERROR_CODE_FILE = -12,          /* the file cannot be opened or read */
  IVEX_PB_ERROR_CODE_FORMAT = -13,        /* the set cannot play this format */
  IVEX_PB_ERROR_CODE_NETWORK = -14,       /* the server cannot be reached, or does not send the file */
  IVEX_PB_ERROR_CODE_REMOVED = -15,       /* the file's stick was removed */
  IVEX_PB_ERROR_CODE_BLOCKED = -16        /* the file's age rating is locked until unblockRating */
} IVEX_PB_ERROR_CODE_T;

/* type of a player's event, in the virtual television's numbers except for THUMBNAIL, the only event whose data is an
 * address. Each comment lists data, arg2, arg3 and arg4 in this order; arguments that it does not list are 0. */
enum {
  PLAYER_EVENT_OPENED = 1,           /* PLAYER_TYPE_*, duration in s, sound tracks, subtitle tracks */
  PLAYER_EVENT_PLAYING = 2,          /* position in s */
  PLAYER_EVENT_PAUSED = 3,           /* position in s */
  PLAYER_EVENT_STOPPED = 4,          /* position in s */
  PLAYER_EVENT_END = 5,              /* of the file */
  PLAYER_EVENT_ERROR = 6,            /* an IVEX_PB_ERROR_CODE_T: the player can only be destroyed */
  PLAYER_EVENT_POSITION = 7,         /* each second while it plays: position and duration in s, percent */
  PLAYER_EVENT_SOUGHT = 8,           /* a seek has arrived: position in s */
  PLAYER_EVENT_BUFFERING = 9,        /* 1: playing waits for the server; 0: it goes on */
  PLAYER_EVENT_TRACKS = 10,          /* number of sound tracks and of subtitles; index of the chosen ones, -1: none */
  PLAYER_EVENT_VIDEO_SIZE = 11,      /* width and height in pixels, shape in thousandths (1778 is 16:9) */
  PLAYER_EVENT_SPEED = 12,           /* percent, as in setSpeed */
  PLAYER_EVENT_CHAPTER = 13,         /* its number from 1, number of chapters */
  PLAYER_EVENT_RATING_BLOCKED = 14,  /* the file's age rating; it plays after unblockRating */
  PLAYER_EVENT_THUMBNAIL = 19,       /* a picture was made: the address of its path */
  PLAYER_EVENT_THUMBNAIL_FAILED = 20 /* an IVEX_PB_ERROR_CODE_T: there can be no picture */
};

/* What a player plays. */
enum { PLAYER_TYPE_UNKNOWN = 0, PLAYER_TYPE_VIDEO = 1, PLAYER_TYPE_MUSIC = 2 };

/* type of a metadata text. A text that the file does not have is empty. */
enum {
  PLAYER_METADATA_TITLE = 1, /* without one: the file's name */
  PLAYER_METADATA_ARTIST = 2,
  PLAYER_METADATA_ALBUM = 3,
  PLAYER_METADATA_GENRE = 4,
  PLAYER_METADATA_YEAR = 5,
  PLAYER_METADATA_TRACK = 6,
  PLAYER_METADATA_COMPOSER = 7,
  PLAYER_METADATA_COMMENT = 8,
  PLAYER_METADATA_DIRECTOR = 9,
  PLAYER_METADATA_COPYRIGHT = 10,
  PLAYER_METADATA_CHAPTER = 11, /* title of the present chapter */
  PLAYER_METADATA_PATH = 12
};

/* What happens at the end of the file. FOLDER is for the viewer's player only: it is not supported here. */
enum { PLAYER_REPEAT_OFF = 0, PLAYER_REPEAT_ONE = 1, PLAYER_REPEAT_FOLDER = 2 };

/* Speeds, in percent: 100 is the usual one, 50 half of it, -400 four times backwards. Backwards, pictures are shown
 * half a second apart. FF and FR step from 200 to 800, SF from 50 to 13; the step after the last one is the first. Slow
 * and backwards (SR, -99 to -1) is not supported. */
enum { PLAYER_SPEED_USUAL = 100, PLAYER_SPEED_SLOWEST = 10, PLAYER_SPEED_FASTEST = 800 };

/* type of a zoom. getZoomStatus gives it as "TYPE X Y W H". */
enum {
  PLAYER_ZOOM_OFF = 0,  /* the whole picture */
  PLAYER_ZOOM_FILL = 1, /* the picture covers its place; what does not fit is cut off */
  PLAYER_ZOOM_RECT = 2, /* the rectangle, in pixels of a panel of 1920x1080, is enlarged; at most 8 times */
  PLAYER_ZOOM_2X = 3    /* the middle */
};

/* impairType of a sound track. */
enum { PLAYER_IMPAIR_NONE = 0, PLAYER_IMPAIR_HEARING = 1, PLAYER_IMPAIR_VISUAL = 2 };

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
 * may be null. media_path: a file of a stick, by its mount point; "recordings/NAME", a finished recording;
 * "downloads/NAME", a file fetched from a server; or an http:// address of a host of the home network. The virtual
 * television uses nothing else, and has two players: a third ends an earlier one. Returns a handle, 0 on failure. */
TVAPI_FN(UINT32, a_vextvapi_cb_pb_init, IN(INT32, mode_1), IN(INT32, mode_2), IN_TEXT(profile), IN(INT32, info),
         IN_TEXT(protocol), IN_TEXT(media_path))
TVAPI_FN(INT32, a_vextvapi_cb_pb_deinit, IN(UINT32, player))

/* Called by the platform, on a thread of its own, when something happens to a player. type is in the platform's
 * numbers; data is a number, or with PLAYER_EVENT_THUMBNAIL the address of the picture's path, which lasts for the
 * call. */
TVAPI_CALLBACK(INT32, a_vextvapi_cb_pb_nfy_fct, IN(INT32, type), TAG(void*, tag),
               IN_ADDRESS(char, data, type, PLAYER_EVENT_THUMBNAIL), IN(UINT32, arg2), IN(UINT32, arg3),
               IN(UINT32, arg4))

/* Registers the callback of a player, until the player is destroyed. */
TVAPI_FN(INT32, a_vextvapi_cb_pb_register_callback, IN(UINT32, player), CALLBACK(a_vextvapi_cb_pb_nfy_fct, callback),
         TAG(void*, tag))

/* Opens the player's file. The result comes as an event, OPENED or ERROR; then the player is paused at the beginning.
 * Until OPENED, play and pause are kept for it, and all else is NOT_READY. */
TVAPI_FN(INT32, a_vextvapi_cb_pb_open, IN(UINT32, player))

/* --- Playing --- */

TVAPI_FN(INT32, a_vextvapi_cb_pb_play, IN(UINT32, player))
TVAPI_FN(INT32, a_vextvapi_cb_pb_pause, IN(UINT32, player))
TVAPI_FN(INT32, a_vextvapi_cb_pb_stop, IN(UINT32, player))
TVAPI_FN(INT32, a_vextvapi_cb_pb_FF, IN(UINT32, player))                         /* fast forward */
TVAPI_FN(INT32, a_vextvapi_cb_pb_FR, IN(UINT32, player))                         /* fast, backwards */
TVAPI_FN(INT32, a_vextvapi_cb_pb_SF, IN(UINT32, player))                         /* slow forward */
TVAPI_FN(INT32, a_vextvapi_cb_pb_SR, IN(UINT32, player))                         /* slow, backwards */
TVAPI_FN(INT32, a_vextvapi_cb_pb_step, IN(UINT32, player))                       /* the next picture */
TVAPI_FN(INT32, a_vextvapi_cb_pb_setSpeed, IN(UINT32, player), IN(INT32, speed)) /* percent */
/* time: s. A byte position becomes the same part of the duration: formats have no times for bytes. */
TVAPI_FN(INT32, a_vextvapi_cb_pb_timeSeek, IN(UINT32, player), IN(UINT32, time))
TVAPI_FN(INT32, a_vextvapi_cb_pb_byteSeek, IN(UINT32, player), IN(double, position))
TVAPI_FN(INT32, a_vextvapi_cb_pb_setRepeat, IN(UINT32, player), IN(INT32, repeat))

/* Choose a track by its index from 0, among those of its kind; -1: no subtitles. dmx_idx: of the sound inside its
 * stream; not used, as a stream has one. Closed captions are the subtitles of type CC. */
TVAPI_FN(INT32, a_vextvapi_cb_pb_selectAud, IN(UINT32, player), IN(INT32, idx), IN(INT32, dmx_idx))
TVAPI_FN(INT32, a_vextvapi_cb_pb_selectSub, IN(UINT32, player), IN(INT32, idx))
TVAPI_FN(INT32, a_vextvapi_cb_pb_selectCC, IN(UINT32, player), IN(INT32, idx))

/* Subtitles: stop them, show or hide them, change how they look. A time offset is ms, as a number with a sign; a
 * font's custom size and an edge's width are of 720 lines; a rectangle's are of a panel of 1920x1080, of which its left
 * edge and its lower edge count. Subtitles that are pictures keep their look. */
TVAPI_FN(INT32, a_vextvapi_cb_pb_stopSub, IN(UINT32, player))
TVAPI_FN(INT32, a_vextvapi_cb_pb_setSubtitleShowHide, IN(UINT32, player), IN(UINT8, show))
TVAPI_FN(INT32, a_vextvapi_cb_pb_setSubtitleAttr, IN(UINT32, player), IN_RECORD(IVEX_PB_CTRL_SBTL_ATTR_T, attribute))

/* The picture: where it stands on the screen, in pixels of a panel of 1920x1080 (all 0: in the main picture's place),
 * and which part of it is enlarged. */
TVAPI_FN(INT32, a_vextvapi_cb_pb_display, IN(UINT32, player), IN(UINT32, x), IN(UINT32, y), IN(UINT32, w),
         IN(UINT32, h))
TVAPI_FN(INT32, a_vextvapi_cb_pb_zoom, IN(UINT32, player), IN(INT32, type), IN(UINT32, x), IN(UINT32, y), IN(UINT32, w),
         IN(UINT32, h))

/* Plays on, after the viewer has entered the password for a rated file. */
TVAPI_FN(INT32, a_vextvapi_cb_pb_unblockRating, IN(UINT32, player))

/* The position at which the playing of the file stopped, with which it can go on later: use it or not, save it. If
 * it is used, the next play from the beginning begins there. It belongs to a file by its path, size and time of change.
 */
TVAPI_FN(INT32, a_vextvapi_cb_pb_setStopInfo, IN(UINT32, player), IN(UINT8, use))
TVAPI_FN(INT32, a_vextvapi_cb_pb_saveStopInfo, IN(UINT32, player))

/* --- Queries --- */

/* time: s. */
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

/* Returns whether the file has a rating (1 or 0), and tells its age. */
TVAPI_FN(INT32, a_vextvapi_cb_pb_hasRating, IN(UINT32, player), OUT(INT32, age))

/* Start to make a picture of the file, at most so many pixels wide and high; an event tells the end. */
TVAPI_FN(INT32, a_vextvapi_cb_pb_thumbnailAsync, IN(UINT32, player), IN(INT32, width), IN(INT32, height))
TVAPI_FN(INT32, a_vextvapi_cb_pb_mp3CoverAsync, IN(UINT32, player), IN(INT32, width), IN(INT32, height))

/* Reads the picture that was made, as a text: the base64 form of its JPEG. */
TVAPI_FN(INT32, a_vextvapi_cb_pb_get_thumbnail, IN(UINT32, player), OUT_TEXT(thumbnail, PLAYER_THUMBNAIL_SIZE))

#include "tvapi/end.h"
