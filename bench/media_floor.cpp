// The floors of gets about media.
#include "floor_text.h"

// --- What is known of the file that plays ---

static void fill_media_info(T_CBROWSER_PB& playback) {
  playback.pb_handle = 7;
  playback.pb_operator = CBROWSER_PB_OPERATOR_GET_MEDIA_INFO;
  IVEX_PB_MEDIA_INFO_T found = {};
  a_vextvapi_cb_pb_getMediaInfo(playback.pb_handle, &found);
  T_CBROWSER_PB_MEDIA_INFO_T& info = playback.u.t_cbrowser_pb_oper_info.getmediainfo;
  memcpy(info.eMediaType, found.eMediaType, sizeof info.eMediaType);
  info.u4AvgBitrate = found.u4AvgBitrate;
  info.u4Duration = found.u4Duration;
  info.u8FileSize = found.u8FileSize;
  info.u2VidTrackNum = found.u2VidTrackNum;
  info.u2AudTrackNum = found.u2AudTrackNum;
  info.u2SubTrackNum = found.u2SubTrackNum;
  info.u1ProgramNum = found.u1ProgramNum;
  info.u1TitleNum = found.u1TitleNum;
  info.u1EditionNum = found.u1EditionNum;
  info.u1ChapterNum = found.u1ChapterNum;
  info.u2VidTrackIdx = found.u2VidTrackIdx;
  info.u2AudTrackIdx = found.u2AudTrackIdx;
  info.u2SubTrackIdx = found.u2SubTrackIdx;
  info.u2AudDmxIdx = found.u2AudDmxIdx;
  info.u1ProgramIdx = found.u1ProgramIdx;
  info.u1TitleIdx = found.u1TitleIdx;
  info.u1EditionIdx = found.u1EditionIdx;
  info.u1ChapterIdx = found.u1ChapterIdx;
}

static void put_playback(char*& at, const T_CBROWSER_PB& playback) {
  put(at, R"({"URI":")");
  put_text(at, kPlayback);
  put(at, R"(","STATUS":)");
  put_number(at, 0);
  put(at, R"(,"ITEMS":[{"NAME":"Content Browser Playback","handle":)");
  put_number(at, playback.pb_handle);
}

void floor_get_media_info() {
  floor_read(kPlaybackRequest);
  floor_get<T_CBROWSER_PB>(fill_media_info, [](char* at, const T_CBROWSER_PB& playback) {
    const T_CBROWSER_PB_MEDIA_INFO_T& info = playback.u.t_cbrowser_pb_oper_info.getmediainfo;
    put_playback(at, playback);
    put(at, R"(,"eMediaType":")");
    put_text(at, info.eMediaType);
    put(at, R"(","mediaAvgBitrate":)");
    put_number(at, info.u4AvgBitrate);
    put(at, R"(,"mediaDuration":)");
    put_number(at, info.u4Duration);
    put(at, R"(,"mediaFileSize":)");
    put_number(at, info.u8FileSize);
    put(at, R"(,"mediaVidTrackNum":)");
    put_number(at, info.u2VidTrackNum);
    put(at, R"(,"mediaAudTrackNum":)");
    put_number(at, info.u2AudTrackNum);
    put(at, R"(,"mediaSubTrackNum":)");
    put_number(at, info.u2SubTrackNum);
    put(at, R"(,"mediaProgramNum":)");
    put_number(at, info.u1ProgramNum);
    put(at, R"(,"mediaTitleNum":)");
    put_number(at, info.u1TitleNum);
    put(at, R"(,"mediaEditionNum":)");
    put_number(at, info.u1EditionNum);
    put(at, R"(,"mediaChapterNum":)");
    put_number(at, info.u1ChapterNum);
    put(at, R"(,"mediaCurVidTrackIdx":)");
    put_number(at, info.u2VidTrackIdx);
    put(at, R"(,"mediaCurAudTrackIdx":)");
    put_number(at, info.u2AudTrackIdx);
    put(at, R"(,"mediaCurSubTrackIdx":)");
    put_number(at, info.u2SubTrackIdx);
    put(at, R"(,"mediaCurAudDmxIdx":)");
    put_number(at, info.u2AudDmxIdx);
    put(at, R"(,"mediaCurProgramIdx":)");
    put_number(at, info.u1ProgramIdx);
    put(at, R"(,"mediaCurTitleIdx":)");
    put_number(at, info.u1TitleIdx);
    put(at, R"(,"mediaCurEditionIdx":)");
    put_number(at, info.u1EditionIdx);
    put(at, R"(,"mediaCurChapterIdx":)");
    put_number(at, info.u1ChapterIdx);
    put(at, "}]}");
    return at;
  });
}

// --- A thumbnail ---

void floor_get_thumbnail() {
  static constexpr std::size_t kLongest = 256 + PLAYER_THUMBNAIL_SIZE;
  floor_read(kThumbnailRequest);
  floor_get<T_CBROWSER_PB, kLongest>(
      [](T_CBROWSER_PB& playback) {
        playback.pb_handle = 7;
        char*& block = playback.u.t_cbrowser_pb_oper_info.getthumbnailasyncbuffer;
        block = static_cast<char*>(calloc(1, PLAYER_THUMBNAIL_SIZE + 1));
        a_vextvapi_cb_pb_get_thumbnail(playback.pb_handle, block);
      },
      [](char* at, const T_CBROWSER_PB& playback) {
        char* const block = playback.u.t_cbrowser_pb_oper_info.getthumbnailasyncbuffer;
        put_playback(at, playback);
        put(at, R"(,"getthumbnailasyncbuffer":")");
        put_text(at, block);
        put(at, R"("}]})");
        free(block);
        return at;
      });
}

// --- A list of music ---

void floor_get_media_list() {
  static constexpr std::size_t kLongest = 256 + CBROWSER_LIST_MAX * 1536;
  floor_read(kMediaListRequest);
  floor_get<T_CBROWSER, kLongest>(
      [](T_CBROWSER& library) {
        library.count = CBROWSER_LIST_MAX;
        a_vextvapi_get_list_by_count(library.media_info, MEDIA_TYPE_MUSIC, library.path, 0, &library.count);
      },
      [](char* at, const T_CBROWSER& library) {
        put(at, R"({"URI":")");
        put_text(at, kMediaList);
        put(at, R"(","STATUS":)");
        put_number(at, 0);
        put(at, R"(,"ITEMS":[)");
        for (int i = 0; i < library.count; ++i) {
          const T_MEDIA_INFO& entry = library.media_info[i];
          const T_MUSIC_INFO& music = entry.u.music_info;
          if (i > 0) put(at, ",");
          put(at, R"({"MEDIA_TYPE":)");
          put_number(at, entry.media_type);
          put(at, R"(,"MEDIA_PATH":")");
          put_text(at, entry.media_path);
          put(at, R"(","RECID":)");
          put_number(at, entry.recid);
          put(at, R"(,"FAVOURITE":)");
          put_number(at, entry.favourite);
          put(at, R"(,"DATE":{"YEAR":)");
          put_number(at, entry.date.iyear);
          put(at, R"(,"MONTH":)");
          put_number(at, entry.date.imonth);
          put(at, R"(,"DAY":)");
          put_number(at, entry.date.iday);
          put(at, R"(,"HOUR":)");
          put_number(at, entry.date.ihour);
          put(at, R"(,"MINUTE":)");
          put_number(at, entry.date.iminute);
          put(at, R"(,"SECOND":)");
          put_number(at, entry.date.isecond);
          put(at, R"(},"TRACK":")");
          put_text(at, music.track);
          put(at, R"(","TITLE":")");
          put_text(at, music.title);
          put(at, R"(","ARTIST":")");
          put_text(at, music.artist);
          put(at, R"(","ALBUM":")");
          put_text(at, music.album);
          put(at, R"(","GENER":")");
          put_text(at, music.genre);
          put(at, R"(","DURATION":)");
          put_number(at, music.duration);
          put(at, "}");
        }
        put(at, "]}");
        return at;
      });
}
