#!/usr/bin/env python3
"""Checks what the documents (*.md) refer to.

usage: tests/check_docs.py BUILD | --selftest

Links and pictures lead to files of the project and to headings that exist; paths in code name files or folders of the
project; the targets and variables of `make` commands are the Makefile's, the names after STAGE= are stages of
tests/run.py; options are those of the program they are given to (BUILD holds the built ones). Code is what stands in
backticks and in blocks marked sh. A path may be the end of one, `<word>` and `*` stand for anything in it; paths under
build/ and outside of the project are not looked at.
Prints each fault and ends with "N passed, N failed"; one document is one test.
--selftest checks the check: made-up projects, each with one fault or none.
"""

import fnmatch
import functools
import re
import shlex
import subprocess
import sys
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
FENCE = re.compile(r"^(?P<fence>`{3,}|~{3,})[ ]*(?P<language>\w*)[^\n]*\n(?P<text>.*?)^(?P=fence)[ ]*$", re.M | re.S)
SPAN = re.compile(r"(?<!`)(`+)(?!`)(?P<code>.+?)(?<!`)\1(?!`)", re.S)
LINK = re.compile(r"!?\[(?:[^\[\]]|!\[[^\]]*\]\([^)]*\))*\]\(\s*(?P<inline>[^()\s]+)(?:\s+\"[^\"]*\")?\s*\)|"
                  r"^\[[^\]]+\]:\s*(?P<reference>\S+)", re.M)
PICTURE = re.compile(r"!\[[^\]]*\]\(\s*(?P<inline>[^()\s]+)[^()]*\)")
HEADING = re.compile(r"^#{1,6}[ \t]+(?P<title>.+?)[ \t]*#*$", re.M)
SUFFIX = r"\.(?:c|cpp|h|def|map|py|sh|bash|mjs|ts|tsx|json|md|cmake)"
PATH = re.compile(rf"[\w.<*-]+[\w.<>*/-]*{SUFFIX}|(?:[\w.<>*-]+/)+[\w.<>*-]*")
# How a program's help shows its options.
BUILT = {"dtv-host": [["--help"]], "dtv-multiplexes": [["--help"]], "conformance": [["--help"]],
         "dtvctl": [["--help"]] + [[command, "--help"] for command in "get set watch list describe functions trace tv help".split()]}


def without(pattern, text):
    """The text with each match blanked out; lines keep their numbers."""
    return pattern.sub(lambda match: re.sub(r"[^\n]", " ", match[0]), text)


def anchors(text):
    """The anchors of a document's headings, as GitHub makes them."""
    found = []
    for heading in HEADING.finditer(without(FENCE, text)):
        title = re.sub(r"!?\[([^\]]*)\]\([^)]*\)", r"\1", heading["title"]).replace("`", "")
        anchor = re.sub(r"[^\w\- ]", "", title.lower()).replace(" ", "-")
        found.append(anchor if anchor not in found else f"{anchor}-{found.count(anchor)}")
    return found


def code_lines(text):
    """(line number, code): each line of the blocks marked sh, each span in backticks."""
    for block in FENCE.finditer(text):
        if block["language"] in ("sh", "bash", "shell"):
            first = text.count("\n", 0, block.start("text")) + 1
            yield from enumerate(block["text"].splitlines(), first)
    for span in SPAN.finditer(without(FENCE, text)):
        yield text.count("\n", 0, span.start()) + 1, " ".join(span["code"].split())


def words_of(code):
    try:
        return shlex.split(code, comments=True)
    except ValueError:  # no command line
        return code.split()


def link_fault(project, document, target):
    if re.match(r"[a-z][a-z0-9+.-]*:", target):
        return None
    name, _, anchor = target.partition("#")
    path = (project["root"] / document).parent / name if name else project["root"] / document
    try:
        path = path.resolve().relative_to(project["root"]).as_posix()
    except ValueError:
        return f"{target} leads out of the project"
    if path not in project["files"] and path not in project["folders"]:
        return f"{target}: there is no {path}"
    if anchor and anchor not in anchors((project["root"] / path).read_text(encoding="utf-8")):
        return f"{target}: {path} has no such heading"
    return None


def path_fault(project, word):
    word = word.removeprefix("./").rstrip(",;:")
    if not PATH.fullmatch(word) or word.startswith("build/") or re.fullmatch(r"[\d.*/-]+", word):
        return None
    pattern = re.sub(r"<\w+>", "*", word)
    names = project["folders"] if word.endswith("/") else project["files"] | project["folders"]
    if "/" in word and not word.endswith("/") and not re.search(SUFFIX + "$", word):
        if word.split("/")[0] not in {Path(folder).name for folder in project["folders"]}:
            return None  # a fraction, a media type
    pattern = pattern.rstrip("/")
    if any(fnmatch.fnmatchcase(name, pattern) or fnmatch.fnmatchcase(name, "*/" + pattern) for name in names):
        return None
    return f"{word}: the project has no such {'folder' if word.endswith('/') else 'file'}"


def make_faults(project, words):
    for word in words:
        name, assigned, value = word.partition("=")
        if not assigned:
            if not re.search(rf"^{re.escape(word)}:", project["makefile"], re.M):
                yield f"make {word}: the Makefile has no such target"
        elif f"$({name})" not in project["makefile"]:
            yield f"make {word}: the Makefile knows no {name}"
        elif name == "STAGE":
            yield from (f"STAGE={stage}: tests/run.py has no such stage" for stage in value.split()
                        if stage not in project["stages"])
        elif name == "ARGS":
            yield from option_faults(project, "dtv-host", value.split())


def option_faults(project, program, words):
    """program: whose options they are; None when the text does not say, any program's do then."""
    options = [word.partition("=")[0] for word in words if re.match(r"--[a-z]", word)]
    if not options:
        return
    texts = [project["help"](program)] if program else [project["help"](name) for name in project["programs"]]
    for option in options:
        if not any(re.search(rf"(?<![\w-]){option}(?![\w-])", text) for text in texts):
            yield f"{option}: {program or 'no program of the project'} {'does not know it' if program else 'knows it'}"


def code_faults(project, code):
    words = words_of(code)
    yield from filter(None, (path_fault(project, word) for word in words))
    commands = [word for word in words if not re.match(r"[A-Z_]+=", word)]  # without VARIABLE=value before them
    if commands[:1] == ["python3"]:
        commands = commands[1:]
    # A built program is known by its name, a script by its path: several may have one name.
    program = commands[0] if commands else ""
    if program not in project["programs"]:
        program = program.rpartition("/")[2]
    if program == "make" and len(words) > 1:
        yield from make_faults(project, words[words.index("make") + 1:])
    elif program in project["programs"]:
        yield from option_faults(project, program, commands[1:])
    elif program.startswith("--"):
        yield from option_faults(project, None, commands)


def check_document(project, document):
    """The faults of one document, as texts."""
    text = (project["root"] / document).read_text(encoding="utf-8")
    prose = without(SPAN, without(FENCE, text))
    faults = []
    for pattern in (LINK, PICTURE):  # a picture may be inside a link
        for link in pattern.finditer(prose):
            fault = link_fault(project, document, link["inline"] or link["reference"])
            faults.append((prose.count("\n", 0, link.start()) + 1, fault))
    for number, line in enumerate(text.splitlines(), 1):
        if re.match(r"(<{7}|>{7}) ", line):
            faults.append((number, "a merge was left open here"))
    for line, code in code_lines(text):
        faults += [(line, fault) for fault in code_faults(project, code)]
    return [f"{document}:{line}: {fault}" for line, fault in sorted({f for f in faults if f[1]})]


def project_of(root, files, stages, programs, help_text):
    files = set(files)
    folders = {parent.as_posix() for name in files for parent in Path(name).parents if parent != Path(".")}
    return {"root": root.resolve(), "files": files, "folders": folders, "stages": stages, "programs": programs,
            "help": help_text, "makefile": (root / "Makefile").read_text(encoding="utf-8")}


def output_of(*command):
    return subprocess.run(command, cwd=ROOT, check=True, stdout=subprocess.PIPE, text=True).stdout


def this_project(build):
    # With the files that are not added yet, without ignored ones.
    listed = output_of("git", "ls-files", "-z", "--cached", "--others", "--exclude-standard").split("\0")
    files = [name for name in listed if name and (ROOT / name).is_file()]
    scripts = {name: name for name in files if name.startswith(("tests/", "bench/")) and name.endswith(".py")}

    @functools.cache
    def help_text(program):
        if program in BUILT:
            return "".join(output_of(build / "bin" / program, *words) for words in BUILT[program])
        return (ROOT / scripts[program]).read_text(encoding="utf-8")

    stages = output_of(sys.executable, "tests/run.py", "--list").splitlines()
    return project_of(ROOT, files, stages, [*BUILT, *scripts], help_text)


# What the self-test's project holds, and (a document's text, the fault it has, or None).
BASE = {"Makefile": "run: build\n\ttool $(ARGS)\ntest:\n\trun $(STAGE)\n",
        "docs/a.md": "# One `two`: three\n\n## Four\n\n# Four\n", "docs/a.png": "",
        "src/tool.py": "", "src/part/tool.py": "", "src/part/entry.cpp": "", "src/part/items/media.cpp": ""}
CASES = [
    ("[a](docs/a.md), [b](docs/a.md#one-two-three) ![c](docs/a.png) [d](https://a.b/c) [e](docs)", None),
    ("<<<<<<< HEAD\none\n=======\ntwo\n", "a merge was left open"),
    ("[a](#here)\n## Here\n", None), ("[a](##here)\n## Here\n", "no such heading"),
    ("[a](docs/b.md)", "no docs/b.md"), ("[a]( docs/b.md \"b\" )", "no docs/b.md"),
    ("![a](docs/b.png)", "no docs/b.png"),
    ("[![a](docs/b.png)](docs/a.md)", "no docs/b.png"), ("[![a](docs/a.png)](docs/b.md)", "no docs/b.md"),
    ("[a]: docs/b.md", "no docs/b.md"), ("[a](docs/a.md#four-1)", None), ("[a](docs/a.md#four-2)", "no such heading"),
    ("[a](docs/a.md#five)", "no such heading"), ("[a](#here)", "no such heading"),
    ("[a](../b.md)", "out of the project"),
    ("```\n# Here\n```\n[a](#here)", "no such heading"), ("`[a](docs/b.md)`\n```\n[a](docs/b.md)\n```\n", None),
    ("`src/part/entry.cpp`, `entry.cpp`, `part/entry.cpp`, `src/part/`, `src/part`", None),
    ("`items/<area>.cpp`, `items/*.cpp`, `*/entry.cpp`", None),
    ("`src/part/entri.cpp`", "no such file"), ("`entri.cpp`", "no such file"), ("`src/parts/`", "no such folder"),
    ("`src/parts`", "no such file"), ("`srcs/entry.cpp`", "no such file"), ("`<area>/none.cpp`", "no such file"),
    ("`source docs/a.bash`", "no such file"), ("```sh\ntool docs/b.md # docs/c.md\n```", "docs/b.md"),
    ("`/src/none.cpp` `text/html` `build/bin/tool` `~/.a/b` `1/2` `a.b` `http://a/b.md`", None),
    ("`make run`, `make`, `make test STAGE=unit`, `make run ARGS=\"--listen 1\"` make it", None),
    ("`make walk`", "no such target"), ("```sh\nmake walk   # why\n```", "no such target"),
    ("`make run WHO=1`", "knows no WHO"),
    ("`make test STAGE=unity`", "no such stage"), ("`make test STAGE=\"unit unity\"`", "STAGE=unity"),
    ("`make run ARGS=\"--liste 1\"`", "--liste: dtv-host"),
    ("`build/bin/dtv-host --listen 1`, `--listen`, `--count 2`", None),
    ("`dtv-host --count`", "--count: dtv-host"),
    ("```sh\nA=1 build/bin/dtvctl watch --listen\n```", "--listen: dtvctl"),
    ("`python3 tests/tool.py --odd`", "no such file"), ("`python3 src/tool.py --first`", None),
    ("`python3 src/tool.py --second`", "--second: src/tool.py"), ("`python3 src/part/tool.py --second`", None), ("`--odd`", "no program"), ("`curl --odd`", None),
]


def selftest():
    """(passed, failed)"""
    results = []
    helps = {"dtv-host": "--listen WHERE", "dtvctl": "--count N, --counter", "src/tool.py": "--first",
             "src/part/tool.py": "--second"}
    for text, expected in CASES:
        with tempfile.TemporaryDirectory() as folder:
            root = Path(folder)
            for name, content in {**BASE, "README.md": text}.items():
                (root / name).parent.mkdir(parents=True, exist_ok=True)
                (root / name).write_text(content, encoding="utf-8")
            project = project_of(root, [*BASE, "README.md"], ["unit"], [*helps], helps.get)
            faults = check_document(project, "README.md")
        results.append(not faults if expected is None else len(faults) == 1 and expected in faults[0])
        if not results[-1]:
            print(f"{text!r}: expected {expected or 'no fault'}, found {faults}")
    return results.count(True), results.count(False)


def main():
    if sys.argv[1:] == ["--selftest"]:
        passed, failed = selftest()
    elif len(sys.argv) != 2 or sys.argv[1].startswith("-"):
        print(__doc__)
        return 2
    else:
        project = this_project(Path(sys.argv[1]).resolve())
        faults = [check_document(project, name) for name in sorted(project["files"]) if name.endswith(".md")]
        print("".join(f"{fault}\n" for of_document in faults for fault in of_document), end="")
        passed, failed = sum(not f for f in faults), sum(bool(f) for f in faults)
    print(f"{passed} passed, {failed} failed")
    return 1 if failed or not passed else 0


if __name__ == "__main__":
    sys.exit(main())
