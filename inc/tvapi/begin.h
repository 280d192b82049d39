/* Opens the statements of a contract header. They become plain prototypes, unless the including file defines their
 * macros. */
#include "tvapi/contract.h"

#ifdef __cplusplus
extern "C" {
#endif

#ifndef TVAPI_FN
#define TVAPI_FN(...) TVAPI_PROTOTYPE(__VA_ARGS__)
#define TVAPI_FN_IS_PROTOTYPE
#endif
#ifndef TVAPI_CALLBACK
#define TVAPI_CALLBACK(...) TVAPI_CALLBACK_TYPE(__VA_ARGS__)
#define TVAPI_CALLBACK_IS_TYPE
#endif
#ifndef TVAPI_RECORD
#define TVAPI_RECORD(...)
#define TVAPI_UNION(...)
#define TVAPI_ITEM(...)
#define TVAPI_RECORD_IS_NOTHING
#endif
