// Recording file playback group: commands of the service that plays recordings, and what the application reports back.
#include <string.h>

#include "tv_ctrl_util/log.h"
#include "tvapi/pus.h"
#include "tvctl_common/handler.h"
#include "tvctl_common/record.h"

// The service's callback, on the service's thread.
static INT32 _tv_ctrl_pus_play_nfy_fct(UINT32 instance, INT32 command, void* value, INT32) {
  T_PUS_NOTIFY notify = {.instance = instance, .play_cmd = command, .value = reinterpret_cast<intptr_t>(value)};
  tvc_notify(TV_CTRL_RECID_WS_NFY_CBROWSER_PUS, &notify);
  return VEXTVCTRLR_OK;
}

INT32 tv_ctrl_pus_init(void) {
  if (tvc_failed(a_vextvapi_pus_init())) return VEXTVCTRLR_FAIL;
  if (tvc_failed(a_vextvapi_pus_reg_callback(_tv_ctrl_pus_play_nfy_fct))) return VEXTVCTRLR_FAIL;
  return VEXTVCTRLR_OK;
}

static INT32 start_service(const RecordRequest&) { return tv_ctrl_pus_init(); }

static INT32 stop_service(const RecordRequest& request) {
  const INT32 ret = a_vextvapi_pus_deinit();
  tvc_failed(ret, request.operation);
  return ret;
}

// Copies a text without its end, into an array that was cleared.
template <std::size_t Size>
static void copy_characters(char (&ret_array)[Size], const char (&text)[Size]) {
  memcpy(ret_array, text, strnlen(text, Size - 1));
}

// The service's result is ignored: when it knows no file, the information stays empty.
static INT32 get_file_info(const RecordRequest& request) {
  T_PUS& pus = tvc_content<T_PUS>(request);
  T_PUS_FILE_INFO_T found = {};
  a_vextvapi_pus_get_file_info(pus.instance, &found);
  T_PUS_FILE_INFO_T& info = pus.file_info;
  copy_characters(info.url, found.url);
  copy_characters(info.channelName, found.channelName);
  info.eventId = found.eventId;
  copy_characters(info.eventName, found.eventName);
  info.startDateTime = found.startDateTime;
  info.endDateTime = found.endDateTime;
  info.duration = found.duration;
  info.sizeInMB = found.sizeInMB;
  info.fileType = found.fileType;
  return VEXTVCTRLR_OK;
}

static INT32 submit_status(const RecordRequest& request) {
  const T_PUS& pus = tvc_content<T_PUS>(request);
  return tvc_checked_zero(request, a_vextvapi_pus_submit_status(pus.instance, pus.state, pus.value, 0));
}

static constexpr RecordRow kRows[] = {
    {.record = TV_CTRL_RECID_PUS_INIT,
     .type = TYPE_ACTION,
     .set = start_service,
     .help = "Starts the recording file playback service, as the set's start-up does."},
    {.record = TV_CTRL_RECID_PUS_DEINIT,
     .type = TYPE_ACTION,
     .set = stop_service,
     .set_operation = "_tv_ctrl_pus_deinit",
     .help = "Stops the recording file playback service."},
    {.record = TV_CTRL_RECID_PUS_GET_FILE_INFO,
     .type = TYPE_PUS,
     .get = get_file_info,
     .get_needs = "instance",
     .help = "The recording that a playback of the service plays."},
    {.record = TV_CTRL_RECID_PUS_SUBMIT_STATUS,
     .type = TYPE_PUS,
     .set = submit_status,
     .set_operation = "_tv_ctrl_pus_submit_status",
     .set_needs = "instance state",
     .help = "Tells the service the state of a playback, in the service's numbers."},
};

constinit const Handler handler_PUS = {.group = TV_CTRL_GRPID_PUS,
                                       .records = tvc_records<kRows>(),
                                       .get_needs_record = false,
                                       .start = tv_ctrl_pus_init,
                                       .start_turn = 7};

INT32 tv_ctrl_get_pus(UINT16 ui2_id, void* pv_content) { return tvc_handle_get(handler_PUS, ui2_id, pv_content); }

INT32 tv_ctrl_set_pus(UINT16 ui2_id, void* pv_content) { return tvc_handle_set(handler_PUS, ui2_id, pv_content); }
