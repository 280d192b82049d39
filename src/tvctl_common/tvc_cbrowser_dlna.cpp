// Home network group: servers that are found, their items, and the set as a renderer.
#include <algorithm>
#include <atomic>

#include "tv_ctrl_util/log.h"
#include "tvapi/dlna.h"
#include "tvctl_common/handler.h"
#include "tvctl_common/record.h"

// --- Servers ---

static constexpr uintptr_t kServerTag = 118811;

// Copies a callback's text, which may be null.
template <std::size_t Size>
static void copy_argument(char (&ret_array)[Size], const char* text) {
  tvc_copy_text(ret_array, text ? text : "");
}

// The discovery's callback, on the platform's thread.
static INT32 _tv_ctrl_dlna_dms_detect_update_nfy_fct(INT32 type, void* tag, const char* server_name, INT32 dev_id,
                                                     UINT32 arg1, UINT32 arg2) {
  T_DLNA_DMS_NOTIFY notify = {};
  notify.type = type;
  notify.tag = tvc_number_of(tag);
  copy_argument(notify.server_name, server_name);
  notify.dev_id = dev_id;
  notify.arg1 = arg1;
  notify.arg2 = arg2;
  tvc_notify(TV_CTRL_RECID_WS_NFY_DLNA_DMS, &notify);
  return VEXTVCTRLR_OK;
}

// A platform's result as that of an action: a failure is logged, and is VEX_ACTION_FAIL.
static INT32 checked_action(const RecordRequest& request, INT32 ret, int line = __builtin_LINE()) {
  return tvc_failed(ret, request.operation, line) ? VEX_ACTION_FAIL : VEX_OK;
}

static INT32 start_discovery(const RecordRequest& request) {
  return checked_action(request, a_vextvapi_cb_dms_detect_register_callback(_tv_ctrl_dlna_dms_detect_update_nfy_fct,
                                                                            reinterpret_cast<void*>(kServerTag)));
}

static INT32 stop_discovery(const RecordRequest& request) {
  return checked_action(request, a_vextvapi_cb_dms_detect_register_callback(nullptr, nullptr));
}

static INT32 get_server_type(const RecordRequest& request) {
  T_DLNA_DMP& player = tvc_content<T_DLNA_DMP>(request);
  return tvc_checked(request, a_vextvapi_dmp_getDmsType(player.dev_id, &player.dmsType));
}

static INT32 get_wakable(const RecordRequest& request) {
  T_DLNA_DMP& player = tvc_content<T_DLNA_DMP>(request);
  return tvc_checked(request, a_vextvapi_dmp_isDmsWakable(player.dev_id, &player.isWakable));
}

static INT32 wake_server(const RecordRequest& request) {
  return tvc_checked(request, a_vextvapi_dmp_wakeDmsByMac(tvc_content<T_DLNA_DMP>(request).dev_id));
}

static INT32 forget_server(const RecordRequest& request) {
  return tvc_checked(request, a_vextvapi_dmp_clearOffDms(tvc_content<T_DLNA_DMP>(request).dev_id));
}

// --- Operations that wait for a server, and the key that ends them ---

// Both are written by the request thread and read by the key's thread. An old value ends an operation needlessly, or
// not.
static std::atomic<UINT8> isBrowser;  // 1 while the request thread waits for a server
static std::atomic<INT32> devId;      // of the server that dmp_get_real_dev_id named last

// The keys' callback, on the platform's thread: a key while an operation runs ends it.
static INT32 _html5_agent_key_callback(UINT32 arg1, UINT32, UINT32, UINT32 arg4) {
  if (isBrowser && arg1 == 0 && arg4 == 0) tvc_failed(a_vextvapi_dmp_breakDms(devId));
  return VEXTVCTRLR_OK;
}

static constexpr uintptr_t kKeyTag = 888888;

// Also makes keys end operations of this device from now on.
static INT32 get_real_device(const RecordRequest& request) {
  T_DLNA_DMP& player = tvc_content<T_DLNA_DMP>(request);
  a_vextvapi_html5_agent_register_cb_for_usb(_html5_agent_key_callback, reinterpret_cast<void*>(kKeyTag));
  tvc_log_message("a_vextvapi_html5_agent_register_callback \n");
  devId = player.dev_id;
  return tvc_checked(request, a_vextvapi_dmp_getRealDms(player.dev_id, &player.real_dev_id));
}

// Says, while it lives, that the request thread waits for a server.
struct BrowserGuard {
  BrowserGuard() { isBrowser = 1; }
  ~BrowserGuard() { isBrowser = 0; }
  BrowserGuard(const BrowserGuard&) = delete;
  BrowserGuard& operator=(const BrowserGuard&) = delete;
};

// --- Items of a server ---

static INT32 create_item(const RecordRequest& request) {
  T_DLNA_DMP& player = tvc_content<T_DLNA_DMP>(request);
  T_DMP_INST_INFO& item = player.mediaInfo;
  const BrowserGuard guard;
  item.obj_inst = a_vextvapi_dmp_file_create(player.dev_id, item.obj_id);
  if (item.obj_inst == 0) return VEXTVCTRLR_FAIL;
  return tvc_checked(request, a_vextvapi_dmp_file_getMediaType(item.obj_inst, &item.media_type));
}

static INT32 download_item(const RecordRequest& request) {
  return tvc_checked(request,
                     a_vextvapi_dmp_file_downloadFileAsync(tvc_content<T_DLNA_DMP>(request).mediaInfo.obj_inst));
}

static INT32 destroy_item(const RecordRequest& request) {
  return tvc_checked(request, a_vextvapi_dmp_file_destroy(tvc_content<T_DLNA_DMP>(request).mediaInfo.obj_inst));
}

// Reads a text of an item or of the renderer into its array, and terminates it.
template <std::size_t Size>
static void read_text(INT32 (*read)(UINT32 instance, char* text, INT32 size), UINT32 instance,
                      char (&ret_array)[Size]) {
  read(instance, ret_array, Size);
  tvc_end_text(ret_array);
}

// The results of the reads are ignored: what the platform does not know stays empty.
static INT32 get_item_info(const RecordRequest& request) {
  T_DMP_INST_INFO& item = tvc_content<T_DLNA_DMP>(request).mediaInfo;
  T_DMP_META_DATA& data = item.u.mediaMetaData;
  const UINT32 instance = item.obj_inst;
  a_vextvapi_dmp_file_getMediaType(instance, &item.media_type);
  read_text(a_vextvapi_dmp_file_getObjectId, instance, item.file_obj_id);
  a_vextvapi_dmp_file_getParent(instance, &item.parent_dev_id, item.parent_id, sizeof item.parent_id);
  tvc_end_text(item.parent_id);
  if (item.media_type == DLNA_MEDIA_CONTAINER) {
    a_vextvapi_dmp_file_getChildCount(instance, &item.u.subItem.subItemNum);
    read_text(a_vextvapi_dmp_file_getMediaName, instance, data.mediaName);
    return VEXTVCTRLR_OK;
  }
  const bool is_music = item.media_type == DLNA_MEDIA_MUSIC;
  const bool is_photo = item.media_type == DLNA_MEDIA_PHOTO;
  const bool is_video = item.media_type == DLNA_MEDIA_VIDEO;
  read_text(a_vextvapi_dmp_file_getLocalPath, instance, item.local_path);
  read_text(a_vextvapi_dmp_file_getThumbnailLocalPath, instance, item.thumbnail_local_path);
  a_vextvapi_dmp_file_getMediaType(instance, &data.mediaType);
  read_text(a_vextvapi_dmp_file_getMediaName, instance, data.mediaName);
  read_text(a_vextvapi_dmp_file_getMediaExtension, instance, data.mediaExtension);
  a_vextvapi_dmp_file_getMediaSize(instance, &data.mediaSize);
  if (is_music) {
    read_text(a_vextvapi_dmp_file_getMediaArtist, instance, data.mediaArtist);
    read_text(a_vextvapi_dmp_file_getMediaAlbum, instance, data.mediaAlbum);
  }
  if (is_music || is_video) read_text(a_vextvapi_dmp_file_getMediaDuration, instance, data.mediaDuration);
  if (is_photo || is_video) read_text(a_vextvapi_dmp_file_getMediaResolution, instance, data.mediaResolution);
  a_vextvapi_dmp_file_getMediaDate(instance, &data.mediaDate);
  return VEXTVCTRLR_OK;
}

static INT32 list_children(const RecordRequest& request) {
  T_DLNA_DMP& player = tvc_content<T_DLNA_DMP>(request);
  T_DMP_INST_INFO& item = player.mediaInfo;
  T_DMP_INST_CONTAINER(&children)[DMP_LIST_MAX] = item.u.subItem.container;
  const BrowserGuard guard;
  item.media_type = DLNA_MEDIA_CONTAINER;
  std::ranges::fill(children, T_DMP_INST_CONTAINER{});
  player.requestNum = std::clamp<INT32>(player.requestNum, 0, DMP_LIST_MAX);
  T_DMP_INST_CONTAINER found[DMP_LIST_MAX] = {};
  const INT32 ret =
      a_vextvapi_dmp_file_getDirectoryListingAsync(item.obj_inst, found, player.startIdx, player.requestNum);
  if (tvc_failed(ret, request.operation)) return VEXTVCTRLR_FAIL;
  std::copy_n(found, player.requestNum, children);
  return VEXTVCTRLR_OK;
}

// --- The renderer ---

// The renderer's callback, on the platform's thread.
static INT32 _tv_ctrl_dlna_dmr_update_nfy_fct(INT32 type, void* tag, const char* url, const char* protocol_info,
                                              UINT32 arg1, INT32 arg2) {
  T_DLNA_DMR_NOTIFY notify = {};
  notify.type = type;
  notify.tag = tvc_number_of(tag);
  copy_argument(notify.uri, url);
  copy_argument(notify.protocolinfo, protocol_info);
  notify.arg1 = arg1;
  notify.arg2 = arg2;
  tvc_notify(TV_CTRL_RECID_WS_NFY_DLNA_DMR, &notify);
  return VEXTVCTRLR_OK;
}

static INT32 create_renderer(const RecordRequest& request) {
  T_DLNA_DMR& renderer = tvc_content<T_DLNA_DMR>(request);
  renderer.dmr_inst = a_vextvapi_dmr_file_create();
  if (renderer.dmr_inst == 0) return VEXTVCTRLR_FAIL;
  return checked_action(request, a_vextvapi_cb_dmr_nfy_register_callback(
                                     renderer.dmr_inst, _tv_ctrl_dlna_dmr_update_nfy_fct,
                                     reinterpret_cast<void*>(static_cast<uintptr_t>(renderer.dmr_inst))));
}

static INT32 destroy_renderer(const RecordRequest& request) {
  return tvc_checked(request, a_vextvapi_dmr_file_destroy(tvc_content<T_DLNA_DMR>(request).dmr_inst));
}

// The results of the reads are ignored here, too.
static INT32 get_renderer_info(const RecordRequest& request) {
  T_DLNA_DMR& renderer = tvc_content<T_DLNA_DMR>(request);
  T_DMR_META_DATA& data = renderer.mediaMetaData;
  const UINT32 instance = renderer.dmr_inst;
  a_vextvapi_dmr_file_getMediaType(instance, &data.mediaType);
  read_text(a_vextvapi_dmr_file_getMediaName, instance, data.mediaName);
  read_text(a_vextvapi_dmr_file_getMediaExtension, instance, data.mediaExtension);
  a_vextvapi_dmr_file_getMediaSize(instance, &data.mediaSize);
  read_text(a_vextvapi_dmr_file_getMediaArtist, instance, data.mediaArtist);
  read_text(a_vextvapi_dmr_file_getMediaAuthor, instance, data.mediaAuthor);
  read_text(a_vextvapi_dmr_file_getMediaAlbum, instance, data.mediaAlbum);
  read_text(a_vextvapi_dmr_file_getMediaDuration, instance, data.mediaDuration);
  read_text(a_vextvapi_dmr_file_getMediaResolution, instance, data.mediaResolution);
  a_vextvapi_dmr_file_getMediaDate(instance, &data.mediaDate);
  return VEXTVCTRLR_OK;
}

static INT32 download_for_renderer(const RecordRequest& request) {
  T_DLNA_DMR& renderer = tvc_content<T_DLNA_DMR>(request);
  tvc_end_text(renderer.uri);
  tvc_end_text(renderer.protocolinfo);
  const INT32 ret =
      a_vextvapi_dmr_file_downloadFileAsync(renderer.dmr_inst, renderer.uri, renderer.protocolinfo, renderer.path);
  tvc_end_text(renderer.path);
  return tvc_checked(request, ret);
}

static INT32 report_progress(const RecordRequest& request) {
  const T_DLNA_DMR& renderer = tvc_content<T_DLNA_DMR>(request);
  return tvc_checked(request, a_vextvapi_dmr_file_sync_pos(renderer.dmr_inst, renderer.position, renderer.duration));
}

static INT32 report_state(const RecordRequest& request) {
  T_DLNA_DMR& renderer = tvc_content<T_DLNA_DMR>(request);
  tvc_end_text(renderer.uri);
  return tvc_checked(
      request, a_vextvapi_dmr_file_sync_stat(renderer.dmr_inst, renderer.playState, renderer.uri, renderer.value));
}

// --- Rows ---

static constexpr RecordRow kRows[] = {
    {.record = TV_CTRL_RECID_DMS_INIT,
     .type = TYPE_ACTION,
     .set = start_discovery,
     .set_operation = "_tv_ctrl_dlna_dms_init",
     .help = "Starts the events of servers that are found or lost."},
    {.record = TV_CTRL_RECID_DMS_DEINIT,
     .type = TYPE_ACTION,
     .set = stop_discovery,
     .set_operation = "_tv_ctrl_dlna_dms_deinit",
     .help = "Ends the events of servers."},
    {.record = TV_CTRL_RECID_DMP_GET_DMS_TYPE,
     .type = TYPE_DLNA_DMP,
     .get = get_server_type,
     .get_operation = "_tv_ctrl_dlna_dmp_get_dms_type",
     .get_needs = "devId",
     .help = "The kind of a server, in the platform's numbers."},
    {.record = TV_CTRL_RECID_DMP_IS_DMS_WAKABLE,
     .type = TYPE_DLNA_DMP,
     .get = get_wakable,
     .get_operation = "_tv_ctrl_dlna_dmp_is_dms_wakable",
     .get_needs = "devId",
     .help = "Whether a server can be woken while it is off."},
    {.record = TV_CTRL_RECID_DMP_WAKEUP_DMS,
     .type = TYPE_DLNA_DMP,
     .set = wake_server,
     .set_operation = "_tv_ctrl_dlna_dmp_wakeup_dms",
     .set_needs = "devId",
     .help = "Wakes a server that is off."},
    {.record = TV_CTRL_RECID_DMP_CLEAR_OFF_DMS,
     .type = TYPE_DLNA_DMP,
     .set = forget_server,
     .set_operation = "_tv_ctrl_dlna_dmp_clear_off_dms",
     .set_needs = "devId",
     .help = "Forgets a server that is off."},
    {.record = TV_CTRL_RECID_DMP_CREATE_INSTANCE,
     .type = TYPE_DLNA_DMP,
     .get = create_item,
     .get_operation = "_tv_ctrl_dlna_dmp_create_instance",
     .get_needs = "devId objId",
     .help = "Creates a handle for a server's object; returns it with the object's kind."},
    {.record = TV_CTRL_RECID_DMP_DOWNLOAD_FILE,
     .type = TYPE_DLNA_DMP,
     .set = download_item,
     .set_operation = "_tv_ctrl_dlna_dmp_download_file",
     .set_needs = "instance",
     .help = "Starts to download an item."},
    {.record = TV_CTRL_RECID_DMP_DESTROY_INSTANCE,
     .type = TYPE_DLNA_DMP,
     .set = destroy_item,
     .set_operation = "_tv_ctrl_dlna_dmp_destroy_instance",
     .set_needs = "instance",
     .help = "Releases an item's handle."},
    {.record = TV_CTRL_RECID_DMP_GET_REAL_DEV_ID,
     .type = TYPE_DLNA_DMP,
     .get = get_real_device,
     .get_operation = "_tv_ctrl_dlna_dmp_get_real_dev_id",
     .get_needs = "devId",
     .help = "The device behind a server's device. From then on a key press ends a listing or the making of an item."},
    {.record = TV_CTRL_RECID_DMP_GET_MEDIA_INFO,
     .type = TYPE_DLNA_DMP,
     .get = get_item_info,
     .get_needs = "instance",
     .help = "What is known of an item."},
    {.record = TV_CTRL_RECID_DMP_GET_DIR_LIST,
     .type = TYPE_DLNA_DMP,
     .get = list_children,
     .get_operation = "_tv_ctrl_dlna_dmp_get_dir_list",
     .get_needs = "instance requestNum",
     .help = "The children of a container, from an index on, 20 at most."},
    {.record = TV_CTRL_RECID_DMR_INIT,
     .type = TYPE_DLNA_DMR,
     .get = create_renderer,
     .get_operation = "_tv_ctrl_dlna_dmr_init",
     .help = "Makes the set a renderer; returns its handle."},
    {.record = TV_CTRL_RECID_DMR_DEINIT,
     .type = TYPE_DLNA_DMR,
     .set = destroy_renderer,
     .set_operation = "_tv_ctrl_dlna_dmr_deinit",
     .set_needs = "instance",
     .help = "Ends the renderer."},
    {.record = TV_CTRL_RECID_DMR_GET_MEDIA_INFO,
     .type = TYPE_DLNA_DMR,
     .get = get_renderer_info,
     .get_needs = "instance",
     .help = "What is known of the media that a controller sent."},
    {.record = TV_CTRL_RECID_DMR_DOWNLOAD_FILE,
     .type = TYPE_DLNA_DMR,
     .get = download_for_renderer,
     .get_operation = "_tv_ctrl_dlna_dmr_download_file",
     .get_needs = "instance url",
     .help = "Starts to download what a controller sent; returns the path of the file."},
    {.record = TV_CTRL_RECID_DMR_SYNC_PROGRESS,
     .type = TYPE_DLNA_DMR,
     .set = report_progress,
     .set_operation = "_tv_ctrl_dlna_dmr_sync_progress",
     .set_needs = "instance position",
     .help = "Tells controllers the position of the playback."},
    {.record = TV_CTRL_RECID_DMR_SYNC_PLAY_STATE,
     .type = TYPE_DLNA_DMR,
     .set = report_state,
     .set_operation = "_tv_ctrl_dlna_dmr_sync_play_state",
     .set_needs = "instance playState",
     .help = "Tells controllers the state of the playback."},
};

constinit const Handler handler_DLNA = {
    .group = TV_CTRL_GRPID_DLNA, .records = tvc_records<kRows>(), .get_needs_record = false};

INT32 tv_ctrl_get_dlna(UINT16 ui2_id, void* pv_content) { return tvc_handle_get(handler_DLNA, ui2_id, pv_content); }

INT32 tv_ctrl_set_dlna(UINT16 ui2_id, void* pv_content) { return tvc_handle_set(handler_DLNA, ui2_id, pv_content); }
