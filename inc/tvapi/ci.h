/* The common interface: conditional-access modules. */
#ifndef TVAPI_CI_TYPES_H
#define TVAPI_CI_TYPES_H

/* The queries that somebody here needs by name; the platform has more. */
enum {
  VEXTVAPI_CI_HOST_TUNE_STATUS = 26,          /* whether a module tunes the set */
  VEXTVAPI_CI_HOST_TUNE_BROADCAST_STATUS = 27 /* whether it does so for a broadcast */
};

#endif

#include "tvapi/begin.h"

/* Answers a query. type: which one. argument: what it asks about, null for the queries without. size: elements of the
 * value going in and coming out. Returns 0, negative on failure. */
TVAPI_FN(INT32, a_vextvapi_ci_get, IN(INT32, type), IN(void*, argument), OUT(INT32, value), INOUT(UINT32, size))

#include "tvapi/end.h"
