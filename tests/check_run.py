#!/usr/bin/env python3
"""Checks tests/run.py and tests/counts.py with made-up stages and with the output of test programs.

usage: tests/check_run.py

Ends with "N passed, N failed".
"""

import os
import signal
import subprocess
import sys
import tempfile
import time
from collections import Counter
from pathlib import Path

import run
from counts import Counts, count, failures
from stages import Stage, stages

HERE = Path(__file__).resolve().parent

GTEST = """Running main() from ./googletest/src/gtest_main.cc
a.cpp:2: Skipped
no network here
[==========] 5 tests from 1 test suite ran. (0 ms total)
[  PASSED  ] 3 tests.
"""
GTEST_LONG = """[ RUN      ] A.Skip
[  SKIPPED ] A.Skip (0 ms)
[==========] 3 tests from 1 test suite ran. (0 ms total)
[  PASSED  ] 1 test.
[  SKIPPED ] 2 tests, listed below:
[  SKIPPED ] A.Skip
[  SKIPPED ] A.Skip2
"""
NODE = "ok 4 - d\n1..4\n# tests 9\n# suites 0\n# pass 2\n# fail {}\n# cancelled {}\n# skipped 3\n# todo 1\n# duration_ms 5.6\n"
PLAYWRIGHT = "\nRunning 6 tests using 1 worker\n\n[1/6] a.test.ts:2:1 \u203a ok\n"
# What a command prints, its exit code, and the counts.
COUNTS = [
    ("", 0, Counts(1, 0)), ("3 failed attempts\n", 1, Counts(0, 1)),
    ("7 passed, 0 failed\n", 0, Counts(7, 0)), ("7 passed, 2 failed\n", 1, Counts(7, 2)),
    ("7 passed, 0 failed\n", 1, Counts(7, 1)), ("1 passed, 0 failed\n7 passed, 2 failed\n", 1, Counts(7, 2)),
    ("12 left out: they are for others\n7 passed, 0 failed\n", 0, Counts(7, 0, Counter({"ours": 12}))),
    ("7 passed, 0 failed, 2 skipped\n", 0, Counts(7, 0, Counter({"ours": 2}))),
    (GTEST, 0, Counts(3, 0)), (GTEST, 66, Counts(3, 1)),
    (GTEST + "[  SKIPPED ] 2 tests.\n", 0, Counts(3, 0, Counter({"gtest": 2}))),
    (GTEST + "[  SKIPPED ] 2 tests.\n\n  YOU HAVE 1 DISABLED TEST\n", 0, Counts(3, 0, Counter({"gtest": 3}))),
    (GTEST + "[  FAILED  ] 1 test, listed below:\n[  FAILED  ] A.Bad\n\n 1 FAILED TEST\n", 1, Counts(3, 1)),
    (GTEST_LONG, 0, Counts(1, 0, Counter({"gtest": 2}))),
    (NODE.format(0, 0), 0, Counts(2, 0, Counter({"node --test": 4}))),
    (NODE.format(2, 1), 1, Counts(2, 3, Counter({"node --test": 4}))),
    (PLAYWRIGHT + "  1 skipped\n  57 passed (4.2m)\n", 0, Counts(57, 0, Counter({"Playwright": 1}))),
    (PLAYWRIGHT + "  2 failed\n    a.test.ts:3 \u203a bad\n  2 skipped\n  1 did not run\n  1 passed (2s)\n", 1,
     Counts(1, 3, Counter({"Playwright": 2}))),
    (PLAYWRIGHT + "  1 failed\n    a.test.ts:3 \u203a bad\n", 1, Counts(0, 1)),
]
# What a failed command prints, and what is repeated of it at the end.
FAILURES = [
    ("[ RUN      ] A.Bad\na.cpp:7: Failure\nExpected: 1\n  more\n[  FAILED  ] A.Bad (0 ms)\n[  FAILED  ] 1 test, listed below:\n",
     ["a.cpp:7: Failure", "Expected: 1", "[  FAILED  ] A.Bad (0 ms)"]),
    ("ok 1 - a\n    not ok 2 - b\n  error: |-\n    timed out\n  code: 7\n",
     ["    not ok 2 - b", "  error: |-", "    timed out"]),
    ("  1) a.test.ts:3:1 \u203a bad \u2500\n\n    Error: late\n\n    at a.ts\n",
     ["  1) a.test.ts:3:1 \u203a bad \u2500", "    Error: late"]),
    ("PASS a\nFAIL b.json: the name\n  why\nnot so: the other\n", ["FAIL b.json: the name", "not so: the other"]),
    ("one\n\ntwo\n", ["one", "two"]), ("", []),
    ("".join(f"FAIL {number}\n" for number in range(20)), [*(f"FAIL {number}" for number in range(12)), "and 8 lines more"]),
    ("x" * 999, ["x" * 200]),
]


def python(text, *arguments):
    return [sys.executable, "-c", text, *map(str, arguments)]


def shell(text):
    return ["sh", "-c", text]


PASS, FAIL = shell("echo '1 passed, 0 failed'"), shell("echo '0 passed, 1 failed'; exit 1")


def results_of(table, jobs=2):
    """(the results by stage, the stages in the order of their ends)"""
    results = []
    run.run_stages(table, jobs, results.append)
    return {result.name: result for result in results}, [result.name for result in results]


def leave(folder, name):
    return shell(f"touch {folder}/{name}")


def meet(folder, name, other):
    """Passes when the other one runs at the same time."""
    return shell(f"touch {folder}/{name}; for i in $(seq 3000); do [ -e {folder}/{other} ] && exit 0; sleep 0.01; done; exit 1")


def alone(folder):
    """Passes when no other one of these runs at the same time."""
    return shell(f"mkdir {folder}/alone && sleep 0.1 && rmdir {folder}/alone")


def check_stages(expect, folder):
    results, _ = results_of([
        Stage("broken", [leave(folder, "first"), FAIL, leave(folder, "second")], prepares=True, background=True),
        Stage("needs it", [leave(folder, "third")], after=("broken",)),
        Stage("needs that", [leave(folder, "third")], after=("needs it",)),
        Stage("other", [FAIL, PASS, shell("exit 3")]),
        Stage("after a failed test", [PASS], after=("other",)),
        Stage("not in the table", [PASS], after=("elsewhere",))])
    expect("a stage that prepares goes on until the first failure",
           sorted(os.listdir(folder)) == ["first"] and results["broken"].counts == Counts(0, 1))
    expect("what needs a failed preparation is not run",
           all(not results[name].good and "not run, since" in results[name].text for name in ("needs it", "needs that")))
    expect("tests go on after a failure", results["other"].counts == Counts(1, 2))
    expect("failed tests stop nothing", results["after a failed test"].good)
    expect("a stage that is named alone runs", results["not in the table"].good)

    results, order = results_of([Stage("last", [PASS], after=("first",)),
                                 Stage("first", [shell("sleep 0.1")], prepares=True)])
    expect("a stage waits for what it needs", order == ["first", "last"] and results["last"].counts == Counts(1, 0))
    expect("preparing counts no tests", results["first"].counts == Counts())
    results, _ = results_of([Stage("none", [shell("echo '0 passed, 0 failed'")]), Stage("lost", [["/nowhere/at/all"]])])
    expect("a command without tests fails", results["none"].counts == Counts(0, 1))
    expect("a command that is missing fails", results["lost"].counts == Counts(0, 1))


def check_overlap(expect, folder):
    background = lambda name, command: Stage(name, [command], background=True)
    results, _ = results_of([background("builds", meet(folder, "a", "b")), Stage("tests", [meet(folder, "b", "a")])])
    expect("tests run beside what compiles", all(result.good for result in results.values()))
    results, _ = results_of([background(name, alone(folder)) for name in "abc"])
    expect("one stage compiles at a time", all(result.good for result in results.values()))
    results, _ = results_of([Stage(name, [alone(folder)], cores=1.5) for name in "abc"])
    expect("tests take no more cores than there are", all(result.good for result in results.values()))
    results, _ = results_of([Stage("a", [meet(folder, "c", "d")]), Stage("b", [meet(folder, "d", "c")])])
    expect("tests run at once when there are cores", all(result.good for result in results.values()))
    results, _ = results_of([Stage("large", [PASS], cores=5)])
    expect("one stage always runs", results["large"].good)

    talk = shell("for i in 1 2 3 4 5; do echo line $0; sleep 0.02; done; exit 1")
    results, _ = results_of([Stage(name, [[*talk, name]]) for name in "ab"])
    expect("output is in one piece", all(f"line {name}\n" * 5 in result.text for name, result in results.items()))
    many = python("print('x' * 999_999, 'end'); raise SystemExit(1)")
    results, _ = results_of([Stage("a", [many])])
    expect("the output of a failed command is whole", "x" * 999_999 + " end" in results["a"].text)
    results, _ = results_of([Stage("a", [PASS]), Stage("b", [PASS], shown=True)])
    expect("other output is shown on request", ("1 passed, 0 failed\n" in results["b"].text) and
           "1 passed, 0 failed\n" not in results["a"].text)
    busy = python("import time\nwhile time.process_time() < 0.3: pass")
    results, _ = results_of([Stage("a", [busy, busy])])
    expect(f"processor time: {results['a'].processor}", 0.6 <= results["a"].processor < 3)


def is_gone(process):
    for _ in range(3000):
        if not Path(f"/proc/{process}").exists():
            return True
        time.sleep(0.01)
    return False


def check_ends(expect, folder):
    hang = shell(f"echo begun; sleep 1000 & echo $! > {folder}/hung; wait")
    ran = run.run_once(hang, {}, limit=5)
    expect(f"a command that hangs: {ran}", ran.exit_code == 124 and "begun" in ran.output and "after 5 s" in ran.output)
    expect("what it started has ended too", is_gone((folder / "hung").read_text(encoding="utf-8").strip()))

    table = f"[Stage(n, [['sh', '-c', 'sleep 1000 & echo $! > {folder}/' + n + '; wait'], ['touch', '{folder}/next']]) for n in 'ab']"
    text = (f"import sys; sys.path.insert(0, {str(HERE)!r}); import run; from stages import Stage\n"
            f"run.end_on_signals(); run.run_table({table}, 2)")
    with subprocess.Popen(python(text), stderr=subprocess.DEVNULL, stdout=subprocess.DEVNULL) as process:
        files = [folder / name for name in "ab"]
        while not all(file.is_file() and file.read_text(encoding="utf-8").strip() for file in files):
            time.sleep(0.01)
        process.send_signal(signal.SIGTERM)
        try:
            process.wait(20)
        except subprocess.TimeoutExpired:
            process.kill()
    expect("a run ends by a signal", process.returncode != -signal.SIGKILL)
    expect("a run that is ended leaves no process", all(is_gone(file.read_text(encoding="utf-8").strip()) for file in files))
    expect("and begins no command", not (folder / "next").exists())


def check_runs(expect):
    results = [run.Result("a", Counts(), True, "", tests=(("unit_test", "build", 5), ("tv_test", "build", 7))),
               run.Result("b", Counts(), True, "", tests=(("unit_test", "build-asan", 5),))]
    expect("the same tests in every build", run.differing_runs(results) == [])
    results.append(run.Result("c", Counts(), True, "", tests=(("unit_test", "build-arm", 4),)))
    expect("a program that ran others", [line.split()[0] for line in run.differing_runs(results)] == ["unit_test"])
    expect("whose program it is", [run.program_of(words) for words in (
        ["build/bin/unit_test", "-x"], ["qemu-arm", "build-arm/bin/conformance", "tests/conformance/cases"],
        ["python3", "tests/a.py", "build/bin/conformance"], ["cmake", "--build"])] ==
        [("unit_test", "build"), ("conformance", "build-arm"), None, None])
    text = (f"import sys; sys.path.insert(0, {str(HERE)!r}); import run; from stages import Stage\n"
            "sys.exit(run.run_table([Stage('first', [['sh', '-c', 'echo FAIL me; exit 1']]), Stage('second', [['true']])], 1))")
    said = subprocess.run(python(text), stdout=subprocess.PIPE, text=True, check=False)
    expect(f"failures are repeated at the end: {said.stdout}",
           "failed in first: sh -c echo FAIL me; exit 1\n  FAIL me\nall " in said.stdout and said.returncode == 1)


def check_table(expect):
    table = stages(2, True, 7)
    quick = {stage.name for stage in table if stage.check}
    listed = subprocess.run([sys.executable, HERE / "run.py", "--check", "--list"], check=True, stdout=subprocess.PIPE,
                            text=True).stdout.split()
    expect(f"the stages of make check: {listed}", set(listed) == quick and {"build", "rules", "unit", "tidy"} <= quick)
    expect("make check prepares what it needs", all(set(stage.after) <= quick for stage in table if stage.check))
    expect("each stage needs those before it",
           all(set(stage.after) <= {other.name for other in table[:place]} for place, stage in enumerate(table)))
    seconds = {stage.name for stage in table for command in stage.commands
               if isinstance(command, tuple) and command[1].get("DTV_RACE_SECONDS") == "7"}
    expect(f"stages with race tests of 7 s: {seconds}", {"asan", "tsan"} <= seconds and not seconds & quick)
    for only_check in (True, False):
        [tidy] = [stage for stage in stages(2, only_check, 7) if stage.name == "tidy"]
        expect("only make check leaves sources out", ("--changed" in tidy.commands[0]) == only_check)


def main():
    results = []

    def expect(what, good):
        results.append(good)
        if not good:
            print(f"not so: {what}")

    for output, exit_code, expected in COUNTS:
        found = count(output, exit_code)
        expect(f"{output!r} with {exit_code}: expected {expected}, found {found}", found == expected)
    for output, expected in FAILURES:
        expect(f"failures in {output!r}: expected {expected}, found {failures(output)}", failures(output) == expected)
    expect("the counts as a text", str(Counts(1, 2, Counter(gtest=3, ours=0)) + Counts(1, 0, Counter(ours=1))) ==
           "2 passed, 2 failed, 4 skipped (gtest 3, ours 1)")
    for checks in (check_stages, check_overlap, check_ends):
        with tempfile.TemporaryDirectory() as folder:
            checks(expect, Path(folder))
    check_runs(expect)
    check_table(expect)
    print(f"{results.count(True)} passed, {results.count(False)} failed")
    return 0 if all(results) else 1


if __name__ == "__main__":
    sys.exit(main())
