/* The set's clocks. Times are 64-bit numbers; the platform chooses the unit of each. */
#ifndef TVAPI_TIME_TYPES_H
#define TVAPI_TIME_TYPES_H

#include "tvapi/types.h"

/* A date and a time of day. */
typedef struct {
  UINT16 ui2_yr;
  UINT8 ui1_mo;
  UINT8 ui1_day;
  UINT8 ui1_dow; /* day of the week */
  UINT8 ui1_hr;
  UINT8 ui1_min;
  UINT8 ui1_sec;
  INT32 b_gmt; /* 1: the time is UTC */
  INT32 b_dst; /* 1: daylight saving time */
} VEXTVAPI_TIME_DTG_T;

#endif

#include "tvapi/begin.h"

TVAPI_RECORD(VEXTVAPI_TIME_DTG_T, ui2_yr, ui1_mo, ui1_day, ui1_dow, ui1_hr, ui1_min, ui1_sec, b_gmt, b_dst)

/* Returns the time zone's offset from UTC, without daylight saving time. */
TVAPI_FN(INT64, a_vextvapi_time_get_time_zone)

/* Returns the current offset of local time from UTC. */
TVAPI_FN(INT64, a_vextvapi_time_get_time_offset)

/* Returns the current time in UTC. */
TVAPI_FN(INT64, a_vextvapi_time_get_utc_time)

/* Returns the current time, as the broadcast reports it. */
TVAPI_FN(INT64, a_vextvapi_time_get_broadcast_time)

/* Convert times. On failure the output stays untouched. Return 0, negative on failure. */
TVAPI_FN(INT32, a_vextvapi_time_convert_utc_to_local_time, IN(INT64, utc_time), OUT(INT64, local_time))
TVAPI_FN(INT32, a_vextvapi_time_convert_local_time_to_millis, IN_RECORD(VEXTVAPI_TIME_DTG_T, dtg), OUT(INT64, millis))
TVAPI_FN(INT32, a_vextvapi_time_convert_millis_to_local_time, IN(INT64, millis), OUT(VEXTVAPI_TIME_DTG_T, dtg))

/* Sets the clock. Returns 0, negative on failure. */
TVAPI_FN(INT32, a_vextvapi_time_set_utc_time, IN(INT64, utc_time))

/* Gets the time until the sleep timer switches the set off; 0: it does not run. Returns 0, negative on failure. */
TVAPI_FN(INT32, a_vextvapi_time_get_sleep_timer_remaining_time, OUT(INT32, remaining))

/* Starts the sleep timer, or with 0 stops it. Returns 0, negative on failure. */
TVAPI_FN(INT32, a_vextvapi_time_set_sleep_timer, IN(INT32, duration))

#include "tvapi/end.h"
