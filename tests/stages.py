"""The stages of `make test` and `make check`: what they run, and which must have passed before."""

import os
import shutil
from pathlib import Path
from typing import NamedTuple

ROOT = Path(__file__).resolve().parent.parent
# The tests that run in every build, also by `make arm`. The others need the virtual television and the host.
PLUGIN_TESTS = ["base_test", "unit_test", "tap_test", "load_test", "race_test"]
DESK_TESTS = ["tv_test", "tv_library_test", "host_test"]
# A case mounts file systems, for which an ordinary user needs a user namespace. A process with several threads cannot
# enter one, and the emulator has threads of its own; so `unshare` enters it before the emulator starts.
EMULATOR = ["qemu-arm"] if os.geteuid() == 0 else ["unshare", "--user", "--map-root-user", "qemu-arm"]
# Programs whose tests mostly wait, and the number of processes among which each one's tests are divided.
SHARDS = {"tv_test": 4, "host_test": 4}
# Where unit tests make their files: in memory, since a disk that others use makes each sync slow. Tests of the disk
# replace it by one of their own; the system tests use the machine's.
MEMORY = {"TMPDIR": "/dev/shm"} if os.access("/dev/shm", os.W_OK) and shutil.disk_usage("/dev/shm").free > 256 << 20 else {}


class Stage(NamedTuple):
    name: str
    commands: list  # each a list of arguments, or (arguments, environment)
    after: tuple = ()  # stages that prepare this one; it is not run when one of them has failed
    cores: float = 1  # processor cores that its tests keep busy
    prepares: bool = False  # its commands are not tests, and a failed one ends the stage
    background: bool = False  # takes all cores, but only what the tests leave; one such stage runs at a time
    check: bool = False  # belongs to `make check`
    shown: bool = False  # its output is printed even when it passes


def script(path, *arguments):
    return ["python3", path, *map(str, arguments)]


def check(name, *arguments):
    return script(f"tests/check_{name}.py", *arguments)


def build(preset, jobs):
    return [["cmake", "--preset", preset],
            ["cmake", "--build", "--preset", preset, "--parallel", str(jobs), "--", "--quiet"]]


def node_modules(folder):
    return ["npm", "--prefix", folder, "ci", "--no-audit", "--no-fund", "--loglevel=error"]


def unit(folder, names, runner=()):
    return [([*runner, f"{folder}/bin/{name}", "--gtest_brief=1"], MEMORY) for name in names]


def conformance(folder, runner=()):
    return [*runner, f"{folder}/bin/conformance", "--require-coverage", "tests/conformance/cases"]


def library(folder, *more):
    """The checks of what was built, for the set or for the desk."""
    plugin = f"{folder}/lib/libdtv_js_plugin.so"
    return [check("symbols", plugin), check("hardening", plugin, f"{folder}/lib/libdtv_tap.so", *more)]


def system(folder):
    files = sorted(str(path.relative_to(ROOT)) for path in ROOT.glob("tests/system/*.test.mjs"))
    return (["node", "--test", "--test-reporter=tap", "--test-concurrency=2", *files], {"DTV_BUILD": str(ROOT / folder)})


def with_environment(commands, more):
    return [(c[0], {**c[1], **more}) if isinstance(c, tuple) else (c, more) for c in commands]


def sanitized(name, jobs, environment, system_environment=None):
    """The three stages of a sanitizer: the build, its test programs, its system tests, which may have an environment of
    their own."""
    folder, built = f"build-{name}", (f"{name}-build",)
    return [
        Stage(f"{name}-build", build(name, jobs), prepares=True, background=True),
        Stage(name, with_environment([*unit(folder, PLUGIN_TESTS + DESK_TESTS), conformance(folder)], environment),
              after=built),
        Stage(f"{name}-system", with_environment([system(folder)], system_environment or environment), after=(*built, "web", "packages")),
    ]


def stages(jobs, only_check, race_seconds):
    """The rows, in the order in which they begin where nothing keeps them from it."""
    race = {"DTV_RACE_SECONDS": str(race_seconds)}  # without it, a few seconds
    # A small quarantine: the runner forks for each case, and each child's memory is searched for leaks.
    asan = {"ASAN_OPTIONS": "detect_leaks=1:abort_on_error=0:quarantine_size_mb=16",
            "UBSAN_OPTIONS": "print_stacktrace=1", **race}
    # Debian's libraries are not instrumented; what they do between themselves is not looked at.
    # Tests that kill a set fork, and libraries' threads may be there then.
    tsan = {"TSAN_OPTIONS": "ignore_noninstrumented_modules=1 halt_on_error=0 exitcode=66 die_after_fork=0", **race}
    # The system tests start thousands of programs, each of which would sleep for a second at its end.
    tsan_system = {**tsan, "TSAN_OPTIONS": tsan["TSAN_OPTIONS"] + " atexit_sleep_ms=0"}
    return [
        Stage("build", build("release", jobs), prepares=True, background=True, check=True),
        Stage("rules", [check("run"), check("includes", "--selftest"), check("includes"), check("names", "--selftest"),
                        check("names"), check("symbols", "--selftest"),
                        check("hardening", "--selftest"), check("format", "--selftest"), check("format"),
                        check("docs", "--selftest"), check("tidy", "--selftest"),
                        script("tests/fuzz/faults.py", "--check"), script("bench/budgets.py", "--selftest")],
              check=True),
        Stage("web", [["make", "--silent", "web"]], prepares=True, background=True),
        Stage("packages", [node_modules("tests/system"), node_modules("tests/browser")], prepares=True, background=True),
        Stage("unit", unit("build", PLUGIN_TESTS + DESK_TESTS) +
              library("build", "build/lib/libdtv_tv.so", "build/lib/libdtv_upnp.so", "build/bin/dtv-host", "build/bin/dtvctl",
                      "build/bin/dtv-multiplexes"),
              after=("build",), check=True),
        Stage("multiplexes", [script("tests/broadcast/check_multiplexes.py", "build")], after=("build",), cores=2),
        Stage("conformance", [script("tests/conformance/selftest.py", "build/bin/conformance",
                                     "build/lib/libconformance_selftest_plugin.so"), conformance("build")],
              after=("build",), check=True),
        Stage("documents", [check("docs", "build")], after=("build",), check=True),
        Stage("page", [["npm", "--prefix", "web", "run", "--silent", "check"]], after=("web",)),
        Stage("install", [script("tests/package/check.py", "build")], after=("build", "web")),
        Stage("system", [system("build")], after=("build", "web", "packages")),
        Stage("browser", [(["npm", "--prefix", "tests/browser", "test", "--silent"],
                           {"DTV_BUILD": str(ROOT / "build")})], after=("build", "web", "packages")),
        Stage("arm-build", build("arm", jobs), prepares=True, background=True),
        *sanitized("asan", jobs, asan),
        Stage("fuzz-corpus", with_environment([script("tests/fuzz/run.py", "replay")], asan), after=("asan-build",)),
        *sanitized("tsan", jobs, tsan, tsan_system),
        Stage("arm", [*unit("build-arm", PLUGIN_TESTS, EMULATOR), conformance("build-arm", EMULATOR),
                      *library("build-arm")], after=("arm-build",)),
        Stage("budgets", [script("bench/budgets.py", "--build", "build", "--arm", "build-arm", "--check")],
              after=("build", "arm-build"), shown=True),
        Stage("tidy", [check("tidy", "build", "--jobs", jobs, *["--changed"] * only_check)], after=("build",),
              background=True, check=True),
    ]
