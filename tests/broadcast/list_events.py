#!/usr/bin/env python3
"""Prints the schedule of the multiplexes in a folder, as transport.py reads it.

usage: tests/broadcast/list_events.py FOLDER

{service: [{"id", "start", "duration", "title", "summary", "details", "items", "category"}]}, in the order of their times,
which are seconds since 1970. Texts are those of the first language; null: transport.py cannot read their character set.
Items are pairs of a description and a text, such as the director and a name.
"""

import json
import sys
from pathlib import Path

import transport


def items_of(extended):
    rest, found = extended[5:5 + extended[4]], []
    while rest:
        what, rest = rest[1:1 + rest[0]], rest[1 + rest[0]:]
        value, rest = rest[1:1 + rest[0]], rest[1 + rest[0]:]
        found.append((transport.text(what), transport.text(value)))
    return found


def described(event):
    [short, *_] = [d for tag, d in event.descriptors if tag == 0x4D]
    extended = [d for tag, d in event.descriptors if tag == 0x4E and d[1:4] == short[:3]]
    parts = [transport.text(d[6 + d[4]:6 + d[4] + d[5 + d[4]]]) for d in extended]
    [content] = [d for tag, d in event.descriptors if tag == 0x54]
    return {"id": event.id, "start": int(event.start.timestamp()), "duration": int(event.duration.total_seconds()),
            "title": transport.text(short[4:4 + short[3]]), "summary": transport.text(short[5 + short[3]:]),
            "details": None if None in parts else "".join(parts),
            "items": [item for d in extended for item in items_of(d)], "category": content[0]}


def main():
    guide = {}
    for file in sorted(Path(sys.argv[1]).glob("*.ts")):
        packets = list(transport.packets(file.read_bytes()))
        for section in transport.sections(packets, 0x12):
            if 0x50 <= section.table <= 0x5F:
                guide.setdefault(section.extension, {}).update({e.id: described(e) for e in transport.events(section)})
    print(json.dumps({service: sorted(its.values(), key=lambda e: e["start"]) for service, its in guide.items()}))


if __name__ == "__main__":
    main()
