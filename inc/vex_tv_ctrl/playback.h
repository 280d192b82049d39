// Media players: creating them, their operators, and their events.
#ifndef VEX_TV_CTRL_PLAYBACK_H
#define VEX_TV_CTRL_PLAYBACK_H

#include "tvapi/playback.h"
#include "vex_tv_ctrl/record.h"

enum CBROWSER_PB_OPERATOR : INT32 {
#define TVC_OPERATOR(symbol, number, word, call) CBROWSER_PB_OPERATOR_##symbol = number,
#define TVC_OPERATOR_WITHOUT_WORD(symbol, number, call) CBROWSER_PB_OPERATOR_##symbol = number,
#include "vex_tv_ctrl/playback.def"
};

// What a player is created with. Modes and information are in the platform's numbers.
struct T_CBROWSER_PB_INIT_INFO {
  int bMode;
  int oMode;
  // Comes with the player's events, where it is unsigned. For 0 the plugin puts the low 32 bits of the content record's
  // address here, which are good for comparisons only.
  int pvTag;
  char sprofile[128];
  int sInfo;
  char sprotocal[256];
  char smediaPath[256];
};
TVC_RECORD(T_CBROWSER_PB_INIT_INFO, bMode, oMode, pvTag, sprofile, sInfo, sprotocal, smediaPath)

// Colours' parts are from 0 to 255.
struct T_CBROWSER_PB_COLOR_T {
  UINT32 u1Alpha;
  UINT32 u1R;
  UINT32 u1G;
  UINT32 u1B;
};
TVC_RECORD(T_CBROWSER_PB_COLOR_T, u1Alpha, u1R, u1G, u1B)

struct T_CBROWSER_PB_RECT_T {
  UINT32 u4X;
  UINT32 u4Y;
  UINT32 u4W;
  UINT32 u4H;
};
TVC_RECORD(T_CBROWSER_PB_RECT_T, u4X, u4Y, u4W, u4H)

// Character encodings of subtitles.
enum T_CBROWSER_PB_SBTL_FONT_ENC_TYPE_T : INT32 {
  T_CBROWSER_PB_SBTL_FONT_ENC_AUTO = 0,
  T_CBROWSER_PB_SBTL_FONT_ENC_UTF8 = 1,
  T_CBROWSER_PB_SBTL_FONT_ENC_UTF16 = 2,
  T_CBROWSER_PB_SBTL_FONT_ENC_BIG5 = 3,
  T_CBROWSER_PB_SBTL_FONT_ENC_GB = 4,
  T_CBROWSER_PB_SBTL_FONT_ENC_GB18030 = 5,
  T_CBROWSER_PB_SBTL_FONT_ENC_CODEPAGE1250 = 6,
  T_CBROWSER_PB_SBTL_FONT_ENC_CODEPAGE1251 = 7,
  T_CBROWSER_PB_SBTL_FONT_ENC_CODEPAGE1252 = 8,
  T_CBROWSER_PB_SBTL_FONT_ENC_CODEPAGE1253 = 9,
  T_CBROWSER_PB_SBTL_FONT_ENC_CODEPAGE1254 = 10,
  T_CBROWSER_PB_SBTL_FONT_ENC_CODEPAGE1255 = 11,
  T_CBROWSER_PB_SBTL_FONT_ENC_CODEPAGE1256 = 12,
  T_CBROWSER_PB_SBTL_FONT_ENC_CODEPAGE1257 = 13,
  T_CBROWSER_PB_SBTL_FONT_ENC_CODEPAGE1258 = 14,
  T_CBROWSER_PB_SBTL_FONT_ENC_ISO8859_2 = 15,
  T_CBROWSER_PB_SBTL_FONT_ENC_ISO8859_5 = 16,
  T_CBROWSER_PB_SBTL_FONT_ENC_ISO8859_7 = 17,
  T_CBROWSER_PB_SBTL_FONT_ENC_ISO8859_8 = 18,
  T_CBROWSER_PB_SBTL_FONT_ENC_ISO8859_9 = 19,
  T_CBROWSER_PB_SBTL_FONT_ENC_ISO8859_16 = 20,
  T_CBROWSER_PB_SBTL_FONT_ENC_KOI8_R = 21
};

enum T_CBROWSER_PB_FNT_SIZE_TYPE : INT32 {
  CBROWSER_PB_FNT_SIZE_SMALL = 0,
  CBROWSER_PB_FNT_SIZE_MEDIUM = 1,
  CBROWSER_PB_FNT_SIZE_LARGE = 2,
  CBROWSER_PB_FNT_SIZE_CUSTOM = 3,
  CBROWSER_PB_FNT_SIZE_NUMBER = 4
};

struct T_CBROWSER_PB_FNT_SIZE_INFO {
  INT32 e_font_size_type;  // a T_CBROWSER_PB_FNT_SIZE_TYPE
  UINT32 u1CustomSize;     // of CBROWSER_PB_FNT_SIZE_CUSTOM; the low 8 bits count
};
TVC_RECORD(T_CBROWSER_PB_FNT_SIZE_INFO, e_font_size_type, u1CustomSize)

enum T_CBROWSER_PB_SBTL_TIME_OFST_TYPE_T : INT32 {
  T_CBROWSER_PB_SBTL_TIME_OFST_OFF = 0,
  T_CBROWSER_PB_SBTL_TIME_OFST_AUTO = 1,
  T_CBROWSER_PB_SBTL_TIME_OFST_USER_DEF = 2
};

struct T_CBROWSER_PB_SBTL_TIME_OFST_T {
  INT32 eTimeOfst;  // a T_CBROWSER_PB_SBTL_TIME_OFST_TYPE_T
  UINT32 u4OfstValue;
};
TVC_RECORD(T_CBROWSER_PB_SBTL_TIME_OFST_T, eTimeOfst, u4OfstValue)

struct T_CBROWSER_PB_AUD_INFO_T {
  char encType[32];
  char chNum[32];
  char sampleRate[16];
  UINT32 u4BitRate;
  char lang[4];
  UINT32 impairType;
  UINT32 u4RefLang;
};
TVC_RECORD(T_CBROWSER_PB_AUD_INFO_T, encType, chNum, sampleRate, u4BitRate, lang, impairType, u4RefLang)

struct T_CBROWSER_PB_VID_INFO_T {
  char encType[16];
  UINT32 u4Width;
  UINT32 u4Height;
  UINT32 u4InstBitRate;
};
TVC_RECORD(T_CBROWSER_PB_VID_INFO_T, encType, u4Width, u4Height, u4InstBitRate)

struct T_CBROWSER_PB_MEDIA_INFO_T {
  char eMediaType[16];
  UINT32 u4AvgBitrate;
  UINT32 u4Duration;
  UINT64 u8FileSize;  // bytes
  UINT32 u2VidTrackNum;
  UINT32 u2AudTrackNum;
  UINT32 u2SubTrackNum;
  UINT32 u1ProgramNum;
  UINT32 u1TitleNum;
  UINT32 u1EditionNum;
  UINT32 u1ChapterNum;
  UINT32 u2VidTrackIdx;
  UINT32 u2AudTrackIdx;
  UINT32 u2SubTrackIdx;
  UINT32 u2AudDmxIdx;
  UINT32 u1ProgramIdx;
  UINT32 u1TitleIdx;
  UINT32 u1EditionIdx;
  UINT32 u1ChapterIdx;
};
TVC_RECORD(T_CBROWSER_PB_MEDIA_INFO_T, eMediaType, u4AvgBitrate, u4Duration, u8FileSize, u2VidTrackNum, u2AudTrackNum,
           u2SubTrackNum, u1ProgramNum, u1TitleNum, u1EditionNum, u1ChapterNum, u2VidTrackIdx, u2AudTrackIdx,
           u2SubTrackIdx, u2AudDmxIdx, u1ProgramIdx, u1TitleIdx, u1EditionIdx, u1ChapterIdx)

// Kinds of subtitles.
enum T_CBROWSER_PB_SBTL_TYPE_T : INT32 {
  T_CBROWSER_PB_SBTL_UNKNOWN = 0,
  T_CBROWSER_PB_SBTL_TTML = 1,
  T_CBROWSER_PB_SBTL_DIVX = 2,
  T_CBROWSER_PB_SBTL_ASS = 3,
  T_CBROWSER_PB_SBTL_SRT = 4,
  T_CBROWSER_PB_SBTL_CC = 5,
  T_CBROWSER_PB_SBTL_DVB = 6,
  T_CBROWSER_PB_SBTL_TTX = 7,
  T_CBROWSER_PB_SBTL_ISDB_CC = 8,
  T_CBROWSER_PB_SBTL_ISDB_TXT = 9,
  T_CBROWSER_PB_SBTL_SSA = 10,
  T_CBROWSER_PB_SBTL_SAMI = 11,
  T_CBROWSER_PB_SBTL_TEXT = 12,
  T_CBROWSER_PB_SBTL_VOBSUB = 13,
  T_CBROWSER_PB_SBTL_BLUERAY = 14,
  T_CBROWSER_PB_SBTL_PGS = 15,
  T_CBROWSER_PB_SBTL_SUP = 16
};

struct T_CBROWSER_PB_SUB_INFO_T {
  UINT32 pid;
  char s_lang[16];
  INT32 subType;  // a T_CBROWSER_PB_SBTL_TYPE_T
  UINT32 b_external;
  UINT32 b_hearing_impair;
};
TVC_RECORD(T_CBROWSER_PB_SUB_INFO_T, pid, s_lang, subType, b_external, b_hearing_impair)

// The parameters and the results of an operator; playback.def says which operator has which.
struct T_CBROWSER_PB_OPER_INFO {
  UINT32 seekTime;
  UINT64 seekByte;
  int select_aud_idx;
  int select_aud_dmxidx;
  int select_sub_idx;
  int select_cc_idx;
  int repeat;
  UINT32 curplaytime;
  UINT64 curplayposition;
  char s_speed[128];
  int getmetaType;
  char getMetaData[128];
  char s_zoomStatus[128];
  INT32 setsubencinfo;  // a T_CBROWSER_PB_SBTL_FONT_ENC_TYPE_T
  T_CBROWSER_PB_COLOR_T setsubtxtclr;
  T_CBROWSER_PB_COLOR_T setsubedgclr;
  T_CBROWSER_PB_COLOR_T setsubbkgclr;
  T_CBROWSER_PB_RECT_T setdisplayrect;
  int setsubedgwidth;
  int setzoomType;
  T_CBROWSER_PB_RECT_T setzoomrect;
  T_CBROWSER_PB_RECT_T setsubdisplayrect;
  T_CBROWSER_PB_FNT_SIZE_INFO setsubfontsizeinfo;
  T_CBROWSER_PB_SBTL_TIME_OFST_T setsubtimeoffset;
  int setspeed;
  int playerType;
  int getaudinfoidx;
  int getsubinfoidx;
  T_CBROWSER_PB_AUD_INFO_T getaudinfo;
  T_CBROWSER_PB_VID_INFO_T getvidinfo;
  T_CBROWSER_PB_MEDIA_INFO_T getmediainfo;
  T_CBROWSER_PB_SUB_INFO_T getsubinfo;
  int getthumbnailasyncwidth;
  int getthumbnailasyncheight;
  char* getthumbnailasyncbuffer;  // from malloc(); the record's owner frees it
  int getmp3coverasyncwidth;
  int getmp3coverasyncheight;
  UINT32 bgethasstopinfo;
  UINT32 bsethasstopinfo;
  int hasRating;
  int ratingAge;
};
TVC_RECORD(T_CBROWSER_PB_OPER_INFO, seekTime, seekByte, select_aud_idx, select_aud_dmxidx, select_sub_idx,
           select_cc_idx, repeat, curplaytime, curplayposition, s_speed, getmetaType, getMetaData, s_zoomStatus,
           setsubencinfo, setsubtxtclr, setsubedgclr, setsubbkgclr, setdisplayrect, setsubedgwidth, setzoomType,
           setzoomrect, setsubdisplayrect, setsubfontsizeinfo, setsubtimeoffset, setspeed, playerType, getaudinfoidx,
           getsubinfoidx, getaudinfo, getvidinfo, getmediainfo, getsubinfo, getthumbnailasyncwidth,
           getthumbnailasyncheight, getthumbnailasyncbuffer, getmp3coverasyncwidth, getmp3coverasyncheight,
           bgethasstopinfo, bsethasstopinfo, hasRating, ratingAge)

// A request to a player.
struct T_CBROWSER_PB {
  UINT32 pb_handle;   // the player; 0: none
  INT32 pb_operator;  // a CBROWSER_PB_OPERATOR, which goes with t_cbrowser_pb_oper_info; 0: none
  union {
    T_CBROWSER_PB_INIT_INFO t_cbrowser_pb_init_info;
    T_CBROWSER_PB_OPER_INFO t_cbrowser_pb_oper_info;
  } u;
};
TVC_UNION(decltype(T_CBROWSER_PB::u), t_cbrowser_pb_init_info, t_cbrowser_pb_oper_info)
TVC_RECORD(T_CBROWSER_PB, pb_handle, pb_operator, u)

// The arguments of the player's callback.
struct T_CBROWSER_PB_NOTIFY {
  INT32 type;     // the player's callback type
  UINT32 tag;     // the player's pvTag
  intptr_t arg1;  // for PLAYER_EVENT_THUMBNAIL the address of the picture's path, owned by the caller
  UINT32 arg2;
  UINT32 arg3;
  UINT32 arg4;
};
TVC_RECORD(T_CBROWSER_PB_NOTIFY, type, tag, arg1, arg2, arg3, arg4)

#endif
