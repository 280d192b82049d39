#!/usr/bin/env python3
"""Measures what the plugin takes of a set - size, memory, stack, instructions - and holds it against docs/budgets.md.

    bench/budgets.py [--build build] [--arm build-arm] [--check | --update]
    bench/budgets.py --selftest

Prints each figure beside the table's. --check fails when one is more than a tenth above the table (of allocations: one
more), when the table has none for it, or has one that is not measured; it ends with "N passed, N failed", one figure of
one machine is one test.
--update writes what was measured into the table. --selftest checks the check.
"""
import argparse
import json
import os
import pathlib
import re
import statistics
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
TABLE = ROOT / "docs" / "budgets.md"
HEADER = ("figure", "x86-64", "armhf")
X86, ARM = HEADER[1:]
NONE = "–"  # in the table: not measured on that machine
START_ROUNDS = 21
LIMIT = 60  # seconds for one program
DATA_SECTIONS = {".data", ".bss", ".tdata", ".tbss"}
# The C library chooses its text and memory functions by the processor. With these features off it takes those that
# every x86-64 has, so that the count does not depend on the processor; PROCESSOR_FUNCTIONS finds others.
FEATURES = ("AVX", "AVX2", "AVX512F", "AVX512BW", "AVX512VL", "AVX_Fast_Unaligned_Load", "BMI1", "BMI2", "ERMS", "FMA",
            "FMA4", "FSRM", "Fast_Copy_Backward", "Fast_Unaligned_Copy", "Fast_Unaligned_Load", "LZCNT", "MOVBE", "RTM",
            "SSE4_1", "SSE4_2", "SSSE3", "Slow_BSF")
PROCESSOR_FUNCTIONS = re.compile(r"^c?fn=\(\d+\) (\w+_(?:avx|evex|erms|ssse3|sse4|fma|bmi)\w*)", re.M)
ENVIRONMENT = {"PATH": os.environ.get("PATH", os.defpath), "LC_ALL": "C",
               "LD_BIND_NOW": "1",  # a look-up at the first call would count, and its stack differs by processor
               "GLIBC_TUNABLES": "glibc.cpu.hwcaps=" + ",".join(f"-{feature}" for feature in FEATURES)}


class Failed(Exception):
    """A measurement could not be carried out; the text says which and why."""


def output(words):
    words = [str(word) for word in words]
    try:
        done = subprocess.run(words, capture_output=True, text=True, env=ENVIRONMENT, timeout=LIMIT, check=False)
    except FileNotFoundError as missing:
        raise Failed(f"{words[0]} is missing; tools/install_packages.sh test installs it") from missing
    if done.returncode < 0:
        raise Failed(f"{' '.join(words)} died of signal {-done.returncode}; was its stack too small?")
    if done.returncode != 0:
        raise Failed(f"{' '.join(words)} failed: {done.stderr.strip()}")
    return done.stdout


# --- Reading what the tools print ---

def count_relocations(readelf):
    """Relocations of `readelf -rW`; of packed ones those that they expand to."""
    found = re.findall(r"^Relocation section '\.rela?\.\S+ .* contains (\d+) entr|^\s+(\d+) offsets$", readelf, re.M)
    return sum(int(entries or offsets) for entries, offsets in found)


def data_size(readelf):
    """Bytes of writable data of `readelf -SW`."""
    sections = re.findall(r"^\s*\[ *\d+\] (\S+)\s+\S+\s+[0-9a-f]+ [0-9a-f]+ ([0-9a-f]+) ", readelf, re.M)
    return sum(int(size, 16) for name, size in sections if name in DATA_SECTIONS)


def instructions_by_object(profile):
    """Instructions that each program and library of one callgrind profile executed itself."""
    names, counts, current, inclusive = {}, {}, "", False
    for line in profile.splitlines():
        if named := re.match(r"c?ob=(\(\d+\))(?: (.*))?$", line):
            number, name = named.groups()
            if name:
                names[number] = pathlib.PurePath(name).name
            if line.startswith("ob="):
                current = names[number]
        elif line.startswith("calls="):
            inclusive = True  # the next line's count is the called function's, which has lines of its own
        elif re.match(r"[-+*\d]", line):
            if not inclusive:
                counts[current] = counts.get(current, 0) + int(line.split()[1])
            inclusive = False
    total = int(re.search(r"^totals: (\d+)", profile, re.M)[1])
    if sum(counts.values()) != total:
        raise Failed(f"callgrind's profile has {total} instructions, its lines {sum(counts.values())}")
    return counts


# --- Measuring ---

class Machine:
    """The build for one machine, and how its programs are run."""

    def __init__(self, name, folder, preset, strip, emulator):
        self.name, self.strip, self.emulator = name, strip, emulator
        self.probe, self.floor = folder / "bin" / "budget_probe", folder / "lib" / "libbudget_floor.so"
        self.library = folder / "lib" / "libdtv_js_plugin.so"
        build = f"cmake --preset {preset} && cmake --build --preset {preset}"
        for path in (self.library, self.probe, self.floor):
            if not path.exists():
                raise Failed(f"{path} is missing; build it: {build}")
        cache = (folder / "CMakeCache.txt").read_text(encoding="utf-8")
        if not re.search(r"^CMAKE_BUILD_TYPE:\w+=RelWithDebInfo$", cache, re.M):
            raise Failed(f"{folder} is no RelWithDebInfo build, as the table requires; build it: {build}")

    def run(self, mode, library=None, front=()):
        lines = output([*front, *self.emulator, self.probe, library or self.library, mode]).splitlines()
        return {figure["name"]: figure for figure in map(json.loads, lines)}

    def file_figures(self, scratch):
        stripped = scratch / "stripped.so"
        output([self.strip, "-o", stripped, self.library])
        return {"stripped_size": stripped.stat().st_size,
                "relocations": count_relocations(output(["readelf", "-rW", self.library])),
                "data_and_bss": data_size(output(["readelf", "-SW", self.library]))}

    def figures(self, scratch):
        measured = self.file_figures(scratch)
        for mode in ("operations", "stack", "deepest"):
            for name, figure in self.run(mode).items():
                if not name.endswith("_count"):
                    measured[name] = figure["value"]
                if figure["at"]:
                    print(f"{self.name}: {name} {figure['value']:,}: {figure['at']}")
        return measured


def instructions(machine, scratch):
    """Instructions of one operation, of the plugin and the libraries that it calls; prints whose they are."""
    profile = scratch / "callgrind"
    front = ["valgrind", "--quiet", "--tool=callgrind", f"--callgrind-out-file={profile}",
             "--toggle-collect=budget_operate", "--dump-after=budget_batch"]
    counts = {name.removesuffix("_count"): figure["value"]
              for name, figure in machine.run("operations", front=front).items() if name.endswith("_count")}
    measured = {}
    for number, (name, count) in enumerate(counts.items(), 1):
        text = pathlib.Path(f"{profile}.{number}").read_text(encoding="utf-8")
        if others := sorted(set(PROCESSOR_FUNCTIONS.findall(text))):
            raise Failed(f"the C library chose {', '.join(others)} for this processor: "
                         "FEATURES in bench/budgets.py lacks one")
        objects = instructions_by_object(text)
        objects.pop(machine.probe.name, None)
        measured[f"{name}_instructions"] = round(sum(objects.values()) / count)
        parts = sorted(objects.items(), key=lambda part: -part[1])
        print(f"{machine.name}: {name}_instructions: " +
              ", ".join(f"{part.split('.so')[0]} {round(value / count):,}" for part, value in parts if value >= count))
    return measured


def print_start_time(machine):
    def start(library):
        return machine.run("start", library)["start_ns"]["value"] / 1000

    ours, floor = zip(*((start(machine.library), start(machine.floor)) for _ in range(START_ROUNDS)))
    ours, floor = statistics.median(ours), statistics.median(floor)
    print(f"{machine.name}: start-up {ours:.0f} us, {ours / floor:.2f} times that of an empty library with the same "
          f"dependencies ({floor:.0f} us); not checked")


def measure(build, arm):
    """{figure: {machine: value}}"""
    machines = (Machine(X86, build, "release", "strip", ()),
                Machine(ARM, arm, "arm", "arm-linux-gnueabihf-strip", ("qemu-arm",)))
    measured = {}
    with tempfile.TemporaryDirectory(prefix="dtv-budgets-") as folder:
        scratch = pathlib.Path(folder)
        for machine in machines:
            figures = machine.figures(scratch)
            if machine.name == X86:
                figures |= instructions(machine, scratch)
            for name, value in figures.items():
                measured.setdefault(name, {})[machine.name] = value
    print_start_time(machines[0])
    return measured


# --- The table ---

def table_lines(lines):
    """First and last line, exclusive, of the table's rows."""
    cells = [[cell.strip() for cell in line.strip().strip("|").split("|")] for line in lines]
    if list(HEADER) not in cells:
        raise Failed(f"{TABLE.name} has no table with the columns {', '.join(HEADER)}")
    first = cells.index(list(HEADER)) + 2
    last = first
    while last < len(lines) and lines[last].startswith("|"):
        last += 1
    return first, last


def read_table(text):
    """{figure: {machine: value}}"""
    lines = text.splitlines()
    first, last = table_lines(lines)
    table = {}
    for line in lines[first:last]:
        row = re.fullmatch(rf"\| `(\w+)` \| ([\d,]+|{NONE}) \| ([\d,]+|{NONE}) \|", line)
        if not row or row[1] in table:
            raise Failed(f"{TABLE.name}: a row that is not `figure`, number, number, or that is there twice: {line}")
        table[row[1]] = {machine: int(cell.replace(",", "")) for machine, cell in zip((X86, ARM), row.groups()[1:])
                         if cell != NONE}
    return table


def write_table(text, figures):
    lines = text.splitlines()
    first, last = table_lines(lines)
    cells = {name: [f"{values[machine]:,}" if machine in values else NONE for machine in (X86, ARM)]
             for name, values in figures.items()}
    rows = [f"| `{name}` | {' | '.join(row)} |" for name, row in cells.items()]
    return "\n".join(lines[:first] + rows + lines[last:]) + "\n"


# --- The check ---

def compare(measured, table):
    """(number of tests, failures, remarks); a test is a figure of a machine that was measured or is in the table."""
    tests, failures, remarks = 0, [], []
    for name in {**measured, **table}:
        for machine in (X86, ARM):
            value, limit = measured.get(name, {}).get(machine), table.get(name, {}).get(machine)
            tests += value is not None or limit is not None
            if value is None and limit is not None:
                failures.append(f"{name} on {machine}: is in the table, but is not measured")
            elif value is not None and limit is None:
                failures.append(f"{name} on {machine}: {value:,} measured, but the table has no figure")
            elif value is not None and value > allowed(name, limit):
                failures.append(f"{name} on {machine}: {value:,}, but the table has {limit:,} "
                                f"({difference(value, limit)})")
            elif value is not None and value * 10 < limit * 9:
                remarks.append(f"{name} on {machine}: only {value:,}, the table has {limit:,}; --update records it")
    return tests, failures, remarks


def allowed(name, limit):
    """A tenth more than the table; of allocations, which are few and never waver, no more."""
    return limit if name.endswith("_allocations") else limit * 11 / 10


def difference(value, limit):
    if value is None or limit is None:
        return ""
    if value == limit:
        return "="
    return f"{100 * (value - limit) / limit:+.1f} %" if limit else "from 0"


def print_figures(measured, table):
    def number(value):
        return "" if value is None else f"{value:,}"

    print(f"\n{'':26}" + "".join(f" {machine:>10} {'table':>10} {'':9}" for machine in (X86, ARM)))
    for name in {**measured, **table}:
        cells = ((measured.get(name, {}).get(machine), table.get(name, {}).get(machine)) for machine in (X86, ARM))
        print((f"{name:26}" + "".join(f" {number(value):>10} {number(limit):>10} {difference(value, limit):>9}"
                                      for value, limit in cells)).rstrip())


ADVICE = """What to do: make it smaller. If the growth is worth it, run bench/budgets.py --update and commit
docs/budgets.md in the same commit as the change, with the reason in its message."""


def selftest():
    table = {"size": {X86: 1000, ARM: 800}, "count": {X86: 3, ARM: 0}, "get_allocations": {X86: 28},
             "instructions": {X86: 200}}
    text = "# Budgets\n\n| figure | x86-64 | armhf |\n|---|---:|---:|\n| `old` | 1 | 2 |\n\nAfter.\n"

    def changed(name, **values):
        figures = {figure: dict(row) for figure, row in table.items()}
        figures.setdefault(name, {}).update({X86 if key == "x86" else ARM: value for key, value in values.items()})
        return figures

    def without(name, *machines):
        return {figure: {machine: value for machine, value in row.items() if figure != name or machine not in machines}
                for figure, row in table.items()}

    checks = [  # measured, table, failures, remarks
        ("the same", table, table, 0, 0),
        ("a tenth more", changed("size", x86=1100), table, 0, 0),
        ("more than a tenth", changed("size", x86=1101), table, 1, 0),
        ("more on the other machine", changed("size", arm=881), table, 1, 0),
        ("one more of three", changed("count", x86=4), table, 1, 0),
        ("one more of none", changed("count", arm=1), table, 1, 0),
        ("one allocation more of many", changed("get_allocations", x86=29), table, 1, 0),
        ("an allocation less", changed("get_allocations", x86=27), table, 0, 0),
        ("instructions", changed("instructions", x86=221), table, 1, 0),
        ("two at once", changed("size", x86=1101, arm=881), table, 2, 0),
        ("a tenth less", changed("size", x86=900), table, 0, 0),
        ("more than a tenth less", changed("size", x86=899), table, 0, 1),
        ("not in the table", changed("new", x86=1, arm=1), table, 2, 0),
        ("not in the table for one machine", table, without("size", ARM), 1, 0),
        ("not measured", without("size", X86, ARM), table, 2, 0),
        ("not measured on one machine", without("count", X86), table, 1, 0),
    ]
    wrong = []
    for name, measured, limits, failures, remarks in checks:
        _, found, remarked = compare(measured, limits)
        if (len(found), len(remarked)) != (failures, remarks):
            wrong.append(f"{name}: {found} {remarked}")

    relocations = ("Relocation section '.rela.dyn' at offset 0x1 contains 12 entries:\n  Offset\n"
                   "Relocation section '.rela.plt' at offset 0x2 contains 1 entry:\n"
                   "Relocation section '.relr.dyn' at offset 0x3 contains 2 entries:\n  30 offsets\n")
    sections = ("  [ 9] .data.rel.ro PROGBITS 0000000000000010 000010 000900 00  WA  0   0 32\n"
                "  [10] .data   PROGBITS 0000000000000010 000010 000020 00  WA  0   0 32\n"
                "  [11] .bss    NOBITS   0000000000000010 000010 000101 00  WA  0   0 32\n")
    profile = ("totals: 17\nob=(1) /lib/a.so\nfn=(1) f\n0 5\n+3 2\ncob=(2) /lib/b.so\ncfn=(2) g\ncalls=1 0\n* 10\n\n"
               "ob=(2)\nfn=(2)\n0 10\n")
    written = write_table(text, table)
    facts = [
        ("relocations", count_relocations(relocations), 43),
        ("data", data_size(sections), 0x121),
        ("instructions", instructions_by_object(profile), {"a.so": 7, "b.so": 10}),
        ("processor functions", PROCESSOR_FUNCTIONS.findall("fn=(1) __strlen_sse2\ncfn=(2) __memcpy_avx_unaligned\n"),
         ["__memcpy_avx_unaligned"]),
        ("table", read_table(written), table),
        ("text around the table", write_table(written, {"old": {X86: 1, ARM: 2}}), text),
    ]
    wrong += [f"{name}: {found}, expected {expected}" for name, found, expected in facts if found != expected]
    refused = [
        ("no table", lambda: read_table("# Budgets\n")),
        ("a row without a number", lambda: read_table(text.replace("| 1 |", "| much |"))),
        ("a row twice", lambda: read_table(text.replace("| `old` | 1 | 2 |\n", "| `old` | 1 | 2 |\n" * 2))),
        ("instructions that are not all there", lambda: instructions_by_object(profile.replace("17", "18"))),
        ("no build", lambda: Machine(X86, pathlib.Path("/nonexistent"), "release", "strip", ())),
    ]
    for name, attempt in refused:
        try:
            attempt()
            wrong.append(f"{name}: was not refused")
        except Failed:
            pass
    print("".join(f"{text}\n" for text in wrong), end="")
    print(f"{len(checks) + len(facts) + len(refused) - len(wrong)} passed, {len(wrong)} failed")
    return 1 if wrong else 0


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=pathlib.Path, default=ROOT / "build", help="release build for this machine")
    parser.add_argument("--arm", type=pathlib.Path, default=ROOT / "build-arm", help="release build for armhf")
    action = parser.add_mutually_exclusive_group()
    action.add_argument("--check", action="store_true", help="fail when a figure is too large or a row is missing")
    action.add_argument("--update", action="store_true", help="write what was measured into the table")
    action.add_argument("--selftest", action="store_true", help="check the check")
    arguments = parser.parse_args()
    if arguments.selftest:
        return selftest()
    try:
        text = TABLE.read_text(encoding="utf-8")
        table = read_table(text)
        measured = measure(arguments.build.resolve(), arguments.arm.resolve())
    except (Failed, subprocess.TimeoutExpired, OSError) as failure:
        print(f"budgets: {failure}", file=sys.stderr)
        return 1
    print_figures(measured, table)
    if arguments.update:
        TABLE.write_text(write_table(text, measured), encoding="utf-8")
        print(f"written to {TABLE.relative_to(ROOT)}")
        return 0
    tests, failures, remarks = compare(measured, table)
    print()
    for line in remarks + failures:
        print(line)
    if failures:
        print(ADVICE)
    if not arguments.check:
        return 0
    print(f"{tests - len(failures)} passed, {len(failures)} failed")
    return 1 if failures or not tests else 0


if __name__ == "__main__":
    sys.exit(main())
