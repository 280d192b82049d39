/* The common interface: conditional-access modules. */
#include "tvapi/begin.h"

/* Answers a query. type: which one; 26 and 27 ask whether a module tunes the set. argument: what it asks about, null
 * for the queries without. size: elements of the value going in and coming out. Returns 0, negative on failure. */
TVAPI_FN(INT32, a_vextvapi_ci_get, IN(INT32, type), IN(void*, argument), OUT(INT32, value), INOUT(UINT32, size))

#include "tvapi/end.h"
