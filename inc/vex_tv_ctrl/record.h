// Describes content records. After each struct, TVC_RECORD(type, members...) names its members in their order.
// TVC_UNION does the same for a union, and for a struct of which it names only some members. A record inside another is
// described before it. By default both macros expand to nothing. A program that accesses records by their members'
// names defines both before it includes the headers of the records.
#ifndef VEX_TV_CTRL_RECORD_H
#define VEX_TV_CTRL_RECORD_H

#ifndef TVC_RECORD
#define TVC_RECORD(...)
#define TVC_UNION(...)
#endif

#endif
