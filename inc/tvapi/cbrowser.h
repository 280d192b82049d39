/* The media library: a database of the photos, music, videos, folders and playlists on USB storage, which the platform
 * fills by scanning. */
#ifndef TVAPI_CBROWSER_TYPES_H
#define TVAPI_CBROWSER_TYPES_H

#include "tvapi/date.h"
#include "tvapi/types.h"

/* Kinds of media. */
typedef enum {
  MEDIA_TYPE_NULL = 0,
  MEDIA_TYPE_PHOTO = 1,
  MEDIA_TYPE_MUSIC = 2,
  MEDIA_TYPE_VIDEO = 3,
  MEDIA_TYPE_FOLDER = 4,
  MEDIA_TYPE_PLAYLIST = 5,
  MEDIA_TYPE_SUPPER_SHOP_MODE = 6
} E_MEDIA_TYPE;

/* What is known of a file, by its kind. Durations are in seconds, rounded; sizes in bytes, those of photos at most
 * 0xFFFFFFFF. A text that is unknown is empty. */
typedef struct {
  char track[128];
  char title[128];
  char artist[128];
  char album[128];
  char genre[128];
  UINT32 duration;
} T_MUSIC_INFO;

typedef struct {
  char title[128];
  char year[10];
  UINT32 duration;
  double size;
} T_VIDEO_INFO;

typedef struct {
  UINT32 width;  /* pixels */
  UINT32 height; /* pixels */
  UINT32 size;
} T_PHOTO_INFO;

typedef struct {
  UINT32 duration;
  char title[128];
  char artist[32];
} T_PLAYLIST_INFO;

typedef union {
  T_MUSIC_INFO music_info;
  T_VIDEO_INFO video_info;
  T_PHOTO_INFO photo_info;
  T_PLAYLIST_INFO playlist_info;
} T_MEDIA_DETAILS;

/* An entry of a list. */
typedef struct {
  INT32 media_type; /* an E_MEDIA_TYPE */
  char media_path[256];
  UINT32 recid;     /* identifier in the database; of a recording that of the recording */
  INT32 favourite;  /* 1: marked as a favourite */
  T_DATE_TIME date; /* local time when it was taken or recorded, else of the file's latest change */
  T_MEDIA_DETAILS u;
} T_MEDIA_INFO;

enum { CBROWSER_LIST_MAX = 24 }; /* entries of a list */

/* A query about a folder or a file, and its result. */
typedef struct {
  char path[256];
  INT32 count; /* entries asked for; then entries in the result, at most CBROWSER_LIST_MAX */
  INT32 index; /* first entry asked for, from 0 */
  INT32 sort;  /* VEXTVAPI_CB_SORT_... */
  INT32 type;  /* E_MEDIA_TYPE of the query and of its entries */
  T_MEDIA_INFO media_info[CBROWSER_LIST_MAX];
  char reserved[256]; /* a second path */
} T_CBROWSER;

/* A file, found by its index. The kinds differ in what follows its path. */
typedef struct {
  INT32 media_type;
  char media_path[256];
  char track[128];
  char title[128];
  char artist[128];
  char album[128];
  char genre[128];
  UINT32 duration;
} VEXTVAPI_CB_MUSIC_T;

typedef struct {
  INT32 media_type;
  char media_path[256];
  char title[128];
  char year[10];
  UINT32 duration;
  double size;
} VEXTVAPI_CB_VIDEO_T;

typedef struct {
  INT32 media_type;
  char media_path[256];
  UINT32 width;
  UINT32 height;
  UINT32 size;
} VEXTVAPI_CB_PHOTO_T;

/* Orders of lists. VEXTVAPI_CB_SORT_DESCENDING is added to an order to reverse it. Photos and videos have no artist,
 * album and genre, photos no title and duration: their lists are then ordered by name. */
enum {
  VEXTVAPI_CB_SORT_SET = 0,  /* the order that was set for the kind; until one is set, by name */
  VEXTVAPI_CB_SORT_NAME = 1, /* of the file; without case and accents, numbers by their values */
  VEXTVAPI_CB_SORT_DATE = 2, /* the oldest first */
  VEXTVAPI_CB_SORT_SIZE = 3,
  VEXTVAPI_CB_SORT_TITLE = 4,
  VEXTVAPI_CB_SORT_ARTIST = 5, /* then by album and track */
  VEXTVAPI_CB_SORT_ALBUM = 6,  /* then by track */
  VEXTVAPI_CB_SORT_GENRE = 7,  /* then by artist */
  VEXTVAPI_CB_SORT_DURATION = 8,
  VEXTVAPI_CB_SORT_FAVOURITES = 9, /* only favourites, by name */
  VEXTVAPI_CB_SORT_PLAYED = 10,    /* only what has been played or displayed, the latest first */
  VEXTVAPI_CB_SORT_DESCENDING = 100
};

/* type of a scan's callback. */
enum {
  VEXTVAPI_CB_SCAN_DONE = 1,      /* a scan has come to its end: the lists have everything */
  VEXTVAPI_CB_SCAN_BEGUN = 2,     /* a scan was requested, or a stick was inserted */
  VEXTVAPI_CB_SCAN_PROGRESS = 3,  /* the lists have more entries; at most every 500 ms */
  VEXTVAPI_CB_SCAN_CANCELLED = 4, /* by a_vextvapi_cb_stopScan or a_vextvapi_cb_deinit; what was found stays */
  VEXTVAPI_CB_SCAN_FAILED = 5     /* the stick was removed, or cannot be read */
};

#endif

#include "tvapi/begin.h"

TVAPI_RECORD(T_DATE_TIME, iyear, imonth, iday, ihour, iminute, isecond)
TVAPI_RECORD(T_MUSIC_INFO, track, title, artist, album, genre, duration)
TVAPI_RECORD(T_VIDEO_INFO, title, year, duration, size)
TVAPI_RECORD(T_PHOTO_INFO, width, height, size)
TVAPI_RECORD(T_PLAYLIST_INFO, duration, title, artist)
TVAPI_UNION(T_MEDIA_DETAILS, music_info, video_info, photo_info, playlist_info)
TVAPI_RECORD(T_MEDIA_INFO, media_type, media_path, recid, favourite, date, u)
TVAPI_RECORD(T_CBROWSER, path, count, index, sort, type, media_info, reserved)
TVAPI_RECORD(VEXTVAPI_CB_MUSIC_T, media_type, media_path, track, title, artist, album, genre, duration)
TVAPI_RECORD(VEXTVAPI_CB_VIDEO_T, media_type, media_path, title, year, duration, size)
TVAPI_RECORD(VEXTVAPI_CB_PHOTO_T, media_type, media_path, width, height, size)

/* All return 0, negative on failure, where they do not say otherwise. type is an E_MEDIA_TYPE, sort one of
 * VEXTVAPI_CB_SORT_..., mount_path the folder at which a stick is mounted, or a path below it.
 *
 * path is a stick's mount point or a folder below it. Of photos, music, videos and playlists it means everything below
 * it; with a "/" at its end only what is directly in it. Of folders it means those directly in it, always by name; only
 * folders with media in them or below count. Empty, it means all sticks. MEDIA_TYPE_SUPPER_SHOP_MODE means photos and
 * videos, which a shop shows. A playlist's path in place of a folder's means the files that it names. */

/* --- Scanning --- */

/* Called by the platform, on a thread of its own, when a scan's status has changed; type is one of
 * VEXTVAPI_CB_SCAN_.... */
TVAPI_CALLBACK(INT32, a_vextvapi_cb_usb_scan_status_nfy_fct, IN(INT32, type), TAG(void*, tag))

/* Registers the one callback for the status of scans; null ends the registration. */
TVAPI_FN(INT32, a_vextvapi_cb_usb_scan_status_register_callback,
         CALLBACK(a_vextvapi_cb_usb_scan_status_nfy_fct, callback), TAG(void*, tag))

/* A stick is scanned automatically when it is inserted. A further scan reads only files that have changed. Stopping
 * returns at once; the scan ends within a second, and VEXTVAPI_CB_SCAN_CANCELLED follows. Stopping where none runs does
 * nothing. */
TVAPI_FN(INT32, a_vextvapi_cb_startScan, IN_TEXT(mount_path))
TVAPI_FN(INT32, a_vextvapi_cb_stopScan, IN_TEXT(mount_path))

/* Returns 1 when no scan is running or waiting, else 0. */
TVAPI_FN(UINT8, a_vextvapi_cb_scanDone)

/* --- The database --- */

/* Load and drop the database of a stick. Dropping ends its scan, and forgets its entries with their favourites. Loading
 * finds what earlier scans have found; without any it starts a scan. A stick is loaded automatically when it is
 * inserted. */
TVAPI_FN(INT32, a_vextvapi_cb_init, IN_TEXT(mount_path))
TVAPI_FN(INT32, a_vextvapi_cb_deinit, IN_TEXT(mount_path))

/* Forgets at which positions the playing of files stopped. */
TVAPI_FN(INT32, a_vextvapi_usb_stopinfo_delete, IN_TEXT(mount_path))

/* Asks whether the set may jump to this stick by itself; may_jump keeps its value where the platform has no opinion. It
 * becomes 0 where the viewer has switched that off, and for a stick without photos, music and videos. */
TVAPI_FN(INT32, a_vextvapi_cb_checkJumpStatus, IN_RECORD(T_CBROWSER, query), INOUT(UINT8, may_jump))

/* Returns non-zero when the device of the query's path has a file system of the recorder's kind (ext4 and its
 * predecessors), else 0. */
TVAPI_FN(INT32, a_vextvapi_cb_checkDevExt4Status, IN_RECORD(T_CBROWSER, query))

/* --- Lists --- */

/* Sets the order of the lists of a kind; it is kept when the set is switched off. */
TVAPI_FN(INT32, a_vextvapi_set_sort_type, IN(INT32, type), IN(INT32, sort))

/* Return how many entries there are, negative on failure. Of the top list, name selects: a path counts the entries of
 * a_vextvapi_get_top_list_by_sort_type for it, empty that of all sticks; any other name is an artist's, an album's or a
 * genre's, and counts the entries of a_vextvapi_get_rec on all sticks. */
TVAPI_FN(INT32, a_vextvapi_cb_get_db_count, IN(INT32, type), IN_TEXT(path))
TVAPI_FN(INT32, a_vextvapi_cb_get_top_list_db_count, IN(INT32, type), IN(INT32, sort), IN_TEXT(name))

/* Finds the file at the query's index in the list of its path and sort, and fills the record of its kind. Returns 0,
 * anything else on failure, also where the list ends before the index. */
TVAPI_FN(INT32, a_vextvapi_get_list_by_idx, OUT(VEXTVAPI_CB_MUSIC_T, music), OUT(VEXTVAPI_CB_VIDEO_T, video),
         OUT(VEXTVAPI_CB_PHOTO_T, photo), IN(INT32, type), IN_RECORD(T_CBROWSER, query))

/* Reads what is known of a file in a folder. file: its name or path. */
TVAPI_FN(INT32, a_vextvapi_get_metaData, OUT(T_MEDIA_DETAILS, details), IN(INT32, type), IN_TEXT(file), IN_TEXT(path))

/* List entries from an index on, counted from 0. count: on input the room in the list, on output the number of entries.
 * Return 0, anything else on failure.
 *
 * By count: the list of the path in the set order.
 * Top list: music by artist, album or genre has one entry for each of these, with one of its files; every other list
 * has the path's files in this order. Rec: of music by artist, album or genre the files whose artist, album or genre is
 * name. Of videos, in any other order and whatever the path is, the set's own recordings with name in their titles, or
 * all if it is empty: by date, title (by name means the same), size or duration. Of other kinds nothing. */
TVAPI_FN(INT32, a_vextvapi_get_list_by_count, OUT_ARRAY(T_MEDIA_INFO, list, count), IN(INT32, type), IN_TEXT(path),
         IN(INT32, index), INOUT(INT32, count))
TVAPI_FN(INT32, a_vextvapi_get_top_list_by_sort_type, OUT_ARRAY(T_MEDIA_INFO, list, count), IN(INT32, type),
         IN(INT32, sort), IN_TEXT(path), IN(INT32, index), INOUT(INT32, count))
TVAPI_FN(INT32, a_vextvapi_get_rec, OUT_ARRAY(T_MEDIA_INFO, list, count), IN(INT32, type), IN(INT32, sort),
         IN_TEXT(name), IN_TEXT(path), IN(INT32, index), INOUT(INT32, count))

#include "tvapi/end.h"
