/* The detection of USB storage. */
#ifndef TVAPI_USB_TYPES_H
#define TVAPI_USB_TYPES_H

#include "tvapi/types.h"

/* type of an event. */
enum { VEXTVAPI_USB_DETECT_MOUNTED = 1, VEXTVAPI_USB_DETECT_UNMOUNTED = 2 };

/* A mounted file system. */
typedef struct {
  char dev[64];
  char path[256];
  char label[64];
  UINT32 port;
} VEXTVAPI_USB_MOUNT_INFO_T;

#endif

#include "tvapi/begin.h"

TVAPI_RECORD(VEXTVAPI_USB_MOUNT_INFO_T, dev, path, label, port)

/* Called by the platform, on a thread of its own, after a file system was mounted or unmounted; type says which. */
TVAPI_CALLBACK(INT32, a_vextvapi_cb_usb_detect_nfy_fct, IN(INT32, type), TAG(void*, pv_tag), IN_TEXT(dev),
               IN_TEXT(path), IN_TEXT(label), IN(UINT32, port))

/* Starts the detection. Starting it again ends the earlier handle. Returns a handle, 0 on failure. */
TVAPI_FN(UINT32, a_vextvapi_cb_usb_detect_init)

/* Registers the callback of a handle. Returns 0, negative on failure. */
TVAPI_FN(INT32, a_vextvapi_cb_usb_detect_register_callback, IN(UINT32, handle),
         CALLBACK(a_vextvapi_cb_usb_detect_nfy_fct, callback), TAG(void*, tag))

/* Stops the detection: the handle ends, and its callback is not called any more. Returns 0, negative on failure. */
TVAPI_FN(INT32, a_vextvapi_cb_usb_detect_deinit, IN(UINT32, handle))

/* Counts the mounted file systems. Returns 0, negative on failure. */
TVAPI_FN(INT32, a_vextvapi_cb_usb_detect_getUsbMountedCount, IN(UINT32, handle), OUT(INT32, count))

/* Lists the mounted file systems. first: index of the first to list, from 0. count: on input the room in the list, on
 * output the number of entries. Returns 0, negative on failure. */
TVAPI_FN(INT32, a_vextvapi_cb_usb_detect_getUsbMountedInfo, IN(UINT32, handle),
         OUT_ARRAY(VEXTVAPI_USB_MOUNT_INFO_T, list, count), IN(INT32, first), INOUT(INT32, count))

/* Describes the device of a mount point. size: the buffer's size in characters. Returns 0, negative on failure. */
TVAPI_FN(INT32, a_vextvapi_cb_usb_detect_devDesc, IN(UINT32, handle), IN_TEXT(mount_point), OUT_TEXT(description, size),
         IN(INT32, size))

#include "tvapi/end.h"
