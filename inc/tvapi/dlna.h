/* The home network: servers whose media the set plays, and the set as a renderer that others control. A device or an
 * object is a number, an item's or the renderer's instance a handle. */
#ifndef TVAPI_DLNA_TYPES_H
#define TVAPI_DLNA_TYPES_H

#include "tvapi/date.h"
#include "tvapi/types.h"

/* Kinds of items: only the values that the plugin uses. */
enum { DLNA_MEDIA_PHOTO = 1, DLNA_MEDIA_MUSIC = 2, DLNA_MEDIA_VIDEO = 3, DLNA_MEDIA_CONTAINER = 6 };

enum { DMP_LIST_MAX = 20 }; /* children that one listing gives */

/* What a controller asks of the renderer: the type of its callback. url and protocol_info are of the item concerned.
 * Arguments that are not listed are 0. */
enum {
  DMR_REQUEST_LOAD = 1, /* load this item; without a url: drop the item. arg1: kind of item (DLNA_MEDIA_...), 0: not
                           known; arg2: duration in s */
  DMR_REQUEST_PLAY = 2, /* play, or resume. arg1: where to begin, in s */
  DMR_REQUEST_PAUSE = 3,
  DMR_REQUEST_STOP = 4,
  DMR_REQUEST_SEEK = 5,     /* arg1: the position in s */
  DMR_REQUEST_LOAD_NEXT = 6 /* the item to prepare, which a later LOAD loads; arg1 as for LOAD */
};

/* What an application reports about the item that the controller sent last. */
enum {
  DMR_STATE_NO_MEDIA = 0, /* the application has dropped the item */
  DMR_STATE_STOPPED = 1,
  DMR_STATE_OPENING = 2,
  DMR_STATE_PLAYING = 3,
  DMR_STATE_PAUSED = 4,
  DMR_STATE_FAILED = 5, /* value: the application's number for the cause */
  DMR_STATE_ENDED = 6   /* the item has ended: the renderer requests the next one, or the same again */
};

/* Types of the servers' callback; dev_id is the server, server_name its name. */
enum {
  DMS_FOUND = 0,     /* a server is on; registering the callback reports each one that is on already */
  DMS_LOST = 1,      /* a server is off; it stays known until it is forgotten */
  DMS_CHANGED = 2,   /* its name or its address has changed */
  DMS_FORGOTTEN = 3, /* it was forgotten, to make room for another server or by a command */
  DMS_PROGRESS = 4,  /* of a download: arg1 is the object, arg2 the percent, in steps of 10 */
  DMS_DOWNLOAD = 5,  /* a download has ended: arg1 is the object, arg2 one of the results below */
  DMS_THUMBNAIL = 6  /* an item's thumbnail was fetched and has a local path: arg1 is the object */
};
enum { DMS_DOWNLOAD_DONE = 0, DMS_DOWNLOAD_FAILED = 1, DMS_DOWNLOAD_CANCELLED = 2 };

/* Types of a server. */
enum { DMS_TYPE_ON = 1, DMS_TYPE_OFF = 2 };

enum { DMP_ROOT_OBJECT = 0 };  /* of every server */
enum { DMP_WAIT_SECONDS = 3 }; /* after which a call that waits for a server fails */

/* The keys' callback: arg1 is DMP_KEY_PRESSED, arg2 the key's infrared code, arg3 is 0, arg4 DMP_KEY_LEAVES for the key
 * EXIT, DMP_KEY_STAYS for all others. */
enum { DMP_KEY_PRESSED = 0 };
enum { DMP_KEY_LEAVES = 0, DMP_KEY_STAYS = 1 };

/* A child of a container. 0 as either: none. */
typedef struct {
  INT32 devId;
  INT32 objectId;
} T_DMP_INST_CONTAINER;

#endif

#include "tvapi/begin.h"

TVAPI_RECORD(T_DMP_INST_CONTAINER, devId, objectId)

/* All return 0, negative on failure, where they do not say otherwise; a create returns a handle, 0 on failure. size: a
 * text's room in characters. */

/* --- Servers --- */

/* Called by the platform, on a thread of its own, when a server is found or lost; type and the arguments are in the
 * platform's numbers. */
TVAPI_CALLBACK(INT32, a_vextvapi_cb_dms_detect_nfy_fct, IN(INT32, type), TAG(void*, tag), IN_TEXT(server_name),
               IN(INT32, dev_id), IN(UINT32, arg1), IN(UINT32, arg2))

/* Registers the one callback for servers, and starts the search for them; null ends both. */
TVAPI_FN(INT32, a_vextvapi_cb_dms_detect_register_callback, CALLBACK(a_vextvapi_cb_dms_detect_nfy_fct, callback),
         TAG(void*, tag))

TVAPI_FN(INT32, a_vextvapi_dmp_getDmsType, IN(INT32, dev_id), OUT(INT32, type))
/* Returns the device that replaces this one. A server that was installed again has a new device number: for a server
 * that is off, real_dev_id is the one that is on with the same name and network card. Else it is dev_id. */
TVAPI_FN(INT32, a_vextvapi_dmp_getRealDms, IN(INT32, dev_id), OUT(INT32, real_dev_id))

/* Whether a server that is off can be woken: wakable becomes 1 or 0. */
TVAPI_FN(INT32, a_vextvapi_dmp_isDmsWakable, IN(INT32, dev_id), OUT(INT32, wakable))
TVAPI_FN(INT32, a_vextvapi_dmp_wakeDmsByMac, IN(INT32, dev_id))

/* Forgets a server that is off. */
TVAPI_FN(INT32, a_vextvapi_dmp_clearOffDms, IN(INT32, dev_id))

/* Ends the operation that waits for a server, which then fails. Called on another thread than that operation. */
TVAPI_FN(INT32, a_vextvapi_dmp_breakDms, IN(INT32, dev_id))

/* Called by the platform, on a thread of its own, when a key is pressed while an application runs. */
TVAPI_CALLBACK(INT32, a_vextvapi_html5_agent_nfy_fct, IN(UINT32, arg1), IN(UINT32, arg2), IN(UINT32, arg3),
               IN(UINT32, arg4))

/* Registers the one callback for keys. */
TVAPI_FN(INT32, a_vextvapi_html5_agent_register_cb_for_usb, CALLBACK(a_vextvapi_html5_agent_nfy_fct, callback),
         TAG(void*, tag))

/* --- Items of a server --- */

TVAPI_FN(UINT32, a_vextvapi_dmp_file_create, IN(INT32, dev_id), IN(INT32, obj_id))
TVAPI_FN(INT32, a_vextvapi_dmp_file_destroy, IN(UINT32, instance))

/* Starts to download an item; see DMS_DOWNLOAD. */
TVAPI_FN(INT32, a_vextvapi_dmp_file_downloadFileAsync, IN(UINT32, instance))

/* Waits for a part of a container's children: request_num of them from start_idx on. Where there are fewer, the rest of
 * the list stays empty. */
TVAPI_FN(INT32, a_vextvapi_dmp_file_getDirectoryListingAsync, IN(UINT32, instance),
         OUT_ARRAY(T_DMP_INST_CONTAINER, list, request_num), IN(INT32, start_idx), IN(INT32, request_num))

TVAPI_FN(INT32, a_vextvapi_dmp_file_getMediaType, IN(UINT32, instance), OUT(INT32, type))
TVAPI_FN(INT32, a_vextvapi_dmp_file_getObjectId, IN(UINT32, instance), OUT_TEXT(id, size), IN(INT32, size))
TVAPI_FN(INT32, a_vextvapi_dmp_file_getParent, IN(UINT32, instance), OUT(INT32, dev_id), OUT_TEXT(id, size),
         IN(INT32, size))
TVAPI_FN(INT32, a_vextvapi_dmp_file_getChildCount, IN(UINT32, instance), OUT(INT32, count))
TVAPI_FN(INT32, a_vextvapi_dmp_file_getLocalPath, IN(UINT32, instance), OUT_TEXT(path, size), IN(INT32, size))
TVAPI_FN(INT32, a_vextvapi_dmp_file_getThumbnailLocalPath, IN(UINT32, instance), OUT_TEXT(path, size), IN(INT32, size))
TVAPI_FN(INT32, a_vextvapi_dmp_file_getMediaName, IN(UINT32, instance), OUT_TEXT(name, size), IN(INT32, size))
TVAPI_FN(INT32, a_vextvapi_dmp_file_getMediaExtension, IN(UINT32, instance), OUT_TEXT(extension, size), IN(INT32, size))
TVAPI_FN(INT32, a_vextvapi_dmp_file_getMediaSize, IN(UINT32, instance), OUT(INT32, bytes))
TVAPI_FN(INT32, a_vextvapi_dmp_file_getMediaArtist, IN(UINT32, instance), OUT_TEXT(artist, size), IN(INT32, size))
TVAPI_FN(INT32, a_vextvapi_dmp_file_getMediaAlbum, IN(UINT32, instance), OUT_TEXT(album, size), IN(INT32, size))
TVAPI_FN(INT32, a_vextvapi_dmp_file_getMediaDuration, IN(UINT32, instance), OUT_TEXT(duration, size), IN(INT32, size))
TVAPI_FN(INT32, a_vextvapi_dmp_file_getMediaResolution, IN(UINT32, instance), OUT_TEXT(resolution, size),
         IN(INT32, size))
TVAPI_FN(INT32, a_vextvapi_dmp_file_getMediaDate, IN(UINT32, instance), OUT(T_DATE_TIME, date))

/* --- The set as a renderer --- */

/* Controllers find the set as a renderer while there is an instance. All instances together are one renderer. */
TVAPI_FN(UINT32, a_vextvapi_dmr_file_create)
TVAPI_FN(INT32, a_vextvapi_dmr_file_destroy, IN(UINT32, instance))

/* Called by the platform, on a thread of its own, when a controller asks something of the renderer: type is one of
 * DMR_REQUEST_..., which say what the arguments are. */
TVAPI_CALLBACK(INT32, a_vextvapi_cb_dmr_nfy_fct, IN(INT32, type), TAG(void*, tag), IN_TEXT(url), IN_TEXT(protocol_info),
               IN(UINT32, arg1), IN(INT32, arg2))

/* Registers the callback of a renderer. */
TVAPI_FN(INT32, a_vextvapi_cb_dmr_nfy_register_callback, IN(UINT32, instance),
         CALLBACK(a_vextvapi_cb_dmr_nfy_fct, callback), TAG(void*, tag))

/* Starts to download what a controller sent, and tells the path that the file will have. The servers' callback reports
 * how it goes, with the device and the object 0. */
TVAPI_FN(INT32, a_vextvapi_dmr_file_downloadFileAsync, IN(UINT32, instance), IN_TEXT(url), IN_TEXT(protocol_info),
         OUT_TEXT(path, 256))

/* Tell the controller the position and the state of the playback: seconds, duration 0 for an unknown one; one of
 * DMR_STATE_..., of the item with that address, or of the present one without an address. After a request to play, the
 * application has 10 s to report. */
TVAPI_FN(INT32, a_vextvapi_dmr_file_sync_pos, IN(UINT32, instance), IN(INT32, position), IN(INT32, duration))
TVAPI_FN(INT32, a_vextvapi_dmr_file_sync_stat, IN(UINT32, instance), IN(INT32, state), IN_TEXT(url), IN(INT32, value))

TVAPI_FN(INT32, a_vextvapi_dmr_file_getMediaType, IN(UINT32, instance), OUT(INT32, type))
TVAPI_FN(INT32, a_vextvapi_dmr_file_getMediaName, IN(UINT32, instance), OUT_TEXT(name, size), IN(INT32, size))
TVAPI_FN(INT32, a_vextvapi_dmr_file_getMediaExtension, IN(UINT32, instance), OUT_TEXT(extension, size), IN(INT32, size))
TVAPI_FN(INT32, a_vextvapi_dmr_file_getMediaSize, IN(UINT32, instance), OUT(INT32, bytes))
TVAPI_FN(INT32, a_vextvapi_dmr_file_getMediaArtist, IN(UINT32, instance), OUT_TEXT(artist, size), IN(INT32, size))
TVAPI_FN(INT32, a_vextvapi_dmr_file_getMediaAuthor, IN(UINT32, instance), OUT_TEXT(author, size), IN(INT32, size))
TVAPI_FN(INT32, a_vextvapi_dmr_file_getMediaAlbum, IN(UINT32, instance), OUT_TEXT(album, size), IN(INT32, size))
TVAPI_FN(INT32, a_vextvapi_dmr_file_getMediaDuration, IN(UINT32, instance), OUT_TEXT(duration, size), IN(INT32, size))
TVAPI_FN(INT32, a_vextvapi_dmr_file_getMediaResolution, IN(UINT32, instance), OUT_TEXT(resolution, size),
         IN(INT32, size))
TVAPI_FN(INT32, a_vextvapi_dmr_file_getMediaDate, IN(UINT32, instance), OUT(T_DATE_TIME, date))

#include "tvapi/end.h"
