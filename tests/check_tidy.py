#!/usr/bin/env python3
"""Runs clang-tidy over every C and C++ source of the project, with the checks of .clang-tidy.

usage: tests/check_tidy.py BUILD [--jobs N] [--all] [FILE...] | --selftest

BUILD is a configured build folder; its compile_commands.json says where each source's headers are and what is defined.
A source is skipped when what the preprocessor makes of it has not changed since it passed (BUILD/tidy remembers), nor
the checks and the version of clang-tidy; --all skips none. Prints each finding once, and ends with
"N passed, N failed"; one source is one test. A finding is fixed; where it is wrong, NOLINTNEXTLINE(check) and the
reason stand above the line.
--selftest checks the check: made-up sources, each with one fault or none.
"""

import argparse
import concurrent.futures
import functools
import hashlib
import json
import os
import re
import shlex
import subprocess
import sys
import tempfile
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
# Of a compiler's options those that say what the source means; warnings are the compilers' own task, and clang-tidy
# refuses options that only another compiler knows.
MEANING = re.compile(r"-[DU]|-std=|-fno-exceptions|-fno-rtti|-pthread")
FOLDERS = ("-I", "-isystem", "-iquote", "-include")
FINDING = re.compile(r"^(?P<place>\S+:\d+:\d+): (?:error|warning): ", re.M)
PROGRESS = 15  # seconds between two lines about it


def output_of(*command):
    return subprocess.run(command, cwd=ROOT, check=True, stdout=subprocess.PIPE, text=True).stdout


def meaning(command, folder):
    """The options of a compiler's command line that clang-tidy is given."""
    kept, words = [], iter(command)
    for word in words:
        option = next((name for name in FOLDERS if word.startswith(name)), None)
        if option:
            kept += [option, str(Path(folder, word[len(option):] or next(words)))]
        elif MEANING.match(word):
            kept += [word] if len(word) > 2 else [word, next(words)]
    return kept


def database(build):
    """Source -> options. A source that is compiled more than once has those of the first time."""
    entries = json.loads((build / "compile_commands.json").read_text(encoding="utf-8"))
    return {Path(e["file"]): meaning(shlex.split(e["command"])[1:], e["directory"]) for e in reversed(entries)}


def sources(build):
    """(source, options) of every tracked source. One that this build does not compile sees all folders."""
    known = database(build)
    pairs = {pair for options in known.values() for pair in zip(options, options[1:]) if pair[0] in FOLDERS}
    folders = [word for pair in sorted(pairs) for word in pair]
    for name in output_of("git", "ls-files", "--", "*.c", "*.cpp").splitlines():
        source = ROOT / name
        if source.is_file():
            yield source, known.get(source) or [*folders, "-std=c++20" if source.suffix == ".cpp" else "-std=c11"]


@functools.cache
def rules():
    """What a result depends on beside the source: the checks and the program that runs them."""
    version = re.search(r"version \S+", output_of("clang-tidy", "--version"))[0]
    files = [Path(__file__), *(ROOT / name for name in output_of("git", "ls-files", "--", "*.clang-tidy").splitlines())]
    return "\n".join([version, *(file.read_text(encoding="utf-8") for file in files)])


def key_of(source, options):
    """Changes with everything that a result depends on; None for a source that the preprocessor refuses."""
    # With comments: they can switch checks off.
    made = subprocess.run(["clang", "-E", "-C", *options, source], cwd=ROOT, stdout=subprocess.PIPE,
                          stderr=subprocess.DEVNULL, check=False)
    if made.returncode != 0:
        return None
    return hashlib.sha256(b"\0".join([made.stdout, " ".join(options).encode(), rules().encode()])).hexdigest()


def check(source, options, stamps, config=()):
    """The findings in one source, as texts that each begin with their place; None: it passed before, unchanged."""
    stamp = stamps / (hashlib.sha256(str(source).encode()).hexdigest() + ".passed") if stamps else None
    key = key_of(source, options) if stamp else None
    if key and stamp.is_file() and stamp.read_text(encoding="utf-8") == key:
        return None
    tidy = subprocess.run(["clang-tidy", "--quiet", *config, source, "--", *options], cwd=ROOT, stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, text=True, errors="replace", check=False)
    text = tidy.stdout.replace(f"{ROOT}/", "")
    starts = [match.start() for match in FINDING.finditer(text)]
    findings = [text[begin:end] for begin, end in zip(starts, starts[1:] + [len(text)])]
    if tidy.returncode != 0 and not findings:
        findings = [f"{source}: clang-tidy exits with {tidy.returncode}\n{text}{tidy.stderr}"]
    if not findings and key:
        stamp.write_text(key, encoding="utf-8")
    return findings


def check_all(wanted, stamps, jobs):
    """(passed, failed)"""
    passed = failed = unchanged = 0
    printed, begun = set(), time.monotonic()
    told = begun
    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        running = [pool.submit(check, source, options, stamps) for source, options in wanted]
        for done in concurrent.futures.as_completed(running):
            findings = done.result()
            unchanged += findings is None
            passed += not findings
            failed += bool(findings)
            # A header's finding comes with each source that includes it.
            print("".join(finding for finding in findings or [] if finding not in printed), end="", flush=True)
            printed.update(findings or [])
            if time.monotonic() - told > PROGRESS:
                told = time.monotonic()
                print(f"  {passed + failed} of {len(wanted)} sources, {told - begun:.0f} s", flush=True)
    print(f"{unchanged} of {len(wanted)} sources unchanged since they passed")
    return passed, failed


# (source, the check that finds its fault, or None)
CASES = [
    ("int twice(int value) { return 2 * value; }\n", None),
    ("int first(const int* values) { if (!values) return *values; return 0; }\n",
     "clang-analyzer-core.NullDereference"),
    ("#include <stdlib.h>\nvoid lose(int size) { void* text = malloc(4); if (text && size) return; free(text); }\n",
     "clang-analyzer-unix.Malloc"),
    ("#include <string>\nvoid eat(std::string); std::size_t f(std::string text) {\n"
     "  eat(std::move(text)); return text.size(); }\n", "bugprone-use-after-move"),
    ("#include <cstring>\nstruct R { char name[4]; }; void f(R* r) { std::memset(r, 0, sizeof(r)); }\n",
     "bugprone-sizeof-expression"),
    ("int f(int value) { return value == 1 && value == 1; }\n", "misc-redundant-expression"),
    ("#include <ctime>\nint f(std::time_t at) { return std::localtime(&at)->tm_hour; }\n", "concurrency-mt-unsafe"),
    ("#include <cstdlib>\nint f(const char* text) { return std::atoi(text); }\n", "cert-err34-c"),
    ("#include <string>\n#include <vector>\nstd::size_t f(const std::vector<std::string>& v) {\n"
     "  std::size_t n = 0;\n  for (const auto s : v) n += s.size();\n  return n; }\n", "performance-for-range-copy"),
    ("int f(", "clang-diagnostic-error"),
]


def selftest():
    """(passed, failed)"""
    results = []

    def expect(what, good):
        results.append(good)
        if not good:
            print(what)

    config = [f"--config-file={ROOT}/.clang-tidy"]
    with tempfile.TemporaryDirectory() as folder:
        source, header = Path(folder) / "a.cpp", Path(folder) / "a.h"
        for text, expected in CASES:
            source.write_text(text, encoding="utf-8")
            findings = check(source, ["-std=c++20"], None, config)
            found = [re.search(r"\[([\w.,-]+?)(?:,-warnings-as-errors)?\]$", finding, re.M)[1] for finding in findings]
            expect(f"{text!r}: expected {expected}, found {found}",
                   not found if expected is None else expected in found)

        for name, good in (("kLimit", True), ("limit", False)):
            source.write_text(f"int f() {{ static constexpr int {name} = 3; return {name}; }}\n", encoding="utf-8")
            findings = check(source, ["-std=c++20"], None, [f"--config-file={ROOT}/src/.clang-tidy"])
            expect(f"a constant of src/ named {name}: {findings}", (findings == []) == good)

        def again(source_text, header_text, options):
            source.write_text(source_text, encoding="utf-8")
            header.write_text(header_text, encoding="utf-8")
            return check(source, ["-std=c++20", *options], Path(folder), config)

        use, good = '#include "a.h"\n', "#define A 1\n"
        bad = "#include <cstdlib>\ninline int f() { return std::atoi(\"1\"); }\n"
        silent = bad.replace("\ninline", "\n// NOLINTNEXTLINE(cert-err34-c)\ninline")
        expect("the first run must not be skipped", again(use, good, []) == [])
        expect("nothing changed", again(use, good, []) is None)
        expect("another option", again(use, good, ["-DB"]) == [])
        expect("a finding in a header", again(use, bad, []) not in (None, []))
        expect("a failure is not remembered", again(use, bad, []) not in (None, []))
        expect("a comment switches the check off", again(use, silent, []) == [])
        expect("the comment is gone", again(use, bad, []) not in (None, []))
    command = "-Ia -I b -isystem /c -DD=1 -std=c++20 -O2 -g -Wall -Wno-psabi -fno-rtti -fonly-g++ -o a.o -c a.cpp"
    expect("options", meaning(command.split(), "/x") ==
           ["-I", "/x/a", "-I", "/x/b", "-isystem", "/c", "-DD=1", "-std=c++20", "-fno-rtti"])
    return results.count(True), results.count(False)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--selftest", action="store_true")
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("--all", action="store_true", help="unchanged sources too")
    parser.add_argument("build", nargs="?", type=Path)
    parser.add_argument("file", nargs="*", type=Path, help="only these")
    options = parser.parse_args()
    if options.selftest:
        passed, failed = selftest()
    elif options.build is None:
        parser.error("which build folder?")
    else:
        build, files = options.build.resolve(), [file.resolve() for file in options.file]
        stamps = build / "tidy"
        stamps.mkdir(exist_ok=True)
        wanted = [(source, flags) for source, flags in sources(build) if not files or source in files]
        passed, failed = check_all(wanted, None if options.all else stamps, options.jobs)
    print(f"{passed} passed, {failed} failed")
    return 1 if failed or not passed else 0


if __name__ == "__main__":
    sys.exit(main())
