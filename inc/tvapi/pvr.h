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

/* e_op of a read, of those that answer something else than a page of recordings. With channel_id in t_reclist_info a
 * read is about the recordings of that channel only, else about all. e_type and e_otr_mode are a set's own; the virtual
 * television has recordings of one type and ignores them. */
enum { RECLIST_OP_NUMBER = 2, RECLIST_OP_FILE = 3 };

/* e_op of a write. The members of t_reclist_info that count are named; all others are ignored. */
enum {
  RECLIST_OP_DELETE = 4, /* list_id; not while it is being recorded, nor while the viewer keeps it */
  RECLIST_OP_RENAME = 5, /* list_id; program_name: the new title */
  /* channel_id, 0: the current one; duration, 0: to the end of the present event, with the configured padding, which
   * is followed if it is moved, or without an event g_rec__default_duration; program_name, empty: the event's title */
  RECLIST_OP_RECORD_NOW = 6,
  RECLIST_OP_STOP = 7 /* list_id, 0: the only recording that runs */
};

/* e_sort_type; any other number is the first. */
enum { RECLIST_SORT_NEWEST = 0, RECLIST_SORT_OLDEST = 1, RECLIST_SORT_NAME = 2 };

/* recording_status */
enum {
  RECLIST_STATUS_NONE = 0,      /* there is no such recording */
  RECLIST_STATUS_RECORDING = 1, /* and can be played */
  RECLIST_STATUS_COMPLETE = 2,
  RECLIST_STATUS_PARTIAL = 3, /* ended early; failure_reason says why */
  RECLIST_STATUS_FAILED = 4   /* there is nothing to play */
};

/* failure_reason */
enum {
  RECLIST_REASON_NONE = 0,
  RECLIST_REASON_STOPPED = 1,     /* by the viewer */
  RECLIST_REASON_INTERRUPTED = 2, /* the set was switched off, or ended */
  RECLIST_REASON_DISK_FULL = 3,
  RECLIST_REASON_DISK_ERROR = 4,
  RECLIST_REASON_FILE_GONE = 5, /* the file was deleted or moved */
  RECLIST_REASON_SIGNAL_LOST = 6,
  RECLIST_REASON_NO_SIGNAL = 7,
  RECLIST_REASON_NO_TUNER = 8,
  RECLIST_REASON_SCRAMBLED = 9,
  RECLIST_REASON_DAMAGED = 10, /* complete, but the disk was too slow for parts of it */
  RECLIST_REASON_LIST_FULL = 11,
  RECLIST_REASON_MISSED = 12 /* the set was off */
};

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
  UINT32 duration;             /* s */
  UINT32 expire_time;          /* 0: never, as in the virtual television */
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
  char file_url_id[56]; /* in the folder that ca_mnt_path of the paired disk names */
} RECLIST_ENTRY_T;

typedef struct _Qt_RECLIST_INFO_T {
  INT32 e_op;
  INT32 e_type;
  INT32 e_otr_mode;
  INT32 e_sort_type;
  INT32 recording_status;
  INT32 reclist_num; /* recordings that the read is about */
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
  /* ui2_slot: answers is_rmdr, is_on_going_pvr, and slot_idx, its place in the order of GET_BY_INDEX. */
  RMDR_OP_RECORDING_ON_SLOT = 1,
  RMDR_OP_USB_READY = 2,    /* whether something can be recorded to the disk now */
  RMDR_OP_IS_RECORDING = 4, /* ui4_ref_channel_id, 0: any */
  /* The request of RMDR_OP_ADD: answers conflict_type, conflict_state, and conflict_slot, the first of the reminders
   * that it conflicts with. is_ignore_special_slot 1: the reminder of conflict_slot does not count. */
  RMDR_OP_CONFLICT = 10,
  RMDR_OP_NUMBER = 12,
  RMDR_OP_USB_READY_TO_SHIFT = 13 /* 0: there is no time shift */
};

/* e_operation, of those that answer op_result. They are carried out by a read, since a set reads, too. A read whose
 * op_result is negative returns -1. */
enum {
  RMDR_OP_NONE = 0, /* nothing is done */
  /* e_rmdr_mode, ui4_ref_channel_id; event_id of the guide, or 0 with start_time, duration and s_event_title. Of a
   * recording ui4_rec_start_time and ui4_rec_duration; 0: with the configured padding. Answers ui2_slot. */
  RMDR_OP_ADD = 3,
  RMDR_OP_DELETE = 5,      /* ui2_slot; ends its recording; of a series also its reminders */
  RMDR_OP_MODIFY = 6,      /* ui2_slot; else as RMDR_OP_ADD, with the same mode; not of a series */
  RMDR_OP_GET = 7,         /* ui2_slot: answers the reminder */
  RMDR_OP_GET_BY_INDEX = 8 /* info_data, the place in the order of their times, from 0: answers the reminder */
};

/* e_rmdr_mode */
enum {
  RMDR_MODE_REMIND = 0, /* a message on the screen when the event begins */
  RMDR_MODE_RECORD = 1,
  RMDR_MODE_WATCH = 2, /* the set leaves standby and shows the channel */
  RMDR_MODE_SERIES = 3 /* records the event's series on its channel */
};

/* op_result */
enum {
  RMDR_RESULT_OK = 0,
  RMDR_RESULT_ARGUMENT = -1,  /* a member of the request is wrong */
  RMDR_RESULT_NOT_FOUND = -2, /* no such channel, event or reminder */
  RMDR_RESULT_CONFLICT = -3,  /* not added; conflict_slot says with what */
  RMDR_RESULT_FULL = -4,
  RMDR_RESULT_PAST = -5,
  RMDR_RESULT_NOT_SAVED = -6,
  RMDR_RESULT_DUPLICATE = -7
};

/* conflict_type; conflict_state is 0 for none, else 1. */
enum {
  RMDR_CONFLICT_NONE = 0,
  RMDR_CONFLICT_REMINDERS = 1, /* more multiplexes at once than tuners */
  RMDR_CONFLICT_PICTURE = 2    /* as above, with the channel that the viewer watches; conflict_slot 0 */
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
  UINT8 ui1_genre;    /* of a request without an event the application's, else the event's first category; 0: none */
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
  char ca_mnt_path[160]; /* the folder of the recordings */
} _Qt_PAIRED_DISK_INFO;

/* e_file_status. A write accepts READY, PLAYING and PAUSED. */
enum {
  PVR_FILE_NONE = 0, /* no such recording, or nothing to play */
  PVR_FILE_RECORDING = 1,
  PVR_FILE_READY = 2,
  PVR_FILE_PLAYING = 3, /* this and PAUSED: as was written last */
  PVR_FILE_PAUSED = 4
};

/* A read with list_id 0 is about the recording that was written last, also before the set was switched off. */
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
