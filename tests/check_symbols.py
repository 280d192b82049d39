#!/usr/bin/env python3
"""Checks what the plugin exports and imports.

usage: tests/check_symbols.py LIBRARY | --selftest

It exports exactly the functions that inc/*.h declares with TVC_EXPORT: the entry points, the core's functions and the
handlers' entry points. It imports only cJSON, the C and C++ runtime and functions of the TV API contract, and every one
of the latter. Works on libraries of any machine.
Ends with "N passed, N failed"; one symbol is one test.
"""

import re
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
# Versions that the C and C++ runtime gives its symbols, and the unversioned names that the compiler's start-up needs.
RUNTIME_VERSION = re.compile(r"@+(?:GLIBC|GLIBCXX|CXXABI|GCC)_[\w.]+$")
RUNTIME_NAMES = {"__gmon_start__", "_ITM_deregisterTMCloneTable", "_ITM_registerTMCloneTable"}


def without_comments(text):
    return re.sub(r"/\*.*?\*/|//[^\n]*|#[^\n]*", "", text, flags=re.S)


def contract_names(headers):
    return {name for text in headers
            for name in re.findall(r"\bTVAPI_FN\(\s*[\w ]+[\s*]*,\s*(\w+)", without_comments(text))}


def declared_names(headers):
    return {name for text in headers for name in re.findall(r"TVC_EXPORT[^;(]*?\b(\w+)\s*\(", without_comments(text))}


def symbols(nm_output):
    """(defined, undefined) names of `nm -D`."""
    defined, undefined = set(), set()
    for line in nm_output.splitlines():
        *_, kind, name = line.split()
        if kind in "Uwv":
            undefined.add(name)
        elif kind != "A":  # the version itself
            defined.add(name.split("@")[0])
    return defined, undefined


def check(nm_output, declared, contract):
    """(number of tests, violations)."""
    defined, undefined = symbols(nm_output)
    violations = [f"{name} is declared, but not exported" for name in sorted(declared - defined)]
    violations += [f"{name} is exported, but declared in no header" for name in sorted(defined - declared)]
    imported_contract = undefined & contract
    violations += [f"{name} of the contract is never called" for name in sorted(contract - imported_contract)]
    foreign = sorted(name for name in undefined - contract - RUNTIME_NAMES
                     if not RUNTIME_VERSION.search(name) and not name.startswith("cJSON_"))
    violations += [f"{name} is imported, but is neither cJSON, runtime nor contract" for name in foreign]
    return len(declared | defined) + len(undefined | contract), violations


def selftest():
    good = ("0001 T a_dtv_jsp_get@@DTV\n0002 T tv_ctrl_get@@DTV\n0000 A DTV@@DTV\n     U cJSON_Delete\n"
            "     U free@GLIBC_2.2.5\n     U _ZSt4cout@GLIBCXX_3.4\n     w __gmon_start__\n     U a_vextvapi_x\n")
    declared = declared_names(["TVC_EXPORT int32_t a_dtv_jsp_get(const char* uri);\n"
                               "/* TVC_EXPORT int a_dtv_jsp_no(void); */",
                               "TVC_EXPORT INT32\ntv_ctrl_get(UINT16 id, void* content);"])
    contract = contract_names(["#define TVAPI_FN(...) x\n * TVAPI_FN(INT32, real)\nTVAPI_FN(INT32, a_vextvapi_x, IN(A, b))"
                               .replace(" * TVAPI_FN(INT32, real)", "/* TVAPI_FN(INT32, a_comment) */")])
    cases = [(good, None),
             (good.replace("tv_ctrl_get@", "tv_ctrl_got@"), "tv_ctrl_get is declared, but not exported"),
             (good + "0003 T tvc_log@@DTV\n", "tvc_log is exported, but declared in no header"),
             (good + "0003 T a_dtv_jsp_more@@DTV\n", "a_dtv_jsp_more is exported, but declared in no header"),
             (good + "0003 u _ZN1xE@@DTV\n", "_ZN1xE is exported, but declared in no header"),
             (good.replace("     U a_vextvapi_x\n", ""), "a_vextvapi_x of the contract is never called"),
             (good + "     U a_vextvapi_y\n", "a_vextvapi_y is imported"),
             (good + "     U sqlite3_open\n", "sqlite3_open is imported")]
    failed = 0
    for nm_output, expected in cases:
        _, found = check(nm_output, declared, contract)
        as_expected = not found if expected is None else any(v.startswith(expected) for v in found)
        failed += not as_expected
        if not as_expected:
            print(f"expected {expected or 'no violation'}, found {found}")
    return len(cases) - failed, failed


def main():
    if len(sys.argv) != 2:
        print(__doc__)
        return 2
    if sys.argv[1] == "--selftest":
        passed, failed = selftest()
    else:
        nm_output = subprocess.run(["nm", "-D", sys.argv[1]], check=True, capture_output=True, text=True).stdout
        tests, violations = check(nm_output, declared_names(h.read_text() for h in (ROOT / "inc").glob("*.h")),
                                  contract_names(h.read_text() for h in (ROOT / "inc/tvapi").glob("*.h")))
        print("".join(f"{text}\n" for text in violations), end="")
        passed, failed = tests - len(violations), len(violations)
    print(f"{passed} passed, {failed} failed")
    return 1 if failed or not passed else 0


if __name__ == "__main__":
    sys.exit(main())
