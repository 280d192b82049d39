/* Channel lists: the service lists, their favourites, the one channel list over all of them, satellites, and what else
 * a broadcaster sends about its lists. */
#ifndef TVAPI_CHANNEL_TYPES_H
#define TVAPI_CHANNEL_TYPES_H

#include "tvapi/types.h"

/* e_brdcst_type; a channel of another type has no facts of its own. */
enum {
  SVL_BRDCST_TYPE_UNKNOWN = 0, /* its facts are those of ATSC */
  SVL_BRDCST_TYPE_ANALOG = 1,
  SVL_BRDCST_TYPE_DVB = 2,
  SVL_BRDCST_TYPE_ATSC = 3,
  SVL_BRDCST_TYPE_ISDB = 5
};

/* brdcst_medium */
enum {
  TSL_BRDCST_MEDIUM_DIG_TERRESTRIAL = 1,
  TSL_BRDCST_MEDIUM_DIG_CABLE = 2,
  TSL_BRDCST_MEDIUM_DIG_SATELLITE = 3,
  TSL_BRDCST_MEDIUM_ANA_TERRESTRIAL = 4,
  TSL_BRDCST_MEDIUM_ANA_CABLE = 5,
  TSL_BRDCST_MEDIUM_ANA_SATELLITE = 6
};

/* ui4_nw_mask. As an argument, the mask says which bits count, and the value what they are to be. A request may have no
 * value: the mask ACTIVE alone with the value 0 means active channels, except in the functions by_mask of one list. */
enum {
  SVL_NW_MASK_ACTIVE = 0x1,  /* the channel is in the list */
  SVL_NW_MASK_VISIBLE = 0x8, /* channel up and down stop at it */
  SVL_NW_MASK_BLOCKED = 0x100
};

/* ui4_option_mask: what the viewer changed. */
enum { SVL_OPT_MASK_NAME_EDITED = 0x8, SVL_OPT_MASK_NUMBER_EDITED = 0x400 };

/* e_serv_type */
enum { SVL_SERV_TYPE_TV = 1, SVL_SERV_TYPE_RADIO = 2, SVL_SERV_TYPE_DATA = 3 };

/* A channel's identifier holds its number:
 *   bits 18 and up   major number, unless the channel has long numbers; of ISDB bits 18 to 25
 *   bits 24 and up   major number of an analogue or ATSC channel with long numbers and without bit 0x80
 *   bits 8 and up    minor number: 8 bits of ISDB, of ATSC 16 with long numbers and 10 otherwise
 *   bits 0 to 3      kept when the viewer gives the channel another number */
enum { SVL_CHANNEL_ID_LONG_NUMBERS = 0x40, SVL_CHANNEL_ID_VIEWERS_NUMBER = 0x80, SVL_CHANNEL_ID_KEPT = 0xF };

/* A service: a channel of a list. */
typedef struct {
  UINT32 ui4_channel_id;
  UINT32 ui4_nw_mask;
  UINT32 ui4_option_mask;
  UINT8 e_brdcst_type;
  UINT8 e_serv_type; /* television, radio and so on */
  char ac_name[65];
  UINT8 aui1_custom_data[8]; /* the first two bytes are the channel logo's number, low byte first */
} SVL_REC_HDR_T;

typedef struct {
  char s_svc_name[17]; /* short name */
  UINT32 ui4_linkage_descr_mask;
  UINT8 b_ci_tune_service;
  UINT8 b_hbbtv_off;
  UINT32 ui4_category_mask;
} SVL_DVB_T;

/* ui4_linkage_descr_mask: the service is announced as a barker channel. */
enum { SVL_LINKAGE_BARKER = 0x4 };

typedef struct {
  UINT16 ui2_svl_rec_id;
  SVL_REC_HDR_T t_rec_hdr;
  SVL_DVB_T t_dvb; /* of a DVB channel */
} SVL_REC_T;

/* The transport stream that carries a service. */
typedef struct {
  UINT8 brdcst_medium;
  UINT32 frequency; /* in the unit of its medium: Hz of what comes over the air or cable, MHz of a satellite */
} TSL_REC_T;

typedef struct {
  UINT16 ui2_satl_rec_id;
  UINT32 ui4_mask;
  INT16 i2_orb_pos; /* tenths of a degree, east is positive */
  char ac_sat_name[65];
  char ac_lnb_config[64];
} SATL_REC_T;

/* Something about a list as a whole; ui4_data_tag says what. */
enum { LOL_DATA_TAG_TKGS_CATEGORIES = 11 };

typedef struct {
  UINT16 ui2_category_no;
  char ac_category_name[32];
} LOL_CATEGORY_T;

typedef struct {
  UINT16 ui2_category_num; /* of which the array holds the first 20 */
  LOL_CATEGORY_T at_category_arr[20];
} LOL_CATEGORY_LIST_T;

typedef struct {
  UINT32 ui4_data_tag;
  UINT16 ui2_lol_rec_id;
  UINT16 ui2_data_len;
  LOL_CATEGORY_LIST_T t_category_list; /* of tag LOL_DATA_TAG_TKGS_CATEGORIES */
} LOL_REC_T;

/* direction of a walk over a list by mask; the platform has more. The walk ends at the ends of the list. */
enum {
  VEXTVAPI_CHANNEL_ITERATE_SELF = 0, /* the channel itself, if it fits */
  VEXTVAPI_CHANNEL_ITERATE_FIRST = 1,
  VEXTVAPI_CHANNEL_ITERATE_NEXT = 2,
  VEXTVAPI_CHANNEL_ITERATE_PREV = 3,
  VEXTVAPI_CHANNEL_ITERATE_LAST = 4
};

/* conditions of a list's event: those that mean a change of the list's channels. */
enum { VEXTVAPI_CHANNEL_LIST_CHANGED = 2, VEXTVAPI_CHANNEL_LIST_RESET = 3 };

/* Bits of the reason of a list's event. Its data is the channel's identifier; 0: the event is about several channels.
 */
enum {
  VEXTVAPI_CHANNEL_REASON_ADDED = 0x1,
  VEXTVAPI_CHANNEL_REASON_REMOVED = 0x2,
  VEXTVAPI_CHANNEL_REASON_CHANGED = 0x4, /* name, network bits or other facts of a channel */
  VEXTVAPI_CHANNEL_REASON_ORDER = 0x8,   /* numbers, and so the order */
  VEXTVAPI_CHANNEL_REASON_FAVOURITES = 0x10
};

#endif

#include "tvapi/begin.h"

TVAPI_RECORD(SVL_REC_HDR_T, ui4_channel_id, ui4_nw_mask, ui4_option_mask, e_brdcst_type, e_serv_type, ac_name,
             aui1_custom_data)
TVAPI_RECORD(SVL_DVB_T, s_svc_name, ui4_linkage_descr_mask, b_ci_tune_service, b_hbbtv_off, ui4_category_mask)
TVAPI_RECORD(SVL_REC_T, ui2_svl_rec_id, t_rec_hdr, t_dvb)
TVAPI_RECORD(TSL_REC_T, brdcst_medium, frequency)
TVAPI_RECORD(SATL_REC_T, ui2_satl_rec_id, ui4_mask, i2_orb_pos, ac_sat_name, ac_lnb_config)
TVAPI_RECORD(LOL_CATEGORY_T, ui2_category_no, ac_category_name)
TVAPI_RECORD(LOL_CATEGORY_LIST_T, ui2_category_num, at_category_arr)
TVAPI_RECORD(LOL_REC_T, ui4_data_tag, ui2_lol_rec_id, ui2_data_len, t_category_list)

/* Functions that return a handle return 0 on failure. Those that return a number of channels return it, negative on
 * failure. The others return 0, negative on failure, where they do not say otherwise. */

/* Called by the platform, on a thread of its own, after a list changed. pv_arg1: the service list's handle, pv_arg2:
 * conditions, pv_arg3: reason (a mask; 0: none), pv_arg4: data. */
TVAPI_CALLBACK(INT32, a_vextvapi_channellist_nfy_fct, IN(INT32, callback_type), TAG(void*, pv_tag), IN(void*, pv_arg1),
               IN(void*, pv_arg2), IN(void*, pv_arg3), IN(void*, pv_arg4))

/* Registers the callback. One subscriber; a later call replaces the earlier. */
TVAPI_FN(INT32, a_vextvapi_channellist_register_callback, CALLBACK(a_vextvapi_channellist_nfy_fct, callback),
         TAG(void*, tag))

/* --- One service list --- */

TVAPI_FN(UINT32, a_vextvapi_channellist_get_svl_handle_by_svl_id, IN(UINT16, svl_id))
TVAPI_FN(UINT32, a_vextvapi_channellist_get_tsl_handle_by_svl_id, IN(UINT16, svl_id))

/* Hold the list while it is read or written. */
TVAPI_FN(INT32, a_vextvapi_channellist_lock_database, IN(UINT32, h_svl), IN(UINT32, h_tsl))
TVAPI_FN(INT32, a_vextvapi_channellist_unlock_database, IN(UINT32, h_svl), IN(UINT32, h_tsl))

/* The channel that the main picture shows. */
TVAPI_FN(INT32, a_vextvapi_channellist_get_current_channel, OUT(UINT16, svl_id), OUT(SVL_REC_T, svl_rec),
         OUT(TSL_REC_T, tsl_rec))

TVAPI_FN(INT32, a_vextvapi_channellist_get_svl_rec_by_channel_id, IN(UINT16, svl_id), IN(UINT32, channel_id),
         OUT(SVL_REC_T, svl_rec))

/* index counts the channels whose network bits fit, from 0. */
TVAPI_FN(INT32, a_vextvapi_channellist_get_svl_rec_by_index, IN(UINT32, h_svl), IN(UINT32, nw_mask),
         IN(UINT32, nw_value), IN(INT32, index), OUT(SVL_REC_T, svl_rec))

/* The same among the channels whose name fits. */
TVAPI_FN(INT32, a_vextvapi_channellist_get_svl_rec_by_index_and_name, IN(UINT32, h_svl), IN(UINT32, nw_mask),
         IN(UINT32, nw_value), IN_TEXT(name), IN(INT32, index), OUT(SVL_REC_T, svl_rec))

TVAPI_FN(INT32, a_vextvapi_channellist_get_index_by_channel, IN(UINT32, h_svl), IN(UINT32, nw_mask),
         IN(UINT32, nw_value), IN(UINT32, channel_id), OUT(INT32, index))

/* Walks the list from a channel, over those whose network bits, satellite and category fit. direction: see above;
 * count: channels wanted. Returns how many were found. */
TVAPI_FN(INT32, a_vextvapi_channellist_get_svl_tsl_recs_by_mask, IN(UINT32, h_svl), IN(UINT32, h_tsl),
         IN(UINT32, nw_mask), IN(UINT32, nw_value), IN(UINT32, satl_id), IN(UINT32, satl_rec_id),
         IN(UINT32, category_mask), IN(INT32, direction), IN(UINT32, channel_id), IN(UINT32, count),
         OUT(SVL_REC_T, svl_rec), OUT(TSL_REC_T, tsl_rec))

/* Reads the neighbours of a channel. nw_value 0: all bits of nw_mask are to be set, as in get_number_by_filter. It
 * gives the record of the nearest channel before, or if there is none, of the nearest one after. before, after: how
 * many are wanted on either side; before_found, after_found: how many there were. Returns 0, negative on failure, which
 * it also is when there is no neighbour. */
TVAPI_FN(INT32, a_vextvapi_channellist_get_svl_tsl_recs_by_filter, IN(UINT32, h_svl), IN(UINT32, h_tsl),
         IN(UINT32, nw_mask), IN(UINT32, nw_value), IN(UINT32, channel_id), IN(UINT32, before), IN(UINT32, after),
         OUT(SVL_REC_T, svl_rec), OUT(TSL_REC_T, tsl_rec), OUT(UINT32, before_found), OUT(UINT32, after_found))

TVAPI_FN(INT32, a_vextvapi_channellist_get_number_by_name, IN(UINT32, h_svl), IN(UINT32, nw_mask), IN(UINT32, nw_value),
         IN_TEXT(name))
TVAPI_FN(INT32, a_vextvapi_channellist_get_number_by_mask, IN(UINT32, h_svl), IN(UINT32, nw_mask), IN(UINT32, nw_value),
         IN(UINT32, satl_id), IN(UINT32, satl_rec_id), IN(UINT32, category_mask))
TVAPI_FN(INT32, a_vextvapi_channellist_get_number_by_filter, IN(UINT32, h_svl), IN(UINT32, nw_mask))

/* Returns 1 when a channel has the number, 0 when it is free, negative on failure. */
TVAPI_FN(INT32, a_vextvapi_channellist_is_exist_by_channel_number, IN(UINT16, svl_id), IN(UINT32, channel_number))

/* Writes the records of a service, found by its record identifier. number: how many, 1. An empty transport stream
 * leaves that of the service as it is. */
TVAPI_FN(INT32, a_vextvapi_channellist_set_svl_tsl_rec_info, IN(UINT32, h_svl), IN(UINT32, h_tsl), IN(UINT16, svl_id),
         IN(UINT32, number), IN_RECORD(SVL_REC_T, svl_rec), IN_RECORD(TSL_REC_T, tsl_rec))

/* Makes the platform look for the logo of a channel again. */
TVAPI_FN(INT32, a_channel_logo_custom_update_logo_id_by_channel, IN(UINT16, svl_id), IN(UINT32, channel_id))

/* --- The favourites of a service list; fav_index: which of its favourite lists, from 0 --- */

TVAPI_FN(INT32, a_vextvapi_favorite_list_add_tail, IN(UINT16, svl_id), IN(UINT8, fav_index), IN(UINT32, channel_id))
TVAPI_FN(INT32, a_vextvapi_favorite_list_delete, IN(UINT16, svl_id), IN(UINT8, fav_index), IN(UINT32, channel_id))
TVAPI_FN(INT32, a_vextvapi_favorite_list_add_all, IN(UINT16, svl_id), IN(UINT8, fav_index), IN(UINT32, nw_mask),
         IN(UINT32, nw_value))
TVAPI_FN(INT32, a_vextvapi_favorite_list_del_all, IN(UINT16, svl_id), IN(UINT8, fav_index), IN(UINT32, nw_mask),
         IN(UINT32, nw_value))

/* Puts the favourite at index_from where the one at index_to stands. */
TVAPI_FN(INT32, a_vextvapi_favorite_list_insert_move, IN(UINT16, svl_id), IN(UINT8, fav_index), IN(UINT32, nw_mask),
         IN(UINT32, nw_value), IN(INT32, index_from), IN(INT32, index_to))
TVAPI_FN(INT32, a_vextvapi_favorite_list_swap_by_channel_id, IN(UINT16, svl_id), IN(UINT8, fav_index),
         IN(UINT32, channel_id_from), IN(UINT32, channel_id_to))

TVAPI_FN(INT32, a_vextvapi_favorite_list_number_by_mask, IN(UINT16, svl_id), IN(UINT8, fav_index), IN(UINT32, nw_mask),
         IN(UINT32, nw_value))
TVAPI_FN(INT32, a_vextvapi_favorite_list_get_svl_rec_by_index, IN(UINT16, svl_id), IN(UINT8, fav_index),
         IN(UINT32, nw_mask), IN(UINT32, nw_value), IN(INT32, index), OUT(SVL_REC_T, svl_rec))
TVAPI_FN(INT32, a_vextvapi_favorite_list_get_index_by_channel, IN(UINT16, svl_id), IN(UINT8, fav_index),
         IN(UINT32, nw_mask), IN(UINT32, nw_value), IN(UINT32, channel_id), OUT(INT32, index))

/* --- The one channel list, by its name "all_channel": all service lists in one. A reference is a handle --- */

TVAPI_FN(UINT32, vextvapi_getRefChannelByID, IN_TEXT(list), IN(UINT32, channel_id))
TVAPI_FN(UINT32, vextvapi_GetFirstVirtualChannelByMask, IN_TEXT(list), IN(UINT32, nw_value), IN(UINT32, nw_mask))
TVAPI_FN(UINT32, vextvapi_GetPrevVirtualChannelByMask, IN(UINT32, reference), IN(UINT32, nw_value), IN(UINT32, nw_mask))
TVAPI_FN(UINT32, vextvapi_GetNextVirtualChannelByMask, IN(UINT32, reference), IN(UINT32, nw_value), IN(UINT32, nw_mask))

TVAPI_FN(INT32, vextvapi_getChannelSvlRec, IN(UINT32, reference), OUT(SVL_REC_T, svl_rec))

/* Which service list a channel is from. reference: also a channel's identifier. */
TVAPI_FN(INT32, vextvapi_getChannelSvlID, IN(UINT32, reference), OUT(UINT16, svl_id))

TVAPI_FN(INT32, vextvapi_getChannelSvlRecByIdxAndMask, IN_TEXT(list), IN(UINT32, nw_value), IN(UINT32, nw_mask),
         IN(INT32, index), OUT(SVL_REC_T, svl_rec))

/* Returns 0; anything else on failure. */
TVAPI_FN(INT32, vextvapi_1CL_getChannelByNameAndIdx, IN_TEXT(list), IN(UINT32, nw_value), IN(UINT32, nw_mask),
         IN_TEXT(name), IN(INT32, index), OUT(SVL_REC_T, svl_rec))

TVAPI_FN(INT32, vextvapi_getIdxByChannelIdAndMask, IN_TEXT(list), IN(UINT32, nw_value), IN(UINT32, nw_mask),
         IN(UINT32, channel_id), OUT(INT32, index))
TVAPI_FN(INT32, vextvapi_getNearestIdxByMajorAndMask, IN_TEXT(list), IN(UINT32, nw_value), IN(UINT32, nw_mask),
         IN(UINT32, major), OUT(INT32, index))
TVAPI_FN(INT32, vextvapi_1CL_getNumofChannelByName, IN_TEXT(list), IN(UINT32, nw_value), IN(UINT32, nw_mask),
         IN_TEXT(name))
TVAPI_FN(INT32, vextvapi_GetNumofChListByMask, IN_TEXT(list), IN(UINT32, nw_value), IN(UINT32, nw_mask))

/* Its favourites. */
TVAPI_FN(INT32, vextvapi_1CL_addFavToTailByChannel, IN(UINT32, channel_id))
TVAPI_FN(INT32, vextvapi_1CL_removeFavByChannel, IN(UINT32, channel_id))
TVAPI_FN(INT32, vextvapi_1CL_addAllToFavByMask, IN(UINT32, nw_value), IN(UINT32, nw_mask))
TVAPI_FN(INT32, vextvapi_1CL_delAllFavByMask, IN(UINT32, nw_value), IN(UINT32, nw_mask))
TVAPI_FN(INT32, vextvapi_1CL_moveFavByIdx, IN(INT32, index_from), IN(INT32, index_to), IN(UINT32, nw_value),
         IN(UINT32, nw_mask))
TVAPI_FN(INT32, vextvapi_1CL_getFavNumByMask, IN(UINT32, nw_value), IN(UINT32, nw_mask))
TVAPI_FN(INT32, vextvapi_1CL_getFavByIdxAndMask, IN(UINT32, nw_value), IN(UINT32, nw_mask), IN(INT32, index),
         OUT(SVL_REC_T, svl_rec))

/* Returns the index, negative on failure. */
TVAPI_FN(INT32, vextvapi_1CL_getFavIdxByChannelAndMask, IN(UINT32, nw_value), IN(UINT32, nw_mask),
         IN(UINT32, channel_id))

/* --- Satellites, in one table, satl_id 1. version: of the table, which changes with every change of it --- */

TVAPI_FN(UINT32, a_vextvapi_channellist_get_satl_handle_by_satl_id, IN(UINT16, satl_id))
TVAPI_FN(INT32, c_satl_read_lock, IN(UINT32, h_satl))
TVAPI_FN(INT32, c_satl_read_unlock, IN(UINT32, h_satl))
TVAPI_FN(INT32, c_satl_get_num_recs, IN(UINT32, h_satl), OUT(INT32, number), OUT(UINT32, version))
TVAPI_FN(INT32, c_satl_get_rec_by_rec_idx, IN(UINT32, h_satl), IN(INT32, index), OUT(SATL_REC_T, satl_rec),
         OUT(UINT32, version))

/* --- What a broadcaster sends about its lists, in one list, lol_id 1 --- */

TVAPI_FN(UINT32, a_vextvapi_channellist_get_lol_handle_by_lol_id, IN(UINT16, lol_id))
TVAPI_FN(INT32, c_lol_lock, IN(UINT32, h_lol))
TVAPI_FN(INT32, c_lol_unlock, IN(UINT32, h_lol))

/* index counts the records of this tag, from 0. */
TVAPI_FN(INT32, c_lol_get_rec_by_data_tag, IN(UINT32, h_lol), IN(UINT32, data_tag), IN(UINT16, index),
         OUT(LOL_REC_T, lol_rec), OUT(UINT32, version))

#include "tvapi/end.h"
