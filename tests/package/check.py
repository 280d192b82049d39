#!/usr/bin/env python3
"""Installs a build into a temporary prefix and uses it from outside: the plugin by CMake's package and by pkg-config, and
the host with the virtual television, of which each language library is asked for a text.

usage: tests/package/check.py BUILD
"""

import json
import os
import re
import subprocess
import sys
import tempfile
import time
from pathlib import Path

HERE = Path(__file__).resolve().parent
EXPECTED = ('{"URI":"/tv/cast/volume/volume","STATUS":0,"ITEMS":[{"NAME":"Volume","TYPE":"TYPE_VALUE","GROUP":4,"STATE":1,'
            '"MINIMUM":0,"MAXIMUM":0,"INCREMENT":1,"VALUE":23}]}\n')
TEXTS = {"eng": "Settings", "deu": "Einstellungen", "fra": "Paramètres", "spa": "Ajustes", "tur": "Ayarlar"}


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


def by_host(prefix, work):
    """The menu's word for settings in every language, as the installed host answers."""
    command = [prefix / "bin/dtv-host", "--listen", "127.0.0.1:0", "--state", work / "state"]
    with subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True) as host:
        try:
            address = re.fullmatch(r"dtv-host: http://(.*)/(?:#token=\w+)?\n", host.stdout.readline())[1]
            ctl = lambda *words: run(prefix / "bin/dtvctl", "--state", work / "state", *words, env={**os.environ, "DTV_HOST": address})
            query = json.dumps({"REQUEST": "QUERY", "langId": "IDS_SETTINGS"})
            texts = {}
            for language, expected in TEXTS.items():
                ctl("tv", "config", "g_gui_lang__gui_language", language)
                deadline = time.monotonic() + 10  # the plugin hears of the change a moment later
                while texts.get(language) != expected and time.monotonic() < deadline:
                    answer = json.loads(ctl("--json", "get", "/tv/config/language_string", query))
                    texts[language] = answer["response"]["ITEMS"][0]["langString"]
            return texts
        finally:
            host.terminate()


def main():
    build = Path(sys.argv[1]).resolve()
    passed = failed = 0
    with tempfile.TemporaryDirectory() as folder:
        work = Path(folder)
        prefix = work / "prefix"
        run("cmake", "--install", build, "--prefix", prefix)
        for check, expected in ((by_cmake, EXPECTED), (by_pkg_config, EXPECTED), (by_host, TEXTS)):
            try:
                output = check(prefix, work)
                error = None if output == expected else f"expected {expected!r}, got {output!r}"
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
