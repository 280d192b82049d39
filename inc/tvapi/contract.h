/* How the functions of the TV API are stated: each once, in a form that different programs expand differently.
 *
 *     // Sets the master volume. volume: platform scale. Returns 0, negative on failure.
 *     TVAPI_FN(INT32, a_vextvapi_volctrl_setVolume, IN(INT16, volume))
 *
 * A contract header states its types inside an include guard and its functions outside of it, between
 * "tvapi/begin.h" and "tvapi/end.h". By default they become prototypes. A file that defines TVAPI_FN, TVAPI_CALLBACK or
 * TVAPI_RECORD before it includes "tvapi/all.h" expands the statements in its own way: the tap generates its forwarding
 * and scripted functions from them, a platform its defaults for functions that it does not implement.
 *
 * A statement is TVAPI_FN(result type, name, parameters...); a callback type is
 * TVAPI_CALLBACK(result type, name, parameters...). The table below lists the kinds of parameters. A callback's
 * parameters use the same kinds; in its TAG it receives the registered tag.
 *
 * A record that a function or a callback takes is described in a third statement, TVAPI_RECORD(type, members...), which
 * names its members in their order. TVAPI_UNION does the same for a union. A record inside another is described before
 * it. A fourth statement, TVAPI_ITEM(item id, type), gives the type of an item's record. */
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

/* The kinds of parameters. A row is (form, direction, C type, name, type, count), and for a callback the name of its
 * type once more at the end.
 *
 *   form       what the argument is: a value, the address of one or of count elements of a type, ...
 *   direction  in: read by the function; out: written; inout: both
 *   type       of what is passed or pointed at
 *   count      elements behind the pointer; a count or size that comes with the parameter is a number, or names the
 *              integer parameter (by value or by address) that holds it */

/* An integer, enumeration, handle, pointer-sized word, or small record, by value. */
#define TVAPI_KIND_IN(type, name) (value, in, type, name, type, 0)
/* A pointer-sized word: a number, or the address of a record or, with char, of a text that ends at its NUL. Both are
 * read only. when: a condition on the other parameters, with which it is an address, or null. */
#define TVAPI_KIND_IN_ADDRESS(type, name, when) (address, in, void*, name, type, (when) ? 1 : 0)
/* A text that ends at its NUL. */
#define TVAPI_KIND_IN_TEXT(name) (string, in, const char*, name, char, 0)
/* One record. */
#define TVAPI_KIND_IN_RECORD(type, name) (one, in, const type*, name, type, 1)
/* Values or records. */
#define TVAPI_KIND_IN_ARRAY(type, name, count) (array, in, const type*, name, type, count)
/* One integer or record. */
#define TVAPI_KIND_OUT(type, name) (one, out, type*, name, type, 1)
#define TVAPI_KIND_INOUT(type, name) (one, inout, type*, name, type, 1)
/* A buffer of so many characters; a text in it ends at a NUL or at the buffer's end. */
#define TVAPI_KIND_OUT_TEXT(name, size) (text, out, char*, name, char, size)
#define TVAPI_KIND_INOUT_TEXT(name, size) (text, inout, char*, name, char, size)
/* Room for values or records. */
#define TVAPI_KIND_OUT_ARRAY(type, name, count) (array, out, type*, name, type, count)
/* The record of an item. The parameter item_id holds the item's id; TVAPI_ITEM gives the record's type. */
#define TVAPI_KIND_IN_ITEM(name, item_id) (item, in, const void*, name, void, item_id)
#define TVAPI_KIND_INOUT_ITEM(name, item_id) (item, inout, void*, name, void, item_id)
/* A callback that the platform keeps and calls. */
#define TVAPI_KIND_CALLBACK(type, name) (callback, in, type, name, type, 0, type)
/* A pointer-sized word that the platform hands back to the callback unchanged. */
#define TVAPI_KIND_TAG(type, name) (tag, in, type, name, type, 0)

/* TVAPI_ROW(m, IN(INT16, volume)) is m(value, in, INT16, volume, INT16, 0). */
#define TVAPI_ROW(m, p) TVAPI_APPLY(m, TVAPI_KIND_##p)
#define TVAPI_APPLY(m, row) m row

/* The C type of one parameter, its declaration, and its name. */
#define TVAPI_TYPE(p) TVAPI_ROW(TVAPI_ROW_TYPE, p)
#define TVAPI_ROW_TYPE(form, direction, ctype, ...) ctype
#define TVAPI_DECLARE(p) TVAPI_ROW(TVAPI_ROW_DECLARE, p)
#define TVAPI_ROW_DECLARE(form, direction, ctype, name, ...) ctype name
#define TVAPI_NAME(p) TVAPI_ROW(TVAPI_ROW_NAME, p)
#define TVAPI_ROW_NAME(form, direction, ctype, name, ...) name

#define TVAPI_PROTOTYPE(ret, name, ...) ret name(TVAPI_EACH(TVAPI_DECLARE, __VA_ARGS__));
#define TVAPI_CALLBACK_TYPE(ret, name, ...) typedef ret (*name)(TVAPI_EACH(TVAPI_DECLARE, __VA_ARGS__));

#endif
