#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""What the live screen costs on a simulated host with 15 moving GPUs: ./dev bench top

Time of a core beyond that of `monitor`, memory beyond it (an hour of history is taken at once), bytes sent to an
80x24 terminal for each update, and how long a key waits for its answer while a GPU hangs.
"""
from __future__ import annotations

import os
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path
from typing import List, Tuple

ROOT = Path(__file__).resolve().parent.parent
sys.dont_write_bytecode = True
sys.path.insert(0, str(ROOT / "tests" / "top"))
from terminal import Terminal  # noqa: E402

BIN = Path(os.environ.get("VEKGPU_BIN", ROOT / "build" / "release" / "bin"))
GPUS = 15
SECONDS = int(sys.argv[1]) if len(sys.argv) > 1 else 30
TICKS = os.sysconf("SC_CLK_TCK")


def children(pid: int) -> List[int]:
    return [int(each) for each in Path(f"/proc/{pid}/task/{pid}/children").read_text().split()]


def client_of(launcher: int) -> int:
    while True:
        for pid in children(launcher):
            if Path(f"/proc/{pid}/comm").read_text() == "veksmi\n":
                return pid
        time.sleep(0.1)


def seconds_used(client: int) -> float:
    used = 0
    for pid in [client, *children(client)]:
        fields = Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()
        used += int(fields[11]) + int(fields[12])
    return used / TICKS


def resident(client: int) -> int:
    status = Path(f"/proc/{client}/status").read_text()
    return int(status.split("RssAnon:")[1].split()[0]) * 1024


def host(tree: Path, *more: str) -> List[str]:
    return [str(BIN / "veksim"), "--gpus", str(GPUS), "--tree", str(tree), *more, "--", str(BIN / "veksmi")]


def monitor(tree: Path) -> Tuple[float, int]:
    process = subprocess.Popen([*host(tree), "monitor"], stdout=subprocess.DEVNULL)
    time.sleep(5)
    client = client_of(process.pid)
    before = seconds_used(client)
    time.sleep(SECONDS)
    result = (seconds_used(client) - before) / SECONDS, resident(client)
    os.kill(client, 15)
    process.wait()
    return result


def top(tree: Path) -> Tuple[float, int, float]:
    with Terminal([*host(tree), "top", "-n", "1"], XDG_STATE_HOME=str(tree / "state")) as screen:
        screen.wait_for("MODEL")
        client = client_of(screen.process.pid)
        end = time.monotonic() + 5
        while time.monotonic() < end:
            screen.read(0.2)
        before, sent = seconds_used(client), len(screen.raw)
        end = time.monotonic() + SECONDS
        while time.monotonic() < end:
            screen.read(0.2)
        result = (seconds_used(client) - before) / SECONDS, resident(client), (len(screen.raw) - sent) / SECONDS
        screen.type("q")
        screen.end()
        return result


def sent_for_one(tree: Path) -> float:
    with Terminal([*host(tree), "top", "-n", "1", "-i", "0"], XDG_STATE_HOME=str(tree / "state")) as screen:
        screen.wait_for("highest")
        before, end = len(screen.raw), time.monotonic() + SECONDS
        while time.monotonic() < end:
            screen.read(0.2)
        return (len(screen.raw) - before) / SECONDS


def answers_to_keys(tree: Path) -> List[float]:
    node = next((tree / "sys/class/drm/card3/device/hwmon").iterdir()) / "fan1_input"
    node.unlink()
    node.symlink_to("stuck")
    waits = []
    with Terminal([*host(tree, "--still"), "top", "-n", "1"], XDG_STATE_HOME=str(tree / "state")) as screen:
        screen.wait_for("MODEL", 60)
        screen.settle()
        for turn in range(200):
            screen.type("h" if turn % 2 == 0 else " ")
            waits.append(screen.wait(lambda text: ("time across" in text) == (turn % 2 == 0)))
            time.sleep(0.037)
    return waits


with tempfile.TemporaryDirectory() as folder:
    tree = Path(folder) / "host"
    subprocess.run([*host(tree)[:-1], "true"], check=True)
    cost_monitor, memory_monitor = monitor(tree)
    cost_top, memory_top, sent = top(tree)
    sent_one = sent_for_one(tree)
    keys = answers_to_keys(tree)
print(f"time of a core with {GPUS} GPUs, one round a second, over {SECONDS} s, readers included:")
print(f"  monitor {100 * cost_monitor:.2f} %, top {100 * cost_top:.2f} %, more by {100 * (cost_top - cost_monitor):.2f} %")
print(f"memory: monitor {memory_monitor >> 10} KiB, top {memory_top >> 10} KiB, more by {(memory_top - memory_monitor) >> 10} KiB")
print(f"sent to an 80x24 terminal for an update: {sent:.0f} bytes with {GPUS} GPUs, {sent_one:.0f} with one in depth")
print(f"a key's answer while a GPU hangs: median {1000 * statistics.median(keys):.1f} ms, longest {1000 * max(keys):.1f} ms of {len(keys)}")
