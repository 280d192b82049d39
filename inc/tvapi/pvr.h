/* Recordings and reminders: the records of the structured configuration items that read and control the recorder.
 * Their lengths are part of the contract, and the same on every machine. Times are in seconds since 1970, UTC. */
#ifndef TVAPI_PVR_TYPES_H
#define TVAPI_PVR_TYPES_H

#include "tvapi/types.h"

/* Item ids of the configuration store; see getConfigValueStruct. */
enum {
  VEXTVAPI_CONFIG_ITEM_PVR_REMINDER = 0x09350000,
  VEXTVAPI_CONFIG_ITEM_GUIDE_UPDATE = 0x09350001,
  VEXTVAPI_CONFIG_ITEM_PVR_RECORD_LIST = 0x09350002,
  VEXTVAPI_CONFIG_ITEM_PVR_PAIRED_DISK = 0x09250005
};
#define VEXTVAPI_CONFIG_ITEM_PVR_FILE_INFO 0xFF350021U
#define VEXTVAPI_CONFIG_ITEM_PVR_UI_STATUS 0xFF350022U

/* --- The list of recordings --- */

/* e_op, of those that answer something else than a page of recordings. */
enum { RECLIST_OP_NUMBER = 2, RECLIST_OP_FILE = 3 };

/* The recording that a request names. */
typedef struct {
  UINT32 channel_id;
  UINT32 start_time;
  UINT32 duration; /* s */
  UINT16 slot;
  UINT16 list_id;
  char program_name[72];
} RECLIST_REQUEST_T;

/* A recording. Without a channel or start time the entry is empty. */
typedef struct {
  UINT32 channel_id;
  UINT32 start_time;
  UINT32 duration; /* s */
  UINT32 expire_time;
  UINT32 playback_resume_time; /* s from the beginning */
  UINT32 channel_logo_id;
  INT32 recording_status; /* in the platform's numbers, as is the reason */
  INT32 failure_reason;
  UINT32 ver;
  UINT32 sizeinMB;
  UINT16 slot;
  UINT16 list_id;
  UINT16 event_id;
  UINT8 b_recording_complete;
  UINT8 b_scrambled;
  char program_name[72];
  char channel_name[72];
  char file_name_id[32];
  char file_url_id[56];
} RECLIST_ENTRY_T;

typedef struct _Qt_RECLIST_INFO_T {
  INT32 e_op;
  INT32 e_type;
  INT32 e_otr_mode;
  INT32 e_sort_type;
  INT32 recording_status;
  INT32 reclist_num; /* recordings in all */
  UINT16 start_slot;
  UINT16 page_index;
  RECLIST_REQUEST_T t_reclist_info;
  char file_name_id[32];
  char file_url_id[56];
  RECLIST_ENTRY_T at_page[9];
} _Qt_RECLIST_INFO_T;

/* --- Reminders and timers --- */

/* e_operation, of those that answer something else than op_result. */
enum {
  RMDR_OP_RECORDING_ON_SLOT = 1,
  RMDR_OP_USB_READY = 2,
  RMDR_OP_IS_RECORDING = 4,
  RMDR_OP_CONFLICT = 10,
  RMDR_OP_NUMBER = 12,
  RMDR_OP_USB_READY_TO_SHIFT = 13
};

typedef struct _RmdrEventInfo_T {
  INT32 e_operation;
  INT32 e_rmdr_mode;
  UINT32 ui4_ref_channel_id;
  UINT32 start_time;         /* of the event */
  UINT32 duration;           /* s */
  UINT32 ui4_rec_start_time; /* of the recording */
  UINT32 ui4_rec_duration;   /* s */
  UINT32 info_data;
  INT32 op_result;
  UINT16 event_id;
  UINT16 ui2_slot;
  UINT16 slot_idx;
  UINT16 total_rmdr_num;
  UINT16 conflict_slot;
  UINT8 conflict_type;
  UINT8 conflict_state;
  UINT8 ui1_genre;
  UINT8 is_recording; /* flags from here on */
  UINT8 is_rmdr;
  UINT8 is_on_going_pvr;
  UINT8 is_usb_ready;
  UINT8 is_ignore_special_slot;
  char s_event_title[42];
} _RmdrEventInfo_T;

/* --- The disk, the file that plays, and the recorder's forms on the screen --- */

typedef struct _Qt_PAIRED_DISK_INFO {
  UINT64 ui8_free_size; /* bytes */
  UINT64 ui8_total_size;
  char ca_mnt_path[160];
} _Qt_PAIRED_DISK_INFO;

typedef struct _PvrFileInfo {
  INT32 e_file_status;
  UINT32 ui4_resume_time; /* s from the beginning */
  UINT16 ui2_list_id;
} _PvrFileInfo;

typedef struct _PvrUiStatus {
  INT32 formId;
  INT32 formState;
} _PvrUiStatus;

/* --- An update of the programme guide --- */

typedef enum {
  PpgOp_NULL = 0,
  PpgOp_UpdateStart = 1,
  PpgOp_UpdateStop = 2,
  PpgOp_UpdateGetState = 3,
  PpgOp_UpdateGetChNum = 4
} PpgUpdateOp_T;

typedef union {
  UINT16 ui2_update_state; /* of PpgOp_UpdateGetState */
  UINT16 ui2_ch_num;       /* of PpgOp_UpdateGetChNum: channels left */
} PpgUpdateRetVal_T;

typedef struct _PpgUpdateGuide_T {
  INT32 e_op; /* a PpgUpdateOp_T, or any other number */
  PpgUpdateRetVal_T u_retval;
} PpgUpdateGuide_T;

#endif

#include "tvapi/begin.h"

TVAPI_RECORD(RECLIST_REQUEST_T, channel_id, start_time, duration, slot, list_id, program_name)
TVAPI_RECORD(RECLIST_ENTRY_T, channel_id, start_time, duration, expire_time, playback_resume_time, channel_logo_id,
             recording_status, failure_reason, ver, sizeinMB, slot, list_id, event_id, b_recording_complete,
             b_scrambled, program_name, channel_name, file_name_id, file_url_id)
TVAPI_RECORD(_Qt_RECLIST_INFO_T, e_op, e_type, e_otr_mode, e_sort_type, recording_status, reclist_num, start_slot,
             page_index, t_reclist_info, file_name_id, file_url_id, at_page)
TVAPI_RECORD(_RmdrEventInfo_T, e_operation, e_rmdr_mode, ui4_ref_channel_id, start_time, duration, ui4_rec_start_time,
             ui4_rec_duration, info_data, op_result, event_id, ui2_slot, slot_idx, total_rmdr_num, conflict_slot,
             conflict_type, conflict_state, ui1_genre, is_recording, is_rmdr, is_on_going_pvr, is_usb_ready,
             is_ignore_special_slot, s_event_title)
TVAPI_RECORD(_Qt_PAIRED_DISK_INFO, ui8_free_size, ui8_total_size, ca_mnt_path)
TVAPI_RECORD(_PvrFileInfo, e_file_status, ui4_resume_time, ui2_list_id)
TVAPI_RECORD(_PvrUiStatus, formId, formState)
TVAPI_UNION(PpgUpdateRetVal_T, ui2_update_state, ui2_ch_num)
TVAPI_RECORD(PpgUpdateGuide_T, e_op, u_retval)

TVAPI_ITEM(VEXTVAPI_CONFIG_ITEM_PVR_REMINDER, _RmdrEventInfo_T)
TVAPI_ITEM(VEXTVAPI_CONFIG_ITEM_GUIDE_UPDATE, PpgUpdateGuide_T)
TVAPI_ITEM(VEXTVAPI_CONFIG_ITEM_PVR_RECORD_LIST, _Qt_RECLIST_INFO_T)
TVAPI_ITEM(VEXTVAPI_CONFIG_ITEM_PVR_PAIRED_DISK, _Qt_PAIRED_DISK_INFO)
TVAPI_ITEM(VEXTVAPI_CONFIG_ITEM_PVR_FILE_INFO, _PvrFileInfo)
TVAPI_ITEM(VEXTVAPI_CONFIG_ITEM_PVR_UI_STATUS, _PvrUiStatus)

#include "tvapi/end.h"
