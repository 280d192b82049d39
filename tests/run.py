#!/usr/bin/env python3
"""Runs the stages of tests/stages.py and ends with "N passed, N failed, N skipped".

usage: tests/run.py [--jobs N] [--race SECONDS] [--check | STAGE...] [--list]

Without names every stage runs, with --check those of `make check`; with both, the named ones among these. Background
stages (builds, npm installs, clang-tidy) run one at a time at low priority; the other stages run beside them, as many as
the cores allow. A stage waits for the stages that it needs. It is not run when one that prepares it has failed. A stage
that is named alone uses what is already built, or fails.

A stage's output comes in one piece when it has ended: all that its failed commands printed, and a line with its time,
the processor time of its processes, and its tests. The names of all failed tests are repeated at the very end, where a
log that was cut still has them. A command whose output does not say how many tests it ran is one
test, which passes when the command exits with 0; one that says it ran none has failed. The commands of a stage that
prepares are no tests; one that fails counts as one failure.
"""

import argparse
import os
import re
import signal
import subprocess
import sys
import tempfile
import threading
import time
from concurrent.futures import FIRST_COMPLETED, ThreadPoolExecutor, wait
from pathlib import Path
from typing import NamedTuple

from counts import MOST_CHARACTERS, Counts, count, failures
from stages import ROOT, SHARDS, stages

TIME_LIMIT = 1500  # seconds for one command; a test that hangs fails
BACKGROUND_TIME_LIMIT = 4 * TIME_LIMIT  # of commands that take longer with fewer cores
BACKGROUND = ["nice", "-n", "10"]


class Ran(NamedTuple):
    arguments: list
    exit_code: int
    output: str
    processor: float  # seconds, of the process and of those that it waited for


class Result(NamedTuple):
    name: str
    counts: Counts
    good: bool
    text: str  # what is printed about it
    seconds: float = 0
    processor: float = 0
    tests: tuple = ()  # (program, build folder, how many it ran)
    failures: tuple = ()  # (command, the lines of its output that name what failed)


groups_lock = threading.RLock()  # guards groups and interrupted; a second signal may come while the first is handled
groups = set()  # process groups that run now
interrupted = False  # no command may begin any more


def kill_group(group):
    try:
        os.killpg(group, signal.SIGKILL)
    except ProcessLookupError:
        pass


def interrupt(*_):
    """Handles a signal that ends the run: kills what runs, and lets no other command begin. An exception would not do:
    raised within the thread pool's own code, it could be lost or leave a lock held."""
    global interrupted
    with groups_lock:
        interrupted = True
        for group in groups:
            kill_group(group)


def end_on_signals():
    for number in (signal.SIGINT, signal.SIGTERM):
        signal.signal(number, interrupt)


def run_once(arguments, environment, limit=TIME_LIMIT):
    """Runs one command to its end or its time limit.

    It has a process group of its own, but no session: the kernel may give each session an equal share of the
    processor, and `nice` weighs only within a session."""
    hung = threading.Event()
    with tempfile.TemporaryFile() as output:
        try:
            with groups_lock:
                if interrupted:
                    return Ran(arguments, 130, "not run", 0)
                process = subprocess.Popen(arguments, cwd=ROOT, env={**os.environ, **environment}, process_group=0,
                                           stdin=subprocess.DEVNULL, stdout=output, stderr=subprocess.STDOUT)
                groups.add(process.pid)
        except OSError as error:
            return Ran(arguments, 127, f"cannot be run: {error}", 0)

        def end():
            hung.set()
            kill_group(process.pid)

        late = threading.Timer(limit, end)
        late.start()
        os.waitid(os.P_PID, process.pid, os.WEXITED | os.WNOWAIT)  # not yet reaped, so the number cannot be reused
        late.cancel()
        with groups_lock:
            groups.discard(process.pid)
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
        output.seek(0)
        text = output.read().decode(errors="replace")
    if hung.is_set():
        text += f"\nstill running after {limit} s"
    return Ran(arguments, 124 if hung.is_set() else process.returncode, text, usage.ru_utime + usage.ru_stime)


def run(stage, command):
    """Runs a command, in shards where its program has them. Returns its result and its counts."""
    arguments, environment = command if isinstance(command, tuple) else (command, {})
    shards = SHARDS.get(Path(arguments[0]).name, 1)
    if shards == 1:
        ran = (run_once([*BACKGROUND, *arguments], environment, BACKGROUND_TIME_LIMIT)
               if stage.background else run_once(arguments, environment))
        return ran, count(ran.output, ran.exit_code)
    with ThreadPoolExecutor(shards) as pool:
        parts = list(pool.map(lambda shard: run_once(arguments, {
            **environment, "GTEST_TOTAL_SHARDS": str(shards), "GTEST_SHARD_INDEX": str(shard)}), range(shards)))
    counts = sum((count(part.output, part.exit_code) for part in parts), Counts())
    return Ran(arguments, max(abs(part.exit_code) for part in parts), "\n".join(part.output for part in parts),
               sum(part.processor for part in parts)), counts


def program_of(arguments):
    """(program, build folder) of a command that runs a test program of a build, else None."""
    if arguments[0] == "python3":  # a script that is given the program, perhaps
        return None
    built = [path for path in map(Path, arguments) if path.parts[0].startswith("build") and path.parent.name == "bin"]
    return (built[0].name, built[0].parts[0]) if built else None


def run_stage(stage):
    """Runs one stage's commands; a stage that prepares does not go on after a failure."""
    begun = time.monotonic()
    counts, good, text, processor, tests, failed_commands = Counts(), True, "", 0, [], []
    for command in stage.commands:
        ran, its_counts = run(stage, command)
        processor += ran.processor
        failed = ran.exit_code != 0 or its_counts.failed > 0
        if stage.prepares:
            its_counts = Counts(failed=int(failed))
        elif its_counts.passed + its_counts.failed + its_counts.skipped.total() == 0:
            its_counts, failed = Counts(failed=1), True
        if program := program_of(ran.arguments):
            # Cases left out because they are for the other word size count: that build runs them. Skipped tests do not.
            tests.append((*program, its_counts.passed + its_counts.failed + its_counts.skipped["ours"]))
        counts += its_counts
        if failed:
            good = False
            text += f"--- {' '.join(ran.arguments)} (exit {ran.exit_code})\n{ran.output.rstrip()}\n---\n"
            failed_commands.append((" ".join(ran.arguments), failures(ran.output)))
            if stage.prepares:
                break
        elif stage.shown:
            text += ran.output.rstrip() + "\n"
    seconds = time.monotonic() - begun
    said = "" if stage.prepares and good else str(counts)
    text += f"{stage.name:<12} {seconds:7.1f} s {processor:8.1f} s of processor time  {said}".rstrip()
    return Result(stage.name, counts, good, text, seconds, processor, tuple(tests), tuple(failed_commands))


def may_begin(stage, running, waiting, jobs):
    """Whether a stage's turn has come: what it needs has ended, and the machine has room for it."""
    if any(other.name in stage.after for other in running + waiting):
        return False
    if stage.background:
        return not any(other.background for other in running)
    busy = sum(other.cores for other in running if not other.background)
    return busy == 0 or busy + stage.cores <= jobs


def run_stages(table, jobs, report):
    """Runs the stages of the table, and reports each one's result, on the calling thread, when it has ended."""
    waiting, running, failed = list(table), {}, set()

    def turn(stage):
        if broken := failed & set(stage.after):
            waiting.remove(stage)
            failed.add(stage.name)
            reason = " and ".join(sorted(broken))
            report(Result(stage.name, Counts(), False, f"{stage.name:<12} not run, since {reason} failed"))
        elif may_begin(stage, list(running.values()), waiting, jobs):
            waiting.remove(stage)
            running[pool.submit(run_stage, stage)] = stage

    with ThreadPoolExecutor(max_workers=len(table)) as pool:
        try:
            while waiting or running:
                for stage in list(waiting):
                    turn(stage)
                # A signal that comes just before the thread waits does not wake it: the handler runs after the timeout.
                for done in wait(running, timeout=1, return_when=FIRST_COMPLETED).done:
                    stage = running.pop(done)
                    if stage.prepares and not done.result().good:
                        failed.add(stage.name)
                    report(done.result())
        except BaseException:  # a result that cannot be printed
            interrupt()
            raise


def differing_runs(results):
    """One line for each program that did not run the same tests in every build."""
    runs = {}
    for program, folder, tests in (each for result in results for each in result.tests):
        runs.setdefault(program, {})[folder] = tests
    return [f"{program} ran " + ", ".join(f"{tests} tests in {folder}" for folder, tests in sorted(by_folder.items()))
            for program, by_folder in sorted(runs.items()) if len(set(by_folder.values())) > 1]


def run_table(table, jobs):
    """Runs the stages and prints their results. Returns the exit code."""
    begun, results = time.monotonic(), []

    def report(result):
        results.append(result)
        print(result.text, flush=True)

    run_stages(table, jobs, report)
    counts = sum((result.counts for result in results), Counts())
    for difference in differing_runs(results):
        counts += Counts(failed=1)
        print(f"failed: {difference}")
    for result in results:
        for command, lines in result.failures:
            print(f"failed in {result.name}: {command[:MOST_CHARACTERS]}", *lines, sep="\n  ")
    processor = sum(result.processor for result in results)
    print(f"{'all':<12} {time.monotonic() - begun:7.1f} s {processor:8.1f} s of processor time")
    print(counts)
    return 1 if counts.failed or not counts.passed else 0


def main():
    # As the Makefile does: the page's node comes first.
    node = subprocess.check_output([ROOT / "tools/node.sh", "path"], text=True).strip()
    os.environ["PATH"] = os.pathsep.join([node, os.environ["PATH"]])
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--jobs", type=int, default=os.cpu_count(), help="cores to use (all)")
    parser.add_argument("--race", type=int, default=10, metavar="SECONDS",
                        help="how long the race tests run under each sanitizer (10)")
    parser.add_argument("--check", action="store_true", help="the stages of `make check`")
    parser.add_argument("--list", action="store_true", help="print the stages' names")
    parser.add_argument("stage", nargs="*", help="stages to run (all)")
    options = parser.parse_args()
    table = stages(options.jobs, options.check, options.race)
    unknown = set(options.stage) - {stage.name for stage in table}
    if unknown:
        parser.error(f"no stage {', '.join(sorted(unknown))}; --list names them")
    if options.check:
        table = [stage for stage in table if stage.check]
    if options.stage:
        table = [stage for stage in table if stage.name in options.stage]
    if options.list:
        print("\n".join(stage.name for stage in table))
        return 0
    end_on_signals()
    result = run_table(table, options.jobs)
    return 130 if interrupted else result


if __name__ == "__main__":
    sys.exit(main())
