#!/usr/bin/env python3
"""Checks how built libraries and programs are hardened, on the files themselves, whatever their machine.

usage: tests/check_hardening.py FILE... | --selftest

Ends with "N passed, N failed"; one property of one file is one test.
"""

import re
import subprocess
import sys
from pathlib import Path


def has_relro(elf):
    return re.search(r"^\s*GNU_RELRO\b", elf, re.M)


def binds_now(elf):
    return re.search(r"\(FLAGS\).*\bBIND_NOW\b|\(FLAGS_1\).*\bNOW\b|\(BIND_NOW\)", elf)


def stack_is_data(elf):
    return re.search(r"^\s*GNU_STACK(?:\s+0x[0-9a-f]+){5}\s+RW\s", elf, re.M)


def no_segment_is_writable_code(elf):
    return not re.search(r"^\s*LOAD(?:\s+0x[0-9a-f]+){5}\s+RWE\s", elf, re.M)


def no_text_relocation(elf):
    return "(TEXTREL)" not in elf and not re.search(r"\(FLAGS\).*\bTEXTREL\b", elf)


def moves(elf):
    return re.search(r"^Elf file type is DYN\b", elf, re.M)


def no_search_path_of_this_machine(elf):
    return all(path.startswith("$ORIGIN")
               for paths in re.findall(r"\((?:RPATH|RUNPATH)\).*\[(.*)\]", elf) for path in paths.split(":"))


def guards_its_stack(elf):
    return re.search(r"\bUND __stack_chk_fail\b", elf)


def checks_its_copies(elf):
    return re.search(r"\bUND __\w+_chk\b(?<!__stack_chk)", elf)


def can_be_unloaded(elf):
    # A process-wide symbol keeps its library loaded for good.
    return not re.search(r"^\s*\d+:.*\bUNIQUE\b(?!.*\bUND\b)", elf, re.M) and not re.search(r"\bNODELETE\b", elf)


# Property, how readelf's output shows it, whether only libraries have it.
PROPERTIES = [
    ("relocated data is read-only (RELRO)", has_relro, False),
    ("every symbol is bound at load time", binds_now, False),
    ("the stack is not executable", stack_is_data, False),
    ("nothing is both writable and executable", no_segment_is_writable_code, False),
    ("the code has no relocations", no_text_relocation, False),
    ("it can be loaded anywhere", moves, False),
    ("it looks for libraries nowhere but where the system and it stand", no_search_path_of_this_machine, False),
    ("the stack is guarded", guards_its_stack, False),
    ("copies are checked (_FORTIFY_SOURCE)", checks_its_copies, False),
    ("the library can be unloaded", can_be_unloaded, True),
]


def violations(elf, is_library):
    """(number of tests, the properties that do not hold) of a file, from its readelf text."""
    looked_at = [(text, holds) for text, holds, library_only in PROPERTIES if is_library or not library_only]
    return len(looked_at), [text for text, holds in looked_at if not holds(elf)]


def read_elf(path):
    return subprocess.run(["readelf", "--wide", "--program-headers", "--dynamic", "--dyn-syms", path], check=True,
                          capture_output=True, text=True).stdout


def selftest():
    good = """Elf file type is DYN (Shared object file)
  LOAD           0x000000 0x0000000000000000 0x0000000000000000 0x004f10 0x004f10 R E 0x1000
  GNU_STACK      0x000000 0x0000000000000000 0x0000000000000000 0x000000 0x000000 RW  0x10
  GNU_RELRO      0x02bd20 0x000000000002cd20 0x000000000002cd20 0x0192e0 0x0192e0 R   0x1
 0x000000000000001d (RUNPATH)            Library runpath: [$ORIGIN/../lib:$ORIGIN]
 0x000000000000001e (FLAGS)              BIND_NOW
     3: 0000000000000000     0 FUNC    GLOBAL DEFAULT  UND __stack_chk_fail@GLIBC_2.4 (5)
     4: 0000000000000000     0 FUNC    GLOBAL DEFAULT  UND __memcpy_chk@GLIBC_2.4 (5)
     5: 0000000000000000     0 OBJECT  UNIQUE DEFAULT  UND _ZNSs4_Rep20_S_empty_rep_storageE@GLIBCXX_3.4 (3)
"""
    changes = {
        "relocated data is read-only (RELRO)": ("  GNU_RELRO", "  GNU_OTHER"),
        "every symbol is bound at load time": ("BIND_NOW", "SYMBOLIC"),
        "the stack is not executable": (" RW  0x10", " RWE 0x10"),
        "nothing is both writable and executable": (" R E 0x1000", " RWE 0x1000"),
        "the code has no relocations": ("BIND_NOW", "TEXTREL BIND_NOW"),
        "it can be loaded anywhere": ("DYN", "EXEC"),
        "it looks for libraries nowhere but where the system and it stand": (":$ORIGIN]", ":/home/somebody/lib]"),
        "the stack is guarded": ("UND __stack_chk_fail", "UND stack_chk_fail"),
        "copies are checked (_FORTIFY_SOURCE)": ("UND __memcpy_chk", "UND memcpy"),
        "the library can be unloaded": ("UNIQUE DEFAULT  UND", "UNIQUE DEFAULT   12"),
    }
    passed = failed = 0
    for expected, text in [([], good)] + [([name], good.replace(*change)) for name, change in changes.items()]:
        _, found = violations(text, True)
        if found == expected:
            passed += 1
        else:
            failed += 1
            print(f"expected {expected or 'no violation'}, found {found}")
    if set(changes) != {text for text, _, _ in PROPERTIES}:
        failed += 1
        print("a property is not tested")
    return passed, failed


def main():
    if len(sys.argv) < 2:
        print(__doc__)
        return 2
    if sys.argv[1:] == ["--selftest"]:
        passed, failed = selftest()
    else:
        passed = failed = 0
        for path in sys.argv[1:]:
            tests, found = violations(read_elf(path), ".so" in Path(path).name)
            print("".join(f"{path}: it does not hold that {text}\n" for text in found), end="")
            failed += len(found)
            passed += tests - len(found)
    print(f"{passed} passed, {failed} failed")
    return 1 if failed or not passed else 0


if __name__ == "__main__":
    sys.exit(main())
