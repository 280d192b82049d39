// Recording group: records of the recorder, moved whole between requests and the configuration store.
#include "tvapi/config.h"
#include "tvctl_common/handler.h"
#include "tvctl_common/record.h"

template <UINT32 ItemId, typename Record>
static INT32 read_item(const RecordRequest& request) {
  UINT32 length = sizeof(Record);
  return getConfigValueStruct(ItemId, &length, &tvc_content<Record>(request));
}

template <UINT32 ItemId, typename Record>
static INT32 write_item(const RecordRequest& request) {
  return setConfigValueStruct(ItemId, sizeof(Record), &tvc_content<Record>(request));
}

static constexpr RecordRow kRows[] = {
    {.record = TV_CTRL_RECID_RECORD_LIST_INFO,
     .type = TYPE_PVR_REC_LIST_INFO,
     .get = read_item<VEXTVAPI_CONFIG_ITEM_PVR_RECORD_LIST, _Qt_RECLIST_INFO_T>,
     .set = write_item<VEXTVAPI_CONFIG_ITEM_PVR_RECORD_LIST, _Qt_RECLIST_INFO_T>,
     .get_needs = "operation",
     .set_needs = "operation",
     .help = "The list of recordings: a page of it, how many there are, or one recording's file."},
    {.record = TV_CTRL_RECID_REMINDER_EVENT,
     .type = TYPE_PVR_RMDR_EVENT,
     .get = read_item<VEXTVAPI_CONFIG_ITEM_PVR_REMINDER, _RmdrEventInfo_T>,
     .set = read_item<VEXTVAPI_CONFIG_ITEM_PVR_REMINDER, _RmdrEventInfo_T>,  // a set reads, too
     .get_needs = "operation",
     .set_needs = "operation",
     .help = "Reminders and timers: what the operation says is done, or asked for."},
    {.record = TV_CTRL_RECID_RECORD_PAIRED_DISK_INFO,
     .type = TYPE_PVR_REC_PAIRED_DISK_INFO,
     .get = read_item<VEXTVAPI_CONFIG_ITEM_PVR_PAIRED_DISK, _Qt_PAIRED_DISK_INFO>,
     .help = "The disk that recordings are written to."},
    {.record = TV_CTRL_RECID_FILE_INFO,
     .type = TYPE_PVR_FILE_INFO,
     .get = read_item<VEXTVAPI_CONFIG_ITEM_PVR_FILE_INFO, _PvrFileInfo>,
     .set = write_item<VEXTVAPI_CONFIG_ITEM_PVR_FILE_INFO, _PvrFileInfo>,
     .help = "The recording that plays: its state, and where playing goes on."},
    {.record = TV_CTRL_RECID_UI_STATUS,
     .type = TYPE_PVR_UI_STATUS,
     .set = write_item<VEXTVAPI_CONFIG_ITEM_PVR_UI_STATUS, _PvrUiStatus>,
     .set_needs = "formId formState",
     .help = "Tells the recorder which of its forms the screen shows, and its state."},
};

constinit const Handler handler_PVR = {.group = TV_CTRL_GRPID_PVR,
                                       .records = tvc_records<kRows>(),
                                       .set_without_record = WithoutRecord::kRefusedUnlessAction};

INT32 tv_ctrl_get_pvr_info(UINT16 ui2_id, void* pv_content) { return tvc_handle_get(handler_PVR, ui2_id, pv_content); }

INT32 tv_ctrl_set_pvr_info(UINT16 ui2_id, void* pv_content) { return tvc_handle_set(handler_PVR, ui2_id, pv_content); }
