#!/usr/bin/env python3
"""Shows that the fuzzers find faults: puts some in, one after the other, into a copy of the project.

usage: tests/fuzz/faults.py [--seconds N] [NAME...] | --check

Tells for each fault whether the kept inputs find it, and after how many seconds and executions the fuzzer finds it
with the seeds alone. Ends with "N passed, N failed"; a fault that the fuzzer does not find in time has failed. The
copy is in build-faults; the project itself stays as it is.
--check only looks whether the faults still fit the sources.
"""

import argparse
import os
import re
import shutil
import signal
import subprocess
import sys
import time
from pathlib import Path

from run import OPTIONS

ROOT = Path(__file__).resolve().parent.parent.parent
COPY = ROOT / "build-faults" / "project"
BUILD = ROOT / "build-faults" / "build"

HANDLER = "src/tvctl_common/tvc_volctrl.cpp"
PLAYBACK = "src/tvctl_common/cbrowser_playback.cpp"
CONTRACT = "inc/tvapi/volctrl.h"
CONTRACT_END = '#include "tvapi/end.h"'
GET_VOLUME = "  tvc_fill_value_header(request, TV_CTRL_GRPID_VOLUME).value = a_vextvapi_volctrl_getVolume();\n"

DOES_NOT_COMPILE = "the compiler"

# Name, target, and what is replaced: (file, old, new), each old text once in its file.
FAULTS = [
    ("a text that fills its array is read on", "fuzz_notify",
     [("src/tv_ctrl_util/json_writer.cpp", "strnlen(text, size)", "size ? strlen(text) : 0")]),
    ("an escape is written where there is no room for it", "fuzz_notify",
     [("src/tv_ctrl_util/json_writer.cpp", "has_room(json, kLongest + left + 1)",
       "has_room(json, 0 * kLongest + left + 1)")]),
    ("a copied text ends one byte too late", "fuzz_request",
     [("src/tv_ctrl_util/text.h", "strnlen(text, size - 1)", "strnlen(text, size)")]),
    ("an overlong URI indexes beyond the table", "fuzz_request",
     [("src/tv_ctrl_main/registry.cpp", "strnlen(uri, kLengths);\n  if (length < kLengths)",
       "strlen(uri);\n  if (length < 2 * kLengths)")]),
    ("a text is written into an entry that nothing keeps", "fuzz_notify",
     [("src/tv_ctrl_api/notify.cpp",
       "  const std::lock_guard guard(t_nfy_rw_lock);\n  TV_CTRL_NOTIFY_BUFFER_T* const entry = _jsp_get_uri_from_slist(uri);",
       "  TV_CTRL_NOTIFY_BUFFER_T* const entry = [uri] {\n    const std::lock_guard guard(t_nfy_rw_lock);\n"
       "    return _jsp_get_uri_from_slist(uri);\n  }();")]),
    ("an event with a null address is lost", "fuzz_notify",
     [("src/tv_ctrl_api/items/text_address.h", "if (!text) {", "if (!text && log.operation[0] == '?') {")]),
    ("a fetch copies more than the buffer takes", "fuzz_notify",
     [("src/tv_ctrl_api/listener.cpp", "std::min(entry->buffer.length, static_cast<std::size_t>(buffer_len))",
       "entry->buffer.length")]),
    ("what a full queue held is not freed", "fuzz_notify",
     [("src/tv_ctrl_api/notify.cpp", "free(std::exchange(pending.text, nullptr));", "pending.text = nullptr;")]),
    ("a number that no integer holds is converted", "fuzz_request",
     [("src/tv_ctrl_api/request.cpp", "tvc_double_to<INT64>(value->valuedouble)",
       "static_cast<INT64>(value->valuedouble)")]),
    ("a lock is held while the platform is called", "fuzz_request",
     [("src/tv_ctrl_api/entry.cpp", "const INT32 ret = tv_ctrl_get(target.id, _pt_content);",
       "mutex_send.lock();\n  const INT32 ret = tv_ctrl_get(target.id, _pt_content);\n  mutex_send.unlock();")]),
    ("a number is read as an address", "fuzz_request",
     [("src/tv_ctrl_api/items/playback.cpp", "if (notify.type != PLAYER_EVENT_THUMBNAIL)",
       "if (notify.type != PLAYER_EVENT_THUMBNAIL && notify.arg1 < 4096)")]),
    ("a thumbnail's block has no room for its end", "fuzz_request",
     [(PLAYBACK, "calloc(1, PLAYER_THUMBNAIL_SIZE + 1)", "calloc(1, PLAYER_THUMBNAIL_SIZE)")]),
    ("a thumbnail that failed is not freed", "fuzz_request",
     [(PLAYBACK, "  return a_vextvapi_cb_pb_get_thumbnail(player, info.getthumbnailasyncbuffer);\n",
       "  const INT32 ret = a_vextvapi_cb_pb_get_thumbnail(player, info.getthumbnailasyncbuffer);\n"
       "  if (ret < 0) info.getthumbnailasyncbuffer = nullptr;\n  return ret;\n")]),
    ("a list's count is not clamped", "fuzz_request",
     [("src/tvctl_common/tvc_cbrowser.cpp", "INT32 count = std::clamp<INT32>(library.count, 0, CBROWSER_LIST_MAX);",
       "INT32 count = library.count;")]),
    # A function that the contract did not have: the fuzzer must know it from its statement alone.
    ("a new function's text is taken to be terminated", "fuzz_request",
     [(CONTRACT, CONTRACT_END, "TVAPI_FN(INT32, a_vextvapi_volctrl_getName, OUT_TEXT(name, 32))\n\n" + CONTRACT_END),
      (HANDLER, GET_VOLUME, GET_VOLUME + "  char name[32] = {};\n  a_vextvapi_volctrl_getName(name);\n"
       "  tvc_content<T_VALUE>(request).size = static_cast<int>(__builtin_strlen(name));\n")]),
    ("a new function's count is not clamped", "fuzz_request",
     [(CONTRACT, CONTRACT_END, "TVAPI_FN(INT32, a_vextvapi_volctrl_getSteps, OUT_ARRAY(INT32, steps, count), "
       "INOUT(INT32, count))\n\n" + CONTRACT_END),
      (HANDLER, GET_VOLUME, GET_VOLUME + "  INT32 steps[8] = {};\n  INT32 count = 8;\n"
       "  a_vextvapi_volctrl_getSteps(steps, &count);\n"
       "  for (INT32 i = 0; i < count; ++i) tvc_content<T_VALUE>(request).increment = steps[i];\n")]),
    # What the fuzzer would have to guess at must not compile.
    ("a new kind of parameter has no rule", DOES_NOT_COMPILE,
     [("inc/tvapi/contract.h", "#define TVAPI_KIND_TAG(",
       "#define TVAPI_KIND_PAIR(type, name) (pair, out, type*, name, type, 2)\n#define TVAPI_KIND_TAG("),
      (CONTRACT, CONTRACT_END, "TVAPI_FN(INT32, a_vextvapi_volctrl_getPair, PAIR(INT32, pair))\n\n" + CONTRACT_END)]),
    ("a new record is not described", DOES_NOT_COMPILE,
     [("inc/tvapi/types.h", "typedef int8_t INT8;", "typedef int8_t INT8;\ntypedef struct { int8_t a; } PAIR_T;"),
      (CONTRACT, CONTRACT_END, "TVAPI_FN(INT32, a_vextvapi_volctrl_getPair, OUT(PAIR_T, pair))\n\n" + CONTRACT_END)]),
    ("the platform terminates every text", "fuzz_platform_check",
     [("tests/fuzz/bytes.h", "if (form == 3) ret_text", "ret_text")]),
    ("the platform keeps to its arrays", "fuzz_platform_check",
     [("tests/fuzz/check_platform.cpp", "INT32 count = room;\n    demo_list(points.get(), &count);",
       "INT32 count = room;\n    demo_list(points.get(), &count);\n    if (count > room) count = room;")]),
    ("the platform forgets to drop a callback", "fuzz_platform_check",
     [("tests/fuzz/platform.cpp", "      list.clear();\n", "")]),
    ("a file beside the pages is served", "fuzz_host",
     [("host/page_files.cpp", "return std::ranges::mismatch(root, file).in1 == root.end() ? file : fs::path();",
       "return file;")]),
    ("a control character is not escaped", "fuzz_host",
     [("host/json_text.cpp", "static_cast<unsigned char>(c) < 0x20)", "static_cast<unsigned char>(c) < 0x1F)")]),
    ("a Host of another site is let in", "fuzz_host",
     [("host/policy.cpp", "if (name == lower(policy.address)) return true;",
       "if (name.starts_with(lower(policy.address))) return true;")]),
    ("Content-Length may stand twice", "fuzz_wire",
     [("host/http_wire.cpp", "if (lengths > 1) return", "if (lengths > 9) return")]),
    ("a folded header is joined", "fuzz_wire",
     [("host/http_wire.cpp", "if (window[i + 2] == ' ' || window[i + 2] == '\\t') {", "if (window[i + 2] == '\\t') {")]),
    ("requests behind a refused one are carried out", "fuzz_wire",
     [("host/reading.cpp", "  client.request.keeps_alive = false;\n", "")]),
    ("replies follow a close frame", "fuzz_wire",
     [("host/connection.cpp", "  if (!ws_is_open(*line.stream)) return false;  // nothing follows a close frame\n", "")]),
    ("what was read is read again", "fuzz_wire",
     [("host/connection.cpp", "    line.input.erase(0, line.input.size() - window.size());\n", "    {}\n")]),
    ("a deadline does not come", "fuzz_wire",
     [("host/reading.cpp", "line.read_due = line.since + time_for(server.options.limits, phase);",
       "line.read_due = line.since + 1000 * time_for(server.options.limits, phase);")]),
    ("a client that is gone stays subscribed", "fuzz_wire",
     [("host/connection.cpp",
       "  for (const char* uri : client.uris) subscriptions_remove(server.subscriptions, uri, id);\n", "")]),
    ("a batch's reply is put in another's place", "fuzz_wire",
     [("host/messages.cpp", "batch.replies[slot] = std::move(text);",
       "batch.replies[slot / 2] = std::move(text);")]),
]


def run(command, **more):
    return subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          errors="replace", check=False, **more)


def copy_project():
    """The files of the working tree as they are now. What has not changed keeps its time, for the build's sake."""
    names = run(["git", "-C", str(ROOT), "ls-files", "--cached", "--others", "--exclude-standard"]).stdout.splitlines()
    for name in names:
        source, target = ROOT / name, COPY / name
        if not source.is_file():
            continue
        if not target.is_file() or source.read_bytes() != target.read_bytes():
            target.parent.mkdir(parents=True, exist_ok=True)
            shutil.copyfile(source, target)
    if not (BUILD / "build.ninja").is_file():
        made = run(["cmake", "-S", str(COPY), "-B", str(BUILD), "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Debug",
                    "-DCMAKE_C_COMPILER=clang", "-DCMAKE_CXX_COMPILER=clang++", "-DCMAKE_C_COMPILER_LAUNCHER=ccache",
                    "-DCMAKE_CXX_COMPILER_LAUNCHER=ccache", "-DDTV_SANITIZE=address,undefined"])
        if made.returncode:
            sys.exit(made.stdout)


def misfit(root, edits):
    """Why the edits cannot be made, or an empty text. An edit may change what an earlier one put there."""
    texts = {}
    for name, old, new in edits:
        text = texts.get(name) or (root / name).read_text(encoding="utf-8")
        if text.count(old) != 1:
            return f"{name} has {text.count(old)} times {old!r}"
        texts[name] = text.replace(old, new)
    return ""


def put_in(edits):
    if wrong := misfit(COPY, edits):
        return wrong
    for name, old, new in edits:
        text = (COPY / name).read_text(encoding="utf-8")
        (COPY / name).write_text(text.replace(old, new), encoding="utf-8")
    return ""


def check():
    wrong = [f"{name}: {fault}" for name, _, edits in FAULTS if (fault := misfit(ROOT, edits))]
    print("".join(f"{line}\n" for line in wrong), end="")
    print(f"{len(FAULTS) - len(wrong)} passed, {len(wrong)} failed")
    return 1 if wrong else 0


def take_out(edits):
    for name, _, _ in edits:
        shutil.copyfile(ROOT / name, COPY / name)


def finding(output):
    found = re.search(r"does not hold: .*|runtime error: .*|SUMMARY: (?:AddressSanitizer: )?[^/\n]*|"
                      r"ERROR: libFuzzer: \w+", output)
    return found[0].removeprefix("SUMMARY: ").strip()[:70] if found else "?"


def look_for(target, seconds):
    """Returns ((whether the kept inputs find the fault, row), ""), or (None, output) when the build fails. row: the
    fuzzer's seconds, executions and finding; None when it finds nothing."""
    begun = time.monotonic()
    compiles = target == DOES_NOT_COMPILE
    made = run(["nice", "ninja", "-C", str(BUILD), "fuzz_request" if compiles else target])
    if compiles:
        error = re.search(r"error: .*", made.stdout)
        return (False, (time.monotonic() - begun, 0, error[0]) if made.returncode and error else None), ""
    if made.returncode:
        return None, made.stdout[-3000:]
    program = str(BUILD / "bin" / target)
    if target == "fuzz_platform_check":
        begun = time.monotonic()
        checked = run([program])
        row = (time.monotonic() - begun, 0, checked.stdout.splitlines()[0]) if checked.returncode else None
        return (False, row), ""
    limits = ["-timeout=10", "-max_len=2048", "-rss_limit_mb=2000", *OPTIONS.get(target, [])]
    environment = {**os.environ, "ASAN_OPTIONS": "detect_leaks=1"}
    kept = run([program, *limits, *map(str, sorted((ROOT / "tests/fuzz/corpus" / target).glob("*")))], env=environment)
    work = BUILD / "work"
    shutil.rmtree(work, ignore_errors=True)
    (work / "seeds").mkdir(parents=True)
    begun = time.monotonic()
    # A seed that already fails is a finding too.
    fuzzed = run([program, "--seeds", str(work / "seeds")], env=environment)
    if not (work / "seeds" / "running").exists():
        fuzzed = run([program, *limits, f"-max_total_time={seconds}", f"-artifact_prefix={work}/",
                      "-print_final_stats=1", str(work / "seeds")], env=environment)
    took = time.monotonic() - begun
    runs = re.search(r"stat::number_of_executed_units: (\d+)", fuzzed.stdout)
    found = "timeout" if fuzzed.returncode == -signal.SIGALRM else finding(fuzzed.stdout)
    row = (took, int(runs[1]) if runs else 0, found) if fuzzed.returncode else None
    return (kept.returncode != 0, row), ""


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--seconds", type=int, default=120, help="time of the fuzzer for each fault")
    parser.add_argument("--check", action="store_true", help="only look whether the faults fit the sources")
    parser.add_argument("name", nargs="*", help="parts of the names of the faults to put in (all)")
    options = parser.parse_args()
    if options.check:
        return check()
    passed = failed = 0
    print(f"{'fault':<52} {'target':<13} {'kept':<5} {'seconds':>8} {'runs':>8}  finding")
    for name, target, edits in FAULTS:
        if options.name and not any(part in name for part in options.name):
            continue
        copy_project()
        wrong = put_in(edits)
        result, report = (None, wrong) if wrong else look_for(target, options.seconds)
        take_out(edits)
        if not result:
            print(f"{name:<52} {target:<13} cannot be put in: {report}", flush=True)
            failed += 1
            continue
        kept, row = result
        figures = f"{row[0]:>8.0f} {row[1]:>8}  {row[2]}" if row else f"{'-':>8} {'-':>8}  not found"
        print(f"{name:<52} {target:<13} {'yes' if kept else 'no':<5} {figures}", flush=True)
        passed += row is not None
        failed += row is None
    print(f"{passed} passed, {failed} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
