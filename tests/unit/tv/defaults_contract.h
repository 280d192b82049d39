/* A contract for tests: one function for each kind of statement that defaults.h expands. */
#include "tvapi/begin.h"

TVAPI_CALLBACK(INT32, tv_test_nfy_fct, IN(INT32, callback_type), TAG(void*, pv_tag))

TVAPI_FN(INT32, tv_test_plain)
TVAPI_FN(INT16, tv_test_built, IN(INT16, number))
TVAPI_FN(INT32, tv_test_every_kind, IN(INT64, number), IN_TEXT(text), IN_RECORD(UINT64, record),
         IN_ARRAY(UINT8, bytes, size), IN(INT32, size), OUT(INT32, result), INOUT(UINT32, count), OUT_TEXT(name, 32),
         OUT_ARRAY(UINT16, list, count), CALLBACK(tv_test_nfy_fct, callback), TAG(void*, tag))
TVAPI_FN(UINT32, tv_test_handle, IN(UINT32, parent))
TVAPI_FN(void*, tv_test_pointer)
TVAPI_FN(void, tv_test_nothing, IN(INT32, number))

#include "tvapi/end.h"
