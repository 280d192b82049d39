#!/usr/bin/env python3
"""Checks that every C and C++ file is laid out as .clang-format says, and that none grows too long.
In the plugin (src/ and inc/) it also finds the two spellings that no other check does: an anonymous namespace, which is
written as static, and a comparison with nullptr, which is written as p or !p.

usage: tests/check_format.py [--selftest]

A table whose layout is deliberate says "clang-format off" itself; it has a fact per line and
may be of any length. Prints each place that differs and ends with
"N passed, N failed"; one file is one test. `clang-format -i FILE` puts a file right.
--selftest checks the check: a made-up file is refused, and accepted after clang-format laid it out.
"""

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


def tracked(patterns):
    command = ["git", "ls-files", "-z", "--", *patterns]
    listed = subprocess.run(command, cwd=ROOT, check=True, stdout=subprocess.PIPE, text=True)
    return [ROOT / name for name in listed.stdout.split("\0") if name and (ROOT / name).is_file()]


def style_complaint(name, text):
    """What the plugin's style has in place of what stands in a text; empty when nothing."""
    if not name.startswith(PLUGIN):
        return ""
    return "".join(f"{name}:{number}: {wanted}\n" for number, line in enumerate(text.splitlines(), 1)
                   for pattern, wanted in OTHER_STYLE.items() if pattern.search(line))


def complaint(file):
    """What is wrong with the file's length, style or, as clang-format says, layout; an empty text when nothing."""
    text = file.read_text(encoding="utf-8")
    length = len(text.splitlines())
    if length > MAX_LINES and file.suffix != ".def":
        return f"{file}: {length} lines; no file but a table has more than {MAX_LINES}\n"
    if file.is_relative_to(ROOT) and (other := style_complaint(str(file.relative_to(ROOT)), text)):
        return other
    # The style is named: a file outside of the project, as the self-test's, is to have the project's too.
    checked = subprocess.run(["clang-format", f"--style=file:{ROOT}/.clang-format", "--dry-run", "-Werror", file],
                             stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
    return checked.stdout or (f"{file}: clang-format exits with {checked.returncode}\n" if checked.returncode else "")


def selftest():
    """(passed, failed). The texts are right but for the width, the indent, a blank, the length."""
    wrong = ["int a = " + " + ".join(["1000"] * 17) + ";\n", "int f() {\n    return 1;\n}\n", "int  a;\n", "// a\n" * (MAX_LINES + 1)]
    right = ["int a = " + " + ".join(["1000"] * 16) + ";\n", "int f() { return 1; }\n",
             "// clang-format off\nint  a;\n", "// a\n" * MAX_LINES]
    results = []
    with tempfile.TemporaryDirectory() as folder:
        file = Path(folder) / "a.cpp"
        for text, expected in [(text, True) for text in wrong] + [(text, False) for text in right]:
            file.write_text(text, encoding="utf-8")
            results.append(bool(complaint(file)) == expected)
            if not results[-1]:
                print(f"{text!r}: expected {'a complaint' if expected else 'none'}")
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
        complaints = [complaint(file) for file in tracked(SOURCES)]
        print("".join(complaints), end="")
        passed, failed = sum(not text for text in complaints), sum(bool(text) for text in complaints)
    print(f"{passed} passed, {failed} failed")
    return 1 if failed or not passed else 0


if __name__ == "__main__":
    sys.exit(main())
