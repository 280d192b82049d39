#!/usr/bin/env python3
"""Installs a build into a temporary prefix and uses it from outside, by CMake's package and by pkg-config.

usage: tests/package/check.py BUILD
"""

import os
import subprocess
import sys
import tempfile
from pathlib import Path

HERE = Path(__file__).resolve().parent
EXPECTED = ('{"URI":"/tv/cast/volume/volume","STATUS":0,"ITEMS":[{"NAME":"Volume","TYPE":"TYPE_VALUE","GROUP":4,"STATE":1,'
            '"MINIMUM":0,"MAXIMUM":0,"INCREMENT":1,"VALUE":23}]}\n')


def run(*command, **options):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, **options).stdout


def by_cmake(prefix, work):
    run("cmake", "-S", HERE, "-B", work / "cmake", "-G", "Ninja", f"-DCMAKE_PREFIX_PATH={prefix}")
    run("cmake", "--build", work / "cmake")
    return run(work / "cmake" / "user")


def by_pkg_config(prefix, work):
    [pc] = prefix.rglob("dtv_js_plugin.pc")
    environment = {**os.environ, "PKG_CONFIG_PATH": str(pc.parent)}
    flags = run("pkg-config", "--cflags", "--libs", "dtv_js_plugin", env=environment).split()
    run("cc", HERE / "user.c", "-o", work / "user", *flags, "-ldtv_tap")
    return run(work / "user", env={**os.environ, "LD_LIBRARY_PATH": str(pc.parent.parent)})


def main():
    build = Path(sys.argv[1]).resolve()
    passed = failed = 0
    with tempfile.TemporaryDirectory() as folder:
        work = Path(folder)
        prefix = work / "prefix"
        run("cmake", "--install", build, "--prefix", prefix)
        for check in (by_cmake, by_pkg_config):
            try:
                output = check(prefix, work)
                error = None if output == EXPECTED else f"expected {EXPECTED!r}, got {output!r}"
            except subprocess.CalledProcessError as failure:
                error = f"{failure}\n{failure.output}"
            if error:
                failed += 1
                print(f"{check.__name__}: {error}")
            else:
                passed += 1
    print(f"{passed} passed, {failed} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
