#!/usr/bin/env python3
"""Checks which files include which.

usage: tests/check_includes.py [--selftest]

Prints each violation with the rule that it breaks and ends with "N passed, N failed"; one file is one test.
--selftest checks the check: made-up trees, each with one violation or none.
"""

import re
import sys
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
SOURCES = {".cpp", ".cc", ".c", ".h", ".hpp"}
INCLUDE = re.compile(r'^[ \t]*#[ \t]*include[ \t]*(?:"(?P<quoted>[^"]+)"|<(?P<angled>[^>]+)>)', re.M)

# The rule of each folder; of several, that of the longest prefix counts. `sees`: folders or files that may be included
# beside the file's own folder; an entry that ends with "/" is a folder. `why` is the rule in words.
API, MAIN, HANDLERS, UTIL = "src/tv_ctrl_api/", "src/tv_ctrl_main/", "src/tvctl_common/", "src/tv_ctrl_util/"
CONTRACT, CONTRACT_TYPES = "inc/tvapi/", "inc/tvapi/types.h"
# What every layer of the plugin may see of inc/: everything but the platform's functions.
SHARED = ["inc/", "!" + CONTRACT, CONTRACT_TYPES]
RULES = {
    "inc/": (["inc/"], "a public header includes public headers only"),
    "src/": (SHARED, "a file of the plugin is in one of its layers"),
    API: ([MAIN, UTIL, *SHARED],
          "tv_ctrl_api sees tv_ctrl_main, tv_ctrl_util and inc/, but not the handlers or the platform's functions"),
    MAIN: ([HANDLERS, UTIL, "inc/"], "tv_ctrl_main sees the handlers, tv_ctrl_util and inc/, but not tv_ctrl_api"),
    HANDLERS: ([UTIL, "inc/"], "handlers see tv_ctrl_util and inc/, and reach back only through inc/tv_ctrl_main.h"),
    UTIL: (SHARED, "tv_ctrl_util includes nothing else of src/ and no platform function"),
    "base/": ([], "the shared text functions know nothing else of the project"),
    "tap/": (["inc/", "base/"], "the tap sees only inc/ and base/"),
    "tv/": (["inc/", "base/", "tests/unit/tv/"],
            "the virtual television sees only inc/ and base/, its tests also what tests/unit/tv/ shares"),
    "i18n/": ([], "a language library sees only its catalogue"),
    "sandbox/": ([], "the private view of the machine's files knows nothing else of the project"),
    "record/": (["inc/", "base/"], "records see only inc/ and base/"),
    "host/": (["inc/", "base/", "sandbox/", "record/"], "the host sees only inc/, base/, sandbox/ and record/"),
    "cli/": (["inc/", "base/", "record/", "host/stack.h", "host/private_paths.h", "host/calls.h", "host/catalogue.h",
              "host/log_capture.h", "host/rpc.h", "host/tracer.h", "host/nearest.h", "host/json_text.h"],
             "the command line sees only inc/, base/, record/, what --local takes of host/, and the host's two text helpers"),
}
TOP_FOLDERS = ["src", "inc", ".", "base", "tap", "tv", "i18n", "sandbox", "record", "host", "cli", "bench", "tests"]


def matches(path, entry):
    return path.startswith(entry) if entry.endswith("/") else path == entry


def allowed(path, own_folder, sees):
    """The most specific entry decides; one that begins with "!" forbids."""
    entries = sees if own_folder == "src/" else [own_folder] + sees
    fitting = [e for e in entries if matches(path, e.lstrip("!"))]
    return bool(fitting) and not max(fitting, key=lambda e: len(e.lstrip("!"))).startswith("!")


def rule_of(path):
    folders = [folder for folder in RULES if path.startswith(folder)]
    return max(folders, key=len) if folders else None


def resolve(root, file, name):
    """The path, relative to the root, of the project's file that an include names; None when it is none of ours."""
    for folder in [file.parent] + [root / top for top in TOP_FOLDERS]:
        candidate = (folder / name).resolve()
        if candidate.is_file() and candidate.is_relative_to(root):
            return candidate.relative_to(root).as_posix()
    return None


def without_comments(text):
    return re.sub(r"/\*.*?\*/|//[^\n]*", lambda m: "\n" * m[0].count("\n"), text, flags=re.S)


def check_file(root, file):
    """The violations of one file, as texts."""
    path = file.relative_to(root).as_posix()
    own_folder = rule_of(path)
    sees, why = RULES[own_folder]
    text = file.read_text(encoding="utf-8")
    violations = []
    for include in INCLUDE.finditer(without_comments(text)):
        name = include["quoted"] or include["angled"]
        target = resolve(root, file, name)
        line = without_comments(text).count("\n", 0, include.start()) + 1
        if target is None:
            if include["quoted"]:
                violations.append(f'{path}:{line}: "{name}" is no file of the project (others are included with <>)')
        elif not allowed(target, own_folder, sees):
            violations.append(f"{path}:{line}: includes {target}; rule: {why}")
    return violations


def check_tree(root):
    """(number of files, violations by file)."""
    root = root.resolve()
    files = sorted(f for folder in {rule.split("/")[0] for rule in RULES} for f in (root / folder).rglob("*")
                   if f.is_file() and f.suffix in SOURCES and "node_modules" not in f.parts)
    return len(files), [violations for f in files if (violations := check_file(root, f))]


# What the self-test writes into an empty tree; each case adds one file to it.
BASE = {
    "inc/dtv_js_plugin.h": "", "inc/tv_ctrl_main.h": '#include "dtv_js_plugin.h"\n', "inc/tvapi/types.h": "",
    "inc/tvapi/volctrl.h": '#include "tvapi/types.h"\n', "inc/vex_tv_ctrl/uris.def": "",
    "src/tv_ctrl_api/entry.h": '#include "tv_ctrl_main/registry.h"\n', "src/tv_ctrl_main/registry.h": "",
    "src/tvctl_common/tvc_volctrl.h": "", "src/tv_ctrl_util/log.h": '#include "tv_ctrl_main.h"\n',
    "host/stack.h": '#include "dtv_js_plugin.h"\n', "host/rpc.h": "", "host/server.h": "", "tap/state.h": "", "tv/core/tv.h": "", "cli/dtvctl.h": "",
    "i18n/catalogue.def": "", "sandbox/sandbox.h": "",
}
# (file, text, the rule broken, or None)
CASES = [
    ("src/tv_ctrl_api/a.cpp", '#include "tv_ctrl_api/entry.h"\n#include "tv_ctrl_util/log.h"\n#include <vector>\n', None),
    ("src/tv_ctrl_api/a.cpp", '#include "tvapi/types.h"\n#include "vex_tv_ctrl/uris.def"\n', None),
    ("src/tv_ctrl_api/a.cpp", '#include "tvctl_common/tvc_volctrl.h"\n', "tv_ctrl_api sees"),
    ("src/tv_ctrl_api/a.cpp", '#include "tvapi/volctrl.h"\n', "tv_ctrl_api sees"),
    ("src/tv_ctrl_api/items/a.cpp", '#include "../../tvctl_common/tvc_volctrl.h"\n', "tv_ctrl_api sees"),
    ("src/tv_ctrl_main/a.cpp", '#include "tvctl_common/tvc_volctrl.h"\n#include "tvapi/volctrl.h"\n', None),
    ("src/tv_ctrl_main/a.cpp", '#include "tv_ctrl_api/entry.h"\n', "tv_ctrl_main sees"),
    ("src/tvctl_common/a.cpp", '#include "tv_ctrl_main.h"\n#include "tvapi/volctrl.h"\n#include "tv_ctrl_util/log.h"\n',
     None),
    ("src/tvctl_common/a.cpp", '#include "tv_ctrl_main/registry.h"\n', "handlers see"),
    ("src/tvctl_common/a.cpp", '  #  include <tv_ctrl_api/entry.h>\n', "handlers see"),
    ("src/tv_ctrl_util/a.cpp", '#include "tv_ctrl_util/log.h"\n', None),
    ("src/tv_ctrl_util/a.cpp", '#include "tv_ctrl_main/registry.h"\n', "tv_ctrl_util includes"),
    ("src/tv_ctrl_util/a.cpp", '#include "tvapi/volctrl.h"\n', "tv_ctrl_util includes"),
    ("src/a.cpp", '#include "tv_ctrl_api/entry.h"\n', "one of its layers"),
    *[(f"src/{layer}/a.cpp", f'#include "{foreign}"\n', "sees" if layer != "tv_ctrl_util" else "tv_ctrl_util includes")
      for layer in ("tv_ctrl_api", "tv_ctrl_main", "tv_ctrl_util") for foreign in ("tv/core/tv.h", "tap/state.h", "host/stack.h")],
    ("inc/a.h", '#include "tv_ctrl_util/log.h"\n', "public header"),
    ("tap/a.cpp", '#include "tap/state.h"\n#include "tvapi/volctrl.h"\n', None),
    ("tap/a.cpp", '#include "tv_ctrl_util/log.h"\n', "the tap sees"),
    ("tv/a.cpp", '#include "tap/state.h"\n', "virtual television sees"),
    ("host/a.cpp", '#include "rpc.h"\n#include "stack.h"\n#include "dtv_js_plugin.h"\n', None),
    ("host/a.cpp", '#include "sandbox/sandbox.h"\n', None),
    ("host/a.cpp", '#include "tv/core/tv.h"\n', "the host sees"),
    ("cli/a.cpp", '#include "sandbox/sandbox.h"\n', "the command line sees"),
    ("tv/a.cpp", '#include "sandbox/sandbox.h"\n', "virtual television sees"),
    ("sandbox/a.cpp", '#include "sandbox/sandbox.h"\n', None),
    ("sandbox/a.cpp", '#include "dtv_js_plugin.h"\n', "knows nothing else"),
    ("i18n/a.cpp", '#include "catalogue.def"\n', None),
    ("i18n/a.cpp", '#include "dtv_js_plugin.h"\n', "a language library sees"),
    ("host/a.cpp", '#include "../src/tv_ctrl_main/registry.h"\n', "the host sees"),
    ("cli/a.cpp", '#include "stack.h"\n#include "dtvctl.h"\n', None),
    ("cli/a.cpp", '#include "host/server.h"\n', "the command line sees"),
    ("cli/a.cpp", '// #include "host/server.h"\n/*\n#include "host/server.h"\n*/\n', None),
    ("host/a.cpp", '#include "nowhere.h"\n', "no file of the project"),
]


def selftest():
    passed = failed = 0
    for name, text, rule in [("inc/extra.h", "", None)] + CASES:
        with tempfile.TemporaryDirectory() as folder:
            root = Path(folder)
            for path, content in {**BASE, name: text}.items():
                (root / path).parent.mkdir(parents=True, exist_ok=True)
                (root / path).write_text(content, encoding="utf-8")
            found = [v for violations in check_tree(root)[1] for v in violations]
        as_expected = not found if rule is None else len(found) == 1 and found[0].startswith(name) and rule in found[0]
        passed += as_expected
        failed += not as_expected
        if not as_expected:
            print(f"{name} with {text[:80]!r}: expected {rule or 'no violation'}, found {found}")
    return passed, failed


def main():
    if sys.argv[1:] == ["--selftest"]:
        passed, failed = selftest()
    elif sys.argv[1:]:
        print(__doc__)
        return 2
    else:
        files, violations = check_tree(ROOT)
        print("".join(f"{text}\n" for of_file in violations for text in of_file), end="")
        passed, failed = files - len(violations), len(violations)
    print(f"{passed} passed, {failed} failed")
    return 1 if failed or not passed else 0


if __name__ == "__main__":
    sys.exit(main())
