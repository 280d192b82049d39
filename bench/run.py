#!/usr/bin/env python3
"""Measures the plugin in process and the host over WebSocket, each beside a floor taken in turn with it.

    bench/run.py --build build --out build/bench.json
    bench/run.py --build build --out other.json --host other/bin/dtv-host      with the plugin, tap and TV of that build

The host's floor is bench_echo_lws, a server that does nothing but answer; bench_echo_beast stands beside it.
Writes {name: {value, unit, floor, ratio}}. A missed target is printed but is no error, since figures from a busy machine
are poor. What cannot be measured is printed and left out of the file.
All servers are started here, listen on the loopback address only and are ended here.
"""
import argparse
import contextlib
import json
import os
import pathlib
import re
import statistics
import subprocess
import sys
import tempfile
import threading
import time
from typing import NamedTuple

ROUNDS = 11  # short ones, for figures that are medians of rounds: even on a busy machine most pass undisturbed
GET = '{"jsonrpc":"2.0","id":1,"method":"get","params":{"uri":"/tv/cast/volume/volume"}}'
GET_REPLY = '"ret":0'
ECHO_REQUEST = "x" * 100
ECHO_REPLY_SIZE = 200
IDLE_SECONDS = 5.0
SETTLE_SECONDS = 12.0  # CEC devices announce themselves meanwhile, and the time limit of the last request passes
IDLE_CLIENTS = 250
SLOW_GETS_PAUSE_US = 40_000  # 25 a second
EVENTS = 400
UNSTEADY = 1.5  # upper quartile of the rounds / lower one; above it, a figure says more about the machine's other work

# What must hold of a figure's ratio to its floor; of its value where a unit is given.
AT_MOST, AT_LEAST = "at most", "at least"
TARGETS = {
    "get_volume": (AT_MOST, 3),  # where a request comes with it, nearly half of a get is cJSON's parse
    "get_volume_without_request": (AT_MOST, 3),
    "get_config_number": (AT_MOST, 3),
    "get_language_string": (AT_MOST, 3),
    "get_channel": (AT_MOST, 3),
    "get_64_events": (AT_MOST, 3),
    "get_media_info": (AT_MOST, 3),
    "get_24_media": (AT_MOST, 3),
    "get_thumbnail": (AT_MOST, 3),
    "guide_import": (AT_MOST, 15, "s"),
    "guide_import_peak_memory": (AT_MOST, 50, "MiB"),
    "guide_present": (AT_MOST, 3),
    "guide_range_3_hours": (AT_MOST, 3),
    "guide_filter_channel_day": (AT_MOST, 3),
    "guide_filter_all_3_hours": (AT_MOST, 1000, "us"),
    "guide_filter_all_first_1024": (AT_MOST, 1000, "us"),
    "guide_start_with_300000_events": (AT_MOST, 0.3, "s"),
    "library_scan_files": (AT_LEAST, 200, "files/s"),
    "library_second_scan": (AT_MOST, 2, "s"),
    "library_volume_p99_beside_scan": (AT_MOST, 1000, "us"),
    "library_memory": (AT_MOST, 150, "MiB"),
    "notify_single": (AT_MOST, 4),
    "notify_queued_empty": (AT_MOST, 5),
    "notify_appended": (AT_MOST, 5),
    "notify_channel_appended": (AT_MOST, 3),
    "notify_behind_100": (AT_MOST, 1.5),
    "notify_and_fetch": (AT_MOST, 4),
    "channels_next": (AT_MOST, 50_000, "ns"),
    "channels_by_index": (AT_MOST, 50_000, "ns"),
    "channels_index_of": (AT_MOST, 50_000, "ns"),
    "channels_count": (AT_MOST, 50_000, "ns"),
    "host_sequential_p50": (AT_MOST, 1.25),
    "host_64_in_flight": (AT_LEAST, 1.3),
    "host_64_clients": (AT_LEAST, 0.55),
    "host_event_p50": (AT_MOST, 3.0),
    "host_notification_p50": (AT_MOST, 3.0),
    "host_cpu_spread": (AT_MOST, 1.25, "times"),
    "host_idle_cpu": (AT_MOST, 0.1, "%"),
    "host_idle_wakeups": (AT_MOST, 0, "in 5 s"),
    "host_25_gets_wakeups": (AT_MOST, 150, "/s"),
    "host_memory_per_websocket": (AT_MOST, 16, "KiB"),
    "host_get_p99_beside_sets": (AT_MOST, 1.5),
    "host_get_p99_beside_scan": (AT_MOST, 1000, "us"),
    "host_no_tap_idle_cpu": (AT_MOST, 1, "%"),
    "host_no_tap_notification_p99": (AT_MOST, 2000, "us"),
}


MULTIPLEXES = 100
SCAN_PAUSE = 0.1  # seconds from one start of a scan to the next attempt: starting a program costs more than a scan
MULTIPLEX_PACKETS = 16000  # 3 MB: read to the end, since its tables do not say everything


class Failed(Exception):
    """A benchmark could not be carried out; the text says which and why."""


class Server(NamedTuple):
    """A server that runs."""
    process: subprocess.Popen
    port: int


def run_json(words, timeout):
    """Runs a program that prints JSON lines; returns them."""
    done = subprocess.run([str(word) for word in words], capture_output=True, text=True, timeout=timeout)
    if done.returncode != 0:
        raise Failed(f"{pathlib.Path(words[0]).name} failed: {done.stderr.strip()}")
    return [json.loads(line) for line in done.stdout.splitlines()]


@contextlib.contextmanager
def server(words, log, environment=None):
    """Starts a server that prints its address, yields it as a Server, and ends it afterwards."""
    with open(log, "w", encoding="utf-8") as errors:
        process = subprocess.Popen([str(word) for word in words], stdout=subprocess.PIPE, stderr=errors, text=True,
                                   env={**os.environ, **(environment or {})})
    try:
        # A line, perhaps behind those of the plugin's log; the end of the output when the server does not start.
        found = next(filter(None, (re.search(r"http://127\.0\.0\.1:(\d+)/", line) for line in process.stdout)), None)
        if not found:
            process.kill()
            raise Failed(f"{words[0]} does not start: {pathlib.Path(log).read_text(encoding='utf-8').strip()}")
        yield Server(process, int(found.group(1)))
    finally:
        process.terminate()
        try:
            process.wait(5)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()
        process.stdout.close()


def tasks(process):
    return pathlib.Path(f"/proc/{process.pid}/task").iterdir()


def cpu_ns(process):
    """CPU time that all threads have used."""
    return sum(int((task / "schedstat").read_text().split()[0]) for task in tasks(process))


def wakeups(process):
    """How often all threads together have gone to sleep of their own will."""
    texts = ((task / "status").read_text() for task in tasks(process))
    return sum(int(re.search(r"^voluntary_ctxt_switches:\s*(\d+)", text, re.M).group(1)) for text in texts)


def resident_kib(process):
    text = pathlib.Path(f"/proc/{process.pid}/status").read_text()
    return int(re.search(r"^VmRSS:\s*(\d+) kB", text, re.M).group(1))


def section(table, extension, body):
    """A section of a transport stream's table, with its CRC."""
    text = bytes([table]) + (0xB000 | len(body) + 9).to_bytes(2, "big") + extension.to_bytes(2, "big") + b"\xC1\0\0"
    text += body
    crc = 0xFFFFFFFF
    for byte in text:
        crc ^= byte << 24
        for _ in range(8):
            crc = (crc << 1 ^ 0x04C11DB7 if crc & 0x80000000 else crc << 1) & 0xFFFFFFFF
    return text + crc.to_bytes(4, "big")


def packet(pid, text):
    """A packet that holds one short section."""
    return (b"\x47" + (0x4000 | pid).to_bytes(2, "big") + b"\x10\0" + text).ljust(188, b"\xFF")


def multiplex(stream):
    """A transport stream with one television service, with its tables at the beginning."""
    name = f"Service of {stream}".encode()
    named = b"\x01\0" + bytes([len(name)]) + name
    service = b"\0\1\xFC" + (0x8000 | len(named) + 2).to_bytes(2, "big") + b"\x48" + bytes([len(named)]) + named
    tables = [packet(0x00, section(0x00, stream, b"\0\1\xE0\x40")),
              packet(0x40, section(0x02, 1, b"\xE1\0\xF0\0\x02\xE1\0\xF0\0")),
              packet(0x11, section(0x42, stream, b"\0\1\xFF" + service))]
    return b"".join(tables) + packet(0x1FFF, b"") * (MULTIPLEX_PACKETS - len(tables))


def during(seconds, count):
    """(how much a count grew while this slept for about `seconds`, the seconds that really passed)"""
    before, start = count(), time.monotonic()
    time.sleep(seconds)
    return count() - before, time.monotonic() - start


class Bench:
    """The programs of one build and the figures so far."""

    def __init__(self, build, host, scratch):
        self.bin, self.lib, self.scratch = build / "bin", build / "lib", scratch
        self.host_file = host or self.bin / "dtv-host"
        self.host_lib = self.host_file.parent.parent / "lib"
        self.figures = {}
        self.unsteady = set()  # names of figures whose rounds, or whose floor's, differ much
        programs = (self.bin / name
                    for name in ("bench_plugin", "bench_channels", "bench_client", "bench_echo_beast", "dtvctl"))
        for file in (*programs, self.host_file):
            if not file.exists():
                raise Failed(f"{file} is missing: build first")

    def add(self, name, unit, value, floor=None):
        ratio = value / floor if floor else None
        self.figures[name] = {"value": round(value, 3), "unit": unit, "floor": floor and round(floor, 3),
                              "ratio": ratio and round(ratio, 3)}

    def add_medians(self, name, unit, key, ours, floor):
        """Rounds of a figure beside those of its floor, which is empty where there is none."""
        medians = [statistics.median(run[key] for run in rounds) if rounds else None for rounds in (ours, floor)]
        self.add(name, unit, *medians)
        for rounds in filter(None, (ours, floor)):
            lower, _, upper = statistics.quantiles((run[key] for run in rounds), n=4)
            if upper > UNSTEADY * lower:
                self.unsteady.add(name)

    def host(self, name, *more, platform=None, environment=None):
        words = [self.host_file, "--listen", "127.0.0.1:0", "--state", self.scratch / name, "--plugin",
                 self.host_lib / "libdtv_js_plugin.so", "--platform", platform or self.host_lib / "libdtv_tv.so", *more]
        if "--no-tap" not in more:
            words += ["--tap", self.host_lib / "libdtv_tap.so"]
        return server(words, self.scratch / f"{name}.log", environment)

    @contextlib.contextmanager
    def echoes(self):
        """{name: Server}: those that are built. "lws" is the floor."""
        kinds = {"lws": ("bench_echo_lws",), "lws_joined": ("bench_echo_lws", "joined"), "beast": ("bench_echo_beast",)}
        with contextlib.ExitStack() as running:
            yield {kind: running.enter_context(
                       server([self.bin / program, ECHO_REPLY_SIZE, *more], self.scratch / f"{kind}.log"))
                   for kind, (program, *more) in kinds.items() if (self.bin / program).exists()}

    def client(self, port, *words, seconds=30):
        return run_json([self.bin / "bench_client", port, *words], seconds)[0]

    @contextlib.contextmanager
    def waiting_client(self, port, *words):
        """A client that says when it is ready and goes on until the end."""
        words = [str(word) for word in (self.bin / "bench_client", port, *words)]
        with subprocess.Popen(words, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                              text=True) as client:
            try:
                if not client.stdout.readline():
                    raise Failed(f"bench_client {words[2]}: {client.stderr.read().strip()}")
                time.sleep(0.5)
                yield
            finally:
                client.terminate()

    def requests(self, to, connections, in_flight, seconds, text, expected, pause_us=0):
        return self.client(to.port, "requests", connections, in_flight, pause_us, seconds, text, expected,
                           to.process.pid, seconds=seconds + 20)

    def gets(self, host, connections, in_flight, seconds, pause_us=0):
        return self.requests(host, connections, in_flight, seconds, GET, GET_REPLY, pause_us)

    def echo_requests(self, echo, connections, in_flight, seconds, pause_us=0):
        return self.requests(echo, connections, in_flight, seconds, ECHO_REQUEST, "x", pause_us)

    def measure_plugin(self):
        for figure in run_json([self.bin / "bench_plugin", (self.lib / "i18n").resolve()], 60):
            self.add(figure["name"], figure["unit"], figure["value"], figure["floor"])

    def measure_guide(self):
        with tempfile.TemporaryDirectory() as folder:
            for figure in run_json([self.bin / "bench_guide", folder], 300):
                self.add(figure["name"], figure["unit"], figure["value"], figure.get("floor"))

    def measure_library(self):
        """Scans of 10,000 photos."""
        with tempfile.TemporaryDirectory() as folder:
            for figure in run_json([self.bin / "bench_library", folder], 300):
                self.add(figure["name"], figure["unit"], figure["value"], figure.get("floor"))

    def measure_channels(self):
        """Look-ups among 2,000 channels, by the set's own functions."""
        for figure in run_json([self.bin / "bench_channels"], 60):
            self.add(figure["name"], figure["unit"], figure["value"], figure["floor"])

    def measure_requests(self, echoes):
        loads = {"sequential": (1, 1, 0.4), "64_in_flight": (1, 64, 0.3), "64_clients": (64, 1, 0.3),
                 f"{IDLE_CLIENTS}_clients": (IDLE_CLIENTS, 1, 0.3)}
        runs = {(kind, load): [] for kind in ("host", "lws", "lws_joined", "beast") for load in loads}
        with self.host("television") as host:
            for _ in range(ROUNDS):
                for load, shape in loads.items():
                    runs["host", load].append(self.gets(host, *shape))
                    for kind, echo in echoes.items():
                        if kind != "lws_joined" or load == "64_in_flight":  # elsewhere there is nothing to join
                            runs[kind, load].append(self.echo_requests(echo, *shape))
        for kind, name in (("host", "host"), ("beast", "echo_beast")):
            for part in ("p50", "p99"):
                self.add_medians(f"{name}_sequential_{part}", "us", part, runs[kind, "sequential"],
                                 runs["lws", "sequential"])
            for load in list(loads)[1:]:
                self.add_medians(f"{name}_{load}", "requests/s", "per_second", runs[kind, load], runs["lws", load])
        if "lws_joined" in echoes:
            self.add_medians("host_64_in_flight_to_joined", "requests/s", "per_second", runs["host", "64_in_flight"],
                             runs["lws_joined", "64_in_flight"])
        used = []
        for load in ("sequential", "64_clients", f"{IDLE_CLIENTS}_clients"):
            self.add_medians(f"host_cpu_{load}", "us/request", "cpu", runs["host", load], runs["lws", load])
            used.append(self.figures[f"host_cpu_{load}"]["value"])
        self.add("host_cpu_spread", "times", max(used) / min(used))
        print(f"host: {len(GET)} byte request, {runs['host', 'sequential'][0]['reply_size']} byte reply; "
              f"echo: {len(ECHO_REQUEST)} and {ECHO_REPLY_SIZE}")

    def measure_notifications(self, echoes):
        """The time from a set, and from a platform callback, until a client has read the notification of it.

        The floor of both is the echo's round trip. Callbacks come a millisecond apart, so that host and client have
        gone to sleep. What that alone costs is told by the echo's round trip with a millisecond's pause.
        """
        floor, asleep, sets, callbacks = [], [], [], []
        with self.host("callbacks", platform=self.lib / "libbench_platform.so") as host:
            for _ in range(ROUNDS):
                if "lws" in echoes:
                    asleep.append(self.echo_requests(echoes["lws"], 1, 1, 0.3, pause_us=1000))
                    floor.append(self.echo_requests(echoes["lws"], 1, 1, 0.3))
                sets.append(self.client(host.port, "events", EVENTS))
                callbacks.append(self.client(host.port, "notifications", EVENTS))
        for part in ("p50", "p99"):
            self.add_medians(f"host_event_{part}", "us", part, sets, floor)
            self.add_medians(f"host_notification_{part}", "us", part, callbacks, floor)
        if asleep:
            self.add_medians("echo_after_pause_p50", "us", "p50", asleep, floor)
        lost = ROUNDS * EVENTS - sum(run["count"] for run in callbacks)
        if lost:
            print(f"notifications: {lost} of {ROUNDS * EVENTS} were replaced by the next before they were fetched")

    def idle_cpu(self, host):
        with self.waiting_client(host.port, "subscribed", IDLE_SECONDS + 5):
            used, elapsed = during(IDLE_SECONDS, lambda: cpu_ns(host.process))
        return 100 * used / 1e9 / elapsed

    def measure_idle(self):
        with self.host("idle") as host:
            self.gets(host, 1, 1, 0.1)  # some threads and buffers come with the first call
            time.sleep(SETTLE_SECONDS)
            woken, _ = during(IDLE_SECONDS, lambda: wakeups(host.process))
            self.add("host_idle_wakeups", "in 5 s", woken)
            with subprocess.Popen([str(word) for word in (
                    self.bin / "bench_client", host.port, "requests", 1, 1, SLOW_GETS_PAUSE_US, IDLE_SECONDS + 1, GET,
                    GET_REPLY, host.process.pid)], stdout=subprocess.DEVNULL) as client:
                time.sleep(0.5)
                woken, elapsed = during(IDLE_SECONDS, lambda: wakeups(host.process))
            if client.returncode != 0:
                raise Failed("the gets fail")
            self.add("host_25_gets_wakeups", "/s", woken / elapsed)
            self.add("host_idle_cpu", "%", self.idle_cpu(host))

    def measure_memory(self):
        with self.host("memory") as host:
            self.gets(host, 1, 1, 0.1)
            before = resident_kib(host.process)
            with self.waiting_client(host.port, "idle", IDLE_CLIENTS):
                grown = resident_kib(host.process) - before
            self.add("host_memory_per_websocket", "KiB", grown / IDLE_CLIENTS)

    def measure_beside_sets(self):
        """A client's gets while another client sets steadily, so that the store writes; the floor: gets without sets."""
        alone, beside, sets = [], [], []
        with self.host("store") as host:
            for _ in range(ROUNDS):
                alone.append(self.gets(host, 1, 1, 0.8))
                with subprocess.Popen([str(self.bin / "bench_client"), str(host.port), "sets", "1.2"],
                                      stdout=subprocess.PIPE, text=True) as setter:
                    time.sleep(0.1)
                    beside.append(self.gets(host, 1, 1, 0.8))
                    answer, _ = setter.communicate(timeout=30)
                if setter.returncode != 0:
                    raise Failed("the sets fail")
                sets.append(json.loads(answer))
        for part in ("p50", "p99"):
            self.add_medians(f"host_get_{part}_beside_sets", "us", part, beside, alone)
        self.add_medians("host_changing_set_p50", "us", "p50", sets, [])

    def measure_beside_scan(self):
        """A client's gets while the set scans; the floor: gets without a scan, beside the same program that asks only."""
        folder = self.scratch / "antenna"
        folder.mkdir()
        for stream in range(1, MULTIPLEXES + 1):
            (folder / f"{stream}.ts").write_bytes(multiplex(stream))
        alone, beside, scans = [], [], 0
        with self.host("scan", "--antenna", folder) as host:
            dtvctl = [str(word) for word in (self.bin / "dtvctl", "--host", f"127.0.0.1:{host.port}", "--state",
                                             self.scratch / "scan", "--no-wait", "tv", "scan")]

            def gets_beside(words):
                """The figures of gets, and how often the program succeeded meanwhile."""
                gets, succeeded = {}, 0
                client = threading.Thread(target=lambda: gets.update(self.gets(host, 1, 1, 0.8)))
                client.start()
                while client.is_alive():  # one scan after the other; while one runs, another is refused
                    succeeded += subprocess.run(words, capture_output=True, timeout=30).returncode == 0
                    time.sleep(SCAN_PAUSE)
                client.join()
                if not gets:
                    raise Failed("the gets beside a scan fail")
                return gets, succeeded

            for _ in range(ROUNDS):
                gets, _ = gets_beside(dtvctl)
                alone.append(gets)
                gets, begun = gets_beside([*dtvctl, "all"])
                beside.append(gets)
                scans += begun
                while json.loads(subprocess.run([*dtvctl, "--json"], capture_output=True, timeout=30,
                                                check=True).stdout)["state"] == "running":
                    time.sleep(SCAN_PAUSE)
        if scans < ROUNDS:
            raise Failed(f"only {scans} scans ran in {ROUNDS} rounds")
        for part in ("p50", "p99"):
            self.add_medians(f"host_get_{part}_beside_scan", "us", part, beside, alone)

    def measure_without_tap(self):
        """Without a tap the host polls. Callbacks come 7 ms apart, so that it fetches each before the next replaces it."""
        with self.host("no_tap", "--no-tap", platform=self.lib / "libbench_platform.so",
                       environment={"BENCH_INTERVAL_US": "7000"}) as host:
            self.add("host_no_tap_idle_cpu", "%", self.idle_cpu(host))
            told = [self.client(host.port, "notifications", EVENTS // 2) for _ in range(3)]
        for part in ("p50", "p99"):
            self.add_medians(f"host_no_tap_notification_{part}", "us", part, told, [])

    def measure(self):
        """Measures everything that can be; says what cannot."""
        with self.echoes() as echoes:
            if "lws" not in echoes:
                print("bench_echo_lws is not built: there is no floor for the host's figures")
            for what, measure in (("plugin", self.measure_plugin), ("guide", self.measure_guide),
                                  ("library", self.measure_library), ("channels", self.measure_channels),
                                  ("requests", lambda: self.measure_requests(echoes)),
                                  ("notifications", lambda: self.measure_notifications(echoes)),
                                  ("idle host", self.measure_idle), ("memory", self.measure_memory),
                                  ("gets beside sets", self.measure_beside_sets),
                                  ("gets beside a scan", self.measure_beside_scan),
                                  ("host without tap", self.measure_without_tap)):
                try:
                    measure()
                except (Failed, subprocess.TimeoutExpired, OSError) as failure:
                    print(f"{what}: not measured: {failure}")


def verdict(name, figure):
    if name not in TARGETS:
        return ""
    bound, limit, *unit = TARGETS[name]
    subject = figure["value"] if unit else figure["ratio"]
    if subject is None:
        return f"{bound} {limit}: no floor"
    met = subject <= limit if bound == AT_MOST else subject >= limit
    return f"{' '.join([bound, str(limit), *unit])}: {'met' if met else 'MISSED'}"


def print_table(figures, unsteady):
    def number(value):
        return "" if value is None else f"{value:,.0f}" if value >= 1000 else f"{value:.3g}" if value < 1 else f"{value:.1f}"

    print(f"{'':28} {'measured':>10} {'floor':>10} {'':10} {'ratio':>6}  target")
    for name, figure in figures.items():
        ratio = "" if figure["ratio"] is None else f"{figure['ratio']:.2f}"
        print(f"{name:28} {number(figure['value']):>10} {number(figure['floor']):>10} {figure['unit']:10} {ratio:>6}  "
              f"{verdict(name, figure)}{' (unsteady)' if name in unsteady else ''}")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=pathlib.Path, default=pathlib.Path("build"), help="folder of a release build")
    parser.add_argument("--out", type=pathlib.Path, required=True, help="JSON file to write")
    parser.add_argument("--host", type=pathlib.Path, help="the dtv-host of another build")
    arguments = parser.parse_args()
    start = time.monotonic()
    with tempfile.TemporaryDirectory(prefix="dtv-bench-") as scratch:
        try:
            bench = Bench(arguments.build.resolve(), arguments.host and arguments.host.resolve(), pathlib.Path(scratch))
            bench.measure()
        except (Failed, OSError) as failure:
            print(f"bench: {failure}", file=sys.stderr)
            return 1
    print_table(bench.figures, bench.unsteady)
    arguments.out.write_text(json.dumps(bench.figures, indent=2) + "\n", encoding="utf-8")
    print(f"{time.monotonic() - start:.0f} s, load {os.getloadavg()[0]:.1f} on {os.cpu_count()} processors; "
          f"written to {arguments.out}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
