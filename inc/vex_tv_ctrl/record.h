// Behind each content record stands TVC_RECORD(type, members...), which names its members in their order; TVC_UNION is
// the same for a union, and for a record of which only some members are named. Records inside come first. Here nothing
// is made of them: a program that reads and writes records by their members' names defines both before it includes a
// header of these.
#ifndef VEX_TV_CTRL_RECORD_H
#define VEX_TV_CTRL_RECORD_H

#ifndef TVC_RECORD
#define TVC_RECORD(...)
#define TVC_UNION(...)
#endif

#endif
