#!/usr/bin/env python3
"""Runs every test, stage by stage, and ends with "N passed, N failed".

usage: tests/run.py [--jobs N] [--list] [STAGE...]

A stage is a list of commands. Each command's own closing line says how many passed and failed; a command without one
counts as one test that passes when it exits with 0. Output of a command is shown when it failed.
"""

import argparse
import os
import re
import subprocess
import sys
import time
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
# As the Makefile does: the page's node comes first.
os.environ["PATH"] = os.pathsep.join([subprocess.check_output([ROOT / "tools/node.sh", "path"], text=True).strip(),
                                      os.environ["PATH"]])
TIME_LIMIT = 1500  # seconds for one command; a test that hangs fails
COMPILE_TIME_LIMIT = 4 * TIME_LIMIT  # of what takes the longer the fewer cores there are
# What runs in every build; `make arm` has these. The others need the virtual television and the host.
PLUGIN_TESTS = ["unit_test", "tap_test", "load_test", "race_test"]
DESK_TESTS = ["tv_test", "host_test"]
# The emulator has threads of its own, with which only the superuser gets the file systems that a case wants; unshare
# makes one of whoever runs it.
EMULATOR = ["qemu-arm"] if os.geteuid() == 0 else ["unshare", "--user", "--map-root-user", "qemu-arm"]
SHARDS = {"tv_test": 4}  # programs that mostly wait for the set's own pace: so many of them run a part each, at once
SHOWN = {"budgets"}  # stages whose output is worth reading also when all is well
SANITIZED_RACE = {"DTV_RACE_SECONDS": "60"}  # elsewhere a few seconds

# Closing lines of the test programs: (passed, failed), the last match counts.
COUNTS = [
    re.compile(r"^(?P<passed>\d+) passed, (?P<failed>\d+) failed", re.M),  # our own
    re.compile(r"^\[  PASSED  \] (?P<passed>\d+) tests?\.(?:.*?^\s*(?P<failed>\d+) FAILED TESTS?)?", re.M | re.S),
    re.compile(r"^# pass (?P<passed>\d+)$.*?^# fail (?P<failed>\d+)$", re.M | re.S),  # node --test, TAP
    re.compile(r"(?:^\s*(?P<failed>\d+) failed$.*?)?^\s*(?P<passed>\d+) passed \(", re.M | re.S),  # Playwright
    re.compile(r"^\s*(?P<failed>\d+) failed$", re.M),  # Playwright, nothing passed
]


def build(preset, jobs):
    return [["cmake", "--preset", preset],
            ["cmake", "--build", "--preset", preset, "--parallel", str(jobs), "--", "--quiet"]]


def node_modules(folder):
    return ["npm", "--prefix", folder, "ci", "--no-audit", "--no-fund", "--loglevel=error"]


def unit(folder, names, runner=()):
    return [[*runner, f"{folder}/bin/{name}", "--gtest_brief=1"] for name in names]


def conformance(folder, runner=()):
    return [*runner, f"{folder}/bin/conformance", "--require-coverage", "tests/conformance/cases"]


def library(folder, *more):
    """The checks of what was built, for the set or for the desk."""
    plugin = f"{folder}/lib/libdtv_js_plugin.so"
    return [["python3", "tests/check_symbols.py", plugin],
            ["python3", "tests/check_hardening.py", plugin, f"{folder}/lib/libdtv_tap.so", *more]]


def sanitized(folder):
    return unit(folder, PLUGIN_TESTS + DESK_TESTS) + [conformance(folder), system(folder)]


def system(folder):
    files = sorted(str(path.relative_to(ROOT)) for path in ROOT.glob("tests/system/*.test.mjs"))
    return [["node", "--test", "--test-reporter=tap", "--test-concurrency=2", *files], {"DTV_BUILD": str(ROOT / folder)}]


def stages(jobs):
    """Name, commands. A command may be [arguments, environment]."""
    asan = {"ASAN_OPTIONS": "detect_leaks=1:abort_on_error=0", "UBSAN_OPTIONS": "print_stacktrace=1", **SANITIZED_RACE}
    # Debian's libraries are not instrumented; what they do between themselves is not looked at.
    tsan = {"TSAN_OPTIONS": "ignore_noninstrumented_modules=1 halt_on_error=0 exitcode=66", **SANITIZED_RACE}
    with_environment = lambda commands, more: [
        [c[0], {**c[1], **more}] if isinstance(c[-1], dict) else [c, more] for c in commands]
    check = lambda name, *arguments: ["python3", f"tests/check_{name}.py", *arguments]
    return [
        ("rules", [check("includes", "--selftest"), check("includes"), check("symbols", "--selftest"),
                   check("hardening", "--selftest"), check("format", "--selftest"), check("format"),
                   check("docs", "--selftest"), check("tidy", "--selftest"),
                   ["python3", "tests/fuzz/faults.py", "--check"], ["python3", "bench/budgets.py", "--selftest"]]),
        ("build", build("release", jobs)),
        ("web", [["make", "--silent", "web"], ["npm", "--prefix", "web", "run", "--silent", "check"]]),
        ("unit", unit("build", PLUGIN_TESTS + DESK_TESTS) +
                 library("build", "build/lib/libdtv_tv.so", "build/bin/dtv-host", "build/bin/dtvctl")),
        ("conformance", [["python3", "tests/conformance/selftest.py", "build/bin/conformance",
                          "build/lib/libconformance_selftest_plugin.so"], conformance("build")]),
        ("documents", [check("docs", "build")]),
        ("install", [["python3", "tests/package/check.py", "build"]]),
        ("system", [node_modules("tests/system"), system("build")]),
        ("browser", [node_modules("tests/browser"),
                     [["npm", "--prefix", "tests/browser", "test", "--silent"], {"DTV_BUILD": str(ROOT / "build")}]]),
        ("arm-build", build("arm", jobs)),
        ("arm", unit("build-arm", PLUGIN_TESTS, EMULATOR) + [conformance("build-arm", EMULATOR)] +
                library("build-arm")),
        ("budgets", [["python3", "bench/budgets.py", "--build", "build", "--arm", "build-arm", "--check"]]),
        ("asan-build", build("asan", jobs)),
        ("asan", with_environment(sanitized("build-asan"), asan)),
        ("fuzz-corpus", with_environment([["python3", "tests/fuzz/run.py", "replay"]], asan)),
        ("tsan-build", build("tsan", jobs)),
        ("tsan", with_environment(sanitized("build-tsan"), tsan)),
        ("tidy", [check("tidy", "build", "--jobs", str(jobs))]),
    ]


def count(output, exit_code):
    """Tests passed and failed by a command, as its own closing line says."""
    found = [m for pattern in COUNTS for m in pattern.finditer(output)]
    if not found:
        return (1, 0) if exit_code == 0 else (0, 1)
    last = max(found, key=lambda m: m.end())
    groups = last.groupdict()
    passed, failed = int(groups.get("passed") or 0), int(groups.get("failed") or 0)
    if exit_code != 0 and failed == 0:
        failed = 1  # it failed after its tests, for example by a leak
    return passed, failed


def run(command):
    """Runs a command, in shards where its program has them: its arguments, exit code and output."""
    arguments, environment = command if isinstance(command[-1], dict) else (command, {})
    shards = SHARDS.get(Path(arguments[0]).name, 1)
    if shards == 1:
        return run_once(arguments, environment)
    with ThreadPoolExecutor(shards) as pool:
        parts = list(pool.map(lambda shard: run_once(arguments, {
            **environment, "GTEST_TOTAL_SHARDS": str(shards), "GTEST_SHARD_INDEX": str(shard)}), range(shards)))
    passed, failed = (sum(counts) for counts in zip(*(count(output, code) for _, code, output in parts)))
    output = "\n".join(output for _, _, output in parts) + f"\n{passed} passed, {failed} failed\n"
    return arguments, max(abs(code) for _, code, _ in parts), output


def run_once(arguments, environment):
    compiles = arguments[0] == "cmake" or "tests/check_tidy.py" in arguments
    limit = COMPILE_TIME_LIMIT if compiles else TIME_LIMIT
    try:
        process = subprocess.run(arguments, cwd=ROOT, env={**os.environ, **environment}, stdin=subprocess.DEVNULL,
                                 stdout=subprocess.PIPE, stderr=subprocess.STDOUT, errors="replace", check=False,
                                 timeout=limit)
    except FileNotFoundError as missing:
        return arguments, 127, f"cannot be run: {missing}"
    except subprocess.TimeoutExpired as expired:
        return arguments, 124, f"{(expired.stdout or b'').decode(errors='replace')}\nstill running after {limit} s"
    return arguments, process.returncode, process.stdout


def note_run(ret_runs, arguments, output, tests):
    """Remembers how many tests a program of a build ran. Those left out for another word size are counted too."""
    if arguments[0] == "python3":  # a script that is given the program, perhaps
        return
    for path in map(Path, arguments):
        if path.parts[0].startswith("build") and path.parent.name == "bin":
            left_out = re.search(r"^(\d+) left out", output, re.M)
            ret_runs.setdefault(path.name, {})[path.parts[0]] = tests + int(left_out[1] if left_out else 0)


def differing_runs(runs):
    """One line for each program that did not run the same tests in every build."""
    return [f"{program} ran " + ", ".join(f"{tests} tests in {folder}" for folder, tests in by_folder.items())
            for program, by_folder in runs.items() if len(set(by_folder.values())) > 1]


def run_stage(name, commands, ret_runs):
    """Runs one stage; returns its counts. A stage that only prepares does not go on after a failure."""
    begun = time.monotonic()
    passed = failed = 0
    prepares = name.endswith("build")
    for command in commands:
        arguments, exit_code, output = run(command)
        preparation = prepares or arguments[0] == "npm" and "ci" in arguments
        if preparation:
            command_passed, command_failed = 0, int(exit_code != 0)
        else:
            command_passed, command_failed = count(output, exit_code)
            note_run(ret_runs, arguments, output, command_passed + command_failed)
        passed += command_passed
        failed += command_failed
        if command_failed:
            print(f"--- {' '.join(arguments)} (exit {exit_code})\n{output[-20000:]}\n---", flush=True)
            if preparation:
                break
        elif name in SHOWN:
            print(output.rstrip(), flush=True)
    seconds = time.monotonic() - begun
    print(f"{name:<12} {seconds:7.1f} s  {passed:5} passed  {failed:3} failed", flush=True)
    return passed, failed


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("--list", action="store_true", help="print the stages' names")
    parser.add_argument("stage", nargs="*", help="stages to run (all)")
    options = parser.parse_args()
    table = stages(options.jobs)
    if options.list:
        print("\n".join(name for name, _ in table))
        return 0
    unknown = set(options.stage) - {name for name, _ in table}
    if unknown:
        parser.error(f"no stage {', '.join(sorted(unknown))}; --list names them")
    begun = time.monotonic()
    passed = failed = 0
    runs = {}  # program -> build folder -> tests
    for name, commands in table:
        if options.stage and name not in options.stage:
            continue
        stage_passed, stage_failed = run_stage(name, commands, runs)
        passed += stage_passed
        failed += stage_failed
        if stage_failed and name == "build":
            break
    for difference in differing_runs(runs):
        failed += 1
        print(difference)
    print(f"{'all':<12} {time.monotonic() - begun:7.1f} s")
    print(f"{passed} passed, {failed} failed")
    return 1 if failed or not passed else 0


if __name__ == "__main__":
    sys.exit(main())
