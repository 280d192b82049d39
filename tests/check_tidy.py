#!/usr/bin/env python3
"""Runs clang-tidy over every C and C++ source of the project, with the checks of .clang-tidy.

usage: tests/check_tidy.py BUILD [--jobs N] [--all | --changed] [FILE...] | --selftest

BUILD is a configured build folder; its compile_commands.json says where each source's headers are and what is defined.
A source that has passed, in any checkout, passes again without clang-tidy as long as the source, all that it includes,
its options, the checks and the version of clang-tidy are the same; passes are remembered beside ccache's cache. --all
runs clang-tidy over these too, --changed only over what differs from the main branch: a source, or one source for a
header; it leaves out what has changed otherwise, for example by a header. Prints each finding once, and ends with
"N passed, N failed"; one source is one test. A finding is fixed; where it is wrong, NOLINTNEXTLINE(check) and the
reason stand above the line.
--selftest checks the check: made-up sources, each with one fault or none, and a made-up project.
"""

import argparse
import concurrent.futures
import contextlib
import functools
import hashlib
import json
import os
import re
import shlex
import shutil
import subprocess
import sys
import tempfile
import time
import zlib
from pathlib import Path
from typing import NamedTuple

ROOT = Path(__file__).resolve().parent.parent
# The compiler options that change what a source means. Warnings are the compilers' task, and clang-tidy refuses options
# that only another compiler knows.
MEANING = re.compile(r"-[DU]|-std=|-fno-exceptions|-fno-rtti|-pthread")
FOLDERS = ("-I", "-isystem", "-iquote", "-include")
FINDING = re.compile(r"^(?P<place>\S+:\d+:\d+): (?:error|warning): ", re.M)
PROGRESS = 15  # seconds between two lines about it
KEPT_FILES, KEPT_DAYS = 10_000, 60  # of passes


def output_of(*command):
    return subprocess.run(command, cwd=ROOT, check=True, stdout=subprocess.PIPE, text=True).stdout


def listed(*patterns):
    """The project's files, with those that are not added yet."""
    return output_of("git", "ls-files", "--cached", "--others", "--exclude-standard", "--", *patterns).splitlines()


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
    """(source, options) of every source. One that this build does not compile sees all folders."""
    known = database(build)
    pairs = {pair for options in known.values() for pair in zip(options, options[1:]) if pair[0] in FOLDERS}
    folders = [word for pair in sorted(pairs) for word in pair]
    for name in listed("*.c", "*.cpp"):
        source = ROOT / name
        if source.is_file():
            yield source, known.get(source) or [*folders, "-std=c++20" if source.suffix == ".cpp" else "-std=c11"]


def digest(*parts):
    whole = hashlib.sha256()
    for part in parts:
        text = part if isinstance(part, bytes) else str(part).encode()
        whole.update(b"%d:" % len(text) + text)
    return whole.hexdigest()


@functools.lru_cache(None)
def content_digest(path, _changed, _size):
    return digest(Path(path).read_bytes())


def digest_of(path):
    """The hash of the file's content; of nothing where the file is gone."""
    try:
        status = os.stat(path)
        return content_digest(path, status.st_mtime_ns, status.st_size)
    except OSError:
        return ""


def portable(text):
    """The path within the project, which is the same in every checkout."""
    return str(text).replace(f"{ROOT}/", "").replace(str(ROOT), ".")


@functools.cache
def rules():
    """What a result depends on besides the source: the checks and the version of clang-tidy."""
    version = re.search(r"version \S+", output_of("clang-tidy", "--version"))[0]
    return [version, *((name, digest_of(ROOT / name)) for name in [portable(__file__), *listed("*.clang-tidy")])]


@functools.cache
def headers_by_name():
    """File name -> the project's headers with that name: one more could be found before the one that was included."""
    found = {}
    for name in listed("*.h", "*.def"):
        found.setdefault(Path(name).name, []).append(name)
    return found


def includes(source, options):
    """All files that the source includes; None for a source that the preprocessor refuses."""
    made = subprocess.run(["clang", "-M", *options, source], cwd=ROOT, stdout=subprocess.PIPE,
                          stderr=subprocess.DEVNULL, text=True, check=False)
    if made.returncode != 0:
        return None
    names = made.stdout.partition(":")[2].replace("\\\n", " ").replace("\\ ", "\0").split()
    return sorted({portable(os.path.realpath(ROOT / name.replace("\0", " "))) for name in names})


class Passes(NamedTuple):
    """The passes, in a folder that all checkouts share.

    A file named by a source, its content, its options and the rules lists what that source included. An empty file named
    by the content of all these as well says that it passed."""
    folder: Path

    def list_file(self, source, options):
        return self.folder / (digest(portable(source), digest_of(source), portable(options), rules()) + ".includes")

    def pass_file(self, list_file, names):
        others = [headers_by_name().get(Path(name).name, []) for name in names]
        return self.folder / (digest(list_file.name, names, others, [digest_of(ROOT / name) for name in names]) + ".pass")

    def has(self, source, options):
        listing = self.list_file(source, options)
        if not listing.is_file():
            return False
        passed = self.pass_file(listing, json.loads(zlib.decompress(listing.read_bytes())))
        if not passed.is_file():
            return False
        for file in (listing, passed):
            os.utime(file)  # the oldest are forgotten first
        return True

    def begin(self, source, options):
        """The argument for keep() once the source has passed; None when its pass cannot be remembered."""
        names = includes(source, options)
        if names is None:
            return None
        listing = self.list_file(source, options)
        return listing, names, self.pass_file(listing, names)

    def keep(self, source, options, begun):
        """Remembers a pass, unless a file was changed while clang-tidy ran."""
        listing, names, passed = begun
        if (self.list_file(source, options), self.pass_file(listing, names)) != (listing, passed):
            return
        for file, content in ((listing, zlib.compress(json.dumps(names).encode())), (passed, b"")):
            with tempfile.NamedTemporaryFile(dir=self.folder, delete=False) as part:
                part.write(content)
            os.replace(part.name, file)

    def forget_old(self):
        used = {}
        for file in self.folder.iterdir():
            with contextlib.suppress(FileNotFoundError):  # another run has forgotten it
                used[file] = file.stat().st_mtime
        for place, file in enumerate(sorted(used, key=used.get, reverse=True)):
            if place >= KEPT_FILES or time.time() - used[file] > KEPT_DAYS * 86400:
                file.unlink(missing_ok=True)


def passes_of_all_checkouts():
    folder = Path(output_of("ccache", "--get-config", "cache_dir").strip()).parent / "dtv_tidy"
    folder.mkdir(parents=True, exist_ok=True)
    return Passes(folder)


def test_checks(source):
    """The options that apply the checks of tests/ to a test outside tests/, such as a room's."""
    if not source.endswith("_test.cpp") or source.startswith("tests/"):
        return []
    checks = re.search(r"^Checks: '(.*)'", (ROOT / "tests/.clang-tidy").read_text(encoding="utf-8"), re.M)
    return [f"--checks={checks[1]}"]


def check(source, options, passes, config=()):
    """The findings in one source, as texts that each begin with their place."""
    begun = passes.begin(source, options) if passes else None
    tidy = subprocess.run(["clang-tidy", "--quiet", *config, *test_checks(str(source)), source, "--", *options], cwd=ROOT,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, errors="replace", check=False)
    text = portable(tidy.stdout)
    starts = [match.start() for match in FINDING.finditer(text)]
    findings = [text[begin:end] for begin, end in zip(starts, starts[1:] + [len(text)])]
    if tidy.returncode != 0 and not findings:
        findings = [f"{source}: clang-tidy exits with {tidy.returncode}\n{text}{tidy.stderr}"]
    if not findings and begun:
        passes.keep(source, options, begun)
    return findings


def changed_files(root=ROOT):
    """The files that differ from where this branch left its upstream or main, or else from the last commit."""
    def git(*words):
        made = subprocess.run(["git", *words], cwd=root, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True,
                              check=False)
        return made.stdout.splitlines() if made.returncode == 0 else []

    bases = (git("merge-base", "HEAD", branch) for branch in ("@{upstream}", "origin/HEAD", "main"))
    base = next((found[0] for found in bases if found), "HEAD")
    return {*git("diff", "--name-only", base), *git("ls-files", "--others", "--exclude-standard")}


def touched(wanted, changed):
    """The sources that have changed, and for each changed header one that includes it, best the one named alike."""
    chosen = {source for source, _ in wanted if portable(source) in changed}
    for header in map(Path, changed):
        if header.suffix not in (".h", ".def"):
            continue
        users = [source for source, _ in wanted
                 if re.search(rf'#include ["<](?:[^">]*/)?{re.escape(header.name)}[">]', source.read_text(encoding="utf-8"))]
        chosen.update(sorted(users, key=lambda source, stem=header.stem: source.stem != stem)[:1])
    return chosen


def check_all(wanted, passes, jobs, only_changed):
    """(passed, failed, left out)"""
    unknown = [each for each in wanted if not (passes and passes.has(*each))]
    print(f"{len(wanted) - len(unknown)} of {len(wanted)} sources unchanged since they passed", flush=True)
    chosen = touched(wanted, changed_files()) if only_changed else {source for source, _ in wanted}
    checked = [each for each in unknown if each[0] in chosen]
    failed, printed, begun = 0, set(), time.monotonic()
    told = begun
    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        running = [pool.submit(check, source, options, passes) for source, options in checked]
        for ended, done in enumerate(concurrent.futures.as_completed(running), 1):
            findings = done.result()
            failed += bool(findings)
            # A header's finding comes with each source that includes it.
            print("".join(finding for finding in findings if finding not in printed), end="", flush=True)
            printed.update(findings)
            if time.monotonic() - told > PROGRESS:
                told = time.monotonic()
                print(f"  {ended} of {len(checked)} sources, {told - begun:.0f} s", flush=True)
    if passes:
        passes.forget_old()
    left_out = len(unknown) - len(checked)
    return len(wanted) - left_out - failed, failed, left_out


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


# A made-up project's files. Its checks are few, so that they are quick.
PROJECT = {".clang-tidy": "Checks: '-*,cert-err34-c'\nWarningsAsErrors: '*'\nHeaderFilterRegex: '.*'\n", ".gitignore": "build\n",
           "a.cpp": '#include "a.h"\n#include "b.h"\n', "b.cpp": '#include "b.h"\n', "c.cpp": "int c;\n",
           "inc/a.h": "#define A 1\n", "inc/b.h": "#define B 1\n"}
FAULT = "#include <cstdlib>\ninline int f() { return std::atoi(\"1\"); }\n"
SILENT = FAULT.replace("\ninline", "\n// NOLINTNEXTLINE(cert-err34-c)\ninline")


def make_project(root, options=""):
    for name, text in PROJECT.items():
        (root / name).parent.mkdir(parents=True, exist_ok=True)
        (root / name).write_text(text, encoding="utf-8")
    (root / "tests").mkdir()
    (root / "tests/check_tidy.py").write_bytes(Path(__file__).read_bytes())
    set_options(root, options)
    for words in (["init", "-q", "-b", "main"], ["add", "-A"],
                  ["-c", "user.name=a", "-c", "user.email=a@b", "commit", "-qm", "all"]):
        subprocess.run(["git", *words], cwd=root, check=True)


def set_options(root, options=""):
    (root / "build").mkdir(exist_ok=True)
    entries = [{"directory": str(root / "build"), "file": str(root / name), "command": f"c++ -I{root}/early -I{root}/inc {options} -c {name}"}
               for name in PROJECT if name.endswith(".cpp")]
    (root / "build/compile_commands.json").write_text(json.dumps(entries), encoding="utf-8")


def check_project(expect, folder):
    root = folder / "one"
    make_project(root)
    one_left = "1 left out: this branch does not change them\n"
    environment = {**os.environ, "CCACHE_DIR": str(folder / "ccache"), "PATH": f"{folder / 'bin'}:{os.environ['PATH']}"}

    def runs(what, unchanged, end, *options, at=root):
        """end: what it ends with, of the sources that are no longer known to pass."""
        made = subprocess.run([sys.executable, at / "tests/check_tidy.py", "build", *options], cwd=at, env=environment,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
        expect(f"{what}: {made.stdout}", f"{unchanged} of 3 sources unchanged" in made.stdout and
               made.stdout.endswith(f"\n{end}\n") and (made.returncode == 0) == end.endswith(" 0 failed"))

    def write(name, text, at=root):
        (at / name).parent.mkdir(exist_ok=True)
        (at / name).write_text(text, encoding="utf-8")

    runs("the first run", 0, "3 passed, 0 failed")
    runs("nothing changed", 3, "3 passed, 0 failed")
    runs("all are wanted", 0, "3 passed, 0 failed", "--all")
    make_project(folder / "two")
    runs("another checkout", 3, "3 passed, 0 failed", at=folder / "two")
    write("inc/a.h", "#define A 2\n")
    runs("another header", 2, "3 passed, 0 failed")
    write("inc/a.h", PROJECT["inc/a.h"])
    runs("the header as before", 3, "3 passed, 0 failed")
    set_options(root, "-DD")
    runs("another option", 0, "3 passed, 0 failed")
    set_options(root)
    write(".clang-tidy", PROJECT[".clang-tidy"].replace("c'", "c,misc-redundant-expression'"))
    runs("other checks", 0, "3 passed, 0 failed")
    write(".clang-tidy", PROJECT[".clang-tidy"])
    write("early/b.h", FAULT)
    runs("a header that is found first", 1, "1 passed, 2 failed")
    runs("a finding is not remembered", 1, "1 passed, 2 failed")
    write("early/b.h", SILENT)
    runs("a comment switches the check off", 1, "3 passed, 0 failed")
    write("early/b.h", FAULT)
    runs("the comment is gone", 1, "1 passed, 2 failed")
    runs("one source for a changed header", 1, f"{one_left}1 passed, 1 failed", "--changed")
    (root / "early/b.h").unlink()
    write("inc/b.h", "#define B 2\n")
    write("d.txt", "")
    runs("the one that is named alike", 1, f"{one_left}2 passed, 0 failed", "--changed")
    write("c.cpp", FAULT)
    runs("a changed source", 1, f"{one_left}1 passed, 1 failed", "--changed")
    write("bin/clang-tidy", f"#!/bin/sh\n[ \"$1\" = --version ] && echo version 0 || exec {shutil.which('clang-tidy')} \"$@\"\n",
          at=folder)
    (folder / "bin/clang-tidy").chmod(0o755)
    write("c.cpp", PROJECT["c.cpp"])
    runs("another clang-tidy", 0, "3 passed, 0 failed")


def selftest():
    """(passed, failed)"""
    results = []

    def expect(what, good):
        results.append(good)
        if not good:
            print(what)

    config = [f"--config-file={ROOT}/.clang-tidy"]
    with tempfile.TemporaryDirectory() as folder:
        source = Path(folder) / "a.cpp"
        for text, expected in CASES:
            source.write_text(text, encoding="utf-8")
            findings = check(source, ["-std=c++20"], None, config)
            found = [re.search(r"\[([\w.,-]+?)(?:,-warnings-as-errors)?\]$", finding, re.M)[1] for finding in findings]
            expect(f"{text!r}: expected {expected}, found {found}",
                   not found if expected is None else expected in found)

        for part in ("src", "host", "cli", "sandbox", "base"):
            (Path(folder) / part).mkdir()
            for config_file in (".clang-tidy", f"{part}/.clang-tidy"):
                shutil.copy(ROOT / config_file, Path(folder) / config_file)
            for name, good in (("kLimit", True), ("limit", False)):
                source = Path(folder) / part / "a.cpp"
                source.write_text(f"int f() {{ static constexpr int {name} = 3; return {name}; }}\n", encoding="utf-8")
                findings = check(source, ["-std=c++20"], None)
                expect(f"a constant of {part}/ named {name}: {findings}", (findings == []) == good)

        check_project(expect, Path(folder))
    command = "-Ia -I b -isystem /c -DD=1 -std=c++20 -O2 -g -Wall -Wno-psabi -fno-rtti -fonly-g++ -o a.o -c a.cpp"
    expect("options", meaning(command.split(), "/x") ==
           ["-I", "/x/a", "-I", "/x/b", "-isystem", "/c", "-DD=1", "-std=c++20", "-fno-rtti"])
    return results.count(True), results.count(False)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--selftest", action="store_true")
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    which = parser.add_mutually_exclusive_group()
    which.add_argument("--all", action="store_true", help="also those that passed before and have not changed")
    which.add_argument("--changed", action="store_true", help="of the others, those that this branch changes")
    parser.add_argument("build", nargs="?", type=Path)
    parser.add_argument("file", nargs="*", type=Path, help="only these")
    options = parser.parse_args()
    left_out = 0
    if options.selftest:
        passed, failed = selftest()
    elif options.build is None:
        parser.error("which build folder?")
    else:
        files = [file.resolve() for file in options.file]
        wanted = [each for each in sources(options.build.resolve()) if not files or each[0] in files]
        passes = None if options.all else passes_of_all_checkouts()
        passed, failed, left_out = check_all(wanted, passes, options.jobs, options.changed)
    if left_out:
        print(f"{left_out} left out: this branch does not change them")
    print(f"{passed} passed, {failed} failed")
    return 1 if failed or not passed + left_out else 0


if __name__ == "__main__":
    sys.exit(main())
