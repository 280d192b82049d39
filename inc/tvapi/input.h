/* Input sources: the tuners and the connectors, numbered from 0. */
#ifndef TVAPI_INPUT_TYPES_H
#define TVAPI_INPUT_TYPES_H

#include "tvapi/types.h"

/* The sources that somebody here needs by number. */
enum { VEXTVAPI_INPUT_SOURCE_TV = 0, VEXTVAPI_INPUT_SOURCE_SATELLITE = 1 };

/* A device on an HDMI input, as it announced itself on the CEC bus. */
typedef struct {
  char s_dev_name[15];
  char s_hdmi_port[15];
  char s_osd_name[15];
  UINT8 b_amp_connected;
  INT32 e_la;    /* logical address */
  UINT16 ui2_pa; /* physical address */
  INT32 dev_type;
  UINT8 ui1_dev_vndr_id[3];
} CECM_DEV_INFO_T;

#endif

#include "tvapi/begin.h"

TVAPI_RECORD(CECM_DEV_INFO_T, s_dev_name, s_hdmi_port, s_osd_name, b_amp_connected, e_la, ui2_pa, dev_type,
             ui1_dev_vndr_id)

/* All return 0, negative on failure, where they do not say otherwise. source_id counts from 0; size is a text's room in
 * characters; path names a picture: "main" or "sub". */

/* Returns how many sources there are, negative on failure. */
TVAPI_FN(INT32, a_vextvapi_inputsource_get_sourcetotalnum)

TVAPI_FN(INT32, a_vextvapi_inputsource_get_currentsourcename_bypath, OUT_TEXT(name, size), IN(INT32, size),
         IN_TEXT(path))
TVAPI_FN(INT32, a_vextvapi_inputsource_get_sourcename_bysourceid, IN(INT32, source_id), OUT_TEXT(name, size),
         IN(INT32, size))

TVAPI_FN(INT32, a_vextvapi_inputsource_set_source_blockstatus_bysourceid, IN(INT32, source_id), IN(UINT8, blocked))
TVAPI_FN(INT32, a_vextvapi_inputsource_is_block_bysourceid, IN(INT32, source_id), OUT(UINT8, blocked))

TVAPI_FN(INT32, a_vextvapi_inputsource_changesource_bysourceid, IN(INT32, source_id))
TVAPI_FN(INT32, a_vextvapi_inputsource_changesource_bysourceidandpath, IN(INT32, source_id), IN_TEXT(path))

/* Stops a picture; wait: 1 until it has stopped. */
TVAPI_FN(INT32, a_vextvapi_inputsource_sync_stop, IN_TEXT(path), IN(UINT8, wait))

/* The name that the viewer gave a source. */
TVAPI_FN(INT32, a_vextvapi_inputsource_get_userdefname_bysourceid, IN(INT32, source_id), OUT_TEXT(name, size),
         IN(INT32, size))
TVAPI_FN(INT32, a_vextvapi_inputsource_set_userdefname_bysourceid, IN(INT32, source_id), IN_TEXT(name))

/* What the viewer said is connected to a source, as the index of a label. */
TVAPI_FN(INT32, a_vextvapi_inputsource_get_source_inputlabelidx_bysourceid, IN(INT32, source_id), OUT(INT32, label))
TVAPI_FN(INT32, a_vextvapi_inputsource_set_source_inputlabelidx_bysourceid, IN(INT32, source_id), IN(UINT8, label))

/* What is known of the CEC device with a logical address. */
TVAPI_FN(INT32, a_vextvapi_cec_get_dev_info_by_la_async, IN(INT32, logical_address), OUT(CECM_DEV_INFO_T, info))

#include "tvapi/end.h"
