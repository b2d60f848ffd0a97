#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""usage: ./dev soak --day [--share PERCENT] [library|exporter|monitor|top]...

A day's rounds of each program on simulated hosts, as quickly as they go: a million refreshes of the library, 100,000
scrapes of the exporter, 100,000 rounds of monitor and of top, on terminals of their own. Private memory and descriptors
before and after; fails where they have grown. The clocks of monitor and top run quicker (time_lapse.cpp), so that they
wait less between the rounds; with --share only that much of it all is done.
"""
from __future__ import annotations

import argparse
import os
import pty
import re
import signal
import subprocess
import sys
import tempfile
import threading
import time
from pathlib import Path
from typing import List, NamedTuple

GROWTH_KIB = 256  # of all processes of a program: what the allocator may keep after a rare large piece of work


def children(pid: int) -> List[int]:
    found = [int(one) for one in Path(f"/proc/{pid}/task/{pid}/children").read_text().split()]
    return found + [grand for child in found for grand in children(child)]


class Holds(NamedTuple):
    kib: int
    descriptors: int
    processes: int


def held(pid: int) -> Holds:
    """The least of many looks: amid a round a file more is open."""
    looks = [look(pid) for _ in range(50)]
    return Holds(*(min(each) for each in zip(*looks)))


def look(pid: int) -> Holds:
    kib = descriptors = 0
    family = [pid, *children(pid)]
    for one in family:
        text = Path(f"/proc/{one}/smaps_rollup").read_text()
        kib += sum(int(each) for each in re.findall(r"Private_\w+: +(\d+)", text))
        descriptors += len(os.listdir(f"/proc/{one}/fd"))
    return Holds(kib, descriptors, len(family))


class Watched:
    """A command of veksmi on a host with two GPUs and a terminal of its own, and how many rounds it has made."""

    GPUS = 2

    def __init__(self, binaries: Path, directory: Path, lapse: int, command: List[str]) -> None:
        self.count = directory / "count"
        self.own, theirs = pty.openpty()
        quick = f'LD_PRELOAD="$LD_PRELOAD:$0" TIME_LAPSE={lapse} TIME_LAPSE_COUNT="{self.count}" exec "$@"'
        self.process = subprocess.Popen(
            [binaries / "veksim", "--gpus", str(self.GPUS), "--", "sh", "-c", quick,
             binaries.parent / "lib/libvekml_time_lapse.so", binaries / "veksmi", *command],
            stdin=theirs, stdout=theirs, stderr=theirs, start_new_session=True,
            env={**os.environ, "TERM": "xterm-256color", "LC_ALL": "C.UTF-8", "XDG_STATE_HOME": str(directory)})  # fmt: skip
        os.close(theirs)
        threading.Thread(target=self.read, daemon=True).start()

    def read(self) -> None:
        try:
            while os.read(self.own, 65536):
                pass
        except OSError:  # it has ended
            pass

    def rounds(self) -> int:
        return int.from_bytes(self.count.read_bytes(), sys.byteorder) // self.GPUS if self.count.exists() else 0

    def until(self, rounds: int) -> Holds:
        while self.rounds() < rounds:
            if self.process.poll() is not None:
                raise SystemExit(f"day: it ended by itself with {self.process.returncode}")
            time.sleep(0.05)
        return held(self.client())

    def client(self) -> int:
        return next(pid for pid in children(self.process.pid) if Path(f"/proc/{pid}/comm").read_text() == "veksmi\n")

    def stop(self) -> None:
        if self.process.poll() is None:
            os.kill(self.client(), signal.SIGTERM)
        self.process.wait(60)


def live(binaries: Path, name: str, rounds: int, lapse: int, settled: float, command: List[str]) -> bool:
    """Every buffer has its size after the share SETTLED of the rounds."""
    begun = time.monotonic()
    with tempfile.TemporaryDirectory(prefix="vekgpu-day-") as directory:
        watched = Watched(binaries, Path(directory), lapse, command)
        try:
            before = watched.until(max(int(settled * rounds), 20))
            after = watched.until(rounds)
        finally:
            watched.stop()
    print(f"{name}: {rounds} rounds in {time.monotonic() - begun:.0f} s; of {after.processes} processes private memory "
          f"{before.kib} -> {after.kib} KiB, descriptors {before.descriptors} -> {after.descriptors}", flush=True)
    return after.kib <= before.kib + GROWTH_KIB and after[1:] == before[1:]


def main() -> None:
    parts = ["library", "exporter", "monitor", "top"]
    parser = argparse.ArgumentParser(prog="./dev soak --day")
    parser.add_argument("binaries", type=Path, help=argparse.SUPPRESS)
    parser.add_argument("parts", nargs="*", default=parts, choices=parts)
    parser.add_argument("--share", type=float, default=100, metavar="PERCENT")
    wanted = parser.parse_args()
    some = wanted.share / 100
    binaries, rounds = wanted.binaries, int(100_000 * some)

    def command(name: str, *words: str) -> bool:
        print(f"{name}:", flush=True)
        return subprocess.run(words, check=False).returncode == 0

    ways = {
        "library": lambda: command("library", f"{binaries}/vekml_soak", "--refreshes", str(int(1_000_000 * some))),
        "exporter": lambda: command("exporter", "/usr/bin/python3", f"{Path(__file__).parent}/exporter.py", f"{binaries}",
                                    "--only", "endurance", "--scrapes", str(rounds)),
        "monitor": lambda: live(binaries, "monitor", rounds, 10, 0.05, ["monitor", "-n", "0.01", "--deadline", "60"]),
        # top keeps an hour, which by its clock is over in a third of the rounds.
        "top": lambda: live(binaries, "top", rounds, 20, 0.4, ["top", "-n", "0.1"]),
    }  # fmt: skip
    grown = [part for part in wanted.parts if not ways[part]()]
    if grown:
        raise SystemExit(f"day: grown, or not done: {', '.join(grown)}")


if __name__ == "__main__":
    main()
