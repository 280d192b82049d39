#!/usr/bin/env python3
"""Installs a build into a temporary prefix and uses it from outside, by CMake's package and by pkg-config: the plugin with
the tap, the plugin in a process that defines the TV API itself, and the installed example, which links the plugin, the tap
and the virtual television. Then runs the installed host, and asks each language library for a text.

usage: tests/package/check.py BUILD
"""

import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import time
from pathlib import Path

HERE = Path(__file__).resolve().parent
EXPECTED = ('{"URI":"/tv/cast/volume/volume","STATUS":0,"ITEMS":[{"NAME":"Volume","TYPE":"TYPE_VALUE","GROUP":4,"STATE":1,'
            '"MINIMUM":0,"MAXIMUM":0,"INCREMENT":1,"VALUE":23}]}\n')
NOTIFICATION = '{"URI":"/tv/ws/notify/volume_ctrl","REQUEST":"NOTIFY","ITEMS":[{"volValue":23,"muteStatus":0}]}\n'
TEXTS = {"eng": "Settings", "deu": "Einstellungen", "fra": "Paramètres", "spa": "Ajustes", "tur": "Ayarlar"}


def run(*command, **options):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, **options).stdout


def only_installed(prefix):
    """An environment in which pkg-config finds nothing but what the prefix has: no libcjson.pc, for example."""
    [folder] = prefix.rglob("pkgconfig")
    return {**os.environ, "PKG_CONFIG_LIBDIR": str(folder), "PKG_CONFIG_PATH": "",
            "LD_LIBRARY_PATH": str(folder.parent)}


def built_by_cmake(prefix, source, work):
    """Configures and builds the project in a folder; returns the folder of its programs."""
    run("cmake", "-S", source, "-B", work, "-G", "Ninja", f"-DCMAKE_PREFIX_PATH={prefix}", env=only_installed(prefix))
    run("cmake", "--build", work)
    return work


def output_by_pkg_config(prefix, work, compiler, source, *libraries):
    """Compiles a program with the flags of these libraries, and runs it."""
    environment = only_installed(prefix)
    flags = run("pkg-config", "--cflags", "--libs", *libraries, env=environment).split()
    program = work / Path(source).stem
    run(*compiler, HERE / source, "-o", program, *flags)
    return run(program, env=environment)


def user_by_cmake(prefix, work):
    return run(built_by_cmake(prefix, HERE, work / "cmake") / "user")


def user_by_pkg_config(prefix, work):
    return output_by_pkg_config(prefix, work, ["cc"], "user.c", "dtv_js_plugin", "dtv_tap")


def own_platform_by_cmake(prefix, work):
    return run(built_by_cmake(prefix, HERE, work / "cmake") / "own_platform")


def own_platform_by_pkg_config(prefix, work):
    return output_by_pkg_config(prefix, work, ["c++", "-std=c++20"], "own_platform.cpp", "dtv_js_plugin")


def example(prefix):
    return prefix / "share/dtv_js_plugin/examples"


def output_of_example(prefix, program, work):
    """What the example prints on standard output, about a television that was never on before."""
    with tempfile.TemporaryDirectory(dir=work) as state:
        return subprocess.run([program, state, "23"], check=True, stdout=subprocess.PIPE, text=True,
                              env=only_installed(prefix)).stdout


def example_by_cmake(prefix, work):
    return output_of_example(prefix, built_by_cmake(prefix, example(prefix), work / "example_cmake") / "own_host", work)


def example_by_pkg_config(prefix, work):
    """Compiles it by the command in its first comment."""
    folder = work / "example"
    shutil.copytree(example(prefix), folder)
    [command] = re.findall(r"^ \*   (cc .*)$", (folder / "own_host.c").read_text(encoding="utf-8"), re.M)
    run("sh", "-c", command, cwd=folder, env=only_installed(prefix))
    return output_of_example(prefix, folder / "own_host", work)


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


def multiplexes(prefix, _):
    return run(prefix / "bin/dtv-multiplexes", "--help").splitlines()[0]


CHECKS = [
    (user_by_cmake, EXPECTED), (user_by_pkg_config, EXPECTED),
    (own_platform_by_cmake, EXPECTED), (own_platform_by_pkg_config, EXPECTED),
    (example_by_cmake, NOTIFICATION + EXPECTED), (example_by_pkg_config, NOTIFICATION + EXPECTED),
    (by_host, TEXTS), (multiplexes, "Usage: dtv-multiplexes FOLDER [OPTIONS]"),
]


def main():
    build = Path(sys.argv[1]).resolve()
    passed = failed = 0
    with tempfile.TemporaryDirectory() as folder:
        work = Path(folder)
        prefix = work / "prefix"
        run("cmake", "--install", build, "--prefix", prefix)
        for check, expected in CHECKS:
            try:
                output = check(prefix, work)
                error = None if output == expected else f"expected {expected!r}, got {output!r}"
            except subprocess.CalledProcessError as failure:
                error = f"{failure}\n{failure.output}"
            except (OSError, ValueError) as failure:  # a file that is not installed
                error = str(failure)
            if error:
                failed += 1
                print(f"{check.__name__}: {error}")
            else:
                passed += 1
    print(f"{passed} passed, {failed} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
