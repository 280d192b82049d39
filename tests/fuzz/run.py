#!/usr/bin/env python3
"""Fuzzes, and replays what fuzzing has found.

usage: tests/fuzz/run.py [SECONDS | replay | minimize | coverage]

  SECONDS    fuzzes every target for so long (60 without an argument), two at a time, and tells what came of it. An
             input that fails is kept in tests/fuzz/corpus/TARGET under a name that says how it failed; fix the cause
             and commit the input. Inputs that only reach new code stay in the build folder.
  replay     runs every kept input once, and checks the platform that the targets stand on
  minimize   takes from the build folder into tests/fuzz/corpus the fewest inputs and seeds that reach the same code
  coverage   builds with coverage, replays, and prints the lines and branches of the sources that were reached

A target is each tests/fuzz/fuzz_*.cpp. BUILD names the folder of the asan preset's build, build-asan without it.
"""

import hashlib
import os
import re
import shutil
import subprocess
import sys
import tempfile
import threading
import time
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

HERE = Path(__file__).resolve().parent
ROOT = HERE.parent.parent
BUILD = Path(os.environ.get("BUILD", ROOT / "build-asan")).resolve()
TARGETS = sorted(path.stem for path in HERE.glob("fuzz_*.cpp"))
AT_A_TIME = 2
PROGRESS = 15  # seconds between two lines of a target
# An input fails when it crashes, leaks, or exceeds these limits of time and memory, in fuzzing as in replaying.
LIMITS = ["-timeout=20", "-report_slow_units=20", "-rss_limit_mb=2000", "-max_len=2048"]
# What a target's threads reach differs from run to run: to weigh inputs by how rare that is takes most of the time.
OPTIONS = {"fuzz_wire": ["-entropic=0"]}
FINDINGS = ("crash-", "leak-", "timeout-", "oom-")
# Without detect_leaks=1 the leak sanitizer is silent in some environments. The caller's own settings win.
ENVIRONMENT = {"ASAN_OPTIONS": "detect_leaks=1", "UBSAN_OPTIONS": "print_stacktrace=1", **os.environ}


def kept(target):
    return HERE / "corpus" / target


def inputs(folder):
    return sorted(path for path in folder.glob("*") if path.is_file()) if folder.is_dir() else []


def arguments(target, build=BUILD):
    program = build / "bin" / target
    if not program.is_file():
        sys.exit(f"{program} is missing; build it: cmake --preset asan && cmake --build --preset asan")
    return ["nice", "-n", "10", str(program), *LIMITS, *OPTIONS.get(target, [])]


def run(command, env=ENVIRONMENT):
    return subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          errors="replace", check=False, env=env)


def each(function):
    with ThreadPoolExecutor(AT_A_TIME) as pool:
        return list(pool.map(function, TARGETS))


# --- Replay ---

def replay_target(target):
    """Inputs passed, failed, and the reports. A process ends at the first input that fails; the next one goes on."""
    left = [str(path) for path in inputs(kept(target))]
    passed, failed, reports = 0, 0, []
    while left:
        process = run(arguments(target) + left)
        done = len(re.findall(r"^Executed ", process.stdout, re.M))
        passed += done
        if process.returncode == 0 and done == len(left):
            break
        failed += 1
        reports.append(f"--- {target}: {left[min(done, len(left) - 1)]}\n{process.stdout[-6000:]}")
        left = left[done + 1:]
    if not inputs(kept(target)):
        failed += 1
        reports.append(f"--- {target} has no inputs in {kept(target)}")
    return passed, failed, reports


def replay():
    check = run([str(BUILD / "bin" / "fuzz_platform_check")])
    counts = re.search(r"^(\d+) passed, (\d+) failed$", check.stdout, re.M)
    passed, failed = (int(counts[1]), int(counts[2])) if counts else (0, 1)
    if failed or check.returncode:
        failed = max(failed, 1)
        print(f"--- fuzz_platform_check\n{check.stdout[-6000:]}")
    for target_passed, target_failed, reports in each(replay_target):
        passed += target_passed
        failed += target_failed
        print("".join(report + "\n" for report in reports), end="")
    print(f"{passed} passed, {failed} failed")
    return 1 if failed else 0


# --- Fuzzing ---

def say(text, lock=threading.Lock()):
    with lock:
        print(text, flush=True)


def new_folder(path):
    shutil.rmtree(path, ignore_errors=True)
    path.mkdir(parents=True)
    return path


def fuzz_target(target, seconds):
    """Fuzzes one target and prints its progress. Returns its row of the final table."""
    found = BUILD / "corpus" / target
    found.mkdir(parents=True, exist_ok=True)
    seeds = new_folder(BUILD / "seeds" / target)
    log = BUILD / f"{target}.log"
    kept(target).mkdir(parents=True, exist_ok=True)
    made = run(arguments(target)[:4] + ["--seeds", str(seeds), str(kept(target))])
    before = set(inputs(kept(target)))
    if made.returncode:
        say(f"--- {target}: the seeds (exit {made.returncode})\n{made.stdout[-6000:]}")
        if (running := seeds / "running").is_file():
            data = running.read_bytes()
            (kept(target) / f"crash-{hashlib.sha1(data).hexdigest()}").write_bytes(data)
            running.unlink()
    else:
        say(f"{target}: {made.stdout.strip().splitlines()[-1]}")
    command = arguments(target) + [f"-max_total_time={seconds}", "-print_final_stats=1",
                                   f"-artifact_prefix={kept(target)}/", str(found), str(kept(target)), str(seeds)]
    begun = time.monotonic()
    state, said = {}, begun
    with log.open("w", encoding="utf-8", errors="replace") as lines, \
            subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE,
                             text=True, errors="replace", env=ENVIRONMENT) as process:
        for line in process.stderr:
            lines.write(line)
            if now := re.match(r"#(\d+)\s.*?cov: (\d+).*?corp: (\d+)", line):
                state.update(runs=int(now[1]), edges=int(now[2]), corpus=int(now[3]))
            if stat := re.match(r"stat::(\w+):\s+(\d+)", line):
                state[stat[1]] = int(stat[2])
            if state.get("runs") and time.monotonic() - said >= PROGRESS:
                said = time.monotonic()
                say(f"{target}: {said - begun:.0f} s, {state['runs']} runs, {state['edges']} edges reached, "
                    f"{state['corpus']} inputs")
    findings = sorted(set(inputs(kept(target))) - before)
    if made.returncode or process.returncode or findings:
        report = [line for line in log.read_text(encoding="utf-8", errors="replace").splitlines()
                  if not re.match(r'#\d+\s+(NEW|REDUCE|pulse|INITED)|\s*NEW_FUNC|INFO|"|#####', line)]
        say(f"--- {target} (exit {process.returncode})\n" + "\n".join(report[-80:]) +
            "".join(f"\nkept: {path.relative_to(ROOT)}" for path in findings))
    return {"target": target, "seconds": time.monotonic() - begun, "runs": state.get("number_of_executed_units", 0),
            "rate": state.get("average_exec_per_sec", 0), "edges": state.get("edges", 0),
            "corpus": state.get("corpus", 0), "new": state.get("new_units_added", 0), "findings": len(findings),
            "failed": bool(made.returncode or process.returncode or findings)}


def fuzz(seconds):
    rows = each(lambda target: fuzz_target(target, seconds))
    print(f"{'target':<14} {'seconds':>8} {'executions':>11} {'per second':>11} {'edges':>7} {'corpus':>7} "
          f"{'new':>6} {'findings':>9}")
    for row in rows:
        print(f"{row['target']:<14} {row['seconds']:>8.0f} {row['runs']:>11} {row['rate']:>11} {row['edges']:>7} "
              f"{row['corpus']:>7} {row['new']:>6} {row['findings']:>9}")
    failed = sum(row["failed"] for row in rows)
    print(f"{sum(row['runs'] for row in rows)} executions, {sum(row['findings'] for row in rows)} findings" +
          (f", {failed} targets failed" if failed else ""))
    return 1 if failed else 0


# --- The kept corpus ---

def minimize_target(target):
    """The kept and the found inputs, merged into the fewest that reach the same. Findings stay under their names."""
    with tempfile.TemporaryDirectory() as merged:
        # How often an edge is passed does not count here: that would be thousands of inputs.
        process = run(arguments(target) + ["-set_cover_merge=1", "-use_counters=0", merged, str(kept(target)),
                                           str(BUILD / "corpus" / target), str(BUILD / "seeds" / target)])
        if process.returncode:
            say(f"--- {target}\n{process.stdout[-4000:]}")
            return 1
        before = inputs(kept(target))
        findings = {path.read_bytes() for path in before if path.name.startswith(FINDINGS)}
        for path in before:
            if not path.name.startswith(FINDINGS):
                path.unlink()
        for path in inputs(Path(merged)):
            data = path.read_bytes()
            if data not in findings:
                (kept(target) / hashlib.sha1(data).hexdigest()).write_bytes(data)
    say(f"{target}: {len(before)} inputs before, {len(inputs(kept(target)))} now")
    return 0


def minimize():
    for target in TARGETS:
        for folder in ("corpus", "seeds"):
            (BUILD / folder / target).mkdir(parents=True, exist_ok=True)
    return max(each(minimize_target))


# --- Coverage ---

def tool(name):
    """LLVM's tools must be of the compiler's version."""
    version = re.search(r"version (\d+)", run(["clang", "--version"]).stdout)[1]
    for candidate in (f"{name}-{version}", f"/usr/lib/llvm-{version}/bin/{name}", name):
        if found := shutil.which(candidate):
            return found
    sys.exit(f"{name} of LLVM {version} is missing; install the package llvm-{version}")


def coverage():
    build = ROOT / "build-coverage"
    flags = "-fprofile-instr-generate -fcoverage-mapping"
    configure = ["cmake", "-S", str(ROOT), "-B", str(build), "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Debug",
                 "-DCMAKE_C_COMPILER=clang", "-DCMAKE_CXX_COMPILER=clang++", "-DCMAKE_C_COMPILER_LAUNCHER=ccache",
                 "-DCMAKE_CXX_COMPILER_LAUNCHER=ccache", "-DDTV_SANITIZE=address,undefined",
                 f"-DCMAKE_C_FLAGS={flags}", f"-DCMAKE_CXX_FLAGS={flags}"]
    for command in (configure, ["nice", "-n", "10", "ninja", "-C", str(build), *TARGETS]):
        process = run(command)
        if process.returncode:
            print(process.stdout[-6000:])
            return 1
    profiles = new_folder(build / "profiles")
    for target in TARGETS:
        # What fuzzing has found and is not kept counts as well, where there is such a folder.
        folders = [str(folder) for folder in (kept(target), BUILD / "corpus" / target) if inputs(folder)]
        process = run(arguments(target, build) + ["-runs=0", *folders],
                      env={**ENVIRONMENT, "LLVM_PROFILE_FILE": f"{profiles}/{target}.profraw"})
        print(f"{target}: {sum(len(inputs(Path(folder))) for folder in folders)} inputs")
        if process.returncode:
            print(process.stdout[-6000:])
            return 1
    merged = profiles / "all.profdata"
    process = run([tool("llvm-profdata"), "merge", "-o", str(merged), *map(str, profiles.glob("*.profraw"))])
    if process.returncode:
        print(process.stdout)
        return 1
    objects = [str(build / "bin" / TARGETS[0])]
    for target in TARGETS[1:]:
        objects += ["-object", str(build / "bin" / target)]
    for folder in ("src", "host", "tap"):
        report = run([tool("llvm-cov"), "report", *objects, f"-instr-profile={merged}", str(ROOT / folder)])
        rows = [re.split(r"\s{2,}|\s+(?=[\d-])", line.strip()) for line in report.stdout.splitlines()]
        rows = [row for row in rows if len(row) >= 13]
        if report.returncode or not rows:
            print(report.stdout[-3000:])
            return 1
        print()
        for row in [[folder + "/", *[""] * 6, *["lines", "missed", "reached", "branches", "missed", "reached"]]] + rows:
            if row[0] != "Filename":
                print(f"{row[0]:<32}" + "".join(f" {column:>9}" for column in row[7:13]))
    return 0


def main():
    wish = sys.argv[1] if len(sys.argv) == 2 else "60" if len(sys.argv) == 1 else ""
    commands = {"replay": replay, "minimize": minimize, "coverage": coverage}
    if wish in commands:
        return commands[wish]()
    if not re.fullmatch(r"[1-9][0-9]*", wish):
        sys.exit(__doc__)
    return fuzz(int(wish))


if __name__ == "__main__":
    sys.exit(main())
