#!/usr/bin/env python3
"""What the service costs, beside Debian's cron in the same run on the same machine: a table of medians, with the least
and the most of each. Needs root, and takes some ten minutes.

Both daemons see their minutes begin at a chosen instant: their zone has an offset with seconds in it."""

import argparse
import contextlib
import os
import platform
import statistics
import struct
import sys
import tempfile
import time

import private_machine
from daemons import CronKind, VukocrondKind, zone_with_a_minute_in

NS = 1e9
EVERY_MINUTE = "* * * * *"
MIX = 20


def idle_jobs(count):
    """Jobs of the usual kinds, none of which is due on this day or the next ones."""
    month = (time.localtime().tm_mon + 5) % 12 + 1
    jobs = []
    for i in range(count):
        minute, hour, day = i % 60, i // 60 % 24, i // 1440 % 28 + 1
        crontab = {0: f"* * {day} {month} *",
                   1: f"{minute} * {day} {month} *",
                   2: f"{minute} * {day} {month} *",
                   3: f"0,15,30,45 * {day} {month} *",
                   4: f"* {hour} {day} {month} *"}.get(i % MIX, f"{minute} {hour} {day} {month} *")
        jobs.append((crontab, f"/usr/local/bin/job{i} --quiet"))
    return jobs


class Figures:
    """Samples by figure and daemon, in the order of their first appearance."""

    def __init__(self):
        self._rows = {}

    def add(self, figure, kind, sample, unit="ms", target=""):
        row = self._rows.setdefault(figure, {"unit": unit, "target": target, "samples": {}})
        row["samples"].setdefault(kind.name, []).append(sample)

    def print(self, names):
        print(f"{'figure':<60} | {names[0]:<36} | {names[1]:<36} | target")
        for figure, row in self._rows.items():
            cells = [self._cell(row, name) for name in names]
            print(f"{figure:<60} | {cells[0]:<36} | {cells[1]:<36} | {row['target']}")

    @staticmethod
    def _cell(row, name):
        samples = row["samples"].get(name)
        if not samples:
            return "-"
        text = f"{statistics.median(samples):.2f} {row['unit']}"
        if len(samples) > 1:
            text += f" ({min(samples):.2f} .. {max(samples):.2f}, n={len(samples)})"
        return text


class Bench:
    def __init__(self, bin_folder, work, arguments):
        self.quick = arguments.quick
        self.repetitions = 1 if arguments.quick else arguments.repetitions
        self.figures = Figures()
        self.stamp = os.path.join(bin_folder, "bench_stamp")
        self.kinds = [VukocrondKind(bin_folder, work), CronKind()]
        self._files = 0

    def new_stamp_file(self):
        self._files += 1
        return f"/dev/shm/stamps{self._files}"

    def stamps(self, path):
        try:
            with open(path, "rb") as file:
                data = file.read()
        except FileNotFoundError:
            return []
        return sorted(struct.unpack(f"{len(data) // 8}q", data))

    def await_stamps(self, path, count, instant):
        while not os.path.exists(path) or os.path.getsize(path) < 8 * count:
            if time.time() > instant + 60:
                raise RuntimeError(f"{len(self.stamps(path))} of {count} jobs have started")
            time.sleep(0.01)
        return [(ns - instant * NS) / 1e6 for ns in self.stamps(path)]

    def starts(self, kind, count):
        """Starts of so many jobs in the first minute, in milliseconds after its begin."""
        path = self.new_stamp_file()
        kind.define([(EVERY_MINUTE, f"{self.stamp} {path}")] * count, per_file=100)
        zone, instant = zone_with_a_minute_in(3)
        with kind.start(zone) as daemon:
            daemon.await_loaded()
            after = self.await_stamps(path, count, instant)
            time.sleep(1)  # the ends are taken, too
        kind.clean()
        return after

    def measure_singles(self):
        """One job each: in the first minute of a daemon's life, several times, and in further minutes of one life,
        where both run at once and each begins its minutes when the other rests."""
        for _ in range(self.repetitions):
            for kind in self.kinds:
                self.add_single(kind, self.starts(kind, 1)[0])
        minutes = 0 if self.quick else 3
        with contextlib.ExitStack() as stack:
            running = []
            for number, kind in enumerate(self.kinds):
                path = self.new_stamp_file()
                kind.define([(EVERY_MINUTE, f"{self.stamp} {path}")])
                zone, instant = zone_with_a_minute_in(5 + 25 * number)
                stack.callback(kind.clean)
                stack.enter_context(kind.start(zone)).await_loaded()
                running.append((kind, path, instant))
            for kind, path, instant in running:
                last = instant + 60 * (minutes - 1)
                time.sleep(max(0, last + 5 - time.time()))
                for minute, ns in enumerate(self.stamps(path)[:minutes]):
                    self.add_single(kind, (ns - (instant + 60 * minute) * NS) / 1e6)

    def add_single(self, kind, after):
        self.figures.add("one job has started after its minute", kind, after, target="10 ms")

    def measure_bursts(self):
        for count, target, each in ((200, "250 ms", ""), (1000, "1100 ms", "1.1 ms")):
            for _ in range(self.repetitions):
                for kind in self.kinds:
                    self.burst(kind, count, target, each)
                service = self.kinds[0]
                service.tmp_on_disk = True
                self.burst(service, count, target, each, ", /tmp on disk")
                service.tmp_on_disk = False

    def burst(self, kind, count, target, each, where=""):
        after = self.starts(kind, count)
        self.figures.add(f"{count} jobs have started after their minute{where}", kind, after[-1], target=target)
        self.figures.add(f"of these {count}, each after the one before{where}", kind,
                         (after[-1] - after[0]) / (count - 1), target=each)

    def measure_idle_minutes(self):
        minutes = 1 if self.quick else 3
        count = 1000 if self.quick else 100_000
        with contextlib.ExitStack() as stack:
            running = []
            for number, kind in enumerate(self.kinds):
                kind.define(idle_jobs(count), per_file=1000)
                stack.callback(kind.clean)
                zone, instant = zone_with_a_minute_in(20 + 20 * number)
                daemon = stack.enter_context(kind.start(zone))
                daemon.await_loaded()
                running.append((kind, daemon, instant, []))
            for minute in range(minutes + 1):
                for kind, daemon, instant, used in running:
                    time.sleep(max(0, instant + 60 * minute - 5 - time.time()))
                    used.append(daemon.cpu_ns())
            for kind, _, _, used in running:
                for before, after in zip(used, used[1:]):
                    self.figures.add(f"CPU of an idle minute over {count} jobs", kind, (after - before) / 1e6,
                                     target="1 ms")

    def measure_loading(self):
        loads = ((100, 1, ""), (10_000, 1, "500 ms"), (100_000, 1000, ""))
        for count, per_file, target in loads[:1] if self.quick else loads:
            for _ in range(self.repetitions):
                for kind in self.kinds:
                    self.load(kind, count, per_file, target)

    def load(self, kind, count, per_file, target):
        files = count // per_file
        kind.define(idle_jobs(count), per_file)
        with kind.start("UTC0") as daemon:
            seconds = daemon.await_loaded()
            cpu = daemon.cpu_ns()
        kind.clean()
        figure = f"{count} jobs in {files} files have loaded"
        self.figures.add(figure, kind, seconds * 1e3, target=target)
        self.figures.add(figure + ", CPU", kind, cpu / 1e6)

    def measure_memory(self):
        """Resident memory after the first minute, by the number of jobs."""
        resident = {}
        counts = (100, 1000) if self.quick else (100, 1000, 10_000, 100_000)
        for count in counts:
            for kind in self.kinds:
                kind.define(idle_jobs(count), per_file=100)
                zone, instant = zone_with_a_minute_in(4 + count // 20_000)
                with kind.start(zone) as daemon:
                    daemon.await_loaded()
                    time.sleep(max(0, instant + 0.5 - time.time()))
                    resident[kind.name, count] = daemon.resident_kib()
                kind.clean()
                self.figures.add(f"resident memory at {count} jobs", kind, resident[kind.name, count], "KiB",
                                 "8192 KiB" if count == 100 else "")
        for fewer, more in zip(counts, counts[1:]):
            for kind in self.kinds:
                each = (resident[kind.name, more] - resident[kind.name, fewer]) * 1024 / (more - fewer)
                self.figures.add(f"each further job, {fewer} to {more}", kind, each, "bytes", "5120 bytes")


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("bin_folder", help="where vukocrond and bench_stamp are")
    parser.add_argument("--quick", action="store_true", help="a moment of each, and fewer jobs: no figures to go by")
    parser.add_argument("--repetitions", type=int, default=5)
    parser.add_argument("--only", action="append", help="measure NAME alone: " + ", ".join(PARTS), metavar="NAME",
                        choices=PARTS)
    return parser.parse_args()


PARTS = ("singles", "bursts", "idle_minutes", "loading", "memory")


def main():
    arguments = parse_arguments()
    if os.geteuid() != 0:
        sys.exit("service_bench.py: only root can start jobs as other accounts and run in namespaces of its own")
    private_machine.enter()
    with tempfile.TemporaryDirectory(prefix="vukocrond-bench-") as work:
        bench = Bench(os.path.abspath(arguments.bin_folder), work, arguments)
        before = os.getloadavg()
        for part in arguments.only or PARTS:
            print(f"measuring {part.replace('_', ' ')}", file=sys.stderr)
            getattr(bench, f"measure_{part}")()
        print(f"{platform.machine()}, {os.cpu_count()} processors, Linux {platform.release()}, load average "
              f"{before[0]:.2f} before and {os.getloadavg()[0]:.2f} after; medians (least .. most, samples)\n")
        bench.figures.print([kind.name for kind in bench.kinds])


if __name__ == "__main__":
    main()
