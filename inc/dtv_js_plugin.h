/* dtv_js_plugin: the entry points that a television's web-application server calls.
 *
 * Order: a_dtv_jsp_init_res, then a_dtv_jsp_init, both from one thread; then gets, sets and listener calls from any
 * threads. All texts are NUL-terminated. A result of 0 is success, a negative one a failure (VEX_RET_VALUE in
 * "vex_tv_ctrl.h").
 *
 * The host may close the library with dlclose, which frees all memory of the plugin. A library that is loaded again is
 * not started and has no subscriptions. Before closing it, the host ensures that no thread is inside one of the
 * functions, and that the platform no longer calls the callbacks that a_dtv_jsp_init registered: the plugin cannot
 * unregister them. The process may exit at any time, even while threads are inside the functions or go on calling. */
#ifndef DTV_JS_PLUGIN_H
#define DTV_JS_PLUGIN_H

#include <stdint.h>

#ifndef TVC_EXPORT
#define TVC_EXPORT __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* The most bytes of a response that a_dtv_jsp_get copies. A cleared buffer with one byte more then holds a terminated
 * text. */
#define DTV_JSP_RESPONSE_MAX 16383

/* Prepares the resources, once: reads the log level, empties the listener list, allocates the content buffer. Returns
 * 0, also when memory runs out. */
TVC_EXPORT int32_t a_dtv_jsp_init_res(void);

/* Starts the control core, once. Returns 0, also when the platform fails; a later call does not try again. */
TVC_EXPORT int32_t a_dtv_jsp_init(void);

/* Reads an item.
 * param: JSON text {"PARAMETER": {"REQUEST": ..., ...}}, or null or empty for a plain get.
 * pv_content: receives at most DTV_JSP_RESPONSE_MAX bytes of {"URI", "STATUS", "ITEMS"}, without a terminator; the
 * caller clears it beforehand. Untouched when the URI is unknown, the parameters do not decode, memory runs out, or the
 * item has no response to give, such as a list of no events; the result may then still be 0.
 * Returns the handler's code, or -1. The response's "STATUS" is that code, but 0 for an item without a value to show.
 */
TVC_EXPORT int32_t a_dtv_jsp_get(const char* uri, const char* param, void* pv_content);

/* Changes an item or triggers an action.
 * param: JSON text {"PARAMETER": {"REQUEST": "ACTION" | "MODIFY" | "SET" | "ASSOCIATE", ...}}.
 * Returns the handler's code, or -1. */
TVC_EXPORT int32_t a_dtv_jsp_set(const char* uri, const char* param);

/* Subscribes to a notification URI. Subscriptions to one URI are counted. Returns 0, or -1 for a null pointer. */
TVC_EXPORT int32_t a_dtv_jsp_add_listener_buffer(const char* ps_uri);

/* Ends one subscription to a URI; the last one discards the pending text. Returns 0, or -1 for a null pointer. */
TVC_EXPORT int32_t a_dtv_jsp_remove_listener_buffer(const char* ps_uri);

/* Takes the pending notification of a subscribed URI.
 * pv_buffer: receives at most buffer_len bytes, without a terminator; the rest of a longer text is discarded. Untouched
 * when nothing is pending.
 * Returns 0 for a subscribed URI, else -1 (also for a null pointer or a length below 1). */
TVC_EXPORT int32_t a_dtv_jsp_get_listener_buffer(const char* ps_uri, void* pv_buffer, int32_t buffer_len);

/* Describes every URI and item type, for tools that generate forms, documents or tests.
 * Returns a JSON text that the caller frees with free(), or null without memory:
 *   {"uris": [{"uri", "id", "group", "record", "type", "get", "set", "notify", "without_effect", "get_needs",
 *              "set_needs", "help", "unit", "limit", "values", "minimum", "maximum"}, ...],
 *    "types": {"TYPE_VALUE": {"query": [field...] | null, "set": {"request", "fields": [field...]} | null,
 *                             "response": [field...] | null, "root": [field...],
 *                             "notify": {"form": "single" | "queued", "member", "bound", "fields"} | null}, ...},
 *    "kinds": [{"kind", "json": "number" | "string" | "array" | "object", "help", "minimum", "maximum"}, ...],
 *    "results": [{"result", "name", "help"}, ...]}
 * In a URI, "get" and "set" are true if the request has an effect, "notify" if a handler raises the event.
 * "without_effect" names those of "get" and "set" that succeed without effect; if there are none, it is left out.
 * "help" is a sentence; a URI that no handler serves has none. "get_needs" and "set_needs" name the members without
 * which a request is refused or means something else: an array of arrays, each with the members of which one is needed.
 * A "MODIFY" always needs "VALUE". "unit", "limit" (bytes of a text that count), "values", "minimum" and "maximum"
 * describe the item's value and are left out if there is nothing to say. "root" describes the members of a response
 * that stand before "ITEMS"; a type without them has no "root". A field is {"key", "kind", "uri", "when", "limit",
 * "count", "unit", "values", "minimum", "maximum", "help", "value", "fields"}: "uri" is the only URI whose requests
 * read the field; "when", {"key", "value"}, names the member and its value without which the field is not there (null:
 * the member is not there, a number: no request can give it); "limit" is the length of the longest text in bytes,
 * "count" the length of an array, at most, "value" a constant text, "fields" the members of an object. Only "key",
 * "kind" and "help" are always there. A request has the fields without "uri" or "when" and those with its own; where
 * that gives a key twice, it is one member. A response may show a key in one of several kinds: then each kind is a
 * field. "values" is an array of {"value": text} or {"value": number, "help"}. "minimum" and "maximum" are decimal
 * texts, since a double cannot hold every 64-bit limit exactly. Kinds of numbers have them; a field or a URI has its
 * own where the platform receives fewer bits than the kind has: of a number beyond them, only the low bits arrive. A
 * result that is not listed is the platform's own. */
TVC_EXPORT char* a_dtv_jsp_describe(void);

#ifdef __cplusplus
}
#endif

#endif
