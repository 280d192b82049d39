/* How a function of the TV API is stated: once, in a form that can be expanded more than once.
 *
 *     // Sets the master volume. volume: platform scale. Returns 0, negative on failure.
 *     TVAPI_FN(INT32, a_vextvapi_volctrl_setVolume, IN(INT16, volume))
 *
 * A contract header states its types inside an include guard and its functions outside of it, between
 * "tvapi/begin.h" and "tvapi/end.h". Included plainly it gives prototypes. A file that defines TVAPI_FN and
 * TVAPI_CALLBACK before it includes "tvapi/all.h" expands every statement in its own way: the tap makes its
 * forwarding and scripted functions of them, a platform its defaults for functions that it does not implement.
 *
 * A statement is TVAPI_FN(result type, name, parameters...); a callback type is
 * TVAPI_CALLBACK(result type, name, parameters...). The kinds of parameters:
 *
 *   IN(type, name)               passed by value: integer, enumeration, handle, pointer-sized word, small record
 *   IN_TEXT(name)                const char*, NUL-terminated, read only
 *   IN_RECORD(type, name)        const type*, read only
 *   IN_ADDRESS(type, name)       void*, a pointer-sized word that may be a number as well as the address of a record
 *                                that is read only; what it is, another parameter says
 *   IN_ARRAY(type, name, count)  const type*, count values; count names an integer parameter
 *   OUT(type, name)              type*, one integer or record, written
 *   INOUT(type, name)            type*, one integer or record, read and written
 *   OUT_TEXT(name, size)         char*, written; size is a number, or names the parameter (by value or by address)
 *                                that holds the buffer's size in characters
 *   INOUT_TEXT(name, size)       the same, read and written; what is read ends at a NUL or at the size
 *   OUT_ARRAY(type, name, count) type*, written; count as above
 *   CALLBACK(type, name)         a callback that the platform keeps and calls
 *   TAG(type, name)              pointer-sized word that the platform hands back to the callback unchanged
 *
 * A callback's parameters use the same kinds; its TAG is where the registered tag arrives. */
#ifndef TVAPI_CONTRACT_H
#define TVAPI_CONTRACT_H

#include "tvapi/types.h"

/* TVAPI_EACH(m, a, b, c) is m(a), m(b), m(c); at most 64 parameters. */
#define TVAPI_EACH(m, ...) __VA_OPT__(TVAPI_RESCAN(TVAPI_EACH_NEXT(m, __VA_ARGS__)))
#define TVAPI_EACH_NEXT(m, p, ...) m(p) __VA_OPT__(, TVAPI_EACH_AGAIN TVAPI_PARENS(m, __VA_ARGS__))
#define TVAPI_EACH_AGAIN() TVAPI_EACH_NEXT
#define TVAPI_PARENS ()
#define TVAPI_RESCAN(...) TVAPI_RESCAN_16(TVAPI_RESCAN_16(TVAPI_RESCAN_16(TVAPI_RESCAN_16(__VA_ARGS__))))
#define TVAPI_RESCAN_16(...) TVAPI_RESCAN_4(TVAPI_RESCAN_4(TVAPI_RESCAN_4(TVAPI_RESCAN_4(__VA_ARGS__))))
#define TVAPI_RESCAN_4(...) TVAPI_RESCAN_1(TVAPI_RESCAN_1(TVAPI_RESCAN_1(TVAPI_RESCAN_1(__VA_ARGS__))))
#define TVAPI_RESCAN_1(...) __VA_ARGS__

/* The C declaration of one parameter. */
#define TVAPI_DECLARE(p) TVAPI_DECLARE_##p
#define TVAPI_DECLARE_IN(type, name) type name
#define TVAPI_DECLARE_IN_TEXT(name) const char* name
#define TVAPI_DECLARE_IN_RECORD(type, name) const type* name
#define TVAPI_DECLARE_IN_ADDRESS(type, name) void* name
#define TVAPI_DECLARE_IN_ARRAY(type, name, count) const type* name
#define TVAPI_DECLARE_OUT(type, name) type* name
#define TVAPI_DECLARE_INOUT(type, name) type* name
#define TVAPI_DECLARE_OUT_TEXT(name, size) char* name
#define TVAPI_DECLARE_INOUT_TEXT(name, size) char* name
#define TVAPI_DECLARE_OUT_ARRAY(type, name, count) type* name
#define TVAPI_DECLARE_CALLBACK(type, name) type name
#define TVAPI_DECLARE_TAG(type, name) type name

/* The name of one parameter. */
#define TVAPI_NAME(p) TVAPI_NAME_##p
#define TVAPI_NAME_IN(type, name) name
#define TVAPI_NAME_IN_TEXT(name) name
#define TVAPI_NAME_IN_RECORD(type, name) name
#define TVAPI_NAME_IN_ADDRESS(type, name) name
#define TVAPI_NAME_IN_ARRAY(type, name, count) name
#define TVAPI_NAME_OUT(type, name) name
#define TVAPI_NAME_INOUT(type, name) name
#define TVAPI_NAME_OUT_TEXT(name, size) name
#define TVAPI_NAME_INOUT_TEXT(name, size) name
#define TVAPI_NAME_OUT_ARRAY(type, name, count) name
#define TVAPI_NAME_CALLBACK(type, name) name
#define TVAPI_NAME_TAG(type, name) name

#define TVAPI_PROTOTYPE(ret, name, ...) ret name(TVAPI_EACH(TVAPI_DECLARE, __VA_ARGS__));
#define TVAPI_CALLBACK_TYPE(ret, name, ...) typedef ret (*name)(TVAPI_EACH(TVAPI_DECLARE, __VA_ARGS__));

#endif
