/* dtv_js_plugin: the entry points that a television's web-application server calls.
 *
 * Order: a_dtv_jsp_init_res, then a_dtv_jsp_init, both from one thread; then gets, sets and listener calls from any
 * threads. All texts are NUL-terminated. A result of 0 is success, a negative one a failure (VEX_RET_VALUE in
 * "vex_tv_ctrl.h").
 *
 * The library can be closed with dlclose: it frees all that it holds, and once loaded again it is not started and
 * nobody is subscribed. Before it closes the library the host sees to it that no thread is inside one of the functions,
 * and that the platform no longer calls the callbacks that a_dtv_jsp_init registered: the plugin cannot take them back.
 * A process may exit at any time, also while threads are inside or go on calling. */
#ifndef DTV_JS_PLUGIN_H
#define DTV_JS_PLUGIN_H

#include <stdint.h>

#ifndef TVC_EXPORT
#define TVC_EXPORT __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Bytes of a response that a_dtv_jsp_get copies at the most; a buffer of one byte more, cleared, reads as a text. */
#define DTV_JSP_RESPONSE_MAX 16383

/* Makes the resources ready, once: log level, empty listener list, content buffer. Always 0. */
TVC_EXPORT int32_t a_dtv_jsp_init_res(void);

/* Starts the control core, once. Always 0, also when the platform refused; it is not tried again. */
TVC_EXPORT int32_t a_dtv_jsp_init(void);

/* Reads an item.
 * param: JSON text {"PARAMETER": {"REQUEST": ..., ...}}, or null or empty for a plain get.
 * pv_content: receives at most DTV_JSP_RESPONSE_MAX bytes of {"URI", "STATUS", "ITEMS"}, without a terminator;
 * clear it beforehand. Untouched when the URI is unknown or the parameters do not decode.
 * Returns the handler's code, which is also the response's "STATUS", or -1. */
TVC_EXPORT int32_t a_dtv_jsp_get(const char* uri, const char* param, void* pv_content);

/* Changes an item or triggers an action.
 * param: JSON text {"PARAMETER": {"REQUEST": "ACTION" | "MODIFY" | "SET" | "ASSOCIATE", ...}}.
 * Returns the handler's code, or -1. */
TVC_EXPORT int32_t a_dtv_jsp_set(const char* uri, const char* param);

/* Subscribes to a notification URI; a repeated subscription is counted. 0, or -1 for a null pointer. */
TVC_EXPORT int32_t a_dtv_jsp_add_listener_buffer(const char* ps_uri);

/* Takes one subscription back; with the last one a pending notification is lost. 0, or -1 for a null pointer. */
TVC_EXPORT int32_t a_dtv_jsp_remove_listener_buffer(const char* ps_uri);

/* Hands over the pending notification of a subscribed URI and forgets it.
 * pv_buffer: receives at most buffer_len bytes, without a terminator; what does not fit is lost. Untouched when
 * nothing is pending.
 * Returns 0 for a subscribed URI, else -1 (also for a null pointer or a length below 1). */
TVC_EXPORT int32_t a_dtv_jsp_get_listener_buffer(const char* ps_uri, void* pv_buffer, int32_t buffer_len);

/* Describes every URI and item type, for tools that make forms, documents or tests of it.
 * Returns a JSON text that the caller frees with free(), or null without memory:
 *   {"uris": [{"uri", "id", "group", "record", "type", "get", "set", "notify", "without_effect", "help", "unit",
 *              "values"}, ...],
 *    "types": {"TYPE_VALUE": {"query": [field...] | null, "set": {"request", "fields": [field...]} | null,
 *                             "response": [field...] | null,
 *                             "notify": {"form": "single" | "queued", "member", "bound", "fields"} | null}, ...},
 *    "kinds": [{"kind", "json": "number" | "string" | "array" | "object", "help", "minimum", "maximum"}, ...],
 *    "results": [{"result", "name", "help"}, ...]}
 * A URI: "get" and "set" are true where the request has an effect, "notify" where a handler raises the event.
 * "without_effect" names those of "get" and "set" that are accepted, answer 0 and do nothing; it is left out where
 * there is none. "help" is a sentence, which a URI that nothing serves does not have. "unit" and "values" are those of
 * the item's value, where it has any.
 * A field is {"key", "kind", "limit", "count", "unit", "values", "help", "value", "fields"}: "limit" is the longest
 * text in bytes, "count" the length of an array, "value" stands for a constant text, "fields" for the members of an
 * object. Only "key", "kind" and "help" are always there. "values" is an array of {"value": text} or {"value": number,
 * "help"}. A kind's "minimum" and "maximum" are decimal texts, since not every limit of 64 bits is exact as a double;
 * only numbers have them. A result that is not listed is the platform's own. */
TVC_EXPORT char* a_dtv_jsp_describe(void);

#ifdef __cplusplus
}
#endif

#endif
