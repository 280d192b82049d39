// Behind each content record stands TVC_RECORD(type, members...), which names its members in their order; TVC_UNION is
// the same for a union, and for a record of which only some members are named. Records inside come first. By default
// both expand to nothing; a program that reads and writes records by their members' names defines them before it
// includes one of these headers.
#ifndef VEX_TV_CTRL_RECORD_H
#define VEX_TV_CTRL_RECORD_H

#ifndef TVC_RECORD
#define TVC_RECORD(...)
#define TVC_UNION(...)
#endif

#endif
