#!/usr/bin/env python3
"""Measures the plugin in process and the host over WebSocket, each beside a floor taken in turn with it.

    bench/run.py --build build --out build/bench.json

Writes {name: {value, unit, floor, ratio}}. A missed target is said and is no error: a busy machine measures badly.
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
import time

ROUNDS = 11  # each figure is the median of so many, short ones: on a busy machine some of them pass undisturbed
GET = '{"jsonrpc":"2.0","id":1,"method":"get","params":{"uri":"/tv/cast/volume/volume"}}'
GET_REPLY = '"ret":0'
ECHO_REQUEST = "x" * 100
ECHO_REPLY_SIZE = 200
IDLE_SECONDS = 5.0
UNSTEADY = 1.5  # between the quartiles of the rounds; beyond it a figure says more about the machine's other work

# What must hold of a figure's ratio to its floor, or of its value where it has no floor.
AT_MOST, AT_LEAST = "at most", "at least"
TARGETS = {
    "get_volume": (AT_MOST, 1.5),
    "get_volume_without_request": (AT_MOST, 1.5),
    "get_config_number": (AT_MOST, 1.5),
    "get_language_string": (AT_MOST, 1.5),
    "set_volume": (AT_MOST, 1.5),
    "notify_single": (AT_MOST, 1.5),
    "notify_queued_empty": (AT_MOST, 1.5),
    "notify_queued_1000": (AT_MOST, 1.5),
    "notify_and_fetch": (AT_MOST, 1.5),
    "host_sequential_p50": (AT_MOST, 1.4),
    "host_64_in_flight": (AT_LEAST, 0.5),
    "host_64_clients": (AT_LEAST, 0.5),
    "host_notification_p50": (AT_MOST, 3.0),
    "host_idle_cpu": (AT_MOST, 0.1),
}


class Failed(Exception):
    """A benchmark could not be carried out; the text says which and why."""


def run_json(words, timeout):
    """Runs a program that prints JSON lines; returns them."""
    done = subprocess.run([str(word) for word in words], capture_output=True, text=True, timeout=timeout)
    if done.returncode != 0:
        raise Failed(f"{pathlib.Path(words[0]).name} failed: {done.stderr.strip()}")
    return [json.loads(line) for line in done.stdout.splitlines()]


@contextlib.contextmanager
def server(words, log):
    """Starts a server that prints its address; gives its process and port, and ends it."""
    with open(log, "w", encoding="utf-8") as errors:
        process = subprocess.Popen([str(word) for word in words], stdout=subprocess.PIPE, stderr=errors, text=True)
    try:
        # A line, which may come behind those of the plugin's log, or the end of the output when the server does not start.
        found = next(filter(None, (re.search(r"http://127\.0\.0\.1:(\d+)/", line) for line in process.stdout)), None)
        if not found:
            process.kill()
            raise Failed(f"{words[0]} does not start: {pathlib.Path(log).read_text(encoding='utf-8').strip()}")
        yield process, int(found.group(1))
    finally:
        process.terminate()
        try:
            process.wait(5)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()
        process.stdout.close()


def cpu_ns(pid):
    """CPU time that all threads of a process have used."""
    total = 0
    for task in pathlib.Path(f"/proc/{pid}/task").iterdir():
        total += int((task / "schedstat").read_text().split()[0])
    return total


class Bench:
    """The programs of one build and the figures so far."""

    def __init__(self, build, scratch):
        self.bin, self.lib, self.scratch = build / "bin", build / "lib", scratch
        self.figures = {}
        self.unsteady = set()  # names of figures whose rounds, or whose floor's, differ much
        for name in ("bench_plugin", "bench_client", "bench_echo", "dtv-host"):
            if not (self.bin / name).exists():
                raise Failed(f"{self.bin / name} is missing: build first")

    def add(self, name, unit, value, floor):
        ratio = value / floor if floor else None
        self.figures[name] = {"value": round(value, 3), "unit": unit, "floor": floor and round(floor, 3),
                              "ratio": ratio and round(ratio, 3)}

    def add_medians(self, name, unit, key, ours, floor):
        self.add(name, unit, statistics.median(run[key] for run in ours), statistics.median(run[key] for run in floor))
        for rounds in (ours, floor):
            lower, _, upper = statistics.quantiles((run[key] for run in rounds), n=4)
            if upper > UNSTEADY * lower:
                self.unsteady.add(name)

    def host(self, name, *more):
        state = self.scratch / name
        words = [self.bin / "dtv-host", "--listen", "127.0.0.1:0", "--state", state, "--plugin",
                 self.lib / "libdtv_js_plugin.so", "--tap", self.lib / "libdtv_tap.so", *more]
        return server(words, self.scratch / f"{name}.log")

    def echo(self):
        return server([self.bin / "bench_echo", ECHO_REPLY_SIZE], self.scratch / "echo.log")

    def requests(self, port, connections, in_flight, seconds, text, expected, pause_us=0):
        words = [self.bin / "bench_client", port, "requests", connections, in_flight, pause_us, seconds, text, expected]
        return run_json(words, seconds + 20)[0]

    def measure_plugin(self):
        for figure in run_json([self.bin / "bench_plugin", (self.lib / "i18n").resolve()], 60):
            self.add(figure["name"], figure["unit"], figure["value"], figure["floor"])

    def measure_requests(self, host_port, echo_port):
        loads = (("sequential", 1, 1, 0.4), ("64_in_flight", 1, 64, 0.3), ("64_clients", 64, 1, 0.3))
        floor = {load[0]: [] for load in loads}
        ours = {load[0]: [] for load in loads}
        for _ in range(ROUNDS):
            for name, connections, in_flight, seconds in loads:
                shape = (connections, in_flight, seconds)
                floor[name].append(self.requests(echo_port, *shape, ECHO_REQUEST, "x"))
                ours[name].append(self.requests(host_port, *shape, GET, GET_REPLY))
        for part in ("p50", "p99"):
            self.add_medians(f"host_sequential_{part}", "us", part, ours["sequential"], floor["sequential"])
        for name in ("64_in_flight", "64_clients"):
            self.add_medians(f"host_{name}", "requests/s", "per_second", ours[name], floor[name])
        print(f"host: {len(GET)} byte request, {ours['sequential'][0]['reply_size']} byte reply; "
              f"echo: {len(ECHO_REQUEST)} and {ECHO_REPLY_SIZE}")

    def measure_notifications(self, host_port, echo_port):
        """From just before the platform's callback to the client's receipt; the floor is the echo's round trip.

        Callbacks come a millisecond apart, so that host and client have gone to sleep. What that alone costs is told by
        the echo's round trip with a millisecond's pause between requests.
        """
        floor, asleep, ours, count = [], [], [], 400
        for _ in range(ROUNDS):
            asleep.append(self.requests(echo_port, 1, 1, 0.3, ECHO_REQUEST, "x", pause_us=1000))
            floor.append(self.requests(echo_port, 1, 1, 0.3, ECHO_REQUEST, "x"))
            ours.append(run_json([self.bin / "bench_client", host_port, "notifications", count], 30)[0])
        for part in ("p50", "p99"):
            self.add_medians(f"host_notification_{part}", "us", part, ours, floor)
        self.add_medians("echo_after_pause_p50", "us", "p50", asleep, floor)
        lost = ROUNDS * count - sum(run["count"] for run in ours)
        if lost:
            print(f"notifications: {lost} of {ROUNDS * count} were replaced by the next before they were fetched")

    def measure_idle(self, process, port):
        words = [self.bin / "bench_client", port, "subscribed", IDLE_SECONDS + 2]
        with subprocess.Popen([str(word) for word in words], stdout=subprocess.PIPE, text=True) as client:
            if not client.stdout.readline():
                raise Failed("no client can subscribe to the idle host")
            time.sleep(0.5)
            before, start = cpu_ns(process.pid), time.monotonic_ns()
            time.sleep(IDLE_SECONDS)
            used, elapsed = cpu_ns(process.pid) - before, time.monotonic_ns() - start
            client.terminate()
        self.add("host_idle_cpu", "%", 100 * used / elapsed, None)

    def measure_host(self):
        with self.echo() as (_, echo_port):
            with self.host("television", "--platform", self.lib / "libdtv_tv.so") as (process, port):
                self.measure_requests(port, echo_port)
                self.measure_idle(process, port)
            with self.host("callbacks", "--platform", self.lib / "libbench_platform.so") as (_, port):
                self.measure_notifications(port, echo_port)


def verdict(name, figure):
    if name not in TARGETS:
        return ""
    bound, limit = TARGETS[name]
    subject = figure["value"] if figure["ratio"] is None else figure["ratio"]
    met = subject <= limit if bound == AT_MOST else subject >= limit
    unit = f" {figure['unit']}" if figure["ratio"] is None else ""
    return f"{bound} {limit}{unit}: {'met' if met else 'MISSED'}"


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
    arguments = parser.parse_args()
    start = time.monotonic()
    with tempfile.TemporaryDirectory(prefix="dtv-bench-") as scratch:
        try:
            bench = Bench(arguments.build.resolve(), pathlib.Path(scratch))
            bench.measure_plugin()
            bench.measure_host()
        except (Failed, subprocess.TimeoutExpired, OSError) as failure:
            print(f"bench: {failure}", file=sys.stderr)
            return 1
    print_table(bench.figures, bench.unsteady)
    arguments.out.write_text(json.dumps(bench.figures, indent=2) + "\n", encoding="utf-8")
    print(f"{time.monotonic() - start:.0f} s, load {os.getloadavg()[0]:.1f} on {os.cpu_count()} processors; "
          f"written to {arguments.out}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
