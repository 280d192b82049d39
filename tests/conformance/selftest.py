#!/usr/bin/env python3
"""Checks the conformance runner itself, with a stand-in for the plugin: good cases pass, and every bad case fails for
the reason that is listed here, and for no other.

usage: selftest.py RUNNER STAND_IN_LIBRARY
"""

import json
import os
import re
import subprocess
import sys
import tempfile

FOLDER = os.path.join(os.path.dirname(os.path.abspath(__file__)), "selftest")

# Name of a bad case, and the texts that its failure must contain.
REASONS = {
    "ret differs": ["step 1 of 1", "ret: expected 9, came 8"],
    "ret of a set differs": ["ret: expected 0, came -1"],
    "ret of a raise differs": ["ret: expected 16, came 17"],
    "ret of a subscription differs": ["ret: expected 1, came 0"],
    "text is shorter": ['text: expected "ab"', 'came     "abc"'],
    "text is longer": ['text: expected "abcd"'],
    "text is absent": ['text: expected "x"', 'came     ""'],
    "bytes differ": ["bytes: expected 2, came 3"],
    "not absent": ["absent: expected an untouched buffer"],
    "absent": ["absent: expected bytes"],
    "JSON value differs": ['json: expected "1" at /a, came "0"'],
    "JSON order differs": ['json: expected the member "b", came "a"'],
    "JSON member too few": ["json: expected 1 members or elements, came 2"],
    "JSON element too many": ["json: expected 3 members or elements at /b, came 2"],
    "JSON kind differs": ["json: expected", "at /a"],
    "no JSON": ["json: not JSON"],
    "calls left out": ["calls: expected", '["a_vextvapi_volctrl_setMute",1]'],
    "calls expected": ["calls: expected", "came no calls"],
    "calls in another order": ["calls: expected"],
    "calls with another argument": ["calls: expected", '["a_vextvapi_volctrl_setVolume",2]'],
    "start-up calls differ": ["start-up", "calls: expected", '["a_vextvapi_volctrl_reg_callback",1,42]'],
    "log differs": ["log: expected exactly", '"[B]y"', '"[B]x"'],
    "log without its carriage return": ["log_has: expected"],
    "log has more": ["log: expected exactly", '"last"'],
    "log in another order": ["log_has: expected"],
    "a line number is digits only": ["log_has: expected"],
    "log not empty": ["log: expected exactly no lines"],
    "err differs": ["err: expected exactly no lines"],
    "err lacks": ["err_has: expected"],
    "device differs": ['device: expected "a", came "ab"'],
    "no device": ["ret: expected 0, came -1"],
    "after differs": ["after: argument 1: expected", '{"value":1}'],
    "after of a number differs": ["after: argument 1: expected 5, came 1029"],
    "after of a buffer differs": ["after: argument 1: expected", '"/volume"'],
    "returned pointer is not null": ["ret: expected 0, came 1"],
    "the second of two steps fails": ["step 2 of 2", "ret: expected 7, came 8"],
    "a crash": ["signal 6", "in step 2"],
    "an early end": ["ended with status 0 in step 1"],
    "a hang": ["hung and was ended in step 1"],
    "no callback is registered": ["raise: no callback is registered through a_vextvapi_volctrl_reg_callback"],
    "an answer raises what is not registered": ["platform: ", "no callback is registered"],
    "no check": ["refused: it checks nothing"],
    "no steps": ['refused: it has no "steps"'],
    "unknown member of a case": ['refused: unknown member "step"', "platform", "each"],
    "unknown member of a step": ['refused: step 1: unknown member "rte"', "log_has", "times"],
    "a check that the step cannot have": ['refused: step 1: unknown member "text"'],
    "a step that does nothing": ["refused: step 1: does nothing"],
    "a step that does two things": ['refused: step 1: unknown member "set"'],
    "a wrong kind of value": ['refused: step 1: "log" must be an array of texts'],
    "unknown platform function": ["refused: ", "answer 1", "a_vextvapi_volctrl_getVolum"],
    "unknown member of an answer": ["refused: ", 'unknown member "return"'],
    "an argument too many in an answer": ["refused: ", "too many arguments"],
    "an argument that does not fit": ["refused: ", "256 does not fit 8 bits"],
    "unknown function in calls": ['refused: step 1: "calls": the contract has no function'],
    "an argument too many in calls": ['refused: step 1: "calls": a_vextvapi_volctrl_setMute has only 1'],
    "unknown function in a raise": ["refused: step 1: the contract has no function"],
    "a raise of what registers nothing": ["refused: step 1: a_vextvapi_volctrl_getMute registers no callback"],
    "arguments too many in a raise": ["raise: too many arguments"],
    "unknown exported function": ["refused: step 1: there is no exported function"],
    "not exported by this library": ["refused: tv_ctrl_set: the library does not export it"],
    "unknown record": ['refused: tv_ctrl_get: argument 1: there is no record "T_VALEU"'],
    "unknown field": ['refused: tv_ctrl_get: argument 1: T_VALUE has no field "valeu"', "min_value"],
    "unknown field afterwards": ['T_VALUE has no field "valeu"'],
    "after of what goes by value": ['refused: "after"', "is passed by value"],
    "after of a null pointer": ['refused: "after"', "was null"],
    "arguments too many": ["refused: tv_ctrl_get: tv_ctrl_get takes 2 arguments"],
    "ret of what returns nothing": ["refused: step 1: tv_ctrl_api_notify_func returns nothing"],
    "a path that is not absolute": ['refused: "files": "etc/x" is not an absolute path'],
    "content that is no text": ['refused: "files": the content of /etc/x is a text or null'],
    "a library that is no object": ['refused: "libraries": /3rd/x.so must be null or an object'],
    "a library with a text that is none": ['refused: "libraries": each string id of /3rd/x.so must have a text'],
    "text without a buffer": ['refused: step 1: "text" cannot be checked without a buffer'],
    "a word size that no set has": ['refused: "word_bits" must be 32 or 64'],
    "a word size as a text": ['refused: "word_bits" must be 32 or 64'],
    "twice": ["refused: another case of this file has the same name"],
    "number 77": ['refused: it has no "name"'],
}

# The same for the cases with tables, repetitions and names for numbers.
TABLE_REASONS = {
    "row y fails": ["step 1 of 1: ", 'text: expected "z"', 'came     "y"'],
    "a row of a step fails": ['step 3 of 3 (row 2: "y", "z"): ', 'text: expected "z"'],
    "a row of steps in a table fails": ['step 4 of 4 (row 2: "b"; row 2: "d", "xad"): ', 'text: expected "xad"'],
    "an unknown column": ['refused: row 1: "x", "y": steps, element 2: there is no column, value or repetition', '"wrod"; the nearest is "word"'],
    "an unknown column in a case": ['"files": there is no column, value or repetition', '"txt"; the nearest is "text"'],
    "a row too short": ['"each": row 2 has 1 value; the columns "word, text" need 2'],
    "a row too long": ['steps, element 1: "each": row 1 has 3 values; the columns "word, text" need 2'],
    "a row that is no array": ['"each": row 2 is no array; the columns "word, text" need 2'],
    "no rows": ['"each": a table must have rows'],
    "a table that is none": ['"each": a table is {"column, column": [row, ...]}'],
    "a column of the other table": ['"a" is a name twice'],
    "the second of two tables is wrong": ['row 1: 1: "each": row 2 has 1 value; the columns "b, c" need 2'],
    "no tables": ['"each": a table is {"column, column": [row, ...]}'],
    "${a} of two tables": ['refused: rows 1 and 2 have one "name"; it must use the columns'],
    "two tables in one": ['"each": a table is {"column, column": [row, ...]}'],
    "a column in capitals": ['"each": "Word" must be a name of small letters'],
    "a column without a name": ['"each": "" must be a name'],
    "a column that is not used": ['refused: the column "text" is not used'],
    "a column of a step that is not used": ['refused: steps, element 1: the column "text" is not used'],
    "a repetition that is not used": ['refused: the repetition "long" is not used'],
    "two columns of one name": ['"a" is a name twice'],
    "a column of an outer table": ['steps, element 1: "a" is a name twice'],
    "a repetition with a column's name": ['"a" is a name twice'],
    "a repetition without times": ['the repetition "long": it must be [text, times]'],
    "a repetition less than never": ['the repetition "long": it must be [text, times]'],
    "a repetition of a fraction": ['the repetition "long": it must be [text, times]'],
    "a repetition of a number": ['the repetition "long": it must be [text, times]'],
    "a repetition beyond all memory": ['the repetition "long": a repetition is longer than'],
    "a repetition of many rows beyond all memory": ['the repetition "long": a repetition is longer than'],
    "a repetition with a number between": ['the repetition "long": it must be [text, times]'],
    "a repetition with too much": ['the repetition "long": it must be [text, times]'],
    "a repetition over a table of another name": ['the repetition "long": the file has no table "pear"; the nearest is "pairs"'],
    "a repetition over rows too short": ['the repetition "long": row 1 has 1 value; the columns "a, b" need 2'],
    "a repetition with a column that is not used": ['the repetition "long": the column "b" is not used'],
    "a repetition of an object": ['the repetition "long": a repetition repeats a text, not {"b":1}'],
    "a range of two columns": ['"each": a range is {"column": {"from": number, "to": number}}'],
    "a range that ends before it begins": ['"each": a range is {"column": {"from": number, "to": number}}'],
    "a range without an end": ['"each": a range is {"column": {"from": number, "to": number}}'],
    "a range with a step": ['"each": a range is {"column": {"from": number, "to": number}}'],
    "less than no times": ['steps, element 1: "times" must be a whole number from 0 to'],
    "times of a case": ['unknown member "times"; a case can have'],
    "times twice": ['steps, element 1: "times" stands twice'],
    "a value that is not used": ['refused: the value "a" is not used'],
    "a value with a column's name": ['"a" is a name twice'],
    "a value in capitals": ['"values": "A" must be a name of small letters'],
    "a repetition with a blank": ['"repeat": "a b" must be a name of small letters'],
    "values that are none": ['"values" must be an object of names'],
    "a value of itself": ['"a" is used in its own value'],
    "repetitions that are none": ['"repeat" must be an object of names'],
    "a repetition of itself": ['"long" is used in its own value'],
    "an object within a text": ['row 2: {"b":1}: steps, element 1: "a" is neither text nor number'],
    "an array as a key": ['"files": "${a}" is neither text nor number'],
    "a name without an end": ['"${" without "}"'],
    "the same for both rows": ['refused: rows 1 and 2 have one "name"; it must use the columns'],
    "an unknown table": ['"each": the file has no table "pears"; the nearest is "pairs"'],
    "repeated steps that are none": ['steps, element 1: "steps" must be an array of steps'],
    "repeated steps with more": ['steps, element 1: unknown member "get"; repeated steps have'],
    "each twice": ['refused: "each" stands twice'],
    "steps twice": ['steps, element 1: "steps" stands twice'],
    "a check that a row brings": ['refused: step 2: unknown member "rte"'],
    "a step that nothing but repeats": ['steps, element 1: the column "a" is not used'],
    "an unknown name in in": ['steps, element 1: "in": argument 0: there is no name "VOL_MUET"; the nearest is "VOL_MUTE"'],
    "an unknown name in after": ['row 2: "VOL_INCRAESE": "in": argument 0:', 'the nearest is "VOL_INCREASE"'],
    "an unknown name in a record": ['"in": argument 1: there is no name "VOLL"; the nearest is "VOL"'],
    "an unknown name in ret": ['"ret": there is no name "TYPE_VALEU"; the nearest is "TYPE_VALUE"'],
    "a name in the ret of a get": ['refused: step 1: "ret" must be a whole number'],
    "a name that does not fit": ["refused: tv_ctrl_malloc_content: argument 0: 1025 does not fit 8 bits"],
    "a name in the place of a text": ['refused: tv_ctrl_get: argument 1: value: "VOL" is not a whole number'],
}

# Files of cases that fail, their reasons, and how many cases pass: the first of two cases with one name; the rows of a
# table beside the one that fails.
BAD_CASES = {"bad.json": (REASONS, 1), "bad_tables.json": (TABLE_REASONS, 2)}

# Files of cases that pass: with what the format has always had, without and with anything that looks newer, and with
# tables, whose cases stand for so many.
GOOD_FILES = ("good.json", "plain.json", "tables.json")
EXPANDED_CASES = 37

# Files that cannot be used at all, and the texts that the message about them must contain.
BAD_FILES = {
    "{": "not JSON",
    '{"case":[]}': "a file is",
    '{"cases":[]}': "a file is",
    '{"cases":[{"name":"a","steps":[{"get":"/started","ret":8}]}],"more":1}': "a file is",
    '{"cases":[{"name":"a","steps":[{"get":"/started","ret":8}]}],"tables":[]}': "a file is",
    '{"tables":{"a":{"b":[1]}},"cases":[{"name":"a","steps":[{"get":"/started","ret":8}]}]}': '"tables": "a" is not used',
    '{"tables":{"a":{"b, c":[[8,1]]}},"cases":[{"name":"a","each":"a","steps":[{"get":"/started","ret":"${b}"}]}]}':
        '"tables": "a": the column "c" is not used',
    '{"tables":{"a":{"b, c":[[8]]}},"cases":[{"name":"a","each":"a","steps":[{"get":"/started","ret":"${b}"}]}]}':
        '"tables": "a": row 1 has 1 value; the columns "b, c" need 2',
    '{"repeat":{"a":["b",1]},"cases":[{"name":"a","steps":[{"get":"/started","ret":8}]}]}': 'the repetition "a" is not used',
    '{"values":{"a":8},"cases":[{"name":"a","steps":[{"get":"/started","ret":8}]}]}': 'the value "a" is not used',
    '{"repeat":{},"cases":[{"name":"a","steps":[{"get":"/started","ret":8}]}]}': '"repeat" must be an object of names',
    '{"tables":{"a":{"b":[8]},"a":{"b":[8]}},"cases":[{"name":"a","each":"a","steps":[{"get":"/started","ret":"${b}"}]}]}':
        '"tables": "a": stands twice',
}

# What no good case exercises, of the rows that the stand-in describes: one direction alone, a notification that never
# arrives, a request that its type refuses, and a row of a served group that takes no request.
MISSING_USES = {"get /nobody", "set /nobody", "notify /nobody", "set /param", "get /press", "get /v", "notify /a",
                "row /idle", "get /accepted", "get /words", "set /words"}

problems = []


def check(good, text):
    if not good:
        problems.append(text)


def run(*args):
    result = subprocess.run([RUNNER, *args, "--library", LIBRARY], capture_output=True, text=True, errors="replace",
                            timeout=300, check=False)
    return result.returncode, result.stdout + result.stderr


def failures(output):
    """The text of each failed case, by name."""
    found = {}
    for part in re.split(r"^FAIL ", output, flags=re.M)[1:]:
        head, _, body = part.partition("\n")
        name = head.split(".json: ", 1)[1] if ".json: " in head else head
        found[name] = re.split(r"^PASS |^\d+ passed", body, flags=re.M)[0]
    return found


def check_bad_cases(file, reasons, passing):
    status, output = run(os.path.join(FOLDER, file), "--timeout", "2")
    found = failures(output)
    check(status == 1, f"status {status} after {file}")
    check(output.rstrip().endswith(f"{passing} passed, {len(reasons)} failed"), f"wrong count of {file}: {output[-200:]}")
    for name, parts in reasons.items():
        if name not in found:
            problems.append(f'"{name}" did not fail')
            continue
        for part in parts:
            check(part in found[name], f'"{name}" lacks {part!r}:\n{found[name]}')
        # One difference gives one complaint.
        checks = re.findall(r"^    (?:ret|text|json|absent|bytes|after|calls|log|log_has|err|err_has|device): ", found[name], re.M)
        check(len(checks) <= 1, f'"{name}" fails for more than one reason:\n{found[name]}')
    for name in found.keys() - reasons.keys():
        problems.append(f'"{name}" of {file} failed and is not listed')


def written(json_text):
    """JSON whose numbers are as written and whose objects keep their members' order and repetitions."""
    return json.loads(json_text, object_pairs_hook=lambda members: ("object", members), parse_int=str, parse_float=str)


def check_expanding():
    """A file without tables is its own expansion; expanding an expansion changes nothing."""
    for name in ("plain.json", "good.json"):
        with open(os.path.join(FOLDER, name), encoding="utf-8") as file:
            text = file.read()
        status, output = run(os.path.join(FOLDER, name), "--expand")
        check(status == 0 and written(output) == written(text), f"{name} is not its own expansion")
    status, once = run(os.path.join(FOLDER, "tables.json"), "--expand")
    with tempfile.NamedTemporaryFile("w", suffix=".json", encoding="utf-8") as file:
        file.write(once)
        file.flush()
        again, twice = run(file.name, "--expand")
        passing, output = run(file.name)
    check(status == 0 and again == 0 and once == twice, "an expansion is not its own expansion")
    check(passing == 0, "an expansion fails:\n" + output)
    for word in ('"each"', '"tables"', '"repeat"', '"times":0', '"IRRC"'):
        check(word not in once, f"an expansion has {word}")
    cases = written(once)[1][0][1]
    check(len(cases) == EXPANDED_CASES, f"{len(cases)} cases in place of {EXPANDED_CASES}")
    status, output = run(os.path.join(FOLDER, "bad_tables.json"), "--expand", "--filter", "too short")
    check(status == 1 and "bad_tables.json: a row too short: " in output, "--expand hides what is wrong: " + output)


def main():
    before = {path for path in ("/3rd", "/3rd_rw", "/dev/cli", "/tmp/ytlbv4_start", "/etc/brand_new") if os.path.lexists(path)}

    for name in GOOD_FILES:
        status, output = run(os.path.join(FOLDER, name))
        check(status == 0 and re.search(r"^\d+ passed, 0 failed$", output, re.M), f"good cases of {name} fail:\n{output}")
        check("FAIL" not in output, "a good case is shown as failed:\n" + output)

    for name, (reasons, passing) in BAD_CASES.items():
        check_bad_cases(name, reasons, passing)
    check_expanding()

    with tempfile.TemporaryDirectory() as folder:
        path = os.path.join(folder, "file.json")
        for content, reason in BAD_FILES.items():
            with open(path, "w", encoding="utf-8") as file:
                file.write(content)
            status, output = run(path)
            check(status == 1 and reason in output and "0 passed, 1 failed" in output, f"{content}: {output}")
        os.remove(path)
        status, output = run(folder)
        check(status == 1 and "0 passed, 0 failed" in output, "an empty folder succeeds: " + output)
        status, output = run(path)
        check(status == 1 and "cannot be read" in output, "a missing file succeeds: " + output)

        good = os.path.join(FOLDER, "good.json")
        status, output = run(good, "--filter", "the marker")
        check(status == 0 and "1 passed, 0 failed" in output, "--filter: " + output)
        status, output = run(good, "--filter", "the marker", "-v")
        check("PASS" in output and 'bytes: "m"' in output, "-v: " + output)
        status, output = run(good, "--filter", "no such case")
        check(status == 1, "a filter that picks nothing succeeds")

        # Two cases, one for each word size, of which only one fits this machine.
        status, output = run(good, "--filter", "with words of")
        check(status == 0 and "1 left out" in output and "1 passed, 0 failed" in output, "word_bits: " + output)

        counts = os.path.join(folder, "coverage")
        status, output = run(good, "--require-coverage", "--coverage", counts)
        check(status == 1, "--require-coverage succeeds with a row that nobody uses")
        missing = set(re.findall(r"^no case exercises (.*)$", output, re.M))
        uses = {what for what in missing if not what.startswith("platform function ")}
        check(uses == MISSING_USES, f"--require-coverage differs in {uses ^ MISSING_USES}: {output}")
        check("platform function a_vextvapi_volctrl_incrVolume" in missing, "it misses a function: " + output)
        check("platform function a_vextvapi_volctrl_getVolume" not in missing, "it names a used function: " + output)
        with open(counts, encoding="utf-8") as file:
            text = file.read()
        check('"a_vextvapi_volctrl_setVolume":3' in text and '"get /started":5' in text, "--coverage: " + text)
        status, output = run(good, "--list-unexercised")
        check(status == 0 and "no case exercises get /nobody" in output, "--list-unexercised: " + output)

    usage = subprocess.run([RUNNER, "--help"], capture_output=True, text=True, timeout=60, check=False)
    check(usage.returncode == 0 and usage.stdout.startswith("usage: ") and usage.stderr == "",
          f"--help prints the usage on standard output: {usage}")

    after = {path for path in ("/3rd", "/3rd_rw", "/dev/cli", "/tmp/ytlbv4_start", "/etc/brand_new") if os.path.lexists(path)}
    check(before == after, f"the machine was changed: {after - before}")
    for problem in problems:
        print(problem)
    looked_at = sum(len(reasons) for reasons, _ in BAD_CASES.values()) + len(BAD_FILES) + len(GOOD_FILES)
    print(f"{max(looked_at - len(problems), 0)} passed, {len(problems)} failed")
    return 1 if problems else 0


if len(sys.argv) != 3:
    sys.exit(__doc__)
RUNNER, LIBRARY = sys.argv[1:]
sys.exit(main())
