/* The common interface: conditional-access modules. */
#ifndef TVAPI_CI_TYPES_H
#define TVAPI_CI_TYPES_H

/* Queries. The platform has more than these. */
enum {
  VEXTVAPI_CI_HOST_TUNE_STATUS = 26,          /* whether a module tunes the set */
  VEXTVAPI_CI_HOST_TUNE_BROADCAST_STATUS = 27 /* whether a module tunes the set for a broadcast */
};

#endif

#include "tvapi/begin.h"

/* Answers a query. type: the query. argument: of the query, null if it takes none. size: number of elements of the
 * value, on input and on output. Returns 0, negative on failure. */
TVAPI_FN(INT32, a_vextvapi_ci_get, IN(INT32, type), IN(void*, argument), OUT(INT32, value), INOUT(UINT32, size))

#include "tvapi/end.h"
