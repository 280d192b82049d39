#!/usr/bin/env python3
"""Runs dvb_print_si, an example program of libbitstream-dev, which is compiled here.

usage: tests/broadcast/print_si.py FILE...

Prints a JSON object: for each file's name a list of its services, as PAT, PMT and SDT announce them. The packets of a
file may have 188 bytes or, with a time stamp before each packet, 192.
"""

import json
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ElementTree
from pathlib import Path

EXAMPLE = "usr/share/doc/libbitstream-dev/examples/dvb_print_si.c"
LIMIT = 120  # s, far more than it takes


def built(folder):
    """The program in the folder, which is made first if it is not there."""
    printer = folder / "dvb_print_si"
    if not printer.exists():
        source = Path("/") / EXAMPLE
        if not source.exists():  # a machine without documentation files
            unpacked = folder / "unpacked"
            unpacked.mkdir(exist_ok=True)
            subprocess.run(["apt-get", "download", "-qq", "libbitstream-dev"], cwd=unpacked, check=True)
            subprocess.run(["dpkg-deb", "-x", *unpacked.glob("*.deb"), unpacked], check=True)
            source = unpacked / EXAMPLE
        subprocess.run(["cc", "-o", printer, source], check=True, stderr=subprocess.DEVNULL)
    return printer


def tree(printer, data):
    """The XML that the program prints about packets of 188 bytes."""
    output = subprocess.run([printer, "-x", "xml"], input=data, check=True, stdout=subprocess.PIPE, timeout=LIMIT).stdout
    return ElementTree.fromstring(output)


def without_time_stamps(data):
    if data[0] == 0x47:
        return data
    return b"".join(data[at + 4:at + 192] for at in range(0, len(data), 192))


def services(root):
    [sdt] = root.iter("SDT")
    [pat] = root.iter("PAT")
    pids = {int(each.get("number")): int(each.get("pid")) for each in pat.iter("PROGRAM")}
    maps = {int(each.get("program")): each for each in root.iter("PMT")}
    found = []
    for service in sdt.iter("SERVICE"):
        [description] = service.iter("SERVICE_DESC")
        number = int(service.get("sid"))
        found.append({"network": int(sdt.get("onid")), "stream": int(sdt.get("tsid")), "service": number,
                      "type": int(description.get("type"), 0), "name": description.get("service"),
                      "provider": description.get("provider"), "pmt": pids[number],
                      "streams": [int(each.get("pid")) for each in maps[number].iter("ES")]})
    return found


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    with tempfile.TemporaryDirectory(prefix="dtv-print-si-") as folder:
        printer = built(Path(folder))
        print(json.dumps({Path(name).name: services(tree(printer, without_time_stamps(Path(name).read_bytes())))
                          for name in sys.argv[1:]}))


if __name__ == "__main__":
    main()
