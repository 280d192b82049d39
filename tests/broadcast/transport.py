"""Reads transport streams: a second reader, which shares nothing with the program that writes them."""

from datetime import datetime, timedelta, timezone
from typing import NamedTuple

PACKET = 188
NULL_PID = 0x1FFF
# The first byte of a text, and the character set that it announces. Python has no ISO 6937: only its ASCII part is read.
CHARACTER_SETS = {0x01: "iso8859-5", 0x03: "iso8859-7", 0x05: "iso8859-9", 0x0B: "iso8859-15", 0x11: "utf-16-be",
                  0x12: "euc-kr", 0x13: "gb2312", 0x15: "utf-8"}


class Packet(NamedTuple):
    pid: int
    starts: bool  # payload_unit_start_indicator
    scrambling: int
    counter: int
    payload: bytes


class Section(NamedTuple):
    pid: int
    table: int
    extension: int
    version: int
    number: int
    last: int
    data: bytes  # all of it, the CRC included


class Event(NamedTuple):
    id: int
    start: datetime
    duration: timedelta
    running: int
    scrambled: bool
    descriptors: list  # of (tag, contents)


def packets(data):
    """Every packet of a file; a byte out of step is an error."""
    assert data and len(data) % PACKET == 0, f"{len(data)} bytes are not whole packets"
    for at in range(0, len(data), PACKET):
        head = data[at:at + 4]
        assert head[0] == 0x47, f"no packet begins at byte {at}"
        assert not head[1] & 0x80, f"the packet at byte {at} says that it is broken"
        begin = at + 4
        if head[3] & 0x20:
            begin += 1 + data[begin]
        payload = data[begin:at + PACKET] if head[3] & 0x10 else b""
        yield Packet((head[1] & 0x1F) << 8 | head[2], bool(head[1] & 0x40), head[3] >> 6, head[3] & 0x0F, payload)


def crc(data):
    value = 0xFFFFFFFF
    for byte in data:
        value = value << 8 & 0xFFFFFFFF ^ CRC_TABLE[value >> 24 ^ byte]
    return value


def crc_row(byte):
    value = byte << 24
    for _ in range(8):
        value = value << 1 & 0xFFFFFFFF ^ (0x04C11DB7 if value & 0x80000000 else 0)
    return value


CRC_TABLE = [crc_row(byte) for byte in range(256)]


def sections(all_packets, pid):
    """The sections of a PID in the order in which they end. One with a wrong CRC is an error; the last one may be cut."""
    held = None
    for packet in all_packets:
        if packet.pid != pid or not packet.payload:
            continue
        pieces = [packet.payload]
        if packet.starts:
            pointer = packet.payload[0]
            pieces = [packet.payload[1:1 + pointer], packet.payload[1 + pointer:]]
            if held is not None and pointer:
                held += pieces[0]
                yield from whole(pid, held)
            held = pieces[1]
        elif held is not None:
            held += pieces[0]
        if held is not None:
            length = 3 + ((held[1] & 0x0F) << 8 | held[2]) if len(held) >= 3 else None
            if length and len(held) >= length:
                yield from whole(pid, held)
                rest = held[length:]
                assert not rest.strip(b"\xff"), "something stands behind a section"
                held = None


def whole(pid, held):
    length = 3 + ((held[1] & 0x0F) << 8 | held[2])
    data = held[:length]
    if not data[1] & 0x80:  # without the long header
        assert data[0] == 0x70 or crc(data) == 0, f"table {data[0]:#x}: wrong CRC"
        yield Section(pid, data[0], 0, 0, 0, 0, data)
        return
    assert crc(data) == 0, f"table {data[0]:#x}: wrong CRC"
    yield Section(pid, data[0], data[3] << 8 | data[4], data[5] >> 1 & 0x1F, data[6], data[7], data)


def bcd(byte):
    assert byte >> 4 < 10 and byte & 15 < 10, f"{byte:#x} is no number"
    return (byte >> 4) * 10 + (byte & 15)


def time_of(data):
    """Five bytes: the day, counted from 17 November 1858, and the time of day."""
    day = datetime(1858, 11, 17, tzinfo=timezone.utc) + timedelta(days=data[0] << 8 | data[1])
    return day + timedelta(hours=bcd(data[2]), minutes=bcd(data[3]), seconds=bcd(data[4]))


def descriptors(data):
    found = []
    while data:
        assert len(data) >= 2 + data[1], "a descriptor is longer than its loop"
        found.append((data[0], data[2:2 + data[1]]))
        data = data[2 + data[1]:]
    return found


def events(section):
    """The events of an EIT section."""
    data, found = section.data[14:-4], []
    while data:
        duration = timedelta(hours=bcd(data[7]), minutes=bcd(data[8]), seconds=bcd(data[9]))
        length = (data[10] & 0x0F) << 8 | data[11]
        found.append(Event(data[0] << 8 | data[1], time_of(data[2:7]), duration, data[10] >> 5, bool(data[10] & 0x10),
                           descriptors(data[12:12 + length])))
        data = data[12 + length:]
    return found


def text(data):
    """A text in the character set of its lead bytes; None where it has accents of ISO 6937."""
    if not data:
        return ""
    if data[0] >= 0x20:
        return data.decode("ascii") if data.isascii() else None
    if data[0] == 0x10:
        return data[3:].decode(f"iso8859-{data[1] << 8 | data[2]}")
    return data[1:].decode(CHARACTER_SETS[data[0]])
