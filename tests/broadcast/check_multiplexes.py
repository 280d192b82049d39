#!/usr/bin/env python3
"""Checks what dtv-multiplexes writes with three readers that are not the project's: ffprobe, dvb_print_si (an example of
libbitstream-dev, compiled here), and transport.py, which reads the guide of all days. Then checks how the program behaves
when it is interrupted, when ffmpeg is missing or fails, and when a file cannot be written.

usage: tests/broadcast/check_multiplexes.py BUILD

Ends with "N passed, N failed".
"""

import json
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import traceback
from collections import defaultdict
from datetime import datetime, timedelta, timezone
from pathlib import Path
from typing import NamedTuple
from zoneinfo import ZoneInfo

import print_si
import transport

SECONDS = 6
BEGIN = datetime(2026, 3, 27, 18, 30, tzinfo=timezone.utc)  # clocks change on the 29th
ZONE = ZoneInfo("Europe/Berlin")
DAYS = 8
LIMIT = 120  # s for one start, far more than it takes
KEY = 0x5A
FILES = {"air-506": 1001, "air-578": 1002, "satellite-11494": 2001}


class Service(NamedTuple):
    stream: int
    id: int
    type: int
    number: int
    visible: bool
    scrambled: bool
    name: str  # with its emphasis marks
    lead: bytes  # what the name's bytes begin with; b"": of ISO 6937
    streams: list  # (codec, language)


# The table of services: what the antenna is supposed to deliver.
SERVICES = [
    Service(1001, 101, 0x01, 1, True, False, "\x86Fernblick\x87 Eins", b"", [("mpeg2video", None), ("mp2", "deu"), ("dvb_subtitle", "deu")]),
    Service(1001, 102, 0x01, 2, True, False, "Ciné Forêt", b"", [("mpeg2video", None), ("mp2", "fra"), ("mp2", "eng")]),
    Service(1001, 103, 0x01, 4, True, False, "Вечерний берег", b"\x01", [("mpeg2video", None), ("mp2", "rus")]),
    Service(1001, 104, 0x02, 201, True, False, "Radio Windrad", b"", [("mp2", "deu")]),
    Service(1001, 105, 0x01, 90, False, False, "Prüfbild", b"", [("mpeg2video", None), ("mp2", "deu")]),
    Service(1002, 201, 0x01, 5, True, False, "Γαλάζιος Κόλπος", b"\x03", [("mpeg2video", None), ("mp2", "ell"), ("dvb_subtitle", "ell")]),
    Service(1002, 202, 0x01, 7, True, False, "Kükenkiste", b"\x10\x00\x01", [("mpeg2video", None), ("mp2", "deu")]),
    Service(1002, 203, 0x01, 4, True, False, "朝霧ひろば", b"\x15", [("mpeg2video", None), ("mp2", "jpn")]),
    Service(1002, 204, 0x01, 12, True, True, "Schlüsselkino", b"", [("mpeg2video", None), (None, "deu")]),
    Service(1002, 205, 0x02, 202, True, False, "Klangwiese", b"\x0b", [("mp2", "deu")]),
    Service(2001, 301, 0x01, 21, True, False, "푸른 마당", b"\x12", [("mpeg2video", None), ("mp2", "kor")]),
    Service(2001, 302, 0x01, 22, True, False, "شرفة الضوء", b"\x11", [("mpeg2video", None), ("mp2", "ara")]),
    Service(2001, 303, 0x19, 25, True, False, "Gökkuşağı Saz", b"\x05", [("h264", None), ("mp2", "tur")]),
    Service(2001, 304, 0x02, 210, True, False, "竹影之声", b"\x13", [("mp2", "zho")]),
    Service(2001, 305, 0x01, 30, True, False, "Lakeside Sport", b"", [("mpeg2video", None), ("mp2", "eng"), ("dvb_subtitle", "eng")]),
]
# Of the guide; 105 has none.
LANGUAGES = {101: {"deu"}, 102: {"fra", "eng"}, 103: {"rus"}, 104: {"deu"}, 201: {"ell"}, 202: {"deu"},
             203: {"jpn"}, 204: {"deu"}, 205: {"deu"}, 301: {"kor"}, 302: {"ara"}, 303: {"tur"}, 304: {"zho"}, 305: {"eng"}}
DELIVERY = {1001: ("TERRESTRIAL_DESC", "506000000"), 1002: ("TERRESTRIAL_DESC", "578000000"),
            2001: ("SATELLITE_DESC", "11494000H")}
NETWORK = {1001: 0xFF01, 1002: 0xFF01, 2001: 0xFF02}


class Context(NamedTuple):
    program: Path
    work: Path
    folder: Path  # filled with the multiplexes of BEGIN


def of_stream(stream):
    return [service for service in SERVICES if service.stream == stream]


def equal(found, expected, what):
    assert found == expected, f"{what}:\n  found    {found}\n  expected {expected}"


def start(program, folder, *options, begin=BEGIN, seconds=SECONDS, **more):
    words = [program, folder, "--date", begin.strftime("%Y-%m-%dT%H:%M"), "--seconds", str(seconds), *options]
    return subprocess.run([str(word) for word in words], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                          timeout=LIMIT, check=False, **more)


def filled(program, folder, *options, **more):
    ran = start(program, folder, *options, **more)
    assert ran.returncode == 0, f"exit {ran.returncode}: {ran.stderr}"
    return ran


def contents(folder):
    return {path.name: path.read_bytes() for path in sorted(folder.glob("*")) if path.is_file()}


def left_overs(folder):
    return sorted(path.name for path in folder.rglob("*.part"))


def packets_of(context, name):
    return list(transport.packets((context.folder / f"{name}.ts").read_bytes()))


# --- what is in the files -----------------------------------------------------------------------------------------------


def folder_has_the_multiplexes(context):
    equal(sorted(contents(context.folder)), sorted(f"{name}.ts" for name in FILES), "files")
    equal(left_overs(context.folder), [], "temporary files")


def ffprobe_lists_programs(context):
    """Programs, names, codecs and languages. ffprobe 5.1 does not convert Korean names, so it is not asked for them; of
    the scrambled service it can only guess what its sound is."""
    for name, stream in FILES.items():
        output = subprocess.check_output(
            ["ffprobe", "-v", "error", "-print_format", "json", "-show_programs", context.folder / f"{name}.ts"],
            stderr=subprocess.DEVNULL)
        programs = json.loads(output)["programs"]
        equal([program["program_id"] for program in programs], [service.id for service in of_stream(stream)], "programs")
        for program, service in zip(programs, of_stream(stream)):
            if service.lead != b"\x12":
                equal(program["tags"]["service_name"], service.name, f"name of {service.id}")
            streams = [(each["codec_name"], each.get("tags", {}).get("language")) for each in program["streams"]]
            expected = [(codec or found[0], language) for (codec, language), found in zip(service.streams, streams)]
            equal(streams, expected, f"streams of {service.id}")
            if not service.scrambled:
                sizes = [(each["width"], each["height"]) for each in program["streams"] if each["codec_type"] == "video"]
                equal(sizes, [(640, 360)] if service.id == 303 else [(352, 288)] * (service.type != 2), "size")


def trees(context):
    """What dvb_print_si says about each file, by file name."""
    printer = print_si.built(context.work)
    return {name: print_si.tree(printer, (context.folder / f"{name}.ts").read_bytes()) for name in FILES}


def printer_lists_network(context):
    for name, tree in trees(context).items():
        [nit] = tree.iter("NIT")
        network = NETWORK[FILES[name]]
        equal(int(nit.get("networkid")), network, "network")
        equal([int(each.get("tsid")) for each in nit.iter("TS")],
              [stream for stream, its in NETWORK.items() if its == network], "multiplexes")
        for each in nit.iter("TS"):
            stream = int(each.get("tsid"))
            kind, frequency = DELIVERY[stream]
            equal([d.get("frequency") for d in each.iter(kind)], [frequency], "frequency")
            equal([d.get("specifier") for d in each.iter("PRIVATE_DATA_SPECIFIER_DESC")], ["0x00000028"], "specifier")
            numbers = [(int(d.get("sid")), int(d.get("lcn")), d.get("visible") == "1") for d in each.iter("LCN_DESC")]
            equal(numbers, [(s.id, s.number, s.visible) for s in of_stream(stream)], "logical channel numbers")


def printer_lists_services(context):
    for name, tree in trees(context).items():
        expected = of_stream(FILES[name])
        [pat] = tree.iter("PAT")
        programs = {int(each.get("number")): int(each.get("pid")) for each in pat.iter("PROGRAM")}
        equal(sorted(programs), [0] + [service.id for service in expected], "PAT")
        equal(programs[0], 0x10, "PID of the network")
        [sdt] = tree.iter("SDT")
        equal(int(sdt.get("tsid")), FILES[name], "SDT")
        found = [(int(each.get("sid")), int(d.get("type"), 0), d.get("service"), each.get("free_CA") == "1")
                 for each in sdt.iter("SERVICE") for d in each.iter("SERVICE_DESC")]
        equal(found, [(s.id, s.type, s.name, s.scrambled) for s in expected], "SDT")
        leads = [bytes.fromhex(each.get("value"))[2 + bytes.fromhex(each.get("value"))[1] + 1:]
                 for each in sdt.iter("DESC") if each.get("id") == "0x48"]
        for service, value in zip(expected, leads):
            assert value.startswith(service.lead) and (service.lead or value[0] >= 0x20), f"lead bytes of {service.id}"
        for pmt in tree.iter("PMT"):
            service = next(s for s in expected if s.id == int(pmt.get("program")))
            equal(len(list(pmt.iter("CA_DESC"))), int(service.scrambled), f"CA descriptors of {service.id}")
            languages = [d.get("language") for each in pmt.iter("ES") for d in each
                         for d in d if d.tag in ("AUDIO_LANGUAGE_DESC", "SUBTITLING_DESC")]
            equal(languages, [language for _, language in service.streams if language], f"languages of {service.id}")
        equal(len(list(tree.iter("PMT"))), len(expected), "PMTs")


def printer_lists_present_and_following(context):
    for name, tree in trees(context).items():
        found = defaultdict(dict)
        for eit in tree.iter("EIT"):
            if eit.get("tableid") == "0x4e":
                found[int(eit.get("service_id"))][int(eit.get("section"))] = next(eit.iter("EVENT"), None)
        equal(sorted(found), [service.id for service in of_stream(FILES[name])], "services")
        for service, present_following in found.items():
            if service not in LANGUAGES:
                equal(present_following, {0: None, 1: None}, f"events of {service}")
                continue
            begins = [int(present_following[number].get("start_time")) for number in (0, 1)]
            lasts = int(present_following[0].get("duration"))
            assert begins[0] <= BEGIN.timestamp() < begins[0] + lasts, "the present event is not present"
            equal(begins[1], begins[0] + lasts, "begin of the following event")
            equal([present_following[number].get("running") for number in (0, 1)], ["4", "1"], "running status")


def streams_can_be_decoded(context):
    """Every picture and sound that is not scrambled is decoded without an error message."""
    for name, stream in FILES.items():
        maps = [word for service in of_stream(stream) if not service.scrambled for word in ("-map", f"0:p:{service.id}")]
        ran = subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-i", context.folder / f"{name}.ts", *maps, "-c:s",
                              "copy", "-f", "null", "-"], stderr=subprocess.PIPE, text=True, timeout=LIMIT, check=False)
        equal((ran.returncode, ran.stderr), (0, ""), f"complaints about {name}")


def clocks_are_even(context):
    """The clock of each service advances as its packets do, and comes at least every 40 ms."""
    for name, stream in FILES.items():
        data = (context.folder / f"{name}.ts").read_bytes()
        clocks = defaultdict(list)
        for at in range(0, len(data), transport.PACKET):
            if data[at + 3] & 0x20 and data[at + 4] and data[at + 5] & 0x10:
                bits = int.from_bytes(data[at + 6:at + 12], "big")
                clocks[(data[at + 1] & 0x1F) << 8 | data[at + 2]].append(((bits >> 15) * 300 + (bits & 0x1FF), at))
        equal(set(clocks), {0x200 + 16 * (service.id % 100) for service in of_stream(stream)}, "PIDs with a clock")
        for pid, its in clocks.items():
            rate = (its[-1][1] - its[0][1]) / (its[-1][0] - its[0][0])  # bytes in 1/27,000,000 s
            for (early, from_byte), (late, to_byte) in zip(its, its[1:]):
                assert 0 < late - early <= 27000 * 40, f"clock of {pid:#x} goes from {early} to {late}"
                assert abs((late - early) * rate - (to_byte - from_byte)) < 2, f"clock of {pid:#x} is uneven at {to_byte}"


def counters_have_no_gap(context):
    for name in FILES:
        latest = {}
        for packet in packets_of(context, name):
            if packet.pid == transport.NULL_PID or not packet.payload:
                continue
            if packet.pid in latest:
                equal(packet.counter, (latest[packet.pid] + 1) % 16, f"counter of PID {packet.pid:#x} in {name}")
            latest[packet.pid] = packet.counter
        assert len(latest) > 12, latest


def time_moves_through_the_file(context):
    for name in FILES:
        found = list(transport.sections(packets_of(context, name), 0x14))
        equal([transport.time_of(each.data[3:8]) for each in found], [BEGIN + timedelta(seconds=s) for s in range(SECONDS)],
              "times")
        tots = [each.data for each in found if each.table == 0x73]
        assert tots, "no TOT"
        [(tag, offset)] = transport.descriptors(tots[0][10:-4])
        equal((tag, offset[:3], offset[3] & 1, offset[4:6]), (0x58, b"DEU", 0, b"\x01\x00"), "local time offset")
        equal(transport.time_of(offset[6:11]), datetime(2026, 3, 29, 1, tzinfo=timezone.utc), "change of the clocks")
        equal(offset[11:13], b"\x02\x00", "next offset")


def other_multiplexes_are_announced(context):
    for name, stream in FILES.items():
        packets = packets_of(context, name)
        others = {other for other in FILES.values() if other != stream}
        equal({each.extension for each in transport.sections(packets, 0x11) if each.table == 0x46}, others, "SDT other")
        equal({each.extension for each in transport.sections(packets, 0x10) if each.table == 0x41},
              {network for network in NETWORK.values() if network != NETWORK[stream]}, "NIT other")
        services = {each.extension for each in transport.sections(packets, 0x12) if each.table == 0x4F}
        equal(services, {service.id for service in SERVICES if service.stream != stream}, "EIT other")


def schedule_of(folder, days=DAYS):
    """Service -> events, after the numbers of the sections have been checked."""
    midnight = BEGIN.replace(hour=0, minute=0)
    guide = defaultdict(list)
    for name in FILES:
        tables = defaultdict(dict)
        for section in transport.sections(list(transport.packets((folder / f"{name}.ts").read_bytes())), 0x12):
            if 0x50 <= section.table <= 0x6F:
                tables[section.extension, section.table][section.number] = section
        expected = {(service.id, 0x50 + index) for service in of_stream(FILES[name]) for index in range((days + 3) // 4)}
        equal(set(tables), expected, "tables of the schedule")
        for (service, table), numbered in sorted(tables.items()):
            table_days = min(4, days - (table - 0x50) * 4)
            equal({number // 8 for number in numbered}, set(range(8 * table_days)), "segments")
            equal({section.last for section in numbered.values()}, {max(numbered)}, "last section")
            for number, section in sorted(numbered.items()):
                equal(section.data[12], max(n for n in numbered if n // 8 == number // 8), "last section of the segment")
                equal(section.data[13], 0x50 + (days - 1) // 4, "last table")
                guide[service]  # has sections, if without events
                begin = midnight + timedelta(days=4 * (table - 0x50), hours=3 * (number // 8))
                for event in transport.events(section):
                    assert begin <= event.start < begin + timedelta(hours=3), "an event is in another's segment"
                    guide[service].append(event)
    return guide


def schedule_has_no_gap(context):
    guide = schedule_of(context.folder)
    equal(set(guide), {service.id for service in SERVICES}, "services with a schedule")
    midnight = BEGIN.replace(hour=0, minute=0)
    for service, events in guide.items():
        if service not in LANGUAGES:
            equal(events, [], f"events of {service}")
            continue
        for event, following in zip(events, events[1:]):
            equal(following.start, event.start + event.duration, f"begin of an event of {service}")
        for event in events:
            assert timedelta(minutes=30) <= event.duration <= timedelta(minutes=120), event
        assert events[0].start < midnight + timedelta(hours=2), f"{service} begins late"
        assert events[-1].start + events[-1].duration >= midnight + timedelta(days=DAYS), f"{service} ends early"
        equal(len({event.id for event in events}), len(events), f"different event ids of {service}")
        equal({event.scrambled for event in events}, {service == 204}, f"free_CA_mode of {service}")


def events_describe_themselves(context):
    titles, ratings, two_parts, items, captions = defaultdict(set), [], 0, 0, defaultdict(set)
    for service, events in schedule_of(context.folder).items():
        for event in events:
            shorts = [d for tag, d in event.descriptors if tag == 0x4D]
            equal({d[:3].decode() for d in shorts}, LANGUAGES[service], f"languages of {service}")
            for short in shorts:
                title = transport.text(short[4:4 + short[3]])
                titles[service].add(short[4:4 + short[3]])
                assert title != "" and short[5 + short[3]:], f"an event of {service} has no title or no summary"
            extended = [d for tag, d in event.descriptors if tag == 0x4E]
            equal([(d[0] >> 4, d[0] & 15) for d in extended], [(n, len(extended) - 1) for n in range(len(extended))],
                  "numbers of extended descriptors")
            two_parts += len(extended) >= 2
            items += extended[0][4] > 0
            lead = next(s.lead for s in SERVICES if s.id == service)
            for part in extended:
                part = part[4 + 1 + part[4] + 1:]
                assert part.startswith(lead) and (lead or part[0] >= 0x20), f"lead bytes of {service}: {part[:4]}"
                transport.text(part)  # can be decoded
            [content] = [d for tag, d in event.descriptors if tag == 0x54]
            assert 0x10 <= content[0] < 0xB0, f"content {content}"
            for tag, rating in event.descriptors:
                if tag == 0x55:
                    equal(rating[:3], b"DEU", "country of a rating")
                    ratings.append((rating[3] + 3, event.start.astimezone(ZONE).hour))
            captions[service].add(any(tag == 0x50 and d[0] & 15 == 3 for tag, d in event.descriptors))
    for service, its in titles.items():
        assert len(its) >= 4, f"{service} has only the titles {its}"
    equal({age for age, _ in ratings}, {6, 12, 16, 18}, "ages")
    for age, hour in ratings:
        assert age < 16 or hour >= 20 or hour < 6, f"an event for {age} begins at {hour}"
    assert two_parts > 1000 and items > 300, (two_parts, items)
    equal({service: its for service, its in captions.items() if its != {False}},
          {101: {True}, 201: {True}, 305: {True}}, "subtitles")


def scrambled_service_is_scrambled(context):
    """Its streams, no others; and with the key it is a stream again."""
    for name, stream in FILES.items():
        wanted = set()
        for service in of_stream(stream):
            if service.scrambled:
                wanted = {0x200 + 16 * (service.id % 100) + index for index in range(len(service.streams))}
        packets = packets_of(context, name)
        equal({packet.pid for packet in packets if packet.scrambling}, wanted, "scrambled PIDs")
        for packet in packets:
            if packet.pid in wanted and packet.payload:
                equal(packet.scrambling, 2, "transport_scrambling_control")
                if packet.starts:
                    equal(bytes(byte ^ KEY for byte in packet.payload[:3]), b"\0\0\1", "begin of a stream's unit")


# --- how the program behaves ---------------------------------------------------------------------------------------------


def later_start_needs_no_ffmpeg_and_changes_nothing(context):
    before = contents(context.folder)
    pictures = {path: path.stat().st_mtime_ns for path in (context.folder / ".pictures").glob("*.ts")}
    equal(len(pictures), len(FILES), "kept pictures")
    filled(context.program, context.folder, env={**os.environ, "PATH": "/nonexistent"})
    assert contents(context.folder) == before, "the same date gave other files"
    equal({path: path.stat().st_mtime_ns for path in pictures}, pictures, "times of the pictures")


def next_day_continues_the_guide(context):
    folder = context.work / "next"
    shutil.copytree(context.folder, folder)
    today = schedule_of(context.folder)
    filled(context.program, folder, begin=BEGIN + timedelta(days=1))
    for service, events in today.items():
        later = {}
        for name, stream in FILES.items():
            if any(s.id == service for s in of_stream(stream)):
                for section in transport.sections(list(transport.packets((folder / f"{name}.ts").read_bytes())), 0x12):
                    if section.extension == service and 0x50 <= section.table <= 0x6F:
                        later.update({event.start: event for event in transport.events(section)})
        tomorrow = BEGIN.replace(hour=0, minute=0) + timedelta(days=1)
        for event in events:
            if event.start >= tomorrow:
                equal(later.get(event.start), event, f"an event of {service}")


def shorter_guide(context):
    folder = context.work / "short"
    shutil.copytree(context.folder, folder)
    filled(context.program, folder, "--days", "3")
    guide = schedule_of(folder, 3)
    begins = [event.start for events in guide.values() for event in events]
    assert max(begins) < BEGIN.replace(hour=0, minute=0) + timedelta(days=3), "the guide goes on"
    assert len(begins) > 500, len(begins)


def damaged_pictures_are_made_again(context):
    folder = context.work / "damaged"
    shutil.copytree(context.folder, folder)
    victim = next((folder / ".pictures").glob("air-578*.ts"))
    victim.write_bytes(victim.read_bytes()[:188 * 500])
    (folder / "air-506.ts.part").write_bytes(b"left by a killed program")
    (folder / "holiday.ts.part").write_bytes(b"of somebody else")
    filled(context.program, folder)
    equal(left_overs(folder), ["holiday.ts.part"], "temporary files")
    for name, data in contents(context.folder).items():
        assert len(contents(folder)[name]) > len(data) * 0.9, f"{name} is short"


def refused(ran, code, *words):
    equal(ran.returncode, code, f"exit code, with {ran.stderr!r}")
    for word in words:
        assert word in ran.stderr, f"{word!r} is not in {ran.stderr!r}"


def missing_ffmpeg(context):
    folder = context.work / "missing"
    refused(start(context.program, folder, env={**os.environ, "PATH": "/nonexistent"}), 1, "ffmpeg", "install")
    equal((contents(folder), left_overs(folder)), ({}, []), "files")


def failing_ffmpeg(context):
    """One that complains, one that stops in the middle, one that never stops, one that a signal ends."""
    for script, words in [("echo no such codec >&2; exit 3", ["no such codec", "exit code 3"]),
                          ("head -c 188000 /dev/zero", ["188000 of"]), ("exec cat /dev/zero", ["more than"]), ("kill -9 $$", ["signal 9"])]:
        commands = context.work / "commands"
        commands.mkdir(exist_ok=True)
        fake = commands / "ffmpeg"
        fake.write_text(f"#!/bin/sh\n{script}\n")
        fake.chmod(0o755)
        folder = context.work / "failing"
        environment = {**os.environ, "PATH": f"{commands}:{os.environ['PATH']}"}
        refused(start(context.program, folder, env=environment), 1, "ffmpeg", *words)
        equal((contents(folder), left_overs(folder)), ({}, []), "files")


def file_that_cannot_grow(context):
    """As on a full disk: while the pictures are made, and while they are stamped."""
    limit = ["prlimit", "--fsize=1000000"]
    for name in ("full", "full-later"):
        folder = context.work / name
        if name == "full-later":
            shutil.copytree(context.folder, folder)
        before = contents(folder) if folder.exists() else {}
        words = [*limit, str(context.program), str(folder), "--date", BEGIN.strftime("%Y-%m-%d"), "--seconds", str(SECONDS)]
        ran = subprocess.run(words, stderr=subprocess.PIPE, text=True, timeout=LIMIT, check=False)
        refused(ran, 5, "cannot write", str(folder))
        equal(left_overs(folder), [], "temporary files")
        assert contents(folder) == before, "a file has changed"


def folder_that_cannot_be(context):
    refused(start(context.program, Path("/dev/null/antenna")), 5, "cannot create")


def children_in(folder):
    """Processes whose command line names the folder."""
    found = []
    for entry in Path("/proc").glob("[0-9]*/cmdline"):
        try:
            if str(folder).encode() in entry.read_bytes() and int(entry.parent.name) != os.getpid():
                found.append(int(entry.parent.name))
        except OSError:
            pass  # it has just ended
    return found


def begun(context, folder):
    """A start that is in the middle of the pictures."""
    process = subprocess.Popen([str(context.program), str(folder), "--seconds", "60"], stderr=subprocess.DEVNULL)
    deadline = time.monotonic() + LIMIT
    while time.monotonic() < deadline:
        parts = [path for path in folder.rglob("*.ts.part")]
        if len(parts) == len(FILES) and all(path.stat().st_size > 0 for path in parts):
            return process
        assert process.poll() is None, "it has ended already"
        time.sleep(0.02)
    raise AssertionError("it makes no pictures")


def gone(folder):
    deadline = time.monotonic() + LIMIT
    while children_in(folder):
        assert time.monotonic() < deadline, f"still running: {children_in(folder)}"
        time.sleep(0.02)


def interruption_leaves_nothing(context):
    for number in (signal.SIGINT, signal.SIGTERM):
        folder = context.work / f"interrupted-{number}"
        process = begun(context, folder)
        process.send_signal(number)
        equal(process.wait(LIMIT), -number, "how it ended")
        equal((contents(folder), left_overs(folder), list((folder / ".pictures").glob("*.ts"))), ({}, [], []), "files")
        gone(folder)


def kill_leaves_no_half_multiplex(context):
    folder = context.work / "killed"
    process = begun(context, folder)
    process.kill()
    process.wait(LIMIT)
    gone(folder)  # ffmpeg notices that nobody reads
    equal((contents(folder), list((folder / ".pictures").glob("*.ts"))), ({}, []), "files")
    assert left_overs(folder), "nothing was begun"
    filled(context.program, folder)
    equal(left_overs(folder), [], "temporary files")


def two_at_once(context):
    folder = context.work / "twice"
    shutil.copytree(context.folder, folder)
    words = [str(context.program), str(folder), "--date", BEGIN.strftime("%Y-%m-%dT%H:%M"), "--seconds", str(SECONDS)]
    both = [subprocess.Popen(words, stderr=subprocess.DEVNULL) for _ in range(2)]
    equal([process.wait(LIMIT) for process in both], [0, 0], "exit codes")
    assert contents(folder) == contents(context.folder), "the files differ"


def wrong_command_lines(context):
    folder = str(context.work / "never")
    for words in [[], [folder, "more"], [folder, "--date", "yesterday"], [folder, "--date", "2026-02-30"],
                  [folder, "--date", "2026-3-1x"], [folder, "--date", "1969-12-31"], [folder, "--days", "0"],
                  [folder, "--days", "9"], [folder, "--days"], [folder, "--seconds", "3"], [folder, "--seconds", "1e9"],
                  [folder, "--fast"], [""]]:
        ran = subprocess.run([str(context.program), *words], stderr=subprocess.PIPE, text=True, timeout=LIMIT, check=False)
        refused(ran, 2, "--help")
    assert not Path(folder).exists(), "the folder was made"
    ran = subprocess.run([str(context.program), "--help"], stdout=subprocess.PIPE, text=True, timeout=LIMIT, check=True)
    assert all(option in ran.stdout for option in ("--date", "--days", "--seconds")), ran.stdout


CHECKS = [
    folder_has_the_multiplexes, ffprobe_lists_programs, printer_lists_network, printer_lists_services,
    printer_lists_present_and_following, streams_can_be_decoded, clocks_are_even, counters_have_no_gap, time_moves_through_the_file,
    other_multiplexes_are_announced, schedule_has_no_gap, events_describe_themselves, scrambled_service_is_scrambled,
    later_start_needs_no_ffmpeg_and_changes_nothing, next_day_continues_the_guide, shorter_guide,
    damaged_pictures_are_made_again, missing_ffmpeg, failing_ffmpeg, file_that_cannot_grow, folder_that_cannot_be,
    interruption_leaves_nothing, kill_leaves_no_half_multiplex, two_at_once, wrong_command_lines,
]


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    failed = 0
    with tempfile.TemporaryDirectory(prefix="dtv-multiplexes-") as name:
        work = Path(name)
        context = Context(Path(sys.argv[1]).resolve() / "bin/dtv-multiplexes", work, work / "antenna")
        filled(context.program, context.folder)
        for check in CHECKS:
            try:
                check(context)
            except Exception:  # pylint: disable=broad-except
                failed += 1
                print(f"--- {check.__name__}\n{traceback.format_exc(limit=-2)}")
    print(f"{len(CHECKS) - failed} passed, {failed} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
