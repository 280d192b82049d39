"""How many tests a command ran and which of them failed, according to its test program's output."""

import re
from collections import Counter
from typing import NamedTuple


class Counts(NamedTuple):
    passed: int = 0
    failed: int = 0
    skipped: Counter = Counter()  # kind of test program -> tests

    def __add__(self, other):
        return Counts(self.passed + other.passed, self.failed + other.failed, self.skipped + other.skipped)

    def __str__(self):
        kinds = ", ".join(f"{kind} {tests}" for kind, tests in sorted(self.skipped.items()) if tests)
        return f"{self.passed} passed, {self.failed} failed, {self.skipped.total()} skipped" + (kinds and f" ({kinds})")


class Kind(NamedTuple):
    name: str
    begins: str  # where the text with the numbers begins
    passed: str  # the numbers that these capture from there on are added up
    failed: str
    skipped: str


KINDS = [Kind(name, *(re.compile(pattern, re.M) for pattern in patterns)) for name, *patterns in [
    ("ours", r"^(?:\d+ left out\b.*\n)?\d+ passed, \d+ failed",
     r"^(\d+) passed", r"^\d+ passed, (\d+) failed", r"^(?:(\d+) left out\b|\d+ passed, \d+ failed, (\d+) skipped)"),
    ("gtest", r"^\[==========\] \d+ tests? from .* ran\.",
     r"^\[  PASSED  \] (\d+) ", r"^ *(\d+) FAILED TESTS?$",
     r"^(?:\[  SKIPPED \] (\d+) |  YOU HAVE (\d+) DISABLED TEST)"),
    ("node --test", r"^# tests \d+$",
     r"^# pass (\d+)$", r"^# (?:fail|cancelled) (\d+)$", r"^# (?:skipped|todo) (\d+)$"),
    ("Playwright", r"^Running \d+ tests? using \d+ workers?$",
     r"^  (\d+) (?:passed|flaky)\b", r"^  (\d+) (?:failed|interrupted|did not run)$", r"^  (\d+) skipped$"),
]]


def count(output, exit_code):
    """The counts of one command. A command that prints none counts as one test, which passes when it exits with 0."""
    begun = [(begins.start(), kind) for kind in KINDS for begins in kind.begins.finditer(output)]
    if not begun:
        return Counts(passed=1) if exit_code == 0 else Counts(failed=1)
    start, kind = max(begun, key=lambda each: each[0])
    passed, failed, skipped = (sum(int(number) for match in pattern.finditer(output, start)
                                   for number in match.groups() if number) for pattern in kind[2:])
    # It may fail after its tests, for example by a leak, or where it ran none.
    failed = failed or int(exit_code != 0)
    return Counts(passed, failed, Counter({kind.name: skipped}))


# Lines that name a failed test or say why it failed; of some, the reason is on the line after them.
FAILURE = re.compile(r"^(?:FAIL |not so: |\[  FAILED  \] \w+[./]\w| *not ok | *error: | +\d+\) .* \u203a | *Error: |.*: Failure$)")
REASON_FOLLOWS = re.compile(r": Failure$|error: \|-$")
MOST_LINES = 12
MOST_CHARACTERS = 200  # of a line


def failures(output):
    """What a failed command's output says of its failures, in a few lines: its last lines when it names no test."""
    lines = [line.rstrip() for line in output.splitlines() if line.strip()]
    told = [line for before, line in zip(["", *lines], lines) if FAILURE.match(line) or REASON_FOLLOWS.search(before)]
    chosen = list(dict.fromkeys(told)) or lines[-MOST_LINES // 2:]
    more = [f"and {len(chosen) - MOST_LINES} lines more"] if len(chosen) > MOST_LINES else []
    return [line[:MOST_CHARACTERS] for line in chosen[:MOST_LINES]] + more
