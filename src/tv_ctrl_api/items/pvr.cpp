// Item types of recordings and reminders.
#include "tv_ctrl_api/item_types.h"

static constexpr FieldUse kRequest = kQuery | kSet;

// --- Reminders ---

template <int... Operations>
static bool reminder_does(const void* record) {
  const int operation = static_cast<const _RmdrEventInfo_T*>(record)->e_operation;
  return ((operation == Operations) || ...);
}
static constexpr auto kIsRecording = reminder_does<RMDR_OP_IS_RECORDING>;
static constexpr auto kIsOnSlot = reminder_does<RMDR_OP_RECORDING_ON_SLOT>;
static constexpr auto kIsUsbReady = reminder_does<RMDR_OP_USB_READY, RMDR_OP_USB_READY_TO_SHIFT>;
static constexpr auto kIsNumber = reminder_does<RMDR_OP_NUMBER>;
static constexpr auto kIsConflict = reminder_does<RMDR_OP_CONFLICT>;

static bool reports_result(const void* record) {
  return !reminder_does<RMDR_OP_IS_RECORDING, RMDR_OP_RECORDING_ON_SLOT, RMDR_OP_USB_READY, RMDR_OP_USB_READY_TO_SHIFT,
                        RMDR_OP_NUMBER, RMDR_OP_CONFLICT>(record);
}

#define REMINDER(json_key, member, uses, ...) \
  { .key = json_key, TVC_MEMBER(_RmdrEventInfo_T, member), .use = uses, __VA_ARGS__ }

static constexpr Field kReminderFields[] = {
    REMINDER("operation", e_operation, kRequest | kResponse,
             .help = "what is done, or asked for, in the platform's numbers"),
    REMINDER("mode", e_rmdr_mode, kRequest | kResponse, .help = "kind of reminder"),
    REMINDER("channel_id", ui4_ref_channel_id, kRequest | kResponse, .help = "channel of the event"),
    REMINDER("event_id", event_id, kRequest | kResponse, .help = "identifier of the event"),
    REMINDER("start_time", start_time, kRequest | kResponse, .unit = "s since 1970", .help = "beginning of the event"),
    REMINDER("duration", duration, kRequest | kResponse, .unit = "s", .help = "length of the event"),
    REMINDER("rec_start_time", ui4_rec_start_time, kRequest | kResponse, .unit = "s since 1970",
             .help = "beginning of the recording"),
    REMINDER("rec_duration", ui4_rec_duration, kRequest | kResponse, .unit = "s", .help = "length of the recording"),
    REMINDER("slot", ui2_slot, kRequest | kResponse, .help = "slot of the reminder"),
    REMINDER("genre", ui1_genre, kRequest | kResponse, .help = "genre of the event"),
    REMINDER("event_title", s_event_title, kRequest | kResponse, .help = "title of the event"),
    REMINDER("info_data", info_data, kRequest | kResponse, .help = "further data of the operation"),
    REMINDER("is_recording", is_recording, kResponse, .when = kIsRecording, .help = "1: something is being recorded"),
    REMINDER("is_rmdr", is_rmdr, kResponse, .when = kIsOnSlot, .help = "1: there is a reminder"),
    REMINDER("is_on_going_pvr", is_on_going_pvr, kResponse, .when = kIsOnSlot, .help = "1: it is being recorded"),
    REMINDER("slot_idx", slot_idx, kResponse, .when = kIsOnSlot, .help = "slot of the reminder"),
    REMINDER("is_usb_ready", is_usb_ready, kResponse, .when = kIsUsbReady, .help = "1: the USB disk is ready"),
    REMINDER("total_rmdr_num", total_rmdr_num, kResponse, .when = kIsNumber, .help = "reminders in all"),
    REMINDER("conflict_type", conflict_type, kResponse, .when = kIsConflict, .help = "kind of conflict"),
    REMINDER("conflict_slot", conflict_slot, kRequest, .help = "slot that the conflict is with"),
    REMINDER("conflict_slot", conflict_slot, kResponse, .when = kIsConflict, .help = "slot that the conflict is with"),
    REMINDER("conflict_state", conflict_state, kResponse, .when = kIsConflict, .help = "state of the conflict"),
    REMINDER("is_ignore_special_slot", is_ignore_special_slot, kRequest, .help = "1: one slot is ignored"),
    REMINDER("is_ignore_special_slot", is_ignore_special_slot, kResponse, .when = kIsConflict,
             .help = "1: one slot is ignored"),
    REMINDER("op_result", op_result, kResponse, .when = reports_result, .help = "result of the operation"),
};

constexpr ItemType item_PVR_RMDR_EVENT = {.type = TYPE_PVR_RMDR_EVENT,
                                          .record_size = sizeof(_RmdrEventInfo_T),
                                          .error_word = "pvr rdmr event",
                                          .renderer = "_json_print_pvr_rmdr_event_type",
                                          .fields = kReminderFields};

// --- The disk ---

static constexpr Field kPairedDiskFields[] = {
    {.key = "freeSize",
     TVC_MEMBER(_Qt_PAIRED_DISK_INFO, ui8_free_size),
     .use = kResponse,
     .unit = "byte",
     .help = "room left"},
    {.key = "totalSize",
     TVC_MEMBER(_Qt_PAIRED_DISK_INFO, ui8_total_size),
     .use = kResponse,
     .unit = "byte",
     .help = "room in all"},
    {.key = "mntPath", TVC_MEMBER(_Qt_PAIRED_DISK_INFO, ca_mnt_path), .use = kResponse, .help = "mount point"},
};

constexpr ItemType item_PVR_REC_PAIRED_DISK_INFO = {.type = TYPE_PVR_REC_PAIRED_DISK_INFO,
                                                    .record_size = sizeof(_Qt_PAIRED_DISK_INFO),
                                                    .renderer = "_json_print_pvr_rec_paired_disk_info_type",
                                                    .fields = kPairedDiskFields};

// --- The file that plays, and the recorder's forms on the screen ---

static constexpr Field kFileInfoFields[] = {
    {.key = "fileStatus",
     TVC_MEMBER(_PvrFileInfo, e_file_status),
     .use = kRequest | kResponse,
     .help = "state of the file, in the platform's numbers"},
    {.key = "resumeTime",
     TVC_MEMBER(_PvrFileInfo, ui4_resume_time),
     .use = kRequest | kResponse,
     .unit = "s",
     .help = "where playing goes on"},
    {.key = "listId",
     TVC_MEMBER(_PvrFileInfo, ui2_list_id),
     .use = kRequest | kResponse,
     .help = "recording in the list"},
};

constexpr ItemType item_PVR_FILE_INFO = {.type = TYPE_PVR_FILE_INFO,
                                         .record_size = sizeof(_PvrFileInfo),
                                         .error_word = "pvr file info",
                                         .renderer = "_json_print_pvr_file_info_type",
                                         .fields = kFileInfoFields};

static constexpr Field kUiStatusFields[] = {
    {.key = "formId", TVC_MEMBER(_PvrUiStatus, formId), .use = kSet, .help = "form that is shown"},
    {.key = "formState", TVC_MEMBER(_PvrUiStatus, formState), .use = kSet, .help = "state of the form"},
};

constexpr ItemType item_PVR_UI_STATUS = {.type = TYPE_PVR_UI_STATUS,
                                         .record_size = sizeof(_PvrUiStatus),
                                         .error_word = "pvr ui status",
                                         .fields = kUiStatusFields};

// --- Recordings ---

#define RECORDINGS(json_key, member, ...) \
  { .key = json_key, TVC_MEMBER(_Qt_RECLIST_INFO_T, member), __VA_ARGS__ }
#define RECORDING(json_key, member, ...) \
  { .key = json_key, TVC_MEMBER(RECLIST_ENTRY_T, member), __VA_ARGS__ }

static constexpr Field kRecordListFields[] = {
    RECORDINGS("operation", e_op, .use = kRequest,
               .values = "2=count the recordings\0"
                         "3=name a file\0",
               .help = "what is done, or asked for; any other number: a page of recordings"),
    RECORDINGS("type", e_type, .use = kRequest, .help = "kind of recordings, in the platform's numbers"),
    RECORDINGS("otr_mode", e_otr_mode, .use = kRequest, .help = "mode of one touch recordings"),
    RECORDINGS("start_slot", start_slot, .use = kRequest, .help = "slot that the page begins with"),
    RECORDINGS("page_index", page_index, .use = kRequest, .help = "which page, of 9 recordings each"),
    RECORDINGS("sort_type", e_sort_type, .use = kRequest, .help = "order, in the platform's numbers"),
    RECORDINGS("file_name_id", file_name_id, .use = kRequest, .help = "file of the recording"),
    RECORDINGS("recording_status", recording_status, .use = kRequest, .help = "state, in the platform's numbers"),
    RECORDINGS("channel_id", t_reclist_info.channel_id, .use = kRequest, .help = "channel of the recording"),
    RECORDINGS("start_time", t_reclist_info.start_time, .use = kRequest, .unit = "s since 1970", .help = "beginning"),
    RECORDINGS("duration", t_reclist_info.duration, .use = kRequest, .unit = "s", .help = "length"),
    RECORDINGS("slot", t_reclist_info.slot, .use = kRequest, .help = "slot of the recording"),
    RECORDINGS("list_id", t_reclist_info.list_id, .use = kRequest, .help = "recording in the list"),
    RECORDINGS("program_name", t_reclist_info.program_name, .use = kRequest, .help = "title"),
};

static constexpr Field kNumberFields[] = {RECORDINGS("reclist_num", reclist_num, .help = "recordings in all")};

static constexpr Field kFileFields[] = {
    RECORDINGS("recording_status", recording_status, .help = "state, in the platform's numbers"),
    RECORDINGS("file_name_id", file_name_id, .help = "file of the recording"),
    RECORDINGS("file_url_id", file_url_id, .help = "address of the file"),
};

static constexpr Field kRecordingFields[] = {
    RECORDING("channel_id", channel_id, .help = "channel of the recording"),
    RECORDING("start_time", start_time, .unit = "s since 1970", .help = "beginning"),
    RECORDING("duration", duration, .unit = "s", .help = "length"),
    RECORDING("expire_time", expire_time, .unit = "s since 1970", .help = "when it expires"),
    RECORDING("playback_resume_time", playback_resume_time, .unit = "s", .help = "where playing goes on"),
    RECORDING("channel_logo_id", channel_logo_id, .help = "logo of the channel; 0: none"),
    RECORDING("slot", slot, .help = "slot of the recording"),
    RECORDING("list_id", list_id, .help = "recording in the list"),
    RECORDING("b_recording_complete", b_recording_complete, .help = "1: recorded to its end"),
    RECORDING("recording_status", recording_status, .help = "state, in the platform's numbers"),
    RECORDING("failure_reason", failure_reason, .help = "why it failed, in the platform's numbers"),
    RECORDING("program_name", program_name, .help = "title"),
    RECORDING("channel_name", channel_name, .help = "name of the channel"),
    RECORDING("file_name_id", file_name_id, .help = "file of the recording"),
    RECORDING("file_url_id", file_url_id, .help = "address of the file"),
    RECORDING("ver", ver, .help = "version of the entry"),
    RECORDING("event_id", event_id, .help = "identifier of the event"),
    RECORDING("sizeinMB", sizeinMB, .unit = "MB", .help = "size of the file"),
    RECORDING("b_scrambled", b_scrambled, .help = "1: scrambled"),
};

template <int Operation>
static bool list_does(const void* record) {
  return static_cast<const _Qt_RECLIST_INFO_T*>(record)->e_op == Operation;
}

static constexpr ItemForm kRecordListForms[] = {
    {.when = list_does<RECLIST_OP_NUMBER>, .fields = kNumberFields},
    {.when = list_does<RECLIST_OP_FILE>, .fields = kFileFields},
    {.fields = kRecordingFields,
     .list = {TVC_ENTRIES(_Qt_RECLIST_INFO_T, at_page), .shows =
                                                            [](const void* entry) {
                                                              const auto& row =
                                                                  *static_cast<const RECLIST_ENTRY_T*>(entry);
                                                              return row.channel_id != 0 && row.start_time != 0;
                                                            }}},
};

constexpr ItemType item_PVR_REC_LIST_INFO = {.type = TYPE_PVR_REC_LIST_INFO,
                                             .record_size = sizeof(_Qt_RECLIST_INFO_T),
                                             .error_word = "pvr record list",
                                             .renderer = "_json_print_pvr_rec_list_type",
                                             .fields = kRecordListFields,
                                             .forms = kRecordListForms};
