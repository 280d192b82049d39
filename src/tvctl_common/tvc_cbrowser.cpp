// Content browser group: the media library on USB storage, and the rows of media players and the image viewer. The
// library lives in the platform; nothing of it is kept here.
#include <stdlib.h>

#include <algorithm>
#include <memory>

#include "tv_ctrl_util/log.h"
#include "tvapi/cbrowser.h"
#include "tvctl_common/cbrowser_rows.h"
#include "tvctl_common/handler.h"
#include "tvctl_common/record.h"

// --- Scanning and the database ---

static constexpr uintptr_t kScanTag = 1001001;

// type of the notification, which the events of USB detection share.
enum : INT32 { kScanFirstStatus = 1000, kScanOtherStatus = 1001 };

// The scan's callback, on the platform's thread.
static INT32 _tv_ctrl_usb_scan_status_nfy_fct(INT32 type, void*) {
  T_USB_DETECT_NOTIFY notify = {};
  notify.type = type == VEXTVAPI_CB_SCAN_DONE ? kScanFirstStatus : kScanOtherStatus;
  tvc_notify(TV_CTRL_RECID_WS_NFY_USB_DETECT, &notify);
  return VEXTVCTRLR_OK;
}

// Returns the request's text, terminated.
static const char* text_of(const RecordRequest& request) {
  T_TEXT& text = tvc_content<T_TEXT>(request);
  tvc_end_text(text.value);
  return text.value;
}

static INT32 start_scan(const RecordRequest& request) {
  const INT32 ret = a_vextvapi_cb_usb_scan_status_register_callback(_tv_ctrl_usb_scan_status_nfy_fct,
                                                                    reinterpret_cast<void*>(kScanTag));
  if (tvc_failed(ret, request.operation)) return VEXTVCTRLR_FAIL;
  return tvc_checked(request, a_vextvapi_cb_startScan(text_of(request)));
}

// A scan that does not stop keeps its callback.
static INT32 stop_scan(const RecordRequest& request) {
  if (tvc_failed(a_vextvapi_cb_stopScan(text_of(request)), request.operation)) return VEXTVCTRLR_FAIL;
  return tvc_ignored(request, a_vextvapi_cb_usb_scan_status_register_callback(nullptr, nullptr));
}

static INT32 load_database(const RecordRequest& request) {
  return tvc_checked(request, a_vextvapi_cb_init(text_of(request)));
}

static INT32 drop_database(const RecordRequest& request) {
  return tvc_checked(request, a_vextvapi_cb_deinit(text_of(request)));
}

static INT32 delete_stop_info(const RecordRequest& request) {
  return tvc_checked(request, a_vextvapi_usb_stopinfo_delete(text_of(request)));
}

static INT32 get_scan_status(const RecordRequest&) { return a_vextvapi_cb_scanDone() ? VEX_OK : VEX_USB_SCANNING; }

// --- The library ---

// Returns the content record with its texts terminated.
static T_CBROWSER& library_of(const RecordRequest& request) {
  T_CBROWSER& library = tvc_content<T_CBROWSER>(request);
  tvc_end_text(library.path);
  tvc_end_text(library.reserved);
  return library;
}

static bool is_kind(const T_CBROWSER& library) {
  return library.type >= MEDIA_TYPE_PHOTO && library.type <= MEDIA_TYPE_SUPPER_SHOP_MODE;
}

// Returns whether the kind is that of single files: photos, music, videos.
static bool is_file_kind(const T_CBROWSER& library) {
  return library.type >= MEDIA_TYPE_PHOTO && library.type <= MEDIA_TYPE_VIDEO;
}

static INT32 check_jump(const RecordRequest& request) {
  UINT8 may_jump = 1;
  if (tvc_failed(a_vextvapi_cb_checkJumpStatus(&library_of(request), &may_jump), request.operation))
    return VEXTVCTRLR_FAIL;
  return may_jump ? VEX_OK : VEX_USB_DISABLE_AUTO_JUMP;
}

static INT32 check_disk_type(const RecordRequest& request) {
  const INT32 ret = a_vextvapi_cb_checkDevExt4Status(&library_of(request));
  tvc_log_progress("[TVC_MAIN] a_vextvapi_cb_checkDevExt4Status 4_ret: [%d]\n", ret);
  return ret != 0 ? VEXTVCTRLR_OK : VEXTVCTRLR_FAIL;
}

static INT32 set_sort_type(const RecordRequest& request) {
  const T_CBROWSER& library = tvc_content<T_CBROWSER>(request);
  return tvc_checked(request, a_vextvapi_set_sort_type(library.type, library.sort));
}

static INT32 get_count(const RecordRequest& request) {
  T_CBROWSER& library = library_of(request);
  if (!is_kind(library)) return VEX_INVALID_PARAM;
  library.count = std::max(a_vextvapi_cb_get_db_count(library.type, library.path), 0);
  return VEX_OK;
}

static INT32 get_top_list_count(const RecordRequest& request) {
  T_CBROWSER& library = library_of(request);
  if (!is_file_kind(library)) return VEX_INVALID_PARAM;
  library.count = std::max(a_vextvapi_cb_get_top_list_db_count(library.type, library.sort, library.reserved), 0);
  return VEX_OK;
}

// The platform fills the record of the kind; of it, the answer has the kind and the path.
static INT32 get_by_index(const RecordRequest& request) {
  T_CBROWSER& library = library_of(request);
  if (!is_file_kind(library)) return VEX_INVALID_PARAM;
  VEXTVAPI_CB_MUSIC_T music = {};
  VEXTVAPI_CB_VIDEO_T video = {};
  VEXTVAPI_CB_PHOTO_T photo = {};
  const INT32 ret = a_vextvapi_get_list_by_idx(&music, &video, &photo, library.type, &library);
  if (tvc_checked_zero(request, ret) != VEXTVCTRLR_OK) return VEXTVCTRLR_FAIL;
  const auto take = [&library](const auto& found) {
    T_MEDIA_INFO& entry = library.media_info[0];
    entry.media_type = found.media_type;
    tvc_copy_text(entry.media_path, found.media_path);
  };
  if (library.type == MEDIA_TYPE_MUSIC)
    take(music);
  else if (library.type == MEDIA_TYPE_VIDEO)
    take(video);
  else
    take(photo);
  library.count = 1;
  return VEX_OK;
}

// Terminates the texts that entries of the library's kind have.
static void end_texts(const T_CBROWSER& library, T_MEDIA_DETAILS& details) {
  switch (library.type) {
    case MEDIA_TYPE_MUSIC:
      tvc_end_text(details.music_info.track);
      tvc_end_text(details.music_info.title);
      tvc_end_text(details.music_info.artist);
      tvc_end_text(details.music_info.album);
      tvc_end_text(details.music_info.genre);
      return;
    case MEDIA_TYPE_VIDEO:
      tvc_end_text(details.video_info.title);
      tvc_end_text(details.video_info.year);
      return;
    case MEDIA_TYPE_PLAYLIST:
      tvc_end_text(details.playlist_info.title);
      tvc_end_text(details.playlist_info.artist);
      return;
    default:
      return;
  }
}

// Fills what is known of the file in the first entry, which gets no path: the answer is no list.
static INT32 get_by_path(const RecordRequest& request) {
  T_CBROWSER& library = library_of(request);
  if (!library.reserved[0]) return VEXTVCTRLR_INV_ARG;
  if (!is_file_kind(library) && library.type != MEDIA_TYPE_PLAYLIST) return VEX_INVALID_PARAM;
  T_MEDIA_DETAILS details = {};
  const INT32 ret = a_vextvapi_get_metaData(&details, library.type, library.reserved, library.path);
  if (tvc_failed(ret, request.operation)) return VEXTVCTRLR_FAIL;
  end_texts(library, details);
  library.media_info[0].u = details;
  return VEX_OK;
}

// Lists entries with a function of the platform, which receives the library, the list, and its room or number of
// entries.
template <typename List>
static INT32 list_entries(const RecordRequest& request, List list) {
  T_CBROWSER& library = library_of(request);
  if (!is_kind(library)) return VEX_INVALID_PARAM;
  // Too large for the stack. The platform does not write into the record, which a failed list leaves as it is.
  const std::unique_ptr<T_MEDIA_INFO[], decltype(&free)> found(
      static_cast<T_MEDIA_INFO*>(calloc(CBROWSER_LIST_MAX, sizeof(T_MEDIA_INFO))), free);
  if (!found) return VEXTVCTRLR_OUT_OF_MEMORY;
  INT32 count = std::clamp<INT32>(library.count, 0, CBROWSER_LIST_MAX);
  const INT32 ret = list(library, found.get(), &count);
  if (tvc_checked_zero(request, ret) != VEXTVCTRLR_OK) return VEXTVCTRLR_FAIL;
  library.count = std::clamp<INT32>(count, 0, CBROWSER_LIST_MAX);
  for (INT32 i = 0; i < library.count; ++i) {
    T_MEDIA_INFO& entry = library.media_info[i] = found[static_cast<std::size_t>(i)];
    tvc_end_text(entry.media_path);
    end_texts(library, entry.u);
  }
  return VEX_OK;
}

static INT32 get_list(const RecordRequest& request) {
  return list_entries(request, [](const T_CBROWSER& library, T_MEDIA_INFO* ret_list, INT32* count) {
    return a_vextvapi_get_list_by_count(ret_list, library.type, library.path, library.index, count);
  });
}

static INT32 get_top_list(const RecordRequest& request) {
  return list_entries(request, [](const T_CBROWSER& library, T_MEDIA_INFO* ret_list, INT32* count) {
    return a_vextvapi_get_top_list_by_sort_type(ret_list, library.type, library.sort, library.path, library.index,
                                                count);
  });
}

static INT32 get_rec(const RecordRequest& request) {
  return list_entries(request, [](const T_CBROWSER& library, T_MEDIA_INFO* ret_list, INT32* count) {
    return a_vextvapi_get_rec(ret_list, library.type, library.sort, library.reserved, library.path, library.index,
                              count);
  });
}

// --- Rows ---

static constexpr const char* kListOperation = "_tv_ctrl_cbrowser_get_info_by_operator";

static constexpr RecordRow kRows[] = {
    {.record = TV_CTRL_RECID_START_SCAN,
     .type = TYPE_TEXT,
     .set = start_scan,
     .set_operation = "_tv_ctrl_cbrowser_start_scan",
     .help = "Starts to scan the stick at a mount path for media; the notification of USB storage reports the status."},
    {.record = TV_CTRL_RECID_STOP_SCAN,
     .type = TYPE_TEXT,
     .set = stop_scan,
     .set_operation = "_tv_ctrl_cbrowser_stop_scan",
     .help = "Stops the scan of the stick at a mount path."},
    {.record = TV_CTRL_RECID_IMPORT_DATABASE,
     .type = TYPE_TEXT,
     .set = load_database,
     .set_operation = "_tv_ctrl_cbrowser_import_database",
     .help = "Loads the media library of the stick at a mount path."},
    {.record = TV_CTRL_RECID_DELETE_DATABASE,
     .type = TYPE_TEXT,
     .set = drop_database,
     .set_operation = "_tv_ctrl_cbrowser_delete_database",
     .help = "Drops the media library of the stick at a mount path."},
    {.record = TV_CTRL_RECID_DELETE_MMP_STOP_INFO,
     .type = TYPE_TEXT,
     .set = delete_stop_info,
     .set_operation = "_tv_ctrl_cbrowser_delete_mmp_stop_info",
     .help = "Forgets where the playing of the files of the stick at a mount path stopped."},
    {.record = TV_CTRL_RECID_GET_SCAN_STATUS,
     .type = TYPE_CBROWSER,
     .get = get_scan_status,
     .help = "Status 0: no scan is running; status 13: one is."},
    {.record = TV_CTRL_RECID_CHECK_JUMP_STATUS,
     .type = TYPE_CBROWSER,
     .get = check_jump,
     .get_operation = "_tv_ctrl_cbrowser_check_jump_status",
     .get_needs = "PATH",
     .help = "Status 0: the set may jump to this stick by itself; status 14: it may not."},
    {.record = TV_CTRL_RECID_CHECK_DISK_TYPE_BY_PATH,
     .type = TYPE_CBROWSER,
     .get = check_disk_type,
     .get_needs = "PATH",
     .help = "Status 0: the disk of a path has the recorder's file system; status -1: it has another."},
    {.record = TV_CTRL_RECID_SET_SORT_TYPE,
     .type = TYPE_CBROWSER,
     .set = set_sort_type,
     .set_operation = "_tv_ctrl_cbrowser_set_sort_type",
     .set_needs = "TYPE SORT",
     .help = "Sets the order of the lists of a kind of media."},
    {.record = TV_CTRL_RECID_GET_DB_COUNT,
     .type = TYPE_CBROWSER,
     .get = get_count,
     .get_needs = "TYPE",
     .help = "How many entries of a kind a folder has."},
    {.record = TV_CTRL_RECID_GET_INFO_BY_IDX,
     .type = TYPE_CBROWSER,
     .get = get_by_index,
     .get_operation = "_tv_ctrl_cbrowser_get_info_by_idx",
     .get_needs = "TYPE",
     .help = "The kind and the path of the photo, music or video at an index."},
    {.record = TV_CTRL_RECID_GET_INFO_BY_PATH,
     .type = TYPE_CBROWSER,
     .get = get_by_path,
     .get_operation = "_tv_ctrl_cbrowser_get_info_by_path",
     .get_needs = "RESERVED TYPE",
     .help =
         "Looks up the file RESERVED in the folder PATH. The answer shows only whether it was found: status 0 or -1."},
    {.record = TV_CTRL_RECID_GET_INFO,
     .type = TYPE_CBROWSER,
     .get = get_list,
     .get_operation = kListOperation,
     .get_needs = "TYPE COUNT",
     .help = "Entries of a kind in a folder, from an index on, 24 at most."},
    {.record = TV_CTRL_RECID_GET_TOP_LIST,
     .type = TYPE_CBROWSER,
     .get = get_top_list,
     .get_operation = kListOperation,
     .get_needs = "TYPE COUNT",
     .help = "The entries of a kind in the order SORT, from an index on, 24 at most."},
    {.record = TV_CTRL_RECID_GET_REC,
     .type = TYPE_CBROWSER,
     .get = get_rec,
     .get_operation = kListOperation,
     .get_needs = "TYPE COUNT",
     .help = "Recordings in a folder, selected by RESERVED, from an index on, 24 at most."},
    {.record = TV_CTRL_RECID_GET_TOP_LIST_DB_COUNT,
     .type = TYPE_CBROWSER,
     .get = get_top_list_count,
     .get_needs = "TYPE",
     .help = "How many entries the top list in the order SORT has for RESERVED."},
    {.record = TV_CTRL_RECID_PLAYBACK_INIT,
     .type = TYPE_CBROWSER_PB,
     .get = tvc_player_create,
     .get_operation = "_tv_ctrl_cbrowser_pb_init",
     .get_needs = "mediaPath",
     .help = "Creates a media player and opens a file or a stream with it."},
    {.record = TV_CTRL_RECID_PLAYBACK_DEINIT,
     .type = TYPE_CBROWSER_PB,
     .set = tvc_player_destroy,
     .set_operation = "_tv_ctrl_cbrowser_pb_deinit",
     .set_needs = "handle",
     .help = "Destroys a media player."},
    {.record = TV_CTRL_RECID_PLAYBACK_OPERATOR,
     .type = TYPE_CBROWSER_PB,
     .set = tvc_player_operate,
     .set_operation = "_tv_ctrl_cbrowser_pb_operator",
     .set_needs = "handle operator",
     .help = "Drives a media player."},
    {.record = TV_CTRL_RECID_PLAYBACK_GET_INFO,
     .type = TYPE_CBROWSER_PB,
     .get = tvc_player_operate,
     .get_operation = "_tv_ctrl_cbrowser_pb_operator",
     .get_needs = "handle operator",
     .help = "Asks a media player for its position, its speed, its tracks, or other information."},
    {.record = TV_CTRL_RECID_IMAGE_RES_INIT,
     .type = TYPE_ACTION,
     .set = tvc_image_init,
     .set_operation = "_tv_ctrl_cbrowser_img_res_init",
     .help = "Prepares what the image viewer needs."},
    {.record = TV_CTRL_RECID_IMAGE_RES_DEINIT,
     .type = TYPE_ACTION,
     .set = tvc_image_deinit,
     .set_operation = "_tv_ctrl_cbrowser_img_res_deinit",
     .help = "Releases what the image viewer needs."},
    {.record = TV_CTRL_RECID_IMAGE_GET_THUMBNAIL_PATH,
     .type = TYPE_CBROWSER_IMG,
     .get = tvc_image_make_thumbnail,
     .get_operation = "_tv_ctrl_cbrowser_img_get_thumbnail_path",
     .get_needs = "path width height",
     .help = "Makes a thumbnail of a picture; returns the path of its file."},
    {.record = TV_CTRL_RECID_IMAGE_OPEN,
     .type = TYPE_CBROWSER_IMG,
     .set = tvc_image_open,
     .set_operation = "_tv_ctrl_cbrowser_img_open",
     .set_needs = "path",
     .help = "Opens and decodes a picture."},
    {.record = TV_CTRL_RECID_IMAGE_CLOSE,
     .type = TYPE_ACTION,
     .set = tvc_image_close,
     .set_operation = "_tv_ctrl_cbrowser_img_close",
     .help = "Closes the picture."},
    {.record = TV_CTRL_RECID_IMAGE_OPERATOR,
     .type = TYPE_CBROWSER_IMG,
     .set = tvc_image_operate,
     .set_operation = "_tv_ctrl_cbrowser_img_operator",
     .set_needs = "operator",
     .help = "Shows, rotates or zooms the picture, or runs a transition effect."},
};

constinit const Handler handler_CBROWSER = {
    .group = TV_CTRL_GRPID_CBROWSER, .records = tvc_records<kRows>(), .get_without_row = VEXTVCTRLR_INV_ARG};

INT32 tv_ctrl_get_cbrowser(UINT16 ui2_id, void* pv_content) {
  return tvc_handle_get(handler_CBROWSER, ui2_id, pv_content);
}

INT32 tv_ctrl_set_cbrowser(UINT16 ui2_id, void* pv_content) {
  return tvc_handle_set(handler_CBROWSER, ui2_id, pv_content);
}
