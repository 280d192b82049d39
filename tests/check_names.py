#!/usr/bin/env python3
"""Checks that no global type or constant of the virtual television has the name of another one.

usage: tests/check_names.py [--selftest]

Its rooms are linked together. Two types, or two inline constants, of one name outside of an unnamed namespace are
undefined behaviour (the one-definition rule), and no compiler reports it. Prints each such name with its files and ends
with "N passed, N failed"; one file is one test. --selftest checks the check: made-up trees.
"""

import collections
import re
import sys
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
# What ends up in one program: the virtual television with its unit tests, and each of its other programs.
LINKED = [["tv/core", "tv/broadcast", "tv/rooms", "tests/unit/tv"], ["tv/media_reader"], ["tv/generator", "tv/broadcast"]]
# Files that are compiled in place of another one, or in a program of their own.
ALTERNATIVES = {"tv/rooms/screen/player/absent.cpp", "tests/unit/tv/library_test.cpp", "tests/unit/tv/false_reader.cpp"}

NAMESPACE = re.compile(r"^namespace[^;{]*\{\n.*?^\}  // namespace[^\n]*$", re.M | re.S)
COMMENT = re.compile(r"/\*.*?\*/|//[^\n]*", re.S)
TYPE = re.compile(r"^(?:struct|class|union|enum(?: class)?) (\w+)[^;(=]*?\{", re.M)
CONSTANT = re.compile(r"^inline constexpr [^=;{]*?\b(\w+)(?:\[[^]]*\])? ?[={(]", re.M)


def names_of(text):
    """The global types and inline constants that a file defines."""
    text = COMMENT.sub("", NAMESPACE.sub("", text))
    return {match[1] for pattern in (TYPE, CONSTANT) for match in pattern.finditer(text)}


def check_program(root, folders):
    """The number of files, and of each name that several of them define, the files."""
    files = collections.defaultdict(list)
    count = 0
    for folder in folders:
        for file in sorted((root / folder).rglob("*")):
            path = file.relative_to(root).as_posix()
            if file.suffix not in {".h", ".cpp"} or path in ALTERNATIVES:
                continue
            count += 1
            for name in names_of(file.read_text(encoding="utf-8")):
                files[name].append(path)
    return count, {name: paths for name, paths in files.items() if len(paths) > 1}


def check(root):
    """The counts of files and of those with a violation, and the violations as texts."""
    count, wrong, texts = 0, set(), set()
    for folders in LINKED:
        files, clashes = check_program(root, folders)
        count += files
        for name, paths in clashes.items():
            wrong.update(paths)
            texts.add(f"{name} is defined in {', '.join(paths)}: it needs another name, or an unnamed namespace")
    return count, len(wrong), sorted(texts)


def selftest():
    clash = "struct Row {\n  int a = 0;\n};\n"
    hidden = "namespace {\n\n" + clash + "\n}  // namespace\n"
    cases = [
        ("two types", {"tv/rooms/a/a.h": clash, "tv/rooms/b/b.cpp": clash}, 1),
        ("a type in an unnamed namespace", {"tv/rooms/a/a.h": clash, "tv/rooms/b/b.cpp": hidden}, 0),
        ("a declaration", {"tv/rooms/a/a.h": clash, "tv/rooms/b/b.h": "struct Row;\n"}, 0),
        ("an enumeration and a class", {"tv/rooms/a/a.h": "enum class Row {\n};\n", "tv/core/b.h": clash}, 1),
        ("two constants", {"tv/rooms/a/a.h": "inline constexpr int kMost = 1;\n",
                           "tv/rooms/b/b.h": "inline constexpr std::chrono::seconds kMost(2);\n"}, 1),
        ("a local type", {"tv/rooms/a/a.cpp": "int f() {\n  struct Row {\n  };\n}\n", "tv/rooms/b/b.cpp": clash}, 0),
        ("another program", {"tv/rooms/a/a.h": clash, "tv/media_reader/b.h": clash}, 0),
        ("a test", {"tv/rooms/a/a.h": clash, "tests/unit/tv/support.h": clash}, 1),
    ]
    failed = 0
    for title, files, wanted in cases:
        with tempfile.TemporaryDirectory() as folder:
            root = Path(folder)
            for path, text in files.items():
                (root / path).parent.mkdir(parents=True, exist_ok=True)
                (root / path).write_text(text, encoding="utf-8")
            found = check(root)[2]
        if len(found) != wanted:
            failed += 1
            print(f"FAIL {title}: {found}")
    return len(cases), failed


def main():
    if sys.argv[1:] == ["--selftest"]:
        count, failed = selftest()
    elif sys.argv[1:]:
        print(__doc__.strip(), file=sys.stderr)
        return 2
    else:
        count, failed, texts = check(ROOT)
        for text in texts:
            print(text)
    print(f"{count - failed} passed, {failed} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
