#!/usr/bin/env python3
"""Checks that every C and C++ file has the layout of .clang-format, and that none is too long.
In the plugin (src/ and inc/) it also finds the two spellings that no other check does: an anonymous namespace, which is
written as static, and a comparison with nullptr, which is written as p or !p.

usage: tests/check_format.py [--selftest]

A table whose layout is deliberate says "clang-format off" itself; it has a fact per line and
may be of any length. Prints each place that differs and ends with
"N passed, N failed"; one file is one test. `clang-format -i FILE` puts a file right.
--selftest checks the check: a made-up file is refused, and accepted after clang-format laid it out.
"""

import concurrent.futures
import os
import re
import subprocess
import sys
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
SOURCES = ["*.c", "*.cpp", "*.h", "*.def"]
PLUGIN = ("src/", "inc/")
OTHER_STYLE = {re.compile(r"^\s*namespace \{"): "static, in place of an anonymous namespace",
               re.compile(r"[!=]= *nullptr|nullptr *[!=]="): "p or !p, in place of a comparison with nullptr"}
MAX_LINES = 600  # of a file that is no table (.def)
PLACE = re.compile(r"^(?P<file>/.+?):\d+:\d+: (?:error|warning): ", re.M)


def listed(patterns):
    """The project's files, with those that are not added yet."""
    command = ["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard", "--", *patterns]
    names = subprocess.run(command, cwd=ROOT, check=True, stdout=subprocess.PIPE, text=True).stdout
    return [ROOT / name for name in names.split("\0") if name and (ROOT / name).is_file()]


def style_complaint(name, text):
    """A line for each place that breaks the plugin's style, with what to write instead; empty when there is none."""
    if not name.startswith(PLUGIN):
        return ""
    return "".join(f"{name}:{number}: {wanted}\n" for number, line in enumerate(text.splitlines(), 1)
                   for pattern, wanted in OTHER_STYLE.items() if pattern.search(line))


def layout_complaints(files):
    """File -> what clang-format says of it. One start of it for all files."""
    # The style is named, so that the self-test's files, which are outside of the project, have it as well.
    checked = subprocess.run(["clang-format", f"--style=file:{ROOT}/.clang-format", "--dry-run", "-Werror", *files],
                             stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
    starts = [*PLACE.finditer(checked.stdout)]
    complaints = {}
    for place, following in zip(starts, [*starts[1:], None]):
        text = checked.stdout[place.start():following and following.start()]
        complaints[Path(place["file"])] = complaints.get(Path(place["file"]), "") + text
    if checked.returncode != 0 and not starts:
        complaints[files[0]] = f"clang-format exits with {checked.returncode}\n{checked.stdout}"
    return complaints


def complaints_of(files):
    """File -> what is wrong with its length, its style or its layout."""
    with concurrent.futures.ThreadPoolExecutor() as pool:
        parts = [files[first::os.cpu_count()] for first in range(min(os.cpu_count(), len(files)))]
        complaints = {file: text for part in pool.map(layout_complaints, parts) for file, text in part.items()}
    for file in files:
        text = file.read_text(encoding="utf-8")
        length = len(text.splitlines())
        found = style_complaint(str(file.relative_to(ROOT)), text) if file.is_relative_to(ROOT) else ""
        if length > MAX_LINES and file.suffix != ".def":
            found += f"{file}: {length} lines; no file but a table has more than {MAX_LINES}\n"
        if found:
            complaints[file] = found + complaints.get(file, "")
    return complaints


def selftest():
    """(passed, failed). Each text has one fault at most: the width, the indent, a blank, the length."""
    wrong = ["int a = " + " + ".join(["1000"] * 17) + ";\n", "int f() {\n    return 1;\n}\n", "int  a;\n", "// a\n" * (MAX_LINES + 1)]
    right = ["int a = " + " + ".join(["1000"] * 16) + ";\n", "int f() { return 1; }\n",
             "// clang-format off\nint  a;\n", "// a\n" * MAX_LINES]
    results = []
    with tempfile.TemporaryDirectory() as folder:
        files = {Path(folder) / f"{place}.cpp": text for place, text in enumerate(wrong + right)}
        for file, text in files.items():
            file.write_text(text, encoding="utf-8")
        complaints = complaints_of([*files])
        for file, text in files.items():
            results.append((file in complaints) == (text in wrong))
            if not results[-1]:
                print(f"{text!r}: found {complaints.get(file, 'nothing')}")
    for name, text, expected in [("src/a.cpp", "namespace {", True), ("src/a.cpp", "  if (a == nullptr)", True),
                                 ("inc/a.h", "return nullptr != a;", True),
                                 ("src/a.cpp", "return a ? b : nullptr;", False), ("tap/a.cpp", "namespace {", False)]:
        results.append(bool(style_complaint(name, text)) == expected)
        if not results[-1]:
            print(f"{name}: {text!r}: expected {'a complaint' if expected else 'none'}")
    return results.count(True), results.count(False)


def main():
    if sys.argv[1:] == ["--selftest"]:
        passed, failed = selftest()
    elif sys.argv[1:]:
        print(__doc__)
        return 2
    else:
        files = listed(SOURCES)
        complaints = complaints_of(files)
        print("".join(complaints.values()), end="")
        passed, failed = len(files) - len(complaints), len(complaints)
    print(f"{passed} passed, {failed} failed")
    return 1 if failed or not passed else 0


if __name__ == "__main__":
    sys.exit(main())
